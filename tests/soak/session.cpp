#include "tests/soak/session.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/soak/kept_handles.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"

namespace soak {
namespace {

void Check(bool isRight, const std::string& what) {
    if (!isRight) {
        throw std::runtime_error(what);
    }
}

// Threads that end with the round, so that the library must free what it keeps for a thread. Keeps the first failure.
class Workers {
  public:
    ~Workers() { Join(); }
    Workers() = default;
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    void Add(std::function<void()> work) {
        threads_.emplace_back([this, work = std::move(work)] {
            try {
                work();
            } catch (...) {
                const std::lock_guard lock(mutex_);
                failure_ = failure_ ? failure_ : std::current_exception();
            }
        });
    }

    void WaitUntilDone() {
        Join();
        if (failure_) {
            std::rethrow_exception(failure_);
        }
    }

  private:
    void Join() {
        for (std::thread& thread : threads_) {
            thread.join();
        }
        threads_.clear();
    }

    std::mutex mutex_;
    std::exception_ptr failure_;  // guarded by mutex while threads run
    std::vector<std::thread> threads_;
};

}  // namespace

Session::Session(World& world, const plugin_test::TestFolder& folder, std::uint32_t seed, int cameras, bool isVerbose)
    : world_(world), random_(seed), plugin_(servers::OwnFolder() / VEXLANE_SOAK_ENGINE) {
    CountKeptHandles();
    auto* const setEngineCalls = reinterpret_cast<SetEngineCallsFunction*>(plugin_.EngineFunction(setEngineCallsName));
    Check(setEngineCalls != nullptr, "the wrong engine was loaded");
    setEngineCalls(&engineCalls);
    if (isVerbose) {
        debugLines_.emplace();
    }
    host_.onCall = Events::OnCall;
    host_.isRecording = false;
    folder.SetDebugLevel(isVerbose ? "1" : "0");
    Check(plugin_.InitializeModule(host_.Object()) == 0, "the library cannot be initialised");
    module_ = plugin_.GetModule();
    for (int count = 0; count < cameras; ++count) {
        channels_.push_back(MakeChannel());
    }
    ownChannel_ = MakeChannel();
}

Session::~Session() {
    channels_.clear();
    ownChannel_.reset();
    if (module_ != nullptr) {
        plugin_.FinalizeModule();
    }
}

std::unique_ptr<Channel> Session::MakeChannel() {
    return std::make_unique<Channel>(*module_, host_.Peer(), world_, static_cast<std::uint32_t>(random_()));
}

void Session::PlayRound(int frames, int visits) {
    {
        Workers workers;
        for (const std::unique_ptr<Channel>& channel : channels_) {
            workers.Add([&channel, frames] { channel->Play(frames); });
        }
        for (int visit = 0; visit < visits; ++visit) {
            Visit();
            KillServer();
            ChangeSettings();
        }
        workers.WaitUntilDone();
    }
    for (const std::unique_ptr<Channel>& channel : channels_) {
        channel->PlayNight();
    }
    ownChannel_->PlayNight();
    RestartServer();
    CheckIdle();
}

// Creating a detector restarts the server for all of them, destroying one stops it for all.
void Session::Visit() {
    {
        const std::unique_ptr<Channel> visitor = MakeChannel();
        visitor->Play(static_cast<int>(Below(300)));
        if (Below(2) == 0) {
            visitor->PlayNight();
        }
    }
    if (Below(2) == 0) {
        RestartServer();
    }
}

void Session::KillServer() {
    RestartServer();
    const std::set<servers::ProcessId> running = servers::Running();
    if (!running.empty()) {
        const servers::ProcessId server = *running.begin();
        Check(server > 1, "not a child process");
        servers::Kill(server);
        Check(WaitUntil([server] { return servers::IsGone(server); }), "a killed server still runs");
        ++world_.counts.kills;
    }
    RestartServer();
}

// An engine without a server refuses ranges until one runs.
void Session::RestartServer() {
    const bool isBack = WaitUntil([this] {
        if (!servers::Running().empty()) {
            return true;
        }
        world_.hasLostServer = true;
        ownChannel_->Play(1);
        return false;
    });
    Check(isBack, "no server was started after a refused range");
}

void Session::ChangeSettings() {
    for (int change = 0; change < 20; ++change) {
        channels_[Below(static_cast<std::uint32_t>(channels_.size()))]->ChangeSetting(random_);
    }
    ownChannel_->Play(static_cast<int>(Below(50)));
}

void Session::CheckIdle() {
    host_.FreeUnfinished();
    const bool isIdle = std::all_of(channels_.begin(), channels_.end(),
                                    [](const auto& channel) { return channel->UnreleasedBuffers() == 0; });
    Check(isIdle && ownChannel_->UnreleasedBuffers() == 0 && world_.counts.lostBuffers == 0,
          "buffers were not released");
    Check(servers::Running().size() == 1, "several servers run");
    Check(servers::Zombies() == 0, "ended servers were not reaped");
}

void Session::End() {
    channels_.clear();
    ownChannel_.reset();
    Check(world_.counts.lostBuffers == 0, "buffers were not released");
    Check(servers::Running().empty(), "a server still runs after the last detector");
    plugin_.FinalizeModule();
    module_ = nullptr;
    plugin_.Unload();
    Check(!plugin_test::IsLoaded(plugin_test::LibraryFile()), "the library is still loaded");
    if (debugLines_) {
        Check(debugLines_->Text().find("CreatedProcess(plate-Server.exe) - ok") != std::string::npos,
              "the trace contains no server start");
    }
}

}  // namespace soak
