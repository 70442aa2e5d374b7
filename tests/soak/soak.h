/// Plays traffic through the built library for a long time, and checks for growing resource use.
#pragma once

#include <functional>
#include <ostream>
#include <vector>

#include "tests/soak/growth.h"
#include "tests/soak/session.h"

namespace soak {

struct Options {
    int minutes = 0;  ///< of traffic at full speed
    int rounds = 0;   ///< used if `minutes` is 0, with a sample after each round
    Effort effort;
    int roundsPerSession = 8;
    std::function<void()> afterRound = [] {};
};

struct Outcome {
    std::vector<Growth> growth;

    bool HasPassed() const;
};

/// Writes a line of JSON for each minute and one at the end. Throws std::runtime_error if the library misbehaves. Once
/// per process, because it uses the server's program and the registry exclusively.
Outcome Play(const Options& options, std::ostream& lines);

}  // namespace soak
