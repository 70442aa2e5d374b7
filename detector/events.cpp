// Raising events: every object comes from the host, is filled in, and is returned to it with the event.

#include "detector/base_detector_impl.h"
#include "detector/binary_adjuster_cast.h"
#include "detector/event_time.h"
#include "platform/foreign_call.h"
#include "sdk/contract_names.h"
#include "sdk/plate_events.h"

namespace plate_recognition {

namespace {

using OKM8::Analytics::IDetectorEventRaiser;
using OKM8::Analytics::IEventArgsAdjuster;
using OKM8::Analytics::ITargetAdjuster;
using OKM8::Analytics::ITargetEnumeratorAdjuster;
using OKM8::Analytics::ITargetEnumeratorFactory;
using platform::CallForeign;

namespace EventKey = OKM8::Analytics::EventKey;
namespace FiguresKey = OKM8::Analytics::FiguresKey;

constexpr std::int32_t raiserKind = 3;
constexpr std::int32_t targetReserved = 0;
constexpr std::uint32_t figuresSize = 32;

// Discards the raiser of an event that is not raised, and sets it to null so that it is not used again.
void DiscardRaiser(IDetectorEventRaiser** raiser) {
    IDetectorEventRaiser* const discarded = *raiser;
    *raiser = nullptr;
    CallForeign<&IDetectorEventRaiser::Discard>(discarded);
}

}  // namespace

bool BaseDetectorImpl::PrepareEvent(const std::string& eventName, std::int64_t timeMs, OKM8::IContract* image,
                                    ITargetEnumeratorAdjuster** targets, IDetectorEventRaiser** raiser) {
    auto* const factory = static_cast<ITargetEnumeratorFactory*>(
        CallForeign<&OKM8::IHost::GetInterface>(host, OKM8::ContractName::ITargetEnumeratorFactory));
    if (factory == nullptr) {
        return Fail("ITargetEnumeratorFactory getting error");
    }
    *targets = CallForeign<&ITargetEnumeratorFactory::CreateTargetEnumerator>(factory, timeMs);
    if (*targets == nullptr) {
        return Fail("ITargetEnumeratorAdjuster getting error");
    }
    *raiser = CallForeign<&OKM8::Analytics::IDetectorPeer::CreateEventRaiser>(detectorPeer, this, eventName.c_str(),
                                                                              timeMs, raiserKind);
    if (*raiser == nullptr) {
        return Fail("IDetectorEventRaiser getting error");
    }
    try {
        IEventArgsAdjuster* const arguments = CallForeign<&IDetectorEventRaiser::GetEventArgs>(*raiser);
        if (arguments != nullptr) {
            CallForeign<&IEventArgsAdjuster::SetObjectValue>(arguments, EventKey::Targets, *targets);
            if (image != nullptr) {
                CallForeign<&IEventArgsAdjuster::SetObjectValue>(arguments, EventKey::Image, image);
            }
            return true;
        }
    } catch (...) {
        DiscardRaiser(raiser);
        throw;
    }
    DiscardRaiser(raiser);
    return Fail("IEventArgsAdjuster getting error");
}

bool BaseDetectorImpl::CreateEventWithTarget(const std::string& eventName, ITargetAdjuster** target,
                                             IDetectorEventRaiser** raiser) {
    return CreateEventWithTarget(eventName, CurrentUtcMilliseconds(), target, raiser);
}

bool BaseDetectorImpl::CreateEventWithTarget(const std::string& eventName, std::int64_t timeMs,
                                             ITargetAdjuster** target, IDetectorEventRaiser** raiser) {
    ITargetEnumeratorAdjuster* targets = nullptr;
    if (!PrepareEvent(eventName, timeMs, nullptr, &targets, raiser)) {
        return false;
    }
    try {
        *target = CallForeign<&ITargetEnumeratorAdjuster::AddTarget>(targets, targetReserved);
    } catch (...) {
        DiscardRaiser(raiser);
        throw;
    }
    if (*target == nullptr) {
        DiscardRaiser(raiser);
        return Fail("ITargetAdjuster getting error");
    }
    return true;
}

void BaseDetectorImpl::RaiseDebugFigures(const void* figures, const std::string& figuresKey) {
    ITargetAdjuster* target = nullptr;
    IDetectorEventRaiser* raiser = nullptr;
    if (!CreateEventWithTarget(OKM8::Analytics::EventName::DebugFigures, &target, &raiser)) {
        return;
    }
    try {
        if (OKM8::IBinaryAdjuster* const binary = BinaryAdjusterOf(target)) {
            CallForeign<&OKM8::IBinaryAdjuster::SetBinaryValue>(binary, FiguresKey::Figures, figures, figuresSize);
        }
        const std::string key = figuresKey.empty() ? GetDefaultFiguresKey() : figuresKey;
        CallForeign<&ITargetAdjuster::SetStringValue>(target, FiguresKey::Key, key.c_str());
    } catch (...) {
        CallForeign<&IDetectorEventRaiser::Discard>(raiser);
        throw;
    }
    CallForeign<&IDetectorEventRaiser::Raise>(raiser);
}

}  // namespace plate_recognition
