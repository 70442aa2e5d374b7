// Calls from several threads.

#include <atomic>

#include "sdk/contract_names.h"
#include "sdk/setting_keys.h"
#include "tools/validate/case.h"
#include "tools/validate/session.h"
#include "tools/validate/system.h"

namespace validate {

namespace {

namespace SettingKey = OKM8::Analytics::SettingKey;
using recording_host::Operation;

constexpr std::uint64_t apart = 5000;  // milliseconds, so that no vehicle is still being tracked in the next frame

void SendFrames(Session& session, const Detector& detector, int count) {
    for (int frame = 0; frame < count; ++frame) {
        ExpectEqual("the result of a frame", detector.receiver->Receive(session.Frame()), 0);
    }
}

void ChangeSettings(const Detector& detector, int count) {
    for (int round = 0; round < count; ++round) {
        ExpectEqual("the result of a setter",
                    detector.settings->SetStringValue(SettingKey::Name, "a name that is longer than a short text"), 0);
        ExpectEqual("the result of a setter", detector.settings->SetIntValue(SettingKey::ZoneWidth, round % 100), 0);
        ExpectEqual("the result of a setter", detector.settings->SetBoolValue(SettingKey::UseArea, round % 2 != 0), 0);
        ExpectEqual("the result of a refused setter", detector.settings->SetDoubleValue(SettingKey::Id, 1.0), 2816);
        ExpectEqual("the result of a value", detector.single->SetIntValue("value", round), 0);
        if (round % 8 == 0) {
            detector.settings->ApplySettings();
        }
    }
}

void ReadErrors(const Detector& detector, int count) {
    for (int round = 0; round < count; ++round) {
        const std::int32_t code = detector.errors->GetErrorCode();
        Expect(code == 0 || code == 2816, "the error code is " + std::to_string(code));
        Expect(detector.object->QueryContract(OKM8::ContractName::IDetector) == detector.object,
               "QueryContract returns another object");
        ExpectEqual("the result of a control", detector.controller->Control3(), 0);
    }
}

void UseOneDetector(Session& session, int count) {
    session.folder.SetScript(ScriptOfVehicles(count));
    session.period = apart;
    const Detector detector = session.CreateReportingDetector();
    RunTogether({[&] { SendFrames(session, detector, count); }, [&] { ChangeSettings(detector, 4 * count); },
                 [&] { ReadErrors(detector, 20 * count); }});
    ExpectEqual("the number of Raise calls", session.Count(Operation::Raise), count);
}

void CheckOneDetector(Session& session) {
    UseOneDetector(session, 100);
}

void CheckOneDetectorForLong(Session& session) {
    UseOneDetector(session, 3000);
}

void CheckFramesOfTwoThreads(Session& session) {
    constexpr int count = 100;
    session.folder.SetScript(ScriptOfVehicles(2 * count));
    const Detector detector = session.CreateDetector();
    RunTogether({[&] { SendFrames(session, detector, count); }, [&] { SendFrames(session, detector, count); }});
    session.Destroy(detector);
    ExpectEqual("the number of releases", session.buffers.released.load(), 2 * count);
}

void UseSeveralDetectors(Session& session, int count) {
    constexpr int detectors = 4;
    session.folder.SetScript(ScriptOfVehicles(count, R"("counting":"thread",)"));
    session.period = apart;
    std::vector<std::function<void()>> functions;
    for (int each = 0; each < detectors; ++each) {
        functions.emplace_back(
            [&session, count, detector = session.CreateReportingDetector()] { SendFrames(session, detector, count); });
    }
    RunTogether(functions);
    ExpectEqual("the number of Raise calls", session.Count(Operation::Raise), detectors * count);
}

void CheckSeveralDetectors(Session& session) {
    UseSeveralDetectors(session, 50);
}

void CheckSeveralDetectorsForLong(Session& session) {
    UseSeveralDetectors(session, 1500);
}

void CheckSettersDoNotWait(Session& session) {
    const Detector detector = session.CreateDetector();
    std::atomic<bool> isInside = false;
    std::atomic<bool> areSettersDone = false;
    bool isInTime = false;
    session.onCall = recording_host::On(Operation::GetWidth, [&] {
        isInside = true;
        isInTime = WaitUntil([&] { return areSettersDone.load(); });
    });
    RunTogether({[&] { session.Receive(detector); },
                 [&] {
                     WaitUntil([&] { return isInside.load(); });
                     ExpectEqual("the result of a setter", detector.settings->SetIntValue("zone_width", 50), 0);
                     ExpectEqual("the result of a value", detector.single->SetIntValue("anything", 50), 0);
                     detector.errors->GetErrorCode();
                     detector.controller->Control1();
                     areSettersDone = true;
                 }});
    Expect(isInTime, "a setter or an error read waits for a frame");
}

void CheckThreadsOfDetectors(Session& session) {
    session.CreateDetector();
    const int withOne = ThreadCount();
    for (int each = 0; each < 7; ++each) {
        session.CreateDetector();
    }
    ExpectEqual("the number of threads with eight detectors", ThreadCount(), withOne);
}

}  // namespace

std::vector<Case> ThreadCases() {
    return {
        {1, "frames, settings and error reads of one detector run on three threads", CheckOneDetector},
        {2, "3,000 frames, settings and error reads of one detector run on three threads", CheckOneDetectorForLong},
        {1, "two threads send frames to one detector", CheckFramesOfTwoThreads},
        {1, "four detectors receive frames on four threads", CheckSeveralDetectors},
        {2, "four detectors receive 1,500 frames each on four threads", CheckSeveralDetectorsForLong},
        {1, "setters and error reads do not wait for a frame", CheckSettersDoNotWait},
        {1, "more detectors need no more threads", CheckThreadsOfDetectors},
    };
}

}  // namespace validate
