/// Standard error: lines from any thread, and on a terminal a progress bar below them.
#pragma once

#include <functional>
#include <mutex>
#include <string>

namespace plate_host {

/// Converts a text to one printable line: control characters become spaces, and both ends are trimmed.
std::string OneLine(const std::string& text);

/// Any thread. A failed write is not an error: there is nowhere left to report it.
class Console {
  public:
    explicit Console(bool isTerminal) : isTerminal_(isTerminal) {}
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    bool IsTerminal() const { return isTerminal_; }

    /// Writes a line above the bar.
    void Line(const std::string& text);
    /// Replaces the bar; an empty text removes it. Writes nothing without a terminal.
    void Bar(const std::string& text);
    /// Hides the bar while `action` runs, which may write to the same terminal.
    void WithoutBar(const std::function<void()>& action);

  private:
    const bool isTerminal_;
    std::mutex mutex_;
    std::string bar_;  // guarded by mutex
};

}  // namespace plate_host
