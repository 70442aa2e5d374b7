/// Checks a library against its contract: runs cases, each in a process of its own.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace validate {

struct Options {
    std::filesystem::path program;  ///< this program, which runs the cases
    std::filesystem::path library;
    std::filesystem::path engine;  ///< the scripted engine
    int level = 1;                 ///< runs the cases up to this level
    std::uint64_t seed = 1;        ///< of the first random sequence
    double minutes = 60;           ///< at level 3, random sequences begin until this time has passed
    std::string pattern;           ///< runs only the cases whose sentence contains it
    int timeLimit = 20;            ///< of one case, in seconds
    bool json = false;
    std::function<void(const std::string&)> print;    ///< a line of the result
    std::function<void(const std::string&)> explain;  ///< a line for people
    std::function<bool()> mustStop;                   ///< the user has interrupted the run
};

/// Prints the cases up to the level.
void List(const Options& options);

/// Runs the cases. Returns the number of cases that fail. Throws std::runtime_error when none can run.
int Run(const Options& options);

/// Runs one case in this process, and writes its result into `folder`, which exists. Returns the exit status.
int RunCase(const Options& options, const std::string& sentence, const std::filesystem::path& folder);

}  // namespace validate
