#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <system_error>

#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

std::atomic<int> interruption{0};

BOOL WINAPI OnControl(DWORD) {
    int none = 0;
    return interruption.compare_exchange_strong(none, 2) ? TRUE : FALSE;
}

class HandleSource final : public ByteSource {
  public:
    HandleSource(HANDLE newHandle, bool newOwned) : handle(newHandle), owned(newOwned) {}
    HandleSource(const HandleSource&) = delete;
    HandleSource& operator=(const HandleSource&) = delete;
    ~HandleSource() override {
        if (owned) {
            ::CloseHandle(handle);
        }
    }

    std::size_t Read(void* buffer, std::size_t size) override {
        DWORD count = 0;
        if (Interruption() != 0) {
            return 0;
        }
        if (::ReadFile(handle, buffer, static_cast<DWORD>(size), &count, nullptr) == FALSE) {
            const DWORD code = ::GetLastError();
            if (code != ERROR_BROKEN_PIPE) {
                error = std::system_category().message(static_cast<int>(code));
            }
            return 0;
        }
        return count;
    }

    std::string Error() const override { return error; }

    std::optional<std::uint64_t> Size() const override {
        LARGE_INTEGER size = {};
        if (::GetFileType(handle) != FILE_TYPE_DISK || ::GetFileSizeEx(handle, &size) == FALSE) {
            return std::nullopt;
        }
        return static_cast<std::uint64_t>(size.QuadPart);
    }

  private:
    const HANDLE handle;
    const bool owned;
    std::string error;
};

}  // namespace

void PrepareProcess() {
    ::SetConsoleCtrlHandler(OnControl, TRUE);
    ::_setmode(::_fileno(stdout), _O_BINARY);
}

int Interruption() {
    return interruption.load();
}

bool ErrorsGoToTerminal() {
    return ::_isatty(2) != 0;
}

const char* LibraryFileName() {
    return "vexlane.dll";
}

const char* EngineFileName() {
    return "Recon64.dll";
}

bool EngineIsBound() {
    return ::GetModuleHandleA(EngineFileName()) != nullptr;
}

std::vector<std::string> DebugLevelPlaces() {
    const std::string value = "\\SOFTWARE\\Tellumark\\KORA\\DEBUG, DebugLevel";
    return {"HKEY_LOCAL_MACHINE" + value, "HKEY_CURRENT_USER" + value};
}

std::unique_ptr<ByteSource> OpenByteSource(const std::string& path) {
    if (path == "-") {
        return std::make_unique<HandleSource>(::GetStdHandle(STD_INPUT_HANDLE), false);
    }
    const HANDLE handle =
        ::CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        throw Failure("cannot open \"" + path +
                      "\": " + std::system_category().message(static_cast<int>(::GetLastError())));
    }
    return std::make_unique<HandleSource>(handle, true);
}

}  // namespace plate_host
