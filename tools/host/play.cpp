#include "tools/host/play.h"

#include <algorithm>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <chrono>
#include <memory>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "tools/host/channel.h"
#include "tools/host/event_printer.h"
#include "tools/host/failure.h"
#include "tools/host/files.h"
#include "tools/host/progress.h"
#include "tools/host/report_command.h"
#include "tools/host/run_recorder.h"
#include "tools/host/snapshots.h"
#include "tools/host/summary.h"
#include "tools/host/system.h"
#include "tools/host/video_reader.h"
#include "tools/report/crop.h"

namespace plate_host {
namespace {

// The longest wait between two checks whether the run must stop.
constexpr std::chrono::milliseconds waitSlice{50};

// A detector reports a track three seconds after its last reading, and an engine may report a plate for some frames
// after the last one that shows it; with a margin.
constexpr std::uint64_t drainMs = 4000;
constexpr std::uint64_t drainFrames = 10;

/// Feeds a video to channels until it ends or the run must stop.
class Feeder {
  public:
    Feeder(const PlayOptions& options, VideoReader& reader, const EventPrinter& printer,
           std::vector<std::unique_ptr<Channel>>& channels, Console& console)
        : options_(options), reader_(reader), printer_(printer), channels_(channels), progress_(console) {}

    /// Plays from `picture`, which has been read already, and waits until the detectors have handled all frames.
    void Run(Picture picture) {
        start_ = std::chrono::steady_clock::now();
        startMs_ = picture.timeMs;
        Picture last;
        do {
            if (!WaitUntilDue(picture.timeMs)) {
                break;
            }
            last = {nullptr, picture.size, picture.width, picture.height, picture.timeMs};
            if (!PushToAll(std::move(picture))) {
                break;
            }
            ++frames_;
        } while (!IsLimitReached() && reader_.Read(picture));
        if (options_.drain && last.size != 0 && !MustEndQuickly()) {
            Drain(last);
        }
        for (const std::unique_ptr<Channel>& channel : channels_) {
            channel->Close();
        }
        WaitForChannels();
        progress_.End();
    }

    double Seconds() const { return progress_.Seconds(); }
    std::uint64_t FrameCount() const { return frames_; }
    std::uint64_t DrainFrameCount() const { return drainFrames_; }
    std::uint64_t DrainEventCount() const { return drainEvents_; }

  private:
    // An interruption ends the video, and the drain still follows it; a second one ends the process.
    bool MustStop() const { return (Interruption() != 0 && !isDraining_) || MustEndQuickly() || printer_.HasEnded(); }
    bool IsLimitReached() const { return options_.frames != 0 && frames_ == options_.frames; }

    // Sends empty frames until the detectors can have no open track. `last` has the size and time of the last frame.
    void Drain(const Picture& last) {
        isDraining_ = true;
        WaitUntilHandled();
        const std::uint64_t events = printer_.EventCount();
        const std::uint64_t interval = FrameInterval(last.timeMs);
        for (std::uint64_t time = interval; time < drainMs + (drainFrames + 1) * interval; time += interval) {
            Picture empty = MakeEmptyScene(last.width, last.height, last.size > last.width * last.height);
            empty.timeMs = last.timeMs + time;
            empty.isAfterVideo = true;
            if (!PushToAll(std::move(empty))) {
                break;
            }
            ++drainFrames_;
        }
        WaitUntilHandled();
        drainEvents_ = printer_.EventCount() - events;
    }

    // The mean time between two frames, in milliseconds, within bounds that keep the number of empty frames sensible.
    std::uint64_t FrameInterval(std::uint64_t lastMs) const {
        constexpr std::uint64_t unknown = 40;
        const std::uint64_t mean = frames_ > 1 && lastMs > startMs_ ? (lastMs - startMs_) / (frames_ - 1) : unknown;
        return std::clamp<std::uint64_t>(mean, 10, 500);
    }

    // Until the channels have handled what they have been sent, or the run must stop.
    void WaitUntilHandled() {
        for (std::size_t index = 0; index < channels_.size(); ++index) {
            while (channels_[index]->FrameCount() < pushed_[index] && !MustStop()) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                ShowProgress();
            }
        }
    }

    bool WaitUntilDue(std::uint64_t timeMs) {
        if (options_.realtime && timeMs > startMs_) {
            const auto due = start_ + std::chrono::milliseconds(timeMs - startMs_);
            for (auto now = std::chrono::steady_clock::now(); now < due && !MustStop();
                 now = std::chrono::steady_clock::now()) {
                std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(due - now, waitSlice));
                ShowProgress();
            }
        }
        return !MustStop();
    }

    bool PushToAll(Picture picture) {
        for (std::size_t index = 0; index < channels_.size(); ++index) {
            const bool isLast = index + 1 == channels_.size();
            Picture own = isLast ? std::move(picture) : CopyPicture(picture);
            while (!channels_[index]->TryPush(own, waitSlice)) {
                ShowProgress();
                if (MustStop()) {
                    return false;
                }
            }
            ++pushed_[index];
        }
        ShowProgress();
        return !MustStop();
    }

    void WaitForChannels() {
        bool abandoned = false;
        for (const std::unique_ptr<Channel>& channel : channels_) {
            while (!channel->HasFinished()) {
                if (MustStop() && !abandoned) {
                    abandoned = true;
                    for (const std::unique_ptr<Channel>& other : channels_) {
                        other->Abandon();
                    }
                }
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                ShowProgress();
            }
        }
    }

    void ShowProgress() {
        ProgressFigures figures;
        for (const std::unique_ptr<Channel>& channel : channels_) {
            figures.frames += channel->FrameCount();
        }
        std::optional<std::uint64_t> total = reader_.PictureCount();
        if (options_.frames != 0) {
            total = std::min(total.value_or(options_.frames), options_.frames);
        }
        if (total && !isDraining_) {
            figures.frameTotal = *total * channels_.size();
        }
        figures.plates = printer_.PlateCount();
        figures.events = printer_.EventCount();
        progress_.Show(figures);
    }

    const PlayOptions& options_;
    VideoReader& reader_;
    const EventPrinter& printer_;
    std::vector<std::unique_ptr<Channel>>& channels_;
    Progress progress_;
    std::chrono::steady_clock::time_point start_;
    std::uint64_t startMs_ = 0;
    std::uint64_t frames_ = 0;
    std::vector<std::uint64_t> pushed_ = std::vector<std::uint64_t>(channels_.size());  // by channel
    bool isDraining_ = false;
    std::uint64_t drainFrames_ = 0;
    std::uint64_t drainEvents_ = 0;
};

// A recording is passed on: the address of a camera keeps its host, and loses the user and the password.
std::string WithoutPassword(const std::string& address) {
    const std::size_t scheme = address.find("://");
    if (scheme == std::string::npos) {
        return address;
    }
    const std::size_t begin = scheme + 3;
    const std::string authority = address.substr(begin, address.find_first_of("/?#", begin) - begin);
    const std::size_t at = authority.rfind('@');
    return at == std::string::npos ? address : std::string(address).erase(begin, at + 1);
}

recording::Run DescribeRun(const std::string& video, const Plugin& plugin) {
    recording::Run run;
    run.recorder = "plate-host " PLATE_HOST_VERSION;
    run.system = SystemName();
    run.library = plugin.LibraryPath();
    run.engine = plugin.EnginePath();
    run.video = WithoutPassword(video);
    run.startTime = boost::posix_time::to_iso_extended_string(boost::posix_time::second_clock::universal_time()) + "Z";
    return run;
}

// The file of the recording; empty for none.
std::string RecordingOf(const PlayOptions& options) {
    return options.recording.empty() && !options.report.empty() ? ToText(ToPath(options.report) / "run.vxr")
                                                                : options.recording;
}

std::optional<recording::Crop> CropOf(const EventRecord& event, const HeldFrames& frames) {
    const std::vector<SnapshotTarget> targets = SnapshotTargetsOf(event);
    if (targets.empty() || !targets.front().plate || event.timeMs < 0) {
        return std::nullopt;
    }
    const std::optional<Picture> picture = frames.Copy(event.channel, static_cast<std::uint64_t>(event.timeMs));
    if (!picture) {
        return std::nullopt;
    }
    const auto& plate = *targets.front().plate;
    return report::MakeCrop({picture->bytes.get(), picture->size, picture->width, picture->height},
                            {plate.left, plate.top, plate.right, plate.bottom});
}

// Creates, runs and destroys the detectors, and collects their results.
RunOutcome PlayThroughDetectors(const PlayOptions& options, VideoReader& reader, Picture first, Console& console) {
    RunOutcome run;
    EventPrinter printer([](std::string_view text) { return WriteStandard(StandardStream::Output, text); }, console);
    BufferCounts buffers;
    HeldFrames heldFrames;
    std::optional<SnapshotSink> snapshots;
    if (!options.snapshots.empty()) {
        snapshots.emplace(options.snapshots, printer, heldFrames, console);
    }
    // Without the recording engine the calls of the engine cannot be seen, and there is no ledger.
    const std::string recordingFile = RecordingOf(options);
    const bool isRecording = !recordingFile.empty();
    const bool isFollowed = isRecording || Plugin::HasRecordingEngine();
    const bool needsFrames = snapshots || !options.report.empty();
    RunRecorder recorder(
        snapshots ? static_cast<EventSink&>(*snapshots) : printer,
        options.report.empty() ? RunRecorder::CropMaker()
                               : [&](const EventRecord& event) { return CropOf(event, heldFrames); });
    HostObject host(console);
    {
        Plugin plugin(options.paths, isFollowed ? &recorder : nullptr);
        if (plugin.IsReferenceEngine()) {
            console.Line("plate-host: no --engine: using the reference engine \"" + plugin.EnginePath() + "\"");
        }
        plugin.Initialize(host);
        if (isRecording) {
            recorder.WriteTo(std::make_unique<recording::RecordingWriter>(ToOpenPath(recordingFile),
                                                                          DescribeRun(options.video, plugin)));
        }
        std::vector<std::unique_ptr<Channel>> channels;
        for (int number = 0; number < options.channels; ++number) {
            channels.push_back(std::make_unique<Channel>(number, plugin, host, recorder, console, buffers,
                                                         needsFrames ? &heldFrames : nullptr, options));
        }
        for (const std::unique_ptr<Channel>& channel : channels) {
            channel->Start();
        }
        Feeder feeder(options, reader, printer, channels, console);
        feeder.Run(std::move(first));
        run.seconds = feeder.Seconds();
        run.framesRead = feeder.FrameCount();
        run.framesAfterVideo = feeder.DrainFrameCount();
        run.eventsAfterVideo = feeder.DrainEventCount();
        for (const std::unique_ptr<Channel>& channel : channels) {
            channel->Finish();
            run.Add(channel->Outcome(), channel->Raisers());
        }
        recorder.End({run.framesHandled, printer.EventCount(), run.seconds});
    }
    if (isFollowed) {
        run.ledger = recorder.Counts();
    }
    run.callsOutsideFrames = recorder.CallsOutsideFrames();
    run.recordingError = recorder.WriteError().empty() ? reader.KeepError() : recorder.WriteError();
    run.channels = options.channels;
    run.isSingle = options.singleArea.has_value();
    run.events = printer.EventCount();
    run.plates = printer.PlateCount();
    run.outputError = printer.Error();
    if (snapshots) {
        run.snapshots = snapshots->Counts();
    }
    run.buffersPassed = buffers.passed.load();
    run.buffersReleased = buffers.released.load();
    run.unattachedTargetLists = host.TargetLists().UnattachedListCount();
    run.videoDamage = reader.Damage();
    run.gaps = reader.Gaps();
    return run;
}

}  // namespace

int Play(const PlayOptions& options, Console& console) {
    if (!options.report.empty()) {
        CreateFolder(options.report, "report");
    }
    const std::string recordingFile = RecordingOf(options);
    const std::string keptFile =
        options.keepsFrames ? ToText(ToPath(recordingFile).replace_extension(".mkv")) : std::string();
    RequireOtherFile(recordingFile, options.video);
    RequireOtherFile(keptFile, options.video);
    RequireOtherFile(keptFile, recordingFile);
    if (!options.truth.empty()) {
        ReadTruthOf(options.video, options.truth);  // a mistake in it shows before the video is played
    }
    const std::unique_ptr<VideoReader> reader = OpenVideo(
        options.video,
        {options.reconnect, [&console](const std::string& line) { console.Line("plate-host: " + line); }}, keptFile);
    Picture first;
    const bool hasPicture = reader->Read(first);
    if (Interruption() != 0) {
        return 128 + Interruption();
    }
    if (!hasPicture) {
        const std::string damage = reader->Damage();
        throw Failure("\"" + options.video + "\" contains no frame" + (damage.empty() ? "" : ": " + OneLine(damage)));
    }
    const RunOutcome run = PlayThroughDetectors(options, *reader, std::move(first), console);
    for (const std::string& line : SummaryLines(run)) {
        console.Line(line);
    }
    if (options.printsSummary) {
        WriteStandard(StandardStream::Output, SummaryJson(run));
    }
    const std::vector<std::string> defects = Defects(run);
    for (const std::string& defect : defects) {
        console.Line("plate-host: error: " + defect);
    }
    if (!options.report.empty()) {
        Report({recordingFile, options.truth, options.report}, console);
    }
    if (!defects.empty()) {
        return exitDefect;
    }
    return Interruption() == 0 ? 0 : 128 + Interruption();
}

}  // namespace plate_host
