/// A process table inside the test program, in place of the system's: the program that links it has no real processes
/// to start, and can make every operation fail. It defines all of platform/process.h.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fake_processes {

/// An empty table but for the system's own entry; nothing fails, and nobody is called.
void Reset();

/// Adds a process that the plug-in did not start, and answers its id. Handles are id + 0x100000000.
std::uint32_t AddStranger(const std::string& name);

/// Makes the calling process look like a child that a fork has made of it, and back.
void SetForkedChild(bool isChild);

/// Ends a process from outside.
void Kill(std::uint32_t processId);

/// The name of the list's first entry, which is the system's own by default.
void SetFirstEntryName(const std::string& name);

/// Each makes the operation fail with that system error; 0 lets it succeed again.
void FailStart(std::uint32_t error);
void FailTerminate(std::uint32_t error);
void FailOpen(std::uint32_t error);
void FailList(std::uint32_t error);

/// The processes that run, by id, in the order in which they began.
std::vector<std::uint32_t> Running();

/// What was asked for, in order: "start NAME flags=F show=S", "terminate ID code=C", "open ID access=A inherit=I",
/// "list", "close".
std::vector<std::string> Journal();
std::vector<std::string> JournalOf(const std::string& operation);

/// Called behind every operation, on the thread that asked for it and without a lock held, with its line of the
/// journal; empty for nothing.
void OnOperation(std::function<void(const std::string& line)> action);

}  // namespace fake_processes
