// The process-wide launcher in a child that the host forks at the worst moment: the poll thread, which the child does
// not have, holds the locks.

#include <gtest/gtest.h>

#include <atomic>

#include "server/server_launcher.h"
#include "tests/support/fake_processes.h"
#include "tests/support/linux_forked_child.h"
#include "tests/support/wait_until.h"

namespace {

class ForkedChild : public testing::Test {
  protected:
    ForkedChild() {
        fake_processes::OnOperation([this](const std::string& line) {
            if (line == "list" && !isInPoll.exchange(true)) {
                EXPECT_TRUE(WaitUntil([this] { return mayGoOn.load(); }));
            }
        });
        GetServerLauncher()->SetPeriod(0);
    }
    ~ForkedChild() override {
        mayGoOn = true;
        GetServerLauncher()->SetWaitAction({});  // returns when no poll is in progress
        fake_processes::OnOperation({});
    }

    std::atomic<bool> isInPoll = false;
    std::atomic<bool> mayGoOn = false;
};

TEST_F(ForkedChild, CanUseTheLauncherWhileThePollThreadHoldsItsLocks) {
    ASSERT_TRUE(WaitUntil([this] { return isInPoll.load(); }));
    EXPECT_EQ(test_support::ExitCodeOfForkedChild([] {
                  fake_processes::SetForkedChild(true);
                  const boost::shared_ptr<ServerLauncher> launcher = GetServerLauncher();
                  launcher->MarkAlive();
                  launcher->Start();
                  launcher->Restart();
                  launcher->OnTimeout();
                  launcher->Stop();
                  return !launcher->IsServerRunning() && !launcher->IsRunning();
              }),
              0);
    mayGoOn = true;
    EXPECT_TRUE(GetServerLauncher()->IsRunning()) << "the parent polls on";
    EXPECT_TRUE(WaitUntil([] { return fake_processes::Running().size() == 1; }));
}

}  // namespace
