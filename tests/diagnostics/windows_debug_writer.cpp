// Writes to the debug output what its first argument names, for a debugger or viewer.

#include <string_view>

#include "diagnostics/debug_level.h"
#include "diagnostics/trace.h"
#include "platform/debug_output.h"
#include "tests/diagnostics/windows_debug_lines.h"

int main(int count, char** arguments) {
    const std::string_view part = count > 1 ? arguments[1] : "";
    diagnostics::SetDebugLevel(part == "quiet" ? 0 : 1);
    if (part == "plain") {
        for (const std::string& text : NarrowTexts()) {
            platform::WriteDebugOutput(text.c_str());
        }
        for (const std::wstring& text : WideTexts()) {
            platform::WriteDebugOutput(text.c_str());
        }
        return 42;
    }
    if (part == "lines" || part == "quiet") {
        for (const std::string& text : NarrowTexts()) {
            diagnostics::WriteTrace("room::Function", 7, text);
            diagnostics::WriteDebugText(text);
            diagnostics::LauncherTrace("%s", text.c_str());
        }
        for (const std::wstring& text : WideTexts()) {
            diagnostics::WriteTraceW("room::Function", 8, text);
        }
        return 42;
    }
    return 1;
}
