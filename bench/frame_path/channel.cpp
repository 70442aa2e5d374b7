#include "bench/frame_path/channel.h"

#include <cstring>

#include "sdk/contract_names.h"
#include "tools/host/failure.h"

namespace frame_path {

class Channel::Buffer final : public OKM8::MFF::ICompositeBuffer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
    explicit Buffer(Channel& newOwner) : owner(newOwner) {}

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
    void Release() override { owner.freeBuffers.push_back(this); }
    std::uint8_t* GetData() override { return owner.picture.data(); }
    std::uint32_t GetDataSize() override { return static_cast<std::uint32_t>(owner.picture.size()); }
    std::uint32_t GetWidth() override { return owner.size.width; }
    std::uint32_t GetHeight() override { return owner.size.height; }

    std::uint64_t timeStamp = 0;

  private:
    Channel& owner;
};

Channel::Channel(Library& library, PictureSize pictureSize)
    : size(pictureSize),
      picture(std::size_t{3} * size.width * size.height / 2),
      peer(0, library.host, library.events, library.console),
      detector(library.plugin.CreateDetector(peer)) {
    for (std::size_t index = 0; index < picture.size(); ++index) {
        picture[index] = static_cast<std::uint8_t>(index * 7);
    }
    detector.settings->ApplySettings();
}

Channel::~Channel() {
    // The detector gives its buffers back.
    detector.handle.reset();
}

Channel::Buffer& Channel::FreeBuffer() {
    if (freeBuffers.empty()) {
        freeBuffers.push_back(buffers.emplace_back(std::make_unique<Buffer>(*this)).get());
    }
    Buffer& taken = *freeBuffers.back();
    freeBuffers.pop_back();
    return taken;
}

void Channel::Play(int frames) {
    for (int frame = 0; frame < frames; ++frame) {
        time += 40;
        Buffer& buffer = FreeBuffer();
        buffer.timeStamp = time;
        if (detector.receiver->Receive(&buffer) != OKM8::ErrorCode::None) {
            throw plate_host::Failure(std::string("a frame was refused: ") + detector.errors->GetErrorMessage());
        }
    }
}

}  // namespace frame_path
