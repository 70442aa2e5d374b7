#include "platform/debug_output.h"

#include <windows.h>

#include <atomic>

namespace platform {

namespace {

constinit std::atomic<DebugOutputSink*> installedSink = nullptr;

}  // namespace

void WriteDebugOutput(const char* text) {
    if (text == nullptr) {
        return;
    }
    if (DebugOutputSink* sink = installedSink.load(std::memory_order_acquire)) {
        sink->Write(text);
    } else {
        ::OutputDebugStringA(text);
    }
}

void WriteDebugOutput(const wchar_t* text) {
    if (text == nullptr) {
        return;
    }
    if (DebugOutputSink* sink = installedSink.load(std::memory_order_acquire)) {
        sink->Write(text);
    } else {
        ::OutputDebugStringW(text);
    }
}

DebugOutputSink* ExchangeDebugOutputSink(DebugOutputSink* sink) {
    return installedSink.exchange(sink, std::memory_order_acq_rel);
}

void FormatDebugLine(char* line, const char* format, std::va_list arguments) {
    line[0] = '\0';
    ::wvsprintfA(line, format, arguments);
    // The formatter stops at 1024 characters; whether its NUL is among them is nowhere promised.
    line[debugLineCapacity - 1] = '\0';
}

}  // namespace platform
