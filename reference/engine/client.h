/// The engine's side of the connection to the recognition server.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "engine/engine_records.h"
#include "reference/transport/local_connection.h"
#include "reference/transport/messages.h"

namespace engine_client {

/// How long a range waits for the server: for one that has yet to start, and for the answer of one that is there.
inline constexpr std::chrono::milliseconds longestRange{2000};

/// From one attempt to connect to the next.
inline constexpr std::chrono::milliseconds connectingPause{5};

/// How long a frame that has no connection waits for one. The server that is not there was waited for by the range.
inline constexpr std::chrono::milliseconds longestConnecting{50};

/// How long a range waits for a server that is busy, and from one attempt to the next. Then frames go by without
/// plates.
inline constexpr std::chrono::milliseconds longestBusy{100};
inline constexpr std::chrono::milliseconds busyPause{50};

/// The connection of one thread. Whatever goes wrong ends the connection, and with it what was still to come over it,
/// so an answer that comes too late is never taken for that of a later request. One thread at a time.
class Client {
  public:
    explicit Client(std::string name = transport::ServerName());

    /// True when the server has taken the range, within longestRange, and when it is no fault of the server's that it
    /// has not: when it says that it is busy, or this process has no descriptor or memory for a connection. The range
    /// holds for this client's frames, and is given to every server that it connects to later. Throws std::exception.
    bool SetRange(std::int32_t minimum, std::int32_t maximum);

    /// Writes what is read in the image and returns its number; 0 for whatever reason there is nothing. `image` and
    /// `plates` may be null, and `plates` has room for engineRecordCount. Throws std::exception.
    int Recognise(const IMG* image, const tagRECT* region, RPLATE* plates);

  private:
    enum class Attempt { Connected, Failed, Busy };

    Attempt Connect(transport::Deadline deadline);
    bool Greet(transport::Deadline deadline);
    bool GiveRange(transport::Deadline deadline);
    std::span<const std::uint8_t> PixelsOf(const IMG& image);
    template <class Answer>
    std::optional<Answer> Ask(const transport::Contents& question, transport::Deadline deadline,
                              std::span<const std::uint8_t> pixels = {});

    const std::string name_;
    std::optional<transport::Range> range_;
    std::optional<transport::Connection> connection_;
    std::vector<std::uint8_t> rows_;  // of a picture that has gaps between its own
    std::uint64_t requests_ = 0;
    bool isServerBusy_ = false;      // it has said so in place of the last answer
    transport::Deadline nextFrame_;  // frames make no attempt to connect before
};

}  // namespace engine_client
