/// The host program as a child process of the test.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tests/host/temporary_folder.h"
#include "tests/support/child_process.h"
#include "tools/host/system.h"

namespace host_test {

using test_support::Finished;
using test_support::StopRequest;
using test_support::StopRequests;
using test_support::SystemHasTerminals;

class HostProcess : public test_support::ChildProcess {
  public:
    /// Starts the host program unless another one is named.
    explicit HostProcess(Start start) : ChildProcess(WithProgram(start)) {}

  private:
    static Start& WithProgram(Start& start) {
        if (start.program.empty()) {
            start.program = plate_host::ToPath(PLATE_HOST_PROGRAM);
        }
        return start;
    }
};

enum class LeaksAllowed { No, Yes };

/// Runs the program to its end, with that input.
inline Finished RunHost(const std::vector<std::string>& arguments, const std::string& input = {},
                        LeaksAllowed leaks = LeaksAllowed::No) {
    HostProcess process({.arguments = arguments,
                         .environment = leaks == LeaksAllowed::Yes
                                            ? test_support::EnvironmentChanges{{"ASAN_OPTIONS", "detect_leaks=0"}}
                                            : test_support::EnvironmentChanges{}});
    process.WriteInput(input);
    return process.Wait();
}

/// Copies the program into the folder, with the DLLs that it needs, which the test needs, too. Returns its path.
inline std::string CopyHost(const TemporaryFolder& folder) {
    for (const auto& file : std::filesystem::directory_iterator(plate_host::ProgramFile().parent_path())) {
        if (file.path().extension() == ".dll") {
            folder.Copy(plate_host::ToText(file.path()), plate_host::ToText(file.path().filename()));
        }
    }
    return folder.Copy(PLATE_HOST_PROGRAM, "plate-host.exe");
}

}  // namespace host_test
