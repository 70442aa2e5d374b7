/// One session of the library, from loading to unloading, with permanent and temporary cameras and a server that is
/// killed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "tests/plugin/plugin.h"
#include "tests/soak/channel.h"

namespace soak {

/// The number of permanent cameras, the frames of one round for each of them, and how often in a round a temporary
/// camera is added, the server is killed and the settings change.
struct Effort {
    int cameras;
    int frames;
    int visits;
};

/// Owner thread. Every operation throws std::runtime_error if the library misbehaves.
class Session {
  public:
    /// `isVerbose` enables the library's trace lines. World and folder must outlive the session.
    Session(World& world, const plugin_test::TestFolder& folder, std::uint32_t seed, int cameras, bool isVerbose);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Plays frames on one thread per camera. Leaves empty roads, idle detectors and one server.
    void PlayRound(int frames, int visits);

    /// Destroys the detectors and unloads the library.
    void End();

  private:
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    std::unique_ptr<Channel> MakeChannel();
    void Visit();
    void KillServer();
    void RestartServer();
    void ChangeSettings();
    void CheckIdle();

    World& world_;
    std::mt19937 random_;
    std::optional<plugin_test::DebugLines> debugLines_;
    recording_host::RecordingHost host_;
    plugin_test::Plugin plugin_;
    OKM8::Analytics::IModule* module_ = nullptr;
    std::vector<std::unique_ptr<Channel>> channels_;  // each played on a separate thread
    std::unique_ptr<Channel> ownChannel_;             // played on the owner thread
};

}  // namespace soak
