/// A client of the recognition server that says whatever it is told to, as no engine does.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace test_support {

class RawClient {
  public:
    /// Throws std::runtime_error when nobody listens.
    explicit RawClient(const std::string& name);
    ~RawClient();
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// One message, with any number of descriptors; false when the server takes none any more.
    bool Send(std::span<const std::uint8_t> message, const std::vector<int>& files = {});

    /// The next message; empty when there is none within a minute, and when the server has ended the connection.
    std::vector<std::uint8_t> Receive();

    /// Whether the server ends the connection within a minute.
    bool IsDropped();

  private:
    int socket = -1;
};

/// Seals of memory whose size is fixed.
extern const int fixedSize;

/// Memory without a name, with those seals.
int MemoryFile(std::int64_t size, int seals, bool canBeSealed = true);

}  // namespace test_support
