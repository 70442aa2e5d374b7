#include "reference/reader/column_scores.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace plate_reading {
namespace {

constexpr double epsilon = 1e-6;
constexpr double impossible = -1e30;

// A character may be read as another one of its set, with this share of the set's probability.
constexpr std::array<std::string_view, 6> lookAlikes = {"0OQD", "1IT", "8B", "5S", "2Z", "6G"};
constexpr double lookAlikeShare = 0.6;

// By how much (natural logarithm, over all columns) a template's text may be less likely than the text without one.
constexpr double templateMargin = 7;

struct Emission {
    std::size_t symbol = 0;  ///< into the alphabet
    double probability = 0;
};

std::size_t SymbolOf(char character) {
    return alphabet.find(character);
}

/// The likeliest of the symbols that the pattern allows at one column.
Emission LikeliestOf(const ColumnScores& scores, std::size_t column, char kind) {
    const std::size_t first = kind == 'D' ? 0 : 10;
    const std::size_t last = kind == 'D' ? 10 : alphabet.size();
    Emission best;
    best.symbol = first;
    for (std::size_t symbol = first; symbol < last; ++symbol) {
        const double probability = static_cast<double>(scores.At(column, symbol + 1));
        if (probability > best.probability) {
            best = {symbol, probability};
        }
    }
    for (const std::string_view set : lookAlikes) {
        double sum = 0;
        Emission own;
        for (const char character : set) {
            const std::size_t symbol = SymbolOf(character);
            const double probability = static_cast<double>(scores.At(column, symbol + 1));
            sum += probability;
            if (symbol >= first && symbol < last && probability >= own.probability) {
                own = {symbol, probability};
            }
        }
        if (lookAlikeShare * sum > best.probability) {
            best = {own.symbol, lookAlikeShare * sum};
        }
    }
    return best;
}

struct TemplatePath {
    double logProbability = impossible;
    DecodedText decoded;
};

/// The likeliest path (Viterbi) through the states: blank, first character, blank, second character, ... blank. Blanks
/// between different characters are optional.
TemplatePath FollowTemplate(const ColumnScores& scores, const Template& pattern) {
    const std::size_t columns = scores.Columns();
    const std::size_t states = 2 * pattern.size() + 1;
    std::vector<Emission> letters(columns);
    std::vector<Emission> digits(columns);
    for (std::size_t column = 0; column < columns; ++column) {
        letters[column] = LikeliestOf(scores, column, 'L');
        digits[column] = LikeliestOf(scores, column, 'D');
    }
    const auto emission = [&](std::size_t state, std::size_t column) -> const Emission& {
        return pattern[state / 2] == 'D' ? digits[column] : letters[column];
    };
    const auto cost = [&](std::size_t state, std::size_t column) {
        return std::log(
            (state % 2 == 0 ? static_cast<double>(scores.At(column, 0)) : emission(state, column).probability) +
            epsilon);
    };

    std::vector<double> reached(states, impossible);
    std::vector<std::size_t> from(states * columns, 0);
    reached[0] = cost(0, 0);
    reached[1] = cost(1, 0);
    for (std::size_t column = 1; column < columns; ++column) {
        std::vector<double> next(states, impossible);
        for (std::size_t state = 0; state < states; ++state) {
            std::size_t origin = state;
            double best = reached[state];
            if (state > 0 && reached[state - 1] > best) {
                best = reached[state - 1];
                origin = state - 1;
            }
            // The same character twice needs a blank in between.
            const bool mayJump =
                state > 1 && state % 2 == 1 && emission(state, column).symbol != emission(state - 2, column - 1).symbol;
            if (mayJump && reached[state - 2] > best) {
                best = reached[state - 2];
                origin = state - 2;
            }
            if (best > impossible / 2) {
                next[state] = best + cost(state, column);
            }
            from[state * columns + column] = origin;
        }
        reached = std::move(next);
    }

    TemplatePath path;
    std::size_t state = reached[states - 1] > reached[states - 2] ? states - 1 : states - 2;
    path.logProbability = reached[state];
    if (path.logProbability <= impossible / 2) {
        return path;
    }
    // Each character is the symbol with the highest probability in one of its columns.
    std::vector<std::array<double, alphabet.size()>> peaks(pattern.size(), std::array<double, alphabet.size()>{});
    path.decoded.characters.resize(pattern.size());
    double left = static_cast<double>(columns);
    double right = 0;
    for (std::size_t column = columns; column-- > 0;) {
        if (state % 2 == 1) {
            const Emission& seen = emission(state, column);
            double& peak = peaks[state / 2][seen.symbol];
            peak = std::max(peak, seen.probability);
            for (std::size_t symbol = 0; symbol < alphabet.size(); ++symbol) {
                float& highest = path.decoded.characters[state / 2][symbol];
                highest = std::max(highest, scores.At(column, symbol + 1));
            }
            left = std::min(left, static_cast<double>(column));
            right = std::max(right, static_cast<double>(column) + 1);
        }
        if (column > 0) {
            state = from[state * columns + column];
        }
    }
    double logPeaks = 0;
    for (const auto& symbols : peaks) {
        const auto best = std::max_element(symbols.begin(), symbols.end());
        path.decoded.text += alphabet[static_cast<std::size_t>(best - symbols.begin())];
        logPeaks += std::log(*best + epsilon);
    }
    const auto total = static_cast<double>(columns);
    path.decoded.confidence =
        std::exp(logPeaks / static_cast<double>(pattern.size())) * std::exp(path.logProbability / total);
    path.decoded.left = static_cast<float>(left / total);
    path.decoded.right = static_cast<float>(right / total);
    return path;
}

/// The path through the likeliest class of each column.
double LogProbabilityOfFreePath(const ColumnScores& scores) {
    double sum = 0;
    for (std::size_t column = 0; column < scores.Columns(); ++column) {
        float best = 0;
        for (std::size_t which = 0; which < classes; ++which) {
            best = std::max(best, scores.At(column, which));
        }
        sum += std::log(static_cast<double>(best) + epsilon);
    }
    return sum;
}

}  // namespace

ColumnScores::ColumnScores(const float* output, std::size_t columns) : probabilities_(columns * classes) {
    for (std::size_t column = 0; column < columns; ++column) {
        float highest = std::numeric_limits<float>::lowest();
        for (std::size_t which = 0; which < classes; ++which) {
            highest = std::max(highest, output[which * columns + column]);
        }
        float* const here = &probabilities_[column * classes];
        float sum = 0;
        for (std::size_t which = 0; which < classes; ++which) {
            here[which] = std::exp(output[which * columns + column] - highest);
            sum += here[which];
        }
        for (std::size_t which = 0; which < classes; ++which) {
            here[which] /= sum;
        }
    }
}

void ColumnScores::Average(const ColumnScores& other) {
    for (std::size_t i = 0; i < probabilities_.size() && i < other.probabilities_.size(); ++i) {
        probabilities_[i] = (probabilities_[i] + other.probabilities_[i]) / 2;
    }
}

DecodedText Decode(const ColumnScores& scores) {
    DecodedText decoded;
    const std::size_t columns = scores.Columns();
    if (columns == 0) {
        return decoded;
    }
    std::size_t before = 0;
    double peak = 0;
    double logPeaks = 0;
    double logPath = 0;
    const auto endCharacter = [&] {
        if (before != 0) {
            logPeaks += std::log(peak + epsilon);
        }
        peak = 0;
    };
    bool begun = false;
    for (std::size_t column = 0; column < columns; ++column) {
        const double none = static_cast<double>(scores.At(column, 0));
        std::size_t which = 0;
        double probability = none;
        if (none < 0.5) {
            which = 1;
            for (std::size_t other = 2; other < classes; ++other) {
                if (scores.At(column, other) > scores.At(column, which)) {
                    which = other;
                }
            }
            probability = static_cast<double>(scores.At(column, which));
        }
        logPath += std::log((which == 0 ? none : 1 - none) + epsilon);
        if (which != before) {
            endCharacter();
            if (which != 0) {
                decoded.text += alphabet[which - 1];
                decoded.characters.emplace_back().fill(0);
            }
        }
        if (which != 0) {
            peak = std::max(peak, probability);
            for (std::size_t symbol = 0; symbol < alphabet.size(); ++symbol) {
                float& highest = decoded.characters.back()[symbol];
                highest = std::max(highest, scores.At(column, symbol + 1));
            }
            if (!begun) {
                decoded.left = static_cast<float>(column) / static_cast<float>(columns);
                begun = true;
            }
            decoded.right = static_cast<float>(column + 1) / static_cast<float>(columns);
        }
        before = which;
    }
    endCharacter();
    if (!decoded.text.empty()) {
        decoded.confidence = std::exp(logPeaks / static_cast<double>(decoded.text.size())) *
                             std::exp(logPath / static_cast<double>(columns));
    }
    return decoded;
}

DecodedText DecodeByTemplates(const ColumnScores& scores, const std::vector<Template>& templates,
                              const DecodedText& free) {
    TemplatePath best;
    for (const Template& pattern : templates) {
        const std::size_t difference =
            std::max(pattern.size(), free.text.size()) - std::min(pattern.size(), free.text.size());
        if (difference > 1 || pattern.empty() || scores.Columns() == 0) {
            continue;
        }
        TemplatePath path = FollowTemplate(scores, pattern);
        if (path.logProbability > best.logProbability) {
            best = std::move(path);
        }
    }
    if (best.logProbability <= LogProbabilityOfFreePath(scores) - templateMargin) {
        return free;
    }
    // A text that matches an expected pattern is at least as certain as one that matches none.
    best.decoded.confidence = std::max(best.decoded.confidence, free.confidence);
    return best.decoded;
}

}  // namespace plate_reading
