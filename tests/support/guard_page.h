/// Memory that is followed by an inaccessible page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace test_support {

/// `size` bytes that end right before an inaccessible page: a routine that reads or writes one byte too far faults.
class GuardedBytes {
  public:
    explicit GuardedBytes(std::size_t size, std::uint8_t fill = 0);
    explicit GuardedBytes(const std::vector<std::uint8_t>& bytes);
    ~GuardedBytes();
    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    /// From now on a write to the bytes faults.
    void MakeReadOnly();

    std::uint8_t* data() { return bytes_; }
    const std::uint8_t* data() const { return bytes_; }
    std::size_t size() const { return count_; }
    std::vector<std::uint8_t> Copy() const { return {bytes_, bytes_ + count_}; }

  private:
    void* mapping_;
    std::size_t mappedSize_;
    std::uint8_t* bytes_;
    std::size_t count_;
};

}  // namespace test_support
