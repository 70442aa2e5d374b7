/// Shared by all fuzzers: splitting an input into values, and printing an input that fails.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>
#include <type_traits>

namespace fuzz {

using Bytes = std::span<const std::uint8_t>;

/// Reads values from the input, and zeros after its end.
class Input {
  public:
    explicit Input(Bytes bytes) : rest_(bytes) {}

    bool IsEmpty() const { return rest_.empty(); }
    Bytes Rest() const { return rest_; }

    template <class Value>
    Value Take() {
        static_assert(std::is_trivially_copyable_v<Value>);
        Value value{};
        const std::size_t count = std::min(sizeof value, rest_.size());
        if (count > 0) {
            std::memcpy(&value, rest_.data(), count);
            rest_ = rest_.subspan(count);
        }
        return value;
    }

    std::uint8_t Byte() { return Take<std::uint8_t>(); }

    /// A number below `limit`. REQUIRES: limit is 1 to 256.
    unsigned Below(unsigned limit) { return Byte() % limit; }

    bool OneIn(unsigned cases) { return Byte() % cases == cases - 1; }

    template <class Values>
    const auto& AnyOf(const Values& values) {
        return values[Below(static_cast<unsigned>(std::size(values)))];
    }

  private:
    Bytes rest_;
};

/// Prints the input, only the first time, as a statement for a test in tests/fuzz/replay_test.cpp.
inline void PrintForTest(Bytes input) {
    static bool isPrinted = false;
    if (!isPrinted) {
        isPrinted = true;
        std::fprintf(stderr, "Feed({");
        for (std::size_t at = 0; at < input.size(); ++at) {
            std::fprintf(stderr, "%s0x%02x", at == 0 ? "" : ", ", static_cast<unsigned>(input[at]));
        }
        std::fprintf(stderr, "});\n");
        std::fflush(stderr);
    }
}

/// Prints the message and the input, and aborts.
[[noreturn]] inline void Fail(Bytes input, const char* what) {
    std::fprintf(stderr, "%s\n", what);
    PrintForTest(input);
    std::abort();
}

}  // namespace fuzz
