#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sdk/module.h"
#include "tests/support/child_process.h"
#include "tests/support/scratch_registry.h"
#include "tools/host/check_machine.h"

namespace host_test {
namespace {

using Hive = test_support::ScratchRegistry::Hive;
using plate_host::CheckDebugLevel;
using plate_host::CheckState;
using testing::HasSubstr;
using testing::StartsWith;

TEST(CheckedDebugOutput, AStandardErrorThatCannotBeWrittenIsAWarning) {
    test_support::ChildProcess process(
        {.program = "/bin/sh",
         .arguments = {"-c", "exec \"$0\" check --plugin none --engine none 2</dev/null", PLATE_HOST_PROGRAM}});
    const test_support::Finished run = process.Wait();
    EXPECT_THAT(run.output, HasSubstr("\nwarning  debug output      standard error, where the trace lines go, cannot"));
}

TEST(CheckedDebugLevel, AHiveThatCannotBeOpenedIsAWarning) {
    test_support::ScratchRegistry registry;
    registry.Block(Hive::LocalMachine);
    registry.StoreText(Hive::CurrentUser, OKM8::DebugLevelValue::Key, OKM8::DebugLevelValue::Name, "1");
    EXPECT_EQ(CheckDebugLevel().state, CheckState::Warning);
    EXPECT_THAT(CheckDebugLevel().found, StartsWith("1, with trace lines, from "));
}

}  // namespace
}  // namespace host_test
