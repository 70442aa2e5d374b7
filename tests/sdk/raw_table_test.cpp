/// Objects called by slot number, and hand-made tables called through the interfaces.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "sdk/buffer.h"
#include "sdk/detector.h"
#include "sdk/events.h"
#include "sdk/host.h"
#include "sdk/module.h"
#include "tests/sdk/slot_list.h"

namespace {

using OKM8::FrameArea;
using OKM8::IContract;
using OKM8::MFF::IMultimediaBuffer;
using sdk_test::Slot;
using sdk_test::SlotCount;

/// A text as a template argument.
template <std::size_t size>
struct Name {
    consteval Name(const char (&letters)[size]) { std::copy_n(letters, size, text); }
    char text[size];
};

std::vector<std::string> calls;
void* calledObject = nullptr;

template <class Value>
void Print(std::ostream& stream, Value value) {
    if constexpr (std::is_same_v<Value, const char*>) {
        stream << '"' << value << '"';
    } else if constexpr (std::is_pointer_v<Value>) {
        stream << static_cast<const void*>(value);
    } else if constexpr (std::is_same_v<Value, bool>) {
        stream << (value ? "true" : "false");
    } else {
        stream << +value;
    }
}

template <class... Arguments>
std::string Text(const char* operation, Arguments... arguments) {
    std::ostringstream stream;
    stream << operation;
    ((stream << ' ', Print(stream, arguments)), ...);
    return stream.str();
}

// The value that an operation returns: it uses all bits of its type.
char returnedObject[64];

template <class Result>
Result ReturnValue() {
    if constexpr (std::is_same_v<Result, const char*>) {
        return "the return value";
    } else if constexpr (std::is_pointer_v<Result>) {
        return static_cast<Result>(static_cast<void*>(returnedObject));
    } else {
        return static_cast<Result>(0x8123456789ABCDEFu);
    }
}

// Records a call. Every operation of real objects and of hand-made tables calls this.
template <Name operation, class Result, class... Arguments>
Result Record(void* self, Arguments... arguments) {
    calls.push_back(Text(operation.text, arguments...));
    calledObject = self;
    if constexpr (!std::is_void_v<Result>) {
        return ReturnValue<Result>();
    }
}

void Unexpected(void* self) {
    calls.emplace_back("an unexpected slot");
    calledObject = self;
}

/// An object without a class: a hand-made table.
class HandMade {
  public:
    explicit HandMade(const char* interfaceName)
        : slots_(2 + SlotCount(interfaceName), reinterpret_cast<void*>(&Unexpected)) {
        slots_[0] = slots_[1] = nullptr;  // such an object has no offset and no type information
        table_ = slots_.data() + 2;
    }

    void Put(std::size_t slot, void* function) { slots_.at(2 + slot) = function; }

    template <class Interface>
    Interface* As() {
        return reinterpret_cast<Interface*>(&table_);
    }

  private:
    std::vector<void*> slots_;
    void** table_;
};

template <Name operation, class Signature>
struct Operation;

/// One operation with the types that the contract declares. Other types do not compile here.
template <Name operation, class Result, class... Arguments>
struct Operation<operation, Result(Arguments...)> {
    template <class Interface, class Declaring>
    static void Check(const char* interfaceName, Interface* object, Result (Declaring::*member)(Arguments...),
                      std::type_identity_t<Arguments>... arguments) {
        SCOPED_TRACE(std::string(interfaceName) + "::" + operation.text);
        const std::vector<std::string> expected{Text(operation.text, arguments...)};
        const std::size_t slot = Slot(interfaceName, operation.text);

        calls.clear();
        Expect([&] { return sdk_test::CallEntry<Result, Arguments...>(object, slot, arguments...); });
        EXPECT_EQ(calls, expected) << "called by slot " << slot;
        EXPECT_EQ(calledObject, object);

        HandMade handMade(interfaceName);
        handMade.Put(slot, reinterpret_cast<void*>(&Record<operation, Result, Arguments...>));
        auto* const seen = handMade.As<Interface>();
        calls.clear();
        Expect([&] { return (seen->*member)(arguments...); });
        EXPECT_EQ(calls, expected) << "called through the interface";
        EXPECT_EQ(calledObject, seen);
    }

    template <class Call>
    static void Expect(Call call) {
        if constexpr (std::is_void_v<Result>) {
            call();
        } else if constexpr (std::is_same_v<Result, const char*>) {
            EXPECT_STREQ(call(), ReturnValue<Result>());
        } else {
            EXPECT_EQ(call(), ReturnValue<Result>());
        }
    }
};

/// Checks the three operations with which every interface begins.
template <class Interface>
void CheckRoot(const char* interfaceName, Interface* object) {
    SCOPED_TRACE(interfaceName);
    using Plain = void* (IContract::*)(const char*);
    Operation<"QueryContract", void*(const char*)>::Check(interfaceName, object,
                                                          static_cast<Plain>(&Interface::QueryContract), "struct X");

    const std::size_t slot = Slot(interfaceName, "QueryContract const");
    calls.clear();
    EXPECT_EQ((sdk_test::CallEntry<void*, const char*>(object, slot, "struct X")), ReturnValue<void*>());
    EXPECT_EQ(calls, std::vector<std::string>{"QueryContract const \"struct X\""});
    HandMade handMade(interfaceName);
    handMade.Put(slot, reinterpret_cast<void*>(&Record<"QueryContract const", void*, const char*>));
    calls.clear();
    EXPECT_EQ(std::as_const(*handMade.As<Interface>()).QueryContract("struct X"), ReturnValue<void*>());
    EXPECT_EQ(calls, std::vector<std::string>{"QueryContract const \"struct X\""});

    HandMade ending(interfaceName);
    ending.Put(Slot(interfaceName, "destructor"), reinterpret_cast<void*>(&Record<"destructor", void*, unsigned>));
    calls.clear();
    OKM8::DestroyThroughSlot(ending.As<Interface>());
    EXPECT_EQ(calls, std::vector<std::string>{"destructor 1"});
    EXPECT_EQ(calledObject, ending.As<Interface>());
}

/// The root operations of a real object.
template <class Interface>
struct Object : Interface {
    void* QueryContract(const char* contractName) override {
        return Record<"QueryContract", void*>(this, contractName);
    }
    void* QueryContract(const char* contractName) const override {
        return Record<"QueryContract const", void*>(const_cast<Object*>(this), contractName);
    }
};

// --- host side ---

struct Buffer final : Object<OKM8::MFF::ICompositeBuffer> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Buffer)
    uint64_t GetTimeStamp() override { return Record<"GetTimeStamp", uint64_t>(this); }
    void Unused1() override { Record<"Unused1", void>(this); }
    void Unused2() override { Record<"Unused2", void>(this); }
    void Release() override { Record<"Release", void>(this); }
    uint8_t* GetData() override { return Record<"GetData", uint8_t*>(this); }
    uint32_t GetDataSize() override { return Record<"GetDataSize", uint32_t>(this); }
    uint32_t GetWidth() override { return Record<"GetWidth", uint32_t>(this); }
    uint32_t GetHeight() override { return Record<"GetHeight", uint32_t>(this); }
};

TEST(RawTable, OfIMultimediaBuffer) {
    constexpr char name[] = "OKM8::MFF::IMultimediaBuffer";
    Buffer object;
    IMultimediaBuffer* const seen = &object;
    CheckRoot(name, seen);
    Operation<"GetTimeStamp", uint64_t()>::Check(name, seen, &IMultimediaBuffer::GetTimeStamp);
    Operation<"Unused1", void()>::Check(name, seen, &IMultimediaBuffer::Unused1);
    Operation<"Unused2", void()>::Check(name, seen, &IMultimediaBuffer::Unused2);
    Operation<"Release", void()>::Check(name, seen, &IMultimediaBuffer::Release);
}

TEST(RawTable, OfICompositeBuffer) {
    constexpr char name[] = "OKM8::MFF::ICompositeBuffer";
    Buffer object;
    OKM8::MFF::ICompositeBuffer* const seen = &object;
    CheckRoot(name, seen);
    Operation<"GetTimeStamp", uint64_t()>::Check(name, seen, &OKM8::MFF::ICompositeBuffer::GetTimeStamp);
    Operation<"Release", void()>::Check(name, seen, &OKM8::MFF::ICompositeBuffer::Release);
    Operation<"GetData", uint8_t*()>::Check(name, seen, &OKM8::MFF::ICompositeBuffer::GetData);
    Operation<"GetDataSize", uint32_t()>::Check(name, seen, &OKM8::MFF::ICompositeBuffer::GetDataSize);
    Operation<"GetWidth", uint32_t()>::Check(name, seen, &OKM8::MFF::ICompositeBuffer::GetWidth);
    Operation<"GetHeight", uint32_t()>::Check(name, seen, &OKM8::MFF::ICompositeBuffer::GetHeight);
}

struct FrameDone final : Object<OKM8::MFF::IFrameDoneCallback> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(FrameDone)
    void OnFrameDone(IMultimediaBuffer* inputData) override { Record<"OnFrameDone", void>(this, inputData); }
};

TEST(RawTable, OfIFrameDoneCallback) {
    constexpr char name[] = "OKM8::MFF::IFrameDoneCallback";
    FrameDone object;
    Buffer buffer;
    OKM8::MFF::IFrameDoneCallback* const seen = &object;
    CheckRoot(name, seen);
    Operation<"OnFrameDone", void(IMultimediaBuffer*)>::Check(name, seen, &OKM8::MFF::IFrameDoneCallback::OnFrameDone,
                                                              &buffer);
}

struct Host final : Object<OKM8::IHost> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Host)
    void* GetInterface(const char* contractName) override { return Record<"GetInterface", void*>(this, contractName); }
};

TEST(RawTable, OfTheHostObject) {
    constexpr char name[] = "OKM8::IHost";
    Host object;
    OKM8::IHost* const seen = &object;
    CheckRoot(name, seen);
    Operation<"GetInterface", void*(const char*)>::Check(name, seen, &OKM8::IHost::GetInterface,
                                                         "struct OKM8::ILogger");
}

struct Peer final : Object<OKM8::Analytics::IDetectorPeer> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Peer)
    OKM8::Analytics::IDetectorEventRaiser* CreateEventRaiser(OKM8::Analytics::IDetector* detector,
                                                             const char* eventName, int64_t timeMs,
                                                             int32_t kind) override {
        return Record<"CreateEventRaiser", OKM8::Analytics::IDetectorEventRaiser*>(this, detector, eventName, timeMs,
                                                                                   kind);
    }
};

TEST(RawTable, OfTheDetectorPeer) {
    using OKM8::Analytics::IDetector;
    using OKM8::Analytics::IDetectorEventRaiser;
    constexpr char name[] = "OKM8::Analytics::IDetectorPeer";
    Peer object;
    OKM8::Analytics::IDetectorPeer* const seen = &object;
    CheckRoot(name, seen);
    auto* const detector = reinterpret_cast<IDetector*>(returnedObject);
    Operation<"CreateEventRaiser", IDetectorEventRaiser*(IDetector*, const char*, int64_t, int32_t)>::Check(
        name, seen, &OKM8::Analytics::IDetectorPeer::CreateEventRaiser, detector, "event", INT64_C(-0x123456789ABCDEF),
        3);
}

struct Logger final : Object<OKM8::ILogger> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Logger)
    void Unused1() override { Record<"Unused1", void>(this); }
    void Unused2() override { Record<"Unused2", void>(this); }
    void WriteLog(int32_t level, const char* text) override { Record<"WriteLog", void>(this, level, text); }
};

TEST(RawTable, OfILogger) {
    constexpr char name[] = "OKM8::ILogger";
    Logger object;
    OKM8::ILogger* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Unused1", void()>::Check(name, seen, &OKM8::ILogger::Unused1);
    Operation<"Unused2", void()>::Check(name, seen, &OKM8::ILogger::Unused2);
    Operation<"WriteLog", void(int32_t, const char*)>::Check(name, seen, &OKM8::ILogger::WriteLog, -7, "a line");
}

struct Raiser final : Object<OKM8::Analytics::IDetectorEventRaiser> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Raiser)
    void Unused1() override { Record<"Unused1", void>(this); }
    void Raise() override { Record<"Raise", void>(this); }
    void Discard() override { Record<"Discard", void>(this); }
    OKM8::Analytics::IEventArgsAdjuster* GetEventArgs() override {
        return Record<"GetEventArgs", OKM8::Analytics::IEventArgsAdjuster*>(this);
    }
};

TEST(RawTable, OfIDetectorEventRaiser) {
    using OKM8::Analytics::IDetectorEventRaiser;
    constexpr char name[] = "OKM8::Analytics::IDetectorEventRaiser";
    Raiser object;
    IDetectorEventRaiser* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Unused1", void()>::Check(name, seen, &IDetectorEventRaiser::Unused1);
    Operation<"Raise", void()>::Check(name, seen, &IDetectorEventRaiser::Raise);
    Operation<"Discard", void()>::Check(name, seen, &IDetectorEventRaiser::Discard);
    Operation<"GetEventArgs", OKM8::Analytics::IEventArgsAdjuster*()>::Check(name, seen,
                                                                             &IDetectorEventRaiser::GetEventArgs);
}

struct EventArgs final : Object<OKM8::Analytics::IEventArgsAdjuster> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(EventArgs)
    void Unused1() override { Record<"Unused1", void>(this); }
    void Unused2() override { Record<"Unused2", void>(this); }
    void Unused3() override { Record<"Unused3", void>(this); }
    void Unused4() override { Record<"Unused4", void>(this); }
    void Unused5() override { Record<"Unused5", void>(this); }
    void Unused6() override { Record<"Unused6", void>(this); }
    void Unused7() override { Record<"Unused7", void>(this); }
    void SetObjectValue(const char* name, IContract* value) override {
        Record<"SetObjectValue", void>(this, name, value);
    }
};

TEST(RawTable, OfIEventArgsAdjuster) {
    using OKM8::Analytics::IEventArgsAdjuster;
    constexpr char name[] = "OKM8::Analytics::IEventArgsAdjuster";
    EventArgs object;
    Host value;
    IEventArgsAdjuster* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Unused1", void()>::Check(name, seen, &IEventArgsAdjuster::Unused1);
    Operation<"Unused2", void()>::Check(name, seen, &IEventArgsAdjuster::Unused2);
    Operation<"Unused3", void()>::Check(name, seen, &IEventArgsAdjuster::Unused3);
    Operation<"Unused4", void()>::Check(name, seen, &IEventArgsAdjuster::Unused4);
    Operation<"Unused5", void()>::Check(name, seen, &IEventArgsAdjuster::Unused5);
    Operation<"Unused6", void()>::Check(name, seen, &IEventArgsAdjuster::Unused6);
    Operation<"Unused7", void()>::Check(name, seen, &IEventArgsAdjuster::Unused7);
    Operation<"SetObjectValue", void(const char*, IContract*)>::Check(name, seen, &IEventArgsAdjuster::SetObjectValue,
                                                                      "targets", &value);
}

struct Factory final : Object<OKM8::Analytics::ITargetEnumeratorFactory> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Factory)
    void Unused1() override { Record<"Unused1", void>(this); }
    void Unused2() override { Record<"Unused2", void>(this); }
    void Unused3() override { Record<"Unused3", void>(this); }
    void Unused4() override { Record<"Unused4", void>(this); }
    void Unused5() override { Record<"Unused5", void>(this); }
    void Unused6() override { Record<"Unused6", void>(this); }
    OKM8::Analytics::ITargetEnumeratorAdjuster* CreateTargetEnumerator(int64_t timeMs) override {
        return Record<"CreateTargetEnumerator", OKM8::Analytics::ITargetEnumeratorAdjuster*>(this, timeMs);
    }
};

TEST(RawTable, OfITargetEnumeratorFactory) {
    using OKM8::Analytics::ITargetEnumeratorFactory;
    constexpr char name[] = "OKM8::Analytics::ITargetEnumeratorFactory";
    Factory object;
    ITargetEnumeratorFactory* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Unused1", void()>::Check(name, seen, &ITargetEnumeratorFactory::Unused1);
    Operation<"Unused6", void()>::Check(name, seen, &ITargetEnumeratorFactory::Unused6);
    Operation<"CreateTargetEnumerator", OKM8::Analytics::ITargetEnumeratorAdjuster*(int64_t)>::Check(
        name, seen, &ITargetEnumeratorFactory::CreateTargetEnumerator, INT64_C(0x123456789ABCDEF));
}

struct Targets final : Object<OKM8::Analytics::ITargetEnumeratorAdjuster> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Targets)
    void Unused1() override { Record<"Unused1", void>(this); }
    void Unused2() override { Record<"Unused2", void>(this); }
    void Unused3() override { Record<"Unused3", void>(this); }
    void Unused4() override { Record<"Unused4", void>(this); }
    void Unused5() override { Record<"Unused5", void>(this); }
    void Unused6() override { Record<"Unused6", void>(this); }
    void Unused7() override { Record<"Unused7", void>(this); }
    OKM8::Analytics::ITargetAdjuster* AddTarget(int32_t reserved) override {
        return Record<"AddTarget", OKM8::Analytics::ITargetAdjuster*>(this, reserved);
    }
};

TEST(RawTable, OfITargetEnumeratorAdjuster) {
    using OKM8::Analytics::ITargetEnumeratorAdjuster;
    constexpr char name[] = "OKM8::Analytics::ITargetEnumeratorAdjuster";
    Targets object;
    ITargetEnumeratorAdjuster* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Unused1", void()>::Check(name, seen, &ITargetEnumeratorAdjuster::Unused1);
    Operation<"Unused7", void()>::Check(name, seen, &ITargetEnumeratorAdjuster::Unused7);
    Operation<"AddTarget", OKM8::Analytics::ITargetAdjuster*(int32_t)>::Check(
        name, seen, &ITargetEnumeratorAdjuster::AddTarget, -3);
}

/// The root operations of an object with several roots.
struct TargetBase : OKM8::Analytics::ITargetAdjuster {
    void* QueryContract(const char* contractName) override {
        return Record<"QueryContract", void*>(this, contractName);
    }
    void* QueryContract(const char* contractName) const override {
        return Record<"QueryContract const", void*>(const_cast<TargetBase*>(this), contractName);
    }
    void SetStringValue(const char* name, const char* value) override {
        Record<"SetStringValue", void>(this, name, value);
    }
    void SetDoubleValue(const char* name, double value) override { Record<"SetDoubleValue", void>(this, name, value); }
    void SetIntValue(const char* name, int32_t value) override { Record<"SetIntValue", void>(this, name, value); }
    void SetBoolValue(const char* name, bool value) override { Record<"SetBoolValue", void>(this, name, value); }
};

struct PlainTarget final : TargetBase {
    OKM8_OBJECT_DESTRUCTOR_SLOT(PlainTarget)
};

struct BinaryTarget final : TargetBase, OKM8::IBinaryAdjuster {
    OKM8_OBJECT_DESTRUCTOR_SLOT(BinaryTarget)
    void* QueryContract(const char* contractName) override { return TargetBase::QueryContract(contractName); }
    void* QueryContract(const char* contractName) const override { return TargetBase::QueryContract(contractName); }
    void SetBinaryValue(const char* name, const void* data, uint32_t size) override {
        Record<"SetBinaryValue", void>(this, name, data, size);
    }
};

std::ptrdiff_t OffsetOf(const void* base, const void* object) {
    return static_cast<const char*>(base) - static_cast<const char*>(object);
}

TEST(RawTable, OfITargetAdjusterHasTheCopyableObjectFirstAndTheValuesSecond) {
    BinaryTarget object;
    OKM8::Analytics::ITargetAdjuster* const target = &object;
    EXPECT_EQ(OffsetOf(target, &object), 0);
    EXPECT_EQ(OffsetOf(static_cast<OKM8::ICloneable*>(target), target), 0);
    EXPECT_EQ(OffsetOf(static_cast<OKM8::Analytics::ITargetValues*>(target), target), 8);
    EXPECT_EQ(OffsetOf(static_cast<OKM8::IBinaryAdjuster*>(&object), &object), 16);
}

TEST(RawTable, OfICloneable) {
    PlainTarget object;
    CheckRoot("OKM8::ICloneable", static_cast<OKM8::ICloneable*>(&object));
}

// Called by slot, an operation of a later base receives that base's address and finds the complete object from it.
template <class Result, class... Arguments>
std::string BySlot(void* base, const char* interfaceName, const char* operation, Arguments... arguments) {
    calls.clear();
    sdk_test::CallEntry<Result, Arguments...>(base, Slot(interfaceName, operation), arguments...);
    return calls.size() == 1 ? calls.front() : "not one call";
}

TEST(RawTable, OfTheValueSettersOfATarget) {
    using OKM8::Analytics::ITargetValues;
    constexpr char name[] = "OKM8::Analytics::ITargetValues";
    BinaryTarget object;
    void* const base = reinterpret_cast<char*>(&object) + 8;
    EXPECT_EQ((BySlot<void*>(base, name, "QueryContract", "struct X")), "QueryContract \"struct X\"");
    EXPECT_EQ((BySlot<void*>(base, name, "QueryContract const", "struct X")), "QueryContract const \"struct X\"");
    EXPECT_EQ((BySlot<void>(base, name, "SetStringValue", "lp_wnum", "A1")), "SetStringValue \"lp_wnum\" \"A1\"");
    EXPECT_EQ((BySlot<void>(base, name, "SetDoubleValue", "d", -2.5)), "SetDoubleValue \"d\" -2.5");
    EXPECT_EQ((BySlot<void>(base, name, "SetIntValue", "i", int32_t{-9})), "SetIntValue \"i\" -9");
    EXPECT_EQ((BySlot<void>(base, name, "SetBoolValue", "b", true)), "SetBoolValue \"b\" true");
    EXPECT_EQ(calledObject, &object);

    HandMade handMade(name);
    handMade.Put(Slot(name, "SetStringValue"),
                 reinterpret_cast<void*>(&Record<"SetStringValue", void, const char*, const char*>));
    handMade.Put(Slot(name, "SetDoubleValue"),
                 reinterpret_cast<void*>(&Record<"SetDoubleValue", void, const char*, double>));
    handMade.Put(Slot(name, "SetIntValue"),
                 reinterpret_cast<void*>(&Record<"SetIntValue", void, const char*, int32_t>));
    handMade.Put(Slot(name, "SetBoolValue"), reinterpret_cast<void*>(&Record<"SetBoolValue", void, const char*, bool>));
    auto* const values = handMade.As<ITargetValues>();
    calls.clear();
    values->SetStringValue("lp_wnum", "A1");
    values->SetDoubleValue("d", -2.5);
    values->SetIntValue("i", -9);
    values->SetBoolValue("b", true);
    EXPECT_EQ(calls, (std::vector<std::string>{"SetStringValue \"lp_wnum\" \"A1\"", "SetDoubleValue \"d\" -2.5",
                                               "SetIntValue \"i\" -9", "SetBoolValue \"b\" true"}));
    EXPECT_EQ(calledObject, values);
}

TEST(RawTable, OfITargetAdjusterIsCalledThroughItsSecondTable) {
    // Two hand-made tables, as a host of another compiler has them.
    struct TwoTables {
        void** first;
        void** second;
    };
    HandMade copyable("OKM8::ICloneable");
    HandMade values("OKM8::Analytics::ITargetValues");
    values.Put(Slot("OKM8::Analytics::ITargetValues", "SetIntValue"),
               reinterpret_cast<void*>(&Record<"SetIntValue", void, const char*, int32_t>));
    TwoTables object{*reinterpret_cast<void***>(copyable.As<void*>()), *reinterpret_cast<void***>(values.As<void*>())};
    auto* const target = reinterpret_cast<OKM8::Analytics::ITargetAdjuster*>(&object);
    calls.clear();
    target->SetIntValue("confidence", 88);
    EXPECT_EQ(calls, std::vector<std::string>{"SetIntValue \"confidence\" 88"});
    EXPECT_EQ(calledObject, &object.second);
}

TEST(RawTable, OfIBinaryAdjusterAsALaterBase) {
    constexpr char name[] = "OKM8::IBinaryAdjuster";
    BinaryTarget object;
    void* const base = reinterpret_cast<char*>(&object) + 16;
    const void* const bytes = returnedObject;
    const std::string expected = Text("SetBinaryValue", static_cast<const char*>("all_tracks"), bytes, 4000000000u);
    EXPECT_EQ((BySlot<void>(base, name, "SetBinaryValue", "all_tracks", bytes, uint32_t{4000000000u})), expected);
    EXPECT_EQ(calledObject, &object);

    HandMade handMade(name);
    handMade.Put(Slot(name, "SetBinaryValue"),
                 reinterpret_cast<void*>(&Record<"SetBinaryValue", void, const char*, const void*, uint32_t>));
    calls.clear();
    handMade.As<OKM8::IBinaryAdjuster>()->SetBinaryValue("all_tracks", bytes, 4000000000u);
    EXPECT_EQ(calls, std::vector<std::string>{expected});
    EXPECT_TRUE((std::is_same_v<decltype(&OKM8::IBinaryAdjuster::SetBinaryValue),
                                void (OKM8::IBinaryAdjuster::*)(const char*, const void*, uint32_t)>));
}

TEST(RawTable, ACheckedCastFindsTheBinaryAdjusterOrNothing) {
    BinaryTarget binary;
    PlainTarget plain;
    OKM8::Analytics::ITargetAdjuster* target = &binary;
    auto* const found = dynamic_cast<OKM8::IBinaryAdjuster*>(target);
    EXPECT_EQ(OffsetOf(found, &binary), 16);
    EXPECT_EQ(dynamic_cast<OKM8::IBinaryAdjuster*>(static_cast<OKM8::Analytics::ITargetValues*>(target)), found);
    target = &plain;
    EXPECT_EQ(dynamic_cast<OKM8::IBinaryAdjuster*>(target), nullptr);
}

// --- library side ---

struct Module final : Object<OKM8::Analytics::IModule> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Module)
    OKM8::Analytics::IDetector* CreateDetector(void* reserved, IContract* detectorPeer) override {
        return Record<"CreateDetector", OKM8::Analytics::IDetector*>(this, reserved, detectorPeer);
    }
};

TEST(RawTable, OfIModule) {
    constexpr char name[] = "OKM8::Analytics::IModule";
    Module object;
    Peer peer;
    OKM8::Analytics::IModule* const seen = &object;
    CheckRoot("OKM8::PLUGIN::IPluginModule", static_cast<OKM8::PLUGIN::IPluginModule*>(seen));
    CheckRoot(name, seen);
    Operation<"CreateDetector", OKM8::Analytics::IDetector*(void*, IContract*)>::Check(
        name, seen, &OKM8::Analytics::IModule::CreateDetector, returnedObject, &peer);
}

struct Detector final : Object<OKM8::Analytics::IDetector> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Detector)
    void Destroy() override { Record<"Destroy", void>(this); }
};

TEST(RawTable, OfIDetectorAndIDestroyable) {
    Detector object;
    OKM8::Analytics::IDetector* const seen = &object;
    CheckRoot("OKM8::Analytics::IDetector", seen);
    Operation<"Destroy", void()>::Check("OKM8::Analytics::IDetector", seen, &OKM8::Analytics::IDetector::Destroy);
    OKM8::IDestroyable* const destroyable = &object;
    CheckRoot("OKM8::IDestroyable", destroyable);
    Operation<"Destroy", void()>::Check("OKM8::IDestroyable", destroyable, &OKM8::IDestroyable::Destroy);
}

struct Receiver final : Object<OKM8::Analytics::IMediaReceiver> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Receiver)
    int32_t Receive(IMultimediaBuffer* inputData) override { return Record<"Receive", int32_t>(this, inputData); }
};

TEST(RawTable, OfIMediaReceiver) {
    constexpr char name[] = "OKM8::Analytics::IMediaReceiver";
    Receiver object;
    Buffer buffer;
    OKM8::Analytics::IMediaReceiver* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Receive", int32_t(IMultimediaBuffer*)>::Check(name, seen, &OKM8::Analytics::IMediaReceiver::Receive,
                                                             &buffer);
}

struct Single final : Object<OKM8::Analytics::IMediaReceiverSingle2> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Single)
    int32_t ReceiveSingle(IMultimediaBuffer* inputData, const FrameArea* area, IContract* frameDoneCallback) override {
        return Record<"ReceiveSingle", int32_t>(this, inputData, area, frameDoneCallback);
    }
    int32_t SetStringValue(const char* name, const char* value) override {
        return Record<"SetStringValue", int32_t>(this, name, value);
    }
    int32_t SetDoubleValue(const char* name, double value) override {
        return Record<"SetDoubleValue", int32_t>(this, name, value);
    }
    int32_t SetIntValue(const char* name, int32_t value) override {
        return Record<"SetIntValue", int32_t>(this, name, value);
    }
    int32_t SetBoolValue(const char* name, bool value) override {
        return Record<"SetBoolValue", int32_t>(this, name, value);
    }
};

TEST(RawTable, OfIMediaReceiverSingle) {
    using OKM8::Analytics::IMediaReceiverSingle;
    constexpr char name[] = "OKM8::Analytics::IMediaReceiverSingle";
    Single object;
    Buffer buffer;
    FrameDone callback;
    const FrameArea area{1, 2, 3, 4};
    IMediaReceiverSingle* const seen = &object;
    CheckRoot(name, seen);
    Operation<"ReceiveSingle", int32_t(IMultimediaBuffer*, const FrameArea*, IContract*)>::Check(
        name, seen, &IMediaReceiverSingle::ReceiveSingle, &buffer, &area, &callback);
}

// The four setters have the same order in every interface.
template <class Interface>
void CheckSetters(const char* name, Interface* seen) {
    Operation<"SetStringValue", int32_t(const char*, const char*)>::Check(name, seen, &Interface::SetStringValue, "s",
                                                                          "text");
    Operation<"SetDoubleValue", int32_t(const char*, double)>::Check(name, seen, &Interface::SetDoubleValue, "d", 0.25);
    Operation<"SetIntValue", int32_t(const char*, int32_t)>::Check(name, seen, &Interface::SetIntValue, "i", INT32_MIN);
    Operation<"SetBoolValue", int32_t(const char*, bool)>::Check(name, seen, &Interface::SetBoolValue, "b", true);
    Operation<"SetBoolValue", int32_t(const char*, bool)>::Check(name, seen, &Interface::SetBoolValue, "b", false);
}

TEST(RawTable, OfIMediaReceiverSingle2) {
    using OKM8::Analytics::IMediaReceiverSingle2;
    constexpr char name[] = "OKM8::Analytics::IMediaReceiverSingle2";
    Single object;
    IMediaReceiverSingle2* const seen = &object;
    CheckRoot(name, seen);
    Operation<"ReceiveSingle", int32_t(IMultimediaBuffer*, const FrameArea*, IContract*)>::Check(
        name, seen, &IMediaReceiverSingle2::ReceiveSingle, nullptr, nullptr, nullptr);
    CheckSetters(name, seen);
}

struct Adjuster final : Object<OKM8::IAsyncAdjuster> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Adjuster)
    int32_t SetStringValue(const char* name, const char* value) override {
        return Record<"SetStringValue", int32_t>(this, name, value);
    }
    int32_t SetDoubleValue(const char* name, double value) override {
        return Record<"SetDoubleValue", int32_t>(this, name, value);
    }
    int32_t SetIntValue(const char* name, int32_t value) override {
        return Record<"SetIntValue", int32_t>(this, name, value);
    }
    int32_t SetBoolValue(const char* name, bool value) override {
        return Record<"SetBoolValue", int32_t>(this, name, value);
    }
    void ApplySettings() override { Record<"ApplySettings", void>(this); }
};

TEST(RawTable, OfIAsyncAdjuster) {
    constexpr char name[] = "OKM8::IAsyncAdjuster";
    Adjuster object;
    OKM8::IAsyncAdjuster* const seen = &object;
    CheckRoot(name, seen);
    CheckSetters(name, seen);
    Operation<"ApplySettings", void()>::Check(name, seen, &OKM8::IAsyncAdjuster::ApplySettings);
}

struct ErrorInfo final : Object<OKM8::IErrorInfoProvider> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(ErrorInfo)
    int32_t GetErrorCode() override { return Record<"GetErrorCode", int32_t>(this); }
    const char* GetErrorMessage() override { return Record<"GetErrorMessage", const char*>(this); }
};

TEST(RawTable, OfIErrorInfoProvider) {
    constexpr char name[] = "OKM8::IErrorInfoProvider";
    ErrorInfo object;
    OKM8::IErrorInfoProvider* const seen = &object;
    CheckRoot(name, seen);
    Operation<"GetErrorCode", int32_t()>::Check(name, seen, &OKM8::IErrorInfoProvider::GetErrorCode);
    Operation<"GetErrorMessage", const char*()>::Check(name, seen, &OKM8::IErrorInfoProvider::GetErrorMessage);
}

struct Controller final : Object<OKM8::Analytics::IMediaReceiverController> {
    OKM8_OBJECT_DESTRUCTOR_SLOT(Controller)
    int32_t Control1() override { return Record<"Control1", int32_t>(this); }
    int32_t Control2() override { return Record<"Control2", int32_t>(this); }
    int32_t Control3() override { return Record<"Control3", int32_t>(this); }
    int32_t Control4() override { return Record<"Control4", int32_t>(this); }
    int32_t Control5() override { return Record<"Control5", int32_t>(this); }
};

TEST(RawTable, OfIMediaReceiverController) {
    using OKM8::Analytics::IMediaReceiverController;
    constexpr char name[] = "OKM8::Analytics::IMediaReceiverController";
    Controller object;
    IMediaReceiverController* const seen = &object;
    CheckRoot(name, seen);
    Operation<"Control1", int32_t()>::Check(name, seen, &IMediaReceiverController::Control1);
    Operation<"Control2", int32_t()>::Check(name, seen, &IMediaReceiverController::Control2);
    Operation<"Control3", int32_t()>::Check(name, seen, &IMediaReceiverController::Control3);
    Operation<"Control4", int32_t()>::Check(name, seen, &IMediaReceiverController::Control4);
    Operation<"Control5", int32_t()>::Check(name, seen, &IMediaReceiverController::Control5);
}

}  // namespace
