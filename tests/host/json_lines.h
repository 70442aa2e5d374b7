/// Output of lines of JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

namespace host_test {

using Json = nlohmann::ordered_json;

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
