#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <thread>

#include "reference/server/program.h"

namespace reading_service {

std::filesystem::path ProgramFolder() {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

int RunUntilTerminated(Service& service) {
    signal(SIGPIPE, SIG_IGN);  // standard error may be a pipe without a reader
    // Blocked in every thread, so that a signal that arrives before the wait is not lost.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    if (pthread_sigmask(SIG_BLOCK, &ending, nullptr) != 0) {
        return exitFailure;
    }
    int status = exitFailure;
    const pthread_t waiting = pthread_self();
    std::thread serving([&] {
        status = RunToCompletion(service);
        pthread_kill(waiting, SIGTERM);
    });
    int received = 0;
    while (sigwait(&ending, &received) != 0) {
    }
    service.Stop();
    alarm(shutdownTimeoutSeconds);
    serving.join();
    return status;
}

}  // namespace reading_service
