/// The command line.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "tools/evaluate/evaluation.h"

namespace plate_evaluation {

struct Options {
    bool isAnswered = false;  ///< the help has been printed, nothing is left to do
    std::filesystem::path folder;
    std::filesystem::path engine;
    std::filesystem::path server;  ///< empty: none is started
    std::vector<std::string> serverArguments;
    std::filesystem::path details;  ///< empty for none
    std::filesystem::path json;     ///< empty for none
    EvaluationSettings settings;
};

/// Reads the words after the program's name; prints the help. Throws Failure.
Options ParseOptions(int argumentCount, const char* const* arguments);

/// Whole percents with commas between them, so many as are wanted. Throws Failure.
std::vector<int> ParsePercents(const std::string& text, std::size_t count, const std::string& option);

}  // namespace plate_evaluation
