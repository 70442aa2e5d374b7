/// Trace lines on the debug output. Any thread; each line is written with one call, so lines do not mix.
#pragma once

#include <boost/format.hpp>
#include <cstdint>
#include <locale>
#include <string>

#include "diagnostics/debug_level.h"

namespace diagnostics {

/// Returns the locale of all messages: the classic one, regardless of the host's settings.
const std::locale& MessageLocale();

/// Returns a message composed with positional placeholders ("%1%", "%2%") in MessageLocale(). Throws std::exception
/// when the arguments do not match the placeholders.
template <class... Arguments>
std::string Compose(const char* format, const Arguments&... arguments) {
    return (boost::format(format, MessageLocale()) % ... % arguments).str();
}

template <class... Arguments>
std::wstring Compose(const wchar_t* format, const Arguments&... arguments) {
    return (boost::wformat(format, MessageLocale()) % ... % arguments).str();
}

/// Writes "vexlane[FUNCTION(LINE): MESSAGE", complete and without adding a line end. The debug level is not checked:
/// the caller checks it. Throws std::exception.
void WriteTrace(const char* function, std::uint32_t line, const std::string& message);

/// Composes a message and writes it as WriteTrace does, unless the debug level is 0. On failure the message is dropped.
/// For code that must not throw.
template <class... Arguments>
void TraceOrDrop(const char* function, std::uint32_t line, const char* format, const Arguments&... arguments) noexcept {
    if (DebugLevel() == 0) {
        return;
    }
    try {
        WriteTrace(function, line, Compose(format, arguments...));
    } catch (...) {
        // A failure to trace cannot be reported.
    }
}

/// WriteTrace for wide text, but it writes nothing when the debug level is 0. Throws std::exception.
void WriteTraceW(const char* function, std::uint32_t line, const std::wstring& message);

/// Writes "ServerLauncher: TEXT", with TEXT formatted printf-style and truncated at 999 characters, unless the debug
/// level is 0. Always returns true. Throws std::exception.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
bool LauncherTrace(const char* format, ...);

/// Writes a text unchanged, regardless of the debug level.
void WriteDebugText(const std::string& text);

/// Returns the system's message for the calling thread's last error; empty when there is none.
std::string LastErrorText();

}  // namespace diagnostics
