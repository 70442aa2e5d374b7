/// Frame buffers, and the call-back that tells the host that a frame has been handled. Host side.
#pragma once

#include "sdk/contract.h"

namespace OKM8 {
namespace MFF {

/// The buffer that carries one frame into a detector. The detector owns every non-null buffer that it is handed and
/// releases it exactly once, possibly long after the call: a plate that awaits its verdict keeps its frame.
struct IMultimediaBuffer : IContract {
    /// The frame's time stamp in milliseconds. Frame thread.
    virtual uint64_t GetTimeStamp() = 0;
    virtual void Unused1() = 0;  // not called; keeps the numbering
    virtual void Unused2() = 0;  // not called; keeps the numbering
    /// Gives the buffer back; the caller does not touch it afterwards. Cannot fail.
    /// Frame thread of this or a later frame, or the thread that destroys the detector.
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
    /// Called from inside ReceiveSingle with the buffer that was handed in, unless the frame failed or is held back.
    /// The callee neither owns nor releases the buffer. Frame thread.
    virtual void OnFrameDone(IMultimediaBuffer* inputData) = 0;
};

}  // namespace MFF
}  // namespace OKM8
