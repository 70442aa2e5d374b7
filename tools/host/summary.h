/// The results of a run.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/host/channel.h"
#include "tools/host/snapshots.h"
#include "tools/host/video_reader.h"
#include "tools/ledger/ledger.h"

namespace plate_host {

struct RunOutcome {
    int channels = 0;
    double seconds = 0.0;
    std::uint64_t framesRead = 0;
    std::uint64_t framesAfterVideo = 0;  ///< empty ones, for each channel
    std::uint64_t eventsAfterVideo = 0;  ///< raised while they were handled
    std::uint64_t framesHandled = 0;     ///< of all channels, with the empty ones
    std::map<std::string, std::uint64_t> failures;
    bool isSingle = false;
    std::uint64_t frameDoneCalls = 0;
    std::uint64_t wrongFrameDoneCalls = 0;
    std::uint64_t events = 0;
    std::uint64_t plates = 0;
    RaiserCounts raisers;
    std::uint64_t unattachedTargetLists = 0;
    std::uint64_t buffersPassed = 0;
    std::uint64_t buffersReleased = 0;
    std::string videoDamage;
    ConnectionGaps gaps;
    std::string outputError;
    std::optional<SnapshotCounts> snapshots;
    std::optional<ledger::Counts> ledger;  ///< if the calls of the engine were followed
    std::uint64_t callsOutsideFrames = 0;  ///< of the engine, on other threads than those that pass frames
    std::string recordingError;

    void Add(const ChannelOutcome& channel, const RaiserCounts& channelRaisers);
};

/// Formats the summary.
std::vector<std::string> SummaryLines(const RunOutcome& run);

/// The lines of a ledger, with the sums that do not close.
std::vector<std::string> LedgerLines(const ledger::Counts& counts);

/// The summary as one line of JSON with its line end.
std::string SummaryJson(const RunOutcome& run);

/// The reasons for which the run has failed, one line each: violations of the contract by the library, lost output.
std::vector<std::string> Defects(const RunOutcome& run);

}  // namespace plate_host
