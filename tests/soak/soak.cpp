#include "tests/soak/soak.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "tests/soak/kept_handles.h"
#include "tests/support/descriptors.h"
#include "tests/support/servers.h"

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;

// One of three sessions writes trace lines, and plays fewer frames: the lines take most of its time.
constexpr int sessionsForAVerboseOne = 3;
constexpr int framesOverVerboseFrames = 40;

// So many samples are taken in the whole time, however long it is.
constexpr int samplesWanted = 240;

constexpr double framesOfADay = 25.0 * 86'400.0;

// The server's program, beside this one.
struct ServerProgram {
    ServerProgram() { servers::Place(VEXLANE_SERVER_PROGRAM); }
    ~ServerProgram() {
        try {
            servers::KillAll();
            servers::Remove();
        } catch (const std::exception& error) {
            std::cerr << "soak: " << error.what() << '\n';
        }
    }
    ServerProgram(const ServerProgram&) = delete;
    ServerProgram& operator=(const ServerProgram&) = delete;
};

double Mebibytes(std::uint64_t bytes) {
    return static_cast<double>(bytes) / (1 << 20);
}

class Player {
  public:
    Player(const Options& newOptions, std::ostream& newLines) : options(newOptions), lines(newLines) {
        test_support::KeepNoFreeMemory();
        samples.reserve(static_cast<std::size_t>(std::max(options.rounds, samplesWanted + 1)));
    }

    Outcome Play() {
        for (int session = 1; !IsOver(); ++session) {
            PlaySession(static_cast<std::uint32_t>(session), session % sessionsForAVerboseOne == 0);
        }
        return Judge();
    }

  private:
    bool IsOver() const {
        return options.minutes > 0 ? Elapsed() >= std::chrono::minutes(options.minutes)
                                   : samples.size() >= static_cast<std::size_t>(options.rounds);
    }
    Clock::duration Elapsed() const { return Clock::now() - start; }

    void PlaySession(std::uint32_t seed, bool isVerbose) {
        const std::uint64_t handlesBefore = OtherHandles();
        LoadAndPlay(seed, isVerbose);
        const std::uint64_t handlesAfter = OtherHandles();
        const std::uint64_t left = handlesAfter - std::min(handlesBefore, handlesAfter);
        // The first session also opens what the system keeps for the process.
        if (left > mostHandlesOfTheRuntime && seed > 1) {
            throw std::runtime_error(std::to_string(left) + " handles are left of a library that was unloaded");
        }
        KeepHandlesOfTheRuntime(left);
    }

    static std::uint64_t OtherHandles() { return test_support::CountOpen().all - KeptHandles(); }

    void LoadAndPlay(std::uint32_t seed, bool isVerbose) {
        Session session(world, folder, seed, options.effort.cameras, isVerbose);
        if (isVerbose) {
            session.PlayRound(options.effort.frames / framesOverVerboseFrames, options.effort.visits);
        } else {
            for (int round = 0; round < options.roundsOfASession && !IsOver(); ++round) {
                session.PlayRound(options.effort.frames, options.effort.visits);
                options.afterRound();
                Look();
            }
        }
        session.End();
    }

    // Takes a sample when it is time for one, and writes a line when a minute has passed.
    void Look() {
        const Clock::duration elapsed = Elapsed();
        if (elapsed < nextSample) {
            return;
        }
        samples.push_back(TakeSample());
        nextSample = elapsed + std::chrono::minutes(options.minutes) / samplesWanted;
        if (elapsed >= nextLine) {
            WriteLine(samples.back());
            nextLine += std::chrono::minutes(1);
        }
    }

    void WriteLine(const Sample& sample) const {
        const Counts& counts = world.counts;
        const Json line = {{"seconds", std::chrono::duration_cast<std::chrono::seconds>(Elapsed()).count()},
                           {"camera_days", static_cast<double>(counts.frames) / framesOfADay},
                           {"frames", counts.frames.load()},
                           {"events", counts.events.load()},
                           {"failed_events", counts.failedEvents.load()},
                           {"detectors", counts.detectors.load()},
                           {"server_restarts", counts.detectors + counts.refusedRanges},
                           {"server_kills", counts.kills.load()},
                           {"resident_mib", Mebibytes(sample.residentBytes)},
                           {"allocated_mib", Mebibytes(sample.allocatedBytes)},
                           {"handles", sample.handles},
                           {"kept_handles", sample.keptHandles},
                           {"threads", sample.threads},
                           {"files", sample.files}};
        lines << line.dump() << std::endl;
    }

    Outcome Judge() const {
        if (samples.size() < fewestSamples) {
            throw std::runtime_error(std::to_string(samples.size()) + " samples are too few; play for longer");
        }
        if (world.counts.events == 0) {
            throw std::runtime_error("no event was raised");
        }
        if (world.counts.kills == 0 && options.effort.visits > 0) {
            throw std::runtime_error("no server was killed");
        }
        WriteLine(samples.back());
        const Outcome outcome = {GrowthOf(samples)};
        Json line = {{"samples", samples.size()}};
        for (const Growth& growth : outcome.growth) {
            line["growth"][growth.what] = {{"value", growth.value}, {"bound", growth.bound}};
        }
        line["passed"] = outcome.HasPassed();
        lines << line.dump() << std::endl;
        return outcome;
    }

    const Options options;
    std::ostream& lines;
    const plugin_test::TestFolder folder;
    const ServerProgram server;
    World world;
    const Clock::time_point start = Clock::now();
    Clock::duration nextSample{0};
    Clock::duration nextLine = std::chrono::minutes(1);
    std::vector<Sample> samples;
};

}  // namespace

bool Outcome::HasPassed() const {
    return std::all_of(growth.begin(), growth.end(), [](const Growth& each) { return each.IsWithinBound(); });
}

Outcome Play(const Options& options, std::ostream& lines) {
    return Player(options, lines).Play();
}

}  // namespace soak
