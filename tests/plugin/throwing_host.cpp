#include "tests/plugin/throwing_host.h"

#include <cstring>
#include <vector>

#include "sdk/contract_names.h"
#include "sdk/events.h"
#include "sdk/host.h"

namespace plugin_test {

namespace {

using namespace OKM8;
using namespace OKM8::Analytics;

constexpr std::uint32_t frameWidth = 64;
constexpr std::uint32_t frameHeight = 48;

#define THROWING_HOST_CONTRACT(Class)                 \
    OKM8_OBJECT_DESTRUCTOR_SLOT(Class)                \
    void* QueryContract(const char*) override {       \
        return nullptr;                               \
    }                                                 \
    void* QueryContract(const char*) const override { \
        return nullptr;                               \
    }

struct TargetBases : ITargetAdjuster, IBinaryAdjuster {};

struct Target final : TargetBases {
    explicit Target(ThrowingHost& owner) : host(owner) {}
    THROWING_HOST_CONTRACT(Target)
    void SetStringValue(const char*, const char*) override { host.Meet(HostCall::SetStringValue); }
    void SetDoubleValue(const char*, double) override {}
    void SetIntValue(const char*, std::int32_t) override { host.Meet(HostCall::SetIntValue); }
    void SetBoolValue(const char*, bool) override {}
    void SetBinaryValue(const char*, const void*, std::uint32_t) override { host.Meet(HostCall::SetBinaryValue); }
    ThrowingHost& host;
};

struct Enumerator final : ITargetEnumeratorAdjuster {
    explicit Enumerator(ThrowingHost& owner) : host(owner), target(owner) {}
    THROWING_HOST_CONTRACT(Enumerator)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    ITargetAdjuster* AddTarget(std::int32_t) override {
        host.Meet(HostCall::AddTarget);
        return &target;
    }
    ThrowingHost& host;
    Target target;
};

struct Arguments final : IEventArgsAdjuster {
    explicit Arguments(ThrowingHost& owner) : host(owner) {}
    THROWING_HOST_CONTRACT(Arguments)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    void Unused7() override {}
    void SetObjectValue(const char*, IContract*) override { host.Meet(HostCall::SetObjectValue); }
    ThrowingHost& host;
};

struct Raiser final : IDetectorEventRaiser {
    explicit Raiser(ThrowingHost& owner) : host(owner), arguments(owner) {}
    THROWING_HOST_CONTRACT(Raiser)
    void Unused1() override {}
    void Raise() override { host.Meet(HostCall::Raise); }
    void Discard() override { host.Meet(HostCall::Discard); }
    IEventArgsAdjuster* GetEventArgs() override {
        host.Meet(HostCall::GetEventArgs);
        return host.refusesArguments ? nullptr : &arguments;
    }
    ThrowingHost& host;
    Arguments arguments;
};

struct PeerObject final : IDetectorPeer {
    explicit PeerObject(ThrowingHost& owner) : host(owner), raiser(owner) {}
    THROWING_HOST_CONTRACT(PeerObject)
    IDetectorEventRaiser* CreateEventRaiser(IDetector*, const char*, std::int64_t, std::int32_t) override {
        host.Meet(HostCall::CreateEventRaiser);
        return &raiser;
    }
    ThrowingHost& host;
    Raiser raiser;
};

struct Factory final : ITargetEnumeratorFactory {
    explicit Factory(ThrowingHost& owner) : host(owner), enumerator(owner) {}
    THROWING_HOST_CONTRACT(Factory)
    void Unused1() override {}
    void Unused2() override {}
    void Unused3() override {}
    void Unused4() override {}
    void Unused5() override {}
    void Unused6() override {}
    ITargetEnumeratorAdjuster* CreateTargetEnumerator(std::int64_t) override {
        host.Meet(HostCall::CreateTargetEnumerator);
        return &enumerator;
    }
    ThrowingHost& host;
    Enumerator enumerator;
};

struct HostObject final : IHost {
    explicit HostObject(ThrowingHost& owner) : host(owner), factory(owner) {}
    THROWING_HOST_CONTRACT(HostObject)
    void* GetInterface(const char* contractName) override {
        if (std::strcmp(contractName, ContractName::ITargetEnumeratorFactory) == 0) {
            host.Meet(HostCall::GetFactory);
            return static_cast<ITargetEnumeratorFactory*>(&factory);
        }
        host.Meet(HostCall::GetLogger);
        return nullptr;
    }
    ThrowingHost& host;
    Factory factory;
};

struct FrameDoneCallback final : MFF::IFrameDoneCallback {
    explicit FrameDoneCallback(ThrowingHost& owner) : host(owner) {}
    THROWING_HOST_CONTRACT(FrameDoneCallback)
    void OnFrameDone(MFF::IMultimediaBuffer*) override { host.Meet(HostCall::OnFrameDone); }
    ThrowingHost& host;
};

// Freed by its first release, so that the sanitizer sees every later touch.
struct Buffer final : MFF::ICompositeBuffer {
    Buffer(ThrowingHost& owner, bool composite, std::uint64_t time)
        : host(owner), isComposite(composite), timeStamp(time), pixels(frameWidth * frameHeight * 3 / 2, 128) {}
    OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
    void* QueryContract(const char*) override {
        host.Meet(HostCall::QueryContract);
        return isComposite ? static_cast<MFF::ICompositeBuffer*>(this) : nullptr;
    }
    void* QueryContract(const char* contractName) const override {
        return const_cast<Buffer*>(this)->QueryContract(contractName);
    }
    std::uint64_t GetTimeStamp() override {
        host.Meet(HostCall::GetTimeStamp);
        return timeStamp;
    }
    void Unused1() override {}
    void Unused2() override {}
    void Release() override {
        ThrowingHost& told = host;
        DestroyThroughSlot(this);
        told.Meet(HostCall::Release);
    }
    std::uint8_t* GetData() override {
        host.Meet(HostCall::GetData);
        return pixels.data();
    }
    std::uint32_t GetDataSize() override {
        host.Meet(HostCall::GetDataSize);
        return static_cast<std::uint32_t>(pixels.size());
    }
    std::uint32_t GetWidth() override {
        host.Meet(HostCall::GetWidth);
        return frameWidth;
    }
    std::uint32_t GetHeight() override {
        host.Meet(HostCall::GetHeight);
        return frameHeight;
    }
    ThrowingHost& host;
    bool isComposite;
    std::uint64_t timeStamp;
    std::vector<std::uint8_t> pixels;
};

}  // namespace

struct ThrowingHost::Objects {
    explicit Objects(ThrowingHost& owner) : hostObject(owner), peer(owner), frameDone(owner) {}
    HostObject hostObject;
    PeerObject peer;
    FrameDoneCallback frameDone;
};

ThrowingHost::ThrowingHost() : objects_(std::make_unique<Objects>(*this)) {}
ThrowingHost::~ThrowingHost() = default;

void ThrowingHost::Meet(HostCall call) {
    ++counts_.at(static_cast<std::size_t>(call));
    if (onCall) {
        onCall(call);
    }
    if (!throwing.contains(call)) {
        return;
    }
    if (throwsOther) {
        throw OtherException();
    }
    throw std::runtime_error(thrownText);
}

void* ThrowingHost::Object() {
    return static_cast<IHost*>(&objects_->hostObject);
}

IContract* ThrowingHost::Peer() {
    return static_cast<IDetectorPeer*>(&objects_->peer);
}

IContract* ThrowingHost::FrameDone() {
    return static_cast<MFF::IFrameDoneCallback*>(&objects_->frameDone);
}

MFF::IMultimediaBuffer* ThrowingHost::NewFrame(std::uint64_t timeStamp) {
    ++buffersMade_;
    return new Buffer(*this, true, timeStamp);
}

MFF::IMultimediaBuffer* ThrowingHost::NewOtherBuffer() {
    ++buffersMade_;
    return new Buffer(*this, false, 0);
}

}  // namespace plugin_test
