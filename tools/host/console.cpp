#include "tools/host/console.h"

#include "tools/host/system.h"

namespace plate_host {
namespace {

constexpr char clearLine[] = "\r\033[K";

void Write(const std::string& text) {
    WriteStandard(StandardStream::Errors, text);
}

}  // namespace

std::string OneLine(const std::string& text) {
    std::string line = text;
    for (char& character : line) {
        const auto code = static_cast<unsigned char>(character);
        if (code < 0x20 || code == 0x7F) {
            character = ' ';
        }
    }
    const std::size_t first = line.find_first_not_of(' ');
    if (first == std::string::npos) {
        return {};
    }
    return line.substr(first, line.find_last_not_of(' ') - first + 1);
}

void Console::Line(const std::string& text) {
    const std::lock_guard lock(mutex_);
    Write(bar_.empty() ? text + "\n" : clearLine + text + "\n" + bar_);
}

void Console::Bar(const std::string& text) {
    if (!isTerminal_) {
        return;
    }
    const std::lock_guard lock(mutex_);
    if (text == bar_) {
        return;
    }
    bar_ = text;
    Write(clearLine + bar_);
}

void Console::WithoutBar(const std::function<void()>& action) {
    if (!isTerminal_) {
        action();
        return;
    }
    const std::lock_guard lock(mutex_);
    if (bar_.empty()) {
        action();
        return;
    }
    Write(clearLine);
    action();
    Write(bar_);
}

}  // namespace plate_host
