#include "sdk/contract_names.h"

#include <cxxabi.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <typeinfo>

#include "sdk/buffer.h"
#include "sdk/contract.h"
#include "sdk/detector.h"
#include "sdk/events.h"
#include "sdk/host.h"
#include "sdk/module.h"

namespace {

template <class Interface>
std::string NameOfType() {
    int status = -1;
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(Interface).name(), nullptr, nullptr, &status), &std::free);
    return status == 0 ? std::string("struct ") + name.get() : "no name";
}

TEST(ContractName, IsTheWordStructAndTheQualifiedName) {
    namespace Names = OKM8::ContractName;
    EXPECT_EQ(Names::IContract, NameOfType<OKM8::IContract>());
    EXPECT_EQ(Names::IDestroyable, NameOfType<OKM8::IDestroyable>());
    EXPECT_EQ(Names::IAsyncAdjuster, NameOfType<OKM8::IAsyncAdjuster>());
    EXPECT_EQ(Names::IErrorInfoProvider, NameOfType<OKM8::IErrorInfoProvider>());
    EXPECT_EQ(Names::ILogger, NameOfType<OKM8::ILogger>());
    EXPECT_EQ(Names::ICloneable, NameOfType<OKM8::ICloneable>());
    EXPECT_EQ(Names::IBinaryAdjuster, NameOfType<OKM8::IBinaryAdjuster>());
    EXPECT_EQ(Names::IPluginModule, NameOfType<OKM8::PLUGIN::IPluginModule>());
    EXPECT_EQ(Names::IModule, NameOfType<OKM8::Analytics::IModule>());
    EXPECT_EQ(Names::IDetector, NameOfType<OKM8::Analytics::IDetector>());
    EXPECT_EQ(Names::IMediaReceiver, NameOfType<OKM8::Analytics::IMediaReceiver>());
    EXPECT_EQ(Names::IMediaReceiverSingle, NameOfType<OKM8::Analytics::IMediaReceiverSingle>());
    EXPECT_EQ(Names::IMediaReceiverSingle2, NameOfType<OKM8::Analytics::IMediaReceiverSingle2>());
    EXPECT_EQ(Names::IMediaReceiverController, NameOfType<OKM8::Analytics::IMediaReceiverController>());
    EXPECT_EQ(Names::IDetectorEventRaiser, NameOfType<OKM8::Analytics::IDetectorEventRaiser>());
    EXPECT_EQ(Names::IEventArgsAdjuster, NameOfType<OKM8::Analytics::IEventArgsAdjuster>());
    EXPECT_EQ(Names::ITargetEnumeratorFactory, NameOfType<OKM8::Analytics::ITargetEnumeratorFactory>());
    EXPECT_EQ(Names::ITargetEnumeratorAdjuster, NameOfType<OKM8::Analytics::ITargetEnumeratorAdjuster>());
    EXPECT_EQ(Names::ITargetAdjuster, NameOfType<OKM8::Analytics::ITargetAdjuster>());
    EXPECT_EQ(Names::IMultimediaBuffer, NameOfType<OKM8::MFF::IMultimediaBuffer>());
    EXPECT_EQ(Names::ICompositeBuffer, NameOfType<OKM8::MFF::ICompositeBuffer>());
}

TEST(ContractName, IsWrittenAsTheHostWritesIt) {
    EXPECT_STREQ(OKM8::ContractName::IModule, "struct OKM8::Analytics::IModule");
    EXPECT_STREQ(OKM8::ContractName::IPluginModule, "struct OKM8::PLUGIN::IPluginModule");
    EXPECT_STREQ(OKM8::ContractName::ICompositeBuffer, "struct OKM8::MFF::ICompositeBuffer");
    EXPECT_STREQ(OKM8::ContractName::ILogger, "struct OKM8::ILogger");
}

}  // namespace
