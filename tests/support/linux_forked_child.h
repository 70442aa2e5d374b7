/// A forked child that continues as a copy of this process and starts no other program.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "platform/linux/send_signal.h"
#include "tests/support/wait_until.h"

namespace test_support {

/// How a forked child is about to end; negative in every other process.
inline int codeOfForkedChild = -1;

/// A leak checker assumes the parent's threads in the child and reports false leaks. It runs after all exit handlers
/// that were registered since the program began, so the child ends right before it.
inline const int leakCheckerIsSkipped = std::atexit([] {
    if (codeOfForkedChild >= 0) {
        ::_exit(codeOfForkedChild);
    }
});

/// Forks a child that runs the action and then calls exit(), with 0 when the action returned true. Returns its exit
/// code, or -1 when a signal has ended it or it has not ended in time.
inline int ExitCodeOfForkedChild(const std::function<bool()>& action) {
    std::fflush(nullptr);  // otherwise both would write the buffered output
    const pid_t child = ::fork();
    if (child == 0) {
        try {
            codeOfForkedChild = action() ? 0 : 1;
        } catch (...) {
            codeOfForkedChild = 2;
        }
        std::exit(codeOfForkedChild);
    }
    int status = 0;
    if (!WaitUntil([&] { return ::waitpid(child, &status, WNOHANG) == child; })) {
        platform::SendSignal(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace test_support
