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

transport::Region ClampToImage(const tagRECT& region, const IMG& image) {
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
    if (const std::string_view country = reading.country; !country.empty()) {
        SetCountryCode(plate, country);
    }
    return plate;
}

}  // namespace

static_assert(transport::maxReadings == engineRecordCount && transport::maxTextLength < sizeof RPLATE::text);

Client::Client(std::string name) : name_(std::move(name)) {}

bool Client::SetRange(std::int32_t minimum, std::int32_t maximum) {
    const transport::Deadline start = transport::Clock::now();
    const transport::Deadline deadline = start + rangeTimeout;
    range_ = transport::Range{minimum, maximum};
    if (connection_ && SendRange(deadline)) {
        return true;
    }
    for (;;) {
        // Connect also sends the range.
        const Attempt attempt = Connect(deadline);
        if (attempt == Attempt::Connected) {
            return true;
        }
        const bool isBusy = attempt == Attempt::Busy;
        const auto pause = isBusy ? busyInterval : connectInterval;
        if (transport::Clock::now() + pause >= (isBusy ? start + busyTimeout : deadline)) {
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
        frame.region = ClampToImage(*region, *image);
        if (frame.region == transport::Region() || !transport::IsValid(frame)) {
            return 0;
        }
    }
    const transport::Deadline now = transport::Clock::now();
    if (!connection_ && (now < nextAttempt_ || Connect(now + connectTimeout) != Attempt::Connected)) {
        return 0;
    }
    const transport::Deadline deadline = transport::Clock::now() + transport::frameTimeout;
    const auto reply = Exchange<transport::Readings>(frame, deadline, PixelsOf(*image));
    if (!reply) {
        return 0;
    }
    std::transform(reply->readings.begin(), reply->readings.begin() + reply->count, plates, RecordOf);
    return static_cast<int>(reply->count);
}

// Opens a connection and sends the greeting and the range, if there is one.
Client::Attempt Client::Connect(transport::Deadline deadline) {
    isServerBusy_ = false;
    bool isConnected = false;
    try {
        connection_ = transport::Connection::Open(name_);
        isConnected = connection_ && Greet(deadline) && (!range_ || SendRange(deadline));
    } catch (const std::exception&) {
        // This process lacks a resource, which a new server would not change.
        isServerBusy_ = true;
    }
    if (isServerBusy_) {
        nextAttempt_ = transport::Clock::now() + busyInterval;
        return Attempt::Busy;
    }
    return isConnected ? Attempt::Connected : Attempt::Failed;
}

// REQUIRES: a connection.
bool Client::Greet(transport::Deadline deadline) {
    const auto greeting = Exchange<transport::GreetingReply>(transport::Greeting(), deadline);
    if (greeting && greeting->version != transport::protocolVersion) {
        connection_.reset();
    }
    return connection_.has_value();
}

// REQUIRES: a connection and a range.
bool Client::SendRange(transport::Deadline deadline) {
    return Exchange<transport::RangeAccepted>(*range_, deadline).has_value();
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
template <class Reply>
std::optional<Reply> Client::Exchange(const transport::Contents& request, transport::Deadline deadline,
                                      std::span<const std::uint8_t> pixels) {
    const std::uint64_t number = ++requests_;
    transport::Connection connection = std::move(*connection_);
    connection_.reset();
    const bool isSent = connection.Send(transport::Encode({number, request}), deadline) &&
                        (pixels.empty() || connection.Send(pixels, deadline));
    // A busy server may have closed the connection already, but it has sent its message first.
    std::array<std::uint8_t, transport::maxMessageBytes> received;
    const std::size_t size = connection.Receive(received, deadline);
    const std::optional<transport::Message> message = transport::Decode(std::span(received).first(size));
    if (!message) {
        return std::nullopt;
    }
    const auto* const reply = std::get_if<Reply>(&message->contents);
    if (isSent && reply != nullptr && message->number == number) {
        connection_ = std::move(connection);
        return *reply;
    }
    isServerBusy_ = std::holds_alternative<transport::Greeting>(request) && message->number == 0 &&
                    std::holds_alternative<transport::Busy>(message->contents);
    return std::nullopt;
}

}  // namespace engine_client
