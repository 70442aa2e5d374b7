#include "reference/engine/client.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>
#include <utility>
#include <variant>

namespace engine_client {

namespace {

bool IsReadable(const IMG* image) {
    return image != nullptr && image->pixels != nullptr && image->bytesPerPixel == transport::bytesPerPixel &&
           image->rowStride >= std::uint64_t{image->width} * transport::bytesPerPixel;
}

transport::Region InsidePicture(const tagRECT& region, const IMG& image) {
    const auto width = static_cast<std::int32_t>(image.width);
    const auto height = static_cast<std::int32_t>(image.height);
    return {std::clamp(region.left, 0, width), std::clamp(region.top, 0, height), std::clamp(region.right, 0, width),
            std::clamp(region.bottom, 0, height)};
}

RPLATE RecordOf(const transport::Reading& reading) {
    RPLATE plate = {};
    const std::size_t length = std::strlen(reading.text);
    std::copy_n(reading.text, length, plate.text);
    SetConfidenceSum(plate, reading.confidence * static_cast<double>(length));
    EngineCorner* const corners[] = {&plate.corner1, &plate.corner2, &plate.corner3, &plate.corner4};
    for (std::size_t corner = 0; corner < reading.corners.size(); ++corner) {
        *corners[corner] = {reading.corners[corner].x, reading.corners[corner].y};
    }
    return plate;
}

}  // namespace

static_assert(transport::mostReadings == engineRecordCount && transport::longestText < sizeof RPLATE::text);

Client::Client(std::string name) : name_(std::move(name)) {}

bool Client::SetRange(std::int32_t minimum, std::int32_t maximum) {
    const transport::Deadline start = transport::Clock::now();
    const transport::Deadline deadline = start + longestRange;
    range_ = transport::Range{minimum, maximum};
    if (connection_ && GiveRange(deadline)) {
        return true;
    }
    for (;;) {
        // Connect also sends the range.
        const Attempt attempt = Connect(deadline);
        if (attempt == Attempt::Connected) {
            return true;
        }
        const bool isBusy = attempt == Attempt::Busy;
        const auto pause = isBusy ? busyPause : connectingPause;
        if (transport::Clock::now() + pause >= (isBusy ? start + longestBusy : deadline)) {
            return isBusy;
        }
        std::this_thread::sleep_for(pause);
    }
}

int Client::Recognise(const IMG* image, const tagRECT* region, RPLATE* plates) {
    if (!IsReadable(image) || plates == nullptr) {
        return 0;
    }
    transport::Frame frame = {image->width, image->height, {}};
    if (!transport::IsValid(frame)) {
        return 0;
    }
    if (region != nullptr) {
        frame.region = InsidePicture(*region, *image);
        if (frame.region == transport::Region() || !transport::IsValid(frame)) {
            return 0;
        }
    }
    const transport::Deadline now = transport::Clock::now();
    if (!connection_ && (now < nextFrame_ || Connect(now + longestConnecting) != Attempt::Connected)) {
        return 0;
    }
    const transport::Deadline deadline = transport::Clock::now() + transport::longestFrame;
    const auto answer = Ask<transport::Readings>(frame, deadline, PixelsOf(*image));
    if (!answer) {
        return 0;
    }
    std::transform(answer->readings.begin(), answer->readings.begin() + answer->count, plates, RecordOf);
    return static_cast<int>(answer->count);
}

// Opens a connection and sends the greeting and the range, if there is one.
Client::Attempt Client::Connect(transport::Deadline deadline) {
    isServerBusy_ = false;
    bool isConnected = false;
    try {
        connection_ = transport::Connection::Open(name_);
        isConnected = connection_ && Greet(deadline) && (!range_ || GiveRange(deadline));
    } catch (const std::exception&) {
        // This process lacks a resource, which a new server would not change.
        isServerBusy_ = true;
    }
    if (isServerBusy_) {
        nextFrame_ = transport::Clock::now() + busyPause;
        return Attempt::Busy;
    }
    return isConnected ? Attempt::Connected : Attempt::Failed;
}

// REQUIRES: a connection.
bool Client::Greet(transport::Deadline deadline) {
    const auto greeting = Ask<transport::GreetingAnswer>(transport::Greeting(), deadline);
    if (greeting && greeting->version != transport::protocolVersion) {
        connection_.reset();
    }
    return connection_.has_value();
}

// REQUIRES: a connection and a range.
bool Client::GiveRange(transport::Deadline deadline) {
    return Ask<transport::RangeTaken>(*range_, deadline).has_value();
}

std::span<const std::uint8_t> Client::PixelsOf(const IMG& image) {
    const std::size_t row = std::size_t{image.width} * transport::bytesPerPixel;
    if (image.rowStride == row) {
        return {image.pixels, row * image.height};
    }
    rows_.resize(row * image.height);
    for (std::size_t y = 0; y < image.height; ++y) {
        std::copy_n(image.pixels + y * image.rowStride, row, rows_.begin() + static_cast<std::ptrdiff_t>(y * row));
    }
    return rows_;
}

// Closes the connection unless the expected reply arrives in time. REQUIRES: a connection.
template <class Answer>
std::optional<Answer> Client::Ask(const transport::Contents& question, transport::Deadline deadline,
                                  std::span<const std::uint8_t> pixels) {
    const std::uint64_t number = ++requests_;
    transport::Connection asked = std::move(*connection_);
    connection_.reset();
    const bool isAsked =
        asked.Send(transport::Encode({number, question}), deadline) && (pixels.empty() || asked.Send(pixels, deadline));
    // A busy server may have closed the connection already, but it has sent its message first.
    std::array<std::uint8_t, transport::largestMessageBytes> received;
    const std::size_t size = asked.Receive(received, deadline);
    const std::optional<transport::Message> message = transport::Decode(std::span(received).first(size));
    if (!message) {
        return std::nullopt;
    }
    const auto* const answer = std::get_if<Answer>(&message->contents);
    if (isAsked && answer != nullptr && message->number == number) {
        connection_ = std::move(asked);
        return *answer;
    }
    isServerBusy_ = std::holds_alternative<transport::Greeting>(question) && message->number == 0 &&
                    std::holds_alternative<transport::Busy>(message->contents);
    return std::nullopt;
}

}  // namespace engine_client
