/// The system's debug output, where a viewer picks lines up.
#pragma once

#include <cstdarg>
#include <cstddef>

namespace platform {

/// Writes one text, up to its NUL, in one call. Cannot fail. Any thread.
void WriteDebugOutput(const char* text);
void WriteDebugOutput(const wchar_t* text);

/// Takes the texts in place of the system's debug output.
class DebugOutputSink {
  public:
    virtual ~DebugOutputSink() = default;
    /// Called on the writing thread, possibly on several at once.
    virtual void Write(const char* text) = 0;
    virtual void Write(const wchar_t* text) = 0;
};

/// Installs a sink, null for the system's own output, and returns the one before, which nobody writes into any more.
/// The sink stays the caller's. Any thread, but not from a sink.
DebugOutputSink* ExchangeDebugOutputSink(DebugOutputSink* sink);

/// The longest line that FormatDebugLine makes, its NUL included.
inline constexpr std::size_t debugLineCapacity = 1025;

/// Formats printf-style into `line`, which holds debugLineCapacity bytes; at most 1024 characters are made. Any thread.
void FormatDebugLine(char* line, const char* format, std::va_list arguments);

}  // namespace platform
