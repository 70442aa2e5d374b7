#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <exception>
#include <thread>

#include "tools/server/program.h"

namespace reading_service {

namespace {

// For the frames in hand; a reader that hangs does not keep the process.
constexpr unsigned longestEndSeconds = 10;

int Run(Service& service) {
    try {
        switch (service.Run()) {
            case End::NameTaken:
                Complain("another server listens already");
                return exitedForTheName;
            case End::Told:
            case End::Idle:
                return exitedWell;
        }
    } catch (const std::exception& error) {
        Complain(error.what());
    }
    return exitedByFailure;
}

}  // namespace

int RunUntilTold(Service& service) {
    signal(SIGPIPE, SIG_IGN);  // nobody may read what is complained about
    // Blocked in every thread, so that a signal that comes before the wait is not lost.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    if (pthread_sigmask(SIG_BLOCK, &ending, nullptr) != 0) {
        return exitedByFailure;
    }
    int status = exitedByFailure;
    std::thread serving([&] {
        status = Run(service);
        kill(getpid(), SIGTERM);
    });
    int received = 0;
    while (sigwait(&ending, &received) != 0) {
    }
    service.Stop();
    alarm(longestEndSeconds);
    serving.join();
    return status;
}

}  // namespace reading_service
