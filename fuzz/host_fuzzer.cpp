// Checks that the library tolerates any host and any engine: sequences of host calls with any frames and settings,
// while the host's objects are missing or throw and the engine returns anything.
//
// Every buffer must be released exactly once and every raiser raised or discarded exactly once, exceptions may be
// thrown only where the contract says so, error codes must be those of the contract, and afterwards the detector must
// work. The host's objects are freed as soon as the library has released them, so that the address sanitizer reports
// later uses.

#include <algorithm>
#include <array>
#include <iterator>
#include <limits>
#include <memory>
#include <new>
#include <stdexcept>
#include <vector>

#include "diagnostics/debug_level.h"
#include "engine/engine_records.h"
#include "fuzz/input.h"
#include "platform/debug_output.h"
#include "sdk/buffer.h"
#include "sdk/contract_names.h"
#include "sdk/detector.h"
#include "sdk/module.h"
#include "sdk/plate_events.h"
#include "sdk/setting_keys.h"
#include "tests/support/fake_processes.h"
#include "tools/validate/recording_host.h"

extern "C" OKM8::Analytics::InitializeModuleFunction InitializeModule;
extern "C" OKM8::Analytics::GetModuleFunction GetModule;
extern "C" OKM8::Analytics::FinalizeModuleFunction FinalizeModule;

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;

// Keeps an execution short.
constexpr unsigned maxCalls = 40;

fuzz::Bytes current;

[[noreturn]] void Fail(const char* what) {
    fuzz::Fail(current, what);
}

void Check(bool isRight, const char* failure) {
    if (!isRight) {
        Fail(failure);
    }
}

using recording_host::HostCall;
using recording_host::Operation;

/// Places where the library makes foreign calls: the host's operations, and these.
constexpr std::size_t recognizePlace = static_cast<std::size_t>(Operation::Count);
constexpr std::size_t plateRangePlace = recognizePlace + 1;
constexpr std::size_t binarySetterPlace = recognizePlace + 2;  // a target that refuses raw bytes
constexpr std::size_t placeCount = recognizePlace + 3;

constexpr std::size_t PlaceOf(Operation operation) {
    return static_cast<std::size_t>(operation);
}

/// Inputs number the places in this order.
constexpr std::array<std::size_t, 24> places = {PlaceOf(Operation::GetLogger),
                                                PlaceOf(Operation::GetFactory),
                                                PlaceOf(Operation::CreateTargetEnumerator),
                                                PlaceOf(Operation::AddTarget),
                                                PlaceOf(Operation::CreateEventRaiser),
                                                PlaceOf(Operation::GetEventArgs),
                                                binarySetterPlace,
                                                PlaceOf(Operation::SetObjectValue),
                                                PlaceOf(Operation::SetStringValue),
                                                PlaceOf(Operation::SetIntValue),
                                                PlaceOf(Operation::SetBinaryValue),
                                                PlaceOf(Operation::Raise),
                                                PlaceOf(Operation::Discard),
                                                PlaceOf(Operation::QueryContract),
                                                PlaceOf(Operation::GetData),
                                                PlaceOf(Operation::GetDataSize),
                                                PlaceOf(Operation::GetWidth),
                                                PlaceOf(Operation::GetHeight),
                                                PlaceOf(Operation::GetTimeStamp),
                                                PlaceOf(Operation::Release),
                                                PlaceOf(Operation::OnFrameDone),
                                                PlaceOf(Operation::WriteLog),
                                                recognizePlace,
                                                plateRangePlace};

enum class Behaviour : std::uint8_t { Works, IsNull, ThrowsStandard, ThrowsNumber, ThrowsMemory };

struct OtherException {};

/// Failures of the host and its engine.
struct Failures {
    std::array<Behaviour, placeCount> behaviours = {};

    /// Throws if the place is set to throw; otherwise returns true if it works.
    bool Passes(std::size_t place) const {
        switch (behaviours[place]) {
            case Behaviour::IsNull:
                return false;
            case Behaviour::ThrowsStandard:
                throw std::runtime_error("the host has failed");
            case Behaviour::ThrowsNumber:
                throw OtherException();
            case Behaviour::ThrowsMemory:
                throw std::bad_alloc();
            default:
                return true;
        }
    }
};

/// The state of one execution.
struct State {
    Failures failures;
    int raisers = 0;               // created and not yet raised or discarded
    int targets = 0;               // of the newest list
    IDetector* raising = nullptr;  // called from inside Raise
    TrackPointList track = {};     // of the current event
    int plateCount = 0;
    std::array<RPLATE, engineRecordCount> plates = {};
};

State state;

void Touch(const char* text) {
    [[maybe_unused]] static volatile std::size_t sink;
    Check(text != nullptr, "a null text");
    sink = std::strlen(text);
}

void ReadTrack() {
    const TrackPointList& track = state.track;
    Check(track.first <= track.last && track.last <= track.storage, "a track that ends before it begins");
    for (const TrackPoint* point = track.first; point != track.last; ++point) {
        Check(point->flag == 0, "a track point with a flag");
    }
}

void CheckCode(std::int32_t code, bool isSetter) {
    Check(code == ErrorCode::None || code == (isSetter ? ErrorCode::RefusedSetting : ErrorCode::Failed),
          "an undefined error code");
}

template <class Interface>
Interface& As(IDetector* detector, const char* name) {
    void* const face = detector->QueryContract(name);
    Check(face != nullptr, "an interface is missing");
    return *static_cast<Interface*>(face);
}

void ReadErrorState(IDetector* detector) {
    IErrorInfoProvider& errors = As<IErrorInfoProvider>(detector, ContractName::IErrorInfoProvider);
    const std::int32_t code = errors.GetErrorCode();
    Check(code == ErrorCode::None || code == ErrorCode::Failed || code == ErrorCode::RefusedSetting,
          "an undefined error code");
    Touch(errors.GetErrorMessage());
}

void CallFromInsideRaise() {
    IAsyncAdjuster& settings = As<IAsyncAdjuster>(state.raising, ContractName::IAsyncAdjuster);
    CheckCode(settings.SetIntValue("zone_width", 50), true);
    ReadErrorState(state.raising);
}

/// Checks the library's arguments, and makes the call fail if it is set to fail.
void OnCall(HostCall& call) {
    if (call.name != nullptr) {
        Touch(call.name);
    }
    switch (call.operation) {
        case Operation::GetOther:
            Fail("an unexpected service is requested");
        case Operation::Unused:
            Fail("an unexpected operation");
        case Operation::SetDoubleValue:
        case Operation::SetBoolValue:
            Fail("an event value of an unexpected type");
        case Operation::WriteLog:
        case Operation::SetStringValue:
            Touch(call.text);
            break;
        case Operation::CreateTargetEnumerator:
            state.targets = 0;
            state.track = {};
            break;
        case Operation::AddTarget:
            Check(state.targets == 0, "two targets in one event");
            break;
        case Operation::SetBinaryValue:
            Check(call.size == sizeof state.track, "a track of the wrong size");
            std::memcpy(&state.track, call.data, sizeof state.track);
            ReadTrack();
            break;
        case Operation::CreateEventRaiser:
            Check(call.object != nullptr, "an event without a detector");
            break;
        case Operation::Raise:
            ReadTrack();
            if (state.raising != nullptr) {
                CallFromInsideRaise();
            }
            --state.raisers;
            break;
        case Operation::Discard:
            --state.raisers;
            break;
        case Operation::QueryContract:
            Check(std::strcmp(call.name, ContractName::ICompositeBuffer) == 0,
                  "an unexpected interface of a buffer is requested");
            break;
        case Operation::OnFrameDone:
            Check(call.object != nullptr, "OnFrameDone without a buffer");
            break;
        default:
            break;
    }
    call.isRefused = !state.failures.Passes(PlaceOf(call.operation));
    state.raisers += call.operation == Operation::CreateEventRaiser && !call.isRefused ? 1 : 0;
    state.targets += call.operation == Operation::AddTarget && !call.isRefused ? 1 : 0;
}

recording_host::RecordingHost host;
recording_host::BufferCounts buffers;
recording_host::RecordingFrameDone frameDone(OnCall);

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t numbers[] = {0, 1, -1, 2, 50, 100, 101, -100, 1000000, highest, highest - 1, lowest, lowest + 1};
// Sizes that no buffer can have. Plausible large sizes are left out, because clearing their memory takes seconds.
constexpr std::uint32_t sides[] = {0, 0x7fffffff, 0x80000000, 0xffffffff};
constexpr int plateCounts[] = {1, 0, 2, 3, 5, 6, 33, -1, 1025, 1000000, highest, lowest};
// All settings, an empty name, an unknown name, and null.
constexpr auto settingNames = [] {
    std::array<const char*, std::size(SettingKey::All) + 3> names = {};
    const auto next = std::copy(std::begin(SettingKey::All), std::end(SettingKey::All), names.begin());
    next[0] = "";
    next[1] = "no such setting";
    return names;
}();
constexpr const char* texts[] = {
    "", "7", "camera", nullptr, "-2147483649", "a text that is too long to be kept without memory of its own"};
constexpr const char* contractNames[] = {nullptr,
                                         "",
                                         ContractName::IContract,
                                         ContractName::IDestroyable,
                                         ContractName::IDetector,
                                         ContractName::IMediaReceiver,
                                         ContractName::IMediaReceiverSingle,
                                         ContractName::IMediaReceiverSingle2,
                                         ContractName::IAsyncAdjuster,
                                         ContractName::IErrorInfoProvider,
                                         ContractName::IMediaReceiverController,
                                         ContractName::ILogger};
constexpr std::uint64_t times[] = {0, 1, std::numeric_limits<std::uint64_t>::max(), std::uint64_t{1} << 63};

/// One execution: a sequence of host calls.
class Session {
  public:
    explicit Session(fuzz::Input& bytes) : input_(bytes) {}

    void Run() {
        for (unsigned calls = 0; calls < maxCalls && !input_.IsEmpty(); ++calls) {
            Call();
            state.raising = nullptr;
            Check(state.raisers == 0, "a raiser is neither raised nor discarded");
            host.FreeUnfinished();
        }
        End();
    }

  private:
    void Call() {
        switch (input_.Below(12)) {
            case 0:
                TakeFailure();
                break;
            case 1:
                TakePlates();
                break;
            case 2:
                SetSetting();
                break;
            case 3:
                SetFrameValue();
                break;
            case 4:
                QueryAnything();
                break;
            case 5:
                DestroyDetector();
                break;
            case 6:
                RestartModule();
                break;
            case 7:
                diagnostics::SetDebugLevel(input_.Below(4) == 3 ? 1 : 0);
                break;
            case 8:
                fake_processes::FailStart(input_.Below(2) * 2);
                fake_processes::FailList(input_.Below(2) * 5);
                break;
            default:
                Frame();
                break;
        }
    }

    void TakeFailure() {
        const auto place = input_.Below(static_cast<unsigned>(places.size()) + 2);
        if (place >= places.size()) {
            state.failures = {};
        } else {
            state.failures.behaviours[places[place]] = static_cast<Behaviour>(input_.Below(5));
        }
        host.refusals.binarySetter = state.failures.behaviours[binarySetterPlace] != Behaviour::Works;
    }

    void TakePlates() {
        state.plateCount = input_.AnyOf(plateCounts);
        const std::size_t count = std::min<std::size_t>(input_.Below(8), state.plates.size());
        for (std::size_t index = 0; index < count; ++index) {
            RPLATE& plate = state.plates[index];
            plate = {};
            const std::size_t length = input_.Below(17);
            for (std::size_t place = 0; place < length; ++place) {
                plate.text[place] = static_cast<char>(input_.Byte());
            }
            const unsigned corners = input_.Byte();
            SetConfidenceSum(plate, (corners & 1) != 0 ? input_.Take<double>() : 500.0);
            for (EngineCorner* const corner : {&plate.corner1, &plate.corner2, &plate.corner3, &plate.corner4}) {
                *corner = (corners & 2) != 0 ? EngineCorner{input_.AnyOf(numbers), input_.AnyOf(numbers)}
                                             : EngineCorner{input_.Byte(), input_.Byte()};
            }
        }
    }

    IDetector* Detector() {
        IDetector*& detector = detectors_[input_.Below(2)];
        if (detector == nullptr) {
            try {
                IModule* const module = GetModule();
                Check(module != nullptr, "there is no module");
                Check(module->CreateDetector(nullptr, nullptr) == nullptr, "a detector without a peer");
                detector = module->CreateDetector(nullptr, host.Peer());
            } catch (const std::exception&) {
            } catch (const OtherException&) {
                // CreateDetector may throw the host's exception.
            }
        }
        return detector;
    }

    void DestroyDetector() {
        IDetector*& detector = detectors_[input_.Below(2)];
        if (detector != nullptr) {
            detector->Destroy();
            detector = nullptr;
        }
    }

    void RestartModule() {
        if (detectors_ == std::array<IDetector*, 2>{}) {
            FinalizeModule();
            Check(InitializeModule(host.Object()) == 0, "the module is not initialized");
        }
    }

    void SetSetting() {
        IDetector* const detector = Detector();
        if (detector == nullptr) {
            return;
        }
        IAsyncAdjuster& settings = As<IAsyncAdjuster>(detector, ContractName::IAsyncAdjuster);
        const char* const name = input_.AnyOf(settingNames);
        switch (input_.Below(5)) {
            case 0:
                CheckCode(settings.SetStringValue(name, input_.AnyOf(texts)), true);
                break;
            case 1:
                CheckCode(settings.SetDoubleValue(name, input_.Take<double>()), true);
                break;
            case 2:
                CheckCode(settings.SetIntValue(name, input_.AnyOf(numbers)), true);
                break;
            case 3:
                CheckCode(settings.SetBoolValue(name, input_.Below(2) != 0), true);
                break;
            default:
                try {
                    settings.ApplySettings();
                } catch (const OtherException&) {
                    // ApplySettings rethrows exceptions that are not derived from std::exception.
                }
                break;
        }
        ReadErrorState(detector);
    }

    void SetFrameValue() {
        IDetector* const detector = Detector();
        if (detector == nullptr) {
            return;
        }
        auto& single = As<IMediaReceiverSingle2>(detector, ContractName::IMediaReceiverSingle2);
        const char* const name = input_.AnyOf(settingNames);
        switch (input_.Below(4)) {
            case 0:
                CheckCode(single.SetStringValue(name, input_.AnyOf(texts)), true);
                break;
            case 1:
                CheckCode(single.SetDoubleValue(name, input_.Take<double>()), true);
                break;
            case 2:
                CheckCode(single.SetIntValue(name, input_.AnyOf(numbers)), true);
                break;
            default:
                CheckCode(single.SetBoolValue(name, input_.Below(2) != 0), true);
                break;
        }
        ReadErrorState(detector);
    }

    void QueryAnything() {
        IDetector* const detector = Detector();
        if (detector == nullptr) {
            return;
        }
        const char* const name = input_.AnyOf(contractNames);
        const IDetector* const constant = detector;
        Check(detector->QueryContract(name) == constant->QueryContract(name), "different results for one interface");
        auto& controller = As<IMediaReceiverController>(detector, ContractName::IMediaReceiverController);
        Check(controller.Control1() == 0 && controller.Control2() == 0 && controller.Control3() == 0 &&
                  controller.Control4() == 0 && controller.Control5() == 0,
              "a controller call does not return 0");
        ReadErrorState(detector);
    }

    /// Makes any frame. Its data always has the size that it reports: the library cannot detect a wrong size.
    MFF::IMultimediaBuffer* TakeFrame() {
        const unsigned kind = input_.Byte();
        // Large enough to be processed at half height. Such a frame takes a hundred times as long as the others.
        const bool isHalved = kind % 8 == 0 && mayBeLarge_ && input_.Take<std::uint16_t>() == 0x4b38;
        mayBeLarge_ = mayBeLarge_ && !isHalved;
        std::uint32_t width = isHalved ? 640 : 1 + input_.Below(40);
        std::uint32_t height = isHalved ? 480 : 1 + input_.Below(24);
        std::uint32_t size = width * height;
        switch (kind / 8 % 4) {
            case 0:
                size = (width / 2 * 2) * (height / 2 * 2) * 3 / 2;
                break;
            case 1:
                size = width * height * 3 / 2;
                break;
            case 2:
                size *= 2;
                break;
            default:
                break;
        }
        if (kind % 8 == 1) {
            (input_.OneIn(2) ? width : height) = input_.AnyOf(sides);
        }
        if (kind % 8 == 2) {
            size = input_.Take<std::uint16_t>();
        }
        now_ += 40;
        const std::uint64_t time = kind % 8 == 3 ? input_.AnyOf(times) : now_;
        return MakeFrame(width, height, std::vector<std::uint8_t>(kind / 32 != 7 ? size : 0, input_.Byte()), size,
                         time);
    }

    static MFF::IMultimediaBuffer* MakeFrame(std::uint32_t width, std::uint32_t height,
                                             std::vector<std::uint8_t> pixels, std::uint32_t size, std::uint64_t time) {
        return recording_host::MakeBuffer(
            buffers, {.width = width, .height = height, .pixels = std::move(pixels), .size = size, .timeStamp = time});
    }

    void Frame() {
        IDetector* const detector = Detector();
        if (detector == nullptr) {
            return;
        }
        const unsigned flags = input_.Byte();
        frameDone.buffers.clear();
        state.raising = (flags & 1) != 0 ? detector : nullptr;
        MFF::IMultimediaBuffer* const buffer = (flags & 0xf0) == 0xf0 ? nullptr : TakeFrame();
        if ((flags & 2) == 0) {
            CheckCode(As<IMediaReceiver>(detector, ContractName::IMediaReceiver).Receive(buffer), false);
            return;
        }
        auto& single = As<IMediaReceiverSingle2>(detector, ContractName::IMediaReceiverSingle2);
        const FrameArea area = {input_.AnyOf(numbers), input_.AnyOf(numbers), input_.AnyOf(numbers),
                                input_.AnyOf(numbers)};
        const bool hasCallback = (flags & 4) == 0;
        const std::int32_t code =
            single.ReceiveSingle(buffer, (flags & 8) != 0 ? nullptr : &area, hasCallback ? &frameDone : nullptr);
        CheckCode(code, false);
        Check(frameDone.buffers.size() <= 1 && (code != 0 || frameDone.buffers.empty() != hasCallback),
              "a wrong number of OnFrameDone calls");
    }

    /// With a working host, checks that the detectors work and that everything is released.
    void End() {
        state.failures = {};
        host.refusals.binarySetter = false;
        state.plateCount = 1;
        state.plates = {};
        state.plates[0].text[0] = '7';
        for (IDetector*& detector : detectors_) {
            if (detector == nullptr) {
                continue;
            }
            frameDone.buffers.clear();
            auto& single = As<IMediaReceiverSingle2>(detector, ContractName::IMediaReceiverSingle2);
            const std::int32_t code =
                single.ReceiveSingle(recording_host::MakeFrame(buffers, 16, 8, now_ + 40), nullptr, &frameDone);
            Check(code == 0 && frameDone.buffers.size() == 1, "a detector no longer works");
            Check(*As<IErrorInfoProvider>(detector, ContractName::IErrorInfoProvider).GetErrorMessage() == '\0',
                  "an error message without a code");
            detector->Destroy();
            detector = nullptr;
        }
        Check(buffers.made == buffers.released, "a buffer is not released exactly once");
        Check(state.raisers == 0, "a raiser is neither raised nor discarded");
        Check(host.FreeUnfinished() == 0, "a target list without an event");
        diagnostics::SetDebugLevel(0);
    }

    fuzz::Input& input_;
    std::array<IDetector*, 2> detectors_ = {};
    std::uint64_t now_ = 1000;
    bool mayBeLarge_ = true;
};

class NoOutput final : public platform::DebugOutputSink {
  public:
    void Write(const char* text) override { Touch(text); }
    void Write(const wchar_t* text) override { Check(text != nullptr, "a null text"); }
};

}  // namespace

int Recognize2(YUV420_IMG* unused, IMG* image, tagRECT*, RPLATE* plates, int flags) {
    Check(unused == nullptr && flags == 0 && image->bytesPerPixel == 3 && image->rowStride == 3 * image->width,
          "an image of the wrong format");
    [[maybe_unused]] static volatile std::uint8_t sink;
    sink = image->pixels[0];
    sink = image->pixels[std::size_t{image->rowStride} * image->height - 1];
    static constexpr std::array<RPLATE, engineRecordCount> zeroed = {};
    Check(std::memcmp(plates, zeroed.data(), sizeof zeroed) == 0, "records that are not zeroed");
    std::memcpy(plates, state.plates.data(), sizeof zeroed);
    state.failures.Passes(recognizePlace);
    return state.plateCount;
}

bool SetPlateRange(int, int) {
    return state.failures.Passes(plateRangePlace);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isReady = [] {
        static NoOutput output;
        platform::ExchangeDebugOutputSink(&output);
        host.onCall = buffers.onCall = OnCall;
        host.isRecording = false;
        InitializeModule(host.Object());
        return true;
    }();
    Check(isReady, "the module is not initialized");
    current = {data, size};
    state = {};
    buffers.made = buffers.released = 0;
    fake_processes::Reset();
    fuzz::Input input(current);
    Session(input).Run();
    return 0;
}
