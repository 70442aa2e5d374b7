/// A checksum to compare the pictures that the program sends with those that the library receives.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host_test {

inline std::uint64_t Checksum(const std::uint8_t* bytes, std::size_t size) {
    std::uint64_t sum = 14695981039346656037u;
    for (std::size_t index = 0; index < size; ++index) {
        sum = (sum ^ bytes[index]) * 1099511628211u;
    }
    return sum;
}

}  // namespace host_test
