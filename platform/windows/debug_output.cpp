#include "platform/debug_output.h"

#include <windows.h>

#include "platform/installed_sink.h"

namespace platform {

namespace {

constinit InstalledSink installedSink;

}  // namespace

void WriteDebugOutput(const char* text) {
    if (text == nullptr) {
        return;
    }
    if (!installedSink.Write(text)) {
        ::OutputDebugStringA(text);
    }
}

void WriteDebugOutput(const wchar_t* text) {
    if (text == nullptr) {
        return;
    }
    if (!installedSink.Write(text)) {
        ::OutputDebugStringW(text);
    }
}

DebugOutputSink* ExchangeDebugOutputSink(DebugOutputSink* sink) {
    return installedSink.Exchange(sink);
}

void FormatDebugLine(char* line, const char* format, std::va_list arguments) {
    line[0] = '\0';
    ::wvsprintfA(line, format, arguments);
    // wvsprintf stops at 1024 characters; its documentation does not say whether that includes the NUL.
    line[debugLineCapacity - 1] = '\0';
}

}  // namespace platform
