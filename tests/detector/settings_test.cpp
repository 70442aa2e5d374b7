// The two stores of named values, and the error state after a refusal.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "sdk/contract_names.h"
#include "tests/detector/test_detector.h"
#include "tests/support/completes_within.h"

namespace {

using namespace std::chrono_literals;
using detector_tests::BufferPointer;
using detector_tests::DetectorPointer;
using detector_tests::Error;
using detector_tests::ErrorOf;
using detector_tests::ErrorsOf;
using detector_tests::FrameImage;
using detector_tests::MakeDetector;
using detector_tests::ReceiverOf;
using detector_tests::RefuseASetting;
using detector_tests::SettingsOf;
using detector_tests::SingleReceiverOf;

constexpr std::int32_t refused = 2816;

class Settings : public testing::Test {
  protected:
    OKM8::IAsyncAdjuster& Bound() { return SettingsOf(*detector); }
    OKM8::Analytics::IMediaReceiverSingle2& Free() { return SingleReceiverOf(*detector); }

    recording_host::RecordingHost host;
    DetectorPointer detector = MakeDetector(host);
};

TEST_F(Settings, MembersStartFalseZeroAndEmpty) {
    EXPECT_FALSE(detector->halfFrame);
    EXPECT_EQ(detector->id, "");
    EXPECT_EQ(detector->name, "");
    EXPECT_FALSE(detector->useArea);
    EXPECT_EQ(detector->area.left, 0);
    EXPECT_EQ(detector->area.top, 0);
    EXPECT_EQ(detector->area.right, 0);
    EXPECT_EQ(detector->area.bottom, 0);
    EXPECT_EQ(detector->width, 0u);
    EXPECT_EQ(detector->height, 0u);
    EXPECT_EQ(detector->effectiveHeight, 0u);
    EXPECT_EQ(detector->lastTimeStamp, 0u);
    EXPECT_FALSE(detector->holdFrame);
    EXPECT_FALSE(detector->inSingleCall);
    EXPECT_FALSE(detector->singleAreaValid);
    EXPECT_FALSE(detector->singleAreaActive);
    EXPECT_TRUE(detector->transformer.Steps().empty());
    EXPECT_TRUE(detector->frameValues.IsEmpty());
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

struct NamedSetting {
    const char* name;
    char type;  // 's', 'i' or 'b'
};

class EachSetting : public Settings, public testing::WithParamInterface<NamedSetting> {
  protected:
    std::int32_t Set(char type) {
        switch (type) {
            case 's':
                return Bound().SetStringValue(GetParam().name, "7");
            case 'd':
                return Bound().SetDoubleValue(GetParam().name, 7.0);
            case 'i':
                return Bound().SetIntValue(GetParam().name, 7);
            default:
                return Bound().SetBoolValue(GetParam().name, true);
        }
    }

    // Returns how many of the bound members differ from a new detector's.
    int ChangedMembers() const {
        int changed = 0;
        changed += detector->halfFrame ? 1 : 0;
        changed += detector->id.empty() ? 0 : 1;
        changed += detector->name.empty() ? 0 : 1;
        changed += detector->useArea ? 1 : 0;
        for (const std::int32_t side :
             {detector->area.left, detector->area.top, detector->area.right, detector->area.bottom}) {
            changed += side != 0 ? 1 : 0;
        }
        return changed;
    }
};

TEST_P(EachSetting, AcceptsItsOwnTypeAndRefusesTheThreeOthers) {
    for (const char type : {'s', 'd', 'i', 'b'}) {
        if (type == GetParam().type) {
            continue;
        }
        EXPECT_EQ(Set(type), refused) << type;
        EXPECT_EQ(ErrorOf(*detector), Error(refused, GetParam().name)) << type;
        EXPECT_EQ(ChangedMembers(), 0) << type;
    }
    EXPECT_EQ(Set(GetParam().type), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    EXPECT_EQ(ChangedMembers(), 1);
}

INSTANTIATE_TEST_SUITE_P(OfTheBase, EachSetting,
                         testing::Values(NamedSetting{"use_half_cadr", 'b'}, NamedSetting{"id", 's'},
                                         NamedSetting{"name", 's'}, NamedSetting{"use_area", 'b'},
                                         NamedSetting{"area_left", 'i'}, NamedSetting{"area_top", 'i'},
                                         NamedSetting{"area_right", 'i'}, NamedSetting{"area_bottom", 'i'}),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST_F(Settings, ReachTheirMembers) {
    Bound().SetBoolValue("use_half_cadr", true);
    Bound().SetStringValue("id", "12");
    Bound().SetStringValue("name", "gate");
    Bound().SetBoolValue("use_area", true);
    Bound().SetIntValue("area_left", -1);
    Bound().SetIntValue("area_top", 2147483647);
    Bound().SetIntValue("area_right", 3);
    Bound().SetIntValue("area_bottom", 4);
    EXPECT_TRUE(detector->halfFrame);
    EXPECT_EQ(detector->id, "12");
    EXPECT_EQ(detector->name, "gate");
    EXPECT_TRUE(detector->useArea);
    EXPECT_EQ(detector->area.left, -1);
    EXPECT_EQ(detector->area.top, 2147483647);
    EXPECT_EQ(detector->area.right, 3);
    EXPECT_EQ(detector->area.bottom, 4);
    Bound().SetBoolValue("use_half_cadr", false);
    EXPECT_FALSE(detector->halfFrame);
}

TEST_F(Settings, AnAreaSideIsRefusedAsATextAndAcceptedAsANumber) {
    EXPECT_EQ(Bound().SetStringValue("area_left", "10"), refused);
    EXPECT_EQ(ErrorOf(*detector), Error(refused, "area_left"));
    EXPECT_EQ(Bound().SetIntValue("area_left", 10), 0);
    EXPECT_EQ(detector->area.left, 10);
}

TEST_F(Settings, ADoubleIsRefusedUnderAnyName) {
    for (const char* settingName : {"use_half_cadr", "id", "area_left", "anything", ""}) {
        EXPECT_EQ(Bound().SetDoubleValue(settingName, 1.0), refused);
        EXPECT_EQ(ErrorOf(*detector), Error(refused, settingName));
    }
}

TEST_F(Settings, AnUnknownNameIsRefusedByTheBoundSettersAndAcceptedByTheFreeStore) {
    EXPECT_EQ(Bound().SetStringValue("colour", "red"), refused);
    EXPECT_EQ(ErrorOf(*detector), Error(refused, "colour"));
    EXPECT_EQ(Bound().SetDoubleValue("colour", 1.0), refused);
    EXPECT_EQ(Bound().SetIntValue("colour", 1), refused);
    EXPECT_EQ(Bound().SetBoolValue("colour", true), refused);
    EXPECT_EQ(Free().SetStringValue("colour", "red"), 0);
    EXPECT_EQ(Free().SetDoubleValue("colour2", 1.0), 0);
    EXPECT_EQ(Free().SetIntValue("colour3", 1), 0);
    EXPECT_EQ(Free().SetBoolValue("colour4", true), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Settings, NamesAreComparedByteForByte) {
    for (const char* settingName : {"ID", "id ", " id", "i", "use_area\xC2", ""}) {
        EXPECT_EQ(Bound().SetStringValue(settingName, "x"), refused) << settingName;
        EXPECT_EQ(ErrorOf(*detector), Error(refused, settingName));
    }
}

TEST_F(Settings, AFreeValueUnderABoundNameDoesNotChangeTheSetting) {
    EXPECT_EQ(Free().SetStringValue("area_left", "10"), 0);
    EXPECT_EQ(detector->area.left, 0);
    std::string text;
    EXPECT_EQ(detector->GetFrameString("area_left", text), 0);
    EXPECT_EQ(text, "10");
}

TEST_F(Settings, ABoundNameIsNotAFreeValue) {
    Bound().SetIntValue("area_left", 10);
    std::int32_t number = -1;
    EXPECT_EQ(detector->GetFrameInt("area_left", number), refused);
    EXPECT_EQ(number, -1);
}

TEST_F(Settings, ANullNameIsRefusedWithAnEmptyTextByEverySetter) {
    const auto expectRefused = [&](std::int32_t code) {
        EXPECT_EQ(code, refused);
        EXPECT_EQ(ErrorOf(*detector), Error(refused, ""));
        SettingsOf(*detector).SetIntValue("area_left", 1);
    };
    expectRefused(Bound().SetStringValue(nullptr, "x"));
    expectRefused(Bound().SetDoubleValue(nullptr, 1.0));
    expectRefused(Bound().SetIntValue(nullptr, 1));
    expectRefused(Bound().SetBoolValue(nullptr, true));
    expectRefused(Free().SetStringValue(nullptr, "x"));
    expectRefused(Free().SetDoubleValue(nullptr, 1.0));
    expectRefused(Free().SetIntValue(nullptr, 1));
    expectRefused(Free().SetBoolValue(nullptr, true));
    EXPECT_TRUE(detector->frameValues.IsEmpty());
}

TEST_F(Settings, ANullTextIsAnEmptyText) {
    Bound().SetStringValue("id", "12");
    EXPECT_EQ(Bound().SetStringValue("id", nullptr), 0);
    EXPECT_EQ(detector->id, "");
    EXPECT_EQ(Free().SetStringValue("x", nullptr), 0);
    std::string text = "before";
    EXPECT_EQ(detector->GetFrameString("x", text), 0);
    EXPECT_EQ(text, "");
}

TEST_F(Settings, TextsAreCopiedDuringTheCall) {
    char text[] = "gate";
    char valueName[] = "key";
    Bound().SetStringValue("name", text);
    Free().SetStringValue(valueName, text);
    text[0] = 'X';
    valueName[0] = 'X';
    EXPECT_EQ(detector->name, "gate");
    std::string kept;
    EXPECT_EQ(detector->GetFrameString("key", kept), 0);
    EXPECT_EQ(kept, "gate");
}

TEST_F(Settings, AnEmptyFreeNameIsANameLikeAnyOther) {
    EXPECT_EQ(Free().SetIntValue("", 3), 0);
    std::int32_t number = 0;
    EXPECT_EQ(detector->GetFrameInt("", number), 0);
    EXPECT_EQ(number, 3);
}

TEST_F(Settings, AFreeValueSetAgainAsATextIsATextOnly) {
    EXPECT_EQ(Free().SetIntValue("n", 1), 0);
    EXPECT_EQ(Free().SetStringValue("n", "one"), 0);
    std::int32_t number = 9;
    EXPECT_EQ(detector->GetFrameInt("n", number), refused);
    EXPECT_EQ(ErrorOf(*detector), Error(refused, "n"));
    EXPECT_EQ(number, 9) << "a refused read does not change the variable";
    std::string text;
    EXPECT_EQ(detector->GetFrameString("n", text), 0);
    EXPECT_EQ(text, "one");
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Settings, EachReadAccessorAcceptsOnlyItsOwnType) {
    Free().SetStringValue("s", "text");
    Free().SetDoubleValue("d", -0.25);
    Free().SetIntValue("i", -7);
    Free().SetBoolValue("b", true);
    const std::vector<std::string> names = {"s", "d", "i", "b", "absent"};
    for (const std::string& valueName : names) {
        const auto expected = [&](const char* own) { return valueName == own ? 0 : refused; };
        const auto text = Error(refused, valueName);
        const auto expectState = [&](std::int32_t code) {
            EXPECT_EQ(ErrorOf(*detector), code == 0 ? Error(0, "") : text) << valueName;
        };
        std::string string = "unchanged";
        double real = 99.0;
        std::int32_t number = 99;
        bool boolean = false;
        const char* characters = nullptr;
        std::int32_t code = detector->GetFrameString(valueName.c_str(), string);
        EXPECT_EQ(code, expected("s"));
        expectState(code);
        code = detector->GetFrameDouble(valueName.c_str(), real);
        EXPECT_EQ(code, expected("d"));
        expectState(code);
        code = detector->GetFrameInt(valueName.c_str(), number);
        EXPECT_EQ(code, expected("i"));
        expectState(code);
        code = detector->GetFrameBool(valueName.c_str(), boolean);
        EXPECT_EQ(code, expected("b"));
        expectState(code);
        code = detector->GetFrameText(valueName.c_str(), characters);
        EXPECT_EQ(code, expected("s"));
        expectState(code);
        EXPECT_EQ(string, valueName == "s" ? "text" : "unchanged");
        EXPECT_EQ(real, valueName == "d" ? -0.25 : 99.0);
        EXPECT_EQ(number, valueName == "i" ? -7 : 99);
        EXPECT_EQ(boolean, valueName == "b");
        EXPECT_EQ(characters != nullptr, valueName == "s");
        if (characters != nullptr) {
            EXPECT_STREQ(characters, "text");
        }
    }
}

TEST_F(Settings, ANullNameIsRefusedByEveryReadAccessor) {
    std::string string;
    double real = 0;
    std::int32_t number = 0;
    bool boolean = false;
    const char* characters = nullptr;
    EXPECT_EQ(detector->GetFrameString(nullptr, string), refused);
    EXPECT_EQ(ErrorOf(*detector), Error(refused, ""));
    EXPECT_EQ(detector->GetFrameDouble(nullptr, real), refused);
    EXPECT_EQ(detector->GetFrameInt(nullptr, number), refused);
    EXPECT_EQ(detector->GetFrameBool(nullptr, boolean), refused);
    EXPECT_EQ(detector->GetFrameText(nullptr, characters), refused);
    EXPECT_EQ(ErrorOf(*detector), Error(refused, ""));
}

TEST_F(Settings, ATextReadInPlaceStaysValidWhileOtherValuesAreSet) {
    Free().SetStringValue("text", "a text that is too long for any small-string buffer to hold");
    const char* characters = nullptr;
    ASSERT_EQ(detector->GetFrameText("text", characters), 0);
    for (int index = 0; index < 200; ++index) {
        Free().SetStringValue(("other" + std::to_string(index)).c_str(),
                              "another long text that wants memory of its own");
    }
    EXPECT_STREQ(characters, "a text that is too long for any small-string buffer to hold");
    const char* again = nullptr;
    ASSERT_EQ(detector->GetFrameText("text", again), 0);
    EXPECT_EQ(again, characters) << "the stored text itself, not a copy";
}

TEST_F(Settings, ValuesOfEveryKindAreKeptExactly) {
    Free().SetDoubleValue("inf", -std::numeric_limits<double>::infinity());
    Free().SetDoubleValue("nan", std::numeric_limits<double>::quiet_NaN());
    Free().SetIntValue("low", std::numeric_limits<std::int32_t>::min());
    Free().SetBoolValue("no", false);
    double real = 0;
    EXPECT_EQ(detector->GetFrameDouble("inf", real), 0);
    EXPECT_EQ(real, -std::numeric_limits<double>::infinity());
    EXPECT_EQ(detector->GetFrameDouble("nan", real), 0);
    EXPECT_TRUE(std::isnan(real));
    std::int32_t number = 0;
    EXPECT_EQ(detector->GetFrameInt("low", number), 0);
    EXPECT_EQ(number, std::numeric_limits<std::int32_t>::min());
    bool boolean = true;
    EXPECT_EQ(detector->GetFrameBool("no", boolean), 0);
    EXPECT_FALSE(boolean);
}

TEST_F(Settings, AFreeValueReplacesEarlierOnesOfEveryType) {
    Free().SetBoolValue("v", true);
    Free().SetDoubleValue("v", 2.5);
    Free().SetIntValue("v", 3);
    std::int32_t number = 0;
    double real = 0;
    bool boolean = false;
    EXPECT_EQ(detector->GetFrameInt("v", number), 0);
    EXPECT_EQ(number, 3);
    EXPECT_EQ(detector->GetFrameDouble("v", real), refused);
    EXPECT_EQ(detector->GetFrameBool("v", boolean), refused);
}

TEST_F(Settings, ASingleCallClearsEveryFreeValue) {
    Free().SetStringValue("s", "text");
    Free().SetDoubleValue("d", 1.5);
    Free().SetIntValue("i", 1);
    Free().SetBoolValue("b", true);
    recording_host::BufferCounts counts;
    Free().ReceiveSingle(recording_host::MakeFrame(counts, 64, 48, 1), nullptr, nullptr);
    std::string string;
    double real = 0;
    std::int32_t number = 0;
    bool boolean = false;
    const char* characters = nullptr;
    EXPECT_EQ(detector->GetFrameString("s", string), refused);
    EXPECT_EQ(detector->GetFrameText("s", characters), refused);
    EXPECT_EQ(detector->GetFrameDouble("d", real), refused);
    EXPECT_EQ(detector->GetFrameInt("i", number), refused);
    EXPECT_EQ(detector->GetFrameBool("b", boolean), refused);
}

// The error state.

TEST_F(Settings, ASuccessAfterARefusalLeavesNoError) {
    EXPECT_EQ(Bound().SetIntValue("nothing", 1), refused);
    EXPECT_EQ(ErrorOf(*detector), Error(refused, "nothing"));
    EXPECT_EQ(Bound().SetIntValue("area_top", 1), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Settings, TheErrorIsClearedByFramesSettersReadsAndApplySettings) {
    recording_host::BufferCounts counts;
    std::string text;
    Free().SetStringValue("s", "x");
    const std::vector<std::pair<const char*, std::function<void()>>> calls = {
        {"Receive", [&] { ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)); }},
        {"bound setter", [&] { Bound().SetStringValue("id", "1"); }},
        {"free setter", [&] { Free().SetStringValue("s", "x"); }},
        {"read accessor", [&] { detector->GetFrameString("s", text); }},
        {"ReceiveSingle",
         [&] { Free().ReceiveSingle(recording_host::MakeFrame(counts, 64, 48, 1), nullptr, nullptr); }},
        {"ApplySettings", [&] { Bound().ApplySettings(); }},
    };
    for (const auto& [name, call] : calls) {
        RefuseASetting(*detector);
        ASSERT_EQ(ErrorsOf(*detector).GetErrorCode(), refused);
        call();
        EXPECT_EQ(ErrorOf(*detector), Error(0, "")) << name;
    }
}

TEST_F(Settings, TheErrorIsNotClearedByQueriesControllerOperationsAndItsOwnReads) {
    RefuseASetting(*detector);
    const auto expected = Error(refused, "no such setting");
    detector->QueryContract(OKM8::ContractName::IDetector);
    detector->QueryContract(nullptr);
    std::as_const(*detector).QueryContract(OKM8::ContractName::IMediaReceiver);
    OKM8::Analytics::IMediaReceiverController& controller = *detector;
    controller.Control1();
    controller.Control2();
    controller.Control3();
    controller.Control4();
    controller.Control5();
    EXPECT_EQ(ErrorOf(*detector), expected);
    EXPECT_EQ(ErrorOf(*detector), expected);
}

TEST_F(Settings, TheErrorTextStaysValidUntilTheNextCall) {
    const std::string longName(300, 'n');
    Bound().SetIntValue(longName.c_str(), 1);
    const char* const text = ErrorsOf(*detector).GetErrorMessage();
    EXPECT_EQ(ErrorsOf(*detector).GetErrorCode(), refused);
    EXPECT_EQ(std::string(text), longName);
}

// ApplySettings.

TEST_F(Settings, ApplyingRunsTheHookAfterTheChainWasRebuilt) {
    Bound().SetBoolValue("use_half_cadr", true);
    detector->SetFrameSize(640, 480);
    detector->onApplied = [&] { EXPECT_EQ(detector->transformer.Steps().size(), 1u); };
    Bound().ApplySettings();
    EXPECT_EQ(detector->applied, 1);
}

TEST_F(Settings, AStandardExceptionWhileApplyingIsInTheErrorState) {
    detector->onApplied = [] { throw std::runtime_error("chain broken"); };
    EXPECT_NO_THROW(Bound().ApplySettings());
    EXPECT_EQ(ErrorOf(*detector), Error(1, "chain broken"));
    detector->onApplied = nullptr;
    Bound().ApplySettings();
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Settings, AnyOtherExceptionWhileApplyingReachesTheCallerAndAnotherThreadCanReceiveAFrame) {
    detector->onApplied = [] { throw 42; };
    EXPECT_THROW(Bound().ApplySettings(), int);
    detector->onApplied = nullptr;
    recording_host::BufferCounts counts;
    std::int32_t code = -1;
    ASSERT_TRUE(CompletesWithin(1min, [&] {
        code = ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1));
    })) << "the frame mutex stayed locked";
    EXPECT_EQ(code, 0);
}

TEST_F(Settings, SettersInsideAFrameDoNotWait) {
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        EXPECT_TRUE(CompletesWithin(1min, [&] { Bound().SetIntValue("area_left", 33); }));
        EXPECT_TRUE(CompletesWithin(1min, [&] { Free().SetIntValue("n", 3); }));
    };
    recording_host::BufferCounts counts;
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 0);
    EXPECT_EQ(detector->area.left, 33);
}

TEST_F(Settings, AFrameKeepsItsOwnOutcomeWhenSettersClearTheErrorMeanwhile) {
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        detector->Fail("event lost");
        EXPECT_TRUE(CompletesWithin(1min, [&] { Bound().SetIntValue("area_left", 33); }));
    };
    recording_host::BufferCounts counts;
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 1);
}

}  // namespace
