/// The recognition server's real processes that are children of this one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "tests/support/child_process.h"

namespace servers {

using ProcessId = std::int32_t;

/// The name under which the server is started and found.
inline constexpr const char* serverName = "plate-Server.exe";

/// The folder of the running program.
std::filesystem::path OwnFolder();

/// Servers that this process has started, or all others that the library would find.
enum class Of { This, Others };

/// The running processes of the server's name.
std::set<ProcessId> Running(Of process = Of::This);

/// Fails a test at its start, in one line, when a foreign server runs: the library would start none of its own, and the
/// test would fail at an unrelated place. The test is not skipped, because that would hide the problem. Throws
/// std::runtime_error.
inline void RequireNoForeignServer() {
    if (const std::set<ProcessId> foreign = Running(Of::Others); !foreign.empty()) {
        throw std::runtime_error("process " + std::to_string(*foreign.begin()) + " has the name " + serverName +
                                 " and does not belong to this test: end it, or run the tests in a process space of " +
                                 "their own (unshare --pid --fork --mount-proc)");
    }
}

/// Puts a program into this program's own folder, under the server's name, and replaces a file of that name. A relative
/// path starts at that folder. Calls RequireNoForeignServer.
void Place(const std::filesystem::path& program);
void Remove();

/// The number of zombie children; always 0 on a system without zombies.
int Zombies();

/// Whether a process has ended, a child or not.
bool IsGone(ProcessId process);

/// Kills a process without waiting for its end.
void Kill(ProcessId process);

/// Suspends a process, and returns once it is stopped. Throws std::runtime_error.
void Suspend(ProcessId process);

/// Resumes a suspended process.
void Resume(ProcessId process);

/// Ends all children of the server's name and waits for them.
void KillAll();

/// Starts the server program in this program's own folder without the launcher. KillAll ends it, too.
inline std::unique_ptr<test_support::ChildProcess> StartForeignServer() {
    return std::make_unique<test_support::ChildProcess>(
        test_support::ChildProcess::Start{.program = OwnFolder() / serverName, .streamsAreInherited = true});
}

}  // namespace servers
