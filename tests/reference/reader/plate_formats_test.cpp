#include "reference/reader/plate_formats.h"

#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "reference/reader/networks.h"

namespace plate_reading {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// As decoded from scores that show each character with this probability, and nothing else.
DecodedText Shown(const std::string& text, float probability = 0.99f) {
    DecodedText decoded;
    decoded.text = text;
    decoded.confidence = static_cast<double>(probability);
    for (const char character : text) {
        decoded.characters.emplace_back().fill(0);
        decoded.characters.back()[alphabet.find(character)] = probability;
    }
    return decoded;
}

/// The character at a place may also be another one.
DecodedText WithOther(DecodedText decoded, std::size_t place, char other, float probability) {
    decoded.characters[place][alphabet.find(decoded.text[place])] = 1 - probability;
    decoded.characters[place][alphabet.find(other)] = probability;
    return decoded;
}

DecodedText Fitted(const PlateFormats& formats, DecodedText decoded) {
    formats.Fit(decoded);
    return decoded;
}

std::string ErrorOf(const std::string& table) {
    try {
        const PlateFormats formats(table);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

/// The rows of the engine's table as regular expressions.
class FormatsTableTest : public testing::Test {
  protected:
    struct Row {
        std::string country;
        std::string expression;
    };

    FormatsTableTest() : all(FormatsTable()) {
        std::istringstream lines{std::string(FormatsTable())};
        std::map<std::string, std::string> names;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream text(line);
            std::vector<std::string> fields;
            for (std::string field; std::getline(text, field, '\t');) {
                fields.push_back(field);
            }
            if (line.empty() || line[0] == '#') {
                continue;
            }
            if (line[0] == '=') {
                continue;
            }
            if (line[0] == '@') {
                names[fields[0].substr(1)] = fields[1];
                continue;
            }
            std::string pattern = fields[3];
            for (std::size_t open = 0; (open = pattern.find('{')) != std::string::npos;) {
                const std::size_t close = pattern.find('}');
                pattern.replace(open, close + 1 - open, names.at(pattern.substr(open + 1, close - open - 1)));
            }
            std::string expression;
            bool inside = false;  // a choice, in which L and D are themselves
            for (const char character : pattern) {
                inside = character == '[' || character == '(' || (inside && character != ']' && character != ')');
                expression += inside || (character != 'L' && character != 'D') ? std::string(1, character)
                              : character == 'L'                               ? "[A-Z]"
                                                                               : "[0-9]";
            }
            rows.push_back({fields[0], expression});
        }
    }

    /// A text that the row describes.
    std::string TextOf(const Row& row) {
        std::string text;
        std::string_view rest = row.expression;
        while (!rest.empty()) {
            std::vector<std::string> choices;
            std::size_t size = 1;
            if (rest.starts_with("[A-Z]") || rest.starts_with("[0-9]")) {
                const std::size_t first = rest[1] == 'A' ? 10 : 0;
                for (std::size_t i = first; i < (first == 0 ? 10 : alphabet.size()); ++i) {
                    choices.emplace_back(1, alphabet[i]);
                }
                size = 5;
            } else if (rest[0] == '[') {
                size = rest.find(']') + 1;
                for (const char character : rest.substr(1, size - 2)) {
                    choices.emplace_back(1, character);
                }
            } else if (rest[0] == '(') {
                size = rest.find(')') + 1;
                std::istringstream words{std::string(rest.substr(1, size - 2))};
                for (std::string word; std::getline(words, word, '|');) {
                    choices.push_back(word);
                }
            } else {
                choices.emplace_back(1, rest[0]);
            }
            rest.remove_prefix(size);
            const bool isOptional = rest.starts_with('?');
            rest.remove_prefix(isOptional ? 1 : 0);
            if (!isOptional || random() % 2 == 0) {
                text += choices[random() % choices.size()];
            }
        }
        return text;
    }

    PlateFormats all;
    std::vector<Row> rows;
    std::mt19937 random{7};
};

TEST_F(FormatsTableTest, CoversFortyCountriesAndTheStatesOfFour) {
    EXPECT_GE(all.Countries().size(), 40u);
    std::map<std::string, std::set<std::string>> regions;
    std::istringstream lines{std::string(FormatsTable())};
    for (std::string line; std::getline(lines, line);) {
        const std::size_t tab = line.find('\t');
        if (tab == 3 && line[0] != '#' && line[4] != '-') {
            regions[line.substr(0, 3)].insert(line.substr(4, line.find('\t', 4) - 4));
        }
    }
    EXPECT_EQ(regions["USA"].size(), 51u) << "the states and the federal district";
    EXPECT_EQ(regions["CAN"].size(), 13u);
    EXPECT_EQ(regions["AUS"].size(), 8u);
    EXPECT_EQ(regions["BRA"].size(), 27u);
}

TEST_F(FormatsTableTest, TextsAreOfTheCountriesWhoseRegularExpressionsMatch) {
    ASSERT_GT(rows.size(), 100u);
    std::vector<std::regex> expressions;
    for (const Row& row : rows) {
        expressions.emplace_back(row.expression, std::regex::optimize);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        std::string text = TextOf(rows[i]);
        ASSERT_GE(text.size(), 4u) << rows[i].expression;
        ASSERT_LE(text.size(), 12u) << rows[i].expression;
        if (i % 20 != 0) {  // each takes a comparison with all rows
            EXPECT_THAT(all.CountriesOf(text), testing::Contains(rows[i].country)) << text;
            continue;
        }
        for (int change = 0; change < 2; ++change) {
            std::set<std::string> countries;
            for (std::size_t other = 0; other < rows.size(); ++other) {
                if (std::regex_match(text, expressions[other])) {
                    countries.insert(rows[other].country);
                }
            }
            EXPECT_THAT(all.CountriesOf(text), testing::ElementsAreArray(countries)) << text;
            text[random() % text.size()] = alphabet[random() % alphabet.size()];
        }
    }
}

TEST_F(FormatsTableTest, PlatesAreOfTheirCountries) {
    EXPECT_THAT(all.CountriesOf("LS15EBC"), testing::Contains("GBR"));
    EXPECT_THAT(all.CountriesOf("1234BCD"), testing::Contains("ESP"));
    EXPECT_THAT(all.CountriesOf("12D12345"), testing::Contains("IRL"));
    EXPECT_THAT(all.CountriesOf("ABC1D23"), testing::Contains("BRA"));
    EXPECT_THAT(all.CountriesOf("A123BC77"), testing::Contains("RUS"));
    EXPECT_THAT(all.CountriesOf("MH12AB1234"), ElementsAre("IND"));
    EXPECT_THAT(all.CountriesOf("MW12AB1234"), IsEmpty()) << "no state of India";
    EXPECT_THAT(all.CountriesOf(""), IsEmpty());
    EXPECT_THAT(all.CountriesOf("ABCDEFGHIJKLMNOPQRS"), IsEmpty());
}

TEST_F(FormatsTableTest, LookAlikesAreReadAsTheFormatHasThem) {
    EXPECT_EQ(Fitted(all, WithOther(Shown("LSI5EBC"), 2, '1', 0.4f)).text, "LS15EBC");
    EXPECT_EQ(Fitted(all, WithOther(Shown("MH12AB12O4"), 8, '0', 0.3f)).text, "MH12AB1204");
    EXPECT_EQ(Fitted(all, WithOther(Shown("MH128B1234"), 4, 'B', 0.4f)).text, "MH12BB1234");
}

TEST_F(FormatsTableTest, ClearScoresAreNotContradicted) {
    for (const std::string text : {"ILOVECATS", "8ZQ1", "QQ00QQ00QQ", "XZXZXZX"}) {
        EXPECT_EQ(Fitted(all, Shown(text, 0.999f)).text, text);
    }
    for (const std::string text : {"12348CD", "AB1ZCDE", "ABC12S4"}) {
        const std::string fitted = Fitted(all, Shown(text, 0.999f)).text;
        EXPECT_EQ(fitted, text);
    }
}

TEST_F(FormatsTableTest, TheStripAtTheLeftIsNoCharacter) {
    const PlateFormats some(FormatsTable(), {"ESP", "FRA"});
    const DecodedText fitted = Fitted(some, Shown("86380CCS"));
    EXPECT_EQ(fitted.text, "6380CCS");
    EXPECT_EQ(fitted.characters.size(), 7u);
    EXPECT_EQ(fitted.country, "");
    for (const std::string text : {"MH12AB1234", "BAB1234", "B1234ABC", "34ABC123", "ABC1234"}) {
        EXPECT_EQ(Fitted(all, Shown(text)).text, text);
    }
    for (const std::string text : {"1234BCD", "AB123CD"}) {
        EXPECT_EQ(Fitted(some, Shown(text)).text, text);
    }
}

TEST_F(FormatsTableTest, ACountryIsGivenOnlyIfItIsTheOnlyOne) {
    EXPECT_EQ(Fitted(all, Shown("MH12AB1234")).country, "IND");
    EXPECT_EQ(Fitted(all, Shown("MH12AB1234", 0.7f)).country, "") << "unsure";
    EXPECT_EQ(Fitted(all, Shown("ABC1234")).country, "") << "of many countries";
    EXPECT_EQ(Fitted(all, Shown("ILOVECATS")).country, "");
    EXPECT_EQ(Fitted(all, Shown("DL3C2")).country, "") << "of a rare format, or a part of a longer text";
    const PlateFormats two(FormatsTable(), {"GBR", "ESP"});
    EXPECT_THAT(two.Countries(), ElementsAre("ESP", "GBR"));
    EXPECT_EQ(Fitted(two, Shown("LS15EBC")).country, "GBR");
    EXPECT_EQ(Fitted(two, Shown("1234BCD")).country, "ESP");
}

TEST(PlateFormats, ACountryThatALookAlikeWouldHaveIsNotExcluded) {
    const PlateFormats formats("AAA\t-\t1\tLDD[O]\t-\t-\nBBB\t-\t1\tLDD[0]\t-\t-\n");
    const DecodedText unclear = Fitted(formats, WithOther(Shown("A120"), 3, 'O', 0.45f));
    EXPECT_EQ(unclear.text, "A120");
    EXPECT_EQ(unclear.country, "");
}

TEST(PlateFormats, HeavierFormatsDecide) {
    const std::string row = "\t-\t-\n";
    const DecodedText unclear = WithOther(Shown("1234"), 0, 'I', 0.5f);
    EXPECT_EQ(Fitted(PlateFormats("AAA\t-\t1\tLDDD" + row + "AAA\t-\t30\tDDDD" + row), unclear).text, "1234");
    EXPECT_EQ(Fitted(PlateFormats("AAA\t-\t300\tLDDD" + row + "AAA\t-\t1\tDDDD" + row), unclear).text, "I234");
}

TEST(PlateFormats, CountriesWithMoreVehiclesDecide) {
    const std::string rows = "AAA\t-\t1\tLDDD\t-\t-\nBBB\t-\t1\tDDDD\t-\t-\n";
    const DecodedText unclear = WithOther(Shown("1234"), 0, 'I', 0.5f);
    EXPECT_EQ(Fitted(PlateFormats("=AAA\t300\n" + rows), unclear).text, "I234");
    EXPECT_EQ(Fitted(PlateFormats("=BBB\t300\n" + rows), unclear).text, "1234");
}

TEST(PlateFormats, ReportsErrorsWithTheirLineNumbers) {
    EXPECT_EQ(ErrorOf("# nothing\n\n@A\t[AB]\nAAA\t-\t1\t{A}D?DD\tcars\tlaw\n"), "");
    EXPECT_THAT(ErrorOf("#\nAAA\t-\t1\tLDDD\tcars\n"), testing::AllOf(HasSubstr("line 2"), HasSubstr("six fields")));
    EXPECT_THAT(ErrorOf("AAA\t-\t1\t{A}DDD\tcars\tlaw\n"), HasSubstr("unknown name"));
    EXPECT_THAT(ErrorOf("AAA\t-\t1\t{ADDD\tcars\tlaw\n"), HasSubstr("unknown name"));
    EXPECT_THAT(ErrorOf("AAA\t-\t1\t[ADDD\tcars\tlaw\n"), HasSubstr("lacks"));
    EXPECT_THAT(ErrorOf("AAA\t-\t1\tA-DD\tcars\tlaw\n"), HasSubstr("\"-\""));
    EXPECT_THAT(ErrorOf("AAA\t-\tx\tADDD\tcars\tlaw\n"), HasSubstr("line 1"));
}

}  // namespace
}  // namespace plate_reading
