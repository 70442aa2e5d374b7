/// The host's side of the contract. Every object records its calls.
#pragma once

#include "sdk/buffer.h"
#include "sdk/contract_names.h"
#include "sdk/events.h"
#include "sdk/host.h"
#include "sdk/plate_events.h"
#include "tests/contract_host/checks.h"

namespace contract_host {

/// The number of calls, on all objects, that the library must never make.
inline int unexpectedCalls = 0;

/// The operations that the library calls.
enum class Call : uint32_t {
    QueryContract,
    GetTimeStamp,
    GetData,
    GetDataSize,
    GetWidth,
    GetHeight,
    Release,
    OnFrameDone,
    SetStringValue,
    SetIntValue,
    SetBinaryValue,
    SetObjectValue,
    Raise,
    Discard,
    GetEventArgs,
    AddTarget,
    CreateTargetEnumerator,
    WriteLog,
    GetLogger,
    GetFactory,
    CreateEventRaiser,
};

/// Called by each operation after it has recorded its call; may be null. It need not return.
inline void (*onCall)(Call) = nullptr;

inline void Reach(Call call) {
    if (onCall != nullptr) {
        onCall(call);
    }
}

/// The root operations of an object that returns no interface.
#define CONTRACT_HOST_NO_NAMES(Class)                 \
    void* QueryContract(const char*) override {       \
        ++unexpectedCalls;                            \
        return nullptr;                               \
    }                                                 \
    void* QueryContract(const char*) const override { \
        ++unexpectedCalls;                            \
        return nullptr;                               \
    }                                                 \
    OKM8_OBJECT_DESTRUCTOR_SLOT(Class)

// --- frames ---

/// The calls on one frame, as letters: s time stamp, d data, n size, h height, w width, r release, q query.
struct FrameStory {
    Text calls;
    unsigned count = 0;
    int released = 0;
    Text queriedName;

    void Add(char call) {
        if (count + 1 < sizeof calls.characters) {
            calls.characters[count++] = call;
            calls.characters[count] = '\0';
        }
    }
};

inline constexpr uint32_t frameWidth = 640;
inline constexpr uint32_t frameHeight = 480;

/// The pixels of a grey picture in planar 4:2:0. All frames share them, because the library only reads them.
inline uint8_t framePixels[frameWidth * frameHeight * 3 / 2];

class CompositeBuffer final : public OKM8::MFF::ICompositeBuffer {
  public:
    CONTRACT_HOST_NO_NAMES(CompositeBuffer)
    uint64_t GetTimeStamp() override {
        story->Add('s');
        Reach(Call::GetTimeStamp);
        return timeStamp;
    }
    void Unused1() override { ++unexpectedCalls; }
    void Unused2() override { ++unexpectedCalls; }
    void Release() override {
        story->Add('r');
        ++story->released;
        Reach(Call::Release);
    }
    uint8_t* GetData() override {
        story->Add('d');
        Reach(Call::GetData);
        return data;
    }
    uint32_t GetDataSize() override {
        story->Add('n');
        Reach(Call::GetDataSize);
        return size;
    }
    uint32_t GetWidth() override {
        story->Add('w');
        Reach(Call::GetWidth);
        return width;
    }
    uint32_t GetHeight() override {
        story->Add('h');
        Reach(Call::GetHeight);
        return height;
    }

    FrameStory* story = nullptr;
    uint64_t timeStamp = 0;
    uint8_t* data = framePixels;
    uint32_t size = sizeof framePixels;
    uint32_t width = frameWidth;
    uint32_t height = frameHeight;
};

/// The buffer that the host passes in. The picture in it is a separate object, which only QueryContract returns.
class InputBuffer final : public OKM8::MFF::IMultimediaBuffer {
  public:
    void* QueryContract(const char* name) override {
        story.Add('q');
        story.queriedName = name;
        Reach(Call::QueryContract);
        return isComposite ? static_cast<OKM8::MFF::ICompositeBuffer*>(&composite) : nullptr;
    }
    void* QueryContract(const char*) const override {
        ++unexpectedCalls;
        return nullptr;
    }
    OKM8_OBJECT_DESTRUCTOR_SLOT(InputBuffer)
    uint64_t GetTimeStamp() override {
        ++unexpectedCalls;
        return 0;
    }
    void Unused1() override { ++unexpectedCalls; }
    void Unused2() override { ++unexpectedCalls; }
    void Release() override {
        ++released;
        Reach(Call::Release);
    }

    void Prepare(uint64_t time) {
        composite.story = &story;
        composite.timeStamp = time;
    }

    FrameStory story;
    CompositeBuffer composite;
    bool isComposite = true;
    int released = 0;
};

class FrameDone final : public OKM8::MFF::IFrameDoneCallback {
  public:
    CONTRACT_HOST_NO_NAMES(FrameDone)
    void OnFrameDone(OKM8::MFF::IMultimediaBuffer* inputData) override {
        ++calls;
        buffer = inputData;
        Reach(Call::OnFrameDone);
    }

    int calls = 0;
    OKM8::MFF::IMultimediaBuffer* buffer = nullptr;
};

// --- events ---

struct SetValue {
    char setter = ' ';  ///< s, d, i, b, or x for raw bytes
    Text key;
    Text text;
    int64_t number = 0;
};

/// The values that are set on a target of any class.
struct TargetStory {
    static constexpr unsigned mostValues = 32;

    SetValue& Add(char setter, const char* key) {
        SetValue& value = values[count < mostValues - 1 ? count++ : count];
        value.setter = setter;
        value.key = key;
        return value;
    }
    const SetValue* Find(const char* key) const {
        for (unsigned index = 0; index < count; ++index) {
            if (SameText(values[index].key.characters, key)) {
                return &values[index];
            }
        }
        return nullptr;
    }

    SetValue values[mostValues];
    unsigned count = 0;
    const void* binarySetter = nullptr;  ///< the sub-object whose SetBinaryValue was called
    uint64_t binarySize = 0;
    uint64_t trackLength = 0;
    OKM8::Analytics::TrackPoint firstPoint = {};
};

class EventArguments final : public OKM8::Analytics::IEventArgsAdjuster {
  public:
    CONTRACT_HOST_NO_NAMES(EventArguments)
    void Unused1() override { ++unexpectedCalls; }
    void Unused2() override { ++unexpectedCalls; }
    void Unused3() override { ++unexpectedCalls; }
    void Unused4() override { ++unexpectedCalls; }
    void Unused5() override { ++unexpectedCalls; }
    void Unused6() override { ++unexpectedCalls; }
    void Unused7() override { ++unexpectedCalls; }
    void SetObjectValue(const char* name, OKM8::IContract* value) override {
        ++calls;
        key = name;
        object = value;
        Reach(Call::SetObjectValue);
    }

    int calls = 0;
    Text key;
    OKM8::IContract* object = nullptr;
};

class EventRaiser final : public OKM8::Analytics::IDetectorEventRaiser {
  public:
    CONTRACT_HOST_NO_NAMES(EventRaiser)
    void Unused1() override { ++unexpectedCalls; }
    void Raise() override {
        ++raised;
        Reach(Call::Raise);
    }
    void Discard() override {
        ++discarded;
        Reach(Call::Discard);
    }
    OKM8::Analytics::IEventArgsAdjuster* GetEventArgs() override {
        ++argumentCalls;
        Reach(Call::GetEventArgs);
        return hasArguments ? &arguments : nullptr;
    }

    bool hasArguments = true;
    EventArguments arguments;
    int raised = 0;
    int discarded = 0;
    int argumentCalls = 0;
};

class TargetEnumerator final : public OKM8::Analytics::ITargetEnumeratorAdjuster {
  public:
    CONTRACT_HOST_NO_NAMES(TargetEnumerator)
    void Unused1() override { ++unexpectedCalls; }
    void Unused2() override { ++unexpectedCalls; }
    void Unused3() override { ++unexpectedCalls; }
    void Unused4() override { ++unexpectedCalls; }
    void Unused5() override { ++unexpectedCalls; }
    void Unused6() override { ++unexpectedCalls; }
    void Unused7() override { ++unexpectedCalls; }
    OKM8::Analytics::ITargetAdjuster* AddTarget(int32_t value) override {
        ++calls;
        reserved = value;
        Reach(Call::AddTarget);
        return target;
    }

    OKM8::Analytics::ITargetAdjuster* target = nullptr;
    int calls = 0;
    int32_t reserved = -1;
};

class TargetEnumeratorFactory final : public OKM8::Analytics::ITargetEnumeratorFactory {
  public:
    CONTRACT_HOST_NO_NAMES(TargetEnumeratorFactory)
    void Unused1() override { ++unexpectedCalls; }
    void Unused2() override { ++unexpectedCalls; }
    void Unused3() override { ++unexpectedCalls; }
    void Unused4() override { ++unexpectedCalls; }
    void Unused5() override { ++unexpectedCalls; }
    void Unused6() override { ++unexpectedCalls; }
    OKM8::Analytics::ITargetEnumeratorAdjuster* CreateTargetEnumerator(int64_t time) override {
        ++calls;
        timeMs = time;
        Reach(Call::CreateTargetEnumerator);
        return hasEnumerator ? &enumerator : nullptr;
    }

    bool hasEnumerator = true;
    TargetEnumerator enumerator;
    int calls = 0;
    int64_t timeMs = 0;
};

// --- the host and its services ---

class Logger final : public OKM8::ILogger {
  public:
    CONTRACT_HOST_NO_NAMES(Logger)
    void Unused1() override { ++unexpectedCalls; }
    void Unused2() override { ++unexpectedCalls; }
    void WriteLog(int32_t value, const char* line) override {
        ++calls;
        level = value;
        text = line;
        Reach(Call::WriteLog);
    }

    int calls = 0;
    int32_t level = 0;
    Text text;
};

class Host final : public OKM8::IHost {
  public:
    CONTRACT_HOST_NO_NAMES(Host)
    void* GetInterface(const char* name) override {
        if (SameText(name, OKM8::ContractName::ILogger)) {
            ++loggerCalls;
            Reach(Call::GetLogger);
            return static_cast<OKM8::ILogger*>(&logger);
        }
        if (SameText(name, OKM8::ContractName::ITargetEnumeratorFactory)) {
            ++factoryCalls;
            Reach(Call::GetFactory);
            return hasFactory ? static_cast<OKM8::Analytics::ITargetEnumeratorFactory*>(&factory) : nullptr;
        }
        ++unexpectedCalls;
        return nullptr;
    }

    bool hasFactory = true;
    int loggerCalls = 0;
    int factoryCalls = 0;
    Logger logger;
    TargetEnumeratorFactory factory;
};

class DetectorPeer final : public OKM8::Analytics::IDetectorPeer {
  public:
    CONTRACT_HOST_NO_NAMES(DetectorPeer)
    OKM8::Analytics::IDetectorEventRaiser* CreateEventRaiser(OKM8::Analytics::IDetector* object, const char* name,
                                                             int64_t time, int32_t value) override {
        ++calls;
        detector = object;
        eventName = name;
        timeMs = time;
        kind = value;
        Reach(Call::CreateEventRaiser);
        return hasRaiser ? &raiser : nullptr;
    }

    bool hasRaiser = true;
    EventRaiser raiser;
    int calls = 0;
    OKM8::Analytics::IDetector* detector = nullptr;
    Text eventName;
    int64_t timeMs = 0;
    int32_t kind = 0;
};

}  // namespace contract_host
