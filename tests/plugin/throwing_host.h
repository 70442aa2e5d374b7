/// A host whose operations throw, each on demand.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <set>
#include <stdexcept>

#include "sdk/buffer.h"
#include "sdk/contract.h"

namespace plugin_test {

/// Every operation that the library calls.
enum class HostCall {
    GetLogger,   ///< GetInterface for the log
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

inline constexpr char thrownText[] = "the host has failed";

/// What is thrown when it is no standard exception.
struct OtherException {};

/// Its objects live as long as it, buffers until their release.
class ThrowingHost {
  public:
    ThrowingHost();
    ~ThrowingHost();
    ThrowingHost(const ThrowingHost&) = delete;
    ThrowingHost& operator=(const ThrowingHost&) = delete;

    void* Object();
    OKM8::IContract* Peer();
    OKM8::IContract* FrameDone();

    /// A frame of 64 x 48 pixels.
    OKM8::MFF::IMultimediaBuffer* NewFrame(std::uint64_t timeStamp);
    /// A buffer that is no composite buffer.
    OKM8::MFF::IMultimediaBuffer* NewOtherBuffer();

    /// The calls that throw; they count and do their work before. Empty at first.
    std::set<HostCall> throwing;
    bool throwsOther = false;  ///< an OtherException in place of a std::runtime_error
    bool refusesArguments = false;

    int Count(HostCall call) const { return counts_.at(static_cast<std::size_t>(call)); }
    int BuffersMade() const { return buffersMade_; }

    /// Called from inside every call, once it has done its work and before it throws.
    std::function<void(HostCall)> onCall;

    /// Counts, and throws when it shall.
    void Meet(HostCall call);

    struct Objects;

  private:
    std::array<int, static_cast<std::size_t>(HostCall::Count)> counts_ = {};
    int buffersMade_ = 0;
    std::unique_ptr<Objects> objects_;
};

}  // namespace plugin_test
