#include "bench/frame_path/channel.h"

#include <cstring>

#include "sdk/contract_names.h"
#include "tools/host/failure.h"

namespace frame_path {

class Channel::Buffer final : public OKM8::MFF::ICompositeBuffer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
    explicit Buffer(Channel& owner) : owner_(owner) {}

    void* QueryContract(const char* contractName) override {
        const bool isKnown = std::strcmp(contractName, OKM8::ContractName::ICompositeBuffer) == 0;
        return isKnown ? static_cast<OKM8::MFF::ICompositeBuffer*>(this) : nullptr;
    }
    void* QueryContract(const char* contractName) const override {
        return const_cast<Buffer*>(this)->QueryContract(contractName);
    }
    std::uint64_t GetTimeStamp() override { return timeStamp; }
    void Unused1() override {}
    void Unused2() override {}
    void Release() override { owner_.freeBuffers_.push_back(this); }
    std::uint8_t* GetData() override { return owner_.picture_.data(); }
    std::uint32_t GetDataSize() override { return static_cast<std::uint32_t>(owner_.picture_.size()); }
    std::uint32_t GetWidth() override { return owner_.size_.width; }
    std::uint32_t GetHeight() override { return owner_.size_.height; }

    std::uint64_t timeStamp = 0;

  private:
    Channel& owner_;
};

Channel::Channel(Library& library, PictureSize size)
    : size_(size),
      picture_(std::size_t{3} * size_.width * size_.height / 2),
      peer_(0, library.host, library.events, library.console),
      detector_(library.plugin.CreateDetector(peer_)) {
    for (std::size_t index = 0; index < picture_.size(); ++index) {
        picture_[index] = static_cast<std::uint8_t>(index * 7);
    }
    detector_.settings->ApplySettings();
}

Channel::~Channel() {
    // Releases the detector's buffers.
    detector_.handle.reset();
}

Channel::Buffer& Channel::FreeBuffer() {
    if (freeBuffers_.empty()) {
        freeBuffers_.push_back(buffers_.emplace_back(std::make_unique<Buffer>(*this)).get());
    }
    Buffer& taken = *freeBuffers_.back();
    freeBuffers_.pop_back();
    return taken;
}

void Channel::Play(int frames) {
    for (int frame = 0; frame < frames; ++frame) {
        time_ += 40;
        Buffer& buffer = FreeBuffer();
        buffer.timeStamp = time_;
        if (detector_.receiver->Receive(&buffer) != OKM8::ErrorCode::None) {
            throw plate_host::Failure(std::string("a frame was refused: ") + detector_.errors->GetErrorMessage());
        }
    }
}

}  // namespace frame_path
