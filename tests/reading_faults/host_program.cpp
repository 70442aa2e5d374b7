// A host that plays a stream for as many milliseconds as its argument says. Once there are plates it writes the number
// of the server that it has started, or 1 when it has started none. Ends with 0 when there were plates in the end, too.

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "tests/reading_faults/stream.h"
#include "tests/support/servers.h"

int main(int, char** arguments) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(std::atoi(arguments[1]));
    reading_faults::Stream stream;
    bool isWritten = false;
    int plates = 0;
    while (std::chrono::steady_clock::now() < end) {
        plates = stream.Play().plates;
        if (plates == 2 && !isWritten) {
            isWritten = true;
            const auto servers = servers::Running();
            std::printf("%d\n", servers.empty() ? 1 : static_cast<int>(*servers.begin()));
            std::fflush(stdout);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    if (plates != 2) {
        std::fprintf(stderr, "%s\n", stream.LastLines().c_str());
        return 3;
    }
    return 0;
}
