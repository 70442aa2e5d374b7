// Loads the library that its first argument names, starts a thread that never ends, and exits as the second one says.

#include <windows.h>

#include <cstdlib>
#include <string_view>

namespace {

DWORD WINAPI SleepForever(void*) {
    Sleep(INFINITE);
    return 0;
}

}  // namespace

int main(int count, char** arguments) {
    const HMODULE library = count > 2 ? LoadLibraryA(arguments[1]) : nullptr;
    if (library == nullptr) {
        return 1;
    }
    CloseHandle(CreateThread(nullptr, 0, &SleepForever, nullptr, 0, nullptr));
    if (arguments[2] == std::string_view("unload")) {
        FreeLibrary(library);
    }
    return 42;
}
