/// What a launcher says and does, in one list.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/fake_processes.h"
#include "tests/support/recording_debug_output.h"

/// Lines of the debug output and operations on processes, in the order in which they came, each with its thread. Lives
/// longer than every launcher. Any thread.
class LauncherTranscript final : public platform::DebugOutputSink {
  public:
    LauncherTranscript() : before(platform::ExchangeDebugOutputSink(this)) {
        fake_processes::OnOperation([this](const std::string& line) { Add(line); });
    }
    ~LauncherTranscript() override {
        fake_processes::OnOperation({});
        platform::ExchangeDebugOutputSink(before);
    }

    void Write(const char* text) override { Add(text); }
    void Write(const wchar_t*) override { Add("a wide line"); }

    /// Called behind each entry, without a lock held, on the thread that made it.
    void OnEntry(std::function<void(const std::string& entry)> action) {
        const std::lock_guard lock(mutex);
        onEntry = std::move(action);
    }

    std::vector<std::string> Entries() const {
        const std::lock_guard lock(mutex);
        return entries;
    }

    /// Those of one thread.
    std::vector<std::string> EntriesOf(std::thread::id thread) const {
        const std::lock_guard lock(mutex);
        std::vector<std::string> ofThread;
        for (std::size_t index = 0; index < entries.size(); ++index) {
            if (threads[index] == thread) {
                ofThread.push_back(entries[index]);
            }
        }
        return ofThread;
    }

    /// Without the operations, and without the prefix of the lines.
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
        const std::lock_guard lock(mutex);
        entries.clear();
        threads.clear();
    }

  private:
    void Add(const std::string& entry) {
        std::function<void(const std::string&)> tell;
        {
            const std::lock_guard lock(mutex);
            entries.push_back(entry);
            threads.push_back(std::this_thread::get_id());
            tell = onEntry;
        }
        if (tell) {
            tell(entry);
        }
    }

    platform::DebugOutputSink* before;
    mutable std::mutex mutex;
    std::vector<std::string> entries;                 // guarded by mutex
    std::vector<std::thread::id> threads;             // guarded by mutex
    std::function<void(const std::string&)> onEntry;  // guarded by mutex
};
