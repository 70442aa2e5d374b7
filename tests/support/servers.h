/// The recognition server's real processes, as far as they are children of this one.
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

/// The name under which it is started and found.
inline constexpr const char* serverName = "plate-Server.exe";

/// The folder of the running program.
std::filesystem::path OwnFolder();

/// Whose servers: those that this process has started, or all others that the library would find.
enum class Of { This, Others };

/// The running processes of the server's name.
std::set<ProcessId> Running(Of process = Of::This);

/// Fails a test at its start, in one line, when a server of others runs: the library would start none of its own, and
/// the test would fail somewhere else. The test is not skipped, because that would hide what is broken. Throws
/// std::runtime_error.
inline void RequireNoForeignServer() {
    if (const std::set<ProcessId> foreign = Running(Of::Others); !foreign.empty()) {
        throw std::runtime_error("process " + std::to_string(*foreign.begin()) + " has the name " + serverName +
                                 " and does not belong to this test: end it, or run the tests in a process space of " +
                                 "their own (unshare --pid --fork --mount-proc)");
    }
}

/// Puts a program into this program's own folder, under the server's name and in place of what stands there. A path
/// that is not absolute begins at that folder. Calls RequireNoForeignServer.
void Place(const std::filesystem::path& program);
void Remove();

/// Children that have ended and that nobody has waited for; always 0 where nobody has to.
int Zombies();

/// Whether a process has ended, a child or not.
bool IsGone(ProcessId process);

/// Ends a process from outside, without waiting for it.
void Kill(ProcessId process);

/// Stops a process, and returns when it does nothing any more. Throws std::runtime_error.
void Suspend(ProcessId process);

/// Lets one that was stopped go on.
void Resume(ProcessId process);

/// Ends all children of the server's name and waits for them.
void KillAll();

/// Starts the program in this program's own folder as anybody would who is not the launcher. KillAll ends it, too.
inline std::unique_ptr<test_support::ChildProcess> StartStranger() {
    return std::make_unique<test_support::ChildProcess>(
        test_support::ChildProcess::Start{.program = OwnFolder() / serverName, .streamsAreInherited = true});
}

}  // namespace servers
