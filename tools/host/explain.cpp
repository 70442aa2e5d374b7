#include "tools/host/explain.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "tools/host/failure.h"
#include "tools/host/files.h"
#include "tools/host/system.h"
#include "tools/ledger/ledger.h"
#include "tools/recording/recording.h"
#include "tools/recording/recording_writer.h"

namespace plate_host {
namespace {

using recording::Frame;

// A vehicle is looked for this long before and after the given time.
constexpr double windowSeconds = 3;
// Texts of one plate differ by at most this part of their characters.
constexpr double alikeDistance = 0.5;

std::string Seconds(std::uint64_t milliseconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f s", static_cast<double>(milliseconds) / 1000);
    return text.data();
}

// The beginning of a line that tells what happened at a time.
std::string At(std::uint64_t milliseconds) {
    constexpr std::size_t width = 10;
    const std::string text = Seconds(milliseconds);
    return std::string(text.size() < width ? width - text.size() : 0, ' ') + text + "  ";
}

std::string Quoted(const std::string& text) {
    std::string quoted(1, '"');
    quoted += OneLine(text);
    return quoted + '"';
}

/// A channel of a recording, and what its ledger says of it.
struct FollowedChannel {
    recording::Channel channel;
    std::vector<const Frame*> frames;
    std::unique_ptr<ledger::ChannelLedger> ledger;
};

std::vector<FollowedChannel> Follow(const recording::Recording& recording, std::optional<int> only) {
    std::map<int, FollowedChannel> channels;
    for (const recording::Channel& channel : recording.channels) {
        channels[channel.number].channel = channel;
    }
    for (const Frame& frame : recording.frames) {
        FollowedChannel& followed = channels[frame.channel];
        followed.channel.number = frame.channel;
        followed.frames.push_back(&frame);
    }
    std::vector<FollowedChannel> result;
    for (auto& [number, followed] : channels) {
        if (only && number != *only) {
            continue;
        }
        constexpr bool keepsTracks = true;
        followed.ledger =
            std::make_unique<ledger::ChannelLedger>(ledger::EarlyReportOf(followed.channel.settings), keepsTracks);
        for (const Frame* const frame : followed.frames) {
            followed.ledger->Add(*frame);
        }
        result.push_back(std::move(followed));
    }
    if (result.empty()) {
        throw Failure(only ? "the recording has no channel " + std::to_string(*only) : "the recording has no frames");
    }
    return result;
}

/// How well a track fits what was asked for; the smallest is the best.
struct Fit {
    double distance = 0;  // of its nearest text, 0 to 1
    double seconds = 0;   // from the asked time to its readings
    bool IsAccepted() const { return distance <= alikeDistance && seconds <= windowSeconds; }
    friend auto operator<=>(const Fit&, const Fit&) = default;
};

Fit FitOf(const ledger::Track& track, const ExplainOptions& options) {
    Fit fit;
    if (!options.plate.empty()) {
        fit.distance = std::numeric_limits<double>::infinity();
        for (const ledger::TrackReading& reading : track.readings) {
            fit.distance = std::min(fit.distance, ledger::TextDistanceOf(reading.text, options.plate));
        }
    }
    if (options.seconds) {
        const double first = static_cast<double>(track.readings.front().timeMs) / 1000;
        const double last = static_cast<double>(track.readings.back().timeMs) / 1000;
        fit.seconds = std::max({0.0, first - *options.seconds, *options.seconds - last});
    }
    return fit;
}

struct FoundTrack {
    const FollowedChannel* channel = nullptr;
    const ledger::Track* track = nullptr;
    Fit fit;
};

/// The tracks that fit, the best first.
std::vector<FoundTrack> FindTracks(const std::vector<FollowedChannel>& channels, const ExplainOptions& options) {
    std::vector<FoundTrack> found;
    for (const FollowedChannel& channel : channels) {
        for (const auto& track : channel.ledger->Tracks()) {
            const Fit fit = FitOf(*track, options);
            if (fit.IsAccepted()) {
                found.push_back({&channel, track.get(), fit});
            }
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const FoundTrack& one, const FoundTrack& other) { return one.fit < other.fit; });
    return found;
}

std::string ReadingText(const ledger::TrackReading& reading) {
    const tagRECT& area = reading.rectangle;
    return Quoted(reading.text) + ", " + std::to_string(reading.confidence) + " %, " +
           std::to_string(std::int64_t{area.right} - area.left) + " x " +
           std::to_string(std::int64_t{area.bottom} - area.top) + " pixels at " + std::to_string(area.left) + "," +
           std::to_string(area.top);
}

// "29 x ABC123, 2 x ABC128"
std::string TextsOf(const std::vector<ledger::TrackReading>& readings) {
    std::vector<std::pair<std::size_t, std::string>> counts;
    for (const ledger::TrackReading& reading : readings) {
        const auto found =
            std::find_if(counts.begin(), counts.end(), [&](const auto& count) { return count.second == reading.text; });
        if (found == counts.end()) {
            counts.emplace_back(1, reading.text);
        } else {
            ++found->first;
        }
    }
    std::stable_sort(counts.begin(), counts.end(),
                     [](const auto& one, const auto& other) { return one.first > other.first; });
    constexpr std::size_t mostTexts = 6;
    std::string text;
    for (std::size_t index = 0; index < std::min(counts.size(), mostTexts); ++index) {
        text += (index == 0 ? "" : ", ") + std::to_string(counts[index].first) + " x " + Quoted(counts[index].second);
    }
    return counts.size() > mostTexts ? text + " and " + std::to_string(counts.size() - mostTexts) + " other texts"
                                     : text;
}

std::string EventText(const ledger::Track& track, const recording::Recording& recording) {
    if (recording.run.recorder == recording::engineRecorder) {
        return "whether its event was raised is not recorded";
    }
    if (track.hasEvent) {
        return "the event was raised";
    }
    return track.failedStep.empty() ? "there was no event" : "the event failed: " + track.failedStep;
}

std::vector<std::string> LifeOf(const FoundTrack& found, const recording::Recording& recording) {
    const ledger::Track& track = *found.track;
    const ledger::TrackReading& first = track.readings.front();
    const ledger::TrackReading& last = track.readings.back();
    std::vector<std::string> lines;
    lines.push_back("a vehicle of channel " + std::to_string(found.channel->channel.number) + ", " +
                    std::to_string(track.readings.size()) + " readings: " + TextsOf(track.readings));
    lines.push_back(At(first.timeMs) + "first reading: " + ReadingText(first));
    lines.push_back(At(last.timeMs) + "last reading:  " + ReadingText(last));
    if (!track.reason) {
        lines.push_back(std::string("            not reported: ") +
                        (recording.end ? "the detector ended" : "the recording ends") + " while the track was open");
        return lines;
    }
    lines.push_back(At(track.reportTimeMs) + "reported because " + ledger::ReasonText(*track.reason) + ": " +
                    Quoted(track.reportedText) + " of " + Seconds(track.reportedTimeMs));
    lines.push_back("            " + EventText(track, recording));
    const auto after = std::count_if(track.readings.begin(), track.readings.end(),
                                     [&](const auto& reading) { return reading.timeMs > track.reportTimeMs; });
    if (after != 0) {
        lines.push_back("            " + std::to_string(after) +
                        " later readings joined the track, which is reported once");
    }
    return lines;
}

// What happened on a channel at that time, when no track fits.
std::vector<std::string> SceneOf(const FollowedChannel& channel, const ExplainOptions& options) {
    std::vector<std::string> lines;
    const double middle = options.seconds.value_or(0);
    const auto isNear = [&](std::uint64_t timeMs) {
        return !options.seconds || std::abs(static_cast<double>(timeMs) / 1000 - middle) <= windowSeconds;
    };
    ledger::ChannelLedger scene(ledger::EarlyReportOf(channel.channel.settings), false);
    const recording::EngineCall* search = nullptr;
    const recording::RangeCall* range = nullptr;
    for (const Frame* const frame : channel.frames) {
        if (isNear(frame->timeMs)) {
            scene.Add(*frame);
            search = frame->engineCalls.empty() ? search : &frame->engineCalls.front();
            range = frame->ranges.empty() ? range : &frame->ranges.back();
        }
    }
    const ledger::Counts counts = scene.CountsSoFar();
    lines.push_back("channel " + std::to_string(channel.channel.number) + ": " + std::to_string(counts.frames) +
                    " frames" + (options.seconds ? " within 3 seconds of that time" : "") + ": " +
                    std::to_string(counts.framesWithPlates) + " with plates, " +
                    std::to_string(counts.framesWithoutPlates) + " without");
    for (const auto& [text, count] : counts.framesRefused) {
        lines.push_back("  " + std::to_string(count) + " were refused: " + Quoted(text));
    }
    if (counts.framesNotSearched != 0) {
        lines.push_back("  " + std::to_string(counts.framesNotSearched) + " were not searched");
    }
    if (counts.framesEngineFailed != 0) {
        lines.push_back("  in " + std::to_string(counts.framesEngineFailed) + " the engine threw an exception");
    }
    if (range != nullptr) {
        lines.push_back("  the engine was asked for plates of " + std::to_string(range->minimumWidth) + " to " +
                        std::to_string(range->maximumWidth) + " pixels width" +
                        (counts.rangesRefused == 0 ? ""
                                                   : ", and refused that " + std::to_string(counts.rangesRefused) +
                                                         " times: its server did not run"));
    }
    if (search != nullptr && search->region) {
        lines.push_back("  it was asked to search " + std::to_string(search->region->left) + "," +
                        std::to_string(search->region->top) + " to " + std::to_string(search->region->right) + "," +
                        std::to_string(search->region->bottom) + " of " + std::to_string(search->width) + " x " +
                        std::to_string(search->height) + " pixels");
    }
    std::vector<ledger::TrackReading> readings;
    for (const auto& track : channel.ledger->Tracks()) {
        std::copy_if(track->readings.begin(), track->readings.end(), std::back_inserter(readings),
                     [&](const auto& reading) { return isNear(reading.timeMs); });
    }
    lines.push_back("  read at that time: " + (readings.empty() ? "nothing" : TextsOf(readings)));
    return lines;
}

void Print(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    if (const WriteResult written = WriteStandard(StandardStream::Output, text); !written.error.empty()) {
        throw Failure("cannot write: " + written.error);
    }
}

std::vector<FollowedChannel> FollowAsked(const recording::Recording& recording, const ExplainOptions& options) {
    if (!options.seconds && options.plate.empty()) {
        throw Failure("say which vehicle: --time, --plate or both");
    }
    return Follow(recording, options.channel);
}

// The first frame from which a new detector behaves like the recorded one: no track of an earlier frame is open in it.
std::uint64_t BeginningOf(const FoundTrack& found) {
    std::uint64_t start = found.track->readings.front().frame;
    const auto timeOf = [&](std::uint64_t frame) { return found.channel->frames.at(frame)->timeMs; };
    for (bool hasMoved = true; hasMoved;) {
        hasMoved = false;
        for (const auto& track : found.channel->ledger->Tracks()) {
            const std::uint64_t first = track->readings.front().frame;
            if (first < start && (!track->isRemoved || track->removalTimeMs >= timeOf(start))) {
                start = first;
                hasMoved = true;
            }
        }
    }
    return start;
}

// The frame after which nothing comes of the track.
std::uint64_t LastFrameOf(const FoundTrack& found) {
    const ledger::Track& track = *found.track;
    const std::uint64_t lastTime =
        track.isRemoved ? track.removalTimeMs : std::max(track.readings.back().timeMs, track.reportTimeMs);
    std::uint64_t last = track.readings.back().frame;
    while (last + 1 < found.channel->frames.size() && found.channel->frames[last]->timeMs < lastTime) {
        ++last;
    }
    return last;
}

}  // namespace

int Explain(const ExplainOptions& options, Console&) {
    const recording::Recording recording = recording::ReadRecording(ToOpenPath(options.recording));
    const std::vector<FollowedChannel> channels = FollowAsked(recording, options);
    const std::vector<FoundTrack> found = FindTracks(channels, options);
    std::vector<std::string> lines;
    constexpr std::size_t mostTracks = 5;
    for (std::size_t index = 0; index < std::min(found.size(), mostTracks); ++index) {
        const std::vector<std::string> life = LifeOf(found[index], recording);
        lines.insert(lines.end(), life.begin(), life.end());
    }
    if (found.size() > mostTracks) {
        lines.push_back("and " + std::to_string(found.size() - mostTracks) + " more; name a time to see fewer");
    }
    if (found.empty()) {
        lines.emplace_back("no vehicle of that time and text was followed");
        for (const FollowedChannel& channel : channels) {
            const std::vector<std::string> scene = SceneOf(channel, options);
            lines.insert(lines.end(), scene.begin(), scene.end());
        }
    }
    Print(lines);
    return found.empty() ? exitDefect : 0;
}

int Cut(const ExplainOptions& options, Console& console) {
    const recording::Recording recording = recording::ReadRecording(ToOpenPath(options.recording));
    const std::vector<FollowedChannel> channels = FollowAsked(recording, options);
    const std::vector<FoundTrack> found = FindTracks(channels, options);
    if (found.empty()) {
        throw Failure("no vehicle of that time and text was followed; plate-host explain says what was read");
    }
    const FoundTrack& track = found.front();
    if (recording.run.recorder == recording::engineRecorder) {
        throw Failure(
            "the recording was made beside the engine and has no events to compare; "
            "plate-host replay --record makes a recording with events of it");
    }
    RequireOtherFile(options.output, options.recording);
    // A test case is passed on: it says which files were used, not where they are.
    recording::Run run = recording.run;
    for (std::string* const path : {&run.library, &run.engine, &run.video}) {
        path->erase(0, path->find_last_of("/\\") + 1);
    }
    recording::RecordingWriter writer(ToOpenPath(options.output), run);
    recording::Channel channel = track.channel->channel;
    channel.number = 0;
    writer.Write(channel);
    recording::End end;
    const std::uint64_t first = BeginningOf(track);
    const std::uint64_t last = LastFrameOf(track);
    for (std::uint64_t number = first; number <= last; ++number) {
        Frame frame = *track.channel->frames[number];
        frame.channel = 0;
        frame.number = end.frames++;
        for (recording::Event& event : frame.events) {
            event.value["channel"] = 0;
            event.crop.reset();
        }
        end.events += frame.events.size();
        writer.Write(frame);
    }
    writer.Write(end);
    if (const std::string error = writer.Error(); !error.empty()) {
        throw Failure(error);
    }
    console.Line("plate-host: wrote " + std::to_string(end.frames) + " frames with " + std::to_string(end.events) +
                 " events: " + TextsOf(track.track->readings));
    return 0;
}

}  // namespace plate_host
