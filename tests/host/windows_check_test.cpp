#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include "tools/host/check_system.h"

namespace host_test {
namespace {

using plate_host::CheckDebugOutput;
using plate_host::CheckState;
using testing::HasSubstr;

TEST(CheckedDebugOutput, AViewerIsSeen) {
    EXPECT_EQ(CheckDebugOutput().state, CheckState::Ok);
    EXPECT_THAT(CheckDebugOutput().found, HasSubstr("no viewer reads it now"));
    const HANDLE memory = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, 4096, L"DBWIN_BUFFER");
    ASSERT_NE(memory, nullptr);
    EXPECT_THAT(CheckDebugOutput().found, HasSubstr("; a viewer reads it"));
    ::CloseHandle(memory);
}

TEST(CheckedVersion, IsThatOfTheVersionResource) {
    EXPECT_THAT(plate_host::VersionOf(HOST_TEST_LIBRARY), testing::MatchesRegex("\\d+\\.\\d+\\.\\d+\\.0"));
    EXPECT_EQ(plate_host::VersionOf(HOST_TEST_INCOMPLETE_PLUGIN), "the file has no version");
}

}  // namespace
}  // namespace host_test
