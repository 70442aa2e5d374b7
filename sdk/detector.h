/// The interfaces of a detector: settings, error state, frames. Library side.
#pragma once

#include "sdk/buffer.h"
#include "sdk/contract.h"

namespace OKM8 {

/// The area of a single frame: left, top, width and height in percent of the frame. It is empty if the width or the
/// height is not positive.
struct FrameArea {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
};

static_assert(sizeof(FrameArea) == 16, "four 32-bit numbers");
static_assert(offsetof(FrameArea, width) == 8, "x, y, width, height");

/// The error codes of detector calls.
namespace ErrorCode {
constexpr int32_t None = 0;
constexpr int32_t Failed = 1;             ///< a frame, an event or the settings failed
constexpr int32_t RefusedSetting = 2816;  ///< null or unknown name, or wrong type; the error text is the name
}  // namespace ErrorCode

/// Named settings of a detector; sdk/setting_keys.h has the names, types and units.
struct IAsyncAdjuster : IContract {
    /// Set one value each, with any value of the type; no setting is a double. It takes effect with ApplySettings or,
    /// for most settings, already with the next frame.
    /// Returns: 0; 2816 for a null or unknown name, a value of the wrong type, and on allocation failure, and then
    /// nothing changes.
    /// Ownership: name and text stay the caller's, and are copied; a null text is an empty one.
    /// Thread: any thread; does not wait for a frame.
    virtual int32_t SetStringValue(const char* name, const char* value) = 0;
    virtual int32_t SetDoubleValue(const char* name, double value) = 0;
    virtual int32_t SetIntValue(const char* name, int32_t value) = 0;
    virtual int32_t SetBoolValue(const char* name, bool value) = 0;
    /// Puts the values into effect.
    /// Returns: nothing; a failure is in the error state. Throws only an exception that is not derived from
    /// std::exception.
    /// Ownership: nothing is passed.
    /// Thread: any thread; waits for the end of a frame. From inside an operation of the host: only from OnFrameDone.
    virtual void ApplySettings() = 0;
};

/// The error state: the result of the last call that sets it.
struct IErrorInfoProvider : IContract {
    /// Returns: an ErrorCode: 0, 1 or 2816; cannot fail.
    /// Ownership: nothing is passed.
    /// Thread: any thread; does not wait for a frame.
    virtual int32_t GetErrorCode() = 0;
    /// Returns: the error's text, never null; empty if there is no error.
    /// Ownership: the text belongs to the detector and is valid until the next operation on it, by any thread.
    /// Thread: any thread; does not wait for a frame.
    virtual const char* GetErrorMessage() = 0;
};

namespace Analytics {

/// A detector of one channel. QueryContract gives its interfaces; Destroy deletes it.
struct IDetector : IDestroyable {};

/// Receives the frames of a stream.
struct IMediaReceiver : IContract {
    /// Handles one frame: finds and tracks its plates and raises the events that are due.
    /// Returns: 0; 1 on failure, with the text in the error state.
    /// Ownership: the detector owns the buffer from the start of the call, also on failure, and releases it once.
    /// Thread: any thread; frames of one detector wait for one another. From inside an operation of the host: only from
    /// OnFrameDone.
    virtual int32_t Receive(MFF::IMultimediaBuffer* inputData) = 0;
};

/// Receives single frames, each with its own area.
struct IMediaReceiverSingle : IContract {
    /// Handles one frame as Receive does. The engine searches the area of the settings. Only plate events carry this
    /// area, also those of later frames, until the next call; after a call with an empty or null area they carry the
    /// area of the settings.
    /// Returns: 0; 1 on failure, with the text in the error state.
    /// Ownership: of the buffer as for Receive. The area is copied. `frameDoneCallback`, an MFF::IFrameDoneCallback or
    /// null, stays the host's and is used only during the call.
    /// Thread: as Receive.
    virtual int32_t ReceiveSingle(MFF::IMultimediaBuffer* inputData, const FrameArea* area,
                                  IContract* frameDoneCallback) = 0;
};

/// Values that apply to one call of ReceiveSingle.
struct IMediaReceiverSingle2 : IMediaReceiverSingle {
    /// Set one value each. Any name is accepted; setting a name again replaces its value and type.
    /// Returns: 0; 2816 for a null name and on allocation failure, and then nothing changes.
    /// Ownership: name and text stay the caller's, and are copied.
    /// Thread: any thread; does not wait for a frame.
    virtual int32_t SetStringValue(const char* name, const char* value) = 0;
    virtual int32_t SetDoubleValue(const char* name, double value) = 0;
    virtual int32_t SetIntValue(const char* name, int32_t value) = 0;
    virtual int32_t SetBoolValue(const char* name, bool value) = 0;
};

/// Stream control. This detector needs none.
struct IMediaReceiverController : IContract {
    /// Do nothing, with any arguments.
    /// Returns: 0; cannot fail.
    /// Ownership: nothing is passed.
    /// Thread: any thread; does not wait for a frame.
    virtual int32_t Control1() = 0;
    virtual int32_t Control2() = 0;
    virtual int32_t Control3() = 0;
    virtual int32_t Control4() = 0;
    virtual int32_t Control5() = 0;
};

}  // namespace Analytics
}  // namespace OKM8
