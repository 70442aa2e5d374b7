/// A process table and a clock inside the test program, in place of the system's: the program that links them has no
/// real processes to start, can make every operation fail, and has a clock that stands still. They define all of
/// platform/process.h and platform/clock.h. Any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fake_processes {

/// An empty table but for the system's own entry; nothing fails, nobody is called, and the clock is not ahead.
void Reset();

/// Adds a process that the plug-in did not start, and returns its id. Handles are id + 0x100000000.
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
/// "list".
std::vector<std::string> Journal();
std::vector<std::string> JournalOf(const std::string& operation);

/// Called after every operation, on the thread that asked for it and without a lock held, with its line of the
/// journal; empty for nothing.
void OnOperation(std::function<void(const std::string& line)> action);

/// How far the clock is ahead of where it began.
void SetClockAhead(std::chrono::milliseconds ahead);

/// Called once, between the next scan that opens a process and what follows from it: a scan reads the clock after each
/// opening, and the action comes before the reading after those, on the thread that reads and without a lock held. Only
/// one thread may use the launcher then.
void AfterNextScan(std::function<void()> action);

}  // namespace fake_processes
