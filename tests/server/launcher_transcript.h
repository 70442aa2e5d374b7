/// Records a launcher's output and operations in one list.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fake_processes.h"
#include "tests/support/recording_debug_output.h"

/// Lines of the debug output and operations on processes, in order, each with its thread. Must outlive every launcher.
/// Any thread.
class LauncherTranscript final : public platform::DebugOutputSink {
  public:
    LauncherTranscript() : before_(platform::ExchangeDebugOutputSink(this)) {
        fake_processes::OnOperation([this](const std::string& line) { Add(line); });
    }
    ~LauncherTranscript() override {
        fake_processes::OnOperation({});
        platform::ExchangeDebugOutputSink(before_);
    }

    void Write(const char* text) override { Add(text); }
    void Write(const wchar_t*) override { Add("a wide line"); }

    /// Sets an action that runs after each entry, on the thread of the entry and without a lock.
    void OnEntry(std::function<void(const std::string& entry)> action) {
        const std::lock_guard lock(mutex_);
        onEntry_ = std::move(action);
    }

    std::vector<std::string> Entries() const {
        const std::lock_guard lock(mutex_);
        return entries_;
    }

    /// Returns the entries of one thread.
    std::vector<std::string> EntriesOf(std::thread::id thread) const {
        const std::lock_guard lock(mutex_);
        std::vector<std::string> ofThread;
        for (std::size_t index = 0; index < entries_.size(); ++index) {
            if (threads_[index] == thread) {
                ofThread.push_back(entries_[index]);
            }
        }
        return ofThread;
    }

    /// Returns the output lines without their prefix, and no operations.
    std::vector<std::string> Lines() const {
        const std::string prefix = "ServerLauncher: ";
        std::vector<std::string> lines;
        for (const std::string& entry : Entries()) {
            if (entry.starts_with(prefix)) {
                lines.push_back(entry.substr(prefix.size()));
            }
        }
        return lines;
    }

    void Clear() {
        const std::lock_guard lock(mutex_);
        entries_.clear();
        threads_.clear();
    }

  private:
    void Add(const std::string& entry) {
        std::function<void(const std::string&)> tell;
        {
            const std::lock_guard lock(mutex_);
            entries_.push_back(entry);
            threads_.push_back(std::this_thread::get_id());
            tell = onEntry_;
        }
        if (tell) {
            tell(entry);
        }
    }

    platform::DebugOutputSink* before_;
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;                 // guarded by mutex
    std::vector<std::thread::id> threads_;             // guarded by mutex
    std::function<void(const std::string&)> onEntry_;  // guarded by mutex
};
