/// What is written down of a round, line by line, and where trace lines come in.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/plugin/plugin.h"
#include "tests/support/recording_host.h"

namespace transcript {

/// Bytes as two lower-case digits each; a dash for none.
std::string Hex(const void* bytes, std::size_t count);
inline std::string Hex(const std::string& bytes) {
    return Hex(bytes.data(), bytes.size());
}
/// A dash and nothing else for a null pointer.
std::string HexOfText(const char* text);

/// What cannot be read in a text as a backslash and its two digits.
std::string Escaped(const std::string& text);

/// A trace line with everything in it that differs between two runs taken out: the launcher's handles, but not the
/// empty one, and the system's error texts.
std::string Masked(const std::string& line);

/// Keeps the order in which host calls, the library's calls of host objects and its trace lines happen. Whoever writes
/// a line takes in first what the library has traced before.
class Transcript {
  public:
    /// Takes trace lines from `lines`, which must outlive it.
    explicit Transcript(const plugin_test::DebugLines& lines) : source_(lines) {}

    void Write(const std::string& line);

    /// A call of the library, with all its arguments.
    void Write(const recording_host::HostCall& call);

    /// Takes in the lines of the first detector's birth, which two threads write: waits until the launcher has written
    /// that many of its own, and sorts those. Throws std::exception when they do not come.
    void TakeUnorderedLines(std::size_t launcherLineCount);

    /// All lines, each with its end.
    const std::string& Text();

  private:
    std::vector<std::string> NewLines();
    void TakeLines();
    void Append(const std::string& line);

    const plugin_test::DebugLines& source_;
    std::size_t read_ = 0;  // of the source, in bytes
    bool isBehindSystemText_ = false;
    std::string text_;
};

}  // namespace transcript
