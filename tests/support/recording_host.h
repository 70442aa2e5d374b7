/// The host's side of the contract: records everything that the library does with it, and fails on demand.
///
/// Its objects live as long as it, so that a second call on one is seen, not a crash. Buffers are freed by their
/// release and counted: each must come back exactly once.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sdk/buffer.h"
#include "sdk/detector.h"
#include "sdk/events.h"
#include "sdk/host.h"
#include "sdk/plate_events.h"
#include "tests/support/allocation_count.h"

namespace recording_host {

/// A value that was set on a target, in the order of setting.
struct SetValue {
    std::string key;
    std::string text;                 ///< of a string
    std::int64_t number = 0;          ///< of an integer or a boolean
    double real = 0.0;                ///< of a double
    std::vector<std::uint8_t> bytes;  ///< of raw bytes
    char setter = ' ';                ///< 's', 'd', 'i', 'b' or 'x' for raw bytes
};

struct RecordedTarget {
    std::int32_t reserved = -1;  ///< AddTarget's argument
    std::vector<SetValue> values;
    std::vector<OKM8::Analytics::TrackPoint> track;  ///< copied while "all_tracks" was being set

    /// The one value of that key; null when there is none.
    const SetValue* Find(const std::string& key) const;
};

struct RecordedEvent {
    OKM8::Analytics::IDetector* detector = nullptr;
    std::string name;
    std::int64_t timeMs = 0;
    std::int32_t kind = 0;
    std::int64_t targetsTimeMs = 0;       ///< the time that the target list was made for
    std::vector<std::string> objectKeys;  ///< names of the attached objects, in order
    std::map<std::string, OKM8::IContract*> objects;
    std::vector<RecordedTarget> targets;
    int raised = 0;
    int discarded = 0;
};

/// Where the host answers null.
struct Refusals {
    bool logger = false;
    bool factory = false;
    bool enumerator = false;
    bool raiser = false;
    bool arguments = false;
    bool target = false;
    bool binarySetter = false;  ///< targets have no IBinaryAdjuster base
};

class RecordingHost {
  public:
    RecordingHost();
    ~RecordingHost();
    RecordingHost(const RecordingHost&) = delete;
    RecordingHost& operator=(const RecordingHost&) = delete;

    /// The argument of InitializeModule, and a peer for CreateDetector.
    void* Object();
    OKM8::IContract* Peer();

    Refusals refusals;

    /// Called from inside Raise. Set before frames run.
    std::function<void(const RecordedEvent&)> onRaise;

    /// Called from inside every setter of a target, before the value is recorded; what it throws is the setter's. Set
    /// before frames run.
    std::function<void(const std::string& key)> onSetValue;

    /// Called from inside every log call. Set before frames run.
    std::function<void()> onLog;

    /// Every event whose raiser was asked for, in order.
    std::vector<RecordedEvent> Events() const;
    /// "LEVEL:TEXT" of each log call.
    std::vector<std::string> Log() const;
    /// The names that GetInterface was asked for.
    std::vector<std::string> AskedInterfaces() const;

    struct Objects;

  private:
    std::unique_ptr<Objects> objects_;
};

/// Counts buffers; must outlive them.
struct BufferCounts {
    std::atomic<int> made = 0;
    std::atomic<int> released = 0;
};

struct BufferOptions {
    std::uint32_t width = 64;
    std::uint32_t height = 48;
    std::vector<std::uint8_t> pixels;  ///< empty for null data
    std::int64_t size = -1;            ///< -1 for that of `pixels`
    std::uint64_t timeStamp = 0;
    bool isComposite = true;
    std::function<void()> onRelease = nullptr;  ///< called from inside Release
};

/// A buffer as a host makes it. It is freed by its release, so that the address sanitizer sees every later touch.
OKM8::MFF::IMultimediaBuffer* MakeBuffer(BufferCounts& counts, const BufferOptions& options);

/// A grey, planar 4:2:0 frame of that size and time.
OKM8::MFF::IMultimediaBuffer* MakeFrame(BufferCounts& counts, std::uint32_t width, std::uint32_t height,
                                        std::uint64_t timeStamp);

/// Counts OnFrameDone.
class RecordingFrameDone final : public OKM8::MFF::IFrameDoneCallback {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(RecordingFrameDone)
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void OnFrameDone(OKM8::MFF::IMultimediaBuffer* inputData) override {
        const allocation_count::WithoutFailure own;
        buffers.push_back(inputData);
    }

    std::vector<OKM8::MFF::IMultimediaBuffer*> buffers;
};

}  // namespace recording_host
