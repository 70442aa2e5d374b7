/// Server processes for fault tests.
#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "platform/process.h"
#include "tests/reference/engine/engine_fixture.h"
#include "tests/support/servers.h"

namespace reading_faults {

using namespace std::chrono_literals;

class ServerPrograms : public testing::Test {
  protected:
    ServerPrograms() {
        reading_engine_test::UseOwnServerName();
        test_support::SetEnvironment("VEXLANE_TEST_IDLE", "60000");
        servers::Place(VEXLANE_TEST_SERVER);
    }
    ~ServerPrograms() override {
        servers::KillAll();
        servers::Remove();
    }

    static servers::ProcessId TheServer() {
        const auto running = servers::Running();
        return running.size() == 1 ? *running.begin() : 0;
    }
};

/// Lists every process with the server's name, regardless of which process started it, as the library sees them. For
/// failure messages.
inline std::string DescribeServers() {
    const std::set<servers::ProcessId> children = servers::Running();
    std::string text = "servers:";
    for (const platform::ProcessEntry& entry : platform::ListProcesses()) {
        if (entry.executableName == servers::serverName) {
            const bool isChild = children.contains(static_cast<servers::ProcessId>(entry.processId));
            text += ' ' + std::to_string(entry.processId) + (isChild ? "" : " (not a child)");
        }
    }
    return text;
}

inline int EntriesOf(const std::filesystem::path& folder) {
    std::error_code error;
    const std::filesystem::directory_iterator entries(folder, error);
    return error ? 0 : static_cast<int>(std::distance(begin(entries), end(entries)));
}

inline int DescriptorsOf(servers::ProcessId process) {
    return EntriesOf("/proc/" + std::to_string(process) + "/fd");
}

}  // namespace reading_faults
