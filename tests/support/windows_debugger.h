/// The two receivers of debug output: a debugger of one process, and a viewer of all processes without a debugger.
#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test_support {

/// One debug output call of the process, as the debugger received it.
struct DebugText {
    bool isWide = false;
    std::string narrow;  ///< empty for a wide text
    std::wstring wide;   ///< empty for a narrow one
};

struct DebuggedRun {
    bool hasEnded = false;  ///< without being killed, in time
    DWORD exitCode = 0;
    std::vector<DebugText> texts;

    std::vector<std::string> NarrowTexts() const;
};

/// Runs a program to its end. Where the system does not pass on wide texts, they arrive in its code page.
DebuggedRun RunUnderDebugger(const std::string& commandLine);

/// Receives the debug output of processes without a debugger. One at a time on the whole machine.
class DebugOutputViewer {
  public:
    DebugOutputViewer();
    ~DebugOutputViewer();
    DebugOutputViewer(const DebugOutputViewer&) = delete;
    DebugOutputViewer& operator=(const DebugOutputViewer&) = delete;

    /// False when another viewer is already active.
    bool IsOnlyViewer() const { return buffer_ != nullptr; }

    /// What this process has written, in pieces as received.
    std::vector<std::string> Pieces() const;

  private:
    void Receive();

    HANDLE bufferReady_ = nullptr;
    HANDLE dataReady_ = nullptr;
    HANDLE ending_ = nullptr;
    HANDLE mapping_ = nullptr;
    const char* buffer_ = nullptr;
    mutable std::mutex mutex_;
    std::vector<std::string> pieces_;  // guarded by mutex
    std::thread receiver_;
};

}  // namespace test_support
