/// Standard error: lines from any thread, and a bar that stays below them on a terminal.
#pragma once

#include <functional>
#include <mutex>
#include <string>

namespace plate_host {

/// One printable line: control characters become spaces, the ends are trimmed.
std::string OneLine(const std::string& text);

/// Any thread. A failed write is not an error: there is nowhere left to report it.
class Console {
  public:
    explicit Console(bool isTerminal) : isTerminal_(isTerminal) {}
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    bool IsTerminal() const { return isTerminal_; }

    /// Writes a line of its own, above the bar.
    void Line(const std::string& text);
    /// Replaces the bar; an empty text takes it away. Without a terminal nothing is written.
    void Bar(const std::string& text);
    /// Does something that may write to the same terminal, with the bar out of its way.
    void WithoutBar(const std::function<void()>& action);

  private:
    const bool isTerminal_;
    std::mutex mutex_;
    std::string bar_;  // guarded by mutex
};

}  // namespace plate_host
