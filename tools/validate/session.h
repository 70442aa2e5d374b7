/// What a case works with: the library, a host that records every call and fails on demand, frames and an engine's
/// script.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "sdk/module.h"
#include "tools/validate/library.h"
#include "tools/validate/recording_host.h"

namespace validate {

/// The interfaces of one detector.
struct Detector {
    OKM8::Analytics::IDetector* object = nullptr;
    OKM8::Analytics::IMediaReceiver* receiver = nullptr;
    OKM8::Analytics::IMediaReceiverSingle2* single = nullptr;
    OKM8::IAsyncAdjuster* settings = nullptr;
    OKM8::IErrorInfoProvider* errors = nullptr;
    OKM8::Analytics::IMediaReceiverController* controller = nullptr;
};

/// A plate that the engine reports.
struct ScriptedPlate {
    std::string text;
    int x = 0;
    int y = 0;
    int width = 120;
    int height = 30;
    int confidence = 540;  ///< sum over the characters
};

using ScriptedFrame = std::vector<ScriptedPlate>;

/// The engine's script. `settings` are further members of it: "\"repeat\":true,".
std::string ScriptOf(const std::vector<ScriptedFrame>& frames, const std::string& settings = {});

/// Another vehicle in every frame of 64 x 48 pixels. More than 16 of them are different vehicles only if their frames
/// are more than three seconds apart.
std::string ScriptOfVehicles(int frames, const std::string& settings = {});

/// One per process. Used on one thread, except for frames and the host's objects.
class Session {
  public:
    Session(std::filesystem::path engineFile, std::filesystem::path libraryFile, const std::filesystem::path& folder);
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Destroys the detectors, unloads the library, and checks what holds for every case: each buffer was released
    /// once and not used afterwards, each raiser was raised or discarded once, and nothing unused was called.
    void End();

    // Each step does those before it if they have not been done.
    Library& Loaded();
    OKM8::Analytics::IModule& Module();
    Detector CreateDetector(int peer = 0);
    /// A detector that reports every plate in its frame.
    Detector CreateReportingDetector();

    void Destroy(const Detector& detector);
    void DestroyAll();
    void Finalize();
    void Unload();

    const std::filesystem::path& LibraryFile() const { return libraryFile_; }
    /// What the engine was called with.
    std::vector<nlohmann::json> Journal() const;

    // Frames are of 64 x 48 pixels in 4:2:0 unless a size is given. Each is one period after the one before.
    OKM8::MFF::IMultimediaBuffer* Frame(std::uint32_t width = 64, std::uint32_t height = 48);
    OKM8::MFF::IMultimediaBuffer* FrameOf(recording_host::BufferOptions options);
    /// Passes a frame, with the frame-done callback, and returns the result.
    std::int32_t Receive(const Detector& detector, OKM8::MFF::IMultimediaBuffer* buffer);
    std::int32_t Receive(const Detector& detector) { return Receive(detector, Frame()); }

    /// Checks result, error code and text of a frame call; a text means code 1.
    static void ExpectOutcome(const std::string& what, const Detector& detector, std::int32_t result,
                              const std::string& error);

    int Count(recording_host::Operation operation) const;

    CaseFolder folder;
    recording_host::RecordingHost host;
    recording_host::BufferCounts buffers;
    recording_host::RecordingFrameDone frameDone;
    recording_host::OnCall onCall;           ///< sees every call of the library after it has been counted
    std::atomic<std::uint64_t> time = 1000;  ///< of the last frame, in milliseconds
    std::uint64_t period = 40;               ///< in milliseconds
    bool loses = false;  ///< the case ends a detector without destroying it, so its buffers stay unreleased

  private:
    const std::filesystem::path engineFile_;
    const std::filesystem::path libraryFile_;
    std::array<std::atomic<int>, static_cast<std::size_t>(recording_host::Operation::Count)> counts_{};
    std::unique_ptr<Library> library_;
    OKM8::Analytics::IModule* module_ = nullptr;
    std::vector<OKM8::Analytics::IDetector*> detectors_;
};

/// Runs functions at the same time and waits for them. Throws the first exception of one of them.
void RunTogether(const std::vector<std::function<void()>>& functions);

/// Waits at most five seconds for a condition, and returns whether it holds.
bool WaitUntil(const std::function<bool()>& condition);

}  // namespace validate
