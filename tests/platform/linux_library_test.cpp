#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include "platform/last_error.h"
#include "platform/library.h"

namespace {

TEST(LinuxLastError, TheTextIsTheSystems) {
    EXPECT_EQ(platform::SystemErrorText(ENOENT), "No such file or directory");
    EXPECT_EQ(platform::SystemErrorText(EINVAL), strerrordesc_np(EINVAL));
}

TEST(LinuxLibrary, HoldAndReleaseDoNothing) {
    const platform::LibraryReference reference = platform::HoldLibrary();
    EXPECT_EQ(reference, 0u);
    platform::ReleaseLibrary(reference);
    EXPECT_FALSE(platform::OtherThreadsAreGone());
}

}  // namespace
