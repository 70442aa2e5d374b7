// soak MINUTES: plays traffic through the built library at full speed for that long, and prints a line of JSON for each
// minute and one at the end. Exits with 0 if nothing has grown after the warm-up and the library worked correctly, with
// 1 if not, and with 2 for wrong arguments.

#include <charconv>
#include <exception>
#include <iostream>
#include <string_view>

#include "tests/soak/soak.h"

namespace {

// A round takes a second or two.
constexpr soak::Effort effort{.cameras = 4, .frames = 20'000, .visits = 2};

// Returns 0 for anything except a positive number.
int MinutesOf(std::string_view word) {
    int minutes = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), minutes);
    const bool isNumber = error == std::errc() && end == word.data() + word.size();
    return isNumber && minutes > 0 ? minutes : 0;
}

}  // namespace

int main(int argumentCount, char** arguments) {
    const int minutes = argumentCount == 2 ? MinutesOf(arguments[1]) : 0;
    if (minutes == 0) {
        std::cerr << "usage: soak MINUTES\n";
        return 2;
    }
    try {
        soak::Options options;
        options.minutes = minutes;
        options.effort = effort;
        const soak::Outcome outcome = soak::Play(options, std::cout);
        for (const soak::Growth& growth : outcome.growth) {
            if (!growth.IsWithinBound()) {
                std::cerr << "soak: growth of " << growth.what << ": " << growth.value << ", at most " << growth.bound
                          << '\n';
            }
        }
        return outcome.HasPassed() ? 0 : 1;
    } catch (const std::exception& error) {
        std::cerr << "soak: " << error.what() << '\n';
    }
    return 1;
}
