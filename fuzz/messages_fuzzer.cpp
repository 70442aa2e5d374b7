// Whether any bytes are decoded as what they say or refused, and any contents are encoded as what is decoded again.

#include <algorithm>
#include <array>
#include <cstring>

#include "fuzz/input.h"
#include "reference/transport/messages.h"

namespace {

using fuzz::Bytes;
using fuzz::Fail;

std::uint32_t NumberAt(Bytes bytes, std::size_t offset) {
    std::uint32_t number = 0;
    for (std::size_t byte = 0; byte < sizeof number; ++byte) {
        number |= std::uint32_t{bytes[offset + byte]} << (8 * byte);
    }
    return number;
}

// What is decoded must be what its bytes say, told here from the offsets alone.
void CheckFrame(Bytes bytes, const transport::Frame& frame) {
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

void CheckReadings(Bytes bytes, const transport::Readings& readings) {
    if (readings.readings.size() > 5 || bytes.size() != 24 + readings.readings.size() * 56 ||
        readings.readings.size() != NumberAt(bytes, 16)) {
        Fail(bytes, "another number of readings");
    }
    for (const transport::Reading& reading : readings.readings) {
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
    const std::optional<transport::Message> message = transport::Decode(bytes);
    if (!message) {
        return;
    }
    if (bytes.size() < 16 || NumberAt(bytes, 4) != bytes.size() ||
        message->number != (std::uint64_t{NumberAt(bytes, 12)} << 32 | NumberAt(bytes, 8)) ||
        message->contents.index() + 1 != NumberAt(bytes, 0)) {
        Fail(bytes, "another message");
    }
    if (const auto* const frame = std::get_if<transport::Frame>(&message->contents)) {
        CheckFrame(bytes, *frame);
    }
    if (const auto* const readings = std::get_if<transport::Readings>(&message->contents)) {
        CheckReadings(bytes, *readings);
    }
    if (!std::ranges::equal(transport::Encode(*message), bytes)) {
        Fail(bytes, "the same message has other bytes");
    }
}

transport::Contents MakeContents(fuzz::Input& input) {
    switch (input.Take<std::uint8_t>() % 7) {
        case 0:
            return transport::Greeting{input.Take<std::uint32_t>()};
        case 1:
            return transport::GreetingAnswer{input.Take<std::uint32_t>()};
        case 2:
            return input.Take<transport::Range>();
        case 3:
            return transport::RangeTaken();
        case 4: {
            transport::Frame frame;
            frame.width = input.Take<std::uint16_t>();
            frame.height = input.Take<std::uint16_t>();
            const auto flags = input.Take<std::uint8_t>();
            frame.bringsMemory = (flags & 1) != 0;
            if ((flags & 2) != 0) {
                frame.region = {input.Take<std::int16_t>(), input.Take<std::int16_t>(), input.Take<std::int16_t>(),
                                input.Take<std::int16_t>()};
            }
            return frame;
        }
        case 5:
            return transport::Busy();
        default: {
            transport::Readings readings;
            readings.readings.resize(input.Take<std::uint8_t>() % 7);
            for (transport::Reading& reading : readings.readings) {
                reading.text.resize(input.Take<std::uint8_t>() % 18);
                std::ranges::generate(reading.text, [&] { return input.Take<char>(); });
                reading.confidence = input.Take<double>();
                reading.corners = input.Take<std::array<transport::Corner, 4>>();
            }
            return readings;
        }
    }
}

void CheckEncoding(Bytes bytes) {
    fuzz::Input input(bytes);
    const transport::Message message = {input.Take<std::uint64_t>(), MakeContents(input)};
    if (transport::IsSound(message.contents) && transport::Decode(transport::Encode(message)) != message) {
        Fail(bytes, "what was encoded is decoded as another message");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckDecoding({data, size});
    CheckEncoding({data, size});
    return 0;
}
