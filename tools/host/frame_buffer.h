/// The buffers that carry frames into detectors.
#pragma once

#include <atomic>
#include <cstdint>

#include "sdk/buffer.h"
#include "tools/host/frame_shelf.h"
#include "tools/host/video_reader.h"

namespace plate_host {

/// Counts buffers on their way. Any thread.
struct BufferLedger {
    std::atomic<std::uint64_t> handedOut{0};
    std::atomic<std::uint64_t> givenBack{0};
};

/// One frame in a buffer of its own, which Release frees together with its bytes, so that a memory checker sees a use
/// after that.
class FrameBuffer final : public OKM8::MFF::ICompositeBuffer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(FrameBuffer)

    /// Makes a buffer of a channel that counts as handed out; it ends with Release. The ledger must outlive it, and so
    /// must the shelf, null for none, on which its picture stands until then.
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

/// Counts the calls that tell of handled frames. Used on one frame thread.
class FrameDoneCounter final : public OKM8::MFF::IFrameDoneCallback {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(FrameDoneCounter)

    void* QueryContract(const char* contractName) override;
    void* QueryContract(const char* contractName) const override;
    void OnFrameDone(OKM8::MFF::IMultimediaBuffer* inputData) override;

    /// Names the buffer of the call that follows; null for none.
    void Expect(const OKM8::MFF::IMultimediaBuffer* buffer) { expected_ = buffer; }

    std::uint64_t CallCount() const { return callCount_; }
    /// Calls with another buffer than the one handed in, calls after the first, and calls for no frame.
    std::uint64_t WrongCallCount() const { return wrongCallCount_; }

  private:
    const OKM8::MFF::IMultimediaBuffer* expected_ = nullptr;
    std::uint64_t callCount_ = 0;
    std::uint64_t wrongCallCount_ = 0;
};

}  // namespace plate_host
