/// The protocol between the engine, as the client, and the recognition server.
///
/// Each thread that calls the engine has one local connection (reference/transport/local_connection.h). The client
/// sends a request, waits for its reply, and only then sends the next one:
///
///     Greeting        ->                    first, and once
///                     <-  GreetingReply     the server's version; when the versions differ, the connection ends
///                     <-  Busy              instead of all replies, at once and without a request: the server has no
///                                           place for this client; the connection ends, the client may try again later
///     Range           ->                    at any time, applies to the frames after it
///                     <-  RangeAccepted     at once, even if all readers are busy
///     Frame, pixels   ->
///                     <-  Readings          zero to five
///
/// The pixels are rows of width * 3 bytes, blue, green, red, top down, without padding. They follow their message in as
/// many packets as needed. A message is one packet, and all its numbers are little-endian:
///
///     offset  width
///          0      4  kind, counted from 1 in the order of `Contents`
///          4      4  size of the whole message in bytes
///          8      8  number of the request; a reply has that of its request, Busy has 0
///         16         the structure of that kind as it is in memory; nothing if it is empty
///
/// Header, Greeting, GreetingReply and Busy are the same in every version. A side that receives an invalid message or
/// an unexpected kind closes the connection without a reply.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <variant>
#include <vector>

namespace transport {

inline constexpr std::uint32_t protocolVersion = 3;

inline constexpr std::uint32_t bytesPerPixel = 3;
inline constexpr std::uint32_t maxSide = 16384;                             ///< pixels
inline constexpr std::uint64_t maxPictureBytes = std::uint64_t{256} << 20;  ///< of all rows
inline constexpr std::size_t maxReadings = 5;
inline constexpr std::size_t maxTextLength = 15;  ///< bytes, not counting the NUL after them

/// How long a client waits for the reply to a frame, sending the pixels included; a later reply is discarded.
inline constexpr std::chrono::milliseconds frameTimeout{2000};

struct Greeting {
    std::array<char, 8> magic = {'V', 'X', 'L', '-', 'R', 'E', 'A', 'D'};
    std::uint32_t version = protocolVersion;
    std::uint32_t zero = 0;
    bool operator==(const Greeting&) const = default;
};

struct GreetingReply : Greeting {};

/// Plate widths in pixels, as passed to the engine.
struct Range {
    std::int32_t minimum = 0;
    std::int32_t maximum = 0;
    bool operator==(const Range&) const = default;
};

struct RangeAccepted {
    bool operator==(const RangeAccepted&) const = default;
};

/// In pixels; right and bottom are exclusive.
struct Region {
    std::int32_t left = 0;
    std::int32_t top = 0;
    std::int32_t right = 0;
    std::int32_t bottom = 0;
    bool operator==(const Region&) const = default;
};

/// Width and height of 1 to maxSide, at most maxPictureBytes in total.
struct Frame {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    Region region;  ///< zeros for none; else not empty, and inside the frame
    bool operator==(const Frame&) const = default;
};

struct Corner {
    std::int32_t x = 0;
    std::int32_t y = 0;
    bool operator==(const Corner&) const = default;
};

struct Reading {
    char text[maxTextLength + 1] = {};   ///< 1 to maxTextLength bytes, then NULs
    double confidence = 0;               ///< 0 to 100
    std::array<Corner, 4> corners = {};  ///< top left, bottom left, top right, bottom right
    char country[8] = {};                ///< three capital letters (ISO 3166-1 alpha-3) or none, then NULs
    bool operator==(const Reading&) const = default;
};

struct Readings {
    std::uint32_t count = 0;
    std::uint32_t zero = 0;
    std::array<Reading, maxReadings> readings = {};  ///< zeros from `count` on
    bool operator==(const Readings&) const = default;
};

struct Busy {
    bool operator==(const Busy&) const = default;
};

/// In the order of their kinds.
using Contents = std::variant<Greeting, GreetingReply, Range, RangeAccepted, Frame, Readings, Busy>;

struct Message {
    std::uint64_t number = 0;
    Contents contents;
    bool operator==(const Message&) const = default;
};

inline constexpr std::size_t maxMessageBytes = 16 + sizeof(Readings);

/// Returns true when the contents are within the limits of their kind.
bool IsValid(const Contents& contents);

/// Returns the size in bytes of a frame of these dimensions; the maximum of the type when it does not fit.
std::uint64_t PictureBytes(std::uint32_t width, std::uint32_t height);

/// Throws std::invalid_argument for invalid contents.
std::vector<std::uint8_t> Encode(const Message& message);

/// Returns nothing for bytes that are not a valid message. Encoding the result produces the same bytes.
std::optional<Message> Decode(std::span<const std::uint8_t> bytes);

}  // namespace transport
