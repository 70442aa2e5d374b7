// A host that plays a stream until the file named by its argument exists, and then until there are plates. At the first
// plates it prints the process id of the server that it has started, or 1 if it has started none. Exits with 0, or with
// 3 if there are no plates in the end.

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "tests/reference/faults/stream.h"
#include "tests/support/servers.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds maxLifetime(240);
constexpr std::chrono::seconds endTimeout(50);  // shorter than the test waits for it

}  // namespace

int main(int, char** arguments) {
    auto end = Clock::now() + maxLifetime;
    reading_faults::Stream stream;
    bool isWritten = false;
    bool mayEnd = false;
    while (Clock::now() < end) {
        if (!mayEnd && std::filesystem::exists(arguments[1])) {
            mayEnd = true;
            end = Clock::now() + endTimeout;
        }
        const bool hasPlates = stream.Play().plates == 2;
        if (hasPlates && !isWritten) {
            isWritten = true;
            const auto servers = servers::Running();
            std::printf("%d\n", servers.empty() ? 1 : static_cast<int>(*servers.begin()));
            std::fflush(stdout);
        }
        if (hasPlates && mayEnd) {
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::fprintf(stderr, "%s\n", stream.LastLines().c_str());
    return 3;
}
