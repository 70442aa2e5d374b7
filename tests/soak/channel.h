/// One camera: a detector, its traffic and its frames.
#pragma once

#include <atomic>
#include <cstdint>
#include <random>

#include "engine/engine_records.h"
#include "sdk/contract_names.h"
#include "sdk/detector.h"
#include "sdk/module.h"
#include "tests/soak/engine.h"
#include "tests/soak/host.h"
#include "tests/soak/road.h"

namespace soak {

/// Shared by all channels. Any thread.
struct World {
    Counts counts;
    /// The engine has lost its server: the next range of any detector is refused.
    std::atomic<bool> hasLostServer = false;
};

/// Calls for the engine, which reach the channel whose frame the calling thread handles.
extern const EngineCalls engineCalls;

/// Created and destroyed on the owner thread; played by one thread at a time.
class Channel {
  public:
    /// Module, peer and world must outlive it.
    Channel(OKM8::Analytics::IModule& module, OKM8::IContract* peer, World& world, std::uint32_t seed);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Sends that many frames, 25 for each second of their time stamps. Throws std::runtime_error if the library
    /// misbehaves.
    void Play(int frames);

    /// Empties the road for so long that every vehicle is reported, and opens it again. Throws std::runtime_error if
    /// the library keeps a buffer.
    void PlayNight();

    /// Returns the number of buffers that the library has not released.
    int UnreleasedBuffers() const { return buffers_.made - buffers_.released; }

    /// Sets a random setting. Any thread, also while frames are played.
    void ChangeSetting(std::mt19937& chance);

  private:
    friend struct EngineSide;

    struct Size {
        std::uint32_t width;
        std::uint32_t height;
    };

    template <class Interface>
    Interface* Query(const char* name);
    std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
    bool OnceIn(std::uint32_t frames) { return Below(frames) == 0; }
    void ChangeSize();
    void PlayFrame();
    void PlayGoodFrame();
    void PlayBadFrame();
    OKM8::MFF::IMultimediaBuffer* MakeBuffer(std::uint32_t byteCount, bool isComposite = true);
    std::int32_t PlaySingleFrame(OKM8::MFF::IMultimediaBuffer* buffer);
    bool SetPlateRange();
    int Recognize(const IMG& image, RPLATE* plates);

    World& world_;
    std::mt19937 random_;
    Road road_;
    Size size_{64, 48};
    int framesOfSize_ = 0;
    bool hasWrongSize_ = false;               // of an image passed to the engine
    std::uint64_t time_ = 1'700'000'000'000;  // milliseconds
    recording_host::BufferCounts buffers_;
    Events events_;
    OKM8::Analytics::IDetector* detector_;
    OKM8::Analytics::IMediaReceiver* receiver_;
    OKM8::Analytics::IMediaReceiverSingle2* singleReceiver_;
    OKM8::IAsyncAdjuster* settings_;
    OKM8::IErrorInfoProvider* errors_;
};

}  // namespace soak
