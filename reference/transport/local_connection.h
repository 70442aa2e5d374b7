/// A connection between processes of one user on one machine. It carries pieces of bytes, whole and in their order.
///
/// Every wait ends at its deadline. Nothing here is inherited by a program that this process starts, and no signal is
/// raised by a peer that has gone.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace transport {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

inline constexpr Deadline noDeadline = Deadline::max();

/// What waits of the system take: rounded up, -1 for noDeadline.
int MillisecondsUntil(Deadline deadline);

/// The name under which this user's recognition server listens; those of other users have names of their own, whatever
/// they are called. The environment variable VEXLANE_READING_SOCKET sets servers and clients apart from those with
/// another value: its first 64 characters become part of the name, with _ for / and \.
std::string ServerName();

/// No piece is longer.
inline constexpr std::size_t largestPiece = 1 << 20;

/// One side of a connection. One thread at a time, but for Shutdown.
class Connection {
  public:
    /// Tries once to connect to the server of that name; nothing when there is none, when it has no room or is another
    /// user's. Does not wait. Throws std::system_error when this process lacks what a connection takes.
    static std::optional<Connection> Open(const std::string& name);

    Connection(Connection&&) noexcept = default;
    Connection& operator=(Connection&&) noexcept = default;

    /// Up to 64 KiB are one piece, more are several. False when the peer has gone, or does not take all of it in time.
    bool Send(std::span<const std::uint8_t> bytes, Deadline deadline);

    /// Waits for a piece and returns its size. 0 when the peer has gone, when there is none in time, and when it is
    /// empty or longer than there is room for.
    std::size_t Receive(std::span<std::uint8_t> room, Deadline deadline);

    /// Receives pieces of `size` bytes together into the beginning of `bytes`, which grows as they come and never
    /// shrinks. False as for Receive. Throws std::bad_alloc. REQUIRES: size > 0.
    bool ReceiveAll(std::vector<std::uint8_t>& bytes, std::size_t size, Deadline deadline);

    /// Whether the peer has its side still open.
    bool PeerIsThere() const;

    /// Ends every wait on this side, now and later, and lets the peer see that this side has gone. Any thread.
    void Shutdown();

  private:
    friend class Listener;
    struct System;
    explicit Connection(std::shared_ptr<System> system) : system_(std::move(system)) {}

    std::shared_ptr<System> system_;  // of one owner
};

/// Waits for connections. One thread at a time, but for Shutdown.
class Listener {
  public:
    /// Nothing when somebody listens under that name already. Connections of an earlier listener keep nobody from it.
    /// Throws std::system_error.
    static std::optional<Listener> Open(const std::string& name);

    Listener(Listener&&) noexcept = default;
    Listener& operator=(Listener&&) noexcept = default;

    /// The next connection of a process of this user; those of others are closed. Nothing at the deadline, and after
    /// Shutdown. A client for which this process has no descriptor left is sent `refusal` and closed.
    std::optional<Connection> Accept(Deadline deadline, std::span<const std::uint8_t> refusal = {});

    /// Ends every wait, now and later. Any thread.
    void Shutdown();

  private:
    struct System;
    explicit Listener(std::shared_ptr<System> system) : system_(std::move(system)) {}

    std::shared_ptr<System> system_;  // of one owner
};

}  // namespace transport
