/// What a detector offers to the host. Library side.
#pragma once

#include "sdk/buffer.h"
#include "sdk/contract.h"

namespace OKM8 {

/// A rectangle handed in with a single frame, in percent of the frame.
struct FrameArea {
    int32_t x;
    int32_t y;
    int32_t width;
    int32_t height;
};

static_assert(sizeof(FrameArea) == 16, "four 32-bit numbers");
static_assert(offsetof(FrameArea, width) == 8, "x, y, width, height");

/// The error codes that detector calls answer.
namespace ErrorCode {
constexpr int32_t None = 0;
constexpr int32_t Failed = 1;             ///< the frame path or an event failed
constexpr int32_t RefusedSetting = 2816;  ///< unknown name or wrong type; the error text is the name
}  // namespace ErrorCode

/// Named settings of a detector.
struct IAsyncAdjuster : IContract {
    /// Each returns 0, or 2816 for a null or unknown name or a value of the wrong type; then nothing is changed.
    /// Name and text are copied during the call; a null text counts as empty.
    /// Any thread, also while a frame is handled, which they never wait for.
    virtual int32_t SetStringValue(const char* name, const char* value) = 0;
    virtual int32_t SetDoubleValue(const char* name, double value) = 0;
    virtual int32_t SetIntValue(const char* name, int32_t value) = 0;
    virtual int32_t SetBoolValue(const char* name, bool value) = 0;
    /// Makes the detector take the values into effect; a failure stands in the error state. What is no std::exception
    /// is thrown on.
    /// Any thread; waits for a frame that is being handled. From inside an operation of the host: of OnFrameDone alone.
    virtual void ApplySettings() = 0;
};

/// The outcome of the last call.
struct IErrorInfoProvider : IContract {
    /// 0 for none, 1 for an error, 2816 for a refused setting. Any thread.
    virtual int32_t GetErrorCode() = 0;
    /// The last error's text, empty for none. Owned by the detector, valid until the next operation on it. Any thread.
    virtual const char* GetErrorMessage() = 0;
};

namespace Analytics {

/// A detector: the handle by which it is reached through QueryContract and ended by Destroy.
struct IDetector : IDestroyable {};

/// Takes the frames of a stream.
struct IMediaReceiver : IContract {
    /// Handles one frame and returns the error code, 0 or 1; the text stands in the error state.
    /// The detector owns the buffer from the call on, whatever it returns.
    /// Any thread; frames of one detector wait for one another. From inside an operation of the host: of
    /// OnFrameDone alone.
    virtual int32_t Receive(MFF::IMultimediaBuffer* inputData) = 0;
};

/// Takes frames one by one, each with an area of its own.
struct IMediaReceiverSingle : IContract {
    /// As Receive. The area may be null (empty) and is copied; `frameDoneCallback` may be null, belongs to the host
    /// and is used during the call alone.
    virtual int32_t ReceiveSingle(MFF::IMultimediaBuffer* inputData, const FrameArea* area,
                                  IContract* frameDoneCallback) = 0;
};

/// Values that live for one ReceiveSingle call.
struct IMediaReceiverSingle2 : IMediaReceiverSingle {
    /// Each accepts any name and returns 0; a null name is refused with 2816. Setting a name again replaces the
    /// value, whatever its type. Name and text are copied during the call. Any thread; never waits for a frame.
    virtual int32_t SetStringValue(const char* name, const char* value) = 0;
    virtual int32_t SetDoubleValue(const char* name, double value) = 0;
    virtual int32_t SetIntValue(const char* name, int32_t value) = 0;
    virtual int32_t SetBoolValue(const char* name, bool value) = 0;
};

/// Stream control that this detector has no use for.
struct IMediaReceiverController : IContract {
    /// Each returns 0 and does nothing, whatever it is handed. Any thread.
    virtual int32_t Control1() = 0;
    virtual int32_t Control2() = 0;
    virtual int32_t Control3() = 0;
    virtual int32_t Control4() = 0;
    virtual int32_t Control5() = 0;
};

}  // namespace Analytics
}  // namespace OKM8
