#include <windows.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

#include "tests/plugin/child_program.h"

namespace plugin_test {

namespace {

HANDLE ToHandle(std::intptr_t number) {
    return reinterpret_cast<HANDLE>(number);
}

}  // namespace

ChildProgram::ChildProgram(const std::filesystem::path& program, const std::string& argument) {
    SECURITY_ATTRIBUTES inherited = {};
    inherited.nLength = sizeof inherited;
    inherited.bInheritHandle = TRUE;
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    if (CreatePipe(&readEnd, &writeEnd, &inherited, 0) == FALSE) {
        throw std::runtime_error("no pipe");
    }
    SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
    startup.hStdOutput = writeEnd;
    startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION started = {};
    const std::string name = program.string();
    std::string commandLine = '"' + name + "\" " + argument;
    const BOOL isStarted = CreateProcessA(name.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                          &startup, &started);
    CloseHandle(writeEnd);
    if (isStarted == FALSE) {
        CloseHandle(readEnd);
        throw std::runtime_error(name + " cannot be started");
    }
    CloseHandle(started.hThread);
    process_ = reinterpret_cast<std::intptr_t>(started.hProcess);
    output_ = reinterpret_cast<std::intptr_t>(readEnd);
}

ChildProgram::~ChildProgram() {
    if (!Status()) {
        TerminateProcess(ToHandle(process_), 1);
        WaitForSingleObject(ToHandle(process_), INFINITE);
    }
    CloseHandle(ToHandle(process_));
    CloseHandle(ToHandle(output_));
}

std::int32_t ChildProgram::ReadNumber() {
    std::array<char, 32> text = {};
    DWORD count = 0;
    const BOOL isRead = ReadFile(ToHandle(output_), text.data(), static_cast<DWORD>(text.size() - 1), &count, nullptr);
    return isRead != FALSE && count > 0 ? std::atoi(text.data()) : 0;
}

std::optional<std::int64_t> ChildProgram::Status() {
    if (!status_ && WaitForSingleObject(ToHandle(process_), 0) == WAIT_OBJECT_0) {
        DWORD code = 0;
        GetExitCodeProcess(ToHandle(process_), &code);
        status_ = code;
    }
    return status_;
}

}  // namespace plugin_test
