/// Names on Windows under which this user's servers are found. Pipes and mutexes have one namespace for all users, so
/// anybody can take a name first. What has a name is believed only if its owner is this user.
///
/// A server's pipe has a name that nobody could know before. The server publishes it in the user's part of the
/// registry, which others cannot write: as a value, named as the server, of HKEY_USERS\(user)\Software\Vexlane Reading.
/// The key is gone when the user has logged off.
#pragma once

#include <windows.h>

#include <string>

namespace transport {

/// Users are told as text, S-1-5-21-... Throws std::system_error.
std::string ThisUser();

/// Empty where it is not known.
std::string UserOf(HANDLE process);

/// The owner of a pipe, mutex or other object whose handle allows to read; empty where it is not known.
std::string OwnerOf(HANDLE object);

/// The name of the mutex that the server of that name holds while it listens.
std::string MutexName(const std::string& name);

/// A path for a pipe that nobody knows. Throws std::system_error.
std::string NewPipePath();

/// The path of the pipe of the server of that name; empty when none is published.
std::string PublishedPipePath(const std::string& name);

/// Throws std::system_error.
void PublishPipePath(const std::string& name, const std::string& path);

/// Leaves the path that another server has published since.
void WithdrawPipePath(const std::string& name, const std::string& path) noexcept;

}  // namespace transport
