// A server that fails in the way that VEXLANE_TEST_SERVER names.

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace {

constexpr unsigned maxLifetimeSeconds = 120;  // no process is left if the test crashes

}  // namespace

int main() {
    alarm(maxLifetimeSeconds);
    const char* const variable = std::getenv("VEXLANE_TEST_SERVER");
    const std::string_view failure = variable == nullptr ? "" : variable;
    // Ends by _exit: at an ordinary exit the leak check runs as a second process of the server's name, which survives
    // for a while when the server is killed, and counts as a running server.
    if (failure == "dies-at-start") {
        _exit(3);
    }
    if (failure == "crashes") {
        std::abort();
    }
    if (failure == "ends-soon") {
        usleep(30'000);
        _exit(0);
    }
    if (failure == "ignores-termination") {
        for (const int ending : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
            signal(ending, SIG_IGN);
        }
    } else if (failure == "blocks-signals") {
        sigset_t all;
        sigfillset(&all);
        sigprocmask(SIG_BLOCK, &all, nullptr);
        for (unsigned second = 0; second < maxLifetimeSeconds; ++second) {
            sleep(1);
        }
        return 0;
    } else if (failure == "stops-itself") {
        raise(SIGSTOP);
    } else if (failure == "spins") {
        for (volatile bool spins = true; spins;) {
        }
    }
    for (;;) {
        pause();
    }
}
