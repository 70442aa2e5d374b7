/// Records the debug output of this process.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "platform/debug_output.h"
#include "tests/support/allocation_count.h"

/// Installed during its lifetime. Any thread.
class RecordingDebugOutput final : public platform::DebugOutputSink {
  public:
    struct Line {
        bool isWide = false;
        std::string narrow;  ///< of a wide line: its characters cut to bytes
        std::wstring wide;   ///< empty for a narrow line
    };

    RecordingDebugOutput() : before_(platform::ExchangeDebugOutputSink(this)) {}
    ~RecordingDebugOutput() override { platform::ExchangeDebugOutputSink(before_); }

    void Write(const char* text) override {
        const allocation_count::WithoutFailure own;
        const std::lock_guard lock(mutex_);
        lines_.push_back({false, text, {}});
    }

    void Write(const wchar_t* text) override {
        const allocation_count::WithoutFailure own;
        const std::lock_guard lock(mutex_);
        const std::wstring wide(text);
        std::string narrow;
        for (const wchar_t character : wide) {
            narrow.push_back(static_cast<char>(character));
        }
        lines_.push_back({true, narrow, wide});
    }

    std::vector<Line> Lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

    std::vector<std::string> Texts() const {
        std::vector<std::string> texts;
        for (const Line& line : Lines()) {
            texts.push_back(line.narrow);
        }
        return texts;
    }

    void Clear() {
        const std::lock_guard lock(mutex_);
        lines_.clear();
    }

  private:
    platform::DebugOutputSink* before_;
    mutable std::mutex mutex_;
    std::vector<Line> lines_;  // guarded by mutex
};
