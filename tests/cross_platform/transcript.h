/// The record of a round: calls and trace lines in their order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/plugin/plugin.h"
#include "tools/validate/recording_host.h"

namespace transcript {

/// Converts bytes to two lower-case digits each.
std::string Hex(const void* bytes, std::size_t count);
inline std::string Hex(const std::string& bytes) {
    return Hex(bytes.data(), bytes.size());
}
/// Converts a text to hexadecimal digits, or a null pointer to a dash.
std::string HexOfText(const char* text);

/// Replaces each unprintable character by a backslash and two digits.
std::string Escape(const std::string& text);

/// Masks everything in a trace line that differs between runs: the launcher's handles, except the empty one, and the
/// system's error texts.
std::string Mask(const std::string& line);

/// Keeps the order of host calls, the library's calls of host objects and its trace lines: each Write first appends the
/// trace lines that the library has written before.
class Transcript {
  public:
    /// Reads trace lines from `lines`, which must outlive it.
    explicit Transcript(const plugin_test::DebugLines& lines) : source_(lines) {}

    void Write(const std::string& line);

    /// Writes a call by the library with all its arguments.
    void Write(const recording_host::HostCall& call);

    /// Appends the lines of the first detector's creation, which two threads write: waits until the launcher has
    /// written that many, and sorts those. Throws std::exception if they do not appear.
    void AppendUnorderedLines(std::size_t launcherLineCount);

    /// Returns all lines with their line ends.
    const std::string& Text();

  private:
    std::vector<std::string> NewLines();
    void AppendNewLines();
    void Append(const std::string& line);

    const plugin_test::DebugLines& source_;
    std::size_t read_ = 0;  // of the source, in bytes
    bool isAfterSystemText_ = false;
    std::string text_;
};

}  // namespace transcript
