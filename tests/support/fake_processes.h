/// A process table and a clock inside the test program, which replace the system's: no real process is started, every
/// operation can be made to fail, and the clock does not advance. They define all of platform/process.h and
/// platform/clock.h. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fake_processes {

/// Restores a table with only the system's own entry; nothing fails, no action is called, and the clock is not ahead.
void Reset();

/// Adds a process that the library did not start, and returns its id. Handles are id + 0x100000000.
std::uint32_t AddForeignProcess(const std::string& name);

/// Makes the calling process look like a forked child of itself, or no longer.
void SetForkedChild(bool isChild);

/// Ends a process without the library.
void Kill(std::uint32_t processId);

/// Sets the name of the list's first entry, which is the system's own by default.
void SetFirstEntryName(const std::string& name);

/// Each makes the operation fail with that system error; 0 lets it succeed again.
void FailStart(std::uint32_t error);
void FailTerminate(std::uint32_t error);
void FailOpen(std::uint32_t error);
void FailList(std::uint32_t error);

/// The ids of the running processes, in the order of their start.
std::vector<std::uint32_t> Running();

/// The operations that were called, in order: "start NAME flags=F show=S", "terminate ID code=C", "open ID access=A
/// inherit=I", "list".
std::vector<std::string> Journal();
std::vector<std::string> JournalOf(const std::string& operation);

/// Sets an action that is called with the journal line of every operation after it, on the same thread and without a
/// lock held; empty for none.
void OnOperation(std::function<void(const std::string& line)> action);

/// Sets how far the clock is ahead of its start.
void SetClockAhead(std::chrono::milliseconds ahead);

/// Sets an action that is called once, after the next scan that opens a process and before the launcher acts on it: a
/// scan reads the clock after each opening, and the action is called before the next reading, on the reading thread and
/// without a lock held. Only one thread may use the launcher then.
void AfterNextScan(std::function<void()> action);

}  // namespace fake_processes
