// One recognised plate: its text, confidence and rectangle, and the two ways to create a result.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <stdexcept>

#include "engine/engine_text.h"
#include "tests/engine/probe_detector.h"

namespace {

using engine_tests::EngineTest;
using engine_tests::FoundPlate;
using plate_recognition::PlateDescription;
using plate_recognition::ReadingTextOf;
using plate_recognition::RecognitionResult;
using plate_recognition::ResultTextOf;
using plate_recognition::Utf8Of;
using plate_recognition::Utf8OfAnsi;
using testing::ElementsAre;
using testing::IsEmpty;

using BufferPointer = boost::shared_ptr<OKM8::MFF::ICompositeBuffer>;

constexpr std::int32_t smallest = std::numeric_limits<std::int32_t>::min();

RPLATE RecordWithText(const std::string& text) {
    return fake_engine::Plate(text, 0.0, 0, 0, 0, 0);
}

class Results : public EngineTest {
  protected:
    ~Results() override { End(); }

    BufferPointer Buffer(std::uint64_t time = 5) {
        return BufferPointer(static_cast<OKM8::MFF::ICompositeBuffer*>(recording_host::MakeFrame(counts, 64, 48, time)),
                             [](OKM8::MFF::ICompositeBuffer* buffer) { buffer->Release(); });
    }

    boost::shared_ptr<RecognitionResult> ResultOf(const RPLATE& record) {
        return Detector().CreateResult(Buffer(), record);
    }

    std::int32_t ConfidenceOf(const std::string& text, double sum) {
        RPLATE record = RecordWithText(text);
        SetConfidenceSum(record, sum);
        return ResultOf(record)->confidence;
    }
};

// Text.

TEST(PlateText, OfAReadingKeepsTheNulsAndHas15Characters) {
    EXPECT_EQ(ReadingTextOf(RecordWithText("B123EFG")), std::wstring(L"B123EFG\0\0\0\0\0\0\0\0", 15));
    EXPECT_EQ(ReadingTextOf(RecordWithText("")), std::wstring(15, L'\0'));
}

TEST(PlateText, OfAReadingKeepsBytesAfterANulAndDropsTheLastCharacter) {
    EXPECT_EQ(ReadingTextOf(RecordWithText(std::string("AB\0CD\0\0\0\0\0\0\0\0\0\0Z", 16))),
              std::wstring(L"AB\0CD\0\0\0\0\0\0\0\0\0\0", 15));
    EXPECT_EQ(ReadingTextOf(RecordWithText("ABCDEFGHIJKLMNOP")), L"ABCDEFGHIJKLMNO");
}

TEST(PlateText, OfAResultEndsBeforeTheFirstNul) {
    EXPECT_EQ(ResultTextOf(RecordWithText("AB123C")), L"AB123C");
    EXPECT_EQ(ResultTextOf(RecordWithText(std::string("AB\0CD", 5))), L"AB");
    EXPECT_EQ(ResultTextOf(RecordWithText("")), L"");
    EXPECT_EQ(ResultTextOf(RecordWithText("ABCDEFGHIJKLMNO")), L"ABCDEFGHIJKLMNO");
}

TEST(PlateText, OfAResultIsAll16BytesWhenThereIsNoNulAndNothingAfterThem) {
    RPLATE record = RecordWithText("ABCDEFGHIJKLMNOP");
    std::memset(record.country, 'x', sizeof record.country);
    EXPECT_EQ(ResultTextOf(record), L"ABCDEFGHIJKLMNOP");
    EXPECT_EQ(ReadingTextOf(record), L"ABCDEFGHIJKLMNO");
}

TEST(PlateCountry, IsTheCodeAfterTheTag) {
    RPLATE record = {};
    EXPECT_EQ(CountryCodeOf(record), "");
    SetCountryCode(record, "GBR");
    EXPECT_EQ(CountryCodeOf(record), "GBR");
    EXPECT_EQ(std::string(record.country, sizeof record.country), std::string("ISO3166:GBR\0", 12));
}

TEST(PlateCountry, IsEmptyForOtherContents) {
    for (const std::string& content :
         {std::string(12, 'x'), std::string("ISO3166:GBRX"), std::string("ISO3166:GBr\0", 12),
          std::string("ISO3166:GB\0\0", 12), std::string("iso3166:GBR\0", 12), std::string("\0ISO3166:GBR", 12),
          std::string("GBR\0\0\0\0\0\0\0\0\0", 12)}) {
        RPLATE record = {};
        content.copy(record.country, sizeof record.country);
        EXPECT_EQ(CountryCodeOf(record), "") << content;
    }
}

TEST(PlateText, IsChineseInTwoBytesACharacter) {
    const RPLATE record = RecordWithText(
        "\xBE\xA9"
        "A12345");
    EXPECT_EQ(ResultTextOf(record),
              L"\u4EAC"
              L"A12345");
    EXPECT_EQ(ReadingTextOf(record), std::wstring(L"\u4EAC"
                                                  L"A12345\0\0\0\0\0\0\0",
                                                  14));
    std::string full;
    for (int index = 0; index < 8; ++index) {
        full += "\xBE\xA9";
    }
    EXPECT_EQ(ResultTextOf(RecordWithText(full)), std::wstring(8, L'\u4EAC'));
    EXPECT_EQ(ReadingTextOf(RecordWithText(full)), std::wstring(7, L'\u4EAC'));
}

TEST(PlateText, WithInvalidBytesKeepsItsLengthAndDoesNotThrow) {
    for (const std::string& text : {std::string("\xFF\xFF\xFF"), std::string("A\x81"),
                                    std::string("\x81\x30"
                                                "B"),
                                    std::string(16, '\xFE'), std::string(15, 'A') + "\xBE"}) {
        const RPLATE record = RecordWithText(text);
        std::wstring result;
        std::wstring reading;
        EXPECT_NO_THROW(result = ResultTextOf(record));
        EXPECT_NO_THROW(reading = ReadingTextOf(record));
        EXPECT_GE(result.size(), text.size() / 2) << testing::PrintToString(text);
        EXPECT_GE(reading.size(), 7u) << testing::PrintToString(text);
        EXPECT_NO_THROW(Utf8Of(result));
    }
    EXPECT_EQ(ResultTextOf(RecordWithText("\x81\x30"
                                          "B"))
                  .back(),
              L'B');
}

TEST(PlateText, IsSentToTheHostInUtf8) {
    EXPECT_EQ(Utf8Of(L""), "");
    EXPECT_EQ(Utf8Of(L"AB123C"), "AB123C");
    EXPECT_EQ(Utf8Of(L"\u4EAC"
                     L"A\u00E9"),
              "\xE4\xBA\xAC"
              "A\xC3\xA9");
    EXPECT_EQ(Utf8OfAnsi(""), "");
    EXPECT_EQ(Utf8OfAnsi("RUS"), "RUS");
}

// Confidence.

TEST_F(Results, ASixLetterPlateOf540IsKeptExactlyAt90) {
    RPLATE record = RecordWithText("AB123C");
    SetConfidenceSum(record, 540.0);
    const auto result = ResultOf(record);
    EXPECT_EQ(result->text, L"AB123C");
    EXPECT_EQ(result->text.size(), 6u);
    EXPECT_EQ(result->confidence, 90);
}

TEST_F(Results, ConfidenceIsTheMeanRoundedTowardZero) {
    EXPECT_EQ(ConfidenceOf("AB123C", 539.99), 89);
    EXPECT_EQ(ConfidenceOf("AB123C", -539.99), -89);
    EXPECT_EQ(ConfidenceOf("AB123C", 5.9), 0);
    EXPECT_EQ(ConfidenceOf("AB123C", -5.9), 0);
    EXPECT_EQ(ConfidenceOf("AB", 260.0), 130) << "clamped only in the event";
    EXPECT_EQ(ConfidenceOf("\xBE\xA9"
                           "A",
                           180.0),
              90)
        << "two characters in three bytes";
}

TEST_F(Results, ConfidenceOfAnEmptyTextIs0) {
    EXPECT_EQ(ConfidenceOf("", 540.0), 0);
    EXPECT_EQ(ConfidenceOf("", std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST_F(Results, ConfidenceThatIsNotANumberOrDoesNotFitIsTheSmallestNumber) {
    EXPECT_EQ(ConfidenceOf("A", std::numeric_limits<double>::quiet_NaN()), smallest);
    EXPECT_EQ(ConfidenceOf("A", std::numeric_limits<double>::infinity()), smallest);
    EXPECT_EQ(ConfidenceOf("A", -std::numeric_limits<double>::infinity()), smallest);
    EXPECT_EQ(ConfidenceOf("A", 1e300), smallest);
    EXPECT_EQ(ConfidenceOf("A", -1e300), smallest);
    EXPECT_EQ(ConfidenceOf("A", 2147483648.0), smallest);
    EXPECT_EQ(ConfidenceOf("A", 2147483647.9), 2147483647);
    EXPECT_EQ(ConfidenceOf("A", -2147483648.9), smallest);
    EXPECT_EQ(ConfidenceOf("A", -2147483649.0), smallest);
    EXPECT_EQ(ConfidenceOf("A", std::numeric_limits<double>::denorm_min()), 0);
}

TEST_F(Results, ConfidenceIsReadFromItsUnalignedOffset) {
    RPLATE record = {};
    std::memset(&record, 0xFF, sizeof record);
    std::memcpy(record.text, "AB\0", 3);
    const double sum = 150.0;
    std::memcpy(reinterpret_cast<char*>(&record) + 28, &sum, sizeof sum);
    EXPECT_EQ(ResultOf(record)->confidence, 75);
}

// Rectangle.

TEST_F(Results, TheLeftEdgeIsTheInnerOneAndTheOthersTheOuterOnes) {
    RPLATE record = RecordWithText("A");
    record.corner1 = {10, 20};
    record.corner2 = {12, 40};
    record.corner3 = {60, 18};
    record.corner4 = {62, 41};
    auto rect = ResultOf(record)->rect;
    EXPECT_EQ(rect.left, 12);
    EXPECT_EQ(rect.top, 18);
    EXPECT_EQ(rect.right, 62);
    EXPECT_EQ(rect.bottom, 41);
    record.corner1 = {-3, -20};
    record.corner2 = {-12, 45};
    record.corner3 = {-1, -18};
    record.corner4 = {-2, 41};
    rect = ResultOf(record)->rect;
    EXPECT_EQ(rect.left, -3);
    EXPECT_EQ(rect.top, -20);
    EXPECT_EQ(rect.right, -1);
    EXPECT_EQ(rect.bottom, 45);
}

TEST_F(Results, TheFirstStringIsTheCountry) {
    RPLATE record = RecordWithText("AB12CDE");
    EXPECT_EQ(ResultOf(record)->strings[0], "");
    SetCountryCode(record, "GBR");
    EXPECT_EQ(ResultOf(record)->strings[0], "GBR");
}

TEST_F(Results, OtherCornersDoNotAffectAnEdge) {
    RPLATE record = RecordWithText("A");
    record.corner1 = {1, 1000};
    record.corner2 = {2, -1000};
    record.corner3 = {3, 2000};
    record.corner4 = {4, -2000};
    const auto rect = ResultOf(record)->rect;
    EXPECT_EQ(rect.left, 2);
    EXPECT_EQ(rect.top, 1000) << "of corners 1 and 3";
    EXPECT_EQ(rect.right, 4);
    EXPECT_EQ(rect.bottom, -1000) << "of corners 2 and 4";
}

// Construction.

TEST_F(Results, ANewResultHasTheseValues) {
    Detector().nextPlateId = 0x500000007u;
    const BufferPointer buffer = Buffer(18446744073709551610u);
    const auto result = Detector().CreateResult(buffer, RecordOf({}));
    EXPECT_EQ(result->frame, buffer);
    EXPECT_EQ(result->id, 7u);
    EXPECT_THAT(result->strings, testing::Each(""));
    EXPECT_EQ(result->value, 0);
    EXPECT_FALSE(result->isFinished);
    EXPECT_FALSE(result->flag);
    EXPECT_THAT(result->values, ElementsAre(0, 0, 0));
    EXPECT_EQ(result->creationTime, 18446744073709551610u);
    EXPECT_EQ(result->lastTime, 18446744073709551610u);
    EXPECT_THAT(result->stateFlags, ElementsAre(false, false, false, false, false));
    EXPECT_THAT(result->stateValues, ElementsAre(0, 2));
    EXPECT_FALSE(result->lost);
    EXPECT_EQ(Detector().nextPlateId, 0x500000007u) << "creating a result uses no id";
    EXPECT_THAT(Detector().pendingResults, IsEmpty());
}

TEST_F(Results, AResultCopiesItsWholeDescription) {
    PlateDescription description;
    description.text = L"text";
    description.strings = {"a", "b", "c", "d", "e", "f"};
    description.confidence = -1;
    description.value = 2;
    description.isFinished = true;
    description.flag = true;
    description.rect = {3, 4, 5, 6};
    description.values = {7, 8, 9};
    const RecognitionResult result(Buffer(), description, 0xFFFFFFFFu, 33);
    EXPECT_EQ(result.id, 0xFFFFFFFFu);
    EXPECT_EQ(result.text, L"text");
    EXPECT_THAT(result.strings, ElementsAre("a", "b", "c", "d", "e", "f"));
    EXPECT_EQ(result.confidence, -1);
    EXPECT_EQ(result.value, 2);
    EXPECT_TRUE(result.isFinished);
    EXPECT_TRUE(result.flag);
    EXPECT_EQ(result.rect.left, 3);
    EXPECT_EQ(result.rect.top, 4);
    EXPECT_EQ(result.rect.right, 5);
    EXPECT_EQ(result.rect.bottom, 6);
    EXPECT_THAT(result.values, ElementsAre(7, 8, 9));
    EXPECT_EQ(result.creationTime, 33u);
    EXPECT_EQ(result.lastTime, 33u);
    EXPECT_FALSE(result.lost);
}

template <class Action>
std::string TextOfException(Action action) {
    try {
        action();
    } catch (const std::exception& exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

TEST_F(Results, AnEmptyFrameHandleIsRefusedByItsText) {
    const char* const text = "RecognitionResult constructor: Buffer is NULL";
    EXPECT_EQ(TextOfException([] { const RecognitionResult result({}, {}, 0, 0); }), text);
    EXPECT_EQ(TextOfException([&] { Detector().CreateResult({}, RecordOf({})); }), text);
    EXPECT_EQ(TextOfException([&] { Detector().CreateFakeResult({}); }), text);
}

TEST_F(Results, AResultKeepsItsFrameUntilItsEnd) {
    auto result = Detector().CreateResult(Buffer(), RecordOf({}));
    EXPECT_EQ(counts.released, 0);
    result.reset();
    EXPECT_EQ(counts.released, 1);
}

TEST_F(Results, AFrameOfASingleCallIsFinished) {
    Find(FoundPlate{});
    SingleFrame(1, {});
    Frame(2);
    ASSERT_EQ(Detector().pendingResults.size(), 2u);
    EXPECT_TRUE(Detector().pendingResults.at(0)->isFinished);
    EXPECT_FALSE(Detector().pendingResults.at(1)->isFinished);
}

TEST_F(Results, AFinishedResultIsTracedWith1) {
    diagnostics::SetDebugLevel(1);
    Detector();
    output.Clear();
    Find(FoundPlate{});
    SingleFrame(1, {});
    EXPECT_THAT(Trace(), testing::Contains(LineOf("CreateResult",
                                                  "Create result: Plate = AB123C Rect = {100, 100, 160, 120} "
                                                  "IsFinished = 1 Id = 0")));
}

TEST_F(Results, TheSampleResultIsAlwaysTheSame) {
    Detector().nextPlateId = 12;
    diagnostics::SetDebugLevel(1);
    output.Clear();
    const auto result = Detector().CreateFakeResult(Buffer(77));
    EXPECT_EQ(result->text, L"FAKE");
    EXPECT_THAT(result->strings, ElementsAre("Unknown", "", "", "", "", ""));
    EXPECT_EQ(result->confidence, 100);
    EXPECT_EQ(result->value, 0);
    EXPECT_FALSE(result->isFinished);
    EXPECT_FALSE(result->flag);
    EXPECT_EQ(result->rect.left, 294);
    EXPECT_EQ(result->rect.top, 511);
    EXPECT_EQ(result->rect.right, 481);
    EXPECT_EQ(result->rect.bottom, 548);
    EXPECT_EQ(result->id, 12u);
    EXPECT_EQ(result->creationTime, 77u);
    EXPECT_EQ(result->lastTime, 77u);
    EXPECT_FALSE(result->lost);
    EXPECT_THAT(Trace(), ElementsAre(LineOf("CreateFakeResult",
                                            "Create result: Plate = FAKE Rect = {294, 511, 481, 548} "
                                            "IsFinished = 0 ID = 12")));
    // The launcher's polls may write lines too, but only narrow ones.
    for (const auto& line : output.Lines()) {
        EXPECT_EQ(line.isWide, line.narrow.find("Create result: ") != std::string::npos) << line.narrow;
    }
    diagnostics::SetDebugLevel(0);
    output.Clear();
    Detector().CreateFakeResult(Buffer(77));
    EXPECT_THAT(Trace(), IsEmpty());
}

}  // namespace
