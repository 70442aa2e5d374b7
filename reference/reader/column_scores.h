/// What the reading network says of the columns of a strip, and how a text is read from it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace plate_reading {

/// The characters that are read; class 0 of the network is none, class i + 1 is alphabet[i].
inline constexpr std::string_view alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
inline constexpr std::size_t classes = alphabet.size() + 1;

/// For each column the probability of each class, summing to 1; columns * classes numbers.
class ColumnScores {
  public:
    ColumnScores() = default;
    /// From the network's answer: classes rows of `columns` numbers, turned into probabilities here.
    ColumnScores(const float* answer, std::size_t columns);

    std::size_t Columns() const { return probabilities_.size() / classes; }
    float At(std::size_t column, std::size_t which) const { return probabilities_[column * classes + which]; }

    /// The mean of this and another of as many columns.
    void Average(const ColumnScores& other);

  private:
    std::vector<float> probabilities_;
};

struct DecodedText {
    std::string text;
    double confidence = 0;  ///< 0 to 1
    float left = 0;         ///< where the characters begin, 0 to 1 of the strip
    float right = 0;        ///< where they end
};

/// The likeliest class of each column, where a character is likelier than none; repetitions are one character. The
/// confidence is the geometric mean of the characters' highest columns times that of all columns.
DecodedText Decode(const ColumnScores& scores);

/// A text's pattern: L a letter, D a digit.
using Template = std::string;

/// The likeliest text of a template's pattern, where it is not much less likely than `free`, the text without one;
/// else `free`. Look-alikes stand in for each other.
DecodedText DecodeByTemplates(const ColumnScores& scores, const std::vector<Template>& templates,
                              const DecodedText& free);

}  // namespace plate_reading
