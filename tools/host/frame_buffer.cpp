#include "tools/host/frame_buffer.h"

#include <utility>

#include "sdk/contract_names.h"
#include "tools/host/contract_query.h"

namespace plate_host {

FrameBuffer* FrameBuffer::HandOut(Picture picture, BufferLedger& ledger, FrameShelf* shelf, int channel) {
    auto* const buffer = new FrameBuffer(std::move(picture), ledger, shelf, channel);
    if (shelf != nullptr) {
        shelf->Enter(channel, buffer->picture_);
    }
    ++ledger.handedOut;
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
    BufferLedger& countedIn = ledger_;
    if (shelf_ != nullptr) {
        shelf_->Leave(channel_, picture_);
    }
    delete this;
    ++countedIn.givenBack;
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
