/// Frame buffers, and the callback after each frame. Host side.
#pragma once

#include "sdk/contract.h"

namespace OKM8 {
namespace MFF {

/// A buffer with one frame. The detector owns every non-null buffer that it receives and releases it exactly once,
/// possibly long after the call: a plate that is still being tracked keeps its frame.
struct IMultimediaBuffer : IContract {
    /// Another start than 1970 is allowed: the times of events and tracks then count from it. Time stamps of a
    /// detector's frames must not go back: vehicles in view would be reported at once, and then a second time. Returns:
    /// the frame's time stamp in milliseconds since 1970-01-01 00:00 UTC; cannot fail. Ownership: nothing is passed.
    /// Thread: frame thread. From inside: quiet calls.
    virtual uint64_t GetTimeStamp() = 0;
    virtual void Unused1() = 0;  // not called; keeps the numbering
    virtual void Unused2() = 0;  // not called; keeps the numbering
    /// Ends the detector's use of the buffer.
    /// Returns: nothing; cannot fail.
    /// Ownership: the host owns the buffer again and may reuse or free it.
    /// Thread: frame thread of this or a later frame, or the thread that destroys the detector. From inside: quiet
    /// calls; during Destroy none. Frame calls are not supported, because the detector may be in the middle of another
    /// frame: a host that sends its next frame when a buffer is released does so on another thread, or later.
    virtual void Release() = 0;
};

/// A buffer with one uncompressed frame, 8 bits a sample, full range (0 to 255), rows without padding: only luminance
/// (width * height bytes), planar 4:2:0 (I420, * 3 / 2) or planar 4:2:2 (I422, * 2). GetDataSize tells them apart.
struct ICompositeBuffer : IMultimediaBuffer {
    /// Returns: the first byte of the frame; null means that every byte is zero.
    /// Ownership: the bytes belong to the buffer. The library only reads them; they must not change until Release.
    /// Thread: frame thread. From inside: quiet calls.
    virtual uint8_t* GetData() = 0;
    /// Returns: the size of the frame in bytes; cannot fail. The same holds for the next two, in pixels.
    /// Ownership: nothing is passed.
    /// Thread: frame thread. From inside: quiet calls.
    virtual uint32_t GetDataSize() = 0;
    virtual uint32_t GetWidth() = 0;
    virtual uint32_t GetHeight() = 0;
};

/// Receives one call for each frame that has been handled.
struct IFrameDoneCallback : IContract {
    /// Called from inside ReceiveSingle with the buffer that was passed to it, also if raising an event or applying
    /// settings failed. Not called if the frame itself failed or is held back.
    /// Returns: nothing.
    /// Ownership: the buffer stays with its owner; do not release it.
    /// Thread: frame thread. From inside: quiet calls and frame calls, not Destroy. A frame sent from here is handled
    /// completely; the outer call then returns its own result and leaves that in the error state.
    virtual void OnFrameDone(IMultimediaBuffer* inputData) = 0;
};

}  // namespace MFF
}  // namespace OKM8
