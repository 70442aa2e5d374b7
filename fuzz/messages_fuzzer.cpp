// Checks that any bytes are decoded correctly or refused, and that encoded contents are decoded unchanged.

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

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

// Compares a decoded frame with its bytes, which are read here at fixed offsets.
void CheckFrame(Bytes bytes, const transport::Frame& frame) {
    const auto edgeAt = [bytes](std::size_t offset) { return static_cast<std::int32_t>(NumberAt(bytes, offset)); };
    const transport::Region region = {edgeAt(24), edgeAt(28), edgeAt(32), edgeAt(36)};
    if (bytes.size() != 40 || frame.width != NumberAt(bytes, 16) || frame.height != NumberAt(bytes, 20) ||
        frame.region != region) {
        Fail(bytes, "a frame that differs from its bytes");
    }
    if (frame.width < 1 || frame.width > 16384 || frame.height < 1 || frame.height > 16384 ||
        std::uint64_t{frame.width} * frame.height * 3 > (256u << 20)) {
        Fail(bytes, "a frame that is too large");
    }
    if (region != transport::Region() &&
        (region.left < 0 || region.top < 0 || region.left >= region.right || region.top >= region.bottom ||
         std::int64_t{region.right} > frame.width || std::int64_t{region.bottom} > frame.height)) {
        Fail(bytes, "a region outside its picture");
    }
}

void CheckReadings(Bytes bytes, const transport::Readings& readings) {
    if (readings.count > 5 || bytes.size() != 24 + 5 * 64 || readings.count != NumberAt(bytes, 16)) {
        Fail(bytes, "a wrong number of readings");
    }
    for (const transport::Reading& reading : std::span(readings.readings).first(readings.count)) {
        const std::string_view text(reading.text, sizeof reading.text);
        if (text.find('\0') < 1 || text.find('\0') > 15 ||
            text.find_first_not_of('\0', text.find('\0')) != std::string_view::npos) {
            Fail(bytes, "an invalid text");
        }
        if (!(reading.confidence >= 0 && reading.confidence <= 100)) {
            Fail(bytes, "a confidence beyond its limits");
        }
        const std::string_view country(reading.country, sizeof reading.country);
        const std::size_t length = country.find('\0') == 0 ? 0 : 3;
        if (country.substr(0, length).find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") != std::string_view::npos ||
            country.find_first_not_of('\0', length) != std::string_view::npos) {
            Fail(bytes, "a country that is no code");
        }
    }
    if (std::ranges::count(bytes.subspan(24 + readings.count * 64), 0) !=
        static_cast<std::ptrdiff_t>(5 - readings.count) * 64) {
        Fail(bytes, "data after the last reading");
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
        Fail(bytes, "a header that differs from its bytes");
    }
    if (const auto* const frame = std::get_if<transport::Frame>(&message->contents)) {
        CheckFrame(bytes, *frame);
    }
    if (const auto* const readings = std::get_if<transport::Readings>(&message->contents)) {
        CheckReadings(bytes, *readings);
    }
    if (!std::ranges::equal(transport::Encode(*message), bytes)) {
        Fail(bytes, "encoding does not restore the bytes");
    }
}

transport::Contents MakeContents(fuzz::Input& input) {
    switch (input.Take<std::uint8_t>() % 7) {
        case 0:
            return transport::Greeting{.version = input.Take<std::uint32_t>()};
        case 1:
            return transport::GreetingReply{{.version = input.Take<std::uint32_t>()}};
        case 2:
            return input.Take<transport::Range>();
        case 3:
            return transport::RangeAccepted();
        case 4: {
            transport::Frame frame;
            frame.width = input.Take<std::uint16_t>();
            frame.height = input.Take<std::uint16_t>();
            if (input.OneIn(2)) {
                frame.region = {input.Take<std::int16_t>(), input.Take<std::int16_t>(), input.Take<std::int16_t>(),
                                input.Take<std::int16_t>()};
            }
            return frame;
        }
        case 5:
            return transport::Busy();
        default: {
            transport::Readings readings;
            readings.count = input.Below(7);
            for (std::size_t index = 0; index < std::min<std::size_t>(readings.count, 5); ++index) {
                transport::Reading& reading = readings.readings[index];
                std::generate_n(reading.text, input.Below(17), [&] { return input.Take<char>(); });
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
    if (transport::IsValid(message.contents) && transport::Decode(transport::Encode(message)) != message) {
        Fail(bytes, "decoding does not restore the message");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckDecoding({data, size});
    CheckEncoding({data, size});
    return 0;
}
