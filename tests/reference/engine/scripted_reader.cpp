#include "tests/reference/engine/scripted_reader.h"

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <stdexcept>
#include <thread>

namespace scripted_reader {

namespace {

using plate_reading::Picture;
using plate_reading::Reading;
using plate_reading::Region;
using plate_reading::WidthRange;

std::uint64_t Checksum(const Picture& picture) {
    std::uint64_t hash = 0xcbf29ce484222325;
    for (int y = 0; y < picture.height; ++y) {
        const std::uint8_t* const row = picture.pixels + static_cast<std::size_t>(y) * picture.stride;
        for (int x = 0; x < picture.width * 3; ++x) {
            hash = (hash ^ row[x]) * 0x100000001b3;
        }
    }
    return hash;
}

std::string NineDigits(std::uint64_t number) {
    std::string text;
    for (int digit = 0; digit < 9; ++digit) {
        text += "0123456789ABCDEF"[number >> 32 & 0xF];
        number <<= 4;
    }
    return text;
}

class Reader final : public plate_reading::FrameReader {
  public:
    std::vector<Reading> Read(const Picture& picture, const plate_reading::Search& search) override {
        const std::uint8_t argument = picture.pixels[1];
        std::vector<Reading> readings;
        switch (picture.pixels[0]) {
            case Count:
                for (int number = 0; number < argument; ++number) {
                    readings.push_back(Numbered(number));
                }
                return readings;
            case Sleep:
                std::this_thread::sleep_for(std::chrono::milliseconds(10) * argument);
                break;
            case Throw:
                if (argument % 2 == 1) {
                    throw 7;
                }
                throw std::runtime_error("requested by the picture");
            case Crash:
                std::abort();
            case ReturnMixed:
                return MixedReadings();
            default:
                break;
        }
        return DescriptionOf(picture, search.region, search.widths);
    }
};

}  // namespace

std::vector<Reading> DescriptionOf(const Picture& picture, const std::optional<Region>& region,
                                   const std::optional<WidthRange>& widths) {
    const std::uint64_t checksum = Checksum(picture);
    const Region inside = region.value_or(Region());
    const WidthRange range = widths.value_or(WidthRange());
    Reading first;
    first.text = NineDigits(checksum & 0xFFFFFFFFF);
    first.confidence = 12.5;
    first.corners = {{{picture.width, picture.height},
                      {region ? 1 : 0, widths ? 1 : 0},
                      {inside.left, inside.top},
                      {inside.right, inside.bottom}}};
    Reading second;
    second.text = NineDigits(checksum >> 28);
    second.confidence = 100;
    second.corners = {{{range.minimum, range.maximum}, {-1, -2}, {2147483647, -2147483647 - 1}, {7, 8}}};
    return {first, second};
}

Reading Numbered(int number) {
    Reading reading;
    reading.text = "PLATE00" + std::to_string(10 + number);
    reading.confidence = 90 - number;
    reading.corners = {{{number, 1}, {number, 2}, {number, 3}, {number, 4}}};
    reading.country = number % 2 == 0 ? "GBR" : "";
    return reading;
}

std::vector<Reading> MixedReadings() {
    std::vector<Reading> readings(7, Numbered(0));
    readings[0].text = "";
    readings[1].text = "ABCDEFGHIJKLMNOP";  // sixteen
    readings[2].text = std::string("AB\0CD", 5);
    readings[3].confidence = std::numeric_limits<double>::quiet_NaN();
    readings[4].confidence = 1e9;
    readings[5].confidence = -3;
    readings[6].text = "ABCDEFGHIJKLMNO";  // fifteen
    return readings;
}

std::unique_ptr<plate_reading::FrameReader> Make() {
    return std::make_unique<Reader>();
}

}  // namespace scripted_reader
