/// Command lines that play through the stand-in library, and what they print.
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace host_test {

using Json = nlohmann::ordered_json;

inline std::vector<std::string> PlayCommand(const std::string& video, const std::vector<std::string>& settings) {
    std::vector<std::string> command{"play", video, "--plugin", HOST_TEST_PLUGIN, "--engine", HOST_TEST_ENGINE_ONE};
    for (const std::string& setting : settings) {
        command.insert(command.end(), {"--set", setting});
    }
    return command;
}

inline void ReplaceEngine(std::vector<std::string>& command, const std::string& engine) {
    *(std::find(command.begin(), command.end(), "--engine") + 1) = engine;
}

/// The lines of an output, each parsed by itself; one that is no JSON throws.
inline std::vector<Json> Lines(const std::string& output) {
    std::vector<Json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(Json::parse(line));
    }
    return lines;
}

}  // namespace host_test
