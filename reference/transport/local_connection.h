/// A connection between processes of one user on one machine. It carries whole messages in their order, and memory.
///
/// Every wait ends at its deadline. Nothing here is inherited by a program that this process starts, and no signal is
/// raised by a peer that has gone.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace transport {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

inline constexpr Deadline noDeadline = Deadline::max();

/// What the system's body keeps for a connection, a listener or memory; negative is none.
using Handle = std::intptr_t;

/// The name under which this user's recognition server listens; those of other users have names of their own, whatever
/// they are called. The environment variable VEXLANE_READING_SOCKET sets servers and clients apart from those with
/// another value: its first 64 characters become part of the name, with _ for / and \.
std::string ServerName();

/// Memory of this process that a peer can be handed. It has no name, lives as long as somebody has it mapped, and keeps
/// its size. One thread at a time.
class SharedMemory {
  public:
    /// Throws std::system_error. REQUIRES: size > 0.
    explicit SharedMemory(std::size_t size);
    SharedMemory(SharedMemory&& other) noexcept;
    SharedMemory& operator=(SharedMemory&& other) noexcept;
    ~SharedMemory();

    std::span<std::uint8_t> Bytes() const { return {data, size}; }

  private:
    friend class Connection;

    std::uint8_t* data = nullptr;
    std::size_t size = 0;
    Handle handle = -1;
};

/// Memory that a peer has handed over, for reading. The peer can change what it holds, not its size. One thread at a
/// time.
class PeerMemory {
  public:
    PeerMemory(PeerMemory&& other) noexcept;
    PeerMemory& operator=(PeerMemory&& other) noexcept;
    ~PeerMemory();

    std::span<const std::uint8_t> Bytes() const { return {data, size}; }

  private:
    friend class Connection;
    PeerMemory(const std::uint8_t* mapped, std::size_t mappedSize) : data(mapped), size(mappedSize) {}

    const std::uint8_t* data = nullptr;
    std::size_t size = 0;
};

/// One side of a connection. One thread at a time, but for Shutdown.
class Connection {
  public:
    /// Tries once to connect to the server of that name; nothing when there is none, when it has no room or is another
    /// user's. Does not wait. Throws std::system_error when this process lacks what a connection takes.
    static std::optional<Connection> Open(const std::string& name);

    Connection(Connection&& other) noexcept;
    Connection& operator=(Connection&& other) noexcept;
    ~Connection();

    /// False when the peer has gone, or does not take the message in time. `memory` stays until the peer has received
    /// the message, since on Windows it is the peer who fetches it.
    bool Send(std::span<const std::uint8_t> message, const SharedMemory* memory, Deadline deadline);

    /// Waits for a message of at most `longest` bytes, and the memory that came with it. False when the peer has gone,
    /// when there is none in time, and when what came is longer or brought anything but one piece of memory of at most
    /// `mostMemory` bytes, whose size cannot change any more. Nothing of what was refused stays open.
    bool Receive(std::vector<std::uint8_t>& message, std::size_t longest, std::optional<PeerMemory>& memory,
                 std::uint64_t mostMemory, Deadline deadline);

    /// Whether the peer has its side still open.
    bool PeerIsThere() const;

    /// Ends every wait on this side, now and later, and lets the peer see that this side has gone. Any thread.
    void Shutdown();

  private:
    friend class Listener;
    explicit Connection(Handle opened) : handle(opened) {}

    Handle handle = -1;
};

/// Waits for connections. One thread at a time, but for Shutdown.
class Listener {
  public:
    /// Nothing when somebody listens under that name already. Connections of an earlier listener keep nobody from it.
    /// Throws std::system_error.
    static std::optional<Listener> Open(const std::string& name);

    Listener(Listener&& other) noexcept;
    Listener& operator=(Listener&& other) noexcept;
    ~Listener();

    /// The next connection of a process of this user; those of others are closed. Nothing at the deadline, and after
    /// Shutdown. A client for which this process has no descriptor left is sent `refusal` and closed.
    std::optional<Connection> Accept(Deadline deadline, std::span<const std::uint8_t> refusal = {});

    /// Ends every wait, now and later. Any thread.
    void Shutdown();

  private:
    explicit Listener(Handle opened) : handle(opened) {}

    Handle handle = -1;
};

}  // namespace transport
