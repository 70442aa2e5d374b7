#include "tools/host/event_printer.h"

#include <cerrno>
#include <system_error>

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
    errno = 0;
    const bool written = std::fwrite(line.data(), 1, line.size(), output) == line.size() && std::fflush(output) == 0;
    if (!written) {
        if (errno != EPIPE) {
            error = std::generic_category().message(errno);
        }
        hasEnded.store(true);
    }
}

std::string EventPrinter::Error() const {
    const std::lock_guard lock(mutex);
    return error;
}

}  // namespace plate_host
