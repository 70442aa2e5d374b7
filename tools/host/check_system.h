/// Operating system services for the command that checks an installation. One file per system. Main thread.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tools/host/check_result.h"

namespace plate_host {

/// This program, started again with other arguments, and a pipe from its standard output.
class OwnProgram {
  public:
    enum class Got { Line, End, Nothing };

    /// Throws Failure when it cannot be started.
    explicit OwnProgram(const std::vector<std::string>& arguments);
    OwnProgram(const OwnProgram&) = delete;
    OwnProgram& operator=(const OwnProgram&) = delete;
    /// Terminates it if it is running.
    ~OwnProgram();

    /// Reads a line, without its line end. Returns Nothing at the deadline, and End at the end of the output.
    Got ReadLine(std::string& line, std::chrono::steady_clock::time_point deadline);

    bool HasEnded();

    /// From now on it cannot write.
    void CloseOutput();

    /// Waits for its end, and terminates it at the deadline. Returns how it ended, such as "ended with status 3";
    /// empty for a status of 0.
    std::string Wait(std::chrono::steady_clock::time_point deadline);

  private:
    struct System;

    /// Appends to the pending bytes what can be read now. Returns false at the end.
    bool ReadAvailable();

    std::unique_ptr<System> system_;
    std::string pending_;
};

/// The path of the program that the library starts for a name without folders; empty if there is none.
std::string FindProgram(const std::string& name);

/// Where a program is searched for, in words.
const char* ProgramPlaces();

/// The libraries that a file needs, or that these need, and that Windows does not find for it. Empty on Linux, where
/// the loader's message names them.
std::vector<std::string> MissingLibraries(const std::string& path);

/// The version of a library file, or what tells its versions apart.
std::string VersionOf(const std::string& path);

/// The names of the engine's two functions, as the library imports them.
inline constexpr std::size_t recognizeFunction = 0;
inline constexpr std::size_t rangeFunction = 1;
const std::array<const char*, 2>& EngineFunctionNames();

/// From now on, a crash ends this process at once and without a dialogue.
void EndOnCrash();

/// Whether the library's trace lines can be written, and whether anything reads them.
CheckResult CheckDebugOutput();

}  // namespace plate_host
