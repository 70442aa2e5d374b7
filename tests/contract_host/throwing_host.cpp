// A host and an engine that throw C++ exceptions of a Microsoft compiler, which GCC does not support, into the library.

#include "sdk/contract_names.h"
#include "sdk/detector.h"
#include "tests/contract_host/channel.h"
#include "tests/contract_host/checks.h"
#include "tests/contract_host/detector_table.h"
#include "tests/contract_host/host_objects.h"
#include "tests/contract_host/targets.h"
#include "tests/contract_host/throwing_engine.h"
#include "tests/support/microsoft_exception.h"

namespace contract_host {

namespace {

namespace ErrorCode = OKM8::ErrorCode;

constexpr char otherExceptionText[] = "Image processing exception";
constexpr char exceptionTrace[] = "Exception";

constexpr uint32_t Bit(Call call) {
    return 1u << static_cast<uint32_t>(call);
}

template <class... Calls>
constexpr uint32_t Bits(Calls... calls) {
    return (Bit(calls) | ...);
}

// The operations of the host that throw.
uint32_t throwing = 0;
int thrown = 0;
int destroyed = 0;

void ThrowIfSelected(Call call) {
    if ((throwing & Bit(call)) != 0) {
        ++thrown;
        microsoft_exception::Throw(&destroyed);
    }
}

void BeginThrowing(uint32_t calls) {
    thrown = 0;
    destroyed = 0;
    throwing = calls;
}

void EndThrowing() {
    throwing = 0;
    ReportCheck("exceptions are thrown", thrown > 0);
    Equal("each has its object destroyed once", destroyed, thrown);
}

ThrowingEngine* Engine() {
    static auto* const engine = static_cast<ThrowingEngine*>(FindEngineExport(throwingEngineName));
    return engine;
}

// A detector that reports every plate at once.
struct ThrowingChannel : Channel {
    explicit ThrowingChannel(Plugin& used) : Channel(used) {
        host.factory.enumerator.target = &target;
        if (IsComplete()) {
            ReportPlatesAfter(1);
        }
    }

    int32_t Receive(InputBuffer& frame) {
        frame.Prepare(nextTime += 40);
        return single->ReceiveSingle(&frame, nullptr, &done);
    }

    // On another thread: a lock that is still held would block it.
    void ExpectRecovery(InputBuffer& frame) {
        struct Next {
            ThrowingChannel& channel;
            InputBuffer& frame;
            int32_t code = -1;
        } next = {*this, frame};
        const int raised = peer.raiser.raised;
        RunOnAnotherThread(
            [](void* context) {
                Next& same = *static_cast<Next*>(context);
                same.code = same.channel.Receive(same.frame);
            },
            &next);
        Equal("the next frame succeeds", next.code, ErrorCode::None);
        ExpectError("the next frame leaves no error", ErrorCode::None, "");
        ReportCheck("the next plate is reported", peer.raiser.raised > raised);
    }

    void Destroy() {
        OKM8::Analytics::IDetector* const ended = detector;
        detector = nullptr;
        ended->Destroy();
        ReportCheck("the detector is freed", !IsAllocated(ended));
    }

    PlainTarget target;
    FrameDone done;
    uint64_t nextTime = frameTime;
};

void ExpectReleasedOnce(const InputBuffer& frame) {
    Equal("the frame is released once", frame.released + frame.story.released, 1);
}

// --- exceptions that are the frame's error, and those that are only a trace line ---

struct Case {
    const char* name;
    uint32_t throwing;
    int32_t code;
    int done = 0;  // calls of OnFrameDone
    int discarded = 0;
    int raised = 0;
    bool hasArguments = true;
    EngineFunction engine = EngineFunction::None;
};

constexpr int32_t fails = ErrorCode::Failed;
constexpr int32_t succeeds = ErrorCode::None;

constexpr Case cases[] = {
    {"QueryContract", Bits(Call::QueryContract), fails},
    {"GetData", Bits(Call::GetData), fails},
    {"GetDataSize", Bits(Call::GetDataSize), fails},
    {"GetHeight", Bits(Call::GetHeight), fails},
    {"GetWidth", Bits(Call::GetWidth), fails},
    {"GetTimeStamp", Bits(Call::GetTimeStamp), fails, 1},
    {"OnFrameDone", Bits(Call::OnFrameDone), fails, 1, 0, 1},
    {"GetData and Release", Bits(Call::GetData, Call::Release), fails},
    {"QueryContract and Release", Bits(Call::QueryContract, Call::Release), fails},
    {"Release", Bits(Call::Release), succeeds, 1, 0, 1},
    {"GetInterface", Bits(Call::GetFactory), succeeds, 1},
    {"CreateTargetEnumerator", Bits(Call::CreateTargetEnumerator), succeeds, 1},
    {"CreateEventRaiser", Bits(Call::CreateEventRaiser), succeeds, 1},
    {"GetEventArgs", Bits(Call::GetEventArgs), succeeds, 1, 1},
    {"SetObjectValue", Bits(Call::SetObjectValue), succeeds, 1, 1},
    {"AddTarget", Bits(Call::AddTarget), succeeds, 1, 1},
    {"SetStringValue", Bits(Call::SetStringValue), succeeds, 1, 1},
    {"SetIntValue", Bits(Call::SetIntValue), succeeds, 1, 1},
    {"SetBinaryValue", Bits(Call::SetBinaryValue), succeeds, 1, 1},
    {"Raise", Bits(Call::Raise), succeeds, 1, 0, 1},
    {"Discard", Bits(Call::Discard), succeeds, 1, 1, 0, false},
    {"SetIntValue and Discard", Bits(Call::SetIntValue, Call::Discard), succeeds, 1, 1},
    {.name = "Recognize2", .throwing = 0, .code = succeeds, .done = 1, .engine = EngineFunction::Recognize},
    {.name = "SetPlateRange", .throwing = 0, .code = succeeds, .done = 1, .engine = EngineFunction::SetRange},
};

void CheckCase(Plugin& plugin, const Case& testCase) {
    BeginChecks(testCase.name);
    InputBuffer frame;
    InputBuffer next;
    ThrowingChannel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    channel.peer.raiser.hasArguments = testCase.hasArguments;
    const int tracesBefore = CountTraces(exceptionTrace);
    BeginThrowing(testCase.throwing);
    *Engine() = {.thrower = testCase.engine, .isStationary = false, .thrown = 0, .destroyed = 0};
    Equal("the frame's code", channel.Receive(frame), testCase.code);
    channel.ExpectError("the frame's error", testCase.code, testCase.code == fails ? otherExceptionText : "");
    thrown += Engine()->thrown;
    destroyed += Engine()->destroyed;
    EndThrowing();
    *Engine() = {};
    Equal("OnFrameDone", channel.done.calls, testCase.done);
    Equal("Discard", channel.peer.raiser.discarded, testCase.discarded);
    Equal("Raise", channel.peer.raiser.raised, testCase.raised);
    // A failure during recognition writes one trace line, except a failed release, which writes none.
    const bool isOutside = testCase.code == fails && testCase.throwing != Bit(Call::GetTimeStamp);
    Equal("trace lines", CountTraces(exceptionTrace) - tracesBefore,
          isOutside || testCase.throwing == Bit(Call::Release) ? 0 : 1);
    channel.peer.raiser.hasArguments = true;
    channel.ExpectRecovery(next);
    channel.Destroy();
    ExpectReleasedOnce(frame);
    ExpectReleasedOnce(next);
}

// --- later releases ---

void CheckLaterReleases(Plugin& plugin) {
    BeginChecks("releases of a stationary plate's frames");
    constexpr unsigned count = 6;
    InputBuffer frames[count];
    ThrowingChannel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    channel.ReportPlatesAfter(1000000);
    Engine()->isStationary = true;
    BeginThrowing(Bits(Call::Release));
    for (InputBuffer& frame : frames) {
        Equal("the frame's code", channel.Receive(frame), ErrorCode::None);
    }
    ReportCheck("the tracker has released some", thrown > 0);
    ReportCheck("and keeps others", thrown < static_cast<int>(count));
    BeginChecks("releases of a detector that is destroyed");
    channel.Destroy();
    EndThrowing();
    *Engine() = {};
    for (const InputBuffer& frame : frames) {
        ExpectReleasedOnce(frame);
    }
}

// --- exceptions that leave the library, as exceptions of its own compiler ---

void CheckCreateDetector(Plugin& plugin) {
    BeginChecks("GetInterface of CreateDetector");
    struct Creation {
        OKM8::Analytics::IModule* module;
        DetectorPeer peer;
    };
    {
        ThrowingChannel channel(plugin);
        Creation creation = {channel.module, {}};
        const auto create = [](void* context) {
            Creation& same = *static_cast<Creation*>(context);
            same.module->CreateDetector(nullptr, &same.peer);
        };
        BeginThrowing(Bits(Call::GetLogger));
        ReportCheck("an exception leaves the library", ThrowsOwnException(create, &creation));
        const uint64_t blocks = AllocatedBlocks();
        ReportCheck("an exception leaves the library", ThrowsOwnException(create, &creation));
        Equal("the detector is freed", AllocatedBlocks(), blocks);
        EndThrowing();
    }
    InputBuffer next;
    ThrowingChannel channel(plugin);
    if (channel.IsComplete()) {
        channel.ExpectRecovery(next);
    }
}

void CheckWriteLog(Plugin& plugin) {
    BeginChecks("WriteLog");
    InputBuffer next;
    ThrowingChannel channel(plugin);
    if (!channel.IsComplete()) {
        return;
    }
    const auto log = [](void* context) {
        static_cast<detector_table::VexlaneDetectorImpl*>(static_cast<OKM8::Analytics::IDetector*>(context))
            ->LogError("bad", 6);
    };
    BeginThrowing(Bits(Call::WriteLog));
    ReportCheck("an exception leaves the library", ThrowsOwnException(log, channel.detector));
    EndThrowing();
    channel.ExpectRecovery(next);
}

// --- system exceptions, which continue where they were raised ---

uint32_t systemException = 0;

constexpr uint32_t accessViolation = 0xC0000005;

void RaiseSystemException(Call call) {
    if (call != Call::GetData) {
        return;
    }
    if (systemException == accessViolation) {
        *ForbiddenPage() = 1;
    } else {
        RaiseException(systemException, 0, 0, nullptr);
    }
}

void CheckSystemExceptions(Plugin& plugin) {
    struct Passing {
        const char* name;
        uint32_t code;
        int handled;
    };
    constexpr Passing passing[] = {
        {"an access violation passes", accessViolation, 1},
        {"a break point passes", 0x80000003, 1},
        {"debug output passes", 0x40010006, 1},
        {"wide debug output passes", 0x4001000A, 1},
        {"a thread's name passes", 0x406D1388, 0},  // the compiler's library handles it first
    };
    onCall = RaiseSystemException;
    for (const Passing& passed : passing) {
        BeginChecks(passed.name);
        InputBuffer frame;
        ThrowingChannel channel(plugin);
        if (!channel.IsComplete()) {
            break;
        }
        systemException = passed.code;
        HandleUnhandled(passed.code);
        Equal("the frame succeeds", channel.Receive(frame), ErrorCode::None);
        Equal("the unhandled-exception filter handles it", HandledCount(), passed.handled);
        HandleUnhandled(0);
        Equal("the plate is reported", channel.peer.raiser.raised, 1);
        channel.Destroy();
        ExpectReleasedOnce(frame);
    }
    onCall = ThrowIfSelected;
}

}  // namespace

}  // namespace contract_host

extern "C" int RunContractHost() {
    using namespace contract_host;
    BeginChecks("loading");
    ReportCheck("the engine is the throwing one", Engine() != nullptr);
    Plugin plugin;
    if (plugin.IsComplete() && Engine() != nullptr) {
        RecordTraces();
        onCall = ThrowIfSelected;
        for (const Case& testCase : cases) {
            CheckCase(plugin, testCase);
        }
        CheckLaterReleases(plugin);
        CheckCreateDetector(plugin);
        CheckWriteLog(plugin);
        CheckSystemExceptions(plugin);
        onCall = nullptr;
    }
    return FailedChecks();
}
