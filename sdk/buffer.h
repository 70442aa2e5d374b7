/// Frame buffers, and the call-back that tells the host that a frame has been handled. Host side.
#pragma once

#include "sdk/contract.h"

namespace OKM8 {
namespace MFF {

/// The buffer that carries one frame into a detector. The detector owns every non-null buffer that it is handed and
/// releases it exactly once, possibly long after the call: a plate that is still being tracked keeps its frame.
/// From inside its operations: quiet calls alone.
struct IMultimediaBuffer : IContract {
    /// The frame's time stamp in milliseconds. Frame thread.
    virtual uint64_t GetTimeStamp() = 0;
    virtual void Unused1() = 0;  // not called; keeps the numbering
    virtual void Unused2() = 0;  // not called; keeps the numbering
    /// Gives the buffer back; the caller does not touch it afterwards. Cannot fail.
    /// Frame thread of this or a later frame, or the thread that destroys the detector.
    /// From inside: quiet calls, and in Destroy none. Frame calls are not supported: the detector may be in the middle
    /// of another frame. A host that sends its next frame when a buffer comes back does so on another thread, or later.
    virtual void Release() = 0;
};

/// A raw picture buffer: 8-bit luminance alone, planar 4:2:0 (I420) or planar 4:2:2, told apart by the size alone.
struct ICompositeBuffer : IMultimediaBuffer {
    /// First byte of the picture, null for a picture of zero bytes of the size given below. Frame thread. The bytes
    /// belong to the buffer, are only read, and must stay as they are until Release.
    virtual uint8_t* GetData() = 0;
    /// Size of the picture in bytes. Frame thread.
    virtual uint32_t GetDataSize() = 0;
    /// Width in pixels. Frame thread.
    virtual uint32_t GetWidth() = 0;
    /// Height in pixels. Frame thread.
    virtual uint32_t GetHeight() = 0;
};

/// Told once per frame that has been handled.
struct IFrameDoneCallback : IContract {
    /// Called from inside ReceiveSingle with the buffer that was handed in, unless the frame was dropped by a failure
    /// or is held back; also when nothing but an event or the settings failed.
    /// The callee neither owns nor releases the buffer. Frame thread.
    /// From inside: quiet calls and frame calls, not Destroy. A frame sent from here is handled to its end; the outer
    /// call then returns its own outcome and leaves that in the error state.
    virtual void OnFrameDone(IMultimediaBuffer* inputData) = 0;
};

}  // namespace MFF
}  // namespace OKM8
