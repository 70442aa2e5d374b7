/// The system's debug output, which a viewer shows: OutputDebugString on Windows, standard error on Linux.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace platform {

/// Writes a NUL-terminated text in one call; does nothing for null. Wide text becomes UTF-8 on Linux, which also adds a
/// missing line end. A failure is ignored. Any thread.
void WriteDebugOutput(const char* text);
void WriteDebugOutput(const wchar_t* text);

/// Receives the texts in place of the system's debug output.
class DebugOutputSink {
  public:
    virtual ~DebugOutputSink() = default;
    /// Called on the writing thread, possibly on several threads at once.
    virtual void Write(const char* text) = 0;
    virtual void Write(const wchar_t* text) = 0;
};

/// Installs a sink, or null for the system's output. Returns the previous sink once no thread writes to it any more.
/// Sinks are not owned. Any thread, but not from a sink.
DebugOutputSink* ExchangeDebugOutputSink(DebugOutputSink* sink);

/// The size of FormatDebugLine's buffer in bytes, including the NUL.
inline constexpr std::size_t debugLineCapacity = 1025;

/// Formats printf-style into `line`, a buffer of debugLineCapacity bytes; the result is truncated at 1024 characters.
/// Any thread.
void FormatDebugLine(char* line, const char* format, std::va_list arguments);

}  // namespace platform
