#include "reference/transport/messages.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <type_traits>

namespace transport {

namespace {

constexpr std::size_t headerBytes = 16;
constexpr std::size_t sizeOffset = 4;
constexpr std::size_t textBytes = longestText + 1;
constexpr std::array<std::uint8_t, 8> mark = {'V', 'X', 'L', '-', 'R', 'E', 'A', 'D'};

constexpr std::uint32_t bringsMemoryFlag = 1;
constexpr std::uint32_t hasRegionFlag = 2;

enum class Kind : std::uint32_t {
    Greeting = 1,
    GreetingAnswer = 2,
    Range = 3,
    RangeTaken = 4,
    Frame = 5,
    Readings = 6,
    Busy = 7,
};

// Writing

class Writer {
  public:
    void U32(std::uint32_t value) { Number(value); }
    void I32(std::int32_t value) { Number(static_cast<std::uint32_t>(value)); }
    void U64(std::uint64_t value) { Number(value); }
    void F64(double value) { Number(std::bit_cast<std::uint64_t>(value)); }
    void Bytes(std::span<const std::uint8_t> values) { bytes.insert(bytes.end(), values.begin(), values.end()); }
    void Text(const std::string& text) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.insert(bytes.end(), textBytes - text.size(), 0);
    }

    std::vector<std::uint8_t> bytes;

  private:
    template <class Unsigned>
    void Number(Unsigned value) {
        for (std::size_t byte = 0; byte < sizeof value; ++byte) {
            bytes.push_back(static_cast<std::uint8_t>(value >> (8 * byte)));
        }
    }
};

void WriteGreeting(Writer& writer, std::uint32_t version) {
    writer.Bytes(mark);
    writer.U32(version);
    writer.U32(0);
}

void Write(Writer& writer, const Greeting& greeting) {
    WriteGreeting(writer, greeting.version);
}

void Write(Writer& writer, const GreetingAnswer& greeting) {
    WriteGreeting(writer, greeting.version);
}

void Write(Writer& writer, const Range& range) {
    writer.I32(range.minimum);
    writer.I32(range.maximum);
}

void Write(Writer&, const RangeTaken&) {}

void Write(Writer& writer, const Frame& frame) {
    writer.U32(frame.width);
    writer.U32(frame.height);
    writer.U32((frame.bringsMemory ? bringsMemoryFlag : 0) | (frame.region ? hasRegionFlag : 0));
    writer.U32(0);
    const Region region = frame.region.value_or(Region());
    writer.I32(region.left);
    writer.I32(region.top);
    writer.I32(region.right);
    writer.I32(region.bottom);
}

void Write(Writer& writer, const Readings& readings) {
    writer.U32(static_cast<std::uint32_t>(readings.readings.size()));
    writer.U32(0);
    for (const Reading& reading : readings.readings) {
        writer.Text(reading.text);
        writer.F64(reading.confidence);
        for (const Corner& corner : reading.corners) {
            writer.I32(corner.x);
            writer.I32(corner.y);
        }
    }
}

void Write(Writer&, const Busy&) {}

template <class Contents>
constexpr Kind KindOf() {
    if constexpr (std::is_same_v<Contents, Greeting>) {
        return Kind::Greeting;
    } else if constexpr (std::is_same_v<Contents, GreetingAnswer>) {
        return Kind::GreetingAnswer;
    } else if constexpr (std::is_same_v<Contents, Range>) {
        return Kind::Range;
    } else if constexpr (std::is_same_v<Contents, RangeTaken>) {
        return Kind::RangeTaken;
    } else if constexpr (std::is_same_v<Contents, Frame>) {
        return Kind::Frame;
    } else if constexpr (std::is_same_v<Contents, Readings>) {
        return Kind::Readings;
    } else {
        static_assert(std::is_same_v<Contents, Busy>);
        return Kind::Busy;
    }
}

// Reading

// Reads from the front. Behind the last byte everything reads as 0 and the reader remembers it.
class Reader {
  public:
    explicit Reader(std::span<const std::uint8_t> bytes) : rest(bytes) {}

    std::uint32_t U32() { return Number<std::uint32_t>(); }
    std::int32_t I32() { return static_cast<std::int32_t>(Number<std::uint32_t>()); }
    std::uint64_t U64() { return Number<std::uint64_t>(); }
    double F64() { return std::bit_cast<double>(Number<std::uint64_t>()); }

    void Expect(std::span<const std::uint8_t> wanted) {
        const auto taken = Take(wanted.size());
        isRight = isRight && std::equal(taken.begin(), taken.end(), wanted.begin(), wanted.end());
    }
    void ExpectZero() { isRight = U32() == 0 && isRight; }

    std::string Text() {
        const auto taken = Take(textBytes);
        const auto end = std::find(taken.begin(), taken.end(), 0);
        isRight = isRight && std::all_of(end, taken.end(), [](std::uint8_t byte) { return byte == 0; });
        return std::string(taken.begin(), end);
    }

    /// True when everything was as it must be and nothing is left.
    bool EndsHere() const { return isRight && rest.empty(); }

  private:
    std::span<const std::uint8_t> Take(std::size_t count) {
        if (count > rest.size()) {
            isRight = false;
            rest = {};
            return {};
        }
        const auto taken = rest.first(count);
        rest = rest.subspan(count);
        return taken;
    }

    template <class Unsigned>
    Unsigned Number() {
        Unsigned value = 0;
        std::size_t byte = 0;
        for (const std::uint8_t taken : Take(sizeof value)) {
            value |= static_cast<Unsigned>(taken) << (8 * byte++);
        }
        return value;
    }

    std::span<const std::uint8_t> rest;
    bool isRight = true;
};

template <class AnyGreeting>
AnyGreeting ReadGreeting(Reader& reader) {
    AnyGreeting greeting;
    reader.Expect(mark);
    greeting.version = reader.U32();
    reader.ExpectZero();
    return greeting;
}

Range ReadRange(Reader& reader) {
    Range range;
    range.minimum = reader.I32();
    range.maximum = reader.I32();
    return range;
}

std::optional<Frame> ReadFrame(Reader& reader) {
    Frame frame;
    frame.width = reader.U32();
    frame.height = reader.U32();
    const std::uint32_t flags = reader.U32();
    if ((flags & ~(bringsMemoryFlag | hasRegionFlag)) != 0) {
        return std::nullopt;
    }
    frame.bringsMemory = (flags & bringsMemoryFlag) != 0;
    reader.ExpectZero();
    Region region;
    region.left = reader.I32();
    region.top = reader.I32();
    region.right = reader.I32();
    region.bottom = reader.I32();
    if ((flags & hasRegionFlag) != 0) {
        frame.region = region;
    } else if (region != Region()) {
        return std::nullopt;
    }
    return frame;
}

std::optional<Readings> ReadReadings(Reader& reader) {
    const std::uint32_t count = reader.U32();
    reader.ExpectZero();
    if (count > mostReadings) {
        return std::nullopt;
    }
    Readings readings;
    readings.readings.resize(count);
    for (Reading& reading : readings.readings) {
        reading.text = reader.Text();
        reading.confidence = reader.F64();
        for (Corner& corner : reading.corners) {
            corner.x = reader.I32();
            corner.y = reader.I32();
        }
    }
    return readings;
}

std::optional<Contents> ReadContents(Kind kind, Reader& reader) {
    switch (kind) {
        case Kind::Greeting:
            return ReadGreeting<Greeting>(reader);
        case Kind::GreetingAnswer:
            return ReadGreeting<GreetingAnswer>(reader);
        case Kind::Range:
            return ReadRange(reader);
        case Kind::RangeTaken:
            return RangeTaken();
        case Kind::Frame:
            return ReadFrame(reader);
        case Kind::Readings:
            return ReadReadings(reader);
        case Kind::Busy:
            return Busy();
    }
    return std::nullopt;
}

// What is sound

bool IsInside(const Region& region, std::uint32_t width, std::uint32_t height) {
    return 0 <= region.left && region.left < region.right && region.right <= static_cast<std::int64_t>(width) &&
           0 <= region.top && region.top < region.bottom && region.bottom <= static_cast<std::int64_t>(height);
}

bool IsSound(const Frame& frame) {
    return frame.width >= 1 && frame.width <= largestSide && frame.height >= 1 && frame.height <= largestSide &&
           PictureBytes(frame.width, frame.height) <= largestPictureBytes &&
           (!frame.region || IsInside(*frame.region, frame.width, frame.height));
}

bool IsSound(const Reading& reading) {
    return !reading.text.empty() && reading.text.size() <= longestText &&
           reading.text.find('\0') == std::string::npos && reading.confidence >= 0 && reading.confidence <= 100;
}

bool IsSound(const Readings& readings) {
    return readings.readings.size() <= mostReadings &&
           std::all_of(readings.readings.begin(), readings.readings.end(),
                       [](const Reading& reading) { return IsSound(reading); });
}

}  // namespace

bool IsSound(const Contents& contents) {
    if (const auto* frame = std::get_if<Frame>(&contents)) {
        return IsSound(*frame);
    }
    if (const auto* readings = std::get_if<Readings>(&contents)) {
        return IsSound(*readings);
    }
    return true;
}

std::uint64_t PictureBytes(std::uint32_t width, std::uint32_t height) {
    // Sides beyond the largest might not fit.
    const std::uint64_t row = std::uint64_t{width} * bytesPerPixel;
    return height != 0 && row > UINT64_MAX / height ? UINT64_MAX : row * height;
}

std::vector<std::uint8_t> Encode(const Message& message) {
    if (!IsSound(message.contents)) {
        throw std::invalid_argument("no sound message");
    }
    Writer writer;
    std::visit(
        [&](const auto& contents) {
            writer.U32(static_cast<std::uint32_t>(KindOf<std::remove_cvref_t<decltype(contents)>>()));
            writer.U32(0);  // the size
            writer.U64(message.number);
            Write(writer, contents);
        },
        message.contents);
    Writer size;
    size.U32(static_cast<std::uint32_t>(writer.bytes.size()));
    std::copy(size.bytes.begin(), size.bytes.end(), writer.bytes.begin() + sizeOffset);
    return std::move(writer.bytes);
}

std::optional<Message> Decode(std::span<const std::uint8_t> bytes) {
    if (bytes.size() < headerBytes || bytes.size() > largestMessageBytes) {
        return std::nullopt;
    }
    Reader reader(bytes);
    const auto kind = static_cast<Kind>(reader.U32());
    const std::uint32_t size = reader.U32();
    Message message;
    message.number = reader.U64();
    std::optional<Contents> contents = ReadContents(kind, reader);
    if (!contents || size != bytes.size() || !reader.EndsHere() || !IsSound(*contents)) {
        return std::nullopt;
    }
    message.contents = std::move(*contents);
    return message;
}

}  // namespace transport
