#include <algorithm>
#include <boost/dll/shared_library.hpp>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "sdk/module.h"
#include "sdk/plate_events.h"
#include "tools/host/check.h"
#include "tools/host/check_clip.h"
#include "tools/host/check_result.h"
#include "tools/host/check_system.h"
#include "tools/host/failure.h"
#include "tools/host/frame_buffer.h"
#include "tools/host/host_objects.h"
#include "tools/host/plugin.h"
#include "tools/host/system.h"

namespace plate_host {
namespace {

using Clock = std::chrono::steady_clock;
namespace LoadMode = boost::dll::load_mode;

// A range that contains the width of the plate in every frame of the clip.
constexpr int minPlateWidth = 40;
constexpr int maxPlateWidth = 320;

constexpr std::chrono::milliseconds pollInterval{10};

// A server that lacks a file or a right ends within this time.
constexpr std::chrono::milliseconds shortestLife{500};

constexpr char startByHand[] =
    "start it by hand, in the folder of the host's program and as the host's user: it prints why it fails";

/// The texts of the plates that are reported. Any thread.
class ReadTexts final : public EventSink {
  public:
    void OnEvent(const EventRecord& event) override {
        const std::lock_guard lock(mutex_);
        for (const TargetRecord& target : event.targets) {
            if (const auto text = target.arguments.find(OKM8::Analytics::PlateKey::Text);
                text != target.arguments.end() && text->is_string()) {
                texts_.push_back(text->get<std::string>());
            }
        }
    }

    std::vector<std::string> Texts() const {
        const std::lock_guard lock(mutex_);
        return texts_;
    }

    bool Contains(const std::string& text) const {
        const std::lock_guard lock(mutex_);
        return std::find(texts_.begin(), texts_.end(), text) != texts_.end();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> texts_;  // guarded by mutex
};

std::string SecondsText(Clock::duration time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.2f s", std::chrono::duration<double>(time).count());
    return text;
}

std::string Joined(const std::vector<std::string>& texts) {
    std::string joined;
    for (const std::string& text : texts) {
        joined += (joined.empty() ? "\"" : ", \"") + text + "\"";
    }
    return joined;
}

// Begins on a new line, because the library may have printed one without an end.
void Send(const std::string& message) {
    if (!WriteStandard(StandardStream::Output, "\n" + message + "\n").isWritten) {
        throw Failure("cannot write the results");
    }
}

// Empty messages in between, so that the check ends when nothing reads its results any more.
bool Waits(Clock::duration timeout, const std::function<bool()>& isDone) {
    const Clock::time_point deadline = Clock::now() + timeout;
    while (!isDone()) {
        if (Clock::now() >= deadline) {
            return false;
        }
        Send("");
        std::this_thread::sleep_for(pollInterval);
    }
    return true;
}

// The reference engine's folder and file name say nothing, because another engine may have taken its place.
bool IsReferenceEngine(const std::string& path) {
    constexpr std::uintmax_t sizeLimit = 16 << 20;  // far above its size
    constexpr std::string_view nameOfItsVariable = "VEXLANE_READING_SOCKET";
    std::error_code ignored;
    if (std::filesystem::file_size(ToOpenPath(path), ignored) > sizeLimit) {
        return false;
    }
    std::ostringstream bytes;
    bytes << std::ifstream(ToOpenPath(path), std::ios::binary).rdbuf();
    return bytes.view().find(nameOfItsVariable) != std::string_view::npos;
}

/// The frames of the clip as a detector takes them, and what came of them.
class ClipRun {
  public:
    ClipRun(Detector& detector, BufferCounts& buffers, const ReadTexts& texts, Clock::duration limit)
        : detector_(detector), buffers_(buffers), texts_(texts), limit_(limit) {}

    /// Plays until the plate is read, the clip and the empty frames after it end, or the limit is reached.
    void Play() {
        constexpr std::uint64_t clipEnd = std::uint64_t{clipFrameCount} * clipFrameMs;
        // Some frames in which an engine may still report the plate, and then the time after which a detector reports
        // what it has not read for a while.
        constexpr std::uint64_t lateEnd = clipEnd + 10 * clipFrameMs;
        constexpr std::uint64_t slowMs = 500;
        constexpr std::uint64_t end = lateEnd + 4000;
        for (int number = 0; number < clipFrameCount; ++number) {
            Pass(DrawClipFrame(number));
        }
        for (std::uint64_t time = clipEnd; time < end; time += time < lateEnd ? clipFrameMs : slowMs) {
            Picture picture = MakeEmptyScene(clipWidth, clipHeight, true);
            picture.timeMs = time;
            Pass(std::move(picture));
        }
    }

    bool IsRead() const { return texts_.Contains(clipPlateText); }
    Clock::duration Time() const { return time_; }
    int FrameCount() const { return frames_; }
    bool HasReachedLimit() const { return time_ >= limit_; }
    const std::string& FrameFailure() const { return failure_; }

  private:
    void Pass(Picture picture) {
        if (IsRead() || HasReachedLimit()) {
            return;
        }
        Send("");
        const Clock::time_point start = Clock::now();
        const int32_t code = detector_.receiver->Receive(FrameBuffer::Create(std::move(picture), buffers_));
        time_ += Clock::now() - start;
        ++frames_;
        if (code != OKM8::ErrorCode::None && failure_.empty()) {
            const char* const text = detector_.errors->GetErrorMessage();
            failure_ = "code " + std::to_string(code) + ", \"" + OneLine(text == nullptr ? "" : text) + "\"";
        }
    }

    Detector& detector_;
    BufferCounts& buffers_;
    const ReadTexts& texts_;
    const Clock::duration limit_;
    Clock::duration time_{};  // without the drawing of the frames
    int frames_ = 0;
    std::string failure_;
};

/// The checks that load the engine and the library, in their order.
class Inside {
  public:
    Inside(const CheckOptions& options, Console& console)
        : files_(FindPluginFiles(options.paths)),
          stepLimit_(std::chrono::seconds(options.timeout) / 3),
          host_(console),
          peer_(0, host_, texts_, console) {}

    void Run() {
        namespace Name = CheckName;
        Step(Name::Engine, {}, [this] { return LoadEngine(); });
        Step(Name::EngineFunctions, {Name::Engine}, [this] { return FindFunctions(); });
        Step(Name::Library, {}, [this] { return LoadLibrary(); });
        Step(Name::LibraryVersion, {}, [this] { return FindVersion(); });
        Step(Name::LibraryExports, {Name::Library}, [this] { return FindExports(); });
        Step(Name::LibraryStart, {Name::LibraryExports}, [this] { return StartLibrary(); });
        Step(Name::ServerStart, {Name::LibraryStart}, [this] { return FindServer(); });
        Step(Name::PlateRange, {Name::LibraryStart}, [this] { return SetRange(); });
        Step(Name::Clip, {Name::PlateRange}, [this] { return PlayClip(); });
        Step(Name::ServerEnd, {Name::ServerStart}, [this] { return EndServer(); });
        Step(Name::LibraryEnd, {Name::LibraryStart}, [this] { return EndLibrary(); });
    }

  private:
    void Step(const char* check, const std::vector<std::string>& needs, const std::function<CheckResult()>& make) {
        Send(BeginMessage(check));
        CheckResult result;
        const auto missing = std::find_if(needs.begin(), needs.end(),
                                          [this](const std::string& need) { return failed_.count(need) != 0; });
        if (missing != needs.end()) {
            result = NotTried("the check \"" + *missing + "\" fails");
        } else {
            try {
                result = make();
            } catch (const std::exception& error) {
                result = {CheckState::Fails, error.what(), "look for the fault in the library or the engine"};
            }
        }
        if (result.state == CheckState::Fails) {
            failed_.insert(check);
        }
        Send(ToJson(check, result));
    }

    static CheckResult CheckFile(const std::string& path, const char* option) {
        if (!IsRegularFile(path)) {
            return {CheckState::Fails, "no file \"" + path + "\"",
                    std::string("put it there, or set its path with ") + option};
        }
        if (const std::vector<std::string> missing = MissingLibraries(path); !missing.empty()) {
            return {CheckState::Fails, "\"" + path + "\" needs " + Joined(missing) + ", which the system does not find",
                    "put what is missing into the same folder"};
        }
        return {CheckState::Ok, path, ""};
    }

    static CheckResult Load(boost::dll::shared_library& library, const std::string& path, LoadMode::type mode) {
        try {
            library.load(ToOpenPath(path), mode | LoadMode::load_with_altered_search_path);
        } catch (const std::system_error& error) {
            return {CheckState::Fails, "cannot load \"" + path + "\": " + OneLine(LoadErrorText(error)),
                    "put what is missing into the same folder, or use the file of a build for this system"};
        }
        return {CheckState::Ok, path, ""};
    }

    CheckResult LoadEngine() {
        CheckResult result = CheckFile(files_.engine, "--engine");
        if (result.state == CheckState::Ok) {
            result = Load(engine_, files_.engine, LoadMode::rtld_now | LoadMode::rtld_global);
        }
        if (result.state == CheckState::Ok && LoadedEngine() == nullptr) {
            return {CheckState::Fails, "the library does not find \"" + files_.engine + "\"",
                    std::string("name it ") + EngineFileName()};
        }
        return result;
    }

    CheckResult FindFunctions() {
        std::vector<std::string> missing;
        for (const char* const name : EngineFunctionNames()) {
            if (!engine_.has(name)) {
                missing.emplace_back(name);
            }
        }
        if (!missing.empty()) {
            return {CheckState::Fails, "the engine does not export " + Joined(missing),
                    "use an engine that exports them under these names"};
        }
        return {CheckState::Ok, "Recognize2 and SetPlateRange", ""};
    }

    CheckResult LoadLibrary() {
        const CheckResult file = CheckFile(files_.library, "--plugin");
        if (file.state != CheckState::Ok) {
            return file;
        }
        for (const char* const need : {CheckName::Engine, CheckName::EngineFunctions}) {
            if (failed_.count(need) != 0) {
                return NotTried(std::string("it needs the engine, and the check \"") + need + "\" fails");
            }
        }
        return Load(library_, files_.library, LoadMode::rtld_now);
    }

    CheckResult FindVersion() {
        if (!IsRegularFile(files_.library)) {
            return NotTried("there is no file");
        }
        return {CheckState::Ok, VersionOf(files_.library), ""};
    }

    CheckResult FindExports() {
        namespace Names = OKM8::ExportName;
        std::vector<std::string> missing;
        for (const char* const name : {Names::InitializeModule, Names::GetModule, Names::FinalizeModule}) {
            if (!library_.has(name)) {
                missing.emplace_back(name);
            }
        }
        if (!missing.empty()) {
            return {CheckState::Fails, "it does not export " + Joined(missing), "use a detector library"};
        }
        return {CheckState::Ok, "InitializeModule, GetModule and FinalizeModule", ""};
    }

    CheckResult StartLibrary() {
        strangers_ = RunningServers();
        plugin_.emplace(PluginPaths{files_.library, files_.engine});
        plugin_->Initialize(host_);
        detector_ = plugin_->CreateDetector(peer_);
        return {CheckState::Ok, "it has created a detector", ""};
    }

    std::vector<std::uint32_t> OwnServers() const {
        std::vector<std::uint32_t> servers = RunningServers();
        std::erase_if(servers, [this](std::uint32_t process) {
            return std::find(strangers_.begin(), strangers_.end(), process) != strangers_.end();
        });
        return servers;
    }

    CheckResult FindServer() {
        if (!strangers_.empty()) {
            return {CheckState::Warning,
                    "not started, because one is running already (" + ProcessesText(strangers_) + ")",
                    "end it, and check again"};
        }
        std::vector<std::uint32_t> servers;
        const auto hasStarted = [this, &servers] {
            servers = OwnServers();
            return !servers.empty();
        };
        if (!Waits(stepLimit_ / 3, hasStarted)) {
            return {CheckState::Fails, std::string("the library has started no ") + serverProgram, startByHand};
        }
        std::this_thread::sleep_for(shortestLife);
        if (OwnServers().empty()) {
            return {CheckState::Fails, "the library has started " + ProcessesText(servers) + ", which ended at once",
                    startByHand};
        }
        return {CheckState::Ok, "the library has started " + ProcessesText(servers), ""};
    }

    CheckResult SetRange() {
        const auto& setRange = engine_.get<bool(int, int)>(EngineFunctionNames()[rangeFunction]);
        const Clock::time_point start = Clock::now();
        const bool hasServer = !RunningServers().empty();
        const Clock::duration limit = hasServer ? stepLimit_ / 2 : Clock::duration::zero();
        if (!Waits(limit, [&setRange] { return setRange(minPlateWidth, maxPlateWidth); })) {
            const bool hasEnded = RunningServers().empty();
            return {CheckState::Fails,
                    "the engine refused the plate range for " + SecondsText(Clock::now() - start) +
                        (hasEnded ? ", and no server runs" : ", though a server runs"),
                    "start the server by hand: it must accept this engine, and run as the same user"};
        }
        return {CheckState::Ok, "accepted after " + SecondsText(Clock::now() - start), ""};
    }

    CheckResult PlayClip() {
        ClipRun run(detector_, buffers_, texts_, stepLimit_ * 2 / 3);
        run.Play();
        if (run.IsRead()) {
            return {CheckState::Ok,
                    std::string("the plate was read as \"") + clipPlateText + "\", " + SecondsText(run.Time()) +
                        " after the first frame (" + std::to_string(run.FrameCount()) + " frames)",
                    ""};
        }
        if (!run.FrameFailure().empty()) {
            return {CheckState::Fails, "a frame failed: " + run.FrameFailure(),
                    "look for the text in troubleshooting.md"};
        }
        const std::string frames = std::to_string(run.FrameCount()) + " frames in " + SecondsText(run.Time());
        const std::vector<std::string> texts = texts_.Texts();
        const std::string expected = std::string("; expected \"") + clipPlateText + "\"";
        CheckResult result{IsReferenceEngine(files_.engine) ? CheckState::Fails : CheckState::Warning, "", ""};
        if (!texts.empty()) {
            result.found = "the plate was read as " + Joined(texts) + expected + " (" + frames + ")";
            result.remedy = "compare what the engine reads in a video of yours";
        } else if (run.HasReachedLimit()) {
            result.found = "no event within the time limit (" + frames + ")" + expected;
            result.remedy = "increase --timeout: the engine is slow on this machine";
        } else {
            result.found = "no event (" + frames + ")" + expected;
            result.remedy = "see whether a video of yours gives events: plate-host play";
        }
        return result;
    }

    CheckResult EndServer() {
        const std::vector<std::uint32_t> servers = OwnServers();
        detector_.handle.reset();
        const Clock::time_point start = Clock::now();
        if (!Waits(stepLimit_ / 3, [this] { return OwnServers().empty(); })) {
            return {CheckState::Fails,
                    "still running after the detector was destroyed (" + ProcessesText(servers) + ")",
                    "end it; the account of the host must be allowed to"};
        }
        if (!strangers_.empty()) {
            return {CheckState::Ok, "the library has left " + ProcessesText(strangers_) + " alone", ""};
        }
        if (servers.empty()) {
            return {CheckState::Fails, "it ended before it was told to", startByHand};
        }
        return {CheckState::Ok, "ended " + SecondsText(Clock::now() - start) + " after the detector", ""};
    }

    CheckResult EndLibrary() {
        detector_.handle.reset();
        plugin_.reset();
        library_.unload();
        engine_.unload();
        if (buffers_.passed != buffers_.released) {
            return {CheckState::Fails,
                    "it released " + std::to_string(buffers_.released) + " of " + std::to_string(buffers_.passed) +
                        " frames",
                    "use another version of the library"};
        }
        return {CheckState::Ok, "it has released every frame and has been unloaded", ""};
    }

    const PluginFiles files_;
    const Clock::duration stepLimit_;
    std::set<std::string> failed_;
    std::vector<std::uint32_t> strangers_;  // servers that ran before the library was started
    ReadTexts texts_;
    HostObject host_;
    BufferCounts buffers_;
    DetectorPeer peer_;
    boost::dll::shared_library engine_;
    boost::dll::shared_library library_;
    std::optional<Plugin> plugin_;
    Detector detector_;  // destroyed before the library is unloaded
};

}  // namespace

int CheckInside(const CheckOptions& options, Console& console) {
    EndOnCrash();
    try {
        Inside(options, console).Run();
    } catch (const Failure&) {
        return exitFailure;  // nothing reads the results any more
    }
    return 0;
}

}  // namespace plate_host
