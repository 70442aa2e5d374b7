/// Targets with many class hierarchies. A checked cast finds the binary setter of some of them.
#pragma once

#include "tests/contract_host/host_objects.h"

namespace other {

/// Has the setter's name in another namespace.
struct IBinaryAdjuster : OKM8::IContract {
    virtual void SetBinaryValue(const char* name, const void* data, uint32_t size) = 0;
};

}  // namespace other

namespace contract_host {

/// A target that a test passes to the detector, and the expected result.
struct Target {
    const char* description;
    OKM8::Analytics::ITargetAdjuster* adjuster;
    const void* binarySetter;  ///< null when a checked cast must find none
    TargetStory* story;
};

// The operations of a target, without the binary setter.
#define CONTRACT_HOST_TARGET(Class)                                   \
  public:                                                             \
    CONTRACT_HOST_NO_NAMES(Class)                                     \
    void SetStringValue(const char* key, const char* text) override { \
        story.Add('s', key).text = text;                              \
        Reach(Call::SetStringValue);                                  \
    }                                                                 \
    void SetDoubleValue(const char* key, double) override {           \
        story.Add('d', key);                                          \
    }                                                                 \
    void SetIntValue(const char* key, int32_t number) override {      \
        story.Add('i', key).number = number;                          \
        Reach(Call::SetIntValue);                                     \
    }                                                                 \
    void SetBoolValue(const char* key, bool value) override {         \
        story.Add('b', key).number = value;                           \
    }                                                                 \
    TargetStory story

inline void RecordBinaryValue(TargetStory& story, const void* setter, const char* key, const void* data,
                              uint32_t size) {
    story.Add('x', key);
    story.binarySetter = setter;
    story.binarySize = size;
    if (size == sizeof(OKM8::Analytics::TrackPointList)) {
        const auto* const list = static_cast<const OKM8::Analytics::TrackPointList*>(data);
        story.trackLength = static_cast<uint64_t>(list->last - list->first);
        if (story.trackLength != 0 && list->last <= list->storage) {
            story.firstPoint = *list->first;
        }
    }
    Reach(Call::SetBinaryValue);
}

#define CONTRACT_HOST_BINARY_SETTER                                                                 \
    void SetBinaryValue(const char* key, const void* data, uint32_t size) override {                \
        RecordBinaryValue(story, static_cast<const OKM8::IBinaryAdjuster*>(this), key, data, size); \
    }

// A base before or between the bases under test.
template <int place>
struct Ahead {
    virtual void Nothing() {}
    uint64_t fill[3] = {1, 2, 3};

  protected:
    ~Ahead() = default;
};

class PlainTarget final : public OKM8::Analytics::ITargetAdjuster, public OKM8::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(PlainTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"the setter is a later base", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

class EarlierTarget final : public OKM8::IBinaryAdjuster, public OKM8::Analytics::ITargetAdjuster {
    CONTRACT_HOST_TARGET(EarlierTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"the setter precedes the target", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

class LoneTarget final : public OKM8::Analytics::ITargetAdjuster {
    CONTRACT_HOST_TARGET(LoneTarget);

    Target Describe() { return {"there is no setter", this, nullptr, &story}; }
};

class OtherTarget final : public OKM8::Analytics::ITargetAdjuster, public other::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(OtherTarget);
    void SetBinaryValue(const char*, const void*, uint32_t) override { ++unexpectedCalls; }

    Target Describe() { return {"a base has the setter's name in another namespace", this, nullptr, &story}; }
};

struct Level1 : Ahead<1>, OKM8::IBinaryAdjuster {};
struct Level2 : Level1 {
    uint64_t fill[2] = {4, 5};
};
struct Level3 : Ahead<3>, Level2 {};

class DeepTarget final : public Ahead<0>, public OKM8::Analytics::ITargetAdjuster, public Level3 {
    CONTRACT_HOST_TARGET(DeepTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"the setter is several levels down, the target is not the first base", this,
                static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

class VirtualTarget final : public OKM8::Analytics::ITargetAdjuster, public virtual OKM8::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(VirtualTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"the setter is a virtual base", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

class VirtualLevel : public Ahead<1>, public virtual OKM8::IBinaryAdjuster {};

class VirtualLevelTarget final : public Ahead<0>, public OKM8::Analytics::ITargetAdjuster, public VirtualLevel {
    CONTRACT_HOST_TARGET(VirtualLevelTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"the setter is a virtual base of a base", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

/// Its constructor makes a compiler store displacements before its virtual bases.
class BothVirtualTarget final : public virtual Ahead<0>,
                                public virtual OKM8::Analytics::ITargetAdjuster,
                                public virtual OKM8::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(BothVirtualTarget);
    CONTRACT_HOST_BINARY_SETTER
    void Nothing() override { ++nothing; }
    BothVirtualTarget() { Nothing(); }

    Target Describe() {
        return {"target and setter are virtual bases", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
    int nothing = 0;
};

class OtherVirtualLevel : public virtual OKM8::IBinaryAdjuster {};

class DiamondTarget final : public OKM8::Analytics::ITargetAdjuster, public VirtualLevel, public OtherVirtualLevel {
    CONTRACT_HOST_TARGET(DiamondTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"two paths lead to one setter", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

class HalfHiddenTarget final : public OKM8::Analytics::ITargetAdjuster, private VirtualLevel, public OtherVirtualLevel {
    CONTRACT_HOST_TARGET(HalfHiddenTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() {
        return {"one of two paths to one setter is private", this, static_cast<OKM8::IBinaryAdjuster*>(this), &story};
    }
};

class PrivateTarget final : public OKM8::Analytics::ITargetAdjuster, private OKM8::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(PrivateTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() { return {"the setter is a private base", this, nullptr, &story}; }
};

class ProtectedTarget final : public OKM8::Analytics::ITargetAdjuster, protected OKM8::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(ProtectedTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() { return {"the setter is a protected base", this, nullptr, &story}; }
};

class PrivateLevel : private OKM8::IBinaryAdjuster {};

class PrivateLevelTarget final : public OKM8::Analytics::ITargetAdjuster, public PrivateLevel {
    CONTRACT_HOST_TARGET(PrivateLevelTarget);
    void SetBinaryValue(const char*, const void*, uint32_t) override { ++unexpectedCalls; }

    Target Describe() { return {"the setter is a private base of a base", this, nullptr, &story}; }
};

class PrivateDeepTarget final : public OKM8::Analytics::ITargetAdjuster, private Level3 {
    CONTRACT_HOST_TARGET(PrivateDeepTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() { return {"the setter is a part of a private base", this, nullptr, &story}; }
};

class PrivateVirtualTarget final : public OKM8::Analytics::ITargetAdjuster, private VirtualLevel {
    CONTRACT_HOST_TARGET(PrivateVirtualTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() { return {"the setter is a virtual base of a private base", this, nullptr, &story}; }
};

class HiddenTarget final : private OKM8::Analytics::ITargetAdjuster, public OKM8::IBinaryAdjuster {
    CONTRACT_HOST_TARGET(HiddenTarget);
    CONTRACT_HOST_BINARY_SETTER

    Target Describe() { return {"the target is a private base", this, nullptr, &story}; }
};

struct FirstSetter : OKM8::IBinaryAdjuster {};
struct SecondSetter : OKM8::IBinaryAdjuster {};

class TwoSettersTarget final : public OKM8::Analytics::ITargetAdjuster, public FirstSetter, public SecondSetter {
    CONTRACT_HOST_TARGET(TwoSettersTarget);
    void SetBinaryValue(const char*, const void*, uint32_t) override { ++unexpectedCalls; }

    Target Describe() { return {"there are two setters", this, nullptr, &story}; }
};

class HiddenSecondTarget final : public OKM8::Analytics::ITargetAdjuster, public FirstSetter, private SecondSetter {
    CONTRACT_HOST_TARGET(HiddenSecondTarget);
    void SetBinaryValue(const char*, const void*, uint32_t) override { ++unexpectedCalls; }

    Target Describe() { return {"there are two setters, one of them private", this, nullptr, &story}; }
};

}  // namespace contract_host
