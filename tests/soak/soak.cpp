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

// One of three sessions writes trace lines and plays fewer frames, because the lines take most of its time.
constexpr int sessionsPerVerboseSession = 3;
constexpr int verboseFrameDivisor = 40;

// The number of samples in the whole run, regardless of its length.
constexpr int sampleCount = 240;

constexpr double framesPerDay = 25.0 * 86'400.0;

// Places the server's program in this program's folder.
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
    Player(const Options& options, std::ostream& lines) : options_(options), lines_(lines) {
        test_support::KeepNoFreeMemory();
        samples_.reserve(static_cast<std::size_t>(std::max(options_.rounds, sampleCount + 1)));
    }

    Outcome Play() {
        for (int session = 1; !IsOver(); ++session) {
            PlaySession(static_cast<std::uint32_t>(session), session % sessionsPerVerboseSession == 0);
        }
        return Evaluate();
    }

  private:
    bool IsOver() const {
        return options_.minutes > 0 ? Elapsed() >= std::chrono::minutes(options_.minutes)
                                    : samples_.size() >= static_cast<std::size_t>(options_.rounds);
    }
    Clock::duration Elapsed() const { return Clock::now() - start_; }

    void PlaySession(std::uint32_t seed, bool isVerbose) {
        const std::uint64_t handlesBefore = OtherHandles();
        LoadAndPlay(seed, isVerbose);
        const std::uint64_t handlesAfter = OtherHandles();
        const std::uint64_t left = handlesAfter - std::min(handlesBefore, handlesAfter);
        // The first session also opens handles that the system keeps for the process.
        if (left > maxRuntimeHandles && seed > 1) {
            throw std::runtime_error(std::to_string(left) + " handles remain of an unloaded library");
        }
        AddRuntimeHandles(left);
    }

    static std::uint64_t OtherHandles() { return test_support::CountOpen().all - KeptHandles(); }

    void LoadAndPlay(std::uint32_t seed, bool isVerbose) {
        Session session(world_, folder_, seed, options_.effort.cameras, isVerbose);
        if (isVerbose) {
            session.PlayRound(options_.effort.frames / verboseFrameDivisor, options_.effort.visits);
        } else {
            for (int round = 0; round < options_.roundsPerSession && !IsOver(); ++round) {
                session.PlayRound(options_.effort.frames, options_.effort.visits);
                options_.afterRound();
                SampleIfDue();
            }
        }
        session.End();
    }

    // Takes a sample when one is due, and writes a line when a minute has passed.
    void SampleIfDue() {
        const Clock::duration elapsed = Elapsed();
        if (elapsed < nextSample_) {
            return;
        }
        samples_.push_back(TakeSample());
        nextSample_ = elapsed + std::chrono::minutes(options_.minutes) / sampleCount;
        if (elapsed >= nextLine_) {
            WriteLine(samples_.back());
            nextLine_ += std::chrono::minutes(1);
        }
    }

    void WriteLine(const Sample& sample) const {
        const Counts& counts = world_.counts;
        const Json line = {{"seconds", std::chrono::duration_cast<std::chrono::seconds>(Elapsed()).count()},
                           {"camera_days", static_cast<double>(counts.frames) / framesPerDay},
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
        lines_ << line.dump() << std::endl;
    }

    Outcome Evaluate() const {
        if (samples_.size() < minSamples) {
            throw std::runtime_error(std::to_string(samples_.size()) + " samples are too few; play for longer");
        }
        if (world_.counts.events == 0) {
            throw std::runtime_error("no event was raised");
        }
        if (world_.counts.kills == 0 && options_.effort.visits > 0) {
            throw std::runtime_error("no server was killed");
        }
        WriteLine(samples_.back());
        const Outcome outcome = {GrowthOf(samples_)};
        Json line = {{"samples", samples_.size()}};
        for (const Growth& growth : outcome.growth) {
            line["growth"][growth.what] = {{"value", growth.value}, {"bound", growth.bound}};
        }
        line["passed"] = outcome.HasPassed();
        lines_ << line.dump() << std::endl;
        return outcome;
    }

    const Options options_;
    std::ostream& lines_;
    const plugin_test::TestFolder folder_;
    const ServerProgram server_;
    World world_;
    const Clock::time_point start_ = Clock::now();
    Clock::duration nextSample_{0};
    Clock::duration nextLine_ = std::chrono::minutes(1);
    std::vector<Sample> samples_;
};

}  // namespace

bool Outcome::HasPassed() const {
    return std::all_of(growth.begin(), growth.end(), [](const Growth& each) { return each.IsWithinBound(); });
}

Outcome Play(const Options& options, std::ostream& lines) {
    return Player(options, lines).Play();
}

}  // namespace soak
