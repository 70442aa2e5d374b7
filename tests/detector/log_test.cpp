// The log lines, and the texts that contain name and id.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "diagnostics/debug_level.h"
#include "sdk/contract_names.h"
#include "tests/detector/test_detector.h"
#include "tests/support/recording_debug_output.h"

namespace {

using detector_tests::DetectorPointer;
using detector_tests::ErrorsOf;
using detector_tests::MakeDetector;
using detector_tests::RefuseASetting;
using detector_tests::SettingsOf;
using testing::ElementsAre;
using testing::IsEmpty;

class DetectorLog : public testing::Test {
  protected:
    void Name(const char* name, const char* id) {
        SettingsOf(*detector).SetStringValue("name", name);
        SettingsOf(*detector).SetStringValue("id", id);
    }

    recording_host::RecordingHost host;
    RecordingDebugOutput output;
    DetectorPointer detector = MakeDetector(host);
};

class DetectorWithoutLogger : public testing::Test {
  protected:
    DetectorWithoutLogger() { host.refusals.logger = true; }
    recording_host::RecordingHost host;
    RecordingDebugOutput output;
};

TEST_F(DetectorLog, TheLoggerIsRequestedOnceAtConstruction) {
    EXPECT_THAT(host.RequestedInterfaces(), ElementsAre("struct OKM8::ILogger"));
    detector->Log("x", 1, 1);
    EXPECT_THAT(host.RequestedInterfaces(), ElementsAre("struct OKM8::ILogger"));
    EXPECT_NE(detector->logger, nullptr);
    EXPECT_EQ(static_cast<void*>(detector->host), host.Object());
    EXPECT_EQ(static_cast<OKM8::IContract*>(detector->detectorPeer), host.Peer());
}

TEST_F(DetectorLog, ALineHasPrefixMessageCodeAndLineEnd) {
    detector->Log("something happened", 5, 9);
    EXPECT_THAT(host.Log(), ElementsAre("9:[BaseDetectorImpl] [] something happened. Error = 5\n"));
    EXPECT_THAT(output.Texts(), IsEmpty());
}

TEST_F(DetectorLog, SettersAndErrorReadsWorkFromInsideTheHostsLog) {
    int logged = 0;
    host.onCall = recording_host::On(recording_host::Operation::WriteLog, [&] {
        ++logged;
        Name("gate", "7");
        EXPECT_EQ(ErrorsOf(*detector).GetErrorCode(), 0);
        RefuseASetting(*detector);
        EXPECT_STREQ(ErrorsOf(*detector).GetErrorMessage(), "no such setting");
    });
    EXPECT_TRUE(detector->LogError("something happened", 5));
    EXPECT_TRUE(detector->LogError("something happened", 5));
    EXPECT_EQ(logged, 2);
    EXPECT_THAT(host.Log(), ElementsAre("3:[BaseDetectorImpl] [] something happened. Error = 5\n",
                                        "3:[BaseDetectorImpl] [gate] [id:7] something happened. Error = 5\n"));
}

TEST_F(DetectorLog, NameAndIdAreInThePrefix) {
    Name("gate", "");
    EXPECT_EQ(detector->GetLogPrefix(), "[gate] ");
    Name("gate", "12");
    EXPECT_EQ(detector->GetLogPrefix(), "[gate] [id:12] ");
    detector->Log("x", 0, 1);
    EXPECT_THAT(host.Log(), ElementsAre("1:[BaseDetectorImpl] [gate] [id:12] x. Error = 0\n"));
    Name("", "12");
    EXPECT_EQ(detector->GetLogPrefix(), "[] [id:12] ");
}

TEST_F(DetectorLog, PlaceholdersInNamesAndMessagesAreOrdinaryCharacters) {
    Name("%1%", "%2%");
    detector->Log("100%", 1, 1);
    EXPECT_THAT(host.Log(), ElementsAre("1:[BaseDetectorImpl] [%1%] [id:%2%] 100%. Error = 1\n"));
    EXPECT_EQ(detector->GetDefaultFiguresKey(), "%1%.%2%");
}

TEST_F(DetectorLog, TheCodeIsASignedDecimalNumber) {
    detector->Log("x", std::numeric_limits<std::int32_t>::min(), -2);
    detector->Log("x", std::numeric_limits<std::int32_t>::max(), 3);
    EXPECT_THAT(host.Log(), ElementsAre("-2:[BaseDetectorImpl] [] x. Error = -2147483648\n",
                                        "3:[BaseDetectorImpl] [] x. Error = 2147483647\n"));
}

TEST_F(DetectorLog, CodeMinusOneGoesToTheDebugOutputEvenWithALogger) {
    Name("gate", "12");
    detector->Log("no code", -1, 3);
    EXPECT_THAT(host.Log(), IsEmpty());
    EXPECT_THAT(output.Texts(), ElementsAre("[BaseDetectorImpl] no code\r\n"));
    EXPECT_FALSE(output.Lines().front().isWide);
}

TEST_F(DetectorWithoutLogger, WritesToTheDebugOutputWithoutPrefixAtAnyLevel) {
    const DetectorPointer detector = MakeDetector(host);
    EXPECT_EQ(detector->logger, nullptr);
    SettingsOf(*detector).SetStringValue("name", "gate");
    for (const std::int32_t level : {0, 1, -5}) {
        diagnostics::SetDebugLevel(level);
        output.Clear();
        detector->Log("a message", 7, 3);
        EXPECT_THAT(output.Texts(), ElementsAre("[BaseDetectorImpl] a message\r\n"));
    }
    diagnostics::SetDebugLevel(0);
}

TEST_F(DetectorLog, LogErrorLogsAtLevel3UnlessTheCodeIs0) {
    EXPECT_FALSE(detector->LogError("fine", 0));
    EXPECT_THAT(host.Log(), IsEmpty());
    EXPECT_TRUE(detector->LogError("bad", 12));
    EXPECT_THAT(host.Log(), ElementsAre("3:[BaseDetectorImpl] [] bad. Error = 12\n"));
    EXPECT_TRUE(detector->LogError("no code", -1));
    EXPECT_EQ(host.Log().size(), 1u);
    EXPECT_THAT(output.Texts(), ElementsAre("[BaseDetectorImpl] no code\r\n"));
}

TEST_F(DetectorLog, AnEngineThatDidNotStartIsReportedByNumberOrName) {
    detector->ReportEngineInitFailure(3, "no key");
    detector->ReportEngineInitFailure(std::string("gpu"), "no key");
    detector->ReportEngineInitFailure(-1, "");
    EXPECT_THAT(
        host.Log(),
        ElementsAre("2:[BaseDetectorImpl] [] Failed to initialize the engine: device:3, info:no key. Error = 769\n",
                    "2:[BaseDetectorImpl] [] Failed to initialize the engine: device:gpu, info:no key. Error = 769\n",
                    "2:[BaseDetectorImpl] [] Failed to initialize the engine: device:-1, info:. Error = 769\n"));
}

TEST_F(DetectorWithoutLogger, AnEngineThatDidNotStartIsWrittenToTheDebugOutput) {
    const DetectorPointer detector = MakeDetector(host);
    detector->ReportEngineInitFailure(3, "no key");
    EXPECT_THAT(output.Texts(),
                ElementsAre("[BaseDetectorImpl] Failed to initialize the engine: device:3, info:no key\r\n"));
}

TEST_F(DetectorLog, LoggingDoesNotChangeTheErrorState) {
    RefuseASetting(*detector);
    detector->LogError("x", 1);
    detector->ReportEngineInitFailure(1, "x");
    EXPECT_EQ(ErrorsOf(*detector).GetErrorCode(), 2816);
}

TEST_F(DetectorLog, TheDefaultFiguresKeyIsNameDotId) {
    EXPECT_EQ(detector->GetDefaultFiguresKey(), ".");
    Name("gate", "12");
    EXPECT_EQ(detector->GetDefaultFiguresKey(), "gate.12");
}

TEST_F(DetectorLog, TheIdNumberIsADecimalNumberAsStoiReadsIt) {
    const std::vector<std::pair<const char*, std::int32_t>> texts = {
        {"0", 0},
        {"12", 12},
        {"-12", -12},
        {"+12", 12},
        {" \t\n\v\f\r12", 12},
        {"12abc", 12},
        {"12 34", 12},
        {"007", 7},
        {"0x10", 0},
        {"3.9", 3},
        {"2147483647", 2147483647},
        {"-0", 0},
        {"  -7.5", -7},
        {"1e5", 1},
        {"00000000000000000000000005", 5},
        {"-2147483648", std::numeric_limits<std::int32_t>::min()},
    };
    for (const auto& [text, number] : texts) {
        SettingsOf(*detector).SetStringValue("id", text);
        EXPECT_EQ(detector->GetIdNumber(), number) << text;
    }
}

template <class Exception, class Action>
std::string TextOf(Action action) {
    try {
        action();
    } catch (const Exception& exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

TEST_F(DetectorLog, AnIdWithoutALeadingNumberIsRefused) {
    for (const char* text : {"", " ", "abc", "-", "+", "+-1", "- 1", "x12", ".5"}) {
        SettingsOf(*detector).SetStringValue("id", text);
        EXPECT_EQ(TextOf<std::invalid_argument>([&] { detector->GetIdNumber(); }), "invalid stoi argument") << text;
    }
}

TEST_F(DetectorLog, AnIdOutOfRangeIsRefused) {
    for (const char* text : {"2147483648", "-2147483649", "9223372036854775807", "9223372036854775808",
                             "-99999999999999999999999", "4294967296"}) {
        SettingsOf(*detector).SetStringValue("id", text);
        EXPECT_EQ(TextOf<std::out_of_range>([&] { detector->GetIdNumber(); }), "stoi argument out of range") << text;
    }
}

TEST_F(DetectorLog, TheIdNumberIsReadAfterOneThatWasOutOfRange) {
    SettingsOf(*detector).SetStringValue("id", "99999999999999999999999");
    EXPECT_THROW(detector->GetIdNumber(), std::out_of_range);
    SettingsOf(*detector).SetStringValue("id", "12");
    EXPECT_EQ(detector->GetIdNumber(), 12);
}

}  // namespace
