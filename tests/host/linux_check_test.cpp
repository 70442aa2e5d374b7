#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace host_test {
namespace {

using testing::HasSubstr;

TEST(CheckedDebugOutput, AStandardErrorThatCannotBeWrittenIsAWarning) {
    test_support::ChildProcess process(
        {.program = "/bin/sh",
         .arguments = {"-c", "exec \"$0\" check --plugin none --engine none 2</dev/null", PLATE_HOST_PROGRAM}});
    const test_support::Finished run = process.Wait();
    EXPECT_THAT(run.output, HasSubstr("\nwarning  debug output      standard error, where the trace lines go, cannot"));
}

}  // namespace
}  // namespace host_test
