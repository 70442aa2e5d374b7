// A random sequence of calls, the same for the same seed, compared with a simple model.

#include <random>
#include <stdexcept>

#include "sdk/contract_names.h"
#include "sdk/setting_keys.h"
#include "tools/validate/case.h"
#include "tools/validate/frame_model.h"
#include "tools/validate/names.h"
#include "tools/validate/session.h"

namespace validate {

namespace {

namespace SettingKey = OKM8::Analytics::SettingKey;
using recording_host::BufferOptions;
using recording_host::HostCall;
using recording_host::Operation;

constexpr int callCount = 20000;
constexpr std::size_t maxDetectors = 3;

// The standard library's distributions differ from system to system.
class Random {
  public:
    explicit Random(std::uint64_t seed) : engine_(seed) {}
    /// Returns a number below `end`.
    std::uint32_t Below(std::size_t end) { return static_cast<std::uint32_t>(engine_() % end); }
    bool OneIn(std::size_t number) { return Below(number) == 0; }
    template <class List>
    auto Of(const List& list) {
        return list[Below(std::size(list))];
    }

  private:
    std::mt19937_64 engine_;
};

class RandomCalls {
  public:
    RandomCalls(Session& session, std::uint64_t seed) : session_(session), random_(seed) {}

    void Run() {
        std::vector<ScriptedFrame> frames;
        for (int frame = 0; frame < 500; ++frame) {
            ScriptedFrame plates;
            for (std::uint32_t plate = random_.Below(4); plate > 0; --plate) {
                plates.push_back(
                    {.text = std::string(1 + random_.Below(16), static_cast<char>('A' + random_.Below(26))),
                     .x = static_cast<int>(random_.Below(2000)) - 100,
                     .y = static_cast<int>(random_.Below(2000)) - 100,
                     .confidence = static_cast<int>(random_.Below(2000))});
            }
            frames.push_back(plates);
        }
        std::string script = ScriptOf(frames, "\"repeat\":true,\"refused_ranges\":[3,50,51],");
        script.erase(script.find("\"journal\":\"journal\","), std::string("\"journal\":\"journal\",").size());
        session_.folder.SetScript(script);
        session_.onCall = [this](HostCall& call) { FailSometimes(call); };
        for (call_ = 0; call_ < callCount; ++call_) {
            try {
                CallOnce();
            } catch (const Unexpected& unexpected) {
                throw Unexpected("call " + std::to_string(call_) + ": " + unexpected.what());
            }
        }
        fails_ = false;
    }

  private:
    // Only what an event needs fails, because the outcome of the frame would depend on the rest.
    void FailSometimes(HostCall& call) {
        if (!fails_ || call.operation < Operation::GetFactory || call.operation > Operation::SetBinaryValue) {
            return;
        }
        if (random_.OneIn(6)) {
            call.isRefused = true;
            hasFailed_ = true;
        } else if (random_.OneIn(12)) {
            hasFailed_ = true;
            if (random_.OneIn(2)) {
                throw std::runtime_error("the host fails");
            }
            throw 1;
        }
    }

    void CallOnce() {
        if (detectors_.empty() || (detectors_.size() < maxDetectors && random_.OneIn(200))) {
            detectors_.push_back(session_.CreateDetector());
            return;
        }
        const std::uint32_t index = random_.Below(detectors_.size());
        const Detector detector = detectors_[index];
        switch (random_.Below(16)) {
            case 0:
                return Apply(detector);
            case 1:
            case 2:
            case 3:
                return SetSetting(detector);
            case 4:
                return SetValue(detector);
            case 5:
                return ReceiveNoPicture(detector);
            case 6:
                return Query(detector);
            case 7:
                fails_ = random_.OneIn(2);
                return;
            case 8:
                if (random_.OneIn(20)) {
                    session_.Destroy(detector);
                    detectors_.erase(detectors_.begin() + index);
                }
                if (random_.OneIn(200)) {
                    session_.DestroyAll();
                    detectors_.clear();
                    session_.Finalize();
                }
                return;
            default:
                return ReceiveFrame(detector);
        }
    }

    void Apply(const Detector& detector) {
        detector.settings->ApplySettings();
        ExpectEqual("the error code after ApplySettings", detector.errors->GetErrorCode(), 0);
    }

    void SetSetting(const Detector& detector) {
        const std::string key = random_.OneIn(8) ? random_.Of(garbage_) : std::string(random_.Of(SettingKey::All));
        const std::int32_t number = random_.OneIn(2) ? static_cast<std::int32_t>(random_.Below(101))
                                                     : static_cast<std::int32_t>(random_.Below(0x100000000));
        const bool isText = key == SettingKey::Id || key == SettingKey::Name;
        const bool isBoolean =
            key == SettingKey::UseArea || key == SettingKey::ResultReady || key == SettingKey::UseHalfCadr;
        bool isKnown = false;
        for (const char* const known : SettingKey::All) {
            isKnown = isKnown || key == known;
        }
        bool isAccepted = false;
        std::int32_t result = 0;
        switch (random_.Below(4)) {
            case 0:
                isAccepted = isText;
                result = detector.settings->SetStringValue(
                    key.c_str(), random_.OneIn(9) ? nullptr : std::string(random_.Below(100), 'x').c_str());
                break;
            case 1:
                result = detector.settings->SetDoubleValue(key.c_str(), number);
                break;
            case 2:
                isAccepted = isKnown && !isText && !isBoolean;
                result = detector.settings->SetIntValue(key.c_str(), number);
                break;
            default:
                isAccepted = isBoolean;
                result = detector.settings->SetBoolValue(key.c_str(), number % 2 == 0);
                break;
        }
        const std::int32_t expected = isAccepted ? 0 : 2816;
        ExpectEqual("the result of setting \"" + key.substr(0, 40) + "\"", result, expected);
        ExpectEqual("the error code after it", detector.errors->GetErrorCode(), expected);
        ExpectEqual("the error text after it", std::string(detector.errors->GetErrorMessage()),
                    isAccepted ? std::string() : key);
    }

    void SetValue(const Detector& detector) {
        const char* const name = random_.OneIn(10) ? nullptr : "value";
        const std::int32_t result =
            random_.OneIn(2) ? detector.single->SetStringValue(name, "text") : detector.single->SetIntValue(name, 1);
        ExpectEqual("the result of a value", result, name != nullptr ? 0 : 2816);
    }

    void Query(const Detector& detector) {
        const std::string name = random_.Of(garbage_);
        Expect(detector.settings->QueryContract(name.c_str()) == nullptr, "a garbage name returns an object");
        Expect(detector.errors->QueryContract(OKM8::ContractName::IDetector) == detector.object,
               "a part does not return its detector");
        ExpectEqual("the result of a control", detector.controller->Control2(), 0);
    }

    void ReceiveNoPicture(const Detector& detector) {
        if (random_.OneIn(2)) {
            Session::ExpectOutcome("a null buffer", detector, session_.Receive(detector, nullptr),
                                   "Input data is null");
        } else {
            BufferOptions options;
            options.isComposite = false;
            Session::ExpectOutcome("a buffer that is no picture", detector,
                                   session_.Receive(detector, session_.FrameOf(options)),
                                   "inputData is not an ICompositeBuffer");
        }
    }

    void ReceiveFrame(const Detector& detector) {
        constexpr std::array<std::uint32_t, 9> sides{1, 2, 3, 8, 17, 48, 64, 64, 100};
        BufferOptions options;
        options.width = random_.OneIn(2) ? 64 : random_.Of(sides);
        options.height = random_.OneIn(2) ? 48 : random_.Of(sides);
        if (random_.OneIn(50)) {
            options.width = 0;
        }
        const std::uint32_t pixels = options.width * options.height;
        const std::uint32_t size = pixels * std::array<std::uint32_t, 4>{2, 3, 3, 4}[random_.Below(4)] / 2 +
                                   (random_.OneIn(10) ? random_.Below(3) - 1 : 0);
        const std::string error = size > 1000000 ? zeroSize : ErrorOfFrame(options.width, options.height, size);
        if (size > 1000000 || random_.OneIn(20)) {
            options.size = size > 1000000 ? 0 : size;
        } else {
            options.pixels.assign(size, static_cast<std::uint8_t>(random_.Below(256)));
        }
        if (random_.OneIn(40)) {
            session_.time = random_.OneIn(2) ? random_.Below(100000) : session_.time + random_.Below(10000);
        }
        hasFailed_ = false;
        const OKM8::FrameArea area = {
            static_cast<std::int32_t>(random_.Below(120)) - 10, static_cast<std::int32_t>(random_.Below(120)) - 10,
            static_cast<std::int32_t>(random_.Below(120)) - 10, static_cast<std::int32_t>(random_.Below(120)) - 10};
        OKM8::MFF::IMultimediaBuffer* const buffer = session_.FrameOf(std::move(options));
        const int done = session_.Count(Operation::OnFrameDone);
        const bool isSingle = random_.OneIn(2);
        const std::int32_t result =
            isSingle ? detector.single->ReceiveSingle(buffer, random_.OneIn(3) ? nullptr : &area, &session_.frameDone)
                     : detector.receiver->Receive(buffer);
        if (!hasFailed_) {
            Session::ExpectOutcome("a frame", detector, result, error);
        }
        ExpectEqual("the number of OnFrameDone calls", session_.Count(Operation::OnFrameDone) - done,
                    isSingle && error.empty() ? 1 : 0);
    }

    Session& session_;
    Random random_;
    const std::vector<std::string> garbage_ = GarbageNames();
    std::vector<Detector> detectors_;
    int call_ = 0;
    bool fails_ = false;
    bool hasFailed_ = false;  // an operation of the host, since the last frame began
};

}  // namespace

Case RandomCase(std::uint64_t seed) {
    return {2, "20,000 random calls of seed " + std::to_string(seed) + " keep the contract",
            [seed](Session& session) { RandomCalls(session, seed).Run(); }};
}

}  // namespace validate
