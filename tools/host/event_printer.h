/// Prints events, one per line.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "tools/host/console.h"
#include "tools/host/event.h"
#include "tools/host/system.h"

namespace plate_host {

/// Writes whole lines, one at a time. Any thread.
class EventPrinter final : public EventSink {
  public:
    using Output = std::function<WriteResult(std::string_view)>;

    /// The output is called by one thread at a time. The console must outlive the printer.
    EventPrinter(Output output, Console& console) : output_(std::move(output)), console_(console) {}

    void OnEvent(const EventRecord& event) override;

    /// The number of all events, including those that could not be written.
    std::uint64_t EventCount() const { return eventCount_.load(); }
    /// The number of events that report a plate.
    std::uint64_t PlateCount() const { return plateCount_.load(); }

    /// True after the output has failed; nothing is written any more.
    bool HasEnded() const { return hasEnded_.load(); }
    /// Why the output failed; empty when its reader closed it, which is not an error.
    std::string Error() const;

  private:
    void Write(const std::string& line);

    const Output output_;  // called under mutex
    Console& console_;
    std::atomic<std::uint64_t> eventCount_{0};
    std::atomic<std::uint64_t> plateCount_{0};
    std::atomic<bool> hasEnded_{false};
    mutable std::mutex mutex_;
    std::string error_;  // guarded by mutex
};

}  // namespace plate_host
