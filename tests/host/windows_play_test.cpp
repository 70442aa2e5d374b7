#include <windows.h>

#include <gtest/gtest.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"

namespace host_test {
namespace {

TEST(Play, ANamedPipeIsReadAsAStream) {
    const std::string name = "\\\\.\\pipe\\plate_host_test_" + std::to_string(::GetCurrentProcessId()) + ".y4m";
    constexpr DWORD size = 65536;
    const HANDLE pipe = ::CreateNamedPipeA(name.c_str(), PIPE_ACCESS_OUTBOUND | FILE_FLAG_FIRST_PIPE_INSTANCE,
                                           PIPE_TYPE_BYTE | PIPE_WAIT, 1, size, size, 0, nullptr);
    ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
    HostProcess process({.arguments = PlayCommand(name, {"test_event_every=1"})});
    EXPECT_TRUE(::ConnectNamedPipe(pipe, nullptr) != FALSE || ::GetLastError() == ERROR_PIPE_CONNECTED);
    const std::string stream = Y4mStream(16, 16, 2);
    // An empty write does not end the stream.
    for (const std::size_t length : {std::size_t{0}, stream.size()}) {
        DWORD count = 0;
        EXPECT_NE(::WriteFile(pipe, stream.data(), static_cast<DWORD>(length), &count, nullptr), FALSE);
    }
    ::FlushFileBuffers(pipe);
    ::CloseHandle(pipe);
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2u);
}

}  // namespace
}  // namespace host_test
