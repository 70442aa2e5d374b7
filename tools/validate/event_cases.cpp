// The events of a well-behaved host: how many, when, and with which values.

#include <set>

#include "sdk/plate_events.h"
#include "sdk/setting_keys.h"
#include "tools/validate/case.h"
#include "tools/validate/session.h"

namespace validate {

namespace {

namespace SettingKey = OKM8::Analytics::SettingKey;
using OKM8::Analytics::TrackPoint;
using recording_host::Operation;
using recording_host::RecordedEvent;
using recording_host::RecordedTarget;
using recording_host::SetValue;

constexpr int framePeriod = 40;  // milliseconds, of Session::Frame

// Two vehicles, one after the other.
constexpr int framesOfVehicle = 5;
constexpr int secondVehicle = 7;  // its first frame
constexpr int frames = 13;

std::string TwoVehicles() {
    std::vector<ScriptedFrame> script;
    for (int frame = 0; frame < framesOfVehicle; ++frame) {
        script.push_back({{.text = "AB123C", .x = 100 + 10 * frame, .y = 100}});
    }
    script.resize(secondVehicle);
    for (int frame = 0; frame < framesOfVehicle; ++frame) {
        script.push_back({{.text = "XYZ7890", .x = 400, .y = 300 + 10 * frame, .confidence = 710}});
    }
    return ScriptOf(script);
}

// Reports after three readings.
Detector CreateDetector(Session& session) {
    const Detector detector = session.CreateDetector();
    detector.settings->SetIntValue(SettingKey::ZoneWidth, 100);
    detector.settings->SetIntValue(SettingKey::ZoneWidthMin, 0);
    detector.settings->SetBoolValue(SettingKey::ResultReady, true);
    detector.settings->SetIntValue(SettingKey::ResultWaitTime, 1000);
    detector.settings->SetIntValue(SettingKey::ResultRecCount, 3);
    detector.settings->ApplySettings();
    return detector;
}

void Run(Session& session, const Detector& detector, int count = frames) {
    for (int frame = 0; frame < count; ++frame) {
        Session::ExpectOutcome("a frame", detector, session.Receive(detector, session.Frame(640, 480)), "");
    }
}

std::vector<RecordedEvent> RunTwoVehicles(Session& session) {
    session.folder.SetScript(TwoVehicles());
    Run(session, CreateDetector(session));
    std::vector<RecordedEvent> events = session.host.Events();
    ExpectEqual("the number of events", events.size(), 2u);
    return events;
}

const RecordedTarget& TargetOf(const RecordedEvent& event) {
    ExpectEqual("the number of targets", event.targets.size(), 1u);
    return event.targets.front();
}

std::string KeysOf(const RecordedTarget& target) {
    std::string keys;
    for (const SetValue& value : target.values) {
        keys += (keys.empty() ? "" : " ") + value.key + ":" + value.setter;
    }
    return keys;
}

constexpr char keysWithoutArea[] =
    "lp_wnum:s char_num:i country_code:s confidence:i direction:i lpf_x1:i lpf_y1:i lpf_x3:i lpf_y3:i";

// Values as texts, in the order of keysWithoutArea.
std::string ValuesOf(const RecordedTarget& target) {
    std::string values;
    for (const SetValue& value : target.values) {
        if (value.setter != 'x') {
            values += value.setter == 's' ? "\"" + value.text + "\" " : std::to_string(value.number) + " ";
        }
    }
    return values;
}

void CheckOneEventEach(Session& session) {
    for (const RecordedEvent& event : RunTwoVehicles(session)) {
        ExpectEqual("the number of Raise calls of an event", event.raised, 1);
        ExpectEqual("the number of Discard calls of an event", event.discarded, 0);
    }
    ExpectEqual("the number of Raise calls", session.Count(Operation::Raise), 2);
}

void CheckEnvelope(Session& session) {
    int vehicle = 0;
    for (const RecordedEvent& event : RunTwoVehicles(session)) {
        const std::int64_t time = 1000 + framePeriod * (1 + secondVehicle * vehicle++);
        ExpectEqual("the name of the event", event.name, std::string("event"));
        ExpectEqual("the kind of the event", event.kind, 3);
        ExpectEqual("the time of the event", event.timeMs, time);
        ExpectEqual("the time of the target list", event.targetsTimeMs, time);
        ExpectEqual("the number of objects of the event", event.objectKeys.size(), 1u);
        ExpectEqual("the key of the target list", event.objectKeys.front(), std::string("targets"));
        ExpectEqual("the argument of AddTarget", TargetOf(event).reserved, 0);
    }
}

void CheckKeys(Session& session) {
    for (const RecordedEvent& event : RunTwoVehicles(session)) {
        ExpectEqual("the list of keys", KeysOf(TargetOf(event)), std::string(keysWithoutArea) + " all_tracks:x");
    }
}

void CheckValues(Session& session) {
    const std::vector<RecordedEvent> events = RunTwoVehicles(session);
    ExpectEqual("the values of the first event", ValuesOf(TargetOf(events[0])),
                std::string(R"("AB123C" 6 "" 90 0 100 100 220 130 )"));
    ExpectEqual("the values of the second event", ValuesOf(TargetOf(events[1])),
                std::string(R"("XYZ7890" 7 "" 100 0 400 300 520 330 )"));
}

void CheckTrack(Session& session) {
    const RecordedTarget target = TargetOf(RunTwoVehicles(session).front());
    ExpectEqual("the number of readings of the track", target.track.size(), 3u);
    int reading = 0;
    for (const TrackPoint& point : target.track) {
        ExpectEqual("the left edge of a reading", point.x, 100 + 10 * reading);
        ExpectEqual("the top edge of a reading", point.y, 100);
        ExpectEqual("the width of a reading", point.width, 0);
        ExpectEqual("the height of a reading", point.height, 30);
        ExpectEqual("the time of a reading", point.time,
                    OKM8::Analytics::TrackTimeEpoch + INT64_C(1000) * (1000 + framePeriod * (1 + reading)));
        ExpectEqual("the flag of a reading", static_cast<int>(point.flag), 0);
        ++reading;
    }
}

void CheckArea(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(8));
    const Detector detector = session.CreateReportingDetector();
    detector.settings->SetBoolValue(SettingKey::UseArea, true);
    detector.settings->SetIntValue(SettingKey::AreaLeft, 1);
    detector.settings->SetIntValue(SettingKey::AreaTop, 2);
    detector.settings->SetIntValue(SettingKey::AreaRight, 98);
    detector.settings->SetIntValue(SettingKey::AreaBottom, 99);
    detector.settings->ApplySettings();
    const OKM8::FrameArea area = {10, 20, 30, 40};
    const OKM8::FrameArea empty = {10, 20, 0, 40};
    detector.single->ReceiveSingle(session.Frame(), nullptr, nullptr);
    detector.single->ReceiveSingle(session.Frame(), &area, nullptr);
    detector.receiver->Receive(session.Frame());
    detector.single->ReceiveSingle(session.Frame(), &empty, nullptr);
    const std::vector<RecordedEvent> events = session.host.Events();
    ExpectEqual("the number of events", events.size(), 4u);
    for (std::size_t number = 0; number < events.size(); ++number) {
        const RecordedTarget& target = TargetOf(events[number]);
        ExpectEqual("the list of keys", KeysOf(target),
                    std::string(keysWithoutArea) + " area_left:i area_top:i area_right:i area_bottom:i all_tracks:x");
        const bool isSingle = number == 1 || number == 2;
        ExpectEqual("the left edge of the area", target.Find("area_left")->number, isSingle ? 10 : 1);
        ExpectEqual("the top edge of the area", target.Find("area_top")->number, isSingle ? 20 : 2);
        ExpectEqual("the right edge of the area", target.Find("area_right")->number, isSingle ? 40 : 98);
        ExpectEqual("the bottom edge of the area", target.Find("area_bottom")->number, isSingle ? 60 : 99);
    }
}

void CheckHalfFrames(Session& session) {
    session.folder.SetScript(TwoVehicles());
    const Detector detector = CreateDetector(session);
    detector.settings->SetBoolValue(SettingKey::UseHalfCadr, true);
    detector.settings->ApplySettings();
    Run(session, detector);
    const std::vector<RecordedEvent> events = session.host.Events();
    ExpectEqual("the number of events", events.size(), 2u);
    ExpectEqual("the values of the first event", ValuesOf(TargetOf(events[0])),
                std::string(R"("AB123C" 6 "" 90 0 100 200 220 260 )"));
}

void CheckLostVehicle(Session& session) {
    session.folder.SetScript(ScriptOf({{{.text = "AB123C"}}, {{.text = "AB123C"}}}));
    const Detector detector = session.CreateDetector();
    Run(session, detector, 60);
    ExpectEqual("the number of events within three seconds", session.Count(Operation::CreateEventRaiser), 0);
    Run(session, detector, 40);
    ExpectEqual("the number of events of a vehicle that has left", session.Count(Operation::Raise), 1);
    ExpectEqual("the number of releases", session.buffers.released.load(), session.buffers.made.load());
}

void CheckSeveralPlates(Session& session) {
    ScriptedFrame frame;
    for (int plate = 0; plate < 5; ++plate) {
        frame.push_back({.text = std::string(8, static_cast<char>('A' + plate)),
                         .x = 10 + 120 * plate,
                         .y = 20 + 80 * plate,
                         .width = 60});
    }
    session.folder.SetScript(ScriptOf({frame}));
    Run(session, session.CreateReportingDetector(), 2);
    std::set<std::string> texts;
    for (const RecordedEvent& event : session.host.Events()) {
        texts.insert(TargetOf(event).Find("lp_wnum")->text);
    }
    ExpectEqual("the number of events", session.Count(Operation::Raise), 5);
    ExpectEqual("the number of different texts", texts.size(), 5u);
}

void CheckWrongCounts(Session& session) {
    session.folder.SetScript(R"({"repeat":true,"frames":[{"count":-1},{"count":1025},{"count":2147483647},{"count":7},)"
                             R"({"count":-2147483648},{"count":1024}]})");
    const Detector detector = session.CreateReportingDetector();
    Run(session, detector, 30);
}

void CheckDetectorOfEvent(Session& session) {
    session.folder.SetScript(ScriptOfVehicles(8));
    const Detector first = session.CreateReportingDetector();
    const Detector second = session.CreateReportingDetector();
    session.Receive(first);
    session.Receive(second);
    const std::vector<RecordedEvent> events = session.host.Events();
    ExpectEqual("the number of events", events.size(), 2u);
    Expect(events[0].detector == first.object && events[1].detector == second.object,
           "an event has another detector than the one that received its frame");
}

}  // namespace

std::vector<Case> EventCases() {
    return {
        {1, "every vehicle has one event, which is raised once", CheckOneEventEach},
        {1, "an event has its name, kind, time and list of targets", CheckEnvelope},
        {1, "an event's values have these keys, types and order", CheckKeys},
        {1, "an event's values are those of the reading", CheckValues},
        {1, "an event's track has every reading with its place and time", CheckTrack},
        {1, "an event has the area of the settings or of the single call", CheckArea},
        {1, "an event of half frames has rows of the full frame", CheckHalfFrames},
        {1, "a vehicle that leaves has one event after three seconds", CheckLostVehicle},
        {1, "every plate of a frame has its own event", CheckSeveralPlates},
        {1, "a wrong plate count of the engine harms nothing", CheckWrongCounts},
        {1, "an event has the detector that received its frame", CheckDetectorOfEvent},
    };
}

}  // namespace validate
