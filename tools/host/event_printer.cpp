#include "tools/host/event_printer.h"

namespace plate_host {

void EventPrinter::OnEvent(const EventRecord& event) {
    ++eventCount;
    if (event.name == OKM8::Analytics::EventName::Plate) {
        ++plateCount;
    }
    const std::string line = ToJsonLine(event);
    console.WithoutBar([this, &line] { Write(line); });
}

void EventPrinter::Write(const std::string& line) {
    const std::lock_guard lock(mutex);
    if (hasEnded.load()) {
        return;
    }
    const WriteResult result = output(line);
    if (!result.isWritten) {
        error = result.error;
        hasEnded.store(true);
    }
}

std::string EventPrinter::Error() const {
    const std::lock_guard lock(mutex);
    return error;
}

}  // namespace plate_host
