// Settings, and the values of single calls.

#include <functional>
#include <limits>
#include <map>

#include "sdk/setting_keys.h"
#include "tools/validate/case.h"
#include "tools/validate/names.h"
#include "tools/validate/session.h"

namespace validate {

namespace {

namespace SettingKey = OKM8::Analytics::SettingKey;
using nlohmann::json;
using OKM8::ErrorCode::RefusedSetting;

constexpr std::int32_t largest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();

enum class Type { Text, Double, Integer, Boolean };

constexpr std::array allTypes{Type::Text, Type::Double, Type::Integer, Type::Boolean};
constexpr std::array typeNames{"text", "double", "integer", "boolean"};

const std::map<std::string, Type>& Types() {
    static const std::map<std::string, Type> types = [] {
        std::map<std::string, Type> found;
        for (const char* const key : SettingKey::All) {
            found[key] = Type::Integer;
        }
        found[SettingKey::Id] = found[SettingKey::Name] = Type::Text;
        found[SettingKey::UseArea] = found[SettingKey::ResultReady] = found[SettingKey::UseHalfCadr] = Type::Boolean;
        return found;
    }();
    return types;
}

// By the slots, because the order of the setters is part of the contract.
std::int32_t Set(void* setters, std::size_t firstSlot, Type type, const char* name) {
    switch (type) {
        case Type::Text:
            return CallSlot<std::int32_t, const char*, const char*>(setters, firstSlot, name, "1");
        case Type::Double:
            return CallSlot<std::int32_t, const char*, double>(setters, firstSlot + 1, name, 1.0);
        case Type::Integer:
            return CallSlot<std::int32_t, const char*, std::int32_t>(setters, firstSlot + 2, name, 1);
        case Type::Boolean:
            return CallSlot<std::int32_t, const char*, bool>(setters, firstSlot + 3, name, true);
    }
    return -1;
}

std::int32_t SetSetting(const Detector& detector, Type type, const char* name) {
    return Set(detector.settings, 3, type, name);
}

std::string Text(Type type) {
    return typeNames[static_cast<std::size_t>(type)];
}

void ExpectState(const std::string& what, const Detector& detector, std::int32_t code, const std::string& text) {
    ExpectEqual("the error code after " + what, detector.errors->GetErrorCode(), code);
    ExpectEqual("the error text after " + what, std::string(detector.errors->GetErrorMessage()), text);
}

void CheckOwnTypes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const auto& [key, type] : Types()) {
        const std::string what = "setting \"" + key + "\" to its " + Text(type);
        detector.settings->SetIntValue("no_such_setting", 1);
        ExpectEqual("the result of " + what, SetSetting(detector, type, key.c_str()), 0);
        ExpectState(what, detector, 0, "");
    }
}

void CheckOtherTypes(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const auto& [key, ownType] : Types()) {
        for (const Type type : allTypes) {
            if (type != ownType) {
                const std::string what = "setting \"" + key + "\" to a value of type " + Text(type);
                ExpectEqual("the result of " + what, SetSetting(detector, type, key.c_str()), RefusedSetting);
                ExpectState(what, detector, RefusedSetting, key);
            }
        }
    }
    Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
}

void CheckUnknownNames(Session& session) {
    const Detector detector = session.CreateDetector();
    std::vector<std::string> names = GarbageNames();
    for (const char* const name : {"no_such_setting", "Zone_Width", "zone_width ", "zone_widt", "ID"}) {
        names.emplace_back(name);
    }
    for (const std::string& name : names) {
        for (const Type type : allTypes) {
            const std::string what = "setting the unknown \"" + name.substr(0, 80) + "\"";
            ExpectEqual("the result of " + what, SetSetting(detector, type, name.c_str()), RefusedSetting);
            ExpectState(what, detector, RefusedSetting, name);
        }
    }
}

void CheckNullNames(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const Type type : allTypes) {
        ExpectEqual("the result of setting a null name", SetSetting(detector, type, nullptr), RefusedSetting);
        ExpectState("setting a null name", detector, RefusedSetting, "");
    }
}

void CheckTexts(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const char* const key : {SettingKey::Id, SettingKey::Name}) {
        for (const std::string& text :
             {std::string(), std::string("12"), std::string("\xff\x80%n"), std::string(1000000, 'x')}) {
            ExpectEqual("the result of setting a text", detector.settings->SetStringValue(key, text.c_str()), 0);
        }
        ExpectEqual("the result of setting a null text", detector.settings->SetStringValue(key, nullptr), 0);
        ExpectState("setting a null text", detector, 0, "");
    }
}

void CheckApplying(Session& session) {
    const Detector detector = session.CreateDetector();
    for (int round = 0; round < 3; ++round) {
        detector.settings->SetIntValue("no_such_setting", 1);
        CallSlot<void>(detector.settings, 7);
        ExpectState("ApplySettings", detector, 0, "");
        Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
    }
}

void CheckAnyNumber(Session& session) {
    const Detector detector = session.CreateDetector();
    detector.settings->SetBoolValue(SettingKey::UseArea, true);
    detector.settings->SetBoolValue(SettingKey::ResultReady, true);
    for (const std::int32_t number : {smallest, -1, 0, 1, 100, 101, largest}) {
        for (const auto& [key, type] : Types()) {
            if (type == Type::Integer) {
                ExpectEqual("the result of setting \"" + key + "\" to " + std::to_string(number),
                            detector.settings->SetIntValue(key.c_str(), number), 0);
            }
        }
        detector.settings->ApplySettings();
        for (const std::uint32_t width : {2u, 64u, 4096u}) {
            Session::ExpectOutcome("a frame", detector, session.Receive(detector, session.Frame(width, 2)), "");
        }
    }
}

void CheckRefusalChangesNothing(Session& session) {
    session.folder.SetScript(ScriptOf({}));
    const Detector detector = session.CreateDetector();
    detector.settings->SetIntValue(SettingKey::ZoneWidth, 25);
    detector.settings->SetIntValue(SettingKey::ZoneWidthMin, 5);
    detector.settings->SetBoolValue(SettingKey::ZoneWidth, true);
    detector.settings->SetStringValue(SettingKey::ZoneWidth, "99");
    detector.settings->SetDoubleValue(SettingKey::ZoneWidthMin, 99.0);
    session.Receive(detector, session.Frame(640, 480));
    const std::vector<json> calls = session.Journal();
    Expect(!calls.empty(), "the engine was not called");
    ExpectEqual("the engine's smallest plate width", calls.front().at("minimum_width").get<int>(), 32);
    ExpectEqual("the engine's largest plate width", calls.front().at("maximum_width").get<int>(), 160);
}

void CheckArea(Session& session) {
    const Detector detector = session.CreateDetector();
    session.Receive(detector, session.Frame(640, 480));
    detector.settings->SetIntValue(SettingKey::AreaLeft, 10);
    detector.settings->SetIntValue(SettingKey::AreaTop, 20);
    detector.settings->SetIntValue(SettingKey::AreaRight, 50);
    detector.settings->SetIntValue(SettingKey::AreaBottom, 75);
    session.Receive(detector, session.Frame(640, 480));
    detector.settings->SetBoolValue(SettingKey::UseArea, true);
    session.Receive(detector, session.Frame(640, 480));
    std::vector<json> regions;
    for (const json& call : session.Journal()) {
        if (call.at("call") == "Recognize2") {
            regions.push_back(call.at("region"));
        }
    }
    ExpectEqual("the number of frames that the engine received", regions.size(), 3u);
    Expect(regions[0].is_null() && regions[1].is_null(), "the engine received a region before \"use_area\" was set");
    ExpectEqual("the engine's region", regions[2], json({{"left", 64}, {"top", 96}, {"right", 320}, {"bottom", 360}}));
}

void CheckFrameValues(Session& session) {
    const Detector detector = session.CreateDetector();
    for (const char* const name : {"anything", "", "zone_width", "%s%n"}) {
        for (const Type type : allTypes) {
            ExpectEqual("the result of setting a value of a single call", Set(detector.single, 4, type, name), 0);
        }
    }
    for (const Type type : allTypes) {
        ExpectEqual("the result of setting a null name", Set(detector.single, 4, type, nullptr), RefusedSetting);
    }
    ExpectState("setting a null name", detector, RefusedSetting, "");
    ExpectEqual("the result of setting a null text", detector.single->SetStringValue("text", nullptr), 0);
    Session::ExpectOutcome("a frame", detector, session.Receive(detector), "");
}

}  // namespace

std::vector<Case> SettingsCases() {
    return {
        {1, "every setting accepts a value of its own type", CheckOwnTypes},
        {1, "every setting refuses a value of another type with 2816 and its name", CheckOtherTypes},
        {1, "unknown setting names are refused with 2816 and the name", CheckUnknownNames},
        {1, "a null setting name is refused with 2816 and no text", CheckNullNames},
        {1, "text settings accept any text and null", CheckTexts},
        {1, "settings can be applied at any time and clear the error", CheckApplying},
        {1, "number settings accept every number", CheckAnyNumber},
        {1, "a refused setting changes nothing, and plate widths reach the engine in pixels",
         CheckRefusalChangesNothing},
        {1, "the area reaches the engine in pixels while it is in use", CheckArea},
        {1, "values of a single call are accepted under any name except null", CheckFrameValues},
    };
}

}  // namespace validate
