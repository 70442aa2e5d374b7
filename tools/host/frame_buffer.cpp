#include "tools/host/frame_buffer.h"

#include <utility>

#include "sdk/contract_names.h"
#include "tools/host/contract_query.h"

namespace plate_host {

FrameBuffer* FrameBuffer::Create(Picture picture, BufferCounts& buffers, HeldFrames* heldFrames, int channel) {
    auto* const buffer = new FrameBuffer(std::move(picture), buffers, heldFrames, channel);
    if (heldFrames != nullptr) {
        heldFrames->Add(channel, buffer->picture_);
    }
    ++buffers.passed;
    return buffer;
}

void* FrameBuffer::QueryContract(const char* contractName) {
    namespace Names = OKM8::ContractName;
    return IsOneOf(contractName, {Names::IContract, Names::IMultimediaBuffer, Names::ICompositeBuffer}) ? this
                                                                                                        : nullptr;
}

void* FrameBuffer::QueryContract(const char* contractName) const {
    return const_cast<FrameBuffer*>(this)->QueryContract(contractName);
}

void FrameBuffer::Release() {
    BufferCounts& buffers = buffers_;
    if (heldFrames_ != nullptr) {
        heldFrames_->Remove(channel_, picture_);
    }
    delete this;
    ++buffers.released;
}

void* FrameDoneCounter::QueryContract(const char* contractName) {
    return IsOneOf(contractName, {OKM8::ContractName::IContract}) ? this : nullptr;
}

void* FrameDoneCounter::QueryContract(const char* contractName) const {
    return const_cast<FrameDoneCounter*>(this)->QueryContract(contractName);
}

void FrameDoneCounter::OnFrameDone(OKM8::MFF::IMultimediaBuffer* inputData) {
    ++callCount_;
    if (inputData == nullptr || inputData != expected_) {
        ++wrongCallCount_;
    }
    expected_ = nullptr;
}

}  // namespace plate_host
