/// What the engine, as the client, and the recognition server say to each other.
///
/// They speak over one local connection (reference/transport/local_connection.h) for each thread that calls the engine.
/// The client sends a request, waits for its answer, and only then sends the next one:
///
///     Greeting        ->                    first of all, and once
///                     <-  GreetingAnswer    the server's version; when the versions differ, the connection ends
///                     <-  Busy              in place of all others, at once and unasked: the server has no place for
///                                           this client; the connection ends, and the client may try again later
///     Range           ->                    at any time, holds for the frames behind it
///                     <-  RangeTaken        at once, however busy the readers are
///     Frame           ->                    the pixels lie in memory that both sides see
///                     <-  Readings          none to five
///
/// The pixels are rows of width * 3 bytes, blue, green, red, top down, without gaps, from the memory's first byte on. A
/// frame either brings memory along with its message or lies in that which an earlier frame of the connection brought.
/// Until the answer is there the memory belongs to the server.
///
/// A message is never split or joined. All numbers are little-endian, signed ones in two's complement:
///
///     offset  width
///          0      4  kind
///          4      4  size of the whole message in bytes
///          8      8  number of the request; an answer has that of its request, Busy has 0
///         16         contents, by kind:
///
///     Greeting 1, GreetingAnswer 2:   8 bytes mark "VXL-READ", u32 version, u32 zero
///     Range 3:                        i32 minimum, i32 maximum
///     RangeTaken 4:                   nothing
///     Frame 5:                        u32 width, u32 height, u32 flags (1: brings memory, 2: has a region), u32 zero,
///                                     i32 left, top, right, bottom of the region, zeros without one
///     Readings 6:                     u32 count, u32 zero, and for each reading 56 bytes: text of 16 bytes with NULs
///                                     behind it, f64 confidence, i32 x and y of four corners
///     Busy 7:                         nothing; of any version, since it comes before the versions are known
///
/// Whoever receives anything else, or another kind than it waits for, ends the connection without a word.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace transport {

inline constexpr std::uint32_t protocolVersion = 1;

inline constexpr std::uint32_t bytesPerPixel = 3;
inline constexpr std::uint32_t largestSide = 16384;                             ///< pixels
inline constexpr std::uint64_t largestPictureBytes = std::uint64_t{256} << 20;  ///< of all rows
inline constexpr std::size_t mostReadings = 5;
inline constexpr std::size_t longestText = 15;  ///< bytes, not counting the NUL behind them

/// How long a client waits for the answer to a frame; an answer behind it is for nobody.
inline constexpr std::chrono::milliseconds longestFrame{2000};

inline constexpr std::size_t largestMessageBytes = 16 + 8 + mostReadings * 56;

/// Of any version.
struct Greeting {
    std::uint32_t version = protocolVersion;
    bool operator==(const Greeting&) const = default;
};

struct GreetingAnswer {
    std::uint32_t version = protocolVersion;
    bool operator==(const GreetingAnswer&) const = default;
};

/// Plate widths in pixels, as the engine's caller gave them.
struct Range {
    std::int32_t minimum = 0;
    std::int32_t maximum = 0;
    bool operator==(const Range&) const = default;
};

struct RangeTaken {
    bool operator==(const RangeTaken&) const = default;
};

/// In pixels; right and bottom lie outside. Not empty, and inside its picture.
struct Region {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
    bool operator==(const Region&) const = default;
};

/// Sides of 1 to largestSide, and at most largestPictureBytes.
struct Frame {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool bringsMemory = false;
    std::optional<Region> region;
    bool operator==(const Frame&) const = default;
};

struct Corner {
    std::int32_t x = 0;
    std::int32_t y = 0;
    bool operator==(const Corner&) const = default;
};

struct Reading {
    std::string text;               ///< 1 to longestText bytes, none of them NUL
    double confidence = 0;          ///< 0 to 100
    std::array<Corner, 4> corners;  ///< top left, bottom left, top right, bottom right
    bool operator==(const Reading&) const = default;
};

/// At most mostReadings.
struct Readings {
    std::vector<Reading> readings;
    bool operator==(const Readings&) const = default;
};

/// Of any version.
struct Busy {
    bool operator==(const Busy&) const = default;
};

using Contents = std::variant<Greeting, GreetingAnswer, Range, RangeTaken, Frame, Readings, Busy>;

struct Message {
    std::uint64_t number = 0;
    Contents contents;
    bool operator==(const Message&) const = default;
};

/// Whether the contents keep to what is said above of their kind.
bool IsSound(const Contents& contents);

/// The bytes of a picture of these sides.
std::uint64_t PictureBytes(std::uint32_t width, std::uint32_t height);

/// Throws std::invalid_argument for contents that are not sound.
std::vector<std::uint8_t> Encode(const Message& message);

/// Nothing for bytes that are no sound message, whatever they are. What it answers is encoded by the same bytes.
std::optional<Message> Decode(std::span<const std::uint8_t> bytes);

}  // namespace transport
