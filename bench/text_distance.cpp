#include "tracker/text_distance.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "tests/tracker/rolling_rows.h"

namespace bench {

namespace {

struct Pair {
    std::wstring first;
    std::wstring second;
};

std::wstring RandomPlate(std::mt19937& random, std::size_t minLength, std::size_t maxLength) {
    std::wstring text(minLength + random() % (maxLength - minLength + 1), L' ');
    for (wchar_t& unit : text) {
        unit = L"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"[random() % 36];
    }
    return text;
}

// Half of the pairs are one plate and a misreading of it, the others two plates.
std::vector<Pair> RandomPairs(std::size_t minLength, std::size_t maxLength, std::size_t paddedTo) {
    constexpr int count = 256;
    std::mt19937 random(7);
    std::vector<Pair> pairs;
    for (int number = 0; number < count; ++number) {
        Pair pair{RandomPlate(random, minLength, maxLength), RandomPlate(random, minLength, maxLength)};
        if (number % 2 == 0) {
            pair.second = pair.first;
            pair.second[random() % pair.second.size()] = RandomPlate(random, 1, 1).front();
        }
        for (std::wstring* text : {&pair.first, &pair.second}) {
            text->resize(std::max(text->size(), paddedTo));
        }
        pairs.push_back(pair);
    }
    return pairs;
}

// `distance` computes the distance of one pair.
template <class Distance>
void Register(const std::string& name, const std::vector<Pair>& pairs, const Distance& distance) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        for (auto _ : state) {
            for (const Pair& pair : pairs) {
                benchmark::DoNotOptimize(distance(pair));
            }
        }
        state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(pairs.size()));
    });
}

void RegisterKind(const std::string& name, const std::vector<Pair>& pairs) {
    for (const Pair& pair : pairs) {
        if (TextDistance(pair.first, pair.second) != RollingRowsDistance(pair.first, pair.second)) {
            throw std::runtime_error("the two text distances differ");
        }
    }
    Register(name + "/vexlane", pairs, [](const Pair& pair) { return TextDistance(pair.first, pair.second); });
    Register(name + "/rolling-rows", pairs,
             [](const Pair& pair) { return RollingRowsDistance(pair.first, pair.second); });
    // As in the tracker: one prepared text is compared with all others.
    static const std::wstring text = L"AB123CD";
    static const TextPattern pattern(text);
    Register(name + "/vexlane-ready", pairs, [](const Pair& pair) { return pattern.DistanceTo(pair.second); });
}

}  // namespace

void RegisterTextDistances() {
    RegisterKind("text-distance/7-to-15", RandomPairs(7, 15, 0));
    // The detector's texts always have 15 units; the unused ones are NUL.
    RegisterKind("text-distance/padded-to-15", RandomPairs(7, 9, 15));
}

}  // namespace bench
