// engine-readings ENGINE: passes pictures to an engine and prints its results, for comparison between systems by
// scripts/compare-engines. Standard input holds, for each picture, a line with width and height, and then its rows of
// blue, green and red bytes. The output is one line of JSON per picture.

#include <algorithm>
#include <array>
#include <boost/dll/shared_library.hpp>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engine/engine_records.h"
#include "tests/cross_platform/binary_input.h"

namespace {

// The functions' names as mangled by the platform's usual compiler.
#ifdef _WIN32
constexpr const char* recogniseName = "?Recognize2@@YAHPEAUYUV420_IMG@@PEAUIMG@@PEAUtagRECT@@PEAURPLATE@@H@Z";
constexpr const char* setRangeName = "?SetPlateRange@@YA_NHH@Z";
#else
constexpr const char* recogniseName = "_Z10Recognize2P10YUV420_IMGP3IMGP7tagRECTP6RPLATEi";
constexpr const char* setRangeName = "_Z13SetPlateRangeii";
#endif

constexpr int maxAttempts = 15;  // refused ranges, of some seconds each

nlohmann::json Describe(const RPLATE& plate) {
    nlohmann::json corners;
    for (const EngineCorner& corner : {plate.corner1, plate.corner2, plate.corner3, plate.corner4}) {
        corners.push_back({corner.x, corner.y});
    }
    const std::string text(plate.text, std::find(std::begin(plate.text), std::end(plate.text), '\0'));
    return {{"text", text},
            {"confidence", ConfidenceSumOf(plate) / static_cast<double>(text.size())},
            {"corners", corners}};
}

}  // namespace

int main(int, char** arguments) {
    SetStandardInputBinary();
    boost::dll::shared_library library;
    library.load(std::filesystem::absolute(arguments[1]).string());
    auto& recognise = library.get<int(YUV420_IMG*, IMG*, tagRECT*, RPLATE*, int)>(recogniseName);
    auto& setRange = library.get<bool(int, int)>(setRangeName);

    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<std::uint8_t> pixels;
    while (std::cin >> width >> height) {
        std::cin.get();
        pixels.resize(std::size_t{width} * height * 3);
        std::cin.read(reinterpret_cast<char*>(pixels.data()), static_cast<std::streamsize>(pixels.size()));
        int attempts = 0;
        while (!setRange(0, static_cast<int>(width))) {
            if (++attempts == maxAttempts) {
                std::cerr << "engine-readings: the engine refuses every range\n";
                return 1;
            }
        }
        IMG image = {width, height, 3, width * 3, pixels.data()};
        std::array<RPLATE, engineRecordCount> plates = {};
        const auto start = std::chrono::steady_clock::now();
        const int count = recognise(nullptr, &image, nullptr, plates.data(), 0);
        const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - start;
        nlohmann::json readings = nlohmann::json::array();
        for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
            readings.push_back(Describe(plates[index]));
        }
        const nlohmann::json line = {{"milliseconds", spent.count()}, {"readings", readings}};
        std::cout << line.dump() << std::endl;
    }
    return 0;
}
