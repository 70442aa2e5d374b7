/// Names on Windows under which this user's servers are found. Pipes and mutexes have one namespace for all users, so
/// another user can take a name first. An object is trusted only if its owner is this user.
///
/// A server's pipe has a random name. The server publishes it in the user's part of the registry, which others cannot
/// write: as a value, named like the server, of HKEY_USERS\(user)\Software\Vexlane Reading. The system deletes the key
/// when the user logs off.
#pragma once

#include <windows.h>

#include <string>

namespace transport {

/// The user of this process as text, S-1-5-21-... Throws std::system_error.
std::string ThisUser();

/// The user of a process, as text; empty if unknown.
std::string UserOf(HANDLE process);

/// The owner of a pipe, mutex or other object whose handle has read access; empty if unknown.
std::string OwnerOf(HANDLE object);

/// The name of the mutex that the server of that name holds while it listens.
std::string MutexName(const std::string& name);

/// A random path for a pipe. Throws std::system_error.
std::string NewPipePath();

/// The path of the pipe of the server of that name; empty when none is published.
std::string PublishedPipePath(const std::string& name);

/// Throws std::system_error.
void PublishPipePath(const std::string& name, const std::string& path);

/// Removes the published path, unless another server has replaced it.
void WithdrawPipePath(const std::string& name, const std::string& path) noexcept;

}  // namespace transport
