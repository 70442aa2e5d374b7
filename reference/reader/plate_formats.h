/// The formats of plate numbers: which characters may be at which place in the numbers of a country.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "reference/reader/column_scores.h"

namespace plate_reading {

/// The lines of a table: country (ISO 3166-1 alpha-3), region, weight, pattern, kind and source, separated by tabs, and
/// the vehicles of the countries; the beginning of formats.tsv describes them. Constant after construction; any thread.
class PlateFormats {
  public:
    /// Reads the rows of these countries; of all if there are none. Throws std::runtime_error with the number of the
    /// line.
    explicit PlateFormats(std::string_view table, const std::vector<std::string>& countries = {});

    /// The countries of the table, in order.
    const std::vector<std::string>& Countries() const { return countries_; }

    /// Replaces characters so that the text has a format, where the scores allow it: the text with the highest product
    /// of the characters' probabilities and the prior probability of the text, which depends on the formats' weights
    /// (Bayes' rule). Leaves out the first character if it is more likely the strip at the left of a plate. A text that
    /// contradicts clear scores is not considered. Sets `hasFormat`, and `country` if only that country's formats
    /// explain the text.
    void Fit(DecodedText& decoded) const;

    /// The countries that have a format for the text, in order.
    std::vector<std::string> CountriesOf(std::string_view text) const;

  private:
    using Symbols = std::uint64_t;  // bit i: alphabet[i]

    // A place of one character, or a choice of words of one length.
    struct Element {
        Symbols symbols = 0;
        std::vector<std::string> words;  // empty: one of the symbols
        std::size_t length = 1;
        bool operator==(const Element&) const = default;
    };

    struct Format {
        std::size_t country = 0;
        double logPrior = 0;                // of each text of this format
        std::vector<std::size_t> elements;  // into elements_
    };

    // The likeliest text of an element or of a format.
    struct Choice {
        std::string text;
        double logLikelihood = 0;
    };

    class Choices;

    double FitWhole(DecodedText& decoded) const;
    static std::vector<std::vector<Element>> ReadPattern(std::string_view pattern);
    static Choice BestOf(const Element& element, const DecodedText& decoded, std::size_t place);
    std::size_t IndexOf(const Element& element);

    std::vector<std::string> countries_;
    std::vector<Element> elements_;             // all different
    std::vector<std::vector<Format>> formats_;  // by the length of the text
};

}  // namespace plate_reading
