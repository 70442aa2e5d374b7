/// The host's side of the contract: records every call of the library, passes each to a hook as it happens, and fails
/// on demand.
///
/// Buffers are counted: each must be released exactly once.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "sdk/buffer.h"
#include "sdk/detector.h"
#include "sdk/events.h"
#include "sdk/host.h"
#include "sdk/plate_events.h"

namespace recording_host {

/// What the library calls.
enum class Operation : std::uint8_t {
    GetOther,  ///< GetInterface for a contract that this host does not have
    WriteLog,
    SetDoubleValue,
    SetBoolValue,
    Unused,     ///< an unused operation of any object
    GetLogger,  ///< GetInterface for the log
    // A frame with a plate makes all calls from here on, except Discard.
    GetFactory,  ///< GetInterface for the target lists
    CreateTargetEnumerator,
    CreateEventRaiser,
    GetEventArgs,
    SetObjectValue,
    AddTarget,
    SetStringValue,
    SetIntValue,
    SetBinaryValue,
    Raise,
    Discard,
    QueryContract,  ///< of a buffer
    GetData,
    GetDataSize,
    GetHeight,
    GetWidth,
    GetTimeStamp,
    Release,
    OnFrameDone,
    Count
};

/// A call of the library, with its arguments.
struct HostCall {
    Operation operation;
    int owner = 0;                 ///< the number of the peer whose event it is, or of the buffer
    const char* name = nullptr;    ///< of the contract, the event, the object or the value
    const char* text = nullptr;    ///< SetStringValue's value; WriteLog's line
    std::int64_t number = 0;       ///< an integer's or boolean's value; AddTarget's argument; WriteLog's level; a time
    std::int32_t kind = 0;         ///< CreateEventRaiser's
    double real = 0.0;             ///< SetDoubleValue's value
    const void* data = nullptr;    ///< SetBinaryValue's
    std::uint32_t size = 0;        ///< SetBinaryValue's
    const void* object = nullptr;  ///< the event's detector, the attached object, the finished frame
    bool isNewest = false;         ///< the attached object is the newest target list
    bool isRefused = false;        ///< the host will return null, or 0; the hook may change that

    bool Sets(std::string_view key) const;
};

/// Receives each call after the host has recorded it and before it returns. An exception of the hook leaves the call.
/// The hook runs without a lock, on the library's thread; allocations fail in it as they do in the library.
using OnCall = std::function<void(HostCall&)>;

/// A hook that is called only for that operation.
OnCall On(Operation operation, std::function<void()> action);

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

    /// Returns the one value of that key, or null when there is none.
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

/// Where the host returns null.
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
    OKM8::IContract* Peer(int number = 0);

    // Set before frames run:

    OnCall onCall;
    Refusals refusals;

    /// The objects of an event live as long as the host, so that a second call on one is recorded instead of crashing.
    /// Otherwise nothing is recorded, and an event's objects are freed when it is raised or discarded, as a long run
    /// needs.
    bool isRecording = true;

    /// Every event whose raiser was created, in order.
    std::vector<RecordedEvent> Events() const;
    /// "LEVEL:TEXT" of each log call.
    std::vector<std::string> Log() const;
    /// The arguments of GetInterface, in order.
    std::vector<std::string> RequestedInterfaces() const;

    /// Frees target lists that were attached to no event, and events neither raised nor discarded. Returns how many.
    /// REQUIRES: nothing is recorded, and no frame runs.
    std::size_t FreeUnfinished();

    struct Objects;

  private:
    std::unique_ptr<Objects> objects_;
};

class KeptBuffers;

/// Counts buffers; must outlive them.
struct BufferCounts {
    BufferCounts();
    ~BufferCounts();

    std::atomic<int> made = 0;
    std::atomic<int> released = 0;
    OnCall onCall = nullptr;  ///< of all these buffers; for a release, after its buffer is freed
    /// Released buffers live as long as the counts, so that a second release and other calls are counted instead of
    /// reading freed memory.
    bool keepsReleased = false;
    std::atomic<int> releasedAgain = 0;
    std::atomic<int> usedAfterRelease = 0;
    std::unique_ptr<KeptBuffers> kept;
};

struct BufferOptions {
    std::uint32_t width = 64;
    std::uint32_t height = 48;
    std::vector<std::uint8_t> pixels;      ///< empty for null data
    std::uint8_t* sharedPixels = nullptr;  ///< instead of `pixels`; they outlive the buffer
    std::int64_t size = -1;                ///< -1 for that of `pixels`
    std::uint64_t timeStamp = 0;
    bool isComposite = true;
    OKM8::MFF::ICompositeBuffer* compositePart = nullptr;  ///< an object of its own; null for the buffer itself
};

/// Creates a buffer as a host does. Unless the counts keep it, its release frees it, so that the address sanitizer
/// detects every later access.
OKM8::MFF::IMultimediaBuffer* MakeBuffer(BufferCounts& counts, BufferOptions options);

/// Creates a grey, planar 4:2:0 frame of that size and time.
OKM8::MFF::IMultimediaBuffer* MakeFrame(BufferCounts& counts, std::uint32_t width, std::uint32_t height,
                                        std::uint64_t timeStamp);

/// Records the arguments of OnFrameDone.
class RecordingFrameDone final : public OKM8::MFF::IFrameDoneCallback {
  public:
    explicit RecordingFrameDone(OnCall hook = nullptr) : onCall(std::move(hook)) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(RecordingFrameDone)
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void OnFrameDone(OKM8::MFF::IMultimediaBuffer* inputData) override;

    OnCall onCall;
    std::vector<OKM8::MFF::IMultimediaBuffer*> buffers;
};

}  // namespace recording_host
