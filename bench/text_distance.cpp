#include "tracker/text_distance.h"

#include <benchmark/benchmark.h>

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

std::wstring RandomPlate(std::mt19937& random, std::size_t shortest, std::size_t longest) {
    std::wstring text(shortest + random() % (longest - shortest + 1), L' ');
    for (wchar_t& unit : text) {
        unit = L"ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"[random() % 36];
    }
    return text;
}

// Half of the pairs are of one plate, misread; the others of two plates.
std::vector<Pair> RandomPairs(std::size_t shortest, std::size_t longest, std::size_t paddedTo) {
    constexpr int count = 256;
    std::mt19937 random(7);
    std::vector<Pair> pairs;
    for (int number = 0; number < count; ++number) {
        Pair pair{RandomPlate(random, shortest, longest), RandomPlate(random, shortest, longest)};
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

using Distance = double(const std::wstring& first, const std::wstring& second);

void Register(const std::string& name, const std::vector<Pair>& pairs, Distance* distance) {
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        for (auto _ : state) {
            for (const Pair& pair : pairs) {
                benchmark::DoNotOptimize(distance(pair.first, pair.second));
            }
        }
        state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(pairs.size()));
    });
}

}  // namespace

void RegisterTextDistances() {
    // The detector's texts are 15 units whatever the plate: what it does not fill is NUL.
    const std::vector<Pair> plain = RandomPairs(7, 15, 0);
    const std::vector<Pair> padded = RandomPairs(7, 9, 15);
    for (const auto& [kind, pairs] : {std::pair("7-to-15", plain), std::pair("padded-to-15", padded)}) {
        for (const Pair& pair : pairs) {
            if (TextDistance(pair.first, pair.second) != RollingRowsDistance(pair.first, pair.second)) {
                throw std::runtime_error("the two text distances differ");
            }
        }
        const std::string name = std::string("text-distance/") + kind;
        Register(name + "/vexlane", pairs, TextDistance);
        Register(name + "/rolling-rows", pairs, RollingRowsDistance);
    }
}

}  // namespace bench
