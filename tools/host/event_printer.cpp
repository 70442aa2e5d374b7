#include "tools/host/event_printer.h"

namespace plate_host {

void EventPrinter::OnEvent(const EventRecord& event) {
    ++eventCount_;
    if (event.name == OKM8::Analytics::EventName::Plate) {
        ++plateCount_;
    }
    const std::string line = ToJsonLine(event);
    console_.WithoutBar([this, &line] { Write(line); });
}

void EventPrinter::Write(const std::string& line) {
    const std::lock_guard lock(mutex_);
    if (hasEnded_.load()) {
        return;
    }
    const WriteResult result = output_(line);
    if (!result.isWritten) {
        error_ = result.error;
        hasEnded_.store(true);
    }
}

std::string EventPrinter::Error() const {
    const std::lock_guard lock(mutex_);
    return error_;
}

}  // namespace plate_host
