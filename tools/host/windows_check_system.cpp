#include <windows.h>
// clang-format off: requires the header above
#include <winver.h>
// clang-format on

#include <algorithm>
#include <bit>
#include <boost/algorithm/string/predicate.hpp>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <optional>
#include <set>
#include <system_error>

#include "tools/host/check_system.h"
#include "tools/host/console.h"
#include "tools/host/failure.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

std::string SystemText(DWORD error) {
    return OneLine(std::system_category().message(static_cast<int>(error)));
}

// Quotes a word so that the program gets it unchanged: backslashes count only before a quotation mark.
std::wstring Quoted(const std::wstring& word) {
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t character : word) {
        if (character == L'"') {
            quoted.append(backslashes + 1, L'\\');
        }
        backslashes = character == L'\\' ? backslashes + 1 : 0;
        quoted += character;
    }
    return quoted.append(backslashes, L'\\') + L'"';
}

// An inheritable copy of one of this program's streams.
HANDLE Inheritable(HANDLE handle) {
    HANDLE copy = nullptr;
    ::DuplicateHandle(::GetCurrentProcess(), handle, ::GetCurrentProcess(), &copy, 0, TRUE, DUPLICATE_SAME_ACCESS);
    return copy;
}

std::wstring SystemFolder() {
    std::wstring folder(::GetSystemDirectoryW(nullptr, 0), L'\0');
    folder.resize(::GetSystemDirectoryW(folder.data(), static_cast<UINT>(folder.size())));
    return folder;
}

std::wstring WindowsFolder() {
    std::wstring folder(::GetSystemWindowsDirectoryW(nullptr, 0), L'\0');
    folder.resize(::GetSystemWindowsDirectoryW(folder.data(), static_cast<UINT>(folder.size())));
    return folder;
}

std::wstring SearchPath() {
    std::wstring path(::GetEnvironmentVariableW(L"PATH", nullptr, 0), L'\0');
    path.resize(::GetEnvironmentVariableW(L"PATH", path.data(), static_cast<DWORD>(path.size())));
    return path;
}

// The path of a file in the first of the folders that has it.
std::optional<std::filesystem::path> FindIn(const std::vector<std::filesystem::path>& folders,
                                            const std::filesystem::path& name) {
    for (const std::filesystem::path& folder : folders) {
        if (IsRegularFile(ToText(folder / name))) {
            return folder / name;
        }
    }
    return std::nullopt;
}

void AppendSearchPath(std::vector<std::filesystem::path>& folders) {
    const std::wstring path = SearchPath();
    for (std::size_t begin = 0; begin < path.size();) {
        const std::size_t end = std::min(path.find(L';', begin), path.size());
        if (end > begin) {
            folders.emplace_back(path.substr(begin, end - begin));
        }
        begin = end + 1;
    }
}

/// A file of the system's format for programs and libraries; damaged ones have no imports.
class ImageFile {
  public:
    explicit ImageFile(const std::filesystem::path& path) : file_(ToOpenPath(ToText(path)), std::ios::binary) {}

    /// The names of the libraries that are loaded with it.
    std::vector<std::string> Imports() {
        std::vector<std::string> names;
        const auto start = At<IMAGE_DOS_HEADER>(0);
        if (!start || start->e_magic != IMAGE_DOS_SIGNATURE || start->e_lfanew < 0) {
            return names;
        }
        const auto headers = At<IMAGE_NT_HEADERS64>(static_cast<std::uint64_t>(start->e_lfanew));
        if (!headers || headers->Signature != IMAGE_NT_SIGNATURE ||
            headers->OptionalHeader.Magic != IMAGE_NT_OPTIONAL_HDR64_MAGIC) {
            return names;
        }
        const std::uint64_t sections = static_cast<std::uint64_t>(start->e_lfanew) +
                                       offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                                       headers->FileHeader.SizeOfOptionalHeader;
        const auto offsetOf = [&](std::uint32_t address) -> std::optional<std::uint64_t> {
            for (std::uint64_t index = 0; index < headers->FileHeader.NumberOfSections; ++index) {
                const auto section = At<IMAGE_SECTION_HEADER>(sections + index * sizeof(IMAGE_SECTION_HEADER));
                if (section && address >= section->VirtualAddress &&
                    address - section->VirtualAddress < section->SizeOfRawData) {
                    return std::uint64_t{section->PointerToRawData} + (address - section->VirtualAddress);
                }
            }
            return std::nullopt;
        };
        const std::uint32_t table = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        for (std::uint32_t address = table; address != 0; address += sizeof(IMAGE_IMPORT_DESCRIPTOR)) {
            const auto place = offsetOf(address);
            const auto entry = place ? At<IMAGE_IMPORT_DESCRIPTOR>(*place) : std::nullopt;
            const auto name = entry && entry->Name != 0 ? offsetOf(entry->Name) : std::nullopt;
            std::string text;
            if (!name || !Seek(*name) || !std::getline(file_, text, '\0')) {
                break;
            }
            names.push_back(text);
        }
        return names;
    }

  private:
    bool Seek(std::uint64_t offset) {
        file_.clear();
        return static_cast<bool>(file_.seekg(static_cast<std::streamoff>(offset)));
    }

    template <class Structure>
    std::optional<Structure> At(std::uint64_t offset) {
        std::array<char, sizeof(Structure)> bytes;
        if (!Seek(offset) || !file_.read(bytes.data(), bytes.size())) {
            return std::nullopt;
        }
        return std::bit_cast<Structure>(bytes);
    }

    std::ifstream file_;
};

/// Collects the libraries that the loader does not find for a file.
class MissingSearch {
  public:
    // The loader searches the folder of the file that it was told to load, also for what that file's libraries need.
    explicit MissingSearch(const std::filesystem::path& file)
        : folders_{file.parent_path(), SystemFolder(), WindowsFolder() + L"\\system", WindowsFolder(),
                   std::filesystem::current_path()} {
        AppendSearchPath(folders_);
        Examine(file);
    }

    std::vector<std::string> missing;

  private:
    void Examine(const std::filesystem::path& file) {
        for (const std::string& name : ImageFile(file).Imports()) {
            if (!known_.insert(name).second || ::GetModuleHandleW(ToPath(name).c_str()) != nullptr ||
                boost::algorithm::istarts_with(name, "api-ms-") || boost::algorithm::istarts_with(name, "ext-ms-")) {
                continue;  // the last two are names of parts of the system, which need not be files
            }
            const auto found = FindIn(folders_, ToPath(name));
            if (!found) {
                missing.push_back(name);
            } else if (found->parent_path() != folders_[1]) {
                Examine(*found);
            }
        }
    }

    std::vector<std::filesystem::path> folders_;
    std::set<std::string> known_;
};

std::string EndText(DWORD status) {
    if (status < 0x80000000) {
        return status == 0 ? "" : "ended with status " + std::to_string(status);
    }
    char text[32];
    std::snprintf(text, sizeof text, "crashed with 0x%lX", status);
    return text;
}

LONG WINAPI OnCrash(EXCEPTION_POINTERS* crash) {
    ::TerminateProcess(::GetCurrentProcess(), crash->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

struct OwnProgram::System {
    HANDLE process = nullptr;
    HANDLE output = nullptr;
};

OwnProgram::OwnProgram(const std::vector<std::string>& arguments) : system_(std::make_unique<System>()) {
    HANDLE output = nullptr;
    if (::CreatePipe(&system_->output, &output, nullptr, 0) == FALSE) {
        throw Failure("cannot create a pipe: " + SystemText(::GetLastError()));
    }
    const std::wstring program = ProgramFile().native();
    std::wstring commandLine = Quoted(program);
    for (const std::string& argument : arguments) {
        commandLine += L' ' + Quoted(ToPath(argument).native());
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = Inheritable(output);
    startup.hStdError = Inheritable(::GetStdHandle(STD_ERROR_HANDLE));
    PROCESS_INFORMATION information = {};
    const BOOL isStarted = ::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                            nullptr, &startup, &information);
    const DWORD error = ::GetLastError();
    for (const HANDLE handle : {output, startup.hStdOutput, startup.hStdError}) {
        if (handle != nullptr) {
            ::CloseHandle(handle);
        }
    }
    if (isStarted == FALSE) {
        ::CloseHandle(system_->output);
        throw Failure("cannot start \"" + ToText(program) + "\": " + SystemText(error));
    }
    ::CloseHandle(information.hThread);
    system_->process = information.hProcess;
}

OwnProgram::~OwnProgram() {
    Wait(std::chrono::steady_clock::now());
    ::CloseHandle(system_->process);
    CloseOutput();
}

bool OwnProgram::HasEnded() {
    return ::WaitForSingleObject(system_->process, 0) == WAIT_OBJECT_0;
}

void OwnProgram::CloseOutput() {
    if (system_->output != nullptr) {
        ::CloseHandle(system_->output);
        system_->output = nullptr;
    }
}

OwnProgram::Got OwnProgram::ReadLine(std::string& line, std::chrono::steady_clock::time_point deadline) {
    for (;;) {
        if (const std::size_t end = pending_.find('\n'); end != std::string::npos) {
            line = pending_.substr(0, end);
            pending_.erase(0, end + 1);
            return Got::Line;
        }
        DWORD available = 0;
        if (::PeekNamedPipe(system_->output, nullptr, 0, nullptr, &available, nullptr) == FALSE) {
            return Got::End;
        }
        if (available > 0 && !ReadAvailable()) {
            return Got::End;
        }
        if (available == 0) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return Got::Nothing;
            }
            ::Sleep(5);
        }
    }
}

bool OwnProgram::ReadAvailable() {
    std::array<char, 4096> bytes;
    DWORD count = 0;
    if (::ReadFile(system_->output, bytes.data(), static_cast<DWORD>(bytes.size()), &count, nullptr) == FALSE) {
        return false;
    }
    pending_.append(bytes.data(), count);
    return true;
}

std::string OwnProgram::Wait(std::chrono::steady_clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
    if (::WaitForSingleObject(system_->process, static_cast<DWORD>(std::max<std::int64_t>(left, 0))) != WAIT_OBJECT_0) {
        ::TerminateProcess(system_->process, 1);
        ::WaitForSingleObject(system_->process, 1000);
    }
    DWORD status = 0;
    ::GetExitCodeProcess(system_->process, &status);
    return EndText(status);
}

// Where CreateProcess searches, in its order.
std::string FindProgram(const std::string& name) {
    std::vector<std::filesystem::path> folders{ProgramFile().parent_path(), std::filesystem::current_path(),
                                               SystemFolder(), WindowsFolder() + L"\\system", WindowsFolder()};
    AppendSearchPath(folders);
    const auto found = FindIn(folders, ToPath(name));
    return found ? ToText(*found) : std::string();
}

const char* ProgramPlaces() {
    return "the folder of the host's program, the current folder, the system's folders or the folders of PATH";
}

std::vector<std::string> MissingLibraries(const std::string& path) {
    return MissingSearch(ToPath(path)).missing;
}

std::string VersionOf(const std::string& path) {
    const std::wstring name = ToPath(path).native();
    std::vector<char> bytes(::GetFileVersionInfoSizeW(name.c_str(), nullptr));
    void* found = nullptr;
    UINT size = 0;
    if (bytes.empty() ||
        ::GetFileVersionInfoW(name.c_str(), 0, static_cast<DWORD>(bytes.size()), bytes.data()) == FALSE ||
        ::VerQueryValueW(bytes.data(), L"\\", &found, &size) == FALSE || size < sizeof(VS_FIXEDFILEINFO)) {
        return "the file has no version";
    }
    const auto& version = *static_cast<const VS_FIXEDFILEINFO*>(found);
    return std::to_string(HIWORD(version.dwFileVersionMS)) + "." + std::to_string(LOWORD(version.dwFileVersionMS)) +
           "." + std::to_string(HIWORD(version.dwFileVersionLS)) + "." +
           std::to_string(LOWORD(version.dwFileVersionLS));
}

const std::array<const char*, 2>& EngineFunctionNames() {
    static constexpr std::array names{"?Recognize2@@YAHPEAUYUV420_IMG@@PEAUIMG@@PEAUtagRECT@@PEAURPLATE@@H@Z",
                                      "?SetPlateRange@@YA_NHH@Z"};
    return names;
}

void EndOnCrash() {
    ::SetUnhandledExceptionFilter(OnCrash);
}

// A program that reads the debug output creates the memory; all that write it share the mutex.
CheckResult CheckDebugOutput() {
    const HANDLE mutex = ::OpenMutexW(SYNCHRONIZE, FALSE, L"DBWinMutex");
    const bool isRefused = mutex == nullptr && ::GetLastError() == ERROR_ACCESS_DENIED;
    const HANDLE memory = ::OpenFileMappingW(FILE_MAP_WRITE, FALSE, L"DBWIN_BUFFER");
    for (const HANDLE handle : {mutex, memory}) {
        if (handle != nullptr) {
            ::CloseHandle(handle);
        }
    }
    if (isRefused) {
        return {CheckState::Warning, "the debug output cannot be written, because a process of another account uses it",
                "end that account's viewer of debug output"};
    }
    return {CheckState::Ok,
            std::string("the debug output can be written; ") +
                (memory != nullptr ? "a viewer reads it" : "no viewer reads it now"),
            ""};
}

}  // namespace plate_host
