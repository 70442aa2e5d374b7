#include "reference/server/session.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <utility>
#include <variant>

#include "reference/reader/reading_stream.h"
#include "reference/transport/messages.h"

namespace reading_service {

namespace {

transport::Reading ToMessage(const plate_reading::Reading& reading) {
    transport::Reading sent;
    // A text that is too long has no NUL and is invalid.
    reading.text.copy(sent.text, sizeof sent.text);
    reading.country.copy(sent.country, sizeof sent.country);
    sent.confidence = std::isnan(reading.confidence) ? 0.0 : std::clamp(reading.confidence, 0.0, 100.0);
    for (std::size_t corner = 0; corner < sent.corners.size(); ++corner) {
        sent.corners[corner] = {reading.corners[corner].x, reading.corners[corner].y};
    }
    return sent;
}

// The first ones, because they are the best.
transport::Readings ToMessage(const std::vector<plate_reading::Reading>& readings) {
    transport::Readings sent;
    for (const plate_reading::Reading& reading : readings) {
        if (sent.count == transport::maxReadings) {
            break;
        }
        const transport::Reading one = ToMessage(reading);
        if (transport::IsValid(transport::Readings{1, 0, {one}})) {
            sent.readings[sent.count++] = one;
        } else {
            LogError("cannot send a reading of " + std::to_string(reading.text.size()) + " characters");
        }
    }
    return sent;
}

class Session {
  public:
    Session(transport::Connection& connection, ReaderPool& readers, int confirmations,
            std::atomic<transport::Deadline>& lastRequest)
        : connection_(connection), readers_(readers), stream_(confirmations), lastRequest_(lastRequest) {}

    void Serve() {
        if (!Greet()) {
            return;
        }
        while (const std::optional<transport::Message> request = ReceiveMessage(transport::noDeadline)) {
            lastRequest_ = transport::Clock::now();
            const std::optional<transport::Contents> reply =
                std::visit([this](const auto& contents) { return Handle(contents); }, request->contents);
            if (!reply || !Send({request->number, *reply})) {
                return;
            }
        }
    }

  private:
    bool Greet() {
        const std::optional<transport::Message> message = ReceiveMessage(transport::Clock::now() + greetingTimeout);
        const auto* const greeting = message ? std::get_if<transport::Greeting>(&message->contents) : nullptr;
        return greeting != nullptr && Send({message->number, transport::GreetingReply()}) &&
               greeting->version == transport::protocolVersion;
    }

    std::optional<transport::Message> ReceiveMessage(transport::Deadline deadline) {
        std::array<std::uint8_t, transport::maxMessageBytes> received;
        return transport::Decode(std::span(received).first(connection_.Receive(received, deadline)));
    }

    bool Send(const transport::Message& message) {
        return connection_.Send(transport::Encode(message), transport::Clock::now() + replyTimeout);
    }

    std::optional<transport::Contents> Handle(const transport::Range& range) {
        const plate_reading::WidthRange widths{range.minimum, range.maximum};
        if (widths_ != widths) {
            widths_ = widths;
            stream_.ForgetPicture();
        }
        return transport::RangeAccepted();
    }

    std::optional<transport::Contents> Handle(const transport::Frame& frame) {
        // After the deadline the client no longer waits for the reply.
        const transport::Deadline deadline = transport::Clock::now() + transport::frameTimeout;
        if (!connection_.ReceiveAll(pixels_, transport::PictureBytes(frame.width, frame.height), deadline)) {
            return std::nullopt;
        }
        plate_reading::Picture picture;
        picture.pixels = pixels_.data();
        picture.width = static_cast<int>(frame.width);
        picture.height = static_cast<int>(frame.height);
        picture.stride = std::size_t{frame.width} * transport::bytesPerPixel;
        std::optional<plate_reading::Region> region;
        if (frame.region != transport::Region()) {
            region = {frame.region.left, frame.region.top, frame.region.right, frame.region.bottom};
        }
        try {
            const plate_reading::Region part = stream_.ChangedPart(picture, region);
            std::vector<plate_reading::Reading> readings;
            if (part != plate_reading::Region()) {
                const std::optional<ReaderPool::Loan> loan = readers_.Take(deadline);
                if (!loan || !connection_.IsPeerConnected()) {
                    stream_.ForgetPicture();
                    return transport::Readings();
                }
                readings = loan->Reader().Read(picture, {region, widths_, part, !stream_.IsStream()});
            }
            return ToMessage(stream_.Follow(picture, region, std::move(readings), part));
        } catch (const std::exception& error) {
            stream_.ForgetPicture();
            LogError(std::string("cannot read a frame: ") + error.what());
        } catch (...) {
            LogError("cannot read a frame");
        }
        return transport::Readings();
    }

    // Kinds that a client must not send.
    template <class Contents>
    std::optional<transport::Contents> Handle(const Contents&) {
        return std::nullopt;
    }

    transport::Connection& connection_;
    ReaderPool& readers_;
    plate_reading::ReadingStream stream_;  // one per client: a thread of the host handles one camera at a time
    std::atomic<transport::Deadline>& lastRequest_;
    std::optional<plate_reading::WidthRange> widths_;
    std::vector<std::uint8_t> pixels_;  // at least as large as the largest frame so far
};

}  // namespace

void ServeClient(transport::Connection& connection, ReaderPool& readers, int confirmations,
                 std::atomic<transport::Deadline>& lastRequest) {
    Session(connection, readers, confirmations, lastRequest).Serve();
}

}  // namespace reading_service
