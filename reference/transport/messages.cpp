#include "reference/transport/messages.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace transport {

namespace {

struct Header {
    std::uint32_t kind = 0;
    std::uint32_t size = 0;
    std::uint64_t number = 0;
};

static_assert(std::endian::native == std::endian::little);
static_assert(sizeof(Header) == 16 && sizeof(Greeting) == 16 && sizeof(GreetingReply) == 16 && sizeof(Range) == 8 &&
              sizeof(Frame) == 24 && sizeof(Reading) == 64 && sizeof(Readings) == 8 + maxReadings * 64);

// An empty structure has one byte in memory, and none in a message.
template <class Kind>
constexpr std::size_t bytesOf = std::is_empty_v<Kind> ? 0 : sizeof(Kind);

template <std::size_t index>
bool ReadAs(std::span<const std::uint8_t> bytes, Contents& contents) {
    using Kind = std::variant_alternative_t<index, Contents>;
    static_assert(std::is_trivially_copyable_v<Kind>);
    if (bytes.size() != bytesOf<Kind>) {
        return false;
    }
    std::memcpy(&contents.emplace<index>(), bytes.data(), bytesOf<Kind>);
    return true;
}

template <std::size_t... indexes>
bool Read(std::uint32_t kind, std::span<const std::uint8_t> bytes, Contents& contents,
          std::index_sequence<indexes...>) {
    return ((kind == indexes + 1 && ReadAs<indexes>(bytes, contents)) || ...);
}

bool IsValidGreeting(const Greeting& greeting) {
    return greeting.magic == Greeting().magic && greeting.zero == 0;
}

bool IsInside(const Region& region, const Frame& frame) {
    return 0 <= region.left && region.left < region.right && region.right <= std::int64_t{frame.width} &&
           0 <= region.top && region.top < region.bottom && region.bottom <= std::int64_t{frame.height};
}

bool IsValidFrame(const Frame& frame) {
    return frame.width >= 1 && frame.width <= maxSide && frame.height >= 1 && frame.height <= maxSide &&
           PictureBytes(frame.width, frame.height) <= maxPictureBytes &&
           (frame.region == Region() || IsInside(frame.region, frame));
}

bool IsValidCountry(const char (&country)[8]) {
    constexpr std::size_t length = 3;
    const bool isGiven = country[0] != '\0';
    const char* const end = country + (isGiven ? length : 0);
    return std::all_of(country, end, [](char letter) { return 'A' <= letter && letter <= 'Z'; }) &&
           std::all_of(end, std::end(country), [](char letter) { return letter == '\0'; });
}

bool IsValidReading(const Reading& reading) {
    const char* const end = std::find(reading.text, std::end(reading.text), '\0');
    return end != reading.text && end != std::end(reading.text) &&
           std::all_of(end, std::end(reading.text), [](char letter) { return letter == '\0'; }) &&
           reading.confidence >= 0 && reading.confidence <= 100 && IsValidCountry(reading.country);
}

bool AreValidReadings(const Readings& readings) {
    if (readings.count > maxReadings || readings.zero != 0) {
        return false;
    }
    const auto end = readings.readings.begin() + readings.count;
    return std::all_of(readings.readings.begin(), end, IsValidReading) &&
           std::all_of(end, readings.readings.end(), [none = Reading()](const Reading& reading) {
               return std::memcmp(&reading, &none, sizeof reading) == 0;
           });
}

}  // namespace

bool IsValid(const Contents& contents) {
    if (const auto* const greeting = std::get_if<Greeting>(&contents)) {
        return IsValidGreeting(*greeting);
    }
    if (const auto* const greeting = std::get_if<GreetingReply>(&contents)) {
        return IsValidGreeting(*greeting);
    }
    if (const auto* const frame = std::get_if<Frame>(&contents)) {
        return IsValidFrame(*frame);
    }
    if (const auto* const readings = std::get_if<Readings>(&contents)) {
        return AreValidReadings(*readings);
    }
    return true;
}

std::uint64_t PictureBytes(std::uint32_t width, std::uint32_t height) {
    // The dimensions may exceed the limits, so the product may overflow.
    const std::uint64_t row = std::uint64_t{width} * bytesPerPixel;
    return height != 0 && row > UINT64_MAX / height ? UINT64_MAX : row * height;
}

std::vector<std::uint8_t> Encode(const Message& message) {
    if (!IsValid(message.contents)) {
        throw std::invalid_argument("invalid message");
    }
    return std::visit(
        [&message]<class Kind>(const Kind& contents) {
            std::vector<std::uint8_t> bytes(sizeof(Header) + bytesOf<Kind>);
            const Header header = {static_cast<std::uint32_t>(message.contents.index() + 1),
                                   static_cast<std::uint32_t>(bytes.size()), message.number};
            std::memcpy(bytes.data(), &header, sizeof header);
            std::memcpy(bytes.data() + sizeof header, &contents, bytesOf<Kind>);
            return bytes;
        },
        message.contents);
}

std::optional<Message> Decode(std::span<const std::uint8_t> bytes) {
    Header header;
    if (bytes.size() < sizeof header) {
        return std::nullopt;
    }
    std::memcpy(&header, bytes.data(), sizeof header);
    Message message = {header.number, {}};
    constexpr auto allKinds = std::make_index_sequence<std::variant_size_v<Contents>>();
    if (header.size != bytes.size() || !Read(header.kind, bytes.subspan(sizeof header), message.contents, allKinds) ||
        !IsValid(message.contents)) {
        return std::nullopt;
    }
    return message;
}

}  // namespace transport
