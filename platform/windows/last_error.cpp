#include "platform/last_error.h"

#include <windows.h>

namespace platform {

std::uint32_t LastError() {
    return ::GetLastError();
}

void SetLastError(std::uint32_t error) {
    ::SetLastError(error);
}

std::string SystemErrorText(std::uint32_t error) {
    if (error == 0) {
        return {};
    }
    char* buffer = nullptr;
    // With FORMAT_MESSAGE_ALLOCATE_BUFFER the buffer argument is a pointer to the buffer's pointer.
    const DWORD length = ::FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error,
        MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<char*>(&buffer), 0, nullptr);
    if (length == 0 || buffer == nullptr) {
        return {};
    }
    std::string text(buffer, length);
    ::LocalFree(buffer);
    return text;
}

}  // namespace platform
