// A server that serves no clients: runs until a signal ends it.

#include <signal.h>

int main() {
    // Blocked, so that a signal before the wait is not lost.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    if (sigprocmask(SIG_BLOCK, &ending, nullptr) != 0) {
        return 1;
    }
    int received = 0;
    while (sigwait(&ending, &received) != 0) {
    }
    return 0;
}
