/// The recognition server's real processes, as far as they are children of this one.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <set>

namespace posix_servers {

/// The name under which it is started and found.
inline constexpr const char* serverName = "plate-Server.exe";

std::filesystem::path OwnFolder();

/// Puts a program into this program's own folder, under the server's name and in place of what stands there.
void Place(const std::filesystem::path& program);
void Remove();

/// Children of the server's name that run.
std::set<pid_t> Running();

/// Children that have ended and that nobody has waited for.
int Zombies();

/// Ends a child from outside, without waiting for it.
void Kill(pid_t server);

/// Ends all children of the server's name and waits for them.
void KillAll();

/// Starts the program in this program's own folder as anybody would who is not the launcher; the caller waits for it.
pid_t StartStranger();

}  // namespace posix_servers
