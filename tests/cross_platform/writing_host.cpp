#include "tests/cross_platform/writing_host.h"

#include <cstring>
#include <string_view>
#include <utility>

#include "sdk/contract_names.h"
#include "sdk/events.h"
#include "sdk/host.h"
#include "sdk/plate_events.h"

namespace transcript {

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;

// None of these objects is asked for contracts.
#define WRITING_HOST_CONTRACT(Class)                  \
    OKM8_OBJECT_DESTRUCTOR_SLOT(Class)                \
    void* QueryContract(const char*) override {       \
        return nullptr;                               \
    }                                                 \
    void* QueryContract(const char*) const override { \
        return nullptr;                               \
    }

std::string PointText(const TrackPoint& point) {
    std::string line;
    for (const std::int32_t number : {point.x, point.y, point.width, point.height}) {
        line += std::to_string(number) + ' ';
    }
    return line + std::to_string(point.time) + ' ' + std::to_string(point.flag);
}

template <class Bases>
struct TargetBase : Bases {
    explicit TargetBase(Transcript& transcript) : written(transcript) {}
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void SetStringValue(const char* name, const char* value) override {
        written.Write(std::string("  host SetStringValue ") + name + ' ' + HexOfText(value));
    }
    void SetDoubleValue(const char* name, double value) override {
        written.Write(std::string("  host SetDoubleValue ") + name + ' ' + Hex(&value, sizeof value));
    }
    void SetIntValue(const char* name, std::int32_t value) override {
        written.Write(std::string("  host SetIntValue ") + name + ' ' + std::to_string(value));
    }
    void SetBoolValue(const char* name, bool value) override {
        written.Write(std::string("  host SetBoolValue ") + name + (value ? " true" : " false"));
    }

    Transcript& written;
};

struct PlainTarget final : TargetBase<ITargetAdjuster> {
    using TargetBase::TargetBase;
    OKM8_OBJECT_DESTRUCTOR_SLOT(PlainTarget)
};

struct TargetWithBinary : ITargetAdjuster, IBinaryAdjuster {};

struct BinaryTarget final : TargetBase<TargetWithBinary> {
    using TargetBase::TargetBase;
    OKM8_OBJECT_DESTRUCTOR_SLOT(BinaryTarget)
    void SetBinaryValue(const char* name, const void* data, std::uint32_t size) override {
        written.Write(std::string("  host SetBinaryValue ") + name + ' ' + std::to_string(size));
        if (std::strcmp(name, PlateKey::AllTracks) == 0 && size == sizeof(TrackPointList)) {
            TrackPointList list;
            std::memcpy(&list, data, sizeof list);
            for (const TrackPoint* point = list.first; point != list.last; ++point) {
                written.Write("  point " + PointText(*point));
            }
            written.Write(list.storage >= list.last ? "  end of points" : "  storage ends before the points");
        }
    }
};

}  // namespace

struct WritingHost::Objects {
    struct Enumerator final : ITargetEnumeratorAdjuster {
        explicit Enumerator(Objects& owner) : objects(owner) {}
        WRITING_HOST_CONTRACT(Enumerator)
        void Unused1() override { objects.Unexpected(); }
        void Unused2() override { objects.Unexpected(); }
        void Unused3() override { objects.Unexpected(); }
        void Unused4() override { objects.Unexpected(); }
        void Unused5() override { objects.Unexpected(); }
        void Unused6() override { objects.Unexpected(); }
        void Unused7() override { objects.Unexpected(); }
        ITargetAdjuster* AddTarget(std::int32_t reserved) override {
            objects.written.Write("  host AddTarget " + std::to_string(reserved));
            if (objects.host.refusals.target) {
                return nullptr;
            }
            if (objects.host.refusals.binarySetter) {
                objects.plainTargets.push_back(std::make_unique<PlainTarget>(objects.written));
                return objects.plainTargets.back().get();
            }
            objects.binaryTargets.push_back(std::make_unique<BinaryTarget>(objects.written));
            return objects.binaryTargets.back().get();
        }
        Objects& objects;
    };

    struct Arguments final : IEventArgsAdjuster {
        explicit Arguments(Objects& owner) : objects(owner) {}
        WRITING_HOST_CONTRACT(Arguments)
        void Unused1() override { objects.Unexpected(); }
        void Unused2() override { objects.Unexpected(); }
        void Unused3() override { objects.Unexpected(); }
        void Unused4() override { objects.Unexpected(); }
        void Unused5() override { objects.Unexpected(); }
        void Unused6() override { objects.Unexpected(); }
        void Unused7() override { objects.Unexpected(); }
        void SetObjectValue(const char* name, IContract* value) override {
            const bool isNewest = !objects.enumerators.empty() && value == objects.enumerators.back().get();
            objects.written.Write(std::string("  host SetObjectValue ") + name +
                                  (isNewest ? " newest list" : " something else"));
        }
        Objects& objects;
    };

    struct Raiser final : IDetectorEventRaiser {
        Raiser(Objects& owner, int detectorNumber) : objects(owner), detector(detectorNumber) {}
        WRITING_HOST_CONTRACT(Raiser)
        void Unused1() override { objects.Unexpected(); }
        void Raise() override {
            objects.written.Write("  host Raise");
            if (objects.host.onRaise) {
                objects.host.onRaise(detector);
            }
        }
        void Discard() override { objects.written.Write("  host Discard"); }
        IEventArgsAdjuster* GetEventArgs() override {
            objects.written.Write("  host GetEventArgs");
            return objects.host.refusals.arguments ? nullptr : &objects.arguments;
        }
        Objects& objects;
        int detector;
    };

    struct Peer final : IDetectorPeer {
        Peer(Objects& owner, int detectorNumber) : objects(owner), number(detectorNumber) {}
        WRITING_HOST_CONTRACT(Peer)
        IDetectorEventRaiser* CreateEventRaiser(IDetector* detector, const char* eventName, std::int64_t timeMs,
                                                std::int32_t kind) override {
            objects.written.Write("  host CreateEventRaiser " + std::to_string(number) +
                                  (detector != nullptr ? " " : " null ") + eventName + ' ' + std::to_string(timeMs) +
                                  ' ' + std::to_string(kind));
            if (objects.host.refusals.raiser) {
                return nullptr;
            }
            objects.raisers.push_back(std::make_unique<Raiser>(objects, number));
            return objects.raisers.back().get();
        }
        Objects& objects;
        int number;
    };

    struct Factory final : ITargetEnumeratorFactory {
        explicit Factory(Objects& owner) : objects(owner) {}
        WRITING_HOST_CONTRACT(Factory)
        void Unused1() override { objects.Unexpected(); }
        void Unused2() override { objects.Unexpected(); }
        void Unused3() override { objects.Unexpected(); }
        void Unused4() override { objects.Unexpected(); }
        void Unused5() override { objects.Unexpected(); }
        void Unused6() override { objects.Unexpected(); }
        ITargetEnumeratorAdjuster* CreateTargetEnumerator(std::int64_t timeMs) override {
            objects.written.Write("  host CreateTargetEnumerator " + std::to_string(timeMs));
            if (objects.host.refusals.enumerator) {
                return nullptr;
            }
            objects.enumerators.push_back(std::make_unique<Enumerator>(objects));
            return objects.enumerators.back().get();
        }
        Objects& objects;
    };

    struct Logger final : ILogger {
        explicit Logger(Objects& owner) : objects(owner) {}
        WRITING_HOST_CONTRACT(Logger)
        void Unused1() override { objects.Unexpected(); }
        void Unused2() override { objects.Unexpected(); }
        void WriteLog(std::int32_t level, const char* text) override {
            objects.written.Write("  host WriteLog " + std::to_string(level) + ' ' + HexOfText(text));
        }
        Objects& objects;
    };

    struct HostObject final : IHost {
        explicit HostObject(Objects& owner) : objects(owner) {}
        WRITING_HOST_CONTRACT(HostObject)
        void* GetInterface(const char* contractName) override {
            objects.written.Write(std::string("  host GetInterface ") + contractName);
            const std::string_view name = contractName;
            if (name == ContractName::ILogger && !objects.host.refusals.logger) {
                return static_cast<ILogger*>(&objects.logger);
            }
            if (name == ContractName::ITargetEnumeratorFactory && !objects.host.refusals.factory) {
                return static_cast<ITargetEnumeratorFactory*>(&objects.factory);
            }
            return nullptr;
        }
        Objects& objects;
    };

    struct FrameDoneCallback final : MFF::IFrameDoneCallback {
        explicit FrameDoneCallback(Objects& owner) : objects(owner) {}
        WRITING_HOST_CONTRACT(FrameDoneCallback)
        void OnFrameDone(MFF::IMultimediaBuffer* inputData) override {
            objects.written.Write(inputData == objects.newestBuffer ? "  host OnFrameDone newest buffer"
                                                                    : "  host OnFrameDone something else");
        }
        Objects& objects;
    };

    // Freed by its release.
    struct Buffer final : MFF::ICompositeBuffer {
        Buffer(Objects& owner, BufferOptions bufferOptions)
            : objects(owner), options(std::move(bufferOptions)), number(owner.buffersMade++) {}
        OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
        void* QueryContract(const char* contractName) override {
            objects.written.Write(Name() + "QueryContract " + contractName);
            const bool isKnown = std::strcmp(contractName, ContractName::ICompositeBuffer) == 0;
            return isKnown && options.isComposite ? static_cast<MFF::ICompositeBuffer*>(this) : nullptr;
        }
        void* QueryContract(const char* contractName) const override {
            return const_cast<Buffer*>(this)->QueryContract(contractName);
        }
        std::uint64_t GetTimeStamp() override {
            objects.written.Write(Name() + "GetTimeStamp");
            return options.timeStamp;
        }
        void Unused1() override { objects.Unexpected(); }
        void Unused2() override { objects.Unexpected(); }
        void Release() override {
            objects.written.Write(Name() + "Release");
            ++objects.buffersReleased;
            DestroyThroughSlot(this);
        }
        std::uint8_t* GetData() override {
            objects.written.Write(Name() + "GetData");
            return options.hasData ? options.pixels.data() : nullptr;
        }
        std::uint32_t GetDataSize() override {
            objects.written.Write(Name() + "GetDataSize");
            return options.size;
        }
        std::uint32_t GetWidth() override {
            objects.written.Write(Name() + "GetWidth");
            return options.width;
        }
        std::uint32_t GetHeight() override {
            objects.written.Write(Name() + "GetHeight");
            return options.height;
        }
        std::string Name() const { return "  buffer " + std::to_string(number) + ' '; }

        Objects& objects;
        BufferOptions options;
        int number;
    };

    Objects(Transcript& transcript, WritingHost& owner) : written(transcript), host(owner) {}

    void Unexpected() { written.Write("  host: an operation that nobody calls"); }

    Transcript& written;
    WritingHost& host;
    Logger logger{*this};
    Factory factory{*this};
    HostObject hostObject{*this};
    Arguments arguments{*this};
    FrameDoneCallback frameDone{*this};
    std::vector<std::unique_ptr<Peer>> peers;
    std::vector<std::unique_ptr<Raiser>> raisers;
    std::vector<std::unique_ptr<Enumerator>> enumerators;
    std::vector<std::unique_ptr<PlainTarget>> plainTargets;
    std::vector<std::unique_ptr<BinaryTarget>> binaryTargets;
    MFF::IMultimediaBuffer* newestBuffer = nullptr;
    int buffersMade = 0;
    int buffersReleased = 0;
};

WritingHost::WritingHost(Transcript& written) : objects(std::make_unique<Objects>(written, *this)) {}
WritingHost::~WritingHost() = default;

void* WritingHost::Object() {
    return static_cast<IHost*>(&objects->hostObject);
}

IContract* WritingHost::NewPeer(int detectorNumber) {
    objects->peers.push_back(std::make_unique<Objects::Peer>(*objects, detectorNumber));
    return static_cast<IDetectorPeer*>(objects->peers.back().get());
}

IContract* WritingHost::FrameDone() {
    return static_cast<MFF::IFrameDoneCallback*>(&objects->frameDone);
}

MFF::IMultimediaBuffer* WritingHost::NewBuffer(BufferOptions options) {
    objects->newestBuffer = new Objects::Buffer(*objects, std::move(options));
    return objects->newestBuffer;
}

int WritingHost::BuffersMade() const {
    return objects->buffersMade;
}

int WritingHost::BuffersReleased() const {
    return objects->buffersReleased;
}

}  // namespace transcript
