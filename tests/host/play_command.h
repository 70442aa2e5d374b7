/// Command lines that play through the test library, and their output.
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace host_test {

using Json = nlohmann::ordered_json;

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

/// Parses each line of an output as JSON; throws on an invalid line.
inline std::vector<Json> Lines(const std::string& output) {
    std::vector<Json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(Json::parse(line));
    }
    return lines;
}

}  // namespace host_test
