#include "tests/soak/host.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace soak {
namespace {

using recording_host::HostCall;
using recording_host::Operation;

// The events of the frame that the calling thread handles.
thread_local Events* currentFrame = nullptr;

}  // namespace

Events::Events(Counts& counts, std::uint32_t seed, std::function<void()> onRaise)
    : counts_(counts), onRaise_(std::move(onRaise)), random_(seed) {}

void Events::BeginFrame() {
    currentFrame = this;
}

bool Events::EndFrame() {
    currentFrame = nullptr;
    if (raisers_ != 0 || isEndedTwice_) {
        throw std::runtime_error("a raiser was not ended exactly once");
    }
    if (hasMissingTrack_) {
        throw std::runtime_error("an event was raised without its track");
    }
    return std::exchange(hasRefused_, false);
}

void Events::OnCall(HostCall& call) {
    if (call.operation != Operation::GetLogger && call.operation != Operation::WriteLog) {
        currentFrame->HandleCall(call);
    }
}

void Events::HandleCall(HostCall& call) {
    switch (call.operation) {
        case Operation::GetFactory:
            Begin();
            call.isRefused = fault_ == Fault::NoFactory;
            return;
        case Operation::CreateTargetEnumerator:
            call.isRefused = fault_ == Fault::NoTargetList;
            return;
        case Operation::CreateEventRaiser:
            call.isRefused = fault_ == Fault::NoRaiser;
            raisers_ += call.isRefused ? 0 : 1;
            return;
        case Operation::GetEventArgs:
            call.isRefused = fault_ == Fault::NoArguments;
            return;
        case Operation::SetObjectValue:
            hasTargets_ = true;
            return;
        case Operation::AddTarget:
            call.isRefused = fault_ == Fault::NoTarget;
            return;
        case Operation::SetStringValue:
            if (fault_ == Fault::ThrowingSetter) {
                throw std::runtime_error("the host has failed");
            }
            return;
        case Operation::SetIntValue:
            if (fault_ == Fault::OtherThrowingSetter) {
                throw OtherException();
            }
            return;
        case Operation::SetBinaryValue:
            if (call.size != sizeof track_) {
                throw std::runtime_error("a track of an unknown layout");
            }
            std::memcpy(&track_, call.data, sizeof track_);
            return;
        case Operation::Raise:
            EndRaiser();
            hasMissingTrack_ = hasMissingTrack_ || !hasTargets_ || !HasTrack();
            onRaise_();
            if (fault_ == Fault::ThrowingRaise) {
                throw std::runtime_error("the host has failed");
            }
            ++counts_.events;
            return;
        case Operation::Discard:
            EndRaiser();
            return;
        default:
            return;
    }
}

// The first call for an event. One in 32 fails.
void Events::Begin() {
    constexpr unsigned faults = static_cast<unsigned>(Fault::Count) - 1;
    fault_ = random_() % 32 == 0 ? static_cast<Fault>(1 + random_() % faults) : Fault::None;
    counts_.failedEvents += fault_ == Fault::None ? 0u : 1u;
    hasRefused_ = hasRefused_ || (fault_ >= Fault::NoFactory && fault_ <= Fault::NoTarget);
    hasTargets_ = false;
    track_ = {};
}

// Each raiser is ended before the next one is created.
void Events::EndRaiser() {
    isEndedTwice_ = isEndedTwice_ || raisers_ != 1;
    --raisers_;
}

bool Events::HasTrack() const {
    return track_.first != track_.last &&
           std::all_of(track_.first, track_.last, [](const auto& point) { return point.flag == 0; });
}

}  // namespace soak
