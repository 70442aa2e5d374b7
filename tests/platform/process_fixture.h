/// Starts and lists processes through the platform, and cleans up after itself.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/last_error.h"
#include "platform/process.h"
#include "tests/support/environment.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"

namespace process_tests {

using servers::OwnFolder;

/// The program that the tests start, with the arguments "sleep", "exit" or "report FILE".
#ifdef _WIN32
inline constexpr const char* helperName = "process-helper.exe";
#else
inline constexpr const char* helperName = "process-helper";
#endif

inline std::uint32_t OwnProcessId() {
    return platform::CurrentProcessId();
}

inline void KillFromOutside(std::uint32_t process) {
    servers::Kill(static_cast<servers::ProcessId>(process));
}

using Ids = std::set<std::uint32_t>;

inline std::vector<platform::ProcessEntry> List() {
    std::vector<platform::ProcessEntry> entries = platform::ListProcesses();
    EXPECT_FALSE(entries.empty());
    return entries;
}

inline Ids ListedAs(const std::string& name) {
    Ids ids;
    for (const platform::ProcessEntry& entry : List()) {
        if (entry.executableName == name) {
            ids.insert(entry.processId);
        }
    }
    return ids;
}

inline bool IsListed(std::uint32_t process) {
    const std::vector<platform::ProcessEntry> entries = List();
    return std::any_of(entries.begin(), entries.end(),
                       [process](const platform::ProcessEntry& entry) { return entry.processId == process; });
}

inline platform::ProcessInformation Start(const std::string& commandLine,
                                          std::uint32_t showWindow = platform::showWindowHidden) {
    platform::ProcessInformation started;
    EXPECT_TRUE(platform::StartProcess(commandLine, 0, showWindow, started))
        << platform::SystemErrorText(platform::LastError());
    return started;
}

class ProcessFixture : public testing::Test {
  protected:
    ProcessFixture() : startFolder_(std::filesystem::current_path()) {
        folder = std::filesystem::canonical(std::filesystem::temp_directory_path()) /
                 ("vexlane-process-" + std::to_string(std::random_device()()));
        std::filesystem::create_directory(folder);
    }

    ~ProcessFixture() override {
        for (const platform::SystemHandle process : toTerminate_) {
            platform::TerminateProcess(process, 0);
        }
        std::filesystem::current_path(startFolder_);
        // The file of a program that has just ended can still be in use for a moment.
        copies_.push_back(folder);
        for (const std::filesystem::path& copy : copies_) {
            EXPECT_TRUE(WaitUntil([&copy] {
                std::error_code error;
                std::filesystem::remove_all(copy, error);
                return !error;
            })) << copy;
        }
    }

    /// Copies the helper to `target`, and removes the copy at the end of the test.
    std::filesystem::path CopyHelper(const std::filesystem::path& target) {
        std::filesystem::copy_file(OwnFolder() / helperName, target);
        copies_.push_back(target);
        return target;
    }

    /// Starts the helper with arguments that make it run on, and ends it at the latest with the test.
    platform::ProcessInformation StartTracked(const std::string& commandLine) {
        const platform::ProcessInformation started = Start(commandLine);
        toTerminate_.push_back(started.process);
        return started;
    }

    /// Runs the helper until it has written its report, and returns the report's lines by their first words.
    std::map<std::string, std::string> Report(const std::string& program,
                                              std::uint32_t showWindow = platform::showWindowHidden) {
        const std::filesystem::path file = folder / "report";
        std::filesystem::remove(file);
        const platform::ProcessInformation started = Start(program + " report \"" + file.string() + "\"", showWindow);
        EXPECT_TRUE(WaitUntil([&] { return std::filesystem::exists(file) && !IsListed(started.processId); }));
        std::map<std::string, std::string> report;
        std::ifstream stream(file);
        for (std::string word; stream >> word;) {
            std::getline(stream >> std::ws, report[word]);
        }
        return report;
    }

    std::filesystem::path folder;

  private:
    std::filesystem::path startFolder_;
    std::vector<std::filesystem::path> copies_;
    std::vector<platform::SystemHandle> toTerminate_;
};

/// A program of one name in several folders, for tests of the search order.
class ProgramSearch : public ProcessFixture {
  protected:
    ProgramSearch() {
        for (const std::filesystem::path& made : {onPath, current, folder / "empty"}) {
            std::filesystem::create_directories(made);
        }
        std::filesystem::current_path(current);
        SetPath((folder / "empty").string() + test_support::pathSeparator + onPath.string() +
                test_support::pathSeparator + pathBefore);
    }
    ~ProgramSearch() override { SetPath(pathBefore); }

    static void SetPath(const std::string& path) { test_support::SetEnvironment("PATH", path); }

    void ExpectIsStarted(const std::filesystem::path& program) {
        const std::string started = Report(name)["executable"];
        EXPECT_TRUE(std::filesystem::equivalent(started, program)) << started << " instead of " << program;
    }

    const std::string name = "vexlane-test-search.exe";
    const std::filesystem::path onPath = folder / "path";
    const std::filesystem::path current = folder / "current";
    const std::string pathBefore = std::getenv("PATH");
};

}  // namespace process_tests
