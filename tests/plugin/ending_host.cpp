// A host that ends while the library polls and writes trace lines, in the way that the argument names. Prints the
// server's id first.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

#include "tests/plugin/plugin.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"
#include "tools/validate/recording_host.h"

namespace {

constexpr std::chrono::seconds longestLife(240);

// Never destroyed, as in a careless host. Volatile, so that the leak checker finds them although they are not read
// again.
plugin_test::Plugin* volatile plugin = nullptr;
recording_host::RecordingHost* volatile host = nullptr;
OKM8::Analytics::IModule* volatile moduleObject = nullptr;
OKM8::Analytics::IDetector* volatile detector = nullptr;

}  // namespace

int main(int count, char** arguments) {
    std::thread([] {
        std::this_thread::sleep_for(longestLife);
        std::abort();
    }).detach();
    plugin = new plugin_test::Plugin;
    host = new recording_host::RecordingHost;
    {
        const plugin_test::TestFolder folder;
        folder.SetDebugLevel("1");
        plugin->InitializeModule(host->Object());
    }
    moduleObject = plugin->GetModule();
    detector = moduleObject->CreateDetector(nullptr, host->Peer());
    // There was no program to start, so polling continues; now there is one.
    servers::Place(VEXLANE_SERVER_PROGRAM);
    if (!WaitUntil([] { return servers::Running().size() == 1; })) {
        return 2;
    }
    std::printf("%d\n", static_cast<int>(*servers::Running().begin()));
    std::fflush(stdout);
    const std::string_view way = count > 1 ? arguments[1] : "return";
    if (way == "exit") {
        std::exit(0);
    }
    if (way == "exit-on-a-thread") {
        std::thread([] { std::exit(0); }).join();
    }
    if (way == "unload") {
        plugin->Unload();
    }
    return 0;
}
