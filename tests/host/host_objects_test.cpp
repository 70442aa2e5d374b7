#include "tools/host/host_objects.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "sdk/contract_names.h"
#include "tools/host/frame_buffer.h"

namespace plate_host {
namespace {

namespace ContractName = OKM8::ContractName;

/// Calls the operation in a slot, as a library of another compiler does.
template <class Result, class... Arguments>
Result CallSlot(void* object, std::size_t slot, Arguments... arguments) {
    void** table = nullptr;
    std::memcpy(&table, object, sizeof table);
    return reinterpret_cast<Result (*)(void*, Arguments...)>(table[slot])(object, arguments...);
}

class Recorder final : public EventSink {
  public:
    void OnEvent(const EventRecord& event) override { events.push_back(event); }
    std::vector<EventRecord> events;
};

class HostObjects : public testing::Test {
  protected:
    OKM8::Analytics::ITargetEnumeratorFactory* Factory() {
        return static_cast<OKM8::Analytics::ITargetEnumeratorFactory*>(
            host.GetInterface(ContractName::ITargetEnumeratorFactory));
    }

    Console console{false};
    HostObject host{console};
    Recorder recorder;
    DetectorPeer peer{5, host, recorder, console};
};

TEST_F(HostObjects, TheHostObjectReturnsOnlyItsTwoServices) {
    EXPECT_NE(CallSlot<void*>(&host, 3, static_cast<const char*>(ContractName::ILogger)), nullptr);
    EXPECT_NE(CallSlot<void*>(&host, 3, static_cast<const char*>(ContractName::ITargetEnumeratorFactory)), nullptr);
    EXPECT_EQ(CallSlot<void*>(&host, 3, static_cast<const char*>(ContractName::IModule)), nullptr);
    EXPECT_EQ(CallSlot<void*>(&host, 3, static_cast<const char*>(nullptr)), nullptr);
}

TEST_F(HostObjects, AnEventIsRaisedThroughTheSlots) {
    void* const factory = CallSlot<void*>(&host, 3, static_cast<const char*>(ContractName::ITargetEnumeratorFactory));
    void* const targets = CallSlot<void*>(factory, 9, int64_t{77});
    void* const raiser = CallSlot<void*>(&peer, 3, static_cast<void*>(nullptr), static_cast<const char*>("event"),
                                         int64_t{77}, int32_t{3});
    void* const arguments = CallSlot<void*>(raiser, 6);
    CallSlot<void>(arguments, 10, static_cast<const char*>("targets"), targets);
    void* const target = CallSlot<void*>(targets, 10, int32_t{0});
    void* const values = static_cast<char*>(target) + sizeof(void*);
    CallSlot<void>(values, 3, static_cast<const char*>("text"), static_cast<const char*>("AB"));
    CallSlot<void>(values, 4, static_cast<const char*>("number"), 2.5);
    CallSlot<void>(values, 5, static_cast<const char*>("count"), int32_t{-4});
    CallSlot<void>(values, 6, static_cast<const char*>("truth"), true);
    auto* const adjuster = static_cast<OKM8::Analytics::ITargetAdjuster*>(target);
    auto* const binary = dynamic_cast<OKM8::IBinaryAdjuster*>(adjuster);
    ASSERT_NE(binary, nullptr);
    CallSlot<void>(binary, 3, static_cast<const char*>("figures"), static_cast<const void*>("\x01\xFF"), uint32_t{2});
    CallSlot<void>(raiser, 4);
    ASSERT_EQ(recorder.events.size(), 1u);
    EXPECT_EQ(recorder.events[0].channel, 5);
    EXPECT_EQ(recorder.events[0].name, "event");
    EXPECT_EQ(recorder.events[0].timeMs, 77);
    EXPECT_EQ(recorder.events[0].targets.at(0).arguments.dump(),
              R"({"text":"AB","number":2.5,"count":-4,"truth":true,"figures":"01ff"})");
    EXPECT_EQ(peer.Counts().raised, 1u);
    EXPECT_EQ(host.TargetLists().UnattachedListCount(), 0u);
}

TEST_F(HostObjects, TheTrackIsReadWhenTheEventIsRaised) {
    auto* const targets = Factory()->CreateTargetEnumerator(0);
    auto* const raiser = peer.CreateEventRaiser(nullptr, "event", 0, 3);
    raiser->GetEventArgs()->SetObjectValue("targets", targets);
    auto* const binary = dynamic_cast<OKM8::IBinaryAdjuster*>(targets->AddTarget(0));
    OKM8::Analytics::TrackPoint point{1, 2, 3, 4, OKM8::Analytics::TrackTimeEpoch, 0, {}};
    OKM8::Analytics::TrackPointList list{&point, &point, &point};
    ASSERT_NE(binary, nullptr);
    binary->SetBinaryValue("all_tracks", &list, sizeof list);
    list = {&point, &point + 1, &point + 1};
    point.x = 9;
    raiser->Raise();
    EXPECT_EQ(recorder.events.at(0).targets.at(0).track.dump(), R"([{"x":9,"y":2,"width":3,"height":4,"time":0}])");
    EXPECT_TRUE(recorder.events[0].targets[0].arguments.empty());
}

TEST_F(HostObjects, ATrackOfAnotherSizeIsShownAsBytes) {
    Target target;
    target.SetBinaryValue("all_tracks", "abc", 3);
    const TargetRecord record = target.Describe();
    EXPECT_TRUE(record.track.is_null());
    EXPECT_EQ(record.arguments["all_tracks"], "616263");
}

TEST_F(HostObjects, NullNamesAndValuesAreShown) {
    Target target;
    target.SetStringValue("text", nullptr);
    target.SetIntValue(nullptr, 1);
    target.SetBinaryValue("bytes", nullptr, 5);
    EXPECT_EQ(target.Describe().arguments.dump(), R"json({"text":null,"(null)":1,"bytes":null})json");
}

TEST_F(HostObjects, ATargetReturnsTheRightPartForEachOfItsContracts) {
    Target target;
    EXPECT_EQ(target.QueryContract(ContractName::IContract), static_cast<OKM8::ICloneable*>(&target));
    EXPECT_EQ(target.QueryContract(ContractName::ITargetAdjuster), static_cast<OKM8::ICloneable*>(&target));
    EXPECT_EQ(target.QueryContract(ContractName::IBinaryAdjuster), static_cast<OKM8::IBinaryAdjuster*>(&target));
    EXPECT_EQ(target.QueryContract(ContractName::IModule), nullptr);
    EXPECT_EQ(target.QueryContract(nullptr), nullptr);
}

TEST_F(HostObjects, ADiscardedRaiserIsCountedAndPublishesNothing) {
    peer.CreateEventRaiser(nullptr, "event", 0, 3)->Discard();
    EXPECT_TRUE(recorder.events.empty());
    EXPECT_EQ(peer.Counts().created, 1u);
    EXPECT_EQ(peer.Counts().discarded, 1u);
    EXPECT_EQ(peer.Counts().raised, 0u);
}

TEST_F(HostObjects, ATargetListAttachedTwiceIsAnOtherObjectTheSecondTime) {
    auto* const targets = Factory()->CreateTargetEnumerator(0);
    EXPECT_EQ(host.TargetLists().UnattachedListCount(), 1u);
    auto* const first = peer.CreateEventRaiser(nullptr, "first", 0, 3);
    auto* const second = peer.CreateEventRaiser(nullptr, "second", 0, 3);
    first->GetEventArgs()->SetObjectValue("targets", targets);
    second->GetEventArgs()->SetObjectValue("targets", targets);
    second->GetEventArgs()->SetObjectValue("image", nullptr);
    EXPECT_EQ(host.TargetLists().UnattachedListCount(), 0u);
    first->Raise();
    second->Raise();
    EXPECT_TRUE(recorder.events.at(0).otherObjects.empty());
    EXPECT_THAT(recorder.events.at(1).otherObjects, testing::ElementsAre("targets", "image"));
}

TEST_F(HostObjects, ABufferIsCountedUntilItsRelease) {
    BufferCounts buffers;
    Picture picture = MakePicture(4, 2, true);
    picture.bytes[0] = 42;
    picture.timeMs = 1234;
    void* const input = FrameBuffer::Create(std::move(picture), buffers);
    EXPECT_EQ(buffers.passed, 1u);
    void* const buffer = CallSlot<void*>(input, 0, static_cast<const char*>(ContractName::ICompositeBuffer));
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(CallSlot<uint64_t>(buffer, 3), 1234u);
    EXPECT_EQ(*CallSlot<uint8_t*>(buffer, 7), 42);
    EXPECT_EQ(CallSlot<uint32_t>(buffer, 8), 12u);
    EXPECT_EQ(CallSlot<uint32_t>(buffer, 9), 4u);
    EXPECT_EQ(CallSlot<uint32_t>(buffer, 10), 2u);
    EXPECT_EQ(buffers.released, 0u);
    CallSlot<void>(buffer, 6);
    EXPECT_EQ(buffers.released, 1u);
}

TEST_F(HostObjects, AFrameDoneCallWithoutItsBufferOrRepeatedIsWrong) {
    BufferCounts buffers;
    FrameBuffer* const buffer = FrameBuffer::Create(MakePicture(2, 2, false), buffers);
    FrameDoneCounter counter;
    counter.Expect(buffer);
    CallSlot<void>(&counter, 3, static_cast<void*>(buffer));
    EXPECT_EQ(counter.CallCount(), 1u);
    EXPECT_EQ(counter.WrongCallCount(), 0u);
    counter.OnFrameDone(buffer);
    EXPECT_EQ(counter.WrongCallCount(), 1u);
    counter.Expect(buffer);
    counter.OnFrameDone(nullptr);
    EXPECT_EQ(counter.WrongCallCount(), 2u);
    EXPECT_EQ(counter.CallCount(), 3u);
    buffer->Release();
}

}  // namespace
}  // namespace plate_host
