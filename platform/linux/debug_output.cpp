#include "platform/debug_output.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>

#include "platform/installed_sink.h"
#include "platform/text.h"

namespace platform {

namespace {

constinit InstalledSink installedSink;

// Keeps the signals of a failing write from the host: blocks them on this thread and discards one that the write
// raised. The host's signal dispositions are not changed.
class BlockedWriteSignals {
  public:
    BlockedWriteSignals() {
        sigemptyset(&writeSignals_);
        sigaddset(&writeSignals_, SIGPIPE);
        sigaddset(&writeSignals_, SIGXFSZ);
        sigset_t pending;
        sigpending(&pending);
        // A signal that was already pending belongs to the host and is not discarded.
        for (const int signal : {SIGPIPE, SIGXFSZ}) {
            if (sigismember(&pending, signal) == 1) {
                sigdelset(&writeSignals_, signal);
            }
        }
        pthread_sigmask(SIG_BLOCK, &writeSignals_, &maskBefore_);
    }

    ~BlockedWriteSignals() {
        const timespec noWait = {};
        sigtimedwait(&writeSignals_, nullptr, &noWait);
        pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
    }

    BlockedWriteSignals(const BlockedWriteSignals&) = delete;
    BlockedWriteSignals& operator=(const BlockedWriteSignals&) = delete;

  private:
    sigset_t writeSignals_;
    sigset_t maskBefore_;
};

void WriteLine(std::string& line) {
    if (line.empty() || line.back() != '\n') {
        line.push_back('\n');
    }
    const BlockedWriteSignals blocked;
    std::size_t written = 0;
    while (written < line.size()) {
        const ssize_t count = ::write(STDERR_FILENO, line.data() + written, line.size() - written);
        if (count > 0) {
            // A signal can interrupt a long write; the rest follows.
            written += static_cast<std::size_t>(count);
        } else if (count == 0 || errno != EINTR) {
            return;
        }
    }
}

std::string ToUtf8(const wchar_t* text) {
    const int wideCount = static_cast<int>(std::min<std::size_t>(std::wcslen(text), INT_MAX / 4));
    std::string narrow;
    if (wideCount > 0) {
        const int byteCount = FromWide(codePageUtf8, text, wideCount, nullptr, 0);
        narrow.resize(static_cast<std::size_t>(byteCount));
        FromWide(codePageUtf8, text, wideCount, narrow.data(), byteCount);
    }
    return narrow;
}

}  // namespace

void WriteDebugOutput(const char* text) {
    if (text == nullptr) {
        return;
    }
    if (installedSink.Write(text)) {
        return;
    }
    const int errorBefore = errno;
    try {
        std::string line(text);
        WriteLine(line);
    } catch (const std::bad_alloc&) {
        // The line is lost; the caller continues.
    }
    errno = errorBefore;
}

void WriteDebugOutput(const wchar_t* text) {
    if (text == nullptr) {
        return;
    }
    if (installedSink.Write(text)) {
        return;
    }
    const int errorBefore = errno;
    try {
        std::string line = ToUtf8(text);
        WriteLine(line);
    } catch (const std::bad_alloc&) {
        // The line is lost; the caller continues.
    }
    errno = errorBefore;
}

DebugOutputSink* ExchangeDebugOutputSink(DebugOutputSink* sink) {
    return installedSink.Exchange(sink);
}

void FormatDebugLine(char* line, const char* format, std::va_list arguments) {
    line[0] = '\0';
    if (std::vsnprintf(line, debugLineCapacity, format, arguments) < 0) {
        line[0] = '\0';
    }
}

}  // namespace platform
