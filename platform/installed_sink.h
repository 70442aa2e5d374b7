/// The installed sink of the debug output, for all systems.
#pragma once

#include <atomic>
#include <thread>

#include "platform/debug_output.h"

namespace platform {

/// Any thread.
class InstalledSink {
  public:
    /// Writes to the sink. Returns false when there is none.
    template <class Character>
    bool Write(const Character* text) {
        const Writer writer(writers_);
        DebugOutputSink* const sink = installed_;
        if (sink != nullptr) {
            sink->Write(text);
        }
        return sink != nullptr;
    }

    /// Installs a sink and waits until no thread writes to the previous one, which it returns. REQUIRES: not called
    /// from a sink.
    DebugOutputSink* Exchange(DebugOutputSink* sink) {
        DebugOutputSink* const before = installed_.exchange(sink);
        while (writers_ != 0) {
            std::this_thread::yield();
        }
        return before;
    }

  private:
    struct Writer {
        explicit Writer(std::atomic<int>& others) : writers(others) { ++writers; }
        ~Writer() { --writers; }
        std::atomic<int>& writers;
    };

    std::atomic<DebugOutputSink*> installed_ = nullptr;
    std::atomic<int> writers_ = 0;
};

}  // namespace platform
