#include "platform/text.h"

#include <windows.h>

namespace platform {

namespace {

static_assert(codePageAnsi == CP_ACP);
static_assert(codePageUtf8 == CP_UTF8);

// To the system a negative count means NUL-terminated text.
bool IsEmpty(int count) {
    if (count > 0) {
        return false;
    }
    ::SetLastError(ERROR_INVALID_PARAMETER);
    return true;
}

}  // namespace

int ToWide(std::uint32_t codePage, const char* bytes, int byteCount, wchar_t* wide, int capacity) {
    return IsEmpty(byteCount) ? 0 : ::MultiByteToWideChar(codePage, 0, bytes, byteCount, wide, capacity);
}

int FromWide(std::uint32_t codePage, const wchar_t* wide, int wideCount, char* bytes, int capacity) {
    // A missing character must not become a similar one. UTF-8 has all characters and does not accept the flag.
    const bool isUtf8 = codePage == codePageUtf8 || (codePage == codePageAnsi && ::GetACP() == codePageUtf8);
    const DWORD flags = isUtf8 ? 0 : WC_NO_BEST_FIT_CHARS;
    return IsEmpty(wideCount)
               ? 0
               : ::WideCharToMultiByte(codePage, flags, wide, wideCount, bytes, capacity, nullptr, nullptr);
}

}  // namespace platform
