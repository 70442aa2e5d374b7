/// Trace lines on the debug output. Any thread; a line is one call, so lines do not mix.
#pragma once

#include <boost/format.hpp>
#include <cstdint>
#include <locale>
#include <string>

#include "diagnostics/debug_level.h"

namespace diagnostics {

/// The locale of all messages: the classic one, whatever the host has set.
const std::locale& MessageLocale();

/// Composes a message with positional placeholders ("%1%", "%2%"), in the same way whatever locale the host has set.
/// Throws std::exception when the arguments do not fit the placeholders.
template <class... Arguments>
std::string Compose(const char* format, const Arguments&... arguments) {
    return (boost::format(format, MessageLocale()) % ... % arguments).str();
}

template <class... Arguments>
std::wstring Compose(const wchar_t* format, const Arguments&... arguments) {
    return (boost::wformat(format, MessageLocale()) % ... % arguments).str();
}

/// Writes "vexlane[FUNCTION(LINE): MESSAGE", whole, without a line end of its own and whatever the debug level: callers
/// look at the level first. Throws std::exception.
void WriteTrace(const char* function, std::uint32_t line, const std::string& message);

/// Composes a message and writes it as WriteTrace does, unless the debug level is 0; drops it when that fails. For
/// places from which nothing may be thrown.
template <class... Arguments>
void TraceOrDrop(const char* function, std::uint32_t line, const char* format, const Arguments&... arguments) noexcept {
    if (DebugLevel() == 0) {
        return;
    }
    try {
        WriteTrace(function, line, Compose(format, arguments...));
    } catch (...) {
        // There is no further place to report to.
    }
}

/// The same as WriteTrace for wide text, but writes nothing when the debug level is 0.
void WriteTraceW(const char* function, std::uint32_t line, const std::wstring& message);

/// Writes "ServerLauncher: TEXT", TEXT made printf-style and cut at 999 characters; nothing when the debug level is 0.
/// Returns true, always.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
bool LauncherTrace(const char* format, ...);

/// Writes a text as it stands, whatever the debug level.
void WriteDebugText(const std::string& text);

/// The system's message for the calling thread's last error; empty when there is none.
std::string LastErrorText();

}  // namespace diagnostics
