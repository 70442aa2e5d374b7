#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/host/pictures.h"
#include "tests/host/play_command.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"

namespace host_test {
namespace {

TEST(Play, ANamedPipeIsReadAsAStream) {
    const TemporaryFolder folder;
    const std::string pipe = folder.Path("pipe.y4m");
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    HostProcess process({.arguments = PlayCommand(pipe, {"test_event_every=1"})});
    folder.Write("pipe.y4m", Y4mStream(16, 16, 2));  // returns once the host reads
    const Finished run = process.Wait();
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(Lines(run.output).size(), 2u);
}

}  // namespace
}  // namespace host_test
