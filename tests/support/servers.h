/// The recognition server's real processes, as far as they are children of this one.
#pragma once

#include <cstdint>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>

namespace servers {

using ProcessId = std::int32_t;

/// The name under which it is started and found.
inline constexpr const char* serverName = "plate-Server.exe";

/// The folder of the running program.
std::filesystem::path OwnFolder();

/// A process of the server's name that is not a child of this one and that the library would find; 0 for none.
ProcessId ForeignServer();

/// Fails a test at its start, in one line, when there is one: the library would start no server of its own, and the
/// test would fail somewhere else. The test is not skipped, because that would hide what is broken. Throws
/// std::runtime_error.
inline void RequireNoForeignServer() {
    if (const ProcessId foreign = ForeignServer(); foreign != 0) {
        throw std::runtime_error("process " + std::to_string(foreign) + " has the name " + serverName +
                                 " and does not belong to this test: end it, or run the tests in a process space of " +
                                 "their own (unshare --pid --fork --mount-proc)");
    }
}

/// Puts a program into this program's own folder, under the server's name and in place of what stands there. A path
/// that is not absolute begins at that folder. Calls RequireNoForeignServer.
void Place(const std::filesystem::path& program);
void Remove();

/// Children of the server's name that run.
std::set<ProcessId> Running();

/// Children that have ended and that nobody has waited for; always 0 where nobody has to.
int Zombies();

/// Whether a process has ended, a child or not.
bool IsGone(ProcessId process);

/// Ends a child from outside, without waiting for it.
void Kill(ProcessId server);

/// Ends all children of the server's name and waits for them.
void KillAll();

/// Starts the program in this program's own folder as anybody would who is not the launcher, and answers 0 when it
/// cannot be started. KillAll ends it.
ProcessId StartStranger();

}  // namespace servers
