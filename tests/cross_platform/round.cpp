#include "tests/cross_platform/round.h"

#include <chrono>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sdk/contract_names.h"
#include "tests/cross_platform/random.h"
#include "tests/cross_platform/random_script.h"
#include "tests/cross_platform/transcript.h"
#include "tests/plugin/plugin.h"
#include "tests/support/servers.h"
#include "tests/support/wait_until.h"
#include "tools/validate/recording_host.h"

namespace transcript {

namespace {

namespace fs = std::filesystem;
namespace ContractName = OKM8::ContractName;
using OKM8::Analytics::IDetector;
using recording_host::BufferOptions;
using recording_host::HostCall;
using recording_host::Operation;

constexpr char journalName[] = "journal.jsonl";
constexpr std::uint64_t seedFactor = 0x9E3779B97F4A7C15;

// The first poll is immediate, the second is five seconds later: by then polling must have ended.
constexpr std::chrono::milliseconds maxPollingTime(4500);
constexpr int attempts = 5;

// The first detector, if it finds no server, causes three lines by its restart and four by the first poll.
constexpr std::size_t launcherLinesOfTheFirstDetector = 7;

// The round took so long that it may include a second poll.
struct TooSlow {};

enum class Server {
    Missing,   // there is no program to start
    Stranger,  // one runs before the library is loaded
    Real,      // the program exists after the first detector is created
};

struct Detector {
    IDetector* object = nullptr;
    OKM8::Analytics::IMediaReceiver* receiver = nullptr;
    OKM8::Analytics::IMediaReceiverSingle2* single = nullptr;
    OKM8::IAsyncAdjuster* adjuster = nullptr;
    OKM8::IErrorInfoProvider* errors = nullptr;
    OKM8::Analytics::IMediaReceiverController* controller = nullptr;
    int number = 0;
};

std::string ReadFile(const fs::path& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
}

struct Geometry {
    std::uint32_t width;
    std::uint32_t height;
};

class Round {
  public:
    explicit Round(std::uint64_t seed) : random(seed * seedFactor + 1) {
        host.onCall = buffers.onCall = frameDone.onCall = [this](HostCall& call) { HandleCall(call); };
        PrepareServer();
        PrepareScript();
    }

    ~Round() {
        plugin.reset();
        servers::KillAll();
        servers::Remove();
    }

    Round(const Round&) = delete;
    Round& operator=(const Round&) = delete;

    std::string Play() {
        plugin = std::make_unique<plugin_test::Plugin>();
        Initialize();
        CreateDetector();
        for (int frame = 0; frame < frames; ++frame) {
            CallBetweenFrames();
            SendFrame();
        }
        while (!detectors.empty()) {
            DestroyDetector(detectors.size() - 1);
        }
        Finish();
        plugin->Unload();
        if (plugin_test::IsLoaded(plugin_test::LibraryFile())) {
            throw std::runtime_error("the library is still loaded");
        }
        written.Write("buffers made " + std::to_string(buffers.made) + " released " + std::to_string(buffers.released));
        written.Write("engine");
        return written.Text() + ReadFile(folder.Path() / journalName);
    }

  private:
    void PrepareServer() {
        servers::RequireNoForeignServer();
        servers::Remove();
        const std::uint64_t draw = random.Below(100);
        if (draw < 3) {
            server = Server::Stranger;
            servers::Place(VEXLANE_SERVER_PROGRAM);
            stranger = servers::StartForeignServer();
            if (!WaitUntil([] { return servers::Running().size() == 1; })) {
                throw std::runtime_error("the server cannot be started");
            }
        } else if (draw < 6) {
            server = Server::Real;
        }
    }

    void PrepareScript() {
        geometry = RandomGeometry();
        const bool isLarge = geometry.width * geometry.height > 100'000;
        frames = isLarge ? random.Between(5, 16) : random.Between(5, 50);
        const std::string script = RandomScript(
            random, {frames, static_cast<int>(geometry.width), static_cast<int>(geometry.height), journalName});
        folder.SetScript(script);
        written.Write("script " + script);
        time = random.Pick<std::uint64_t>({0, 1, 1000, 1'700'000'000'000, std::uint64_t{1} << 32,
                                           (std::uint64_t{1} << 63) - 5000,
                                           std::numeric_limits<std::uint64_t>::max() - 5000});
        framePeriod = random.Pick<std::uint64_t>({40, 40, 40, 100, 500, 1000});
        timeJumpPercent = random.Pick<unsigned>({0, 3, 15});
    }

    Geometry RandomGeometry() {
        return random.Pick<Geometry>({{64, 48},
                                      {64, 48},
                                      {160, 120},
                                      {320, 240},
                                      {640, 480},
                                      {640, 480},
                                      {720, 576},
                                      {639, 480},
                                      {640, 479},
                                      {16, 600},
                                      {33, 17},
                                      {2, 2},
                                      {1, 1},
                                      {7, 300}});
    }

    // The module

    void Initialize() {
        // Without trace lines the end of the first poll is unknown, and the poll would race with placing the program.
        const char* const level = server == Server::Real
                                      ? random.Pick<const char*>({"1", "2", "-5"})
                                      : random.Pick<const char*>({"0", "1", "1", "1", "2", "7", "-5", "1abc", "abc"});
        folder.SetDebugLevel(level);
        isVerbose = std::atoi(level) != 0;
        const std::int32_t result = plugin->InitializeModule(host.Object());
        written.Write(std::string("call InitializeModule level ") + level + " -> " + std::to_string(result));
        module = plugin->GetModule();
        written.Write(std::string("call GetModule -> ") + (module != nullptr ? "module" : "null"));
    }

    void Finish() {
        written.Write("call FinalizeModule");
        plugin->FinalizeModule();
    }

    void CreateDetector() {
        RandomRefusals();
        written.Write("call CreateDetector " + std::to_string(nextNumber));
        Detector made;
        made.number = nextNumber++;
        const bool isFirst = !polling && !isPollingOver;
        if (isFirst) {
            polling = std::chrono::steady_clock::now();
        }
        made.object = module->CreateDetector(nullptr, host.Peer(made.number));
        if (isFirst && isVerbose && server != Server::Stranger) {
            written.AppendUnorderedLines(launcherLinesOfTheFirstDetector);
        }
        if (isFirst && server == Server::Real) {
            servers::Place(VEXLANE_SERVER_PROGRAM);
        }
        const auto query = [&](auto*& face, const char* name) {
            face = static_cast<std::remove_reference_t<decltype(face)>>(made.object->QueryContract(name));
        };
        query(made.receiver, ContractName::IMediaReceiver);
        query(made.single, ContractName::IMediaReceiverSingle2);
        query(made.adjuster, ContractName::IAsyncAdjuster);
        query(made.errors, ContractName::IErrorInfoProvider);
        query(made.controller, ContractName::IMediaReceiverController);
        WriteErrors(made);
        detectors.push_back(made);
        const int settings = random.Between(0, 6);
        for (int i = 0; i < settings; ++i) {
            SetEffectiveValue(detectors.back());
        }
        Apply(detectors.back());
    }

    void DestroyDetector(std::size_t index) {
        const Detector ended = detectors[index];
        detectors.erase(detectors.begin() + static_cast<std::ptrdiff_t>(index));
        written.Write("call Destroy " + std::to_string(ended.number));
        ended.object->Destroy();
        if (polling && std::chrono::steady_clock::now() - *polling > maxPollingTime) {
            throw TooSlow();
        }
        polling.reset();
        isPollingOver = true;
    }

    // Calls between frames

    void CallBetweenFrames() {
        if (detectors.empty() || (detectors.size() < 3 && random.Chance(2))) {
            CreateDetector();
        }
        if (random.Chance(8)) {
            RandomRefusals();
        }
        if (random.Chance(15)) {
            SetEffectiveValue(AnyDetector());
        }
        if (random.Chance(5)) {
            SetAnyValue(AnyDetector());
        }
        if (random.Chance(8)) {
            Apply(AnyDetector());
        }
        if (random.Chance(5)) {
            SetSingleValue(AnyDetector());
        }
        if (random.Chance(3)) {
            QueryInterfaces(AnyDetector());
        }
        if (random.Chance(3)) {
            const Geometry other = RandomGeometry();
            geometry = other;
        }
        if (random.Chance(2)) {
            DestroyDetector(random.Below(detectors.size()));
            if (detectors.empty() && random.Chance(50)) {
                Finish();
                Initialize();
            }
            if (detectors.empty()) {
                CreateDetector();
            }
        }
    }

    void RandomRefusals() {
        recording_host::Refusals& refusals = host.refusals;
        refusals = {};
        if (random.Chance(75)) {
            return;
        }
        for (bool* refused : {&refusals.logger, &refusals.factory, &refusals.enumerator, &refusals.raiser,
                              &refusals.arguments, &refusals.target, &refusals.binarySetter}) {
            *refused = random.Chance(15);
        }
    }

    Detector& AnyDetector() { return detectors[random.Below(detectors.size())]; }

    void WriteErrors(const Detector& detector) {
        const std::int32_t code = detector.errors->GetErrorCode();
        const std::string text = detector.errors->GetErrorMessage();
        written.Write("  errors " + std::to_string(detector.number) + ' ' + std::to_string(code) + ' ' + Escape(text));
    }

    void WriteOutcome(const Detector& detector, std::int32_t result) {
        written.Write("  answer " + std::to_string(result));
        if (random.Chance(60)) {
            WriteErrors(detector);
        }
    }

    void Apply(const Detector& detector) {
        written.Write("call ApplySettings " + std::to_string(detector.number));
        detector.adjuster->ApplySettings();
        WriteErrors(detector);
    }

    std::int32_t RandomNumber() {
        if (random.Chance(70)) {
            return random.Between(-10, 130);
        }
        return random.Pick<std::int32_t>({0, 1, -1, std::numeric_limits<std::int32_t>::max(),
                                          std::numeric_limits<std::int32_t>::min(), 100, 101, 30'000'000});
    }

    std::string RandomText() {
        return random.Pick<const char*>({"", "7", "12", "a name", "\xE4\xBA\xAC", "%1% %s", "-1", "99999999999"});
    }

    template <class Value>
    void Set(Detector& detector, const char* name, Value value,
             std::int32_t (OKM8::IAsyncAdjuster::*set)(const char*, Value), const std::string& shown) {
        written.Write("call set " + std::to_string(detector.number) + ' ' + HexOfText(name) + ' ' + shown);
        const std::int32_t result = (detector.adjuster->*set)(name, value);
        WriteOutcome(detector, result);
    }

    // Sets a value that affects plates.
    void SetEffectiveValue(Detector& detector) {
        using OKM8::IAsyncAdjuster;
        switch (random.Below(8)) {
            case 0:
            case 1: {
                const bool value = random.Chance(70);
                Set(detector, "result_ready", value, &IAsyncAdjuster::SetBoolValue, value ? "true" : "false");
                const std::int32_t count = random.Between(-1, 9);
                Set(detector, "result_rec_count", count, &IAsyncAdjuster::SetIntValue, std::to_string(count));
                SetWaitTime(detector);
                return;
            }
            case 2:
                SetWaitTime(detector);
                return;
            case 3: {
                const bool value = random.Chance(60);
                Set(detector, "use_area", value, &IAsyncAdjuster::SetBoolValue, value ? "true" : "false");
                return;
            }
            case 4: {
                const bool value = random.Chance(70);
                Set(detector, "use_half_cadr", value, &IAsyncAdjuster::SetBoolValue, value ? "true" : "false");
                return;
            }
            case 5: {
                const std::string value = RandomText();
                const char* const name = random.Pick<const char*>({"id", "name"});
                Set(detector, name, value.c_str(), &IAsyncAdjuster::SetStringValue, Hex(value));
                return;
            }
            default: {
                const char* const name = random.Pick<const char*>(
                    {"area_left", "area_top", "area_right", "area_bottom", "zone_width", "zone_width_min"});
                const std::int32_t value = RandomNumber();
                Set(detector, name, value, &IAsyncAdjuster::SetIntValue, std::to_string(value));
                return;
            }
        }
    }

    // With 0 seconds, every plate is reported at once.
    void SetWaitTime(Detector& detector) {
        const std::int32_t seconds = random.Chance(10) ? random.Between(-1, 0) : random.Between(1, 20);
        Set(detector, "result_wait_time", seconds, &OKM8::IAsyncAdjuster::SetIntValue, std::to_string(seconds));
    }

    // Sets any name with any type.
    void SetAnyValue(Detector& detector) {
        using OKM8::IAsyncAdjuster;
        const char* const name = random.Pick<const char*>({"id", "name", "use_area", "area_top", "zone_width",
                                                           "result_ready", "no_such", "", "\xBE\xA9", "ID", nullptr});
        switch (random.Below(4)) {
            case 0: {
                const char* const value = random.Pick<const char*>({"text", "", nullptr, "\xFF\xFE"});
                Set(detector, name, value, &IAsyncAdjuster::SetStringValue, "text " + HexOfText(value));
                return;
            }
            case 1:
                Set(detector, name, 1.5, &IAsyncAdjuster::SetDoubleValue, "1.5");
                return;
            case 2: {
                const std::int32_t value = RandomNumber();
                Set(detector, name, value, &IAsyncAdjuster::SetIntValue, std::to_string(value));
                return;
            }
            default:
                Set(detector, name, true, &IAsyncAdjuster::SetBoolValue, "true");
                return;
        }
    }

    void SetSingleValue(Detector& detector) {
        const char* const name = random.Pick<const char*>({"anything", "id", "", nullptr});
        written.Write("call set single " + std::to_string(detector.number) + ' ' + HexOfText(name));
        std::int32_t result = 0;
        switch (random.Below(4)) {
            case 0:
                result = detector.single->SetStringValue(name, random.Pick<const char*>({"text", nullptr}));
                break;
            case 1:
                result = detector.single->SetDoubleValue(name, -0.25);
                break;
            case 2:
                result = detector.single->SetIntValue(name, 7);
                break;
            default:
                result = detector.single->SetBoolValue(name, true);
                break;
        }
        WriteOutcome(detector, result);
    }

    void QueryInterfaces(Detector& detector) {
        const char* const name = random.Pick<const char*>(
            {ContractName::IContract, ContractName::IDetector, ContractName::IMediaReceiverSingle,
             ContractName::IErrorInfoProvider, ContractName::IModule, "", nullptr, "struct OKM8::idetector"});
        void* const found = detector.object->QueryContract(name);
        // The interfaces' offsets are the same on all systems, because the members are the same.
        const std::ptrdiff_t place =
            found != nullptr ? static_cast<char*>(found) - reinterpret_cast<char*>(detector.object) : -1;
        written.Write("call QueryContract " + HexOfText(name) + " -> " + (place < 0 ? "null" : "part"));
        written.Write("call Control -> " + std::to_string(detector.controller->Control3()));
        WriteErrors(detector);
    }

    // Frames

    void SendFrame() {
        Detector& detector = AnyDetector();
        StepTime();
        reactsToEvents = random.Chance(10);
        if (random.Chance(1)) {
            written.Write("call Receive " + std::to_string(detector.number) + " null");
            const std::int32_t result = detector.receiver->Receive(nullptr);
            WriteOutcome(detector, result);
            return;
        }
        BufferOptions options = RandomBuffer();
        const std::string shown = std::to_string(options.width) + 'x' + std::to_string(options.height) + " size " +
                                  std::to_string(options.size) + " time " + std::to_string(options.timeStamp);
        newestBuffer = recording_host::MakeBuffer(buffers, std::move(options));
        if (random.Chance(80)) {
            written.Write("call Receive " + std::to_string(detector.number) + ' ' + shown);
            const std::int32_t result = detector.receiver->Receive(newestBuffer);
            WriteOutcome(detector, result);
            return;
        }
        OKM8::FrameArea area = {};
        std::string shownArea;
        for (std::int32_t* number : {&area.x, &area.y, &area.width, &area.height}) {
            *number = RandomNumber();
            shownArea += ' ' + std::to_string(*number);
        }
        const bool hasArea = random.Chance(85);
        const bool hasCallBack = random.Chance(70);
        written.Write("call ReceiveSingle " + std::to_string(detector.number) + ' ' + shown +
                      (hasArea ? " area" + shownArea : " no area"));
        const std::int32_t result =
            detector.single->ReceiveSingle(newestBuffer, hasArea ? &area : nullptr, hasCallBack ? &frameDone : nullptr);
        WriteOutcome(detector, result);
    }

    void StepTime() {
        if (!random.Chance(timeJumpPercent)) {
            time += framePeriod;
            return;
        }
        switch (random.Below(6)) {
            case 0:  // the same time again
                return;
            case 1:
                time -= random.Below(5000);
                return;
            case 2:
                time += 3000;
                return;
            case 3:
                time += 3001 + random.Below(2000);
                return;
            case 4:
                time = random.Number();
                return;
            default:
                time += random.Below(1500);
                return;
        }
    }

    BufferOptions RandomBuffer() {
        BufferOptions options = {};
        options.width = geometry.width;
        options.height = geometry.height;
        const std::uint32_t pixelCount = options.width * options.height;
        const bool isOdd = options.width % 2 != 0 || options.height % 2 != 0;
        std::uint32_t size = pixelCount;
        bool hasData = true;
        if (!isOdd || random.Chance(20)) {
            size = random.Pick<std::uint32_t>({pixelCount, pixelCount * 3 / 2, pixelCount * 3 / 2, pixelCount * 2});
        }
        options.timeStamp = time;
        if (random.Chance(3)) {
            options.isComposite = false;
        } else if (random.Chance(3)) {
            size = random.Pick<std::uint32_t>({0, 1, pixelCount - 1, pixelCount + 1, pixelCount * 3});
        } else if (random.Chance(2)) {
            *random.Pick<std::uint32_t*>({&options.width, &options.height, &size}) = 0;
        } else if (random.Chance(1)) {
            // A product beyond 32 bits.
            options.width = 65536;
            options.height = 65537;
        } else if (random.Chance(2)) {
            hasData = false;
        }
        options.size = size;
        options.pixels.resize(size);
        FillPixels(options);
        if (!hasData) {
            options.pixels.clear();
        }
        return options;
    }

    void FillPixels(BufferOptions& options) {
        const std::uint64_t kind = random.Below(3);
        const std::uint8_t start = random.Byte();
        std::uint64_t draw = 0;
        for (std::size_t i = 0; i < options.pixels.size(); ++i) {
            if (kind == 0) {
                options.pixels[i] = static_cast<std::uint8_t>(start + i * 7 + i / 3);
                continue;
            }
            draw = i % 8 == 0 ? random.Number() : draw >> 8;
            const auto byte = static_cast<std::uint8_t>(draw);
            // Kind 1 has any values, the last kind mostly those at the ends of the range.
            options.pixels[i] = kind == 1 ? byte : static_cast<std::uint8_t>(byte % 2 == 0 ? 0 : 255 - byte % 8 * 16);
        }
    }

    void HandleCall(HostCall& call) {
        call.isNewest = call.isNewest || (call.operation == Operation::OnFrameDone && call.object == newestBuffer);
        written.Write(call);
        if (call.operation == Operation::Raise && reactsToEvents) {
            ReactToEvent(call.owner);
        }
    }

    // From inside an event only setters and the error state may be called.
    void ReactToEvent(int number) {
        for (Detector& detector : detectors) {
            if (detector.number == number) {
                WriteErrors(detector);
                SetAnyValue(detector);
            }
        }
    }

    Random random;
    plugin_test::TestFolder folder;
    plugin_test::DebugLines lines;
    Transcript written{lines};
    recording_host::RecordingHost host;
    recording_host::BufferCounts buffers;
    recording_host::RecordingFrameDone frameDone;
    OKM8::MFF::IMultimediaBuffer* newestBuffer = nullptr;
    bool reactsToEvents = false;
    std::unique_ptr<plugin_test::Plugin> plugin;
    OKM8::Analytics::IModule* module = nullptr;
    std::vector<Detector> detectors;
    Server server = Server::Missing;
    std::unique_ptr<test_support::ChildProcess> stranger;
    bool isVerbose = false;
    std::optional<std::chrono::steady_clock::time_point> polling;  // start
    bool isPollingOver = false;
    int nextNumber = 0;
    int frames = 0;
    Geometry geometry = {};
    std::uint64_t time = 0;
    std::uint64_t framePeriod = 40;
    unsigned timeJumpPercent = 0;  // percent of frames
};

}  // namespace

std::string PlayRound(std::uint64_t seed) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
        try {
            return "seed " + std::to_string(seed) + "\n" + Round(seed).Play();
        } catch (const TooSlow&) {
            // The machine is busy: try again.
        }
    }
    throw std::runtime_error("seed " + std::to_string(seed) + ": a round does not end before the second poll");
}

}  // namespace transcript
