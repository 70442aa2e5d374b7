#include "tests/soak/channel.h"

#include <array>
#include <stdexcept>
#include <string>
#include <vector>

namespace soak {
namespace {

namespace ContractName = OKM8::ContractName;
using OKM8::ErrorCode::Failed;
using OKM8::ErrorCode::None;
using OKM8::ErrorCode::RefusedSetting;

constexpr std::uint64_t framePeriod = 40;             // milliseconds
constexpr std::uint64_t maxBreak = 12 * 3600 * 1000;  // milliseconds
constexpr std::uint32_t maxWidth = 1920;
constexpr std::uint32_t maxHeight = 1080;

// The pixels of all frames, regardless of their size and layout. The library only reads them.
std::uint8_t* Picture() {
    static std::vector<std::uint8_t> picture = [] {
        std::vector<std::uint8_t> bytes(std::size_t{2} * maxWidth * maxHeight);
        for (std::size_t index = 0; index < bytes.size(); ++index) {
            bytes[index] = static_cast<std::uint8_t>(index * 7);
        }
        return bytes;
    }();
    return picture.data();
}

// The channel whose frame the calling thread handles.
thread_local Channel* currentChannel = nullptr;

void Check(bool isRight, const std::string& what) {
    if (!isRight) {
        throw std::runtime_error(what);
    }
}

}  // namespace

struct EngineSide {
    static bool SetPlateRange() { return currentChannel->SetPlateRange(); }
    static int Recognize(const IMG& image, RPLATE* plates) { return currentChannel->Recognize(image, plates); }
};

const EngineCalls engineCalls = {EngineSide::SetPlateRange, EngineSide::Recognize};

Channel::Channel(OKM8::Analytics::IModule& module, OKM8::IContract* peer, World& world, std::uint32_t seed)
    : world_(world),
      random_(seed),
      road_(static_cast<std::uint32_t>(random_())),
      // The host may set values from inside Raise.
      events_(world_.counts, static_cast<std::uint32_t>(random_()), [this] { settings_->SetStringValue("id", "17"); }),
      detector_(module.CreateDetector(nullptr, peer)),
      receiver_(Query<OKM8::Analytics::IMediaReceiver>(ContractName::IMediaReceiver)),
      singleReceiver_(Query<OKM8::Analytics::IMediaReceiverSingle2>(ContractName::IMediaReceiverSingle2)),
      settings_(Query<OKM8::IAsyncAdjuster>(ContractName::IAsyncAdjuster)),
      errors_(Query<OKM8::IErrorInfoProvider>(ContractName::IErrorInfoProvider)) {
    ++world_.counts.detectors;
    Check(errors_->GetErrorCode() == None, std::string("a new detector has an error: ") + errors_->GetErrorMessage());
    settings_->SetBoolValue("result_ready", OnceIn(2));
    settings_->SetIntValue("result_wait_time", static_cast<std::int32_t>(Below(60)));
    settings_->SetIntValue("result_rec_count", static_cast<std::int32_t>(Below(50)));
    settings_->ApplySettings();
}

Channel::~Channel() {
    detector_->Destroy();
    world_.counts.lostBuffers += static_cast<std::uint64_t>(UnreleasedBuffers());
}

template <class Interface>
Interface* Channel::Query(const char* name) {
    Check(detector_ != nullptr, "the library created no detector");
    return static_cast<Interface*>(detector_->QueryContract(name));
}

void Channel::Play(int frames) {
    for (int frame = 0; frame < frames; ++frame) {
        PlayFrame();
    }
}

void Channel::PlayNight() {
    // The memory that the detector keeps depends on the frame's size.
    size_ = {64, 48};
    framesOfSize_ = 0;
    road_.Close();
    PlayGoodFrame();
    time_ += 10'000 + Below(maxBreak);
    PlayGoodFrame();
    Check(UnreleasedBuffers() == 0,
          std::to_string(UnreleasedBuffers()) + " buffers were not released after the last vehicle");
    road_.Open();
}

// Selects mostly small frames, so that many are played, and sometimes one of the other sizes.
void Channel::ChangeSize() {
    struct Visit {
        Size size;
        int frames;
    };
    static constexpr std::array<Visit, 6> visits = {
        {{{80, 60}, 500}, {{320, 240}, 100}, {{640, 480}, 50}, {{720, 576}, 50}, {{1280, 720}, 10}, {{1920, 1080}, 5}}};
    const bool isSmall = size_.width == 64;
    const Visit visit = isSmall ? visits[Below(static_cast<std::uint32_t>(visits.size()))] : Visit{{64, 48}, 4000};
    size_ = visit.size;
    framesOfSize_ = 1 + static_cast<int>(Below(static_cast<std::uint32_t>(visit.frames)));
}

void Channel::PlayFrame() {
    if (--framesOfSize_ < 0) {
        ChangeSize();
    }
    if (OnceIn(1000)) {
        PlayBadFrame();
    } else {
        PlayGoodFrame();
    }
    if (OnceIn(5000)) {
        ChangeSetting(random_);
    }
    if (OnceIn(20'000)) {
        settings_->ApplySettings();
    }
    if (OnceIn(50'000)) {
        time_ -= Below(maxBreak);  // the camera's clock is set
    }
}

void Channel::PlayGoodFrame() {
    // Luma only, 4:2:0, 4:2:2.
    static constexpr std::array<std::uint32_t, 3> bytesPerTwoPixels = {2, 3, 4};
    const std::uint32_t byteCount = size_.width * size_.height * bytesPerTwoPixels[Below(3)] / 2;
    OKM8::MFF::IMultimediaBuffer* const buffer = MakeBuffer(byteCount);
    time_ += framePeriod;
    ++world_.counts.frames;
    currentChannel = this;
    events_.BeginFrame();
    const std::int32_t result = OnceIn(50) ? PlaySingleFrame(buffer) : receiver_->Receive(buffer);
    const bool hasRefused = events_.EndFrame();
    currentChannel = nullptr;
    Check(!hasWrongSize_, "the engine received an image of the wrong size");
    Check(result == (hasRefused ? Failed : None), "a frame returned " + std::to_string(result));
}

OKM8::MFF::IMultimediaBuffer* Channel::MakeBuffer(std::uint32_t byteCount, bool isComposite) {
    return recording_host::MakeBuffer(buffers_, {.width = size_.width,
                                                 .height = size_.height,
                                                 .pixels = {},
                                                 .sharedPixels = Picture(),
                                                 .size = byteCount,
                                                 .timeStamp = time_,
                                                 .isComposite = isComposite});
}

std::int32_t Channel::PlaySingleFrame(OKM8::MFF::IMultimediaBuffer* buffer) {
    const OKM8::FrameArea area = {10, 10, static_cast<std::int32_t>(Below(80)), static_cast<std::int32_t>(Below(80))};
    recording_host::RecordingFrameDone done;
    singleReceiver_->SetStringValue("a value of one call", "a text that is longer than what fits in place");
    singleReceiver_->SetDoubleValue("another one", 0.5);
    const std::int32_t result = singleReceiver_->ReceiveSingle(buffer, OnceIn(4) ? nullptr : &area, &done);
    const std::size_t calls = done.buffers.size();
    Check(calls == 1, "a single frame was reported as done " + std::to_string(calls) + " times");
    return result;
}

void Channel::PlayBadFrame() {
    const std::uint32_t byteCount = size_.width * size_.height * 3 / 2;
    OKM8::MFF::IMultimediaBuffer* buffer = nullptr;
    switch (Below(4)) {
        case 0:
            buffer = MakeBuffer(byteCount, false);
            break;
        case 1:
            buffer = MakeBuffer(byteCount + 1);
            break;
        case 2:
            buffer = MakeBuffer(byteCount);
            buffers_.onCall = recording_host::On(recording_host::Operation::GetData,
                                                 [] { throw std::runtime_error("the host has failed"); });
            break;
        default:
            break;
    }
    Check(receiver_->Receive(buffer) == Failed, "an invalid frame was not refused");
    buffers_.onCall = nullptr;
}

void Channel::ChangeSetting(std::mt19937& chance) {
    const auto below = [&](std::uint32_t limit) { return static_cast<std::uint32_t>(chance() % limit); };
    const auto percent = static_cast<std::int32_t>(below(101));
    static constexpr std::array<const char*, 6> numbers = {"zone_width", "zone_width_min", "area_left",
                                                           "area_top",   "area_right",     "area_bottom"};
    std::int32_t result = None;
    std::int32_t expected = None;
    switch (below(6)) {
        case 0:
            result = settings_->SetBoolValue("use_area", below(2) == 0);
            break;
        case 1:
            result = settings_->SetStringValue("name", std::string(below(100), 'n').c_str());
            break;
        case 2:
            result = settings_->SetBoolValue("use_half_cadr", below(2) == 0);
            break;
        case 3:
            result = settings_->SetIntValue("no such setting", percent);
            expected = RefusedSetting;
            break;
        default:
            result = settings_->SetIntValue(numbers[below(numbers.size())], percent);
            break;
    }
    Check(result == expected, "a setting returned " + std::to_string(result));
}

bool Channel::SetPlateRange() {
    if (world_.hasLostServer.exchange(false) || OnceIn(20'000)) {
        ++world_.counts.refusedRanges;
        return false;
    }
    return true;
}

int Channel::Recognize(const IMG& image, RPLATE* plates) {
    hasWrongSize_ = hasWrongSize_ || image.width != size_.width || image.height != size_.height;
    const int count = road_.Read(image, plates);
    if (!road_.IsOpen() || !OnceIn(1000)) {
        return count;
    }
    switch (Below(5)) {
        case 0:
            throw std::runtime_error("the engine has failed");
        case 1:
            throw OtherException();
        case 2:
            return engineRecordCount + 1 + static_cast<int>(Below(10));  // the library treats extra records as empty
        case 3:
            return 1'000'000;  // the library treats this as none
        default:
            return -1;
    }
}

}  // namespace soak
