#include "tests/soak/host.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "sdk/contract_names.h"
#include "sdk/plate_events.h"

namespace soak {
namespace {

using namespace OKM8::Analytics;

// Where an event fails.
enum class Fault {
    None,
    NoFactory,
    NoTargetList,
    NoRaiser,
    NoArguments,
    NoTarget,
    ThrowingSetter,
    OtherThrowingSetter,
    ThrowingRaise,
    Count
};

#define SOAK_CONTRACT(Class)                          \
    OKM8_OBJECT_DESTRUCTOR_SLOT(Class)                \
    void* QueryContract(const char*) override {       \
        return nullptr;                               \
    }                                                 \
    void* QueryContract(const char*) const override { \
        return nullptr;                               \
    }

// Of the calling thread.
thread_local Peer::Objects* currentFrame = nullptr;

struct TargetBases : ITargetAdjuster, OKM8::IBinaryAdjuster {};

struct Target final : TargetBases {
    explicit Target(Fault newFault) : fault(newFault) {}
    SOAK_CONTRACT(Target)
    void SetStringValue(const char*, const char*) override {
        if (fault == Fault::ThrowingSetter) {
            throw std::runtime_error("the host has failed");
        }
    }
    void SetDoubleValue(const char*, double) override {}
    void SetIntValue(const char*, std::int32_t) override {
        if (fault == Fault::OtherThrowingSetter) {
            throw OtherException();
        }
    }
    void SetBoolValue(const char*, bool) override {}
    void SetBinaryValue(const char*, const void* data, std::uint32_t size) override {
        if (size != sizeof(TrackPointList)) {
            throw std::runtime_error("a track of an unknown layout");
        }
        track = static_cast<const TrackPointList*>(data);
    }

    // REQUIRES: the event has not yet been raised; the track is valid until then.
    bool HasTrack() const {
        return track != nullptr && track->first != track->last &&
               std::all_of(track->first, track->last, [](const TrackPoint& point) { return point.flag == 0; });
    }

    const Fault fault;
    const TrackPointList* track = nullptr;
};

struct TargetList final : ITargetEnumeratorAdjuster {
    explicit TargetList(Fault newFault) : fault(newFault), target(newFault) {}
    SOAK_CONTRACT(TargetList)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    ITargetAdjuster* AddTarget(std::int32_t) override { return fault == Fault::NoTarget ? nullptr : &target; }

    const Fault fault;
    Target target;
};

struct Raiser final : IDetectorEventRaiser, IEventArgsAdjuster {
    Raiser(Peer::Objects& newFrame, Fault newFault) : frame(newFrame), fault(newFault) {}
    SOAK_CONTRACT(Raiser)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    void SetObjectValue(const char*, OKM8::IContract* value) override {
        targets = static_cast<TargetList*>(static_cast<ITargetEnumeratorAdjuster*>(value));
    }
    void Raise() override;
    void Discard() override { ++ends; }
    IEventArgsAdjuster* GetEventArgs() override { return fault == Fault::NoArguments ? nullptr : this; }

    Peer::Objects& frame;
    const Fault fault;
    const TargetList* targets = nullptr;
    int ends = 0;
};

}  // namespace

struct Peer::Objects {
    Objects(Counts& newCounts, std::uint32_t seed, std::function<void()> newOnRaise)
        : counts(newCounts), onRaise(std::move(newOnRaise)), random(seed) {}

    // The first call for an event. One in 32 fails.
    bool BeginEvent() {
        constexpr unsigned faults = static_cast<unsigned>(Fault::Count) - 1;
        fault = random() % 32 == 0 ? static_cast<Fault>(1 + random() % faults) : Fault::None;
        counts.failedEvents += fault == Fault::None ? 0u : 1u;
        hasRefused = hasRefused || (fault >= Fault::NoFactory && fault <= Fault::NoTarget);
        return fault != Fault::NoFactory;
    }
    ITargetEnumeratorAdjuster* MakeTargetList() {
        if (fault == Fault::NoTargetList) {
            return nullptr;
        }
        return lists.emplace_back(std::make_unique<TargetList>(fault)).get();
    }
    IDetectorEventRaiser* MakeRaiser() {
        if (fault == Fault::NoRaiser) {
            return nullptr;
        }
        return raisers.emplace_back(std::make_unique<Raiser>(*this, fault)).get();
    }

    Counts& counts;
    const std::function<void()> onRaise;
    std::mt19937 random;
    Fault fault = Fault::None;  // of the current event
    bool hasRefused = false;
    bool hasLostTrack = false;
    std::vector<std::unique_ptr<TargetList>> lists;
    std::vector<std::unique_ptr<Raiser>> raisers;
};

namespace {

void Raiser::Raise() {
    ++ends;
    frame.hasLostTrack = frame.hasLostTrack || targets == nullptr || !targets->target.HasTrack();
    frame.onRaise();
    if (fault == Fault::ThrowingRaise) {
        throw std::runtime_error("the host has failed");
    }
    ++frame.counts.events;
}

}  // namespace

Peer::Peer(Counts& counts, std::uint32_t seed, std::function<void()> onRaise)
    : objects_(std::make_unique<Objects>(counts, seed, std::move(onRaise))) {}

Peer::~Peer() = default;

IDetectorEventRaiser* Peer::CreateEventRaiser(IDetector*, const char*, std::int64_t, std::int32_t) {
    return objects_->MakeRaiser();
}

void Peer::BeginFrame() {
    currentFrame = objects_.get();
}

bool Peer::EndFrame() {
    currentFrame = nullptr;
    for (const std::unique_ptr<Raiser>& raiser : objects_->raisers) {
        if (raiser->ends != 1) {
            throw std::runtime_error("a raiser was ended " + std::to_string(raiser->ends) + " times");
        }
    }
    if (objects_->hasLostTrack) {
        throw std::runtime_error("an event was raised without its track");
    }
    objects_->raisers.clear();
    objects_->lists.clear();
    return std::exchange(objects_->hasRefused, false);
}

struct Host::Objects {
    struct Factory final : ITargetEnumeratorFactory {
        SOAK_CONTRACT(Factory)
        void Unused1() override {}
        void Unused2() override {}
        void Unused3() override {}
        void Unused4() override {}
        void Unused5() override {}
        void Unused6() override {}
        ITargetEnumeratorAdjuster* CreateTargetEnumerator(std::int64_t) override {
            return currentFrame->MakeTargetList();
        }
    };
    struct Logger final : OKM8::ILogger {
        SOAK_CONTRACT(Logger)
        void Unused1() override {}
        void Unused2() override {}
        void WriteLog(std::int32_t, const char*) override {}
    };
    struct HostObject final : OKM8::IHost {
        SOAK_CONTRACT(HostObject)
        void* GetInterface(const char* contractName) override {
            if (std::strcmp(contractName, OKM8::ContractName::ILogger) == 0) {
                return static_cast<OKM8::ILogger*>(&logger);
            }
            const bool isFactory = std::strcmp(contractName, OKM8::ContractName::ITargetEnumeratorFactory) == 0;
            return isFactory && currentFrame->BeginEvent() ? static_cast<ITargetEnumeratorFactory*>(&factory) : nullptr;
        }
        Logger logger;
        Factory factory;
    };

    HostObject host;
};

Host::Host() : objects_(std::make_unique<Objects>()) {}

Host::~Host() = default;

void* Host::Object() {
    return static_cast<OKM8::IHost*>(&objects_->host);
}

}  // namespace soak
