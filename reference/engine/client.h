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

/// How long SetRange waits for a server to start and to reply.
inline constexpr std::chrono::milliseconds rangeTimeout{2000};

/// Interval between attempts to connect.
inline constexpr std::chrono::milliseconds connectInterval{5};

/// How long a frame waits for a connection. Short, because SetRange has already waited for the server to start.
inline constexpr std::chrono::milliseconds connectTimeout{50};

/// How long SetRange waits for a busy server, and the interval between its attempts. After that, frames have no plates.
inline constexpr std::chrono::milliseconds busyTimeout{100};
inline constexpr std::chrono::milliseconds busyInterval{50};

/// The connection of one thread. Any failure closes the connection and discards what has not been received yet, so a
/// late reply is never mistaken for the reply to a later request. One thread at a time.
class Client {
  public:
    explicit Client(std::string name = transport::ServerName());

    /// Returns true when the server accepts the range within rangeTimeout, and when it cannot because it is busy or
    /// because this process has no descriptor or memory for a connection. The range applies to this client's frames
    /// and is sent to every server that the client connects to later. Throws std::exception.
    bool SetRange(std::int32_t minimum, std::int32_t maximum);

    /// Writes the plates read in the image and returns their number; 0 on any failure. `image` and `plates` may be
    /// null; otherwise `plates` has room for engineRecordCount records. Throws std::exception.
    int Recognise(const IMG* image, const tagRECT* region, RPLATE* plates);

  private:
    enum class Attempt { Connected, Failed, Busy };

    Attempt Connect(transport::Deadline deadline);
    bool Greet(transport::Deadline deadline);
    bool SendRange(transport::Deadline deadline);
    std::span<const std::uint8_t> PixelsOf(const IMG& image);
    template <class Reply>
    std::optional<Reply> Exchange(const transport::Contents& request, transport::Deadline deadline,
                                  std::span<const std::uint8_t> pixels = {});

    const std::string name_;
    std::optional<transport::Range> range_;
    std::optional<transport::Connection> connection_;
    std::vector<std::uint8_t> rows_;  // the rows of an image without the padding between them
    std::uint64_t requests_ = 0;
    bool isServerBusy_ = false;        // the last reply was Busy
    transport::Deadline nextAttempt_;  // frames do not try to connect before this time
};

}  // namespace engine_client
