/// The two who read debug output from outside: a debugger of one process, and a viewer of all that have none.
#pragma once

#include <windows.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace test_support {

/// One call of the process, as it reached the debugger.
struct DebugText {
    bool isWide = false;
    std::string narrow;  ///< empty for a wide text
    std::wstring wide;   ///< empty for a narrow one
};

struct DebuggedRun {
    bool hasEnded = false;  ///< by itself and in time
    DWORD exitCode = 0;
    std::vector<DebugText> texts;

    std::vector<std::string> NarrowTexts() const;
};

/// Runs a program to its end. Where the system does not hand wide texts on, they come in its code page.
DebuggedRun RunUnderDebugger(const std::string& commandLine);

/// Receives what processes without a debugger write. One at a time on the whole machine.
class DebugOutputViewer {
  public:
    DebugOutputViewer();
    ~DebugOutputViewer();
    DebugOutputViewer(const DebugOutputViewer&) = delete;
    DebugOutputViewer& operator=(const DebugOutputViewer&) = delete;

    /// False where somebody else looks already.
    bool IsAlone() const { return buffer_ != nullptr; }

    /// What this process has written, each piece as it came.
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
