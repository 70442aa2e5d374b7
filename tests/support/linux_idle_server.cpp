// A server that serves nobody: stays until it is told to end.

#include <signal.h>

int main() {
    // Blocked, so that a signal that comes before the wait is not lost.
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
