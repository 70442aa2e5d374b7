#include "reference/reader/plate_formats.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>

namespace plate_reading {
namespace {

constexpr double epsilon = 1e-4;

// The share of the probability of a look-alike that the format excludes.
constexpr double lookAlikeShare = 0.5;
constexpr std::array<std::string_view, 2> lookAlikes = {"0O", "1I"};

// The prior probability that a plate has none of the formats: personal plates, unknown series.
constexpr double noFormat = 0.005;

// The probability that the first character is really the strip at the left of a plate, or an emblem there.
constexpr double stripAsCharacter = 0.05;
constexpr std::size_t minLengthBesideStrip = 6;

// Texts that are less likely than the one without a format by more than this (natural logarithm) are not considered.
constexpr double clearScores = 5;

constexpr double minCountryConfidence = 0.85;
constexpr double minFormatLead = 6;  // of the text with a format over the one without; natural logarithm

constexpr std::uint64_t digits = (1ULL << 10) - 1;
constexpr std::uint64_t letters = ((1ULL << alphabet.size()) - 1) & ~digits;

std::size_t SymbolOf(char character) {
    const std::size_t symbol = alphabet.find(character);
    if (symbol == std::string_view::npos) {
        throw std::runtime_error("\"" + std::string(1, character) + "\" is not a character of a plate");
    }
    return symbol;
}

std::vector<std::string_view> Split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

double Log(double probability) {
    return std::log(probability + epsilon);
}

/// The probability that a character is `symbol`, if its place allows only `allowed`.
double ProbabilityOf(const std::array<float, alphabet.size()>& scores, std::size_t symbol, std::uint64_t allowed) {
    double probability = static_cast<double>(scores[symbol]);
    for (const std::string_view pair : lookAlikes) {
        const std::size_t place = pair.find(alphabet[symbol]);
        if (place != std::string_view::npos) {
            const std::size_t other = alphabet.find(pair[1 - place]);
            if ((allowed >> other & 1) == 0) {
                probability += lookAlikeShare * static_cast<double>(scores[other]);
            }
        }
    }
    return std::min(probability, 1.0);
}

}  // namespace

// The likeliest texts of the elements at each place, each computed once.
class PlateFormats::Choices {
  public:
    Choices(const std::vector<Element>& elements, const DecodedText& decoded)
        : elements_(elements), decoded_(decoded), known_(elements.size() * decoded.text.size()) {}

    const Choice& At(std::size_t element, std::size_t place) {
        std::optional<Choice>& choice = known_[place * elements_.size() + element];
        if (!choice) {
            choice = BestOf(elements_[element], decoded_, place);
        }
        return *choice;
    }

    Choice Of(const Format& format) {
        Choice whole;
        for (const std::size_t element : format.elements) {
            const Choice& choice = At(element, whole.text.size());
            whole.text += choice.text;
            whole.logLikelihood += choice.logLikelihood;
        }
        return whole;
    }

  private:
    const std::vector<Element>& elements_;
    const DecodedText& decoded_;
    std::vector<std::optional<Choice>> known_;
};

// A pattern with optional parts, or with words of several lengths, becomes several formats.
std::vector<std::vector<PlateFormats::Element>> PlateFormats::ReadPattern(std::string_view pattern) {
    std::vector<std::vector<Element>> formats(1);
    const auto endOf = [&](char end) {
        const std::size_t place = pattern.find(end);
        if (place == std::string_view::npos) {
            throw std::runtime_error(std::string("a pattern lacks \"") + end + "\"");
        }
        return place;
    };
    while (!pattern.empty()) {
        std::vector<Element> choices;
        std::size_t size = 1;
        if (pattern[0] == 'L' || pattern[0] == 'D') {
            choices.push_back({pattern[0] == 'L' ? letters : digits, {}, 1});
        } else if (pattern[0] == '[') {
            size = endOf(']') + 1;
            Element element;
            for (const char character : pattern.substr(1, size - 2)) {
                element.symbols |= 1ULL << SymbolOf(character);
            }
            choices.push_back(element);
        } else if (pattern[0] == '(') {
            size = endOf(')') + 1;
            std::map<std::size_t, Element> byLength;
            for (const std::string_view word : Split(pattern.substr(1, size - 2), '|')) {
                std::for_each(word.begin(), word.end(), SymbolOf);
                Element& element = byLength[word.size()];
                element.length = word.size();
                element.words.emplace_back(word);
            }
            for (const auto& [length, element] : byLength) {
                choices.push_back(element);
            }
        } else {
            choices.push_back({1ULL << SymbolOf(pattern[0]), {}, 1});
        }
        pattern.remove_prefix(size);
        const bool isOptional = !pattern.empty() && pattern[0] == '?';
        std::vector<std::vector<Element>> longer;
        for (const std::vector<Element>& format : formats) {
            if (isOptional) {
                longer.push_back(format);
            }
            for (const Element& choice : choices) {
                longer.push_back(format);
                longer.back().push_back(choice);
            }
        }
        formats = std::move(longer);
        pattern.remove_prefix(isOptional ? 1 : 0);
    }
    return formats;
}

PlateFormats::PlateFormats(std::string_view table, const std::vector<std::string>& only) {
    std::map<std::string, std::string, std::less<>> names;
    std::set<std::string> countries;
    std::map<std::string, double> vehicles;  // millions
    struct Row {
        std::string country;
        double weight = 0;
        std::vector<std::vector<Element>> formats;
    };
    std::vector<Row> rows;
    int number = 0;
    for (const std::string_view line : Split(table, '\n')) {
        ++number;
        if (line.empty() || line[0] == '#') {
            continue;
        }
        try {
            const std::vector<std::string_view> fields = Split(line, '\t');
            if (fields.size() == 2 && fields[0].starts_with('=')) {
                vehicles[std::string(fields[0].substr(1))] = std::stod(std::string(fields[1]));
                continue;
            }
            if (fields.size() == 2 && fields[0].starts_with('@')) {
                names[std::string(fields[0].substr(1))] = fields[1];
                continue;
            }
            if (fields.size() != 6 || fields[0].size() != 3) {
                throw std::runtime_error("there are not six fields");
            }
            std::string pattern(fields[3]);
            for (std::size_t open = pattern.find('{'); open != std::string::npos; open = pattern.find('{')) {
                const std::size_t close = pattern.find('}', open);
                const auto name = names.find(pattern.substr(open + 1, close - open - 1));
                if (close == std::string::npos || name == names.end()) {
                    throw std::runtime_error("a pattern has an unknown name");
                }
                pattern.replace(open, close + 1 - open, name->second);
            }
            Row row{std::string(fields[0]), std::stod(std::string(fields[2])), ReadPattern(pattern)};
            if (only.empty() || std::find(only.begin(), only.end(), row.country) != only.end()) {
                countries.insert(row.country);
                rows.push_back(std::move(row));
            }
        } catch (const std::exception& error) {
            throw std::runtime_error("line " + std::to_string(number) + " of the formats: " + error.what());
        }
    }
    countries_.assign(countries.begin(), countries.end());
    // A country's share is that of its vehicles, a row's that of its weight among those of the country.
    std::map<std::string, double> weights;
    for (const Row& row : rows) {
        weights[row.country] += row.weight;
    }
    double all = 0;
    for (const std::string& country : countries_) {
        all += vehicles.try_emplace(country, 1).first->second;
    }
    for (const Row& row : rows) {
        const auto country = std::lower_bound(countries_.begin(), countries_.end(), row.country) - countries_.begin();
        const double share =
            vehicles[row.country] / all * row.weight / weights[row.country] / static_cast<double>(row.formats.size());
        for (const std::vector<Element>& elements : row.formats) {
            Format format{static_cast<std::size_t>(country), std::log(share), {}};
            std::size_t length = 0;
            for (const Element& element : elements) {
                length += element.length;
                const auto choices = element.words.empty() ? static_cast<std::size_t>(std::popcount(element.symbols))
                                                           : element.words.size();
                format.logPrior -= std::log(static_cast<double>(choices));
                format.elements.push_back(IndexOf(element));
            }
            formats_.resize(std::max(formats_.size(), length + 1));
            formats_[length].push_back(std::move(format));
        }
    }
}

std::size_t PlateFormats::IndexOf(const Element& element) {
    const auto known = std::find(elements_.begin(), elements_.end(), element);
    if (known != elements_.end()) {
        return static_cast<std::size_t>(known - elements_.begin());
    }
    elements_.push_back(element);
    return elements_.size() - 1;
}

PlateFormats::Choice PlateFormats::BestOf(const Element& element, const DecodedText& decoded, std::size_t place) {
    Choice best;
    if (element.words.empty()) {
        double highest = -1;
        for (std::size_t symbol = 0; symbol < alphabet.size(); ++symbol) {
            if ((element.symbols >> symbol & 1) != 0) {
                const double probability = ProbabilityOf(decoded.characters[place], symbol, element.symbols);
                if (probability > highest) {
                    highest = probability;
                    best.text = alphabet[symbol];
                }
            }
        }
        best.logLikelihood = Log(highest);
        return best;
    }
    best.logLikelihood = -std::numeric_limits<double>::infinity();
    for (const std::string& word : element.words) {
        double sum = 0;
        for (std::size_t i = 0; i < word.size(); ++i) {
            const std::size_t symbol = alphabet.find(word[i]);
            sum += Log(ProbabilityOf(decoded.characters[place + i], symbol, symbol < 10 ? digits : letters));
        }
        if (sum > best.logLikelihood) {
            best = {word, sum};
        }
    }
    return best;
}

// The result of Fit for the text as it is.
double PlateFormats::FitWhole(DecodedText& decoded) const {
    const std::size_t length = decoded.text.size();
    double free = 0;
    for (std::size_t i = 0; i < length; ++i) {
        free += Log(static_cast<double>(decoded.characters[i][SymbolOf(decoded.text[i])]));
    }
    struct Candidate {
        double logLikelihood = 0;
        double prior = 0;
    };
    std::map<std::string, Candidate> candidates;
    std::set<std::size_t> countries;
    Choices choices(elements_, decoded);
    for (const Format& format : formats_[length]) {
        const Choice choice = choices.Of(format);
        if (choice.logLikelihood >= free - clearScores) {
            Candidate& candidate = candidates[choice.text];
            candidate.logLikelihood = choice.logLikelihood;
            candidate.prior += std::exp(format.logPrior);
            countries.insert(format.country);
        }
    }
    const double withoutFormat = free + std::log(noFormat) - static_cast<double>(length) * std::log(alphabet.size());
    double best = withoutFormat;
    const std::pair<const std::string, Candidate>* chosen = nullptr;
    for (const auto& candidate : candidates) {
        const double posterior = candidate.second.logLikelihood + std::log(candidate.second.prior);
        if (posterior > best) {
            best = posterior;
            chosen = &candidate;
        }
    }
    if (chosen == nullptr) {
        return best;
    }
    decoded.hasFormat = true;
    decoded.text = chosen->first;
    const double gain = (chosen->second.logLikelihood - free) / static_cast<double>(length);
    decoded.confidence = std::min(1.0, decoded.confidence * std::exp(std::max(gain, 0.0)));
    // A part of a longer text may happen to have a rare format.
    const bool isSure = withoutFormat + minFormatLead <= best && decoded.confidence >= minCountryConfidence;
    if (countries.size() == 1 && isSure) {
        decoded.country = countries_[*countries.begin()];
    }
    return best;
}

void PlateFormats::Fit(DecodedText& decoded) const {
    const std::size_t length = decoded.text.size();
    if (length == 0 || length >= formats_.size() || decoded.characters.size() != length) {
        return;
    }
    DecodedText shorter = decoded;
    const double whole = FitWhole(decoded);
    if (length > minLengthBesideStrip) {
        shorter.text.erase(0, 1);
        shorter.characters.erase(shorter.characters.begin());
        const double withoutFirst = FitWhole(shorter) + std::log(stripAsCharacter / alphabet.size());
        if (shorter.hasFormat && withoutFirst > whole) {
            decoded = std::move(shorter);
            decoded.country.clear();
        }
    }
}

std::vector<std::string> PlateFormats::CountriesOf(std::string_view text) const {
    DecodedText exact;
    exact.text = text;
    for (const char character : text) {
        exact.characters.emplace_back().fill(0);
        exact.characters.back()[SymbolOf(character)] = 1;
    }
    std::set<std::string> found;
    if (text.size() < formats_.size()) {
        Choices choices(elements_, exact);
        for (const Format& format : formats_[text.size()]) {
            if (choices.Of(format).text == text) {
                found.insert(countries_[format.country]);
            }
        }
    }
    return {found.begin(), found.end()};
}

}  // namespace plate_reading
