// clang-format off
#include <windows.h>
#include <tlhelp32.h>
// clang-format on

#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <stdexcept>

#include "tools/validate/library.h"
#include "tools/validate/system.h"

namespace validate {

namespace {

namespace fs = std::filesystem;

constexpr char debugKey[] = "SOFTWARE\\Tellumark\\KORA\\DEBUG";

[[noreturn]] void Fail(const std::string& what, DWORD error) {
    throw std::runtime_error(what + ": error " + std::to_string(error));
}

// The hives of this process, which replace the system's for the library.

struct Hive {
    HKEY systems;
    const char* name;
    HKEY own = nullptr;
};

Hive hives[] = {{HKEY_LOCAL_MACHINE, "machine"}, {HKEY_CURRENT_USER, "user"}};

std::string KeyOf(DWORD process) {
    return "Software\\vexlane-tests-" + std::to_string(process);
}

std::string OwnKey() {
    return KeyOf(GetCurrentProcessId());
}

// The lines of the running DebugLines.

std::mutex linesMutex;
std::string lines;              // guarded by linesMutex
std::atomic<bool> isListening;  // otherwise nothing is recorded

std::string Utf8Of(const wchar_t* text) {
    std::string bytes(static_cast<std::size_t>(WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr)),
                      '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr);
    bytes.pop_back();
    return bytes;
}

void Keep(const std::string& bytes) {
    const std::lock_guard lock(linesMutex);
    lines += bytes;
    if (bytes.empty() || bytes.back() != '\n') {
        lines += '\n';
    }
}

void WINAPI TakeNarrow(const char* text) {
    if (isListening) {
        Keep(text);
    } else {
        OutputDebugStringA(text);
    }
}

void WINAPI TakeWide(const wchar_t* text) {
    if (isListening) {
        Keep(Utf8Of(text));
    } else {
        OutputDebugStringW(text);
    }
}

template <class Record>
Record* At(void* library, DWORD offset) {
    return reinterpret_cast<Record*>(static_cast<unsigned char*>(library) + offset);
}

}  // namespace

// The library keeps the address of each function that it imports in a table.
void ReplaceImport(void* library, const char* name, void* replacement) {
    const DWORD headers = static_cast<DWORD>(At<IMAGE_DOS_HEADER>(library, 0)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& imports =
        At<IMAGE_NT_HEADERS64>(library, headers)->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
    for (auto* from = At<IMAGE_IMPORT_DESCRIPTOR>(library, imports.VirtualAddress); from->Name != 0; ++from) {
        auto* known = At<IMAGE_THUNK_DATA64>(library, from->OriginalFirstThunk);
        auto* bound = At<IMAGE_THUNK_DATA64>(library, from->FirstThunk);
        for (; known->u1.AddressOfData != 0; ++known, ++bound) {
            const bool hasName = !IMAGE_SNAP_BY_ORDINAL64(known->u1.Ordinal);
            if (hasName &&
                std::strcmp(At<IMAGE_IMPORT_BY_NAME>(library, static_cast<DWORD>(known->u1.AddressOfData))->Name,
                            name) == 0) {
                DWORD before = 0;
                VirtualProtect(bound, sizeof *bound, PAGE_READWRITE, &before);
                bound->u1.Function = reinterpret_cast<ULONGLONG>(replacement);
                VirtualProtect(bound, sizeof *bound, before, &before);
                return;
            }
        }
    }
    throw std::runtime_error(std::string("the library does not import ") + name);
}

void* LoadLibraryFile(const fs::path& file) {
    const HMODULE loaded = LoadLibraryW(file.c_str());
    if (loaded == nullptr) {
        Fail(file.string() + " cannot be loaded", GetLastError());
    }
    return loaded;
}

void UnloadLibrary(void* library) {
    FreeLibrary(static_cast<HMODULE>(library));
}

void* FindFunction(void* library, const char* name) {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}

bool IsLoaded(const fs::path& file) {
    return GetModuleHandleW(file.filename().c_str()) != nullptr;
}

void SetEnvironment(const char* name, const std::string& value) {
    _putenv_s(name, value.c_str());
}

void BeginPrivateRegistry(const fs::path&) {
    for (Hive& hive : hives) {
        const std::string path = OwnKey() + "\\" + hive.name;
        const LSTATUS status = RegCreateKeyExA(HKEY_CURRENT_USER, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                               KEY_ALL_ACCESS, nullptr, &hive.own, nullptr);
        if (status != ERROR_SUCCESS) {
            Fail("no key for the test", static_cast<DWORD>(status));
        }
    }
    for (const Hive& hive : hives) {
        RegOverridePredefKey(hive.systems, hive.own);
    }
}

void EndPrivateRegistry() {
    for (Hive& hive : hives) {
        RegOverridePredefKey(hive.systems, nullptr);
        RegCloseKey(hive.own);
    }
    RegDeleteTreeA(HKEY_CURRENT_USER, OwnKey().c_str());
}

void WriteDebugLevel(const std::string& text) {
    HKEY key = nullptr;
    RegCreateKeyExA(hives[0].own, debugKey, 0, nullptr, REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &key,
                    nullptr);
    const LSTATUS status = RegSetValueExA(key, "DebugLevel", 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                          static_cast<DWORD>(text.size() + 1));
    RegCloseKey(key);
    if (status != ERROR_SUCCESS) {
        Fail("the debug level cannot be written", static_cast<DWORD>(status));
    }
}

bool HasEmptyDebugKey() {
    HKEY key = nullptr;
    if (RegOpenKeyExA(hives[0].own, debugKey, 0, KEY_ALL_ACCESS, &key) != ERROR_SUCCESS) {
        return false;
    }
    DWORD values = 1;
    DWORD keys = 1;
    RegQueryInfoKeyA(key, nullptr, nullptr, nullptr, &keys, nullptr, nullptr, &values, nullptr, nullptr, nullptr,
                     nullptr);
    RegCloseKey(key);
    return values == 0 && keys == 0;
}

std::vector<std::string> ExportedNames(const fs::path& file) {
    const HMODULE loaded = LoadLibraryExW(file.c_str(), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    if (loaded == nullptr) {
        Fail(file.string() + " cannot be loaded", GetLastError());
    }
    const DWORD headers = static_cast<DWORD>(At<IMAGE_DOS_HEADER>(loaded, 0)->e_lfanew);
    const IMAGE_DATA_DIRECTORY& place =
        At<IMAGE_NT_HEADERS64>(loaded, headers)->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
    std::vector<std::string> names;
    if (place.Size != 0) {
        const auto* const exports = At<IMAGE_EXPORT_DIRECTORY>(loaded, place.VirtualAddress);
        const auto* const offsets = At<DWORD>(loaded, exports->AddressOfNames);
        for (DWORD number = 0; number < exports->NumberOfNames; ++number) {
            names.emplace_back(At<char>(loaded, offsets[number]));
        }
    }
    FreeLibrary(loaded);
    return names;
}

int ThreadCount() {
    const HANDLE threads = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    THREADENTRY32 entry = {};
    entry.dwSize = sizeof entry;
    int count = 0;
    for (BOOL found = Thread32First(threads, &entry); found != FALSE; found = Thread32Next(threads, &entry)) {
        count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    }
    CloseHandle(threads);
    return count;
}

std::string PathText(const fs::path& path) {
    return Utf8Of(path.c_str());
}

namespace {

// As the C library's parser of command lines reads it.
std::wstring Quoted(const std::string& argument) {
    std::wstring wide(argument.size() + 1, L'\0');
    wide.resize(static_cast<std::size_t>(MultiByteToWideChar(
        CP_UTF8, 0, argument.data(), static_cast<int>(argument.size()), wide.data(), static_cast<int>(wide.size()))));
    std::wstring quoted = L"\"";
    std::size_t backslashes = 0;
    for (const wchar_t character : wide) {
        if (character == L'"') {
            quoted.append(backslashes + 1, L'\\');
        }
        backslashes = character == L'\\' ? backslashes + 1 : 0;
        quoted += character;
    }
    quoted.append(backslashes, L'\\');
    return quoted + L"\"";
}

HANDLE OpenInheritable(const wchar_t* file, DWORD access, DWORD creation) {
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, TRUE};
    return CreateFileW(file, access, FILE_SHARE_READ | FILE_SHARE_WRITE, &attributes, creation, FILE_ATTRIBUTE_NORMAL,
                       nullptr);
}

}  // namespace

ProcessEnd RunProgram(const fs::path& program, const std::vector<std::string>& arguments,
                      std::chrono::milliseconds limit, const fs::path& errors, const std::function<bool()>& mustStop) {
    std::wstring commandLine = Quoted(PathText(program));
    for (const std::string& argument : arguments) {
        commandLine += L' ' + Quoted(argument);
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = OpenInheritable(L"NUL", GENERIC_READ, OPEN_EXISTING);
    startup.hStdOutput = OpenInheritable(L"NUL", GENERIC_WRITE, OPEN_EXISTING);
    startup.hStdError = OpenInheritable(errors.c_str(), FILE_APPEND_DATA, CREATE_ALWAYS);
    PROCESS_INFORMATION started = {};
    const BOOL isStarted = CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                          nullptr, &startup, &started);
    const DWORD error = GetLastError();
    for (const HANDLE handle : {startup.hStdInput, startup.hStdOutput, startup.hStdError}) {
        CloseHandle(handle);
    }
    if (isStarted == FALSE) {
        Fail("cannot start \"" + PathText(program) + "\"", error);
    }
    CloseHandle(started.hThread);
    constexpr DWORD waitMilliseconds = 20;
    constexpr DWORD killedStatus = 1;
    constexpr DWORD firstException = 0x80000000;
    ProcessEnd end;
    const auto start = std::chrono::steady_clock::now();
    while (WaitForSingleObject(started.hProcess, waitMilliseconds) == WAIT_TIMEOUT) {
        end.isTimedOut = std::chrono::steady_clock::now() - start > limit;
        if (end.isTimedOut || mustStop()) {
            TerminateProcess(started.hProcess, killedStatus);
            WaitForSingleObject(started.hProcess, INFINITE);
            break;
        }
    }
    DWORD status = 0;
    GetExitCodeProcess(started.hProcess, &status);
    CloseHandle(started.hProcess);
    RegDeleteTreeA(HKEY_CURRENT_USER, KeyOf(started.dwProcessId).c_str());  // left by a case that fails
    if (status >= firstException) {
        char text[32];
        std::snprintf(text, sizeof text, "exception 0x%08lX", static_cast<unsigned long>(status));
        end.crash = text;
    }
    end.status = static_cast<int>(status);
    return end;
}

void PrepareCaseProcess() {
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
}

// The system converts wide texts differently from version to version, so the texts are recorded at the library's
// import.
void CatchDebugOutput(void* library) {
    ReplaceImport(library, "OutputDebugStringA", reinterpret_cast<void*>(&TakeNarrow));
    ReplaceImport(library, "OutputDebugStringW", reinterpret_cast<void*>(&TakeWide));
}

DebugLines::DebugLines() {
    const std::lock_guard lock(linesMutex);
    lines.clear();
    isListening = true;
}

DebugLines::~DebugLines() {
    isListening = false;
}

std::string DebugLines::Text(std::size_t from) const {
    const std::lock_guard lock(linesMutex);
    return from < lines.size() ? lines.substr(from) : std::string();
}

}  // namespace validate
