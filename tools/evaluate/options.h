/// The command line.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/evaluate/evaluation.h"

namespace plate_evaluation {

struct Options {
    bool isHelpPrinted = false;  ///< the help has been printed, and the program ends
    std::filesystem::path folder;
    std::filesystem::path engine;
    std::filesystem::path server;  ///< empty to start none
    std::vector<std::string> serverArguments;
    std::filesystem::path details;  ///< empty for none
    std::filesystem::path json;     ///< empty for none
    EvaluationSettings settings;
};

/// Parses the arguments after the program's name; prints the help. Throws Failure.
Options ParseOptions(int argumentCount, const char* const* arguments);

/// Parses `count` whole percentages, separated by commas. Throws Failure.
std::vector<int> ParsePercents(const std::string& text, std::size_t count, const std::string& option);

}  // namespace plate_evaluation
