/// The buffers that pass frames to detectors.
#pragma once

#include <atomic>
#include <cstdint>

#include "sdk/buffer.h"
#include "tools/host/frame_shelf.h"
#include "tools/host/video_reader.h"

namespace plate_host {

/// Counts the buffers passed to the library and those that it released. Any thread.
struct BufferLedger {
    std::atomic<std::uint64_t> handedOut{0};
    std::atomic<std::uint64_t> givenBack{0};
};

/// A buffer with one frame. Release frees both, so that a memory checker detects a use after release.
class FrameBuffer final : public OKM8::MFF::ICompositeBuffer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(FrameBuffer)

    /// Creates and counts a buffer of a channel, and adds its picture to the shelf, which may be null. Release frees
    /// the buffer; the ledger and the shelf must outlive it.
    static FrameBuffer* HandOut(Picture picture, BufferLedger& ledger, FrameShelf* shelf = nullptr, int channel = 0);

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
    FrameBuffer(Picture picture, BufferLedger& ledger, FrameShelf* shelf, int channel)
        : picture_(std::move(picture)), ledger_(ledger), shelf_(shelf), channel_(channel) {}

    Picture picture_;
    BufferLedger& ledger_;
    FrameShelf* const shelf_;
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
