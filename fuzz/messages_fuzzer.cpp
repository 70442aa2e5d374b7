// Whether the decoder keeps its word about any bytes, and the encoder about any contents.

#include <algorithm>
#include <array>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "tools/wire/messages.h"

namespace {

using Bytes = std::span<const std::uint8_t>;

[[noreturn]] void Fail(Bytes bytes, const char* what) {
    std::fprintf(stderr, "%s:\n{", what);
    for (const std::uint8_t byte : bytes) {
        std::fprintf(stderr, "0x%02x, ", static_cast<unsigned>(byte));
    }
    std::fprintf(stderr, "}\n");
    std::abort();
}

std::uint32_t NumberAt(Bytes bytes, std::size_t offset) {
    std::uint32_t number = 0;
    for (std::size_t byte = 0; byte < sizeof number; ++byte) {
        number |= std::uint32_t{bytes[offset + byte]} << (8 * byte);
    }
    return number;
}

// What is decoded must be what its bytes say, told here from the offsets alone.
void CheckFrame(Bytes bytes, const wire::Frame& frame) {
    if (bytes.size() != 48 || frame.width != NumberAt(bytes, 16) || frame.height != NumberAt(bytes, 20) ||
        frame.bringsMemory != ((bytes[24] & 1) != 0) || frame.region.has_value() != ((bytes[24] & 2) != 0)) {
        Fail(bytes, "another frame");
    }
    if (frame.width < 1 || frame.width > 16384 || frame.height < 1 || frame.height > 16384 ||
        std::uint64_t{frame.width} * frame.height * 3 > (256u << 20)) {
        Fail(bytes, "a frame that is too large");
    }
    if (frame.region && (frame.region->left < 0 || frame.region->top < 0 || frame.region->left >= frame.region->right ||
                         frame.region->top >= frame.region->bottom || std::int64_t{frame.region->right} > frame.width ||
                         std::int64_t{frame.region->bottom} > frame.height)) {
        Fail(bytes, "a region outside its picture");
    }
}

void CheckReadings(Bytes bytes, const wire::Readings& readings) {
    if (readings.readings.size() > 5 || bytes.size() != 24 + readings.readings.size() * 56 ||
        readings.readings.size() != NumberAt(bytes, 16)) {
        Fail(bytes, "another number of readings");
    }
    for (const wire::Reading& reading : readings.readings) {
        if (reading.text.empty() || reading.text.size() > 15 ||
            std::strlen(reading.text.c_str()) != reading.text.size()) {
            Fail(bytes, "a text that is none");
        }
        if (!(reading.confidence >= 0 && reading.confidence <= 100)) {
            Fail(bytes, "a confidence beyond its limits");
        }
    }
}

void CheckDecoding(Bytes bytes) {
    const std::optional<wire::Message> message = wire::Decode(bytes);
    if (!message) {
        return;
    }
    if (bytes.size() < 16 || NumberAt(bytes, 4) != bytes.size() ||
        message->number != (std::uint64_t{NumberAt(bytes, 12)} << 32 | NumberAt(bytes, 8)) ||
        message->contents.index() + 1 != NumberAt(bytes, 0)) {
        Fail(bytes, "another message");
    }
    if (const auto* const frame = std::get_if<wire::Frame>(&message->contents)) {
        CheckFrame(bytes, *frame);
    }
    if (const auto* const readings = std::get_if<wire::Readings>(&message->contents)) {
        CheckReadings(bytes, *readings);
    }
    if (!std::ranges::equal(wire::Encode(*message), bytes)) {
        Fail(bytes, "the same message has other bytes");
    }
}

/// Takes values from the input for as long as it lasts.
class Source {
  public:
    explicit Source(Bytes bytes) : rest(bytes) {}

    template <class Value>
    Value Take() {
        std::array<std::uint8_t, sizeof(Value)> bytes = {};
        const std::size_t count = std::min(bytes.size(), rest.size());
        std::copy_n(rest.begin(), count, bytes.begin());
        rest = rest.subspan(count);
        return std::bit_cast<Value>(bytes);
    }

  private:
    Bytes rest;
};

wire::Contents MakeContents(Source& source) {
    switch (source.Take<std::uint8_t>() % 6) {
        case 0:
            return wire::Greeting{source.Take<std::uint32_t>()};
        case 1:
            return wire::GreetingAnswer{source.Take<std::uint32_t>()};
        case 2:
            return source.Take<wire::Range>();
        case 3:
            return wire::RangeTaken();
        case 4: {
            wire::Frame frame;
            frame.width = source.Take<std::uint16_t>();
            frame.height = source.Take<std::uint16_t>();
            const auto flags = source.Take<std::uint8_t>();
            frame.bringsMemory = (flags & 1) != 0;
            if ((flags & 2) != 0) {
                frame.region = {source.Take<std::int16_t>(), source.Take<std::int16_t>(), source.Take<std::int16_t>(),
                                source.Take<std::int16_t>()};
            }
            return frame;
        }
        default: {
            wire::Readings readings;
            readings.readings.resize(source.Take<std::uint8_t>() % 7);
            for (wire::Reading& reading : readings.readings) {
                reading.text.resize(source.Take<std::uint8_t>() % 18);
                std::ranges::generate(reading.text, [&] { return source.Take<char>(); });
                reading.confidence = source.Take<double>();
                reading.corners = source.Take<std::array<wire::Corner, 4>>();
            }
            return readings;
        }
    }
}

void CheckEncoding(Bytes bytes) {
    Source source(bytes);
    const wire::Message message = {source.Take<std::uint64_t>(), MakeContents(source)};
    if (wire::IsSound(message.contents) && wire::Decode(wire::Encode(message)) != message) {
        Fail(bytes, "what was encoded is decoded as another message");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckDecoding({data, size});
    CheckEncoding({data, size});
    return 0;
}
