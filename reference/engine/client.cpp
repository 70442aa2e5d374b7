#include "reference/engine/client.h"

#include <algorithm>
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
    std::copy(reading.text.begin(), reading.text.end(), plate.text);
    SetConfidenceSum(plate, reading.confidence * static_cast<double>(reading.text.size()));
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
        // A new connection is given the range with the greeting.
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
    transport::Frame frame = {image->width, image->height, false, std::nullopt};
    if (!transport::IsSound(frame)) {
        return 0;
    }
    if (region != nullptr) {
        frame.region = InsidePicture(*region, *image);
        if (!transport::IsSound(frame)) {
            return 0;
        }
    }
    const transport::Deadline now = transport::Clock::now();
    if (!connection_ && (now < nextFrame_ || Connect(now + longestConnecting) != Attempt::Connected)) {
        return 0;
    }
    const transport::Deadline deadline = transport::Clock::now() + transport::longestFrame;
    const bool isNewMemory = PutPicture(*image);
    frame.bringsMemory = isNewMemory;
    const auto answer = Ask<transport::Readings>(frame, isNewMemory ? &*memory_ : nullptr, deadline);
    if (!answer) {
        return 0;
    }
    std::transform(answer->readings.begin(), answer->readings.end(), plates, RecordOf);
    return static_cast<int>(answer->readings.size());
}

// Greets a new server and gives it the range.
Client::Attempt Client::Connect(transport::Deadline deadline) {
    isServerBusy_ = false;
    bool isConnected = false;
    try {
        connection_ = transport::Connection::Open(name_);
        isConnected = connection_ && Greet(deadline) && (!range_ || GiveRange(deadline));
    } catch (const std::exception&) {
        // What this process lacks another server would not have.
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
    const auto greeting = Ask<transport::GreetingAnswer>(transport::Greeting(), nullptr, deadline);
    if (greeting && greeting->version != transport::protocolVersion) {
        Disconnect();
        return false;
    }
    return greeting.has_value();
}

// REQUIRES: a connection and a range.
bool Client::GiveRange(transport::Deadline deadline) {
    return Ask<transport::RangeTaken>(*range_, nullptr, deadline).has_value();
}

// Copies the rows into memory that the server sees; true when it is memory that the server does not have yet.
bool Client::PutPicture(const IMG& image) {
    const std::size_t row = std::size_t{image.width} * transport::bytesPerPixel;
    const auto size = static_cast<std::size_t>(transport::PictureBytes(image.width, image.height));
    const bool isNew = !memory_ || memory_->Bytes().size() < size;
    if (isNew) {
        memory_.reset();
        memory_.emplace(size);
    }
    std::uint8_t* to = memory_->Bytes().data();
    const std::uint8_t* from = image.pixels;
    for (std::uint32_t y = 0; y < image.height; ++y) {
        std::memcpy(to + y * row, from + std::size_t{y} * image.rowStride, row);
    }
    return isNew;
}

// Without the one right answer in time the connection ends. REQUIRES: a connection.
template <class Answer>
std::optional<Answer> Client::Ask(const transport::Contents& question, const transport::SharedMemory* handedOver,
                                  transport::Deadline deadline) {
    const std::uint64_t number = ++requests_;
    std::optional<transport::PeerMemory> nobodysMemory;
    try {
        const bool isAsked = connection_->Send(transport::Encode({number, question}), handedOver, deadline);
        // A busy server may have gone by now, but not without a word.
        if (connection_->Receive(received_, transport::largestMessageBytes, nobodysMemory, 0, deadline)) {
            std::optional<transport::Message> message = transport::Decode(received_);
            if (message && !nobodysMemory) {
                auto* const answer = std::get_if<Answer>(&message->contents);
                if (isAsked && answer != nullptr && message->number == number) {
                    return std::move(*answer);
                }
                isServerBusy_ = std::holds_alternative<transport::Greeting>(question) && message->number == 0 &&
                                std::holds_alternative<transport::Busy>(message->contents);
            }
        }
    } catch (...) {
        // The server may know nothing of the memory that it was to be handed.
        Disconnect();
        throw;
    }
    Disconnect();
    return std::nullopt;
}

void Client::Disconnect() {
    memory_.reset();
    connection_.reset();
}

}  // namespace engine_client
