// Events step by step, with a host that returns null at each step.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>

#include "sdk/contract_names.h"
#include "tests/detector/test_detector.h"
#include "tests/support/environment.h"

namespace {

using detector_tests::BufferPointer;
using detector_tests::DetectorPointer;
using detector_tests::Error;
using detector_tests::ErrorOf;
using detector_tests::ErrorsOf;
using detector_tests::FrameImage;
using detector_tests::MakeDetector;
using detector_tests::ReceiverOf;
using detector_tests::RefuseASetting;
using detector_tests::SettingsOf;
using detector_tests::SingleReceiverOf;
using OKM8::Analytics::IDetectorEventRaiser;
using OKM8::Analytics::ITargetAdjuster;
using OKM8::Analytics::ITargetEnumeratorAdjuster;
using recording_host::HostCall;
using recording_host::On;
using recording_host::Operation;
using recording_host::RecordedEvent;
using recording_host::Refusals;
using testing::ElementsAre;
using testing::IsEmpty;

// Reads the clock through another library.
std::int64_t Now() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

class Events : public testing::Test {
  protected:
    bool Prepare(OKM8::IContract* image = nullptr) {
        return detector->PrepareEvent("alarm", 1234567890123, image, &targets, &raiser);
    }

    recording_host::RecordingHost host;
    DetectorPointer detector = MakeDetector(host);
    ITargetEnumeratorAdjuster* targets = nullptr;
    IDetectorEventRaiser* raiser = nullptr;
    ITargetAdjuster* target = nullptr;
};

TEST_F(Events, APreparedEventHasItsTargetsAndNothingElse) {
    ASSERT_TRUE(Prepare());
    EXPECT_NE(targets, nullptr);
    EXPECT_NE(raiser, nullptr);
    ASSERT_EQ(host.Events().size(), 1u);
    const RecordedEvent event = host.Events().front();
    EXPECT_EQ(event.detector, static_cast<OKM8::Analytics::IDetector*>(detector.get()));
    EXPECT_EQ(event.name, "alarm");
    EXPECT_EQ(event.timeMs, 1234567890123);
    EXPECT_EQ(event.targetsTimeMs, 1234567890123);
    EXPECT_EQ(event.kind, 3);
    EXPECT_THAT(event.objectKeys, ElementsAre("targets"));
    EXPECT_EQ(event.objects.at("targets"), static_cast<OKM8::IContract*>(targets));
    EXPECT_THAT(event.targets, IsEmpty());
    EXPECT_EQ(event.raised, 0);
    EXPECT_EQ(event.discarded, 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Events, AnImageIsAttachedAfterTheTargets) {
    OKM8::IContract* const image = host.Peer();
    ASSERT_TRUE(Prepare(image));
    EXPECT_THAT(host.Events().front().objectKeys, ElementsAre("targets", "image"));
    EXPECT_EQ(host.Events().front().objects.at("image"), image);
}

TEST_F(Events, TheFactoryIsRequestedForEveryEvent) {
    Prepare();
    Prepare();
    const std::string factory = "struct OKM8::Analytics::ITargetEnumeratorFactory";
    EXPECT_THAT(host.RequestedInterfaces(), ElementsAre("struct OKM8::ILogger", factory, factory));
}

TEST_F(Events, PreparingDoesNotClearAnEarlierError) {
    RefuseASetting(*detector);
    ASSERT_TRUE(Prepare());
    EXPECT_EQ(ErrorOf(*detector), Error(2816, "no such setting"));
}

struct FailingStep {
    const char* description;
    bool Refusals::*refusal;
    const char* text;
    bool hasRaiser;  // which is then discarded once
};

std::ostream& operator<<(std::ostream& stream, const FailingStep& step) {
    return stream << step.description;
}

const FailingStep preparationSteps[] = {
    {"Factory", &Refusals::factory, "ITargetEnumeratorFactory getting error", false},
    {"Enumerator", &Refusals::enumerator, "ITargetEnumeratorAdjuster getting error", false},
    {"Raiser", &Refusals::raiser, "IDetectorEventRaiser getting error", false},
    {"Arguments", &Refusals::arguments, "IEventArgsAdjuster getting error", true},
};

const FailingStep allSteps[] = {
    preparationSteps[0],
    preparationSteps[1],
    preparationSteps[2],
    preparationSteps[3],
    {"Target", &Refusals::target, "ITargetAdjuster getting error", true},
};

class EventFailure : public Events, public testing::WithParamInterface<FailingStep> {
  protected:
    EventFailure() { host.refusals.*GetParam().refusal = true; }

    void ExpectNothingRaisedAndTheRaiserDiscardedOnce() {
        const std::vector<RecordedEvent> events = host.Events();
        ASSERT_EQ(events.size(), GetParam().hasRaiser ? 1u : 0u);
        for (const RecordedEvent& event : events) {
            EXPECT_EQ(event.raised, 0);
            EXPECT_EQ(event.discarded, 1);
        }
        EXPECT_EQ(raiser, nullptr) << "a discarded raiser must not be found by the caller";
    }
};

class PreparationFailure : public EventFailure {};

TEST_P(PreparationFailure, IsInTheErrorState) {
    EXPECT_FALSE(Prepare());
    EXPECT_EQ(ErrorOf(*detector), Error(1, GetParam().text));
    ExpectNothingRaisedAndTheRaiserDiscardedOnce();
}

INSTANTIATE_TEST_SUITE_P(AtEachStep, PreparationFailure, testing::ValuesIn(preparationSteps),
                         [](const auto& instance) { return std::string(instance.param.description); });

TEST_P(EventFailure, WithATargetIsInTheErrorState) {
    EXPECT_FALSE(detector->CreateEventWithTarget("alarm", &target, &raiser));
    EXPECT_EQ(ErrorOf(*detector), Error(1, GetParam().text));
    ExpectNothingRaisedAndTheRaiserDiscardedOnce();
}

TEST_P(EventFailure, OfDebugFiguresIsInTheErrorState) {
    const std::uint8_t figures[32] = {};
    detector->RaiseDebugFigures(figures, "key");
    EXPECT_EQ(ErrorOf(*detector), Error(1, GetParam().text));
    ExpectNothingRaisedAndTheRaiserDiscardedOnce();
}

TEST_P(EventFailure, InsideAFrameIsTheFramesErrorAndTheFrameContinues) {
    recording_host::BufferCounts counts;
    recording_host::RecordingFrameDone done;
    bool wentOn = false;
    const std::uint8_t figures[32] = {};
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        detector->RaiseDebugFigures(figures, "first");
        wentOn = true;
    };
    EXPECT_EQ(SingleReceiverOf(*detector).ReceiveSingle(recording_host::MakeFrame(counts, 64, 48, 8), nullptr, &done),
              1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, GetParam().text));
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(done.buffers.size(), 1u);
    EXPECT_EQ(detector->lastTimeStamp, 8u);
    EXPECT_EQ(counts.released, 1);
}

TEST_P(EventFailure, IsNotClearedByALaterEventOfTheSameFrame) {
    recording_host::BufferCounts counts;
    const std::uint8_t figures[32] = {};
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        detector->RaiseDebugFigures(figures, "first");
        host.refusals = {};
        detector->RaiseDebugFigures(figures, "second");
    };
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 8)), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, GetParam().text));
    EXPECT_EQ(host.Events().back().raised, 1);
    detector->onRecognize = nullptr;
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 9)), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

INSTANTIATE_TEST_SUITE_P(AtEachStep, EventFailure, testing::ValuesIn(allSteps),
                         [](const auto& instance) { return std::string(instance.param.description); });

TEST_F(Events, TheLastFailureOfAFrameIsTheOneReported) {
    recording_host::BufferCounts counts;
    const std::uint8_t figures[32] = {};
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        host.refusals.factory = true;
        detector->RaiseDebugFigures(figures, "first");
        host.refusals.factory = false;
        host.refusals.raiser = true;
        detector->RaiseDebugFigures(figures, "second");
    };
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 8)), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "IDetectorEventRaiser getting error"));
}

TEST_F(Events, AnEventWithATargetHasTheCurrentTimeAndIsRaisedByTheCaller) {
    const std::int64_t before = Now();
    ASSERT_TRUE(detector->CreateEventWithTarget("alarm", &target, &raiser));
    const std::int64_t after = Now();
    ASSERT_EQ(host.Events().size(), 1u);
    const RecordedEvent event = host.Events().front();
    EXPECT_GE(event.timeMs, before);
    EXPECT_LE(event.timeMs, after);
    EXPECT_EQ(event.targetsTimeMs, event.timeMs);
    EXPECT_EQ(event.kind, 3);
    EXPECT_THAT(event.objectKeys, ElementsAre("targets"));
    ASSERT_EQ(event.targets.size(), 1u);
    EXPECT_EQ(event.targets[0].reserved, 0);
    EXPECT_THAT(event.targets[0].values, IsEmpty());
    EXPECT_EQ(event.raised, 0);
    EXPECT_EQ(event.discarded, 0);
    ASSERT_NE(target, nullptr);
    ASSERT_NE(raiser, nullptr);
    target->SetIntValue("n", 5);
    raiser->Raise();
    EXPECT_EQ(host.Events().front().raised, 1);
    EXPECT_EQ(host.Events().front().targets[0].Find("n")->number, 5);
}

TEST_F(Events, TheCurrentTimeOfAnEventIsUtcInAnyTimeZone) {
    test_support::SetEnvironment("TZ", "VEX-05:30");  // 5 h 30 min east
    test_support::ReadTimeZone();
    const std::int64_t before = Now();
    EXPECT_TRUE(detector->CreateEventWithTarget("alarm", &target, &raiser));
    const std::int64_t after = Now();
    test_support::UnsetEnvironment("TZ");
    test_support::ReadTimeZone();
    ASSERT_EQ(host.Events().size(), 1u);
    EXPECT_GE(host.Events().front().timeMs, before);
    EXPECT_LE(host.Events().front().timeMs, after);
}

TEST_F(Events, DebugFiguresCarry32BytesUnderTheGivenKey) {
    std::uint8_t figures[40];
    for (std::uint8_t index = 0; index < 40; ++index) {
        figures[index] = index;
    }
    const std::int64_t before = Now();
    detector->RaiseDebugFigures(figures, "figures of lane 1");
    const std::int64_t after = Now();
    ASSERT_EQ(host.Events().size(), 1u);
    const RecordedEvent event = host.Events().front();
    EXPECT_EQ(event.name, "DEBUG_FIGURES");
    EXPECT_EQ(event.kind, 3);
    EXPECT_GE(event.timeMs, before);
    EXPECT_LE(event.timeMs, after);
    EXPECT_THAT(event.objectKeys, ElementsAre("targets"));
    ASSERT_EQ(event.targets.size(), 1u);
    EXPECT_EQ(event.targets[0].reserved, 0);
    ASSERT_EQ(event.targets[0].values.size(), 2u);
    const auto& bytes = event.targets[0].values[0];
    EXPECT_EQ(bytes.key, "figures");
    EXPECT_EQ(bytes.setter, 'x');
    EXPECT_EQ(bytes.bytes, std::vector<std::uint8_t>(figures, figures + 32));
    const auto& key = event.targets[0].values[1];
    EXPECT_EQ(key.key, "figures_key");
    EXPECT_EQ(key.setter, 's');
    EXPECT_EQ(key.text, "figures of lane 1");
    EXPECT_EQ(event.raised, 1);
    EXPECT_EQ(event.discarded, 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Events, DebugFiguresWithoutAKeyUseNameDotId) {
    SettingsOf(*detector).SetStringValue("name", "gate");
    SettingsOf(*detector).SetStringValue("id", "12");
    const std::uint8_t figures[32] = {};
    detector->RaiseDebugFigures(figures, "");
    ASSERT_EQ(host.Events().size(), 1u);
    ASSERT_EQ(host.Events()[0].targets.size(), 1u);
    ASSERT_NE(host.Events()[0].targets[0].Find("figures_key"), nullptr);
    EXPECT_EQ(host.Events()[0].targets[0].Find("figures_key")->text, "gate.12");
}

TEST_F(Events, DebugFiguresAreSentWithoutTheirBytesToATargetWithoutABinarySetter) {
    host.refusals.binarySetter = true;
    const std::uint8_t figures[32] = {};
    detector->RaiseDebugFigures(figures, "key");
    ASSERT_EQ(host.Events().size(), 1u);
    const RecordedEvent event = host.Events().front();
    ASSERT_EQ(event.targets.size(), 1u);
    ASSERT_EQ(event.targets[0].values.size(), 1u);
    EXPECT_EQ(event.targets[0].values[0].key, "figures_key");
    EXPECT_EQ(event.raised, 1);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

TEST_F(Events, AnEventThatFailsBetweenFramesIsNotTheNextFramesError) {
    host.refusals.factory = true;
    const std::uint8_t figures[32] = {};
    detector->RaiseDebugFigures(figures, "key");
    ASSERT_EQ(ErrorOf(*detector), Error(1, "ITargetEnumeratorFactory getting error"));
    recording_host::BufferCounts counts;
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 0);
    EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
}

// A target whose setters throw.

class ThrowingTarget : public Events, public testing::WithParamInterface<const char*> {
  protected:
    ThrowingTarget() {
        host.onCall = [](const HostCall& call) {
            if (call.Sets(GetParam())) {
                throw std::runtime_error("target lost");
            }
        };
    }

    void ExpectOneEventThatWasDiscardedOnce() {
        ASSERT_EQ(host.Events().size(), 1u);
        EXPECT_EQ(host.Events().front().raised, 0);
        EXPECT_EQ(host.Events().front().discarded, 1);
    }

    const std::uint8_t figures[32] = {};
};

TEST_P(ThrowingTarget, LeavesDebugFiguresUnraisedAndDiscardedOnce) {
    EXPECT_THROW(detector->RaiseDebugFigures(figures, "key"), std::runtime_error);
    ExpectOneEventThatWasDiscardedOnce();
    host.onCall = nullptr;
    detector->RaiseDebugFigures(figures, "key");
    EXPECT_EQ(host.Events().back().raised, 1);
}

TEST_P(ThrowingTarget, InsideAFrameIsTheFramesError) {
    recording_host::BufferCounts counts;
    detector->onRecognize = [&](FrameImage&, BufferPointer) { detector->RaiseDebugFigures(figures, "key"); };
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 1);
    EXPECT_EQ(ErrorOf(*detector), Error(1, "target lost"));
    ExpectOneEventThatWasDiscardedOnce();
    EXPECT_EQ(counts.released, 1);
}

INSTANTIATE_TEST_SUITE_P(AtEachValue, ThrowingTarget, testing::Values("figures", "figures_key"),
                         [](const auto& instance) { return std::string(instance.param); });

// Calls that clear the error state between an event's failure and its frame's end.

class ClearedMeanwhile : public Events {
  protected:
    // Runs a frame whose first event fails; `clear` runs after it and must leave no error.
    void ExpectTheEventsErrorAfterAFrameWith(const std::function<void()>& clear) {
        recording_host::BufferCounts counts;
        int cleared = 0;
        detector->onRecognize = [&](FrameImage&, BufferPointer) {
            host.refusals.raiser = true;
            detector->RaiseDebugFigures(figures, "key");
            host.refusals.raiser = false;
            EXPECT_EQ(ErrorOf(*detector), failure);
            clear();
            EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
            ++cleared;
        };
        EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 1);
        EXPECT_EQ(cleared, 1);
        EXPECT_EQ(ErrorsOf(*detector).GetErrorCode(), 1);
        EXPECT_EQ(ErrorOf(*detector), failure);
        detector->onRecognize = nullptr;
        EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 2)), 0);
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
    }

    const std::uint8_t figures[32] = {};
    const std::pair<std::int32_t, std::string> failure = Error(1, "IDetectorEventRaiser getting error");
};

TEST_F(ClearedMeanwhile, ByASetterTheFramesErrorIsTheEvents) {
    ExpectTheEventsErrorAfterAFrameWith([&] { EXPECT_EQ(SettingsOf(*detector).SetIntValue("area_left", 1), 0); });
    ExpectTheEventsErrorAfterAFrameWith([&] { EXPECT_EQ(SingleReceiverOf(*detector).SetIntValue("n", 1), 0); });
}

TEST_F(ClearedMeanwhile, ByAReadAccessorTheFramesErrorIsTheEvents) {
    SingleReceiverOf(*detector).SetIntValue("n", 44);
    ExpectTheEventsErrorAfterAFrameWith([&] {
        std::int32_t number = 0;
        EXPECT_EQ(detector->GetFrameInt("n", number), 0);
        EXPECT_EQ(number, 44);
    });
}

TEST_F(ClearedMeanwhile, BySettersFromInsideALaterRaiseTheFramesErrorIsTheEvents) {
    int raised = 0;
    host.onCall = On(Operation::Raise, [&] {
        ++raised;
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("nothing", 1), 2816);
        EXPECT_EQ(ErrorOf(*detector), Error(2816, "nothing"));
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("area_left", 1), 0);
    });
    ExpectTheEventsErrorAfterAFrameWith([&] { detector->RaiseDebugFigures(figures, "later"); });
    EXPECT_EQ(raised, 1);
}

TEST_F(ClearedMeanwhile, ByARefusalInsteadTheFramesErrorIsStillTheEvents) {
    recording_host::BufferCounts counts;
    detector->onRecognize = [&](FrameImage&, BufferPointer) {
        host.refusals.raiser = true;
        detector->RaiseDebugFigures(figures, "key");
        RefuseASetting(*detector);
        EXPECT_EQ(ErrorOf(*detector), Error(2816, "no such setting"));
    };
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 1);
    EXPECT_EQ(ErrorOf(*detector), failure);
}

TEST_F(Events, SettersAndErrorReadsWorkFromInsideRaise) {
    recording_host::BufferCounts counts;
    const std::uint8_t figures[32] = {};
    int raised = 0;
    host.onCall = On(Operation::Raise, [&] {
        ++raised;
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("area_left", 44), 0);
        EXPECT_EQ(SingleReceiverOf(*detector).SetIntValue("n", 44), 0);
        EXPECT_EQ(ErrorOf(*detector), Error(0, ""));
        EXPECT_EQ(SettingsOf(*detector).SetIntValue("nothing", 1), 2816);
        EXPECT_EQ(ErrorOf(*detector), Error(2816, "nothing"));
    });
    detector->onRecognize = [&](FrameImage&, BufferPointer) { detector->RaiseDebugFigures(figures, ""); };
    EXPECT_EQ(ReceiverOf(*detector).Receive(recording_host::MakeFrame(counts, 64, 48, 1)), 0);
    EXPECT_EQ(raised, 1);
    EXPECT_EQ(detector->area.left, 44);
}

}  // namespace
