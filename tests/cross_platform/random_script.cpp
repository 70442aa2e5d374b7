#include "tests/cross_platform/random_script.h"

#include <array>
#include <cstddef>
#include <limits>
#include <vector>

namespace transcript {

namespace {

constexpr std::size_t textCapacity = 16;
constexpr std::size_t plateCapacity = 5;

using Bytes = std::string;

std::string Hex(const Bytes& bytes) {
    constexpr char digits[] = "0123456789ABCDEF";
    std::string hex;
    for (const char byte : bytes) {
        hex += digits[static_cast<unsigned char>(byte) >> 4];
        hex += digits[static_cast<unsigned char>(byte) & 0xF];
    }
    return hex;
}

struct Plate {
    std::string utf8;  // the text, or else
    Bytes bytes;       // the raw bytes
    std::string confidence;
    std::array<std::int32_t, 8> corners = {};
};

std::string JsonOf(const Plate& plate) {
    std::string json =
        plate.utf8.empty() ? R"({"bytes":")" + Hex(plate.bytes) + '"' : R"({"text":")" + plate.utf8 + '"';
    json += R"(,"confidence":)" + plate.confidence + R"(,"corners":[)";
    for (std::size_t corner = 0; corner < 4; ++corner) {
        json += corner == 0 ? "[" : ",[";
        json += std::to_string(plate.corners[2 * corner]) + ',' + std::to_string(plate.corners[2 * corner + 1]) + ']';
    }
    return json + "]}";
}

// Numbers that all systems print and read alike: whole eighths, and large powers of ten.
std::string RandomConfidence(Random& random) {
    if (random.Chance(90)) {
        const std::string whole = std::to_string(random.Between(0, 1600));
        return whole + random.Pick<const char*>({"", ".125", ".5", ".875"});
    }
    return random.Pick<const char*>({"-0.0", "0", "-1", "-800.5", "1e300", "-1e300", "1e308", "2147483647",
                                     "2147483648", "-2147483648", "-2147483649", "17179869183.5", "-17179869184",
                                     "1e-300"});
}

std::string PlateCharacters(Random& random, int count) {
    constexpr char characters[] = "ABCDEFGHJKLMNPQRSTUVWXYZ0123456789";
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += characters[random.Below(sizeof characters - 1)];
    }
    return text;
}

void AddRawPiece(Random& random, Bytes& bytes) {
    const auto add = [&bytes](unsigned byte) { bytes += static_cast<char>(byte); };
    const auto addTrail = [&](unsigned lowest, unsigned highest) {
        const unsigned trail = random.Byte(lowest, highest);
        add(trail == 0x7F ? 0x80 : trail);
    };
    switch (random.Below(12)) {
        case 0:  // any pair
            add(random.Byte(0x81, 0xFE));
            addTrail(0x40, 0xFE);
            return;
        case 1:  // a common character
            add(random.Byte(0xB0, 0xF7));
            addTrail(0xA1, 0xFE);
            return;
        case 2:  // the user-defined rows
            add(random.Byte(0xAA, 0xAF));
            addTrail(0xA1, 0xFE);
            return;
        case 3:
            add(random.Byte(0xF8, 0xFE));
            addTrail(0xA1, 0xFE);
            return;
        case 4:
            add(random.Byte(0xA1, 0xA7));
            addTrail(0x40, 0xA0);
            return;
        case 5:  // gaps in the rows of symbols
            add(random.Byte(0xA2, 0xA9));
            addTrail(0xA1, 0xFE);
            return;
        case 6:
            add(0x80);
            return;
        case 7:
            add(0xFF);
            return;
        case 8:  // an invalid second byte
            add(random.Byte(0x81, 0xFE));
            add(random.Pick<unsigned>({0x01, 0x0A, 0x20, 0x30, 0x39, 0x3F, 0x7F, 0xFF}));
            return;
        case 9:  // a NUL, perhaps after a lead byte
            if (random.Chance(50)) {
                add(random.Byte(0x81, 0xFE));
            }
            add(0x00);
            return;
        case 10:
            add(random.Byte());
            return;
        default:
            bytes += PlateCharacters(random, 2);
            return;
    }
}

Bytes RawText(Random& random) {
    const std::size_t wanted = random.Chance(40) ? textCapacity : random.Below(textCapacity + 1);
    Bytes bytes;
    while (bytes.size() < wanted) {
        if (random.Chance(50)) {
            AddRawPiece(random, bytes);
        } else {
            bytes += PlateCharacters(random, 1);
        }
    }
    bytes.resize(wanted);  // may cut a pair
    return bytes;
}

void SetRandomText(Random& random, Plate& plate) {
    switch (random.Below(4)) {
        case 0:
            plate.bytes = RawText(random);
            break;
        case 1: {
            // Provinces, the signs of special plates, and a few texts that are not on plates.
            plate.utf8 = random.Pick<const char*>(
                {"京", "沪", "粤", "苏", "浙", "鲁", "川", "渝", "使", "领", "€", "－", "あ", "Я"});
            plate.utf8 += PlateCharacters(random, random.Between(0, 6));
            if (random.Chance(30)) {
                plate.utf8 += random.Pick<const char*>({"学", "警", "港", "澳", "挂"});
            }
            break;
        }
        default: {
            const int length = random.Chance(90) ? random.Between(5, 9) : random.Between(0, 16);
            plate.bytes = PlateCharacters(random, length);
            break;
        }
    }
}

std::int32_t RandomCoordinate(Random& random) {
    if (random.Chance(60)) {
        return random.Between(-100, 1000);
    }
    if (random.Chance(50)) {
        return random.Pick<std::int32_t>({0, -1, 1, std::numeric_limits<std::int32_t>::max(),
                                          std::numeric_limits<std::int32_t>::min(), 46341, -46341, 1 << 30,
                                          -(1 << 30) - 1, std::numeric_limits<std::int32_t>::max() - 1});
    }
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(random.Number()));
}

// A plate that does not belong to a vehicle.
Plate StrayPlate(Random& random) {
    Plate plate;
    SetRandomText(random, plate);
    plate.confidence = RandomConfidence(random);
    for (std::int32_t& coordinate : plate.corners) {
        coordinate = RandomCoordinate(random);
    }
    return plate;
}

class Vehicle {
  public:
    Vehicle(Random& random, const ScriptOptions& options) {
        SetRandomText(random, truth);
        truth.confidence = RandomConfidence(random);
        firstFrame = random.Between(0, options.frames - 1);
        frames = random.Between(1, 2 * options.frames / 3 + 1);
        x = random.Between(-20, options.width);
        y = random.Between(-20, options.height);
        const bool stands = random.Chance(25);
        speedX = stands ? 0 : random.Between(-options.width / 12 - 1, options.width / 12 + 1);
        speedY = stands ? 0 : random.Between(-options.height / 12 - 1, options.height / 12 + 1);
        width = random.Between(1, options.width / 3 + 2);
        height = random.Between(1, options.height / 5 + 2);
        jitter = random.Chance(50) ? 0 : random.Between(1, 4);
        misread = random.Pick<unsigned>({0, 0, 10, 40});
        missed = random.Pick<unsigned>({0, 5, 30, 60});
    }

    bool IsSeen(Random& random, int frame) const {
        return frame >= firstFrame && frame < firstFrame + frames && !random.Chance(missed);
    }

    Plate ReadIn(Random& random, int frame) const {
        Plate plate = truth;
        if (random.Chance(misread)) {
            Misread(random, plate);
        }
        if (random.Chance(30)) {
            plate.confidence = RandomConfidence(random);
        }
        const std::int32_t left = x + speedX * (frame - firstFrame);
        const std::int32_t top = y + speedY * (frame - firstFrame);
        // Top left, bottom left, top right, bottom right.
        plate.corners = {left, top, left, top + height, left + width, top, left + width, top + height};
        for (std::int32_t& coordinate : plate.corners) {
            coordinate += random.Between(-jitter, jitter);
        }
        return plate;
    }

  private:
    static void Misread(Random& random, Plate& plate) {
        if (!plate.utf8.empty()) {
            plate.utf8 += PlateCharacters(random, 1);
            return;
        }
        if (plate.bytes.empty() || random.Chance(10)) {
            plate.bytes = RawText(random);
            return;
        }
        const std::size_t place = random.Below(plate.bytes.size());
        plate.bytes[place] = random.Chance(80) ? PlateCharacters(random, 1)[0] : static_cast<char>(random.Byte());
    }

    Plate truth;
    int firstFrame;
    int frames;
    std::int32_t x;
    std::int32_t y;
    std::int32_t speedX;
    std::int32_t speedY;
    std::int32_t width;
    std::int32_t height;
    std::int32_t jitter;
    unsigned misread;  // percent
    unsigned missed;
};

std::string RandomFrame(Random& random, const std::vector<Vehicle>& vehicles, int frame, unsigned strayPercent) {
    std::vector<Plate> plates;
    for (const Vehicle& vehicle : vehicles) {
        if (vehicle.IsSeen(random, frame)) {
            plates.push_back(vehicle.ReadIn(random, frame));
        }
    }
    while (random.Chance(strayPercent)) {
        plates.push_back(StrayPlate(random));
    }
    if (plates.size() > plateCapacity) {
        plates.resize(plateCapacity);
    }
    std::string json = R"({"plates":[)";
    for (std::size_t i = 0; i < plates.size(); ++i) {
        json += i == 0 ? "" : ",";
        json += JsonOf(plates[i]);
    }
    json += ']';
    if (random.Chance(3)) {  // a wrong count
        const std::int32_t count = random.Chance(20) ? std::numeric_limits<std::int32_t>::min() : random.Between(-3, 9);
        json += R"(,"count":)" + std::to_string(count);
    }
    return json + '}';
}

std::string RandomRefusals(Random& random, int frames) {
    if (random.Chance(3)) {
        return R"("all")";
    }
    std::string json = "[";
    if (random.Chance(40)) {
        const int count = random.Between(1, 6);
        for (int i = 0; i < count; ++i) {
            json += i == 0 ? "" : ",";
            json += std::to_string(random.Between(0, frames));
        }
    }
    return json + ']';
}

}  // namespace

std::string RandomScript(Random& random, const ScriptOptions& options) {
    std::vector<Vehicle> vehicles;
    const int vehicleCount = random.Between(0, 5);
    for (int i = 0; i < vehicleCount; ++i) {
        vehicles.emplace_back(random, options);
    }
    const unsigned strayPercent = random.Pick<unsigned>({0, 5, 20, 60});
    std::string json = R"({"refused_ranges":)" + RandomRefusals(random, options.frames);
    json += R"(,"repeat":)" + std::string(random.Chance(30) ? "true" : "false");
    json += R"(,"journal":")" + options.journal + R"(","frames":[)";
    for (int frame = 0; frame < options.frames; ++frame) {
        json += frame == 0 ? "" : ",";
        json += RandomFrame(random, vehicles, frame, strayPercent);
    }
    return json + "]}";
}

}  // namespace transcript
