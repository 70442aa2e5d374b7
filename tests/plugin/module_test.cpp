// The exports, and the module object through its slots.

#include "tests/plugin/plugin_fixture.h"

namespace {

using namespace plugin_test;
using OKM8::Analytics::IModule;
namespace ContractName = OKM8::ContractName;

class Module : public PluginFixture {};

TEST_F(Module, IsNullBeforeInitialization) {
    EXPECT_EQ(plugin->GetModule(), nullptr);
}

TEST_F(Module, IsNullForANullHost) {
    EXPECT_EQ(plugin->InitializeModule(nullptr), 0);
    EXPECT_EQ(plugin->GetModule(), nullptr);
}

TEST_F(Module, IsTheSameObjectAtEveryCall) {
    IModule* const module = Initialize();
    EXPECT_EQ(plugin->GetModule(), module);
    EXPECT_EQ(plugin->GetModule(), module);
}

TEST_F(Module, IsCreatedWithoutCallingTheHost) {
    EXPECT_EQ(plugin->InitializeModule(reinterpret_cast<void*>(std::uintptr_t{1})), 0);
    EXPECT_NE(plugin->GetModule(), nullptr);
    EXPECT_THAT(host.RequestedInterfaces(), testing::IsEmpty());
}

TEST_F(Module, IsNullAfterFinalization) {
    Initialize();
    plugin->FinalizeModule();
    EXPECT_EQ(plugin->GetModule(), nullptr);
}

TEST_F(Module, FinalizationWithoutAModuleForgetsTheHost) {
    EXPECT_EQ(plugin->InitializeModule(host.Object()), 0);
    plugin->FinalizeModule();
    EXPECT_EQ(plugin->GetModule(), nullptr);
}

TEST_F(Module, FinalizationWithoutInitializationAndTwiceIsHarmless) {
    plugin->FinalizeModule();
    Initialize();
    plugin->FinalizeModule();
    plugin->FinalizeModule();
    EXPECT_EQ(plugin->GetModule(), nullptr);
}

TEST_F(Module, CanBeCreatedAgainAfterFinalization) {
    for (int round = 0; round < 3; ++round) {
        IModule* const module = Initialize();
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(module->QueryContract(ContractName::IModule), module);
        Destroy(CreateDetector());
        plugin->FinalizeModule();
    }
}

TEST_F(Module, StaysTheSameAfterInitializationWithANullHost) {
    IModule* const module = Initialize();
    EXPECT_EQ(plugin->InitializeModule(nullptr), 0);
    EXPECT_EQ(plugin->GetModule(), module);
    // It keeps the host that it was created with.
    Destroy(CreateDetector());
    EXPECT_THAT(host.RequestedInterfaces(), testing::Contains(std::string(ContractName::ILogger)));
}

TEST_F(Module, ReturnsItselfForItsThreeNamesInBothQuerySlots) {
    IModule* const module = Initialize();
    for (const std::size_t slot : {0u, 1u}) {
        for (const char* name :
             {"struct OKM8::IContract", "struct OKM8::PLUGIN::IPluginModule", "struct OKM8::Analytics::IModule"}) {
            EXPECT_EQ((CallSlot<void*, const char*>(module, slot, name)), module) << slot << " " << name;
        }
    }
}

TEST_F(Module, ReturnsNullForAnyOtherNameInBothQuerySlots) {
    IModule* const module = Initialize();
    for (const std::size_t slot : {0u, 1u}) {
        EXPECT_EQ((CallSlot<void*, const char*>(module, slot, nullptr)), nullptr);
        for (const char* name : {"",
                                 "struct",
                                 "OKM8::IContract",
                                 "IContract",
                                 "struct OKM8::IContrac",
                                 "struct OKM8::IContract ",
                                 "struct OKM8::IContract2",
                                 " struct OKM8::IContract",
                                 "STRUCT OKM8::ICONTRACT",
                                 "struct okm8::icontract",
                                 "class OKM8::IContract",
                                 "struct OKM8::Analytics::IModul",
                                 "struct OKM8::Analytics::IDetector",
                                 "struct OKM8::IDestroyable",
                                 "struct OKM8::Analytics::IMediaReceiver",
                                 "struct OKM8::Analytics::IMediaReceiverSingle",
                                 "struct OKM8::Analytics::IMediaReceiverSingle2",
                                 "struct OKM8::IAsyncAdjuster",
                                 "struct OKM8::IErrorInfoProvider",
                                 "struct OKM8::Analytics::IMediaReceiverController",
                                 "%s%s%s%n"}) {
            EXPECT_EQ((CallSlot<void*, const char*>(module, slot, name)), nullptr) << slot << " " << name;
        }
    }
}

TEST_F(Module, CreatesADetectorByItsFourthSlotAndDoesNotReadTheFirstArgument) {
    IModule* const module = Initialize();
    void* const detector =
        CallSlot<void*, void*, OKM8::IContract*>(module, 3, reinterpret_cast<void*>(std::uintptr_t{1}), host.Peer());
    ASSERT_NE(detector, nullptr);
    EXPECT_EQ((CallSlot<void*, const char*>(detector, 0, "struct OKM8::Analytics::IDetector")), detector);
    CallSlot<void>(detector, 3);
}

TEST_F(Module, CreatesNoDetectorWithoutAPeer) {
    IModule* const module = Initialize();
    int anything = 0;
    EXPECT_EQ((CallSlot<void*, void*, OKM8::IContract*>(module, 3, nullptr, nullptr)), nullptr);
    EXPECT_EQ((CallSlot<void*, void*, OKM8::IContract*>(module, 3, &anything, nullptr)), nullptr);
    EXPECT_THAT(servers::Running(), testing::IsEmpty()) << "no detector, so no server";
    EXPECT_THAT(host.RequestedInterfaces(), testing::IsEmpty());
}

TEST_F(Module, CreatesADetectorForEachCall) {
    Initialize();
    EXPECT_NE(CreateDetector(), CreateDetector());
}

// The debug level

TEST_F(Module, InitializationCreatesAMissingKeyAndWritesNothing) {
    const DebugLines lines;
    Initialize();
    EXPECT_TRUE(folder.HasEmptyKey());
    Destroy(CreateDetector());
    EXPECT_EQ(lines.Text(), "");
}

TEST_F(Module, TheLevelIsReadAtEveryInitialization) {
    const char line[] = "Create vexlane detector";
    for (const auto& [level, isVerbose] : std::vector<std::pair<const char*, bool>>{
             {"0", false}, {"1", true}, {"abc", false}, {"-5", true}, {"", false}, {"1abc", true}}) {
        folder.SetDebugLevel(level);
        const DebugLines lines;
        Initialize();
        Destroy(CreateDetector());
        plugin->FinalizeModule();
        EXPECT_EQ(lines.Text().find(line) != std::string::npos, isVerbose) << level << "\n" << lines.Text();
        EXPECT_EQ(lines.Text().empty(), !isVerbose) << level;
    }
}

TEST_F(Module, TheLevelIsNotReadBetweenInitializations) {
    folder.SetDebugLevel("0");
    Initialize();
    folder.SetDebugLevel("1");
    const DebugLines lines;
    plugin->GetModule();
    Destroy(CreateDetector());
    EXPECT_EQ(lines.Text(), "");
}

}  // namespace
