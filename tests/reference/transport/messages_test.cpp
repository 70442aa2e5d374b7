#include "reference/transport/messages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

using namespace transport;
using Bytes = std::vector<std::uint8_t>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

Reading ValidReading() {
    return {"AB123C", 87.5, {{{1, -2}, {3, 4}, {2147483647, -2147483647 - 1}, {7, 8}}}};
}

Readings ReadingsOf(const std::vector<Reading>& readings) {
    Readings made = {static_cast<std::uint32_t>(readings.size()), 0, {}};
    std::ranges::copy(readings, made.readings.begin());
    return made;
}

// One message of each kind, and messages at their limits.
std::vector<Contents> ValidContents() {
    return {Greeting(),
            Greeting{.version = 0},
            Busy(),
            GreetingReply{{.version = 0xFFFFFFFF}},
            Range{-1, 2147483647},
            RangeAccepted(),
            Frame{1, 1, {}},
            Frame{1, 1, Region{0, 0, 1, 1}},
            Frame{16384, 5461, Region{0, 0, 16384, 5461}},
            Frame{1920, 1080, Region{1919, 1079, 1920, 1080}},
            Readings(),
            ReadingsOf({ValidReading()}),
            ReadingsOf({{"1", 0, {}},
                        {"123456789012345", 100, {}},
                        {"\xD4\xC1", -0.0, {}, "GBR"},
                        ValidReading(),
                        ValidReading()})};
}

std::vector<Contents> InvalidContents() {
    std::vector<Contents> all = {Frame{0, 1, {}},
                                 Frame{1, 0, {}},
                                 Frame{16385, 1, {}},
                                 Frame{1, 16385, {}},
                                 Frame{16384, 5462, {}},
                                 Frame{16384, 16384, {}},
                                 Frame{0x80000000, 0x80000000, {}},
                                 Frame{0xFFFFFFFF, 0xFFFFFFFF, {}},
                                 Readings{maxReadings + 1, 0, {}},
                                 Readings{1, 1, {ValidReading()}},
                                 Readings{2, 0, {ValidReading()}},
                                 Readings{0, 0, {ValidReading()}},
                                 Greeting{.zero = 1},
                                 Greeting{.magic = {'v', 'X', 'L', '-', 'R', 'E', 'A', 'D'}}};
    for (const Region region : {Region{0, 0, 0, 1}, Region{-1, 0, 5, 5}, Region{0, -1, 5, 5}, Region{0, 0, 11, 5},
                                Region{0, 0, 5, 11}, Region{5, 0, 5, 5}, Region{0, 5, 5, 5}, Region{6, 0, 5, 5},
                                Region{0, 6, 5, 5}, Region{-2147483647 - 1, 0, 2147483647, 5}}) {
        all.emplace_back(Frame{10, 10, region});
    }
    for (const double confidence : {nan, infinity, -infinity, -1e-300, std::nextafter(100.0, 101.0), 1e300}) {
        Reading reading = ValidReading();
        reading.confidence = confidence;
        all.emplace_back(ReadingsOf({ValidReading(), reading}));
    }
    for (const std::string& text :
         {std::string(16, '\0'), std::string(16, 'A'), "A" + std::string(1, '\0') + "B", std::string(15, '\0') + "A"}) {
        Reading reading = {"", 50, {}};
        text.copy(reading.text, sizeof reading.text);
        all.emplace_back(ReadingsOf({reading}));
    }
    for (const std::string& country : {std::string("GB"), std::string("gbr"), std::string("GBR4"), std::string("GB1"),
                                       std::string("\0BR", 3), std::string("GBR\0\0\0\0X", 8)}) {
        Reading reading = ValidReading();
        country.copy(reading.country, sizeof reading.country);
        all.emplace_back(ReadingsOf({reading}));
    }
    return all;
}

// The bytes

TEST(Messages, HaveTheLayoutThatEveryVersionKeeps) {
    EXPECT_EQ(Encode({0x0102030405060708, Greeting{.version = 0x11223344}}),
              (Bytes{1,   0,   0,   0,   32,  0,   0,   0,   8,    7,    6,    5,    4, 3, 2, 1,
                     'V', 'X', 'L', '-', 'R', 'E', 'A', 'D', 0x44, 0x33, 0x22, 0x11, 0, 0, 0, 0}));
    const Bytes response = Encode({1, GreetingReply{{.version = 2}}});
    EXPECT_EQ(response.size(), 32u);
    EXPECT_EQ(response[0], 2);
    EXPECT_EQ(Encode({0, Busy()}), (Bytes{7, 0, 0, 0, 16, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(Messages, HaveTheLayoutOfThisVersion) {
    EXPECT_EQ(Encode({9, Range{-2, 258}}),
              (Bytes{3, 0, 0, 0, 24, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0xFE, 0xFF, 0xFF, 0xFF, 2, 1, 0, 0}));
    EXPECT_EQ(Encode({9, RangeAccepted()}), (Bytes{4, 0, 0, 0, 16, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(Encode({9, Frame{258, 3, Region{1, 2, 4, 3}}}),
              (Bytes{5, 0, 0, 0, 40, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0,  //
                     2, 1, 0, 0, 3,  0, 0, 0,                          //
                     1, 0, 0, 0, 2,  0, 0, 0, 4, 0, 0, 0, 3, 0, 0, 0}));
    Bytes readings = {6,   0,   0,   0, 0x58, 1, 0,    0,    9, 0, 0, 0, 0,    0,    0,    0,     //
                      1,   0,   0,   0, 0,    0, 0,    0,                                         //
                      'A', 'B', '1', 0, 0,    0, 0,    0,    0, 0, 0, 0, 0,    0,    0,    0,     //
                      0,   0,   0,   0, 0,    0, 0xF0, 0x3F,                                      //
                      1,   0,   0,   0, 2,    0, 0,    0,    3, 0, 0, 0, 4,    0,    0,    0,     //
                      5,   0,   0,   0, 6,    0, 0,    0,    7, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF,  //
                      'G', 'B', 'R', 0, 0,    0, 0,    0};
    readings.resize(0x158);
    EXPECT_EQ(Encode({9, ReadingsOf({{"AB1", 1.0, {{{1, 2}, {3, 4}, {5, 6}, {7, -1}}}, "GBR"}})}), readings);
}

TEST(Messages, AreDecodedAsEncoded) {
    for (const Contents& contents : ValidContents()) {
        for (const std::uint64_t number : {std::uint64_t{0}, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
            const Bytes bytes = Encode({number, contents});
            EXPECT_LE(bytes.size(), maxMessageBytes);
            EXPECT_EQ(Decode(bytes), (Message{number, contents}));
        }
    }
}

TEST(Messages, TheLargestKindHasTheLargestSize) {
    EXPECT_EQ(Encode({0, Readings()}).size(), maxMessageBytes);
}

// Refused messages

TEST(Encoding, RefusesInvalidContents) {
    for (const Contents& contents : InvalidContents()) {
        EXPECT_FALSE(IsValid(contents));
        EXPECT_THROW(Encode({1, contents}), std::invalid_argument);
    }
    for (const Contents& contents : ValidContents()) {
        EXPECT_TRUE(IsValid(contents));
    }
}

TEST(Decoding, RefusesWrongLengths) {
    for (const Contents& contents : ValidContents()) {
        const Bytes right = Encode({5, contents});
        for (std::size_t size = 0; size < 2 * right.size() + 64; ++size) {
            Bytes bytes = right;
            bytes.resize(size);
            EXPECT_EQ(Decode(bytes).has_value(), size == right.size()) << size;
            if (size >= 8) {
                // The size field agrees with the wrong length.
                bytes[4] = static_cast<std::uint8_t>(size);
                bytes[5] = static_cast<std::uint8_t>(size >> 8);
                EXPECT_EQ(Decode(bytes).has_value(), size == right.size()) << size;
            }
        }
    }
}

TEST(Decoding, RefusesWrongSizeFields) {
    for (const Contents& contents : ValidContents()) {
        const Bytes right = Encode({5, contents});
        for (std::size_t byte = 4; byte < 8; ++byte) {
            for (unsigned change = 1; change < 256; ++change) {
                Bytes bytes = right;
                bytes[byte] = static_cast<std::uint8_t>(bytes[byte] ^ change);
                EXPECT_EQ(Decode(bytes), std::nullopt);
            }
        }
    }
}

TEST(Decoding, RefusesUnknownKinds) {
    const Bytes right = Encode({5, RangeAccepted()});
    for (unsigned kind = 0; kind < 70000; ++kind) {
        Bytes bytes = right;
        for (unsigned byte = 0; byte < 4; ++byte) {
            bytes[byte] = static_cast<std::uint8_t>(kind >> (8 * byte));
        }
        EXPECT_EQ(Decode(bytes).has_value(), kind == 4 || kind == 7) << kind;
    }
}

TEST(Decoding, RefusesAWrongMark) {
    const Bytes right = Encode({5, Greeting()});
    for (std::size_t byte = 16; byte < 24; ++byte) {
        Bytes bytes = right;
        bytes[byte] ^= 0x20;
        EXPECT_EQ(Decode(bytes), std::nullopt);
    }
}

TEST(Decoding, RefusesNonZeroReservedBytes) {
    const auto expectRefused = [](const Contents& contents, std::size_t from, std::size_t to) {
        const Bytes right = Encode({5, contents});
        for (std::size_t byte = from; byte < to; ++byte) {
            Bytes bytes = right;
            bytes[byte] = 1;
            EXPECT_EQ(Decode(bytes), std::nullopt) << byte;
        }
    };
    expectRefused(Greeting(), 28, 32);
    expectRefused(GreetingReply(), 28, 32);
    expectRefused(Frame{9, 9, {}}, 24, 40);
    expectRefused(Readings(), 20, maxMessageBytes);
    expectRefused(ReadingsOf({{"AB", 1, {}}}), 24 + 3, 24 + 16);
    expectRefused(ReadingsOf({{"AB", 1, {}}}), 24 + 64, maxMessageBytes);
}

// A count that differs from the number of readings in the message

TEST(Decoding, RefusesWrongCounts) {
    for (const std::uint32_t count : {1u, 2u, 4u, 5u, 6u, 0x10000u, 0x04924925u, 0x80000000u, 0xFFFFFFFFu}) {
        for (std::size_t present = 0; present <= maxReadings; ++present) {
            Bytes bytes = Encode({5, ReadingsOf(std::vector<Reading>(present, ValidReading()))});
            for (unsigned byte = 0; byte < 4; ++byte) {
                bytes[16 + byte] = static_cast<std::uint8_t>(count >> (8 * byte));
            }
            EXPECT_EQ(Decode(bytes).has_value(), count == present) << count << " " << present;
        }
    }
}

TEST(PictureBytes, NeverOverflows) {
    EXPECT_EQ(PictureBytes(1920, 1080), 6220800u);
    EXPECT_EQ(PictureBytes(0, 7), 0u);
    EXPECT_EQ(PictureBytes(7, 0), 0u);
    for (const std::uint32_t side : {0x55555556u, 0x80000000u, 0xFFFFFFFFu}) {
        EXPECT_GT(PictureBytes(side, side), maxPictureBytes);
        EXPECT_GT(PictureBytes(side, 1), maxPictureBytes);
        EXPECT_GT(PictureBytes(1, side), maxPictureBytes);
    }
}

}  // namespace
