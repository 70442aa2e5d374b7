// Drives the library as a host of another compiler does, from the exports to the destruction of the module, through
// every slot of every interface. The tables and type information of the host's objects are this compiler's own.

#include "sdk/contract_names.h"
#include "sdk/detector.h"
#include "sdk/module.h"
#include "sdk/plate_events.h"
#include "tests/contract_host/channel.h"
#include "tests/contract_host/checks.h"
#include "tests/contract_host/detector_table.h"
#include "tests/contract_host/host_objects.h"
#include "tests/contract_host/targets.h"

namespace contract_host {

namespace {

using OKM8::IContract;
using OKM8::Analytics::IDetector;
using OKM8::Analytics::IModule;

namespace ContractName = OKM8::ContractName;
namespace ErrorCode = OKM8::ErrorCode;
namespace PlateKey = OKM8::Analytics::PlateKey;

constexpr unsigned destructorSlot = 2;
constexpr unsigned destroyOnly = 0;
constexpr unsigned destroyAndFree = 1;
constexpr unsigned bothFlags[] = {destroyOnly, destroyAndFree};

// Calls the operation in a slot. The arguments may have bits set beyond the parameter's type.
template <class Result, class... Arguments>
Result CallSlot(void* object, unsigned slot, Arguments... arguments) {
    using Operation = Result (*)(void*, Arguments...);
    void** const table = *static_cast<void***>(object);
    return reinterpret_cast<Operation>(table[slot])(object, arguments...);
}

// --- the module ---

void CheckModuleNames(IModule* module) {
    const IModule* const constModule = module;
    const char* const ownNames[] = {ContractName::IContract, ContractName::IPluginModule, ContractName::IModule};
    for (const char* const name : ownNames) {
        Equal(name, module->QueryContract(name), module);
        Equal(name, constModule->QueryContract(name), module);
    }
    const char* const foreignNames[] = {ContractName::IDetector, ContractName::ILogger, "OKM8::IContract", ""};
    for (const char* const name : foreignNames) {
        Equal("a name that the module does not have", module->QueryContract(name), nullptr);
        Equal("a name that the module does not have", constModule->QueryContract(name), nullptr);
    }
    Equal("a null name", module->QueryContract(nullptr), nullptr);
}

void CheckExports() {
    BeginChecks("exports");
    Plugin plugin;
    if (!plugin.IsComplete()) {
        return;
    }
    Host host;
    Equal("no module before InitializeModule", plugin.getModule(), nullptr);
    Equal("InitializeModule returns 0", plugin.initialize(static_cast<OKM8::IHost*>(&host)), 0);
    IModule* const module = plugin.getModule();
    ReportCheck("the module is created", module != nullptr);
    if (module == nullptr) {
        return;
    }
    Equal("GetModule returns the same module", plugin.getModule(), module);
    BeginChecks("module names");
    CheckModuleNames(module);

    BeginChecks("CreateDetector");
    Equal("without a peer", module->CreateDetector(&host, nullptr), nullptr);
    DetectorPeer peer;
    IDetector* const detector = module->CreateDetector(&host, &peer);
    ReportCheck("with a peer", detector != nullptr);
    Equal("gets the logger once", host.loggerCalls, 1);
    Equal("gets nothing else", host.factoryCalls + peer.calls, 0);
    if (detector != nullptr) {
        Equal("creates a detector", detector->QueryContract(ContractName::IDetector), detector);
        BeginChecks("Destroy");
        detector->Destroy();
        ReportCheck("frees the detector", !IsAllocated(detector));
    }

    BeginChecks("FinalizeModule");
    plugin.finalize();
    ReportCheck("frees the module", !IsAllocated(module));
    Equal("no module after FinalizeModule", plugin.getModule(), nullptr);
    Equal("no unexpected calls", unexpectedCalls, 0);
}

void CheckModuleDestructor() {
    Host host;
    for (const unsigned flags : bothFlags) {
        BeginChecks(flags == destroyOnly ? "module destructor slot, flag 0" : "module destructor slot, flag 1");
        Plugin plugin;
        if (!plugin.IsComplete()) {
            return;
        }
        plugin.initialize(static_cast<OKM8::IHost*>(&host));
        IModule* const module = plugin.getModule();
        ReportCheck("the module is created", module != nullptr && IsAllocated(module));
        if (module == nullptr) {
            return;
        }
        Equal("returns the module", CallSlot<void*>(module, destructorSlot, flags), module);
        Equal("memory stays allocated", IsAllocated(module), flags == destroyOnly);
        if (flags == destroyOnly) {
            FreeBlock(module);
        }
        // The library is unloaded without FinalizeModule, because its module is already destroyed.
    }
}

// --- a detector's parts and its destruction ---

struct NamedPart {
    const char* name;
    unsigned position;  // the part's offset in the object, in table pointers
};

constexpr NamedPart namedParts[] = {
    {"struct OKM8::IContract", 0},
    {"struct OKM8::IDestroyable", 0},
    {"struct OKM8::Analytics::IDetector", 0},
    {"struct OKM8::Analytics::IMediaReceiver", 1},
    {"struct OKM8::Analytics::IMediaReceiverSingle", 2},
    {"struct OKM8::Analytics::IMediaReceiverSingle2", 2},
    {"struct OKM8::IAsyncAdjuster", 3},
    {"struct OKM8::IErrorInfoProvider", 4},
    {"struct OKM8::Analytics::IMediaReceiverController", 5},
};

constexpr const char* foreignNames[] = {
    "struct OKM8::Analytics::IModule",
    "struct OKM8::PLUGIN::IPluginModule",
    "struct OKM8::ILogger",
    "struct OKM8::IBinaryAdjuster",
    "struct OKM8::MFF::IMultimediaBuffer",
    "struct OKM8::MFF::ICompositeBuffer",
    "struct OKM8::Analytics::ITargetAdjuster",
    "OKM8::IAsyncAdjuster",
    "struct OKM8::iasyncadjuster",
    "struct OKM8::IAsyncAdjuster ",
    "",
};

constexpr unsigned partCount = 6;

IContract* PartOf(IDetector* detector, unsigned position) {
    constexpr const char* names[partCount] = {
        ContractName::IDetector,      ContractName::IMediaReceiver,     ContractName::IMediaReceiverSingle2,
        ContractName::IAsyncAdjuster, ContractName::IErrorInfoProvider, ContractName::IMediaReceiverController};
    return static_cast<IContract*>(detector->QueryContract(names[position]));
}

void CheckParts(Plugin& plugin) {
    BeginChecks("detector names");
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    const auto begin = reinterpret_cast<uintptr_t>(channel.detector);
    for (unsigned position = 0; position < partCount; ++position) {
        IContract* const part = PartOf(channel.detector, position);
        const IContract* const constPart = part;
        for (const NamedPart& named : namedParts) {
            const uintptr_t expected = begin + named.position * sizeof(void*);
            Equal(named.name, reinterpret_cast<uintptr_t>(part->QueryContract(named.name)), expected);
            Equal(named.name, reinterpret_cast<uintptr_t>(constPart->QueryContract(named.name)), expected);
        }
        bool isFound = false;
        for (const char* const name : foreignNames) {
            isFound |= part->QueryContract(name) != nullptr || constPart->QueryContract(name) != nullptr;
        }
        isFound |= part->QueryContract(nullptr) != nullptr || constPart->QueryContract(nullptr) != nullptr;
        ReportCheck("QueryContract returns null for other names and for null", !isFound);
    }
}

void CheckDetectorDestructor(Plugin& plugin) {
    for (unsigned position = 0; position < partCount; ++position) {
        for (const unsigned flags : bothFlags) {
            BeginChecks(flags == destroyOnly ? "detector destructor slot, flag 0" : "detector destructor slot, flag 1");
            InputBuffer frame;
            frame.Prepare(frameTime);
            Channel channel(plugin);
            if (!channel.IsComplete()) {
                return;
            }
            channel.ReportPlatesAfter(5);
            Equal("a frame is accepted", channel.receiver->Receive(&frame), ErrorCode::None);
            Equal("its pending plate keeps it", frame.story.released, 0);
            IDetector* const detector = channel.detector;
            channel.detector = nullptr;
            IContract* const part = PartOf(detector, position);
            ReportCheck("the detector is allocated", IsAllocated(detector));
            Equal("returns the detector", CallSlot<void*>(part, destructorSlot, flags), detector);
            Equal("the frame is released", frame.story.released, 1);
            Equal("memory stays allocated", IsAllocated(detector), flags == destroyOnly);
            if (flags == destroyOnly) {
                FreeBlock(detector);
            }
        }
    }

    BeginChecks("delete by the host's compiler");
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    IDetector* const detector = channel.detector;
    channel.detector = nullptr;
    OKM8::DestroyThroughSlot(detector);
    ReportCheck("frees the detector", !IsAllocated(detector));
}

// --- a detector's operations ---

void CheckSettings(Plugin& plugin) {
    BeginChecks("IAsyncAdjuster");
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    OKM8::IAsyncAdjuster& adjuster = *channel.adjuster;
    channel.ExpectError("no error at first", ErrorCode::None, "");
    Equal("SetStringValue accepts a text", adjuster.SetStringValue("name", "gate"), ErrorCode::None);
    Equal("SetStringValue accepts a text", adjuster.SetStringValue("id", "31"), ErrorCode::None);
    Equal("SetStringValue refuses a number's name", adjuster.SetStringValue("area_top", "1"),
          ErrorCode::RefusedSetting);
    channel.ExpectError("SetStringValue refuses a number's name", ErrorCode::RefusedSetting, "area_top");
    Equal("SetDoubleValue refuses every name", adjuster.SetDoubleValue("area_left", 1.5), ErrorCode::RefusedSetting);
    channel.ExpectError("SetDoubleValue refuses every name", ErrorCode::RefusedSetting, "area_left");
    Equal("SetIntValue accepts a number", adjuster.SetIntValue("area_right", 95), ErrorCode::None);
    channel.ExpectError("SetIntValue accepts a number", ErrorCode::None, "");
    Equal("SetIntValue refuses a boolean's name", adjuster.SetIntValue("use_area", 1), ErrorCode::RefusedSetting);
    Equal("SetBoolValue accepts a boolean", adjuster.SetBoolValue("use_half_cadr", true), ErrorCode::None);
    Equal("SetBoolValue refuses a number's name", adjuster.SetBoolValue("area_bottom", true),
          ErrorCode::RefusedSetting);
    channel.ExpectError("SetBoolValue refuses a number's name", ErrorCode::RefusedSetting, "area_bottom");
    adjuster.ApplySettings();
    channel.ExpectError("ApplySettings clears the error", ErrorCode::None, "");

    // The operations of the first table return what the setters stored.
    auto& table = *static_cast<detector_table::VexlaneDetectorImpl*>(channel.detector);
    BeginChecks("first table");
    Equal("GetIdNumber reads the id", table.GetIdNumber(), 31);
    Equal("SetFrameSize returns half the height", table.SetFrameSize(720, 576), 288);
    Equal("IsHalfFrame is true", table.IsHalfFrame(), true);
    Equal("LogError returns true", table.LogError("bad", 6), true);
    Equal("WriteLog has the level", channel.host.logger.level, 3);
    Equal("WriteLog has the text", channel.host.logger.text, "[BaseDetectorImpl] [gate] [id:31] bad. Error = 6\n");
    Equal("LogError returns false without a code", table.LogError("good", 0), false);
    Equal("WriteLog is called once", channel.host.logger.calls, 1);
    channel.Refuse();
    table.OnSettingsApplied();
    table.RebuildTransforms();
    channel.ExpectError("OnSettingsApplied and RebuildTransforms leave the error", ErrorCode::RefusedSetting,
                        "no_such_setting");
    table.SetFrameSizeAndApply(639, 576);
    channel.ExpectError("SetFrameSizeAndApply applies", ErrorCode::None, "");
    Equal("SetFrameSizeAndApply stores the size", table.IsHalfFrame(), false);
    Equal("ProcessInput without a frame", table.ProcessInput(nullptr, nullptr), ErrorCode::Failed);

    BeginChecks("IMediaReceiverSingle2 values");
    OKM8::Analytics::IMediaReceiverSingle2& single = *channel.single;
    Equal("SetStringValue", single.SetStringValue("text", "a text"), ErrorCode::None);
    Equal("SetDoubleValue", single.SetDoubleValue("real", -2.5), ErrorCode::None);
    Equal("SetIntValue", single.SetIntValue("number", -7), ErrorCode::None);
    Equal("SetBoolValue", single.SetBoolValue("truth", true), ErrorCode::None);
    Equal("SetBoolValue refuses a null name", single.SetBoolValue(nullptr, true), ErrorCode::RefusedSetting);
    const char* text = nullptr;
    double real = 0;
    int32_t number = 0;
    bool truth = false;
    Equal("GetFrameText", table.GetFrameText("text", text), ErrorCode::None);
    Equal("GetFrameText", text, "a text");
    Equal("GetFrameDouble", table.GetFrameDouble("real", real), ErrorCode::None);
    ReportCheck("GetFrameDouble", real == -2.5);
    Equal("GetFrameInt", table.GetFrameInt("number", number), ErrorCode::None);
    Equal("GetFrameInt", number, -7);
    Equal("GetFrameBool", table.GetFrameBool("truth", truth), ErrorCode::None);
    Equal("GetFrameBool", truth, true);
    Equal("GetFrameInt of a double", table.GetFrameInt("real", number), ErrorCode::RefusedSetting);
    Equal("GetFrameDouble of a number", table.GetFrameDouble("number", real), ErrorCode::RefusedSetting);

    BeginChecks("registers wider than their arguments");
    // A caller sets only the bits of a register that the type has.
    constexpr uint64_t rest = 0xDEADBEEF00000000;
    CallSlot<int32_t>(&single, 6, "number", rest + 12);
    table.GetFrameInt("number", number);
    Equal("an integer is read from 32 bits", number, 12);
    CallSlot<int32_t>(&single, 7, "truth", rest + 0xFFFFFF00);
    table.GetFrameBool("truth", truth);
    Equal("a boolean is read from 8 bits", truth, false);
    CallSlot<int32_t>(&single, 7, "truth", rest + 0xFFFFFF01);
    table.GetFrameBool("truth", truth);
    Equal("a boolean is read from 8 bits", truth, true);

    BeginChecks("first table, single calls");
    const OKM8::FrameArea area = {1, 2, 3, 4};
    table.BeginSingleCall(area);
    Equal("BeginSingleCall leaves the values", table.GetFrameInt("number", number), ErrorCode::None);
    table.EndSingleCall();
    Equal("EndSingleCall drops the values", table.GetFrameInt("number", number), ErrorCode::RefusedSetting);
}

void CheckController(Plugin& plugin) {
    BeginChecks("IMediaReceiverController");
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    channel.Refuse();
    Equal("Control1", channel.controller->Control1(), 0);
    Equal("Control2", channel.controller->Control2(), 0);
    Equal("Control3", channel.controller->Control3(), 0);
    Equal("Control4", channel.controller->Control4(), 0);
    Equal("Control5", channel.controller->Control5(), 0);
    for (unsigned slot = 3; slot < 8; ++slot) {
        Equal("with arguments", CallSlot<int32_t>(channel.controller, slot, int64_t{-1}, 1.5, &channel), 0);
    }
    channel.ExpectError("leaves the error", ErrorCode::RefusedSetting, "no_such_setting");
}

// --- frames ---

void CheckRefusedFrames(Plugin& plugin) {
    BeginChecks("refused frames");
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    Equal("Receive without a buffer", channel.receiver->Receive(nullptr), ErrorCode::Failed);
    channel.ExpectError("Receive without a buffer", ErrorCode::Failed, "Input data is null");
    channel.Refuse();
    Equal("ReceiveSingle without a buffer", channel.single->ReceiveSingle(nullptr, nullptr, nullptr),
          ErrorCode::Failed);
    channel.ExpectError("ReceiveSingle without a buffer", ErrorCode::Failed, "Input data is null");

    InputBuffer other;
    other.isComposite = false;
    Equal("a buffer without a picture", channel.receiver->Receive(&other), ErrorCode::Failed);
    channel.ExpectError("a buffer without a picture", ErrorCode::Failed, "inputData is not an ICompositeBuffer");
    Equal("a buffer without a picture is released", other.released, 1);

    InputBuffer empty;
    empty.Prepare(frameTime);
    empty.composite.width = 0;
    FrameDone done;
    Equal("a picture without a width", channel.single->ReceiveSingle(&empty, nullptr, &done), ErrorCode::Failed);
    channel.ExpectError("a picture without a width", ErrorCode::Failed, "Zero image size is not acceptable");
    Equal("a picture without a width is released", empty.story.released, 1);
    Equal("a picture without a width is not reported as done", done.calls, 0);

    InputBuffer small;
    small.Prepare(frameTime);
    --small.composite.size;
    Equal("a picture of unknown format", channel.receiver->Receive(&small), ErrorCode::Failed);
    channel.ExpectError("a picture of unknown format", ErrorCode::Failed, "Wrong image format");
}

struct ExpectedValue {
    char setter;
    const char* key;
    const char* text;
    int64_t number;
};

void ExpectValues(const TargetStory& story, const ExpectedValue* expected, unsigned count) {
    Equal("the target's number of values", story.count, count);
    for (unsigned index = 0; index < count && index < story.count; ++index) {
        const SetValue& value = story.values[index];
        Equal("the target's key", value.key, expected[index].key);
        Equal(expected[index].key, value.setter, expected[index].setter);
        Equal(expected[index].key, value.number, expected[index].number);
        Equal(expected[index].key, value.text, expected[index].text);
    }
}

void CheckPlate(Plugin& plugin) {
    BeginChecks("a frame with a plate");
    PlainTarget target;
    InputBuffer frame;
    frame.Prepare(frameTime);
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    channel.host.factory.enumerator.target = target.Describe().adjuster;
    channel.ReportPlatesAfter(1);
    channel.Refuse();
    Equal("Receive returns 0", channel.receiver->Receive(&frame), ErrorCode::None);
    channel.ExpectError("the error is cleared", ErrorCode::None, "");

    BeginChecks("the frame's buffer");
    Equal("the picture is queried", frame.story.queriedName, "struct OKM8::MFF::ICompositeBuffer");
    Text beginning;
    beginning = frame.story.calls.characters;
    beginning.characters[5] = '\0';
    Equal("data, size, height and width are read", beginning, "qdnhw");
    Equal("the picture is released once", frame.story.released, 1);
    ReportCheck("and not used after that",
                frame.story.count != 0 && frame.story.calls.characters[frame.story.count - 1] == 'r');
    Equal("the buffer itself is not released", frame.released, 0);

    BeginChecks("the event");
    const Host& host = channel.host;
    const DetectorPeer& peer = channel.peer;
    Equal("GetInterface for the factory", host.factoryCalls, 1);
    Equal("CreateTargetEnumerator", host.factory.calls, 1);
    Equal("CreateTargetEnumerator has the time", host.factory.timeMs, frameTime);
    Equal("CreateEventRaiser", peer.calls, 1);
    Equal("CreateEventRaiser has the detector", peer.detector, channel.detector);
    Equal("CreateEventRaiser has the name", peer.eventName, "event");
    Equal("CreateEventRaiser has the time", peer.timeMs, frameTime);
    Equal("CreateEventRaiser has the kind", peer.kind, 3);
    const EventRaiser& raiser = peer.raiser;
    Equal("GetEventArgs", raiser.argumentCalls, 1);
    Equal("SetObjectValue", raiser.arguments.calls, 1);
    Equal("SetObjectValue has the name", raiser.arguments.key, "targets");
    Equal("SetObjectValue has the targets", raiser.arguments.object,
          static_cast<const IContract*>(&host.factory.enumerator));
    Equal("AddTarget", host.factory.enumerator.calls, 1);
    Equal("AddTarget has 0", host.factory.enumerator.reserved, 0);
    Equal("Raise", raiser.raised, 1);
    Equal("Discard", raiser.discarded, 0);

    BeginChecks("the target's values");
    constexpr ExpectedValue expected[] = {
        {'s', "lp_wnum", "AB123C", 0}, {'i', "char_num", "", 6},  {'s', "country_code", "", 0},
        {'i', "confidence", "", 90},   {'i', "direction", "", 0}, {'i', "lpf_x1", "", 100},
        {'i', "lpf_y1", "", 200},      {'i', "lpf_x3", "", 220},  {'i', "lpf_y3", "", 230},
        {'x', "all_tracks", "", 0},
    };
    ExpectValues(target.story, expected, sizeof expected / sizeof *expected);
    Equal("all_tracks has the size", target.story.binarySize, 24);
    Equal("all_tracks has one point", target.story.trackLength, 1);
    const OKM8::Analytics::TrackPoint& point = target.story.firstPoint;
    Equal("the point's x", point.x, 100);
    Equal("the point's y", point.y, 200);
    Equal("the point's width", point.width, 0);
    Equal("the point's height", point.height, 30);
    Equal("the point's time", point.time, OKM8::Analytics::TrackTimeEpoch + static_cast<int64_t>(frameTime) * 1000);
    Equal("the point's flag", point.flag, 0);
}

void ExpectArea(const char* what, const TargetStory& story, bool isSent, int left, int top, int right, int bottom) {
    const char* const keys[] = {PlateKey::AreaLeft, PlateKey::AreaTop, PlateKey::AreaRight, PlateKey::AreaBottom};
    const int edges[] = {left, top, right, bottom};
    for (unsigned edge = 0; edge < 4; ++edge) {
        const SetValue* const value = story.Find(keys[edge]);
        Equal(what, value != nullptr, isSent);
        if (value != nullptr) {
            Equal(what, value->number, edges[edge]);
        }
    }
}

void CheckAreas(Plugin& plugin) {
    const auto play = [&plugin](TargetStory& story, auto prepareAndReceive) {
        LoneTarget target;
        InputBuffer frame;
        frame.Prepare(frameTime);
        Channel channel(plugin);
        if (!channel.IsComplete()) {
            return;
        }
        channel.host.factory.enumerator.target = &target;
        channel.ReportPlatesAfter(1);
        prepareAndReceive(channel, frame);
        Equal("an event is raised", channel.peer.raiser.raised, 1);
        story = target.story;
    };
    BeginChecks("areas");
    TargetStory configured;
    play(configured, [](Channel& channel, InputBuffer& frame) {
        channel.adjuster->SetIntValue("area_left", 5);
        channel.adjuster->SetIntValue("area_top", 6);
        channel.adjuster->SetIntValue("area_right", 95);
        channel.adjuster->SetIntValue("area_bottom", 94);
        channel.adjuster->SetBoolValue("use_area", true);
        channel.receiver->Receive(&frame);
    });
    ExpectArea("the settings' area reaches the event", configured, true, 5, 6, 95, 94);

    TargetStory switchedOff;
    play(switchedOff, [](Channel& channel, InputBuffer& frame) {
        channel.adjuster->SetBoolValue("use_area", true);
        channel.adjuster->SetBoolValue("use_area", false);
        channel.receiver->Receive(&frame);
    });
    ExpectArea("a disabled area does not", switchedOff, false, 0, 0, 0, 0);

    TargetStory single;
    FrameDone done;
    play(single, [&done](Channel& channel, InputBuffer& frame) {
        const OKM8::FrameArea area = {10, 20, 30, 40};
        int32_t number = 0;
        auto& table = *static_cast<detector_table::VexlaneDetectorImpl*>(channel.detector);
        channel.single->SetIntValue("number", 1);
        Equal("ReceiveSingle returns 0", channel.single->ReceiveSingle(&frame, &area, &done), ErrorCode::None);
        Equal("ReceiveSingle drops the values", table.GetFrameInt("number", number), ErrorCode::RefusedSetting);
        Equal("OnFrameDone", done.calls, 1);
        Equal("OnFrameDone has the buffer", done.buffer, &frame);
    });
    ExpectArea("the call's area reaches the event", single, true, 10, 20, 40, 60);

    TargetStory begun;
    play(begun, [](Channel& channel, InputBuffer& frame) {
        const OKM8::FrameArea area = {1, 2, 3, 4};
        FrameDone processed;
        auto& table = *static_cast<detector_table::VexlaneDetectorImpl*>(channel.detector);
        table.BeginSingleCall(area);
        Equal("ProcessInput returns 0", table.ProcessInput(&frame, &processed), ErrorCode::None);
        Equal("ProcessInput calls OnFrameDone", processed.calls, 1);
        table.EndSingleCall();
    });
    ExpectArea("BeginSingleCall's area reaches the event", begun, true, 1, 2, 4, 6);
}

// --- events that cannot be created ---

void CheckFailedEvents(Plugin& plugin) {
    struct Failure {
        const char* text;
        void (*prepare)(Channel&);
        int discarded;
    };
    const Failure failures[] = {
        {"ITargetEnumeratorFactory getting error", [](Channel& channel) { channel.host.hasFactory = false; }, 0},
        {"ITargetEnumeratorAdjuster getting error",
         [](Channel& channel) { channel.host.factory.hasEnumerator = false; }, 0},
        {"IDetectorEventRaiser getting error", [](Channel& channel) { channel.peer.hasRaiser = false; }, 0},
        {"IEventArgsAdjuster getting error", [](Channel& channel) { channel.peer.raiser.hasArguments = false; }, 1},
        {"ITargetAdjuster getting error", [](Channel& channel) { channel.host.factory.enumerator.target = nullptr; },
         1},
    };
    BeginChecks("events that cannot be created");
    for (const Failure& failure : failures) {
        LoneTarget target;
        InputBuffer frame;
        frame.Prepare(frameTime);
        Channel channel(plugin);
        if (!channel.IsComplete()) {
            return;
        }
        channel.host.factory.enumerator.target = &target;
        channel.ReportPlatesAfter(1);
        failure.prepare(channel);
        Equal(failure.text, channel.receiver->Receive(&frame), ErrorCode::Failed);
        channel.ExpectError(failure.text, ErrorCode::Failed, failure.text);
        Equal(failure.text, channel.peer.raiser.raised, 0);
        Equal(failure.text, channel.peer.raiser.discarded, failure.discarded);
        Equal(failure.text, frame.story.released, 1);
    }
}

// --- the checked cast ---

template <class Tree>
void CheckCast(Plugin& plugin) {
    Tree tree;
    const Target target = tree.Describe();
    InputBuffer frame;
    frame.Prepare(frameTime);
    Channel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    channel.host.factory.enumerator.target = target.adjuster;
    channel.ReportPlatesAfter(1);
    Equal(target.description, channel.receiver->Receive(&frame), ErrorCode::None);
    Equal(target.description, channel.peer.raiser.raised, 1);
    Equal(target.description, target.story->binarySetter, target.binarySetter);
    Equal(target.description, target.story->Find(PlateKey::AllTracks) != nullptr, target.binarySetter != nullptr);
    Equal(target.description, target.story->Find(PlateKey::Text) != nullptr, true);
    Equal(target.description, target.story->trackLength, target.binarySetter != nullptr ? 1 : 0);
}

template <class... Trees>
void CheckCasts(Plugin& plugin) {
    BeginChecks("checked cast");
    (CheckCast<Trees>(plugin), ...);
}

}  // namespace

}  // namespace contract_host

extern "C" int RunContractHost() {
    using namespace contract_host;
    CheckExports();
    CheckModuleDestructor();
    BeginChecks("loading");
    Plugin plugin;
    if (plugin.IsComplete()) {
        CheckParts(plugin);
        CheckCasts<LoneTarget, PlainTarget, EarlierTarget, OtherTarget, DeepTarget, VirtualTarget, VirtualLevelTarget,
                   BothVirtualTarget, DiamondTarget, HalfHiddenTarget, PrivateTarget, ProtectedTarget,
                   PrivateLevelTarget, PrivateDeepTarget, PrivateVirtualTarget, HiddenTarget, TwoSettersTarget,
                   HiddenSecondTarget>(plugin);
        CheckSettings(plugin);
        CheckController(plugin);
        CheckRefusedFrames(plugin);
        CheckAreas(plugin);
        CheckFailedEvents(plugin);
        CheckPlate(plugin);
        CheckDetectorDestructor(plugin);
    }
    return FailedChecks();
}
