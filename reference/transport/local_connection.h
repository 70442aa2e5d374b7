/// A connection between processes of one user on one machine. It transfers packets of bytes, whole and in order.
///
/// Every wait ends at its deadline. Programs that this process starts inherit nothing from here. A peer that has
/// disconnected causes no signal.
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

/// The time-out for system calls: milliseconds, rounded up; -1 for noDeadline.
int MillisecondsUntil(Deadline deadline);

/// The name under which this user's recognition server listens; names of different users are independent. The
/// environment variable VEXLANE_READING_SOCKET separates servers and clients from those with another value: its first
/// 64 characters become part of the name, with _ for / and \.
std::string ServerName();

/// The maximum size of a packet in bytes.
inline constexpr std::size_t maxPacketBytes = 1 << 20;

/// One side of a connection. One thread at a time, except for Shutdown.
class Connection {
  public:
    /// Tries once to connect to the server of that name. Returns nothing when there is none, when its queue is full or
    /// when it belongs to another user. Does not wait. Throws std::system_error when this process lacks a resource.
    static std::optional<Connection> Open(const std::string& name);

    Connection(Connection&&) noexcept = default;
    Connection& operator=(Connection&&) noexcept = default;

    /// Sends up to 64 KiB as one packet, more as several. Returns false when the peer has disconnected, or has not
    /// received all of it in time.
    bool Send(std::span<const std::uint8_t> bytes, Deadline deadline);

    /// Waits for a packet and returns its size. Returns 0 when the peer has disconnected, at the deadline, and when the
    /// packet is empty or larger than `buffer`.
    std::size_t Receive(std::span<std::uint8_t> buffer, Deadline deadline);

    /// Receives packets of `size` bytes in total into the beginning of `bytes`, which grows as they arrive and never
    /// shrinks. Returns false when Receive returns 0. Throws std::bad_alloc. REQUIRES: size > 0.
    bool ReceiveAll(std::vector<std::uint8_t>& bytes, std::size_t size, Deadline deadline);

    /// Whether the peer's side is still open.
    bool IsPeerConnected() const;

    /// Ends every wait on this side, now and later, and disconnects from the peer. Any thread.
    void Shutdown();

  private:
    friend class Listener;
    struct System;
    explicit Connection(std::shared_ptr<System> system) : system_(std::move(system)) {}

    std::shared_ptr<System> system_;  // never shared
};

/// Waits for connections. One thread at a time, except for Shutdown.
class Listener {
  public:
    /// Returns nothing when a process already listens under that name. Connections of an earlier listener do not
    /// matter. Throws std::system_error.
    static std::optional<Listener> Open(const std::string& name);

    Listener(Listener&&) noexcept = default;
    Listener& operator=(Listener&&) noexcept = default;

    /// Returns the next connection from a process of this user; closes those from other users. Returns nothing at the
    /// deadline and after Shutdown. A client for which this process has no descriptor is sent `refusal` and closed.
    std::optional<Connection> Accept(Deadline deadline, std::span<const std::uint8_t> refusal = {});

    /// Ends every wait, now and later. Any thread.
    void Shutdown();

  private:
    struct System;
    explicit Listener(std::shared_ptr<System> system) : system_(std::move(system)) {}

    std::shared_ptr<System> system_;  // never shared
};

}  // namespace transport
