/// The buffers that pass frames to detectors.
#pragma once

#include <atomic>
#include <cstdint>

#include "sdk/buffer.h"
#include "tools/host/held_frames.h"
#include "tools/host/picture.h"

namespace plate_host {

/// Counts the buffers passed to the library and those that it released. Any thread.
struct BufferCounts {
    std::atomic<std::uint64_t> passed{0};
    std::atomic<std::uint64_t> released{0};
};

/// A buffer with one frame. Release frees both, so that a memory checker detects a use after release.
class FrameBuffer final : public OKM8::MFF::ICompositeBuffer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(FrameBuffer)

    /// Creates a buffer of a channel, counts it in `buffers`, and adds its picture to `heldFrames`, which may be null.
    /// Release frees the buffer; both arguments must outlive it.
    static FrameBuffer* Create(Picture picture, BufferCounts& buffers, HeldFrames* heldFrames = nullptr,
                               int channel = 0);

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    uint64_t GetTimeStamp() override { return picture_.timeMs; }
    void Unused1() override {}
    void Unused2() override {}
    void Release() override;
    uint8_t* GetData() override { return picture_.bytes.get(); }
    uint32_t GetDataSize() override { return picture_.size; }
    uint32_t GetWidth() override { return picture_.width; }
    uint32_t GetHeight() override { return picture_.height; }

  private:
    FrameBuffer(Picture picture, BufferCounts& buffers, HeldFrames* heldFrames, int channel)
        : picture_(std::move(picture)), buffers_(buffers), heldFrames_(heldFrames), channel_(channel) {}

    Picture picture_;
    BufferCounts& buffers_;
    HeldFrames* const heldFrames_;
    const int channel_;
};

/// Counts the frame-done calls. Used on one frame thread.
class FrameDoneCounter final : public OKM8::MFF::IFrameDoneCallback {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(FrameDoneCounter)

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void OnFrameDone(OKM8::MFF::IMultimediaBuffer* inputData) override;

    /// Sets the buffer that the next call must pass; null when there must be no call.
    void Expect(const OKM8::MFF::IMultimediaBuffer* buffer) { expected_ = buffer; }

    std::uint64_t CallCount() const { return callCount_; }
    /// The calls with another buffer than the expected one, after the first call for a frame, or without a frame.
    std::uint64_t WrongCallCount() const { return wrongCallCount_; }

  private:
    const OKM8::MFF::IMultimediaBuffer* expected_ = nullptr;
    std::uint64_t callCount_ = 0;
    std::uint64_t wrongCallCount_ = 0;
};

}  // namespace plate_host
