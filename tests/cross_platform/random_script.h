/// Random scripts for the scripted engine: vehicles that appear, are misread, disappear for a while and reappear, and
/// stray plates.
#pragma once

#include <string>

#include "tests/cross_platform/random.h"

namespace transcript {

struct ScriptOptions {
    int frames;
    int width;  ///< of the picture that the vehicles pass through
    int height;
    std::string journal;  ///< file name
};

/// The script in JSON, without a line end.
std::string RandomScript(Random& random, const ScriptOptions& options);

}  // namespace transcript
