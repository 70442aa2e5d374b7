#include "tools/host/replay.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/host/channel.h"
#include "tools/host/failure.h"
#include "tools/host/files.h"
#include "tools/host/progress.h"
#include "tools/host/run_recorder.h"
#include "tools/host/system.h"
#include "tools/recording/recording.h"

namespace plate_host {
namespace {

using recording::Frame;
using recording::Json;

constexpr std::chrono::milliseconds waitSlice{50};

std::string Dump(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string RegionText(const std::optional<tagRECT>& region) {
    if (!region) {
        return "none";
    }
    return std::to_string(region->left) + "," + std::to_string(region->top) + "," + std::to_string(region->right) +
           "," + std::to_string(region->bottom);
}

std::string RangesText(const std::vector<recording::RangeCall>& ranges) {
    std::string text;
    for (const recording::RangeCall& range : ranges) {
        text += text.empty() ? "" : " ";
        text += std::to_string(range.minimumWidth) + "-" + std::to_string(range.maximumWidth);
    }
    return text.empty() ? "none" : text;
}

/// What the library did now, where it did something else when the recording was made.
struct Difference {
    int channel;
    std::uint64_t frame;
    std::uint64_t timeMs;
    std::string key;
    std::string recorded;
    std::string now;
};

/// Compares two handlings of a frame.
class Comparison {
  public:
    Comparison(const Frame& recorded, const Frame& now) : recorded_(recorded), now_(now) {}

    std::vector<Difference> Differences() && {
        Compare("error", Refusal(recorded_), Refusal(now_));
        Compare("plate range", RangesText(recorded_.ranges), RangesText(now_.ranges));
        Compare("engine calls", std::to_string(recorded_.engineCalls.size()), std::to_string(now_.engineCalls.size()));
        for (std::size_t index = 0; index < std::min(recorded_.engineCalls.size(), now_.engineCalls.size()); ++index) {
            const recording::EngineCall& before = recorded_.engineCalls[index];
            const recording::EngineCall& after = now_.engineCalls[index];
            Compare("search region", RegionText(before.region), RegionText(after.region));
            Compare("image", std::to_string(before.width) + "x" + std::to_string(before.height),
                    std::to_string(after.width) + "x" + std::to_string(after.height));
        }
        CompareEvents();
        Compare("failed events", Dump(recorded_.failedEvents), Dump(now_.failedEvents));
        return std::move(differences_);
    }

  private:
    static std::string Refusal(const Frame& frame) {
        return frame.code == 0 ? "none" : std::to_string(frame.code) + " " + frame.error;
    }

    void Compare(const std::string& key, const std::string& recorded, const std::string& now) {
        if (recorded != now) {
            differences_.push_back({recorded_.channel, recorded_.number, recorded_.timeMs, key, recorded, now});
        }
    }

    void CompareEvents() {
        const std::size_t count = std::max(recorded_.events.size(), now_.events.size());
        for (std::size_t index = 0; index < count; ++index) {
            if (index >= now_.events.size()) {
                Compare("event", Dump(recorded_.events[index].value), "none");
            } else if (index >= recorded_.events.size()) {
                Compare("event", "none", Dump(now_.events[index].value));
            } else {
                CompareEvent(recorded_.events[index].value, now_.events[index].value);
            }
        }
    }

    // Key by key, so that the table shows what is different; the order of the keys counts, too.
    void CompareEvent(const Json& recorded, const Json& now) {
        const std::size_t before = differences_.size();
        CompareObject("", recorded, now);
        if (differences_.size() == before) {
            Compare("event", Dump(WithoutChannel(recorded)), Dump(WithoutChannel(now)));
        }
    }

    void CompareObject(const std::string& prefix, const Json& recorded, const Json& now) {
        for (const auto& [key, value] : recorded.items()) {
            if (prefix.empty() && key == "channel") {
                continue;
            }
            const auto other = now.find(key);
            if (other != now.end() && value.is_object() && other->is_object()) {
                CompareObject(prefix + key + ".", value, *other);
            } else {
                Compare(prefix + key, Dump(value), other == now.end() ? "none" : Dump(*other));
            }
        }
        for (const auto& [key, value] : now.items()) {
            if (!recorded.contains(key)) {
                Compare(prefix + key, "none", Dump(value));
            }
        }
    }

    // A copy of a channel has a number of its own.
    static Json WithoutChannel(Json event) {
        event.erase("channel");
        return event;
    }

    const Frame& recorded_;
    const Frame& now_;
    std::vector<Difference> differences_;
};

/// The frames of each channel of a recording, and the recorded channel of each channel of the replay.
struct Script {
    std::vector<recording::Channel> channels;
    std::vector<std::vector<const Frame*>> frames;  // by channel, then by number

    const Frame& At(int replayChannel, std::uint64_t number) const {
        return *frames[static_cast<std::size_t>(replayChannel) % channels.size()].at(number);
    }
};

Script ScriptOf(const recording::Recording& recording) {
    Script script;
    std::map<int, std::size_t> indices;
    const auto indexOf = [&](int channel) {
        const auto [place, isNew] = indices.emplace(channel, script.channels.size());
        if (isNew) {
            script.channels.push_back({channel, {}, {}});
            script.frames.emplace_back();
        }
        return place->second;
    };
    for (const recording::Channel& channel : recording.channels) {
        script.channels[indexOf(channel.number)] = channel;
    }
    for (const Frame& frame : recording.frames) {
        std::vector<const Frame*>& frames = script.frames[indexOf(frame.channel)];
        if (frame.number != frames.size()) {
            throw Failure("frame " + std::to_string(frames.size()) + " of channel " + std::to_string(frame.channel) +
                          " is missing in the recording");
        }
        frames.push_back(&frame);
    }
    return script;
}

/// Takes the engine's place: returns what was recorded, and compares what the library makes of it.
class ReplayRecorder final : public RunRecorder {
  public:
    ReplayRecorder(const Script& script, EventSink& next) : RunRecorder(next, {}), script_(script) {}

    void Finish(const Frame& frame) override {
        const Frame& recorded = script_.At(frame.channel, frame.number);
        std::vector<Difference> found = Comparison(recorded, frame).Differences();
        RunRecorder::Finish(frame);
        const std::lock_guard lock(mutex_);
        differences_.insert(differences_.end(), std::make_move_iterator(found.begin()),
                            std::make_move_iterator(found.end()));
    }

    /// REQUIRES: no frame is being handled.
    std::vector<Difference> Differences() && {
        std::stable_sort(differences_.begin(), differences_.end(), [](const Difference& one, const Difference& other) {
            return std::pair(one.channel, one.frame) < std::pair(other.channel, other.frame);
        });
        return std::move(differences_);
    }

  protected:
    int CallRecognise(const EngineFunctions&, const Frame* now, IMG*, tagRECT*, RPLATE* plates, int) override {
        if (now == nullptr) {
            return 0;
        }
        const Frame& recorded = script_.At(now->channel, now->number);
        const std::size_t index = now->engineCalls.size() - 1;  // the last one is this call
        if (index >= recorded.engineCalls.size()) {
            return 0;
        }
        const recording::EngineCall& call = recorded.engineCalls[index];
        if (call.hasThrown) {
            throw std::runtime_error("the engine threw an exception when this was recorded");
        }
        std::copy(call.plates.begin(), call.plates.end(), plates);
        return call.count;
    }

    bool CallSetRange(const EngineFunctions&, const Frame* now, int, int) override {
        if (now == nullptr) {
            return true;
        }
        const Frame& recorded = script_.At(now->channel, now->number);
        const std::size_t index = now->ranges.size();
        return index >= recorded.ranges.size() || recorded.ranges[index].isAccepted;
    }

  private:
    const Script& script_;
    std::mutex mutex_;
    std::vector<Difference> differences_;  // guarded by mutex
};

/// Prints the events, or only counts them.
class ReplayEvents final : public EventSink {
  public:
    explicit ReplayEvents(bool prints) : prints_(prints) {}
    void OnEvent(const EventRecord& event) override {
        const std::lock_guard lock(mutex_);
        ++count_;
        if (prints_) {
            WriteStandard(StandardStream::Output, ToJsonLine(event));
        }
    }
    std::uint64_t Count() const { return count_; }

  private:
    const bool prints_;
    std::mutex mutex_;
    std::uint64_t count_ = 0;  // guarded by mutex
};

// A frame of the recorded layout. What it shows has no effect, because the engine's results are recorded. Beside the
// engine the image after the conversion is recorded: a frame of only luminance gives one of that size.
Picture PictureOf(const Frame& frame, bool isBesideEngine) {
    Picture picture;
    picture.width = frame.width;
    picture.height = frame.height;
    picture.timeMs = frame.timeMs;
    picture.isAfterVideo = frame.isAfterVideo;
    picture.size = isBesideEngine ? frame.width * frame.height : frame.size;
    picture.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(picture.size);
    std::memset(picture.bytes.get(), 128, picture.size);
    return picture;
}

struct Round {
    std::vector<Difference> differences;
    std::uint64_t frames = 0;
    std::uint64_t events = 0;
    std::uint64_t callsOutsideFrames = 0;
    double seconds = 0;
};

Round PlayOnce(const ReplayOptions& options, const recording::Recording& recording, const Script& script,
               Console& console) {
    Round round;
    ReplayEvents events(options.printsEvents);
    ReplayRecorder recorder(script, events);
    BufferCounts buffers;
    HostObject host(console);
    PluginPaths paths = options.paths;
    paths.hasNoEngine = true;
    Plugin plugin(paths, &recorder);
    plugin.Initialize(host);
    if (!options.output.empty()) {
        recording::Run run = recording.run;
        run.recorder = "plate-host " PLATE_HOST_VERSION;
        run.system = SystemName();
        run.library = plugin.LibraryPath();
        recorder.WriteTo(std::make_unique<recording::RecordingWriter>(ToOpenPath(options.output), run));
    }
    std::vector<std::unique_ptr<Channel>> channels;
    std::vector<PlayOptions> settings(script.channels.size());
    for (std::size_t index = 0; index < script.channels.size(); ++index) {
        for (const auto& [key, text] : script.channels[index].settings) {
            settings[index].settings.push_back({key, text});
        }
        settings[index].settings.insert(settings[index].settings.end(), options.settings.begin(),
                                        options.settings.end());
        if (const auto& area = script.channels[index].singleArea) {
            settings[index].singleArea = {(*area)[0], (*area)[1], (*area)[2], (*area)[3]};
        }
    }
    const int channelCount = options.copies * static_cast<int>(script.channels.size());
    for (int number = 0; number < channelCount; ++number) {
        channels.push_back(std::make_unique<Channel>(number, plugin, host, recorder, console, buffers, nullptr,
                                                     settings[static_cast<std::size_t>(number) % settings.size()]));
    }
    const auto start = std::chrono::steady_clock::now();
    for (const auto& channel : channels) {
        channel->Start();
    }
    std::map<int, std::size_t> indices;
    for (std::size_t index = 0; index < script.channels.size(); ++index) {
        indices[script.channels[index].number] = index;
    }
    for (const Frame& frame : recording.frames) {
        for (std::size_t number = indices[frame.channel]; number < channels.size(); number += script.channels.size()) {
            Picture picture = PictureOf(frame, recording.run.recorder == recording::engineRecorder);
            while (Interruption() == 0 && !channels[number]->TryPush(picture, waitSlice)) {
            }
        }
    }
    for (const auto& channel : channels) {
        Interruption() == 0 ? channel->Close() : channel->Abandon();
    }
    for (const auto& channel : channels) {
        channel->Finish();
        round.frames += channel->Outcome().frames;
    }
    round.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    round.events = events.Count();
    round.callsOutsideFrames = recorder.CallsOutsideFrames();
    recorder.End({round.frames, round.events, round.seconds});
    if (const std::string error = recorder.WriteError(); !error.empty()) {
        throw Failure(error);
    }
    round.differences = std::move(recorder).Differences();
    return round;
}

std::string Cell(const std::string& text) {
    constexpr std::size_t widest = 60;
    const std::string line = OneLine(text);
    std::size_t end = widest - 3;
    while (line.size() > widest && (static_cast<unsigned char>(line[end]) & 0xC0U) == 0x80U) {
        --end;  // not inside a character of several bytes
    }
    return line.size() <= widest ? line : line.substr(0, end) + "...";
}

void PrintDifferences(const std::vector<Difference>& differences, bool asJson) {
    constexpr std::size_t mostRows = 100;
    std::string text;
    if (!asJson) {
        text = "    time  channel  frame  key                   recorded -> now\n";
    }
    for (std::size_t index = 0; index < differences.size() && (asJson || index < mostRows); ++index) {
        const Difference& difference = differences[index];
        if (asJson) {
            text += Dump({{"difference",
                           {{"time", difference.timeMs},
                            {"channel", difference.channel},
                            {"frame", difference.frame},
                            {"key", difference.key},
                            {"recorded", difference.recorded},
                            {"now", difference.now}}}}) +
                    "\n";
            continue;
        }
        std::array<char, 128> start{};
        std::snprintf(start.data(), start.size(), "%8.2f  %7d  %5llu  %-20s  ",
                      static_cast<double>(difference.timeMs) / 1000, difference.channel,
                      static_cast<unsigned long long>(difference.frame), difference.key.c_str());
        text += start.data() + Cell(difference.recorded) + " -> " + Cell(difference.now) + "\n";
    }
    if (!asJson && differences.size() > mostRows) {
        text += "and " + std::to_string(differences.size() - mostRows) + " more; --json prints all\n";
    }
    WriteStandard(StandardStream::Output, text);
}

void PrintResult(const Round& sum, int times, bool isSame) {
    WriteStandard(StandardStream::Output, Dump({{"replay",
                                                 {{"same", isSame},
                                                  {"times", times},
                                                  {"frames", sum.frames},
                                                  {"events", sum.events},
                                                  {"seconds", sum.seconds}}}}) +
                                              "\n");
}

// Of a recording without events: what keeps the replay from having the host's events. Returns false if frames are
// refused.
bool ReportOtherQuestions(const std::vector<Difference>& differences, Console& console) {
    const auto find = [&](const auto& isWanted) {
        return std::find_if(differences.begin(), differences.end(), isWanted);
    };
    const auto refused = find([](const Difference& difference) { return difference.key == "error"; });
    if (refused != differences.end()) {
        console.Line("plate-host: error: the library refuses frame " + std::to_string(refused->frame) + " of channel " +
                     std::to_string(refused->channel) + ": " + refused->now);
        return false;
    }
    const auto first = find([](const Difference& difference) {
        return difference.key == "plate range" || difference.key == "search region";
    });
    if (first != differences.end()) {
        console.Line("plate-host: the engine is asked for another " + first->key + " than in the host, " + first->now +
                     " instead of " + first->recorded + ": set what the host sets with --set");
    }
    return true;
}

}  // namespace

int Replay(const ReplayOptions& options, Console& console) {
    const recording::Recording recording = recording::ReadRecording(ToOpenPath(options.recording));
    if (recording.frames.empty()) {
        throw Failure("the recording " + options.recording + " has no frames");
    }
    const Script script = ScriptOf(recording);
    RequireOtherFile(options.output, options.recording);
    const bool hasEvents = recording.run.recorder != recording::engineRecorder;
    if (!recording.end && hasEvents) {
        console.Line("plate-host: the recording was cut off after frame " +
                     std::to_string(recording.frames.back().number) + "; what was written before is replayed");
    }
    if (!hasEvents) {
        console.Line("plate-host: the recording was made beside the engine: it has no settings and no events, so the " +
                     std::string("events are printed and not compared"));
    }
    Round sum;
    for (int time = 0; time < options.times; ++time) {
        ReplayOptions own = options;
        own.printsEvents = time == 0 && (options.printsEvents || !hasEvents);
        if (time != 0) {
            own.output.clear();
        }
        Round round = PlayOnce(own, recording, script, console);
        if (Interruption() != 0) {
            return 128 + Interruption();
        }
        sum.frames += round.frames;
        sum.events += round.events;
        sum.seconds += round.seconds;
        if (round.callsOutsideFrames != 0) {
            console.Line("plate-host: error: the library called the engine " +
                         std::to_string(round.callsOutsideFrames) + " times on threads that passed no frame");
            return exitDefect;
        }
        if (!hasEvents) {
            if (!ReportOtherQuestions(round.differences, console)) {
                return exitDefect;
            }
        } else if (!round.differences.empty()) {
            PrintDifferences(round.differences, options.json);
            if (options.json) {
                PrintResult(sum, time + 1, false);
            }
            console.Line("plate-host: " + std::to_string(round.differences.size()) + " differences" +
                         (options.times > 1 ? " in replay " + std::to_string(time + 1) : ""));
            return exitDefect;
        }
    }
    const std::string result = std::to_string(sum.frames) + " frames, " + std::to_string(sum.events) + " events";
    if (options.json) {
        PrintResult(sum, options.times, hasEvents);
    }
    console.Line("plate-host: replayed " + result + (hasEvents ? ": the same as recorded" : "") + ", " +
                 FramesPerSecond(sum.frames, sum.seconds) + " frames a second");
    return 0;
}

}  // namespace plate_host
