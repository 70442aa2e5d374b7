/// The library from being loaded to being unloaded, with cameras that stay, cameras that come and go, and a server
/// that is killed.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <vector>

#include "tests/plugin/plugin.h"
#include "tests/soak/channel.h"

namespace soak {

/// The cameras that stay, the frames of one round for each of them, and how often a camera comes and goes, the server
/// is killed and the settings change meanwhile.
struct Effort {
    int cameras;
    int frames;
    int visits;
};

/// Owner thread. Every operation throws std::runtime_error when the library does anything else than it should.
class Session {
  public:
    /// `isVerbose` makes the library write its trace lines. World and folder must outlive the session.
    Session(World& world, const plugin_test::TestFolder& folder, std::uint32_t seed, int cameras, bool isVerbose);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Plays frames on a thread for each camera. Ends with empty roads, idle detectors and one server.
    void PlayRound(int frames, int visits);

    /// Destroys the detectors and unloads the library.
    void End();

  private:
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    std::unique_ptr<Channel> MakeChannel();
    void Visit();
    void KillServer();
    void BringServerBack();
    void ChangeSettings();
    void CheckRest();

    World& world_;
    std::mt19937 random_;
    std::optional<plugin_test::DebugLines> debugLines_;
    recording_host::RecordingHost host_;
    plugin_test::Plugin plugin_;
    OKM8::Analytics::IModule* module_ = nullptr;
    std::vector<std::unique_ptr<Channel>> channels_;  // each played on a thread of its own
    std::unique_ptr<Channel> ownChannel_;             // played on the owner thread
};

}  // namespace soak
