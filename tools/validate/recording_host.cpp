#include "tools/validate/recording_host.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "sdk/contract_names.h"
#include "tools/validate/own_work.h"

namespace recording_host {

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;

using allocation_count::WithoutFailure;

// The objects of this host return interfaces only where the library queries them.
#define RECORDING_HOST_CONTRACT(Class)                \
    OKM8_OBJECT_DESTRUCTOR_SLOT(Class)                \
    void* QueryContract(const char*) override {       \
        return nullptr;                               \
    }                                                 \
    void* QueryContract(const char*) const override { \
        return nullptr;                               \
    }

// Calls the hook. Returns whether the host carries out the call.
bool CallHook(const OnCall& onCall, HostCall call) {
    if (onCall) {
        onCall(call);
    }
    return !call.isRefused;
}

}  // namespace

bool HostCall::Sets(std::string_view key) const {
    switch (operation) {
        case Operation::SetStringValue:
        case Operation::SetDoubleValue:
        case Operation::SetIntValue:
        case Operation::SetBoolValue:
        case Operation::SetBinaryValue:
            return name == key;
        default:
            return false;
    }
}

OnCall On(Operation operation, std::function<void()> action) {
    return [operation, action = std::move(action)](const HostCall& call) {
        if (call.operation == operation) {
            action();
        }
    };
}

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

struct RecordingHost::Objects {
    struct Target;

    template <class Bases>
    struct Setters : Bases {
        explicit Setters(Target& owner) : target(owner) {}
        void* QueryContract(const char*) override { return nullptr; }
        void* QueryContract(const char*) const override { return nullptr; }
        void SetStringValue(const char* name, const char* value) override {
            target.Set('s', {.operation = Operation::SetStringValue, .name = name, .text = value});
        }
        void SetDoubleValue(const char* name, double value) override {
            target.Set('d', {.operation = Operation::SetDoubleValue, .name = name, .real = value});
        }
        void SetIntValue(const char* name, std::int32_t value) override {
            target.Set('i', {.operation = Operation::SetIntValue, .name = name, .number = value});
        }
        void SetBoolValue(const char* name, bool value) override {
            target.Set('b', {.operation = Operation::SetBoolValue, .name = name, .number = value ? 1 : 0});
        }

        Target& target;
    };

    struct PlainTarget final : Setters<ITargetAdjuster> {
        using Setters<ITargetAdjuster>::Setters;
        OKM8_OBJECT_DESTRUCTOR_SLOT(PlainTarget)
    };

    struct TargetWithBinary : ITargetAdjuster, IBinaryAdjuster {};

    struct BinaryTarget final : Setters<TargetWithBinary> {
        using Setters<TargetWithBinary>::Setters;
        OKM8_OBJECT_DESTRUCTOR_SLOT(BinaryTarget)
        void SetBinaryValue(const char* name, const void* data, std::uint32_t size) override {
            target.Set('x', {.operation = Operation::SetBinaryValue, .name = name, .data = data, .size = size});
        }
    };

    // One target with two interface objects, of which the library gets one.
    struct Target {
        Target(Objects& owner, std::int32_t reserved) : objects(owner) { record.reserved = reserved; }

        void Set(char setter, const HostCall& call) {
            if (objects.host.isRecording) {
                const WithoutFailure own;
                const std::lock_guard lock(objects.mutex);
                Record(setter, call);
            }
            objects.CallHook(call);
        }

        void Record(char setter, const HostCall& call) {
            const auto* const bytes = static_cast<const std::uint8_t*>(call.data);
            record.values.push_back({.key = call.name,
                                     .text = call.text == nullptr ? "" : call.text,
                                     .number = call.number,
                                     .real = call.real,
                                     .bytes = {bytes, bytes + call.size},
                                     .setter = setter});
            if (std::strcmp(call.name, PlateKey::AllTracks) == 0 && call.size == sizeof(TrackPointList)) {
                TrackPointList list;
                std::memcpy(&list, call.data, sizeof list);
                for (const TrackPoint* point = list.first; point != list.last; ++point) {
                    TrackPoint copy;
                    std::memcpy(static_cast<void*>(&copy), point, sizeof copy);
                    record.track.push_back(copy);
                }
            }
        }

        Objects& objects;
        RecordedTarget record;
        PlainTarget plain{*this};
        BinaryTarget binary{*this};
    };

    struct Enumerator final : ITargetEnumeratorAdjuster {
        Enumerator(Objects& owner, std::int64_t time) : objects(owner), timeMs(time) {}
        RECORDING_HOST_CONTRACT(Enumerator)
        void Unused1() override { objects.CallUnusedHook(); }
        void Unused2() override { objects.CallUnusedHook(); }
        void Unused3() override { objects.CallUnusedHook(); }
        void Unused4() override { objects.CallUnusedHook(); }
        void Unused5() override { objects.CallUnusedHook(); }
        void Unused6() override { objects.CallUnusedHook(); }
        void Unused7() override { objects.CallUnusedHook(); }
        ITargetAdjuster* AddTarget(std::int32_t reserved) override {
            const Refusals& refused = objects.host.refusals;
            if (!objects.CallHook(
                    {.operation = Operation::AddTarget, .number = reserved, .isRefused = refused.target})) {
                return nullptr;
            }
            const WithoutFailure own;
            const std::lock_guard lock(objects.mutex);
            Target& target = *targets.emplace_back(std::make_unique<Target>(objects, reserved));
            return refused.binarySetter ? static_cast<ITargetAdjuster*>(&target.plain) : &target.binary;
        }

        Objects& objects;
        std::int64_t timeMs;
        std::vector<std::unique_ptr<Target>> targets;
    };

    struct Raiser;

    struct Arguments final : IEventArgsAdjuster {
        explicit Arguments(Raiser& owner) : raiser(owner) {}
        RECORDING_HOST_CONTRACT(Arguments)
        void Unused1() override { raiser.objects.CallUnusedHook(); }
        void Unused2() override { raiser.objects.CallUnusedHook(); }
        void Unused3() override { raiser.objects.CallUnusedHook(); }
        void Unused4() override { raiser.objects.CallUnusedHook(); }
        void Unused5() override { raiser.objects.CallUnusedHook(); }
        void Unused6() override { raiser.objects.CallUnusedHook(); }
        void Unused7() override { raiser.objects.CallUnusedHook(); }
        void SetObjectValue(const char* name, IContract* value) override { raiser.Attach(name, value); }

        Raiser& raiser;
    };

    struct Raiser final : IDetectorEventRaiser {
        Raiser(Objects& owner, int peerNumber) : objects(owner), peer(peerNumber) {}
        RECORDING_HOST_CONTRACT(Raiser)
        void Unused1() override { objects.CallUnusedHook(); }
        void Raise() override { End(Operation::Raise, event.raised); }
        void Discard() override { End(Operation::Discard, event.discarded); }
        IEventArgsAdjuster* GetEventArgs() override {
            return objects.CallHook({.operation = Operation::GetEventArgs,
                                     .owner = peer,
                                     .isRefused = objects.host.refusals.arguments})
                       ? &arguments
                       : nullptr;
        }

        void Attach(const char* name, IContract* value) {
            bool isNewest = false;
            {
                const WithoutFailure own;
                const std::lock_guard lock(objects.mutex);
                isNewest = !objects.enumerators.empty() && value == objects.enumerators.back().get();
                if (objects.host.isRecording) {
                    event.objectKeys.push_back(name);
                    event.objects[name] = value;
                }
                if (std::strcmp(name, EventKey::Targets) == 0) {
                    targets = static_cast<Enumerator*>(static_cast<ITargetEnumeratorAdjuster*>(value));
                }
            }
            objects.CallHook({.operation = Operation::SetObjectValue,
                              .owner = peer,
                              .name = name,
                              .object = value,
                              .isNewest = isNewest});
        }

        void End(Operation operation, int& count) {
            std::unique_ptr<Raiser> ended;
            std::unique_ptr<Enumerator> endedTargets;
            {
                const std::lock_guard lock(objects.mutex);
                ++count;
                if (!objects.host.isRecording) {
                    ended = TakeOut(objects.raisers, this);
                    endedTargets = TakeOut(objects.enumerators, targets);
                }
            }
            objects.CallHook({.operation = operation, .owner = peer});
        }

        RecordedEvent Snapshot() const {
            const std::lock_guard lock(objects.mutex);
            RecordedEvent snapshot = event;
            if (targets != nullptr) {
                snapshot.targetsTimeMs = targets->timeMs;
                for (const auto& target : targets->targets) {
                    snapshot.targets.push_back(target->record);
                }
            }
            return snapshot;
        }

        Objects& objects;
        const int peer;
        RecordedEvent event;
        Arguments arguments{*this};
        Enumerator* targets = nullptr;
    };

    struct Logger final : ILogger {
        explicit Logger(Objects& owner) : objects(owner) {}
        RECORDING_HOST_CONTRACT(Logger)
        void Unused1() override { objects.CallUnusedHook(); }
        void Unused2() override { objects.CallUnusedHook(); }
        void WriteLog(std::int32_t level, const char* text) override {
            if (objects.host.isRecording) {
                const WithoutFailure own;
                const std::lock_guard lock(objects.mutex);
                objects.lines.push_back(std::to_string(level) + ":" + text);
            }
            objects.CallHook({.operation = Operation::WriteLog, .text = text, .number = level});
        }
        Objects& objects;
    };

    struct Factory final : ITargetEnumeratorFactory {
        explicit Factory(Objects& owner) : objects(owner) {}
        RECORDING_HOST_CONTRACT(Factory)
        void Unused1() override { objects.CallUnusedHook(); }
        void Unused2() override { objects.CallUnusedHook(); }
        void Unused3() override { objects.CallUnusedHook(); }
        void Unused4() override { objects.CallUnusedHook(); }
        void Unused5() override { objects.CallUnusedHook(); }
        void Unused6() override { objects.CallUnusedHook(); }
        ITargetEnumeratorAdjuster* CreateTargetEnumerator(std::int64_t timeMs) override {
            if (!objects.CallHook({.operation = Operation::CreateTargetEnumerator,
                                   .number = timeMs,
                                   .isRefused = objects.host.refusals.enumerator})) {
                return nullptr;
            }
            const WithoutFailure own;
            const std::lock_guard lock(objects.mutex);
            return objects.enumerators.emplace_back(std::make_unique<Enumerator>(objects, timeMs)).get();
        }
        Objects& objects;
    };

    struct HostObject final : IHost {
        explicit HostObject(Objects& owner) : objects(owner) {}
        RECORDING_HOST_CONTRACT(HostObject)
        void* GetInterface(const char* contractName) override {
            if (objects.host.isRecording) {
                const WithoutFailure own;
                const std::lock_guard lock(objects.mutex);
                objects.requested.push_back(contractName);
            }
            const Refusals& refused = objects.host.refusals;
            if (std::strcmp(contractName, ContractName::ILogger) == 0) {
                return Provide(Operation::GetLogger, contractName, refused.logger,
                               static_cast<ILogger*>(&objects.logger));
            }
            if (std::strcmp(contractName, ContractName::ITargetEnumeratorFactory) == 0) {
                return Provide(Operation::GetFactory, contractName, refused.factory,
                               static_cast<ITargetEnumeratorFactory*>(&objects.factory));
            }
            return Provide(Operation::GetOther, contractName, true, nullptr);
        }
        void* Provide(Operation operation, const char* contractName, bool isRefused, void* found) {
            return objects.CallHook({.operation = operation, .name = contractName, .isRefused = isRefused}) ? found
                                                                                                            : nullptr;
        }
        Objects& objects;
    };

    struct PeerObject final : IDetectorPeer {
        PeerObject(Objects& owner, int peerNumber) : objects(owner), number(peerNumber) {}
        RECORDING_HOST_CONTRACT(PeerObject)
        IDetectorEventRaiser* CreateEventRaiser(IDetector* detector, const char* eventName, std::int64_t timeMs,
                                                std::int32_t kind) override {
            if (!objects.CallHook({.operation = Operation::CreateEventRaiser,
                                   .owner = number,
                                   .name = eventName,
                                   .number = timeMs,
                                   .kind = kind,
                                   .object = detector,
                                   .isRefused = objects.host.refusals.raiser})) {
                return nullptr;
            }
            const WithoutFailure own;
            const std::lock_guard lock(objects.mutex);
            Raiser& raiser = *objects.raisers.emplace_back(std::make_unique<Raiser>(objects, number));
            if (objects.host.isRecording) {
                raiser.event.detector = detector;
                raiser.event.name = eventName;
                raiser.event.timeMs = timeMs;
                raiser.event.kind = kind;
            }
            return &raiser;
        }
        Objects& objects;
        const int number;
    };

    explicit Objects(RecordingHost& owner) : host(owner) {}

    bool CallHook(const HostCall& call) const { return recording_host::CallHook(host.onCall, call); }
    void CallUnusedHook() const { CallHook({.operation = Operation::Unused}); }

    template <class Object>
    static std::unique_ptr<Object> TakeOut(std::vector<std::unique_ptr<Object>>& from, const Object* object) {
        const auto place =
            std::find_if(from.begin(), from.end(), [&](const auto& each) { return each.get() == object; });
        std::unique_ptr<Object> taken;
        if (place != from.end()) {
            taken = std::move(*place);
            from.erase(place);
        }
        return taken;
    }

    RecordingHost& host;
    std::mutex mutex;
    std::vector<std::string> requested;
    std::vector<std::string> lines;
    Logger logger{*this};
    Factory factory{*this};
    HostObject hostObject{*this};
    std::map<int, PeerObject> peers;
    std::vector<std::unique_ptr<Enumerator>> enumerators;
    std::vector<std::unique_ptr<Raiser>> raisers;
};

RecordingHost::RecordingHost() : objects_(std::make_unique<Objects>(*this)) {}
RecordingHost::~RecordingHost() = default;

void* RecordingHost::Object() {
    return static_cast<IHost*>(&objects_->hostObject);
}

IContract* RecordingHost::Peer(int number) {
    const WithoutFailure own;
    const std::lock_guard lock(objects_->mutex);
    return static_cast<IDetectorPeer*>(&objects_->peers.try_emplace(number, *objects_, number).first->second);
}

std::vector<RecordedEvent> RecordingHost::Events() const {
    std::vector<const Objects::Raiser*> raisers;
    {
        const std::lock_guard lock(objects_->mutex);
        for (const auto& raiser : objects_->raisers) {
            raisers.push_back(raiser.get());
        }
    }
    std::vector<RecordedEvent> events;
    for (const Objects::Raiser* raiser : raisers) {
        events.push_back(raiser->Snapshot());
    }
    return events;
}

std::vector<std::string> RecordingHost::Log() const {
    const std::lock_guard lock(objects_->mutex);
    return objects_->lines;
}

std::vector<std::string> RecordingHost::RequestedInterfaces() const {
    const std::lock_guard lock(objects_->mutex);
    return objects_->requested;
}

std::size_t RecordingHost::FreeUnfinished() {
    const std::size_t unfinished = objects_->raisers.size() + objects_->enumerators.size();
    objects_->raisers.clear();
    objects_->enumerators.clear();
    return unfinished;
}

namespace {

struct Buffer final : MFF::ICompositeBuffer {
    Buffer(BufferCounts& bufferCounts, BufferOptions bufferOptions)
        : counts(bufferCounts), options(std::move(bufferOptions)), number(counts.made++) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
    void* QueryContract(const char* contractName) override {
        CountLateUse();
        const bool isKnown = std::strcmp(contractName, ContractName::ICompositeBuffer) == 0;
        const bool isServed = CallHook(counts.onCall, {.operation = Operation::QueryContract,
                                                       .owner = number,
                                                       .name = contractName,
                                                       .isRefused = !isKnown || !options.isComposite});
        return !isServed ? nullptr : options.compositePart != nullptr ? options.compositePart : this;
    }
    void* QueryContract(const char* contractName) const override {
        return const_cast<Buffer*>(this)->QueryContract(contractName);
    }
    std::uint64_t GetTimeStamp() override { return Get(Operation::GetTimeStamp, options.timeStamp); }
    void Unused1() override { Get(Operation::Unused, 0); }
    void Unused2() override { Get(Operation::Unused, 0); }
    void Release() override {
        const BufferCounts& bufferCounts = counts;
        const HostCall call = {.operation = Operation::Release, .owner = number};
        if (isReleased.exchange(true)) {
            ++counts.releasedAgain;
            return;
        }
        ++counts.released;
        if (counts.keepsReleased) {
            options.pixels = {};
        } else {
            DestroyThroughSlot(this);
        }
        CallHook(bufferCounts.onCall, call);
    }
    std::uint8_t* GetData() override {
        std::uint8_t* const own = options.pixels.empty() ? nullptr : options.pixels.data();
        return Get(Operation::GetData, options.sharedPixels != nullptr ? options.sharedPixels : own);
    }
    std::uint32_t GetDataSize() override {
        return Get(Operation::GetDataSize,
                   static_cast<std::uint32_t>(options.size >= 0 ? options.size
                                                                : static_cast<std::int64_t>(options.pixels.size())));
    }
    std::uint32_t GetWidth() override { return Get(Operation::GetWidth, options.width); }
    std::uint32_t GetHeight() override { return Get(Operation::GetHeight, options.height); }

    template <class Value>
    Value Get(Operation operation, Value value) const {
        CountLateUse();
        return CallHook(counts.onCall, {.operation = operation, .owner = number}) ? value : Value{};
    }

    void CountLateUse() const {
        if (isReleased) {
            ++counts.usedAfterRelease;
        }
    }

    BufferCounts& counts;
    BufferOptions options;
    const int number;
    std::atomic<bool> isReleased = false;
};

}  // namespace

class KeptBuffers {
  public:
    MFF::IMultimediaBuffer* Keep(std::unique_ptr<Buffer> buffer) {
        const std::lock_guard lock(mutex_);
        return buffers_.emplace_back(std::move(buffer)).get();
    }

  private:
    std::mutex mutex_;
    std::vector<std::unique_ptr<Buffer>> buffers_;  // guarded by mutex_
};

BufferCounts::BufferCounts() : kept(std::make_unique<KeptBuffers>()) {}
BufferCounts::~BufferCounts() = default;

MFF::IMultimediaBuffer* MakeBuffer(BufferCounts& counts, BufferOptions options) {
    auto buffer = std::make_unique<Buffer>(counts, std::move(options));
    return counts.keepsReleased ? counts.kept->Keep(std::move(buffer)) : buffer.release();
}

MFF::IMultimediaBuffer* MakeFrame(BufferCounts& counts, std::uint32_t width, std::uint32_t height,
                                  std::uint64_t timeStamp) {
    BufferOptions options;
    options.width = width;
    options.height = height;
    options.pixels.assign(std::size_t{width} * height * 3 / 2, 128);
    options.timeStamp = timeStamp;
    return MakeBuffer(counts, std::move(options));
}

void RecordingFrameDone::OnFrameDone(MFF::IMultimediaBuffer* inputData) {
    {
        const WithoutFailure own;
        buffers.push_back(inputData);
    }
    CallHook(onCall, {.operation = Operation::OnFrameDone, .object = inputData});
}

}  // namespace recording_host
