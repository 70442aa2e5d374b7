#include <errno.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/debug_output.h"

namespace {

/// Replaces standard error with a socket on which each write is one message.
class CapturedStandardError {
  public:
    CapturedStandardError() {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends_), 0);
        before_ = dup(STDERR_FILENO);
        EXPECT_EQ(dup2(ends_[1], STDERR_FILENO), STDERR_FILENO);
        close(ends_[1]);
    }
    ~CapturedStandardError() {
        Restore();
        close(ends_[0]);
    }
    CapturedStandardError(const CapturedStandardError&) = delete;
    CapturedStandardError& operator=(const CapturedStandardError&) = delete;

    /// Returns all writes so far, one string each.
    std::vector<std::string> Writes() const {
        std::vector<std::string> writes;
        std::string buffer(1 << 17, '\0');
        for (;;) {
            const ssize_t size = recv(ends_[0], buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (size <= 0) {
                return writes;
            }
            writes.push_back(buffer.substr(0, static_cast<std::size_t>(size)));
        }
    }

  private:
    void Restore() const {
        dup2(before_, STDERR_FILENO);
        close(before_);
    }

    int ends_[2] = {-1, -1};
    int before_ = -1;
};

/// Runs an action in a child process, which it may end. Returns the exit code, or minus the signal that ended the
/// child.
template <class Action>
int RunInChild(const Action& action) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(action());
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

bool IsPending(int signal) {
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signal) == 1;
}

bool IsBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

void BreakStandardError() {
    int ends[2] = {-1, -1};
    if (pipe(ends) != 0) {
        _exit(99);
    }
    dup2(ends[1], STDERR_FILENO);
    close(ends[0]);
    close(ends[1]);
}

TEST(LinuxDebugOutput, EachCallIsOneWriteAndOneLine) {
    const CapturedStandardError captured;
    platform::WriteDebugOutput("without an end");
    platform::WriteDebugOutput("with an end\n");
    platform::WriteDebugOutput("with an end of both\r\n");
    platform::WriteDebugOutput("two\nlines");
    platform::WriteDebugOutput("");
    platform::WriteDebugOutput(L"wide");
    platform::WriteDebugOutput(L"wide with an end\r\n");
    platform::WriteDebugOutput(L"");
    EXPECT_EQ(captured.Writes(),
              (std::vector<std::string>{"without an end\n", "with an end\n", "with an end of both\r\n", "two\nlines\n",
                                        "\n", "wide\n", "wide with an end\r\n", "\n"}));
}

TEST(LinuxDebugOutput, AnyWideTextIsWrittenAsUtf8) {
    const CapturedStandardError captured;
    const wchar_t text[] = {0x4EAC, 0x1F600, 0xD800, 0x110000, -5, L'z', 0};
    platform::WriteDebugOutput(text);
    EXPECT_EQ(captured.Writes(),
              std::vector<std::string>{"\xE4\xBA\xAC\xF0\x9F\x98\x80\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz\n"});
}

TEST(LinuxDebugOutput, ALongTextIsWrittenCompletely) {
    const CapturedStandardError captured;
    const std::string text(50000, 'a');
    platform::WriteDebugOutput(text.c_str());
    EXPECT_EQ(captured.Writes(), std::vector<std::string>{text + "\n"});
}

TEST(LinuxDebugOutput, LinesOfManyThreadsDoNotMix) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    const int before = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    constexpr int linesPerThread = 200;
    std::vector<std::thread> writers;
    for (char letter = 'a'; letter < 'e'; ++letter) {
        writers.emplace_back([letter] {
            for (int i = 0; i < linesPerThread; ++i) {
                platform::WriteDebugOutput(std::string(100, letter).c_str());
            }
        });
    }
    std::string all;
    std::thread reader([&] {
        char buffer[4096];
        for (ssize_t size = 0; (size = read(ends[0], buffer, sizeof(buffer))) > 0;) {
            all.append(buffer, static_cast<std::size_t>(size));
        }
    });
    for (std::thread& writer : writers) {
        writer.join();
    }
    dup2(before, STDERR_FILENO);
    close(before);
    reader.join();
    close(ends[0]);
    ASSERT_EQ(all.size(), 4u * linesPerThread * 101);
    for (std::size_t i = 0; i < all.size(); i += 101) {
        ASSERT_EQ(all.substr(i, 101), std::string(100, all[i]) + "\n");
    }
}

TEST(LinuxDebugOutput, ABrokenPipeHasNoEffect) {
    EXPECT_EQ(RunInChild([] {
                  BreakStandardError();
                  errno = EXDEV;
                  platform::WriteDebugOutput("lost");
                  platform::WriteDebugOutput(L"lost");
                  if (errno != EXDEV || IsPending(SIGPIPE) || IsBlocked(SIGPIPE)) {
                      return 1;
                  }
                  struct sigaction disposition = {};
                  sigaction(SIGPIPE, nullptr, &disposition);
                  return disposition.sa_handler == SIG_DFL ? 42 : 2;
              }),
              42);
}

TEST(LinuxDebugOutput, ThePendingSigpipeOfTheHostStaysPending) {
    EXPECT_EQ(RunInChild([] {
                  sigset_t broken;
                  sigemptyset(&broken);
                  sigaddset(&broken, SIGPIPE);
                  pthread_sigmask(SIG_BLOCK, &broken, nullptr);
                  BreakStandardError();
                  platform::WriteDebugOutput("lost");
                  if (IsPending(SIGPIPE)) {
                      return 1;
                  }
                  raise(SIGPIPE);
                  platform::WriteDebugOutput("lost");
                  return IsPending(SIGPIPE) && IsBlocked(SIGPIPE) ? 42 : 2;
              }),
              42);
}

TEST(LinuxDebugOutput, TheFileSizeLimitDoesNotEndTheProcess) {
    EXPECT_EQ(RunInChild([] {
                  char name[] = "/tmp/vexlane-debug-output-XXXXXX";
                  const int file = mkstemp(name);
                  unlink(name);
                  dup2(file, STDERR_FILENO);
                  const rlimit limit = {10, 10};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  platform::WriteDebugOutput("much longer than ten bytes");
                  platform::WriteDebugOutput("and more");
                  return lseek(file, 0, SEEK_END) == 10 && !IsPending(SIGXFSZ) && !IsBlocked(SIGXFSZ) ? 42 : 1;
              }),
              42);
}

TEST(LinuxDebugOutput, AClosedStandardErrorIsIgnored) {
    EXPECT_EQ(RunInChild([] {
                  close(STDERR_FILENO);
                  platform::WriteDebugOutput("lost");
                  return 42;
              }),
              42);
}

std::atomic<int> interruptions = 0;

bool Sleeps(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t close = text.rfind(')');
    return close != std::string::npos && text[close + 2] == 'S';
}

// The pipe is full, so the write blocks, and signals whose handler has no SA_RESTART interrupt it.
TEST(LinuxDebugOutput, AnInterruptedWriteIsRetried) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0);
    const std::string fill(1 << 16, 'f');
    ASSERT_EQ(write(ends[1], fill.data(), fill.size()), static_cast<ssize_t>(fill.size()));
    struct sigaction action = {};
    struct sigaction actionBefore = {};
    action.sa_handler = [](int) { ++interruptions; };
    sigaction(SIGUSR1, &action, &actionBefore);
    const int before = dup(STDERR_FILENO);
    dup2(ends[1], STDERR_FILENO);

    std::atomic<pid_t> writerId = 0;
    std::atomic<bool> written = false;
    std::thread writer([&] {
        writerId = gettid();
        platform::WriteDebugOutput("interrupted");
        written = true;
    });
    while (writerId == 0) {
        std::this_thread::yield();
    }
    // Each signal is sent when the writer is blocked again.
    for (int sent = 1; sent <= 20 && !written; ++sent) {
        while (!written && !Sleeps(writerId)) {
            std::this_thread::yield();
        }
        pthread_kill(writer.native_handle(), SIGUSR1);
        while (!written && interruptions < sent) {
            std::this_thread::yield();
        }
    }
    EXPECT_FALSE(written);
    std::string all;
    const auto readUntil = [&](std::size_t size) {
        char buffer[4096];
        while (all.size() < size) {
            const ssize_t count = read(ends[0], buffer, sizeof(buffer));
            if (count <= 0) {
                return;
            }
            all.append(buffer, static_cast<std::size_t>(count));
        }
    };
    readUntil(fill.size());
    writer.join();
    dup2(before, STDERR_FILENO);
    close(before);
    close(ends[1]);
    readUntil(fill.size() + 100);
    close(ends[0]);
    sigaction(SIGUSR1, &actionBefore, nullptr);
    EXPECT_EQ(all.substr(fill.size()), "interrupted\n");
}

std::string Format(const char* format, ...) {
    std::string line(platform::debugLineCapacity, '#');
    std::va_list arguments;
    va_start(arguments, format);
    platform::FormatDebugLine(line.data(), format, arguments);
    va_end(arguments);
    return line.c_str();
}

TEST(LinuxFormatDebugLine, MakesUpTo1024Characters) {
    EXPECT_EQ(Format("%s", std::string(1024, 'a').c_str()), std::string(1024, 'a'));
    EXPECT_EQ(Format("%s", std::string(1025, 'a').c_str()), std::string(1024, 'a'));
}

}  // namespace
