#include "reference/reader/column_scores.h"

#include <cmath>
#include <random>

#include <gtest/gtest.h>

namespace plate_reading {
namespace {

/// The network's output, as logits. Initially no column shows a character.
class Logits {
  public:
    explicit Logits(std::size_t columns) : columns_(columns), logits_(classes * columns, 0.f) {
        for (std::size_t column = 0; column < columns; ++column) {
            logits_[column] = 12;
        }
    }

    float& At(std::size_t column, char character) {
        return logits_[(alphabet.find(character) + 1) * columns_ + column];
    }
    float& None(std::size_t column) { return logits_[column]; }

    /// Makes `count` columns from `first` on show this character with certainty.
    void Show(std::size_t first, std::size_t count, char character) {
        for (std::size_t column = first; column < first + count; ++column) {
            None(column) = 0;
            At(column, character) = 12;
        }
    }

    ColumnScores Scores() const { return {logits_.data(), columns_}; }

  private:
    std::size_t columns_;
    std::vector<float> logits_;
};

Logits LogitsOf(const std::string& text) {
    Logits logits(4 * text.size() + 4);
    for (std::size_t i = 0; i < text.size(); ++i) {
        logits.Show(2 + 4 * i, 3, text[i]);
    }
    return logits;
}

TEST(ColumnScores, AreTheSoftmaxOfTheLogits) {
    std::mt19937 random(1);
    std::vector<float> logits(classes * 3);
    for (float& value : logits) {
        value = std::uniform_real_distribution(-30.f, 30.f)(random);
    }
    const ColumnScores scores(logits.data(), 3);
    ASSERT_EQ(scores.Columns(), 3u);
    for (std::size_t column = 0; column < 3; ++column) {
        double whole = 0;
        for (std::size_t which = 0; which < classes; ++which) {
            whole += std::exp(static_cast<double>(logits[which * 3 + column]));
        }
        for (std::size_t which = 0; which < classes; ++which) {
            EXPECT_NEAR(static_cast<double>(scores.At(column, which)),
                        std::exp(static_cast<double>(logits[which * 3 + column])) / whole, 1e-6);
        }
    }
}

TEST(ColumnScores, AverageIsTheMean) {
    Logits other(2);
    other.Show(0, 1, 'B');
    ColumnScores scores = Logits(2).Scores();
    scores.Average(other.Scores());
    EXPECT_NEAR(static_cast<double>(scores.At(0, alphabet.find('B') + 1)), 0.5, 1e-3);
    EXPECT_NEAR(static_cast<double>(scores.At(0, 0)), 0.5, 1e-3);
    EXPECT_NEAR(static_cast<double>(scores.At(1, 0)), 1, 1e-3);
}

TEST(Decode, ReadsEveryText) {
    std::mt19937 random(2);
    for (int round = 0; round < 300; ++round) {
        std::string text(std::uniform_int_distribution<std::size_t>(1, 9)(random), 'A');
        for (char& character : text) {
            character = alphabet[std::uniform_int_distribution<std::size_t>(0, alphabet.size() - 1)(random)];
        }
        const DecodedText decoded = Decode(LogitsOf(text).Scores());
        EXPECT_EQ(decoded.text, text);
        EXPECT_GT(decoded.confidence, 0.99);
        const auto columns = static_cast<float>(4 * text.size() + 4);
        EXPECT_FLOAT_EQ(decoded.left, 2 / columns);
        EXPECT_FLOAT_EQ(decoded.right, (columns - 3) / columns);
    }
}

TEST(Decode, MergesAdjacentColumnsOfOneCharacter) {
    Logits logits(12);
    logits.Show(2, 3, 'A');
    logits.Show(5, 3, 'B');
    logits.Show(9, 2, 'B');
    EXPECT_EQ(Decode(logits.Scores()).text, "ABB");
}

TEST(Decode, ReadsNothingInEmptyColumns) {
    const DecodedText decoded = Decode(Logits(40).Scores());
    EXPECT_EQ(decoded.text, "");
    EXPECT_EQ(decoded.confidence, 0);
    EXPECT_EQ(Decode(ColumnScores()).text, "");
}

TEST(Decode, CharactersTogetherCanOutweighTheEmptyClass) {
    Logits logits(3);
    // None 0.44, A 0.32, B 0.24.
    logits.None(1) = std::log(0.44f) + 20;
    logits.At(1, 'A') = std::log(0.32f) + 20;
    logits.At(1, 'B') = std::log(0.24f) + 20;
    const DecodedText decoded = Decode(logits.Scores());
    EXPECT_EQ(decoded.text, "A");
    // The character's probability in its column, times the mean probability of each column's chosen class.
    EXPECT_NEAR(decoded.confidence, 0.32 * std::cbrt(0.56), 0.01);
}

TEST(Decode, TheWeakestCharacterLowersTheConfidence) {
    Logits logits = LogitsOf("ABCD");
    for (std::size_t column = 6; column < 9; ++column) {
        logits.At(column, '8') = 12;
    }
    const DecodedText decoded = Decode(logits.Scores());
    EXPECT_NEAR(decoded.confidence, std::pow(0.5, 0.25), 0.01);
}

TEST(Templates, ResolveEveryLookAlike) {
    struct Pair {
        char letter;
        char digit;
    };
    for (const Pair pair : {Pair{'O', '0'}, Pair{'Q', '0'}, Pair{'D', '0'}, Pair{'I', '1'}, Pair{'T', '1'},
                            Pair{'B', '8'}, Pair{'S', '5'}, Pair{'Z', '2'}, Pair{'G', '6'}}) {
        const std::string shown = {'A', pair.letter, pair.letter, '7'};
        const ColumnScores scores = LogitsOf(shown).Scores();
        const DecodedText free = Decode(scores);
        ASSERT_EQ(free.text, shown);
        EXPECT_EQ(DecodeByTemplates(scores, {"LLDD"}, free).text, (std::string{'A', pair.letter, pair.digit, '7'}));
        EXPECT_EQ(DecodeByTemplates(scores, {"LDDD"}, free).text, (std::string{'A', pair.digit, pair.digit, '7'}));
        EXPECT_EQ(DecodeByTemplates(scores, {"LLLD"}, free).text, shown);
    }
}

TEST(Templates, TheLikeliestTemplateIsUsed) {
    const ColumnScores scores = LogitsOf("AB0O7").Scores();
    const DecodedText free = Decode(scores);
    EXPECT_EQ(DecodeByTemplates(scores, {"DDLLD", "LLDLD", "LLLDD"}, free).text, "AB0O7");
    EXPECT_EQ(DecodeByTemplates(scores, {"DDLLD", "LLDDD"}, free).text, "AB007");
}

TEST(Templates, ATextThatFitsNoTemplateIsUnchanged) {
    const ColumnScores scores = LogitsOf("XKWM").Scores();
    const DecodedText free = Decode(scores);
    for (const std::vector<Template>& templates :
         {std::vector<Template>{"DDDD"}, std::vector<Template>{}, std::vector<Template>{"LLLLLL", "LL", ""}}) {
        const DecodedText decoded = DecodeByTemplates(scores, templates, free);
        EXPECT_EQ(decoded.text, "XKWM");
        EXPECT_EQ(decoded.confidence, free.confidence);
    }
    EXPECT_EQ(DecodeByTemplates(ColumnScores(), {"LL"}, DecodedText{}).text, "");
}

/// Returns the probability of the likeliest path through the columns, by trying all paths. Each column is assigned a
/// place in the pattern (even places are gaps).
double LikeliestByBruteForce(const ColumnScores& scores, const std::vector<std::vector<double>>& places) {
    const std::size_t columns = scores.Columns();
    const std::size_t states = places.size();
    double best = 0;
    std::vector<std::size_t> way(columns, 0);
    for (;;) {
        bool valid = way[0] <= 1 && way[columns - 1] + 2 >= states;
        double probability = 1;
        for (std::size_t column = 0; column < columns && valid; ++column) {
            if (column > 0) {
                const std::size_t step = way[column] - way[column - 1];
                valid = way[column] >= way[column - 1] && (step <= 1 || (step == 2 && way[column] % 2 == 1));
            }
            probability *= places[way[column]][column];
        }
        best = valid ? std::max(best, probability) : best;
        std::size_t column = 0;
        while (column < columns && ++way[column] == states) {
            way[column++] = 0;
        }
        if (column == columns) {
            return best;
        }
    }
}

TEST(Templates, ThePathThroughTheColumnsIsTheLikeliest) {
    std::mt19937 random(9);
    for (int round = 0; round < 40; ++round) {
        // X and 4 have no look-alikes, so that each place has only one candidate.
        constexpr std::size_t columns = 6;
        Logits logits(columns);
        std::uniform_real_distribution<float> any(0, 4);
        for (std::size_t column = 0; column < columns; ++column) {
            logits.None(column) = 6 + any(random);
            logits.At(column, 'X') = 6 + any(random);
            logits.At(column, '4') = 6 + any(random);
        }
        const ColumnScores scores = logits.Scores();
        std::vector<double> none;
        std::vector<double> letter;
        std::vector<double> digit;
        for (std::size_t column = 0; column < columns; ++column) {
            none.push_back(static_cast<double>(scores.At(column, 0)));
            letter.push_back(static_cast<double>(scores.At(column, alphabet.find('X') + 1)));
            digit.push_back(static_cast<double>(scores.At(column, alphabet.find('4') + 1)));
        }
        const double wanted = LikeliestByBruteForce(scores, {none, letter, none, digit, none});
        DecodedText free;
        free.text = "X4";
        const DecodedText decoded = DecodeByTemplates(scores, {"LD"}, free);
        ASSERT_EQ(decoded.text, "X4");
        // The confidence combines the path's probability with the highest probability of each character on the path.
        double letterPeak = 0;
        double digitPeak = 0;
        for (std::size_t column = 0; column < columns; ++column) {
            letterPeak = std::max(letterPeak, letter[column]);
            digitPeak = std::max(digitPeak, digit[column]);
        }
        EXPECT_LE(decoded.confidence, std::sqrt(letterPeak * digitPeak) * std::pow(wanted, 1.0 / columns) * 1.0001);
        EXPECT_GE(decoded.confidence, std::pow(wanted, 1.0 / columns) * 0.3 * std::min(letterPeak, digitPeak));
    }
}

}  // namespace
}  // namespace plate_reading
