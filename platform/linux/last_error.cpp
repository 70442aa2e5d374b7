#include "platform/last_error.h"

#include <string.h>

namespace platform {

namespace {

// An integer has no destructor: one would be registered per thread and keep this library from being unloaded.
thread_local std::uint32_t lastError = 0;

}  // namespace

std::uint32_t LastError() {
    return lastError;
}

void SetLastError(std::uint32_t error) {
    lastError = error;
}

std::string SystemErrorText(std::uint32_t error) {
    if (error == 0) {
        return {};
    }
    const char* text = ::strerrordesc_np(static_cast<int>(error));
    return text == nullptr ? std::string() : std::string(text);
}

}  // namespace platform
