#include "tools/host/info.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>
#include <vector>

#include "sdk/contract_names.h"
#include "sdk/module.h"
#include "sdk/setting_keys.h"
#include "tools/host/failure.h"
#include "tools/host/host_objects.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

namespace ContractName = OKM8::ContractName;

constexpr std::array contractNames{
    ContractName::IContract,
    ContractName::IDestroyable,
    ContractName::IAsyncAdjuster,
    ContractName::IErrorInfoProvider,
    ContractName::ILogger,
    ContractName::ICloneable,
    ContractName::IBinaryAdjuster,
    ContractName::IPluginModule,
    ContractName::IModule,
    ContractName::IDetector,
    ContractName::IMediaReceiver,
    ContractName::IMediaReceiverSingle,
    ContractName::IMediaReceiverSingle2,
    ContractName::IMediaReceiverController,
    ContractName::IDetectorEventRaiser,
    ContractName::IEventArgsAdjuster,
    ContractName::ITargetEnumeratorFactory,
    ContractName::ITargetEnumeratorAdjuster,
    ContractName::ITargetAdjuster,
    ContractName::IMultimediaBuffer,
    ContractName::ICompositeBuffer,
};

constexpr char unknownKey[] = "no_such_setting";

/// Drops the events of a detector that is only queried.
class NoEvents final : public EventSink {
  public:
    void OnEvent(const EventRecord&) override {}
};

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

// The earlier name for which the same address was returned, if any.
std::string EarlierName(const std::vector<std::pair<std::string, void*>>& objects, const void* result) {
    for (const auto& [name, address] : objects) {
        if (address == result) {
            return name;
        }
    }
    return {};
}

void DescribeContracts(std::string& text, OKM8::IContract& object) {
    constexpr std::size_t nameWidth = 52;
    std::vector<std::pair<std::string, void*>> objects;
    for (const char* name : contractNames) {
        void* const result = object.QueryContract(name);
        std::string line = "  " + Padded(name, nameWidth) + (result == nullptr ? "no" : "yes");
        if (result != nullptr) {
            if (const std::string earlier = EarlierName(objects, result); !earlier.empty()) {
                line += ", the same object as " + earlier;
            } else if (result != static_cast<void*>(&object)) {
                line += ", a separate object";
            }
            objects.emplace_back(name, result);
        }
        if (std::as_const(object).QueryContract(name) != result) {
            line += "; the const QueryContract returns another object";
        }
        text += line + "\n";
    }
}

std::string TypesText(OKM8::IAsyncAdjuster& settings, const std::string& key) {
    std::string types;
    for (const std::string& type : AcceptedTypes(settings, key)) {
        types += (types.empty() ? "" : ", ") + type;
    }
    return types.empty() ? "refused" : types;
}

void DescribeSettings(std::string& text, OKM8::IAsyncAdjuster& settings) {
    constexpr std::size_t keyWidth = 20;
    for (const char* key : OKM8::Analytics::SettingKey::All) {
        text += "  " + Padded(key, keyWidth) + TypesText(settings, key) + "\n";
    }
    text += "  " + Padded("(any other)", keyWidth) + TypesText(settings, unknownKey) + "\n";
}

}  // namespace

int Info(const InfoOptions& options, Console& console) {
    NoEvents sink;
    HostObject host(console);
    DetectorPeer peer(0, host, sink, console);
    std::string text;
    {
        Plugin plugin(options.paths);
        plugin.Initialize(host);
        text += "library: " + plugin.LibraryPath() + "\nengine:  " + plugin.EnginePath() + "\n";
        text += "\ncontracts of the module\n";
        DescribeContracts(text, plugin.Module());
        const Detector detector = plugin.CreateDetector(peer);
        text += "\ncontracts of a detector\n";
        DescribeContracts(text, *detector.handle);
        text += "\nsettings of a detector and their types\n";
        DescribeSettings(text, *detector.settings);
    }
    text += std::string("\nthe debug level is the value ") + OKM8::DebugLevelValue::Name + " of the key " +
            OKM8::DebugLevelValue::Key + ", read from\n";
    for (const std::string& place : DebugLevelPlaces()) {
        text += "  " + place + "\n";
    }
    const WriteResult written = WriteStandard(StandardStream::Output, text);
    if (!written.error.empty()) {
        console.Line("plate-host: error: cannot write: " + written.error);
        return exitDefect;
    }
    return Interruption() == 0 ? 0 : 128 + Interruption();
}

}  // namespace plate_host
