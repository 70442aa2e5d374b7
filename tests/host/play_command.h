/// Command lines that play through the test library.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "tests/host/json_lines.h"

namespace host_test {

/// With a drain, empty frames follow those of the video.
enum class Drain { No, Yes };

inline std::vector<std::string> PlayCommand(const std::string& video, const std::vector<std::string>& settings,
                                            Drain drain = Drain::No) {
    std::vector<std::string> command{"play", video, "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE};
    if (drain == Drain::No) {
        command.emplace_back("--no-drain");
    }
    for (const std::string& setting : settings) {
        command.insert(command.end(), {"--set", setting});
    }
    return command;
}

inline void ReplaceEngine(std::vector<std::string>& command, const std::string& engine) {
    *(std::find(command.begin(), command.end(), "--engine") + 1) = engine;
}

}  // namespace host_test
