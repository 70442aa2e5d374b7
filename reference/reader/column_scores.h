/// The reading network's scores for the columns of a strip, and the decoding of a text from them.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace plate_reading {

/// The characters that are read; class 0 of the network means no character, class i + 1 is alphabet[i].
inline constexpr std::string_view alphabet = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
inline constexpr std::size_t classes = alphabet.size() + 1;

/// The probability of each class for each column; those of a column add up to 1.
class ColumnScores {
  public:
    ColumnScores() = default;
    /// Converts the network's output, `classes` rows of `columns` numbers, into probabilities.
    ColumnScores(const float* output, std::size_t columns);

    std::size_t Columns() const { return probabilities_.size() / classes; }
    float At(std::size_t column, std::size_t which) const { return probabilities_[column * classes + which]; }

    /// Replaces the probabilities by the mean of these and those of another strip with as many columns.
    void Average(const ColumnScores& other);

  private:
    std::vector<float> probabilities_;
};

struct DecodedText {
    std::string text;
    /// For each character of the text the highest probability of each symbol of the alphabet in its columns.
    std::vector<std::array<float, alphabet.size()>> characters;
    std::string country;     ///< ISO 3166-1 alpha-3; empty if unknown
    bool hasFormat = false;  ///< whether the text has the format of a country
    double confidence = 0;   ///< 0 to 1
    float left = 0;          ///< where the characters begin, 0 to 1 of the strip
    float right = 0;         ///< where they end
};

/// Decodes the likeliest class of each column in which a character is likelier than none; repetitions are one
/// character. The confidence is the geometric mean of the characters' highest probabilities times that of all columns.
DecodedText Decode(const ColumnScores& scores);

/// The pattern of a text: L for a letter, D for a digit.
using Template = std::string;

/// Returns the likeliest text that matches a template, unless it is much less likely than `free`, the text decoded
/// without templates; then returns `free`. Look-alike characters may replace each other.
DecodedText DecodeByTemplates(const ColumnScores& scores, const std::vector<Template>& templates,
                              const DecodedText& free);

}  // namespace plate_reading
