#include "tools/host/summary.h"

#include <array>
#include <cstdio>

#include "tools/host/progress.h"

namespace plate_host {
namespace {

std::string Entry(const std::string& name, const std::string& value) {
    constexpr std::size_t valueColumn = 20;
    return "  " + name + std::string(name.size() < valueColumn ? valueColumn - name.size() : 1, ' ') + value;
}

std::string Seconds(double seconds) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.2f", seconds);
    return text.data();
}

}  // namespace

void RunOutcome::Add(const ChannelOutcome& channel, const RaiserCounts& channelRaisers) {
    framesHandled += channel.frames;
    for (const auto& [text, count] : channel.failures) {
        failures[text] += count;
    }
    frameDoneCalls += channel.frameDoneCalls;
    wrongFrameDoneCalls += channel.wrongFrameDoneCalls;
    raisers.made += channelRaisers.made;
    raisers.raised += channelRaisers.raised;
    raisers.discarded += channelRaisers.discarded;
}

std::vector<std::string> SummaryLines(const RunOutcome& run) {
    std::uint64_t failed = 0;
    for (const auto& [text, count] : run.failures) {
        failed += count;
    }
    std::vector<std::string> lines{"plate-host: summary"};
    lines.push_back(Entry("channels", std::to_string(run.channels)));
    lines.push_back(Entry("frames of the video", std::to_string(run.framesRead)));
    lines.push_back(Entry("frames handled", std::to_string(run.framesHandled) + " in " + Seconds(run.seconds) +
                                                " seconds, " + FramesPerSecond(run.framesHandled, run.seconds) +
                                                " a second"));
    lines.push_back(Entry("frames failed", std::to_string(failed)));
    for (const auto& [text, count] : run.failures) {
        lines.push_back("    " + std::to_string(count) + " x " + text);
    }
    if (run.isSingle) {
        lines.push_back(Entry("frame-done calls", std::to_string(run.frameDoneCalls)));
    }
    lines.push_back(
        Entry("events", std::to_string(run.events) + ", " + std::to_string(run.plates) + " of them plates"));
    lines.push_back(Entry("event raisers", std::to_string(run.raisers.made) + " made, " +
                                               std::to_string(run.raisers.raised) + " raised, " +
                                               std::to_string(run.raisers.discarded) + " discarded"));
    lines.push_back(Entry("buffers", std::to_string(run.buffersHandedOut) + " handed out, " +
                                         std::to_string(run.buffersGivenBack) + " given back"));
    if (run.snapshots) {
        const SnapshotCounts& snapshots = *run.snapshots;
        lines.push_back(Entry("snapshots", std::to_string(snapshots.written) + " written, " +
                                               std::to_string(snapshots.failed) + " failed, " +
                                               std::to_string(snapshots.withoutFrame) + " events without a frame"));
    }
    if (!run.videoDamage.empty()) {
        lines.push_back(Entry("video is damaged", OneLine(run.videoDamage)));
    }
    return lines;
}

std::vector<std::string> Defects(const RunOutcome& run) {
    std::vector<std::string> defects;
    if (run.buffersHandedOut != run.buffersGivenBack) {
        defects.push_back("of " + std::to_string(run.buffersHandedOut) + " buffers, " +
                          std::to_string(run.buffersGivenBack) + " were given back");
    }
    if (const std::uint64_t ended = run.raisers.raised + run.raisers.discarded; ended != run.raisers.made) {
        defects.push_back("of " + std::to_string(run.raisers.made) + " event raisers, " + std::to_string(ended) +
                          " were raised or discarded");
    }
    if (run.looseTargetLists != 0) {
        defects.push_back(std::to_string(run.looseTargetLists) + " target lists were attached to no event");
    }
    if (run.wrongFrameDoneCalls != 0) {
        defects.push_back(std::to_string(run.wrongFrameDoneCalls) +
                          " frame-done calls came twice or with a buffer that was not handed in");
    }
    if (!run.outputError.empty()) {
        defects.push_back("the events cannot be written: " + run.outputError);
    }
    if (run.snapshots && run.snapshots->failed != 0) {
        defects.push_back(std::to_string(run.snapshots->failed) + " snapshots are missing: " + run.snapshots->error);
    }
    return defects;
}

}  // namespace plate_host
