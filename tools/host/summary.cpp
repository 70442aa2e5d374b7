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
    raisers.created += channelRaisers.created;
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
    if (run.framesAfterVideo != 0) {
        lines.push_back(Entry("after the video", std::to_string(run.framesAfterVideo) +
                                                     " empty frames, events: " + std::to_string(run.eventsAfterVideo)));
    }
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
    lines.push_back(Entry("event raisers", std::to_string(run.raisers.created) + " created, " +
                                               std::to_string(run.raisers.raised) + " raised, " +
                                               std::to_string(run.raisers.discarded) + " discarded"));
    lines.push_back(Entry("buffers", std::to_string(run.buffersPassed) + " passed, " +
                                         std::to_string(run.buffersReleased) + " released"));
    if (run.snapshots) {
        const SnapshotCounts& snapshots = *run.snapshots;
        lines.push_back(Entry("snapshots", std::to_string(snapshots.written) + " written, " +
                                               std::to_string(snapshots.failed) + " failed, " +
                                               std::to_string(snapshots.withoutFrame) + " events without a frame"));
    }
    if (run.gaps.count != 0) {
        lines.push_back(Entry("without connection", std::to_string(run.gaps.count) + " times, " +
                                                        Seconds(static_cast<double>(run.gaps.milliseconds) / 1000) +
                                                        " seconds in all"));
    }
    if (!run.videoDamage.empty()) {
        lines.push_back(Entry("video is damaged", OneLine(run.videoDamage)));
    }
    if (run.ledger) {
        const std::vector<std::string> ledger = LedgerLines(*run.ledger);
        lines.insert(lines.end(), ledger.begin(), ledger.end());
    }
    if (run.callsOutsideFrames != 0) {
        lines.push_back(Entry("  calls outside", std::to_string(run.callsOutsideFrames) +
                                                     " calls of the engine on threads that pass no frame"));
    }
    return lines;
}

std::vector<std::string> LedgerLines(const ledger::Counts& counts) {
    std::vector<std::string> lines{"plate-host: ledger"};
    for (const ledger::Line& line : ledger::LinesOf(counts)) {
        std::string text = std::to_string(line.count);
        constexpr std::size_t countWidth = 10;
        text.insert(0, text.size() < countWidth ? countWidth - text.size() : 0, ' ');
        lines.push_back(text + (line.isPart ? "    " : "  ") + OneLine(line.text));
    }
    for (const ledger::Balance& balance : ledger::BalancesOf(counts)) {
        if (!balance.Closes()) {
            lines.push_back("  does not close: " + balance.text + ": " + std::to_string(balance.left) + " and " +
                            std::to_string(balance.right));
        }
    }
    return lines;
}

std::string SummaryJson(const RunOutcome& run) {
    Json summary;
    summary["channels"] = run.channels;
    summary["frames_of_video"] = run.framesRead;
    summary["frames_after_video"] = run.framesAfterVideo;
    summary["events_after_video"] = run.eventsAfterVideo;
    summary["frames_handled"] = run.framesHandled;
    summary["seconds"] = run.seconds;
    summary["events"] = run.events;
    summary["plates"] = run.plates;
    summary["raisers"] = {
        {"created", run.raisers.created}, {"raised", run.raisers.raised}, {"discarded", run.raisers.discarded}};
    summary["buffers"] = {{"passed", run.buffersPassed}, {"released", run.buffersReleased}};
    if (run.ledger) {
        summary["ledger"] = ledger::JsonOf(*run.ledger);
    }
    summary["defects"] = Defects(run);
    return Json{{"summary", summary}}.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::vector<std::string> Defects(const RunOutcome& run) {
    std::vector<std::string> defects;
    if (run.buffersPassed != run.buffersReleased) {
        defects.push_back("only " + std::to_string(run.buffersReleased) + " of " + std::to_string(run.buffersPassed) +
                          " buffers were released");
    }
    if (const std::uint64_t ended = run.raisers.raised + run.raisers.discarded; ended != run.raisers.created) {
        defects.push_back("only " + std::to_string(ended) + " of " + std::to_string(run.raisers.created) +
                          " event raisers were raised or discarded");
    }
    if (run.unattachedTargetLists != 0) {
        defects.push_back(std::to_string(run.unattachedTargetLists) + " target lists were not attached to an event");
    }
    if (run.wrongFrameDoneCalls != 0) {
        defects.push_back(std::to_string(run.wrongFrameDoneCalls) +
                          " frame-done calls were repeated or passed a wrong buffer");
    }
    if (!run.outputError.empty()) {
        defects.push_back("cannot write the events: " + run.outputError);
    }
    if (run.snapshots && run.snapshots->failed != 0) {
        defects.push_back(std::to_string(run.snapshots->failed) +
                          " snapshots could not be written: " + run.snapshots->error);
    }
    if (!run.recordingError.empty()) {
        defects.push_back(run.recordingError);
    }
    return defects;
}

}  // namespace plate_host
