// Hosts that return null or throw, at each operation that the library calls, and calls from inside these operations.

#include <set>
#include <stdexcept>

#include "sdk/contract_names.h"
#include "tools/validate/case.h"
#include "tools/validate/session.h"

namespace validate {

namespace {

namespace ContractName = OKM8::ContractName;
using recording_host::HostCall;
using recording_host::Operation;

constexpr char thrownText[] = "the host has failed";

// An exception that is not derived from std::exception.
struct OtherException {};

void Throw(bool isStandard) {
    if (isStandard) {
        throw std::runtime_error(thrownText);
    }
    throw OtherException();
}

// After a failure the next frame has its event, on another thread too, because no lock is still held.
void ExpectNextEvent(Session& session, const Detector& detector) {
    session.onCall = nullptr;
    const int raised = session.Count(Operation::Raise);
    RunTogether({[&] { Session::ExpectOutcome("the next frame", detector, session.Receive(detector), ""); }});
    ExpectEqual("the number of events of the next frame", session.Count(Operation::Raise) - raised, 1);
}

struct Step {
    Operation operation;
    const char* name;
    int discarded = 0;  // of the one raiser that was created
    int raised = 0;
};

// Null from an operation.

void CheckNull(Session& session, const Step& step, const char* error) {
    session.folder.SetScript(ScriptOfVehicles(8));
    const Detector detector = session.CreateReportingDetector();
    session.onCall = [&](HostCall& call) { call.isRefused = call.isRefused || call.operation == step.operation; };
    Session::ExpectOutcome("a frame whose event fails", detector, session.Receive(detector), error);
    ExpectEqual("the number of calls that return null", session.Count(step.operation), 1);
    ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone), 1);
    ExpectEqual("the number of Discard calls", session.Count(Operation::Discard), step.discarded);
    ExpectEqual("the number of Raise calls", session.Count(Operation::Raise), 0);
    ExpectEqual("the number of releases", session.buffers.released.load(), 1);
    ExpectNextEvent(session, detector);
}

void CheckNoBinarySetter(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(8));
    session.host.refusals.binarySetter = true;
    const Detector detector = session.CreateReportingDetector();
    Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
    ExpectEqual("the number of Raise calls", session.Count(Operation::Raise), 1);
    ExpectEqual("the number of SetBinaryValue calls", session.Count(Operation::SetBinaryValue), 0);
}

// Exceptions of the event.

// The message of the last trace line of the detector's event.
std::string EventTrace(const DebugLines& lines) {
    const std::string text = lines.Text();
    const std::size_t line = text.rfind("::OnResult(");
    if (line == std::string::npos) {
        return {};
    }
    const std::size_t message = text.find("): ", line) + 3;
    return text.substr(message, text.find('\n', message) - message);
}

void CheckThrowingEvent(Session& session, const Step& step) {
    session.folder.SetScript(ScriptOfVehicles(8));
    session.folder.SetDebugLevel("1");
    const DebugLines lines;
    const Detector detector = session.CreateReportingDetector();
    int round = 0;
    for (const bool isStandard : {true, false}) {
        const int discarded = session.Count(Operation::Discard);
        const int raised = session.Count(Operation::Raise);
        const int called = session.Count(step.operation);
        session.onCall = [&](const HostCall& call) {
            if (call.operation == step.operation) {
                Throw(isStandard);
            }
        };
        Session::ExpectOutcome("a frame whose event fails", detector, session.Receive(detector), "");
        Expect(session.Count(step.operation) > called, "the operation is not called");
        ExpectEqual("the trace line", EventTrace(lines), std::string(isStandard ? thrownText : "Exception"));
        ExpectEqual("the number of Discard calls", session.Count(Operation::Discard) - discarded, step.discarded);
        ExpectEqual("the number of Raise calls", session.Count(Operation::Raise) - raised, step.raised);
        ExpectEqual("the number of releases", session.buffers.released.load(), 1 + 2 * round++);
        ExpectNextEvent(session, detector);
    }
}

void CheckThrowingDiscard(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(16));
    const Detector detector = session.CreateReportingDetector();
    for (const Operation cause : {Operation::GetEventArgs, Operation::AddTarget, Operation::SetIntValue}) {
        for (const bool isStandard : {true, false}) {
            session.onCall = [&](HostCall& call) {
                call.isRefused = call.isRefused || call.operation == cause;
                if (call.operation == Operation::Discard || call.operation == Operation::SetIntValue) {
                    Throw(isStandard);
                }
            };
            const int discarded = session.Count(Operation::Discard);
            Session::ExpectOutcome("a frame whose event fails", detector, session.Receive(detector), "");
            ExpectEqual("the number of Discard calls", session.Count(Operation::Discard) - discarded, 1);
            ExpectNextEvent(session, detector);
        }
    }
}

// Exceptions of the frame.

void CheckThrowingFrame(Session& session, const Step& step, int done, bool releaseThrows = false) {
    session.folder.SetScript(ScriptOfVehicles(8));
    const Detector detector = session.CreateReportingDetector();
    for (const bool isStandard : {true, false}) {
        const int called = session.Count(step.operation);
        const int doneBefore = session.Count(Operation::OnFrameDone);
        const int released = session.buffers.released;
        session.onCall = [&](const HostCall& call) {
            if (call.operation == step.operation || (releaseThrows && call.operation == Operation::Release)) {
                Throw(isStandard);
            }
        };
        Session::ExpectOutcome("a frame whose buffer or callback throws", detector, session.Receive(detector),
                               isStandard ? thrownText : "Image processing exception");
        Expect(session.Count(step.operation) > called, "the operation is not called");
        ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone) - doneBefore, done);
        ExpectEqual("the number of releases", session.buffers.released - released, 1);
        ExpectNextEvent(session, detector);
    }
}

void CheckThrowingRelease(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(16));
    const Detector detector = session.CreateReportingDetector();
    for (const bool isStandard : {true, false}) {
        session.onCall = recording_host::On(Operation::Release, [isStandard] { Throw(isStandard); });
        for (int frame = 0; frame < 3; ++frame) {
            Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
        }
        recording_host::BufferOptions options;
        options.isComposite = false;
        Session::ExpectOutcome("a buffer that is no picture", detector,
                               session.Receive(detector, session.FrameOf(options)),
                               "inputData is not an ICompositeBuffer");
        ExpectNextEvent(session, detector);
    }
}

void CheckThrowingReleaseAtDestruction(Session& session) {
    for (const bool isStandard : {true, false}) {
        session.folder.SetScript(ScriptOfVehicles(8));
        const Detector detector = session.CreateDetector();
        for (int frame = 0; frame < 3; ++frame) {
            session.Receive(detector);
        }
        Expect(session.buffers.released < session.buffers.made, "a tracked plate does not keep its frame");
        session.onCall = recording_host::On(Operation::Release, [isStandard] { Throw(isStandard); });
        session.Destroy(detector);
        session.onCall = nullptr;
        ExpectEqual("the number of releases", session.buffers.released.load(), session.buffers.made.load());
    }
}

void CheckThrowingCreation(Session& session) {
    for (const bool isStandard : {true, false}) {
        session.onCall = recording_host::On(Operation::GetLogger, [isStandard] { Throw(isStandard); });
        bool isThrown = false;
        try {
            session.Module().CreateDetector(nullptr, session.host.Peer());
        } catch (...) {
            isThrown = true;
        }
        session.onCall = nullptr;
        Expect(isThrown, "an exception of GetInterface does not leave CreateDetector");
        const Detector detector = session.CreateDetector();
        Session::ExpectOutcome("a frame of the next detector", detector, session.Receive(detector), "");
    }
}

// Calls from inside.

void CallQuietly(const Detector& detector) {
    Expect(detector.object->QueryContract(ContractName::IDetector) == detector.object,
           "a query from inside an operation of the host returns another object");
    ExpectEqual("the result of a setter", detector.settings->SetIntValue("zone_width", 100), 0);
    ExpectEqual("the result of a value", detector.single->SetStringValue("anything", "x"), 0);
    ExpectEqual("the result of a control", detector.controller->Control1(), 0);
    ExpectEqual("the error code", detector.errors->GetErrorCode(), 0);
    ExpectEqual("the result of an unknown setting", detector.settings->SetIntValue("nothing", 1), 2816);
    ExpectEqual("the error text", std::string(detector.errors->GetErrorMessage()), std::string("nothing"));
}

void CheckQuietCalls(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(8));
    const Detector detector = session.CreateReportingDetector();
    std::string failure;
    session.onCall = [&](const HostCall&) {
        // The library catches exceptions.
        try {
            CallQuietly(detector);
        } catch (const Unexpected& unexpected) {
            failure = unexpected.what();
        }
    };
    for (int frame = 0; frame < 4; ++frame) {
        ExpectEqual("the result of a frame", session.Receive(detector), 0);
        ExpectEqual("what fails from inside", failure, std::string());
    }
    ExpectEqual("the number of Raise calls", session.Count(Operation::Raise), 4);
    session.host.refusals.arguments = true;
    Session::ExpectOutcome("a frame whose event fails", detector, session.Receive(detector),
                           "IEventArgsAdjuster getting error");
    session.host.refusals.arguments = false;
    for (int each = static_cast<int>(Operation::GetFactory); each < static_cast<int>(Operation::Count); ++each) {
        Expect(session.Count(static_cast<Operation>(each)) > 0, "an operation of the host is not called");
    }
    ExpectNextEvent(session, detector);
}

void CheckFailingForLong(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(400));
    session.period = 5000;
    const Detector detector = session.CreateReportingDetector();
    int call = 0;
    session.onCall = [&](HostCall& made) {
        ++call;
        if (made.operation >= Operation::GetFactory && made.operation <= Operation::SetBinaryValue) {
            made.isRefused = made.isRefused || call % 7 == 0;
            if (call % 11 == 0) {
                Throw(call % 2 == 0);
            }
        }
    };
    for (int frame = 0; frame < 300; ++frame) {
        session.Receive(detector);
    }
    ExpectEqual("the number of OnFrameDone calls", session.Count(Operation::OnFrameDone), 300);
    ExpectEqual("the number of releases", session.buffers.released.load(), 300);
    ExpectNextEvent(session, detector);
}

}  // namespace

std::vector<Case> HostCases() {
    std::vector<Case> cases;
    for (const auto& [step, error] : std::vector<std::pair<Step, const char*>>{
             {{Operation::GetFactory, "GetInterface"}, "ITargetEnumeratorFactory getting error"},
             {{Operation::CreateTargetEnumerator, "CreateTargetEnumerator"}, "ITargetEnumeratorAdjuster getting error"},
             {{Operation::CreateEventRaiser, "CreateEventRaiser"}, "IDetectorEventRaiser getting error"},
             {{Operation::GetEventArgs, "GetEventArgs", 1}, "IEventArgsAdjuster getting error"},
             {{Operation::AddTarget, "AddTarget", 1}, "ITargetAdjuster getting error"}}) {
        cases.push_back({1, std::string("null from ") + step.name + " is the frame's error, and the next event comes",
                         [step = step, error = error](Session& session) { CheckNull(session, step, error); }});
    }
    for (const Step& step :
         {Step{Operation::GetFactory, "GetInterface"},
          Step{Operation::CreateTargetEnumerator, "CreateTargetEnumerator"},
          Step{Operation::CreateEventRaiser, "CreateEventRaiser"}, Step{Operation::GetEventArgs, "GetEventArgs", 1},
          Step{Operation::SetObjectValue, "SetObjectValue", 1}, Step{Operation::AddTarget, "AddTarget", 1},
          Step{Operation::SetStringValue, "SetStringValue", 1}, Step{Operation::SetIntValue, "SetIntValue", 1},
          Step{Operation::SetBinaryValue, "SetBinaryValue", 1}, Step{Operation::Raise, "Raise", 0, 1}}) {
        cases.push_back({1,
                         std::string("an exception of ") + step.name +
                             (step.discarded != 0 ? " discards the event" : " ends the event") +
                             ", and the next one comes",
                         [step](Session& session) { CheckThrowingEvent(session, step); }});
    }
    for (const auto& [step, done] :
         std::vector<std::pair<Step, int>>{{{Operation::QueryContract, "the buffer's QueryContract"}, 0},
                                           {{Operation::GetData, "GetData"}, 0},
                                           {{Operation::GetDataSize, "GetDataSize"}, 0},
                                           {{Operation::GetHeight, "GetHeight"}, 0},
                                           {{Operation::GetWidth, "GetWidth"}, 0},
                                           {{Operation::OnFrameDone, "OnFrameDone"}, 1}}) {
        cases.push_back({1, std::string("an exception of ") + step.name + " is the frame's error",
                         [step = step, done = done](Session& session) { CheckThrowingFrame(session, step, done); }});
    }
    const std::vector<Case> others = {
        {1, "an exception of GetTimeStamp is the frame's error after OnFrameDone",
         [](Session& session) {
             CheckThrowingFrame(session, {Operation::GetTimeStamp, "GetTimeStamp"}, 1);
         }},
        {1, "an exception of Release after one of GetData does not change the frame's error",
         [](Session& session) {
             CheckThrowingFrame(session, {Operation::GetData, "GetData"}, 0, true);
         }},
        {1, "a target without a binary setter gets no track", CheckNoBinarySetter},
        {1, "an exception of Discard is caught, and the next event comes", CheckThrowingDiscard},
        {1, "an exception of Release does not change the outcome of a frame", CheckThrowingRelease},
        {1, "an exception of Release does not keep a destroyed detector from releasing all frames",
         CheckThrowingReleaseAtDestruction},
        {1, "an exception of GetInterface leaves CreateDetector, and the next detector is created",
         CheckThrowingCreation},
        {1, "settings and errors can be used from inside every operation of the host", CheckQuietCalls},
        {1, "300 frames with failing events are all released", CheckFailingForLong},
    };
    cases.insert(cases.end(), others.begin(), others.end());
    return cases;
}

}  // namespace validate
