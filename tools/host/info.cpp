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

constexpr char strangeKey[] = "no_such_setting";

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
std::string EarlierName(const std::vector<std::pair<std::string, void*>>& answers, const void* answer) {
    for (const auto& [name, address] : answers) {
        if (address == answer) {
            return name;
        }
    }
    return {};
}

void DescribeContracts(std::string& text, OKM8::IContract& object) {
    constexpr std::size_t nameWidth = 52;
    std::vector<std::pair<std::string, void*>> answers;
    for (const char* name : contractNames) {
        void* const answer = object.QueryContract(name);
        std::string line = "  " + Padded(name, nameWidth) + (answer == nullptr ? "no" : "yes");
        if (answer != nullptr) {
            if (const std::string earlier = EarlierName(answers, answer); !earlier.empty()) {
                line += ", the same object as " + earlier;
            } else if (answer != static_cast<void*>(&object)) {
                line += ", an object of its own";
            }
            answers.emplace_back(name, answer);
        }
        if (std::as_const(object).QueryContract(name) != answer) {
            line += "; asked as constant it answers otherwise";
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
    text += "  " + Padded("(any other)", keyWidth) + TypesText(settings, strangeKey) + "\n";
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
        text += "\nthe module answers\n";
        DescribeContracts(text, plugin.Module());
        const Detector detector = plugin.CreateDetector(peer);
        text += "\na detector answers\n";
        DescribeContracts(text, *detector.handle);
        text += "\na detector takes the settings\n";
        DescribeSettings(text, *detector.settings);
    }
    text += std::string("\nthe debug level is the value ") + OKM8::DebugLevelValue::Name + " of " +
            OKM8::DebugLevelValue::Key + ", looked for in\n";
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
