#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "platform/linux/send_signal.h"
#include "tests/host/process.h"
#include "tests/host/temporary_folder.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"
#include "tools/evaluate/failure.h"
#include "tools/evaluate/process.h"

namespace plate_evaluation {
namespace {

using host_test::TemporaryFolder;
using testing::HasSubstr;

servers::ProcessId ProcessIn(const std::string& file) {
    servers::ProcessId process = 0;
    std::ifstream(file) >> process;
    return process;
}

/// Waits until the test server has written its process id.
servers::ProcessId StartedProcess(const std::string& file) {
    EXPECT_TRUE(WaitUntil([&file] { return ProcessIn(file) != 0; }));
    return ProcessIn(file);
}

std::string ErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "none";
}

TEST(Server, IsTerminatedByTheDestructor) {
    const TemporaryFolder folder;
    servers::ProcessId process = 0;
    {
        ServerProcess server(EVALUATE_TEST_SERVER, {folder.Path("id"), "obey"}, std::chrono::seconds(60));
        process = StartedProcess(folder.Path("id"));
        server.RequireRunning();
        EXPECT_FALSE(servers::IsGone(process));
    }
    EXPECT_TRUE(servers::IsGone(process));
}

TEST(Server, IsKilledWhenItIgnoresTermination) {
    const TemporaryFolder folder;
    servers::ProcessId process = 0;
    {
        const ServerProcess server(EVALUATE_TEST_SERVER, {folder.Path("id"), "ignore"}, std::chrono::milliseconds(50));
        process = StartedProcess(folder.Path("id"));
    }
    EXPECT_TRUE(servers::IsGone(process));
}

TEST(Server, ItsExitIsDetected) {
    const TemporaryFolder folder;
    ServerProcess server(EVALUATE_TEST_SERVER, {folder.Path("id"), "end"});
    std::string error = "none";
    EXPECT_TRUE(WaitUntil([&] {
        error = ErrorOf([&server] { server.RequireRunning(); });
        return error != "none";
    }));
    EXPECT_EQ(error, "the server \"" EVALUATE_TEST_SERVER "\" exited with status 7");
}

TEST(Server, AKillIsDetected) {
    const TemporaryFolder folder;
    ServerProcess server(EVALUATE_TEST_SERVER, {folder.Path("id"), "obey"});
    ASSERT_EQ(platform::SendSignal(StartedProcess(folder.Path("id")), SIGKILL), 0);
    std::string error = "none";
    EXPECT_TRUE(WaitUntil([&] {
        error = ErrorOf([&server] { server.RequireRunning(); });
        return error != "none";
    }));
    EXPECT_THAT(error, HasSubstr("was terminated by signal 9"));
}

TEST(Server, AFailedStartIsAnError) {
    EXPECT_EQ(ErrorOf([] { ServerProcess("/nowhere/server", {}); }),
              "cannot start the server \"/nowhere/server\": No such file or directory");
    const TemporaryFolder folder;
    const std::string text = folder.Write("text", "no program");
    EXPECT_EQ(ErrorOf([&text] { ServerProcess(text, {}); }),
              "cannot start the server \"" + text + "\": Permission denied");
}

/// An evaluation that waits for a server that never responds.
class WaitingEvaluation {
  public:
    WaitingEvaluation() {
        folder.Write("truth.tsv", "file\tx\ty\twidth\theight\tplate\na.ppm\t1\t2\t3\t4\tAB\n");
        folder.Write("script.json", R"({"refused_ranges": "all"})");
        process.emplace(host_test::HostProcess::Start{
            .arguments = {folder.Path(""), "--engine", EVALUATE_TEST_ENGINE, "--server", EVALUATE_TEST_SERVER,
                          "--server-argument", folder.Path("id"), "--server-argument", "obey", "--wait", "600"},
            .environment = {{"VEXLANE_SCRIPT", folder.Path("script.json")}}});
        server = StartedProcess(folder.Path("id"));
    }

    TemporaryFolder folder;
    std::optional<host_test::HostProcess> process;
    servers::ProcessId server = 0;
};

TEST(Program, InterruptionEndsTheServer) {
    for (const int signal : {SIGINT, SIGTERM}) {
        WaitingEvaluation evaluation;
        evaluation.process->Stop({"signal", signal, signal, true});
        const host_test::Finished run = evaluation.process->Wait();
        EXPECT_EQ(run.status, 128 + signal);
        EXPECT_THAT(run.errors, testing::EndsWith("evaluate: interrupted\n"));
        EXPECT_TRUE(servers::IsGone(evaluation.server));
    }
}

TEST(Program, KillLeavesNoServer) {
    WaitingEvaluation evaluation;
    evaluation.process->Stop({"SigKill", SIGKILL, SIGKILL, false});
    evaluation.process->Wait();
    EXPECT_TRUE(WaitUntil([&evaluation] { return servers::IsGone(evaluation.server); }));
}

TEST(Program, FailureEndsTheServer) {
    const TemporaryFolder folder;
    folder.Write("truth.tsv", "file\tx\ty\twidth\theight\tplate\na.ppm\t1\t2\t3\t4\tAB\n");
    folder.Write("script.json", R"({"refused_ranges": "all"})");
    host_test::HostProcess process(
        {.arguments = {folder.Path(""), "--engine", EVALUATE_TEST_ENGINE, "--server", EVALUATE_TEST_SERVER,
                       "--server-argument", folder.Path("id"), "--server-argument", "obey", "--wait", "0.3"},
         .environment = {{"VEXLANE_SCRIPT", folder.Path("script.json")}}});
    const host_test::Finished run = process.Wait();
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.output, "") << "the server's output is redirected";
    EXPECT_THAT(run.errors, testing::EndsWith("evaluate: the engine refused a range of plate widths because its server "
                                              "did not respond within 300 ms\n"));
    EXPECT_TRUE(servers::IsGone(ProcessIn(folder.Path("id"))));
}

TEST(Program, ReportsThatTheServerExited) {
    const TemporaryFolder folder;
    folder.Write("truth.tsv", "file\tx\ty\twidth\theight\tplate\na.ppm\t1\t2\t3\t4\tAB\n");
    folder.Write("script.json", R"({"refused_ranges": "all"})");
    host_test::HostProcess process(
        {.arguments = {folder.Path(""), "--engine", EVALUATE_TEST_ENGINE, "--server", EVALUATE_TEST_SERVER,
                       "--server-argument", folder.Path("id"), "--server-argument", "end", "--wait", "600"},
         .environment = {{"VEXLANE_SCRIPT", folder.Path("script.json")}}});
    const host_test::Finished run = process.Wait();
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.errors, HasSubstr("\" exited with status 7\n"));
}

}  // namespace
}  // namespace plate_evaluation
