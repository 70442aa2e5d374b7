#include "reference/reader/reading_configuration.h"

#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace plate_reading {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<Template> TemplatesOf(const std::string& text) {
    std::istringstream file(text);
    return ReadConfiguration(file).templates;
}

std::string ErrorOf(const std::string& text) {
    std::istringstream file(text);
    try {
        ReadConfiguration(file);
    } catch (const ConfigurationError& error) {
        return error.what();
    }
    return "";
}

TEST(Configuration, HasNoTemplatesByDefault) {
    EXPECT_THAT(TemplatesOf(""), IsEmpty());
    EXPECT_THAT(TemplatesOf("# templates = br\n\n   \n"), IsEmpty());
    EXPECT_THAT(TemplatesOf("templates = none"), IsEmpty());
    EXPECT_THAT(TemplatesOf("templates ="), IsEmpty());
}

TEST(Configuration, AcceptsRegionsAndPatternsTogether) {
    EXPECT_THAT(TemplatesOf("templates = br"), ElementsAre("LLLDDDD", "LLLDLDD"));
    EXPECT_THAT(TemplatesOf("  templates=LLDDDLL \tbr # a comment\r\n"), ElementsAre("LLDDDLL", "LLLDDDD", "LLLDLDD"));
    EXPECT_THAT(TemplatesOf("templates = eu"), testing::Contains("LLDDDLL"));
    EXPECT_THAT(TemplatesOf("templates = us"), testing::Contains("DLLLDDD"));
}

TEST(Configuration, PatternsHaveFourToTwelveCharacters) {
    EXPECT_THAT(TemplatesOf("templates = LDDD LLDDLLDDDD LLLLLLDDDDDD"),
                ElementsAre("LDDD", "LLDDLLDDDD", "LLLLLLDDDDDD"));
}

TEST(Configuration, AcceptsCountriesWithKnownFormats) {
    const auto countries = [](const std::string& text) {
        std::istringstream file(text);
        return ReadConfiguration(file).countries;
    };
    EXPECT_THAT(countries(""), IsEmpty());
    EXPECT_THAT(countries("countries ="), IsEmpty());
    EXPECT_THAT(countries("countries = GBR, IRL"), ElementsAre("GBR", "IRL"));
    EXPECT_THAT(countries("countries = DEU AUT,CHE"), ElementsAre("DEU", "AUT", "CHE"));
    for (const std::string word : {"gbr", "GB", "XXX", "GBR;IRL"}) {
        EXPECT_THAT(ErrorOf("countries = " + word), testing::AllOf(HasSubstr("line 1"), HasSubstr("\"" + word + "\"")));
    }
}

TEST(Configuration, ReadsTheNumberOfConfirmations) {
    const auto confirmations = [](const std::string& text) {
        std::istringstream file(text);
        return ReadConfiguration(file).confirmations;
    };
    EXPECT_EQ(confirmations(""), ReadingOptions().confirmations);
    EXPECT_EQ(confirmations("templates = br\nconfirmations = 1"), 1);
    EXPECT_EQ(confirmations("confirmations=9"), 9);
    for (const std::string value : {"", "0", "10", "-1", "x", "1.5"}) {
        EXPECT_THAT(ErrorOf("confirmations = " + value), HasSubstr("line 1: \"" + value + "\""));
    }
}

TEST(Configuration, ReportsErrorsWithTheirLineNumbers) {
    EXPECT_THAT(ErrorOf("\ntemplate = br\n"), testing::AllOf(HasSubstr("line 2"), HasSubstr("\"template\"")));
    EXPECT_THAT(ErrorOf("templates br"), testing::AllOf(HasSubstr("line 1"), HasSubstr("key = value")));
    EXPECT_THAT(ErrorOf("= br"), HasSubstr("key = value"));
    EXPECT_THAT(ErrorOf("templates = br\ntemplates = eu"),
                testing::AllOf(HasSubstr("line 2"), HasSubstr("second time")));
    for (const std::string word : {"LLD", "LLLLLLDDDDDDD", "LLXDD", "BR", "lldddll"}) {
        const std::string error = ErrorOf("templates = LLDDDLL " + word);
        EXPECT_THAT(error, testing::AllOf(HasSubstr("line 1"), HasSubstr("\"" + word + "\"")));
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

}  // namespace
}  // namespace plate_reading
