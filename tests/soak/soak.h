/// Plays traffic through the built library for long, and looks whether it needs more and more.
#pragma once

#include <functional>
#include <ostream>
#include <vector>

#include "tests/soak/growth.h"
#include "tests/soak/session.h"

namespace soak {

struct Options {
    int minutes = 0;  ///< of traffic at full speed; or, where it is 0,
    int rounds = 0;   ///< that many rounds, with a sample after each
    Effort effort;
    int roundsOfASession = 8;
    std::function<void()> afterRound = [] {};
};

struct Outcome {
    std::vector<Growth> growth;

    bool HasPassed() const;
};

/// Writes a line of JSON for each minute and one at the end. Throws std::runtime_error when the library does anything
/// else than it should. Once for each process, since it takes the server's program and the registry for itself.
Outcome Play(const Options& options, std::ostream& lines);

}  // namespace soak
