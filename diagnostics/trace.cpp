#include "diagnostics/trace.h"

#include <array>
#include <cstdarg>
#include <cstring>
#include <numeric>

#include "diagnostics/debug_level.h"
#include "platform/debug_output.h"
#include "platform/last_error.h"

namespace diagnostics {

namespace {

constexpr std::size_t launcherTextLength = 999;

// The ctype facet fills its caches of narrow and wide characters on first use, without a lock. Here they are filled
// while the library is loaded, before other threads can use it.
const std::locale& WithFilledCaches(const std::locale& locale) {
    const auto& characters = std::use_facet<std::ctype<char>>(locale);
    std::array<char, 256> all{};
    std::iota(all.begin(), all.end(), '\0');
    std::array<char, all.size()> forms{};
    characters.narrow(all.data(), all.data() + all.size(), '\0', forms.data());
    characters.widen(all.data(), all.data() + all.size(), forms.data());
    return locale;
}

const std::locale& messageLocale = WithFilledCaches(std::locale::classic());

}  // namespace

const std::locale& MessageLocale() {
    return messageLocale;
}

// The bracket stays open, because viewers filter for exactly this form.
void WriteTrace(const char* function, std::uint32_t line, const std::string& message) {
    platform::WriteDebugOutput(Compose("vexlane[%1%(%2%): %3%", function, line, message).c_str());
}

void WriteTraceW(const char* function, std::uint32_t line, const std::wstring& message) {
    if (DebugLevel() == 0) {
        return;
    }
    const std::wstring wideFunction(function, function + std::strlen(function));
    platform::WriteDebugOutput(Compose(L"vexlane[%1%(%2%): %3%", wideFunction, line, message).c_str());
}

bool LauncherTrace(const char* format, ...) {
    if (DebugLevel() == 0) {
        return true;
    }
    char text[platform::debugLineCapacity] = {};
    std::va_list arguments;
    va_start(arguments, format);
    platform::FormatDebugLine(text, format, arguments);
    va_end(arguments);
    text[launcherTextLength] = '\0';
    platform::WriteDebugOutput(Compose("ServerLauncher: %1%", text).c_str());
    return true;
}

void WriteDebugText(const std::string& text) {
    platform::WriteDebugOutput(text.c_str());
}

std::string LastErrorText() {
    return platform::SystemErrorText(platform::LastError());
}

}  // namespace diagnostics
