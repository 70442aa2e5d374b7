#include "tests/support/recording_host.h"

#include <cstring>

#include "sdk/contract_names.h"
#include "tests/support/allocation_count.h"

namespace recording_host {

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;

using allocation_count::WithoutFailure;

// No object of this host answers contract names but where the library asks.
#define RECORDING_HOST_CONTRACT(Class)                \
    OKM8_OBJECT_DESTRUCTOR_SLOT(Class)                \
    void* QueryContract(const char*) override {       \
        return nullptr;                               \
    }                                                 \
    void* QueryContract(const char*) const override { \
        return nullptr;                               \
    }

}  // namespace

const SetValue* RecordedTarget::Find(const std::string& key) const {
    const SetValue* found = nullptr;
    for (const SetValue& value : values) {
        if (value.key == key) {
            if (found != nullptr) {
                return nullptr;
            }
            found = &value;
        }
    }
    return found;
}

namespace {

// Where a target's values go.
struct TargetRecord {
    std::mutex& mutex;
    RecordingHost& host;
    RecordedTarget record;

    void Add(SetValue value) {
        if (host.onSetValue) {
            host.onSetValue(value.key);
        }
        const std::lock_guard lock(mutex);
        record.values.push_back(std::move(value));
    }
};

template <class Bases>
struct TargetBase : Bases {
    explicit TargetBase(TargetRecord& targetRecord) : target(targetRecord) {}
    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    void SetStringValue(const char* name, const char* value) override {
        const WithoutFailure own;
        target.Add({.key = name, .text = value, .bytes = {}, .setter = 's'});
    }
    void SetDoubleValue(const char* name, double value) override {
        const WithoutFailure own;
        target.Add({.key = name, .text = {}, .real = value, .bytes = {}, .setter = 'd'});
    }
    void SetIntValue(const char* name, std::int32_t value) override {
        const WithoutFailure own;
        target.Add({.key = name, .text = {}, .number = value, .bytes = {}, .setter = 'i'});
    }
    void SetBoolValue(const char* name, bool value) override {
        const WithoutFailure own;
        target.Add({.key = name, .text = {}, .number = value ? 1 : 0, .bytes = {}, .setter = 'b'});
    }

    TargetRecord& target;
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
        const WithoutFailure own;
        const auto* const bytes = static_cast<const std::uint8_t*>(data);
        if (std::strcmp(name, PlateKey::AllTracks) == 0 && size == sizeof(TrackPointList)) {
            TrackPointList list;
            std::memcpy(&list, data, sizeof list);
            const std::lock_guard lock(target.mutex);
            for (const TrackPoint* point = list.first; point != list.last; ++point) {
                TrackPoint copy;
                std::memcpy(static_cast<void*>(&copy), point, sizeof copy);
                target.record.track.push_back(copy);
            }
        }
        target.Add({.key = name, .text = {}, .bytes = {bytes, bytes + size}, .setter = 'x'});
    }
};

struct Enumerator final : ITargetEnumeratorAdjuster {
    Enumerator(std::mutex& hostMutex, RecordingHost& owner, std::int64_t time)
        : mutex(hostMutex), host(owner), timeMs(time) {}
    RECORDING_HOST_CONTRACT(Enumerator)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    ITargetAdjuster* AddTarget(std::int32_t reserved) override {
        const WithoutFailure own;
        if (host.refusals.target) {
            return nullptr;
        }
        const std::lock_guard lock(mutex);
        records.push_back(std::make_unique<TargetRecord>(TargetRecord{mutex, host, {}}));
        records.back()->record.reserved = reserved;
        if (host.refusals.binarySetter) {
            plain.push_back(std::make_unique<PlainTarget>(*records.back()));
            return plain.back().get();
        }
        binary.push_back(std::make_unique<BinaryTarget>(*records.back()));
        return binary.back().get();
    }

    std::mutex& mutex;
    RecordingHost& host;
    std::int64_t timeMs;
    std::vector<std::unique_ptr<TargetRecord>> records;
    std::vector<std::unique_ptr<PlainTarget>> plain;
    std::vector<std::unique_ptr<BinaryTarget>> binary;
};

struct Raiser;

struct Arguments final : IEventArgsAdjuster {
    Arguments(std::mutex& hostMutex, RecordedEvent& recordedEvent) : mutex(hostMutex), event(recordedEvent) {}
    RECORDING_HOST_CONTRACT(Arguments)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    void SetObjectValue(const char* name, IContract* value) override {
        const WithoutFailure own;
        const std::lock_guard lock(mutex);
        event.objectKeys.push_back(name);
        event.objects[name] = value;
        if (std::strcmp(name, EventKey::Targets) == 0) {
            targets = static_cast<Enumerator*>(static_cast<ITargetEnumeratorAdjuster*>(value));
        }
    }

    std::mutex& mutex;
    RecordedEvent& event;
    Enumerator* targets = nullptr;
};

struct Raiser final : IDetectorEventRaiser {
    Raiser(std::mutex& hostMutex, RecordingHost& owner) : mutex(hostMutex), host(owner), arguments(mutex, event) {}
    RECORDING_HOST_CONTRACT(Raiser)
    void Unused1() override {}
    void Raise() override {
        const WithoutFailure own;
        {
            const std::lock_guard lock(mutex);
            ++event.raised;
        }
        if (host.onRaise) {
            host.onRaise(Snapshot());
        }
    }
    void Discard() override {
        const std::lock_guard lock(mutex);
        ++event.discarded;
    }
    IEventArgsAdjuster* GetEventArgs() override { return host.refusals.arguments ? nullptr : &arguments; }

    RecordedEvent Snapshot() const {
        const std::lock_guard lock(mutex);
        RecordedEvent snapshot = event;
        if (arguments.targets != nullptr) {
            snapshot.targetsTimeMs = arguments.targets->timeMs;
            for (const auto& record : arguments.targets->records) {
                snapshot.targets.push_back(record->record);
            }
        }
        return snapshot;
    }

    std::mutex& mutex;
    RecordingHost& host;
    RecordedEvent event;
    Arguments arguments;
};

struct Logger final : ILogger {
    explicit Logger(RecordingHost& owner) : host(owner) {}
    RECORDING_HOST_CONTRACT(Logger)
    void Unused1() override {}
    void Unused2() override {}
    void WriteLog(std::int32_t level, const char* text) override {
        const WithoutFailure own;
        {
            const std::lock_guard lock(mutex);
            lines.push_back(std::to_string(level) + ":" + text);
        }
        if (host.onLog) {
            host.onLog();
        }
    }
    RecordingHost& host;
    mutable std::mutex mutex;
    std::vector<std::string> lines;
};

}  // namespace

struct RecordingHost::Objects {
    struct Factory final : ITargetEnumeratorFactory {
        explicit Factory(Objects& owner) : objects(owner) {}
        RECORDING_HOST_CONTRACT(Factory)
        void Unused1() override {}
        void Unused2() override {}
        void Unused3() override {}
        void Unused4() override {}
        void Unused5() override {}
        void Unused6() override {}
        ITargetEnumeratorAdjuster* CreateTargetEnumerator(std::int64_t timeMs) override {
            const WithoutFailure own;
            if (objects.host.refusals.enumerator) {
                return nullptr;
            }
            const std::lock_guard lock(objects.mutex);
            objects.enumerators.push_back(std::make_unique<Enumerator>(objects.mutex, objects.host, timeMs));
            return objects.enumerators.back().get();
        }
        Objects& objects;
    };

    struct HostObject final : IHost {
        explicit HostObject(Objects& owner) : objects(owner) {}
        RECORDING_HOST_CONTRACT(HostObject)
        void* GetInterface(const char* contractName) override {
            const WithoutFailure own;
            {
                const std::lock_guard lock(objects.mutex);
                objects.asked.push_back(contractName);
            }
            if (std::strcmp(contractName, ContractName::ILogger) == 0) {
                return objects.host.refusals.logger ? nullptr : static_cast<ILogger*>(&objects.logger);
            }
            if (std::strcmp(contractName, ContractName::ITargetEnumeratorFactory) == 0) {
                return objects.host.refusals.factory ? nullptr
                                                     : static_cast<ITargetEnumeratorFactory*>(&objects.factory);
            }
            return nullptr;
        }
        Objects& objects;
    };

    struct PeerObject final : IDetectorPeer {
        explicit PeerObject(Objects& owner) : objects(owner) {}
        RECORDING_HOST_CONTRACT(PeerObject)
        IDetectorEventRaiser* CreateEventRaiser(IDetector* detector, const char* eventName, std::int64_t timeMs,
                                                std::int32_t kind) override {
            const WithoutFailure own;
            if (objects.host.refusals.raiser) {
                return nullptr;
            }
            const std::lock_guard lock(objects.mutex);
            objects.raisers.push_back(std::make_unique<Raiser>(objects.mutex, objects.host));
            RecordedEvent& event = objects.raisers.back()->event;
            event.detector = detector;
            event.name = eventName;
            event.timeMs = timeMs;
            event.kind = kind;
            return objects.raisers.back().get();
        }
        Objects& objects;
    };

    explicit Objects(RecordingHost& owner) : host(owner) {}

    RecordingHost& host;
    std::mutex mutex;
    std::vector<std::string> asked;
    Logger logger{host};
    Factory factory{*this};
    HostObject hostObject{*this};
    PeerObject peer{*this};
    std::vector<std::unique_ptr<Enumerator>> enumerators;
    std::vector<std::unique_ptr<Raiser>> raisers;
};

RecordingHost::RecordingHost() : objects_(std::make_unique<Objects>(*this)) {}
RecordingHost::~RecordingHost() = default;

void* RecordingHost::Object() {
    return static_cast<IHost*>(&objects_->hostObject);
}

IContract* RecordingHost::Peer() {
    return static_cast<IDetectorPeer*>(&objects_->peer);
}

std::vector<RecordedEvent> RecordingHost::Events() const {
    std::vector<const Raiser*> raisers;
    {
        const std::lock_guard lock(objects_->mutex);
        for (const auto& raiser : objects_->raisers) {
            raisers.push_back(raiser.get());
        }
    }
    std::vector<RecordedEvent> events;
    for (const Raiser* raiser : raisers) {
        events.push_back(raiser->Snapshot());
    }
    return events;
}

std::vector<std::string> RecordingHost::Log() const {
    const std::lock_guard lock(objects_->logger.mutex);
    return objects_->logger.lines;
}

std::vector<std::string> RecordingHost::AskedInterfaces() const {
    const std::lock_guard lock(objects_->mutex);
    return objects_->asked;
}

namespace {

// Freed at its first release, so that the sanitizer sees every later touch.
struct Buffer final : MFF::ICompositeBuffer {
    Buffer(BufferCounts& bufferCounts, const BufferOptions& bufferOptions)
        : counts(bufferCounts), options(bufferOptions) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
    void* QueryContract(const char* contractName) override {
        const bool isKnown = std::strcmp(contractName, ContractName::ICompositeBuffer) == 0;
        return isKnown && options.isComposite ? static_cast<MFF::ICompositeBuffer*>(this) : nullptr;
    }
    void* QueryContract(const char* contractName) const override {
        return const_cast<Buffer*>(this)->QueryContract(contractName);
    }
    std::uint64_t GetTimeStamp() override { return options.timeStamp; }
    void Unused1() override {}
    void Unused2() override {}
    void Release() override {
        ++counts.released;
        if (options.onRelease) {
            options.onRelease();
        }
        DestroyThroughSlot(this);
    }
    std::uint8_t* GetData() override { return options.pixels.empty() ? nullptr : options.pixels.data(); }
    std::uint32_t GetDataSize() override {
        return options.size >= 0 ? static_cast<std::uint32_t>(options.size)
                                 : static_cast<std::uint32_t>(options.pixels.size());
    }
    std::uint32_t GetWidth() override { return options.width; }
    std::uint32_t GetHeight() override { return options.height; }

    BufferCounts& counts;
    BufferOptions options;
};

}  // namespace

MFF::IMultimediaBuffer* MakeBuffer(BufferCounts& counts, const BufferOptions& options) {
    ++counts.made;
    return new Buffer(counts, options);
}

MFF::IMultimediaBuffer* MakeFrame(BufferCounts& counts, std::uint32_t width, std::uint32_t height,
                                  std::uint64_t timeStamp) {
    BufferOptions options;
    options.width = width;
    options.height = height;
    options.pixels.assign(std::size_t{width} * height * 3 / 2, 128);
    options.timeStamp = timeStamp;
    return MakeBuffer(counts, options);
}

}  // namespace recording_host
