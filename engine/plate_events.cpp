// Raising the event of a track that the tracker reports.

#include <algorithm>
#include <exception>
#include <tuple>

#include "arithmetic/arithmetic.h"
#include "detector/binary_adjuster_cast.h"
#include "diagnostics/debug_level.h"
#include "diagnostics/trace.h"
#include "engine/engine_text.h"
#include "engine/vexlane_detector_impl.h"
#include "platform/foreign_call.h"
#include "sdk/plate_events.h"

namespace plate_recognition {

namespace {

namespace EventName = OKM8::Analytics::EventName;
namespace PlateKey = OKM8::Analytics::PlateKey;

using diagnostics::TraceOrDrop;
using OKM8::Analytics::IDetectorEventRaiser;
using OKM8::Analytics::ITargetValues;
using platform::CallForeign;

constexpr char onResultName[] = "plate_recognition::VexlaneDetectorImpl::OnResult";

void SetText(ITargetValues& values, const char* key, const std::string& text) {
    CallForeign<&ITargetValues::SetStringValue>(&values, key, text.c_str());
}

void SetNumber(ITargetValues& values, const char* key, std::int32_t number) {
    CallForeign<&ITargetValues::SetIntValue>(&values, key, number);
}

}  // namespace

std::string VexlaneDetectorImpl::GetDetectorType() {
    return "VEXLANE";
}

// An exception of the event is caught here, because it concerns one plate and the frame's other plates follow. The
// event is not tried again.
void VexlaneDetectorImpl::OnResult(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> bestReading,
                                   const std::vector<LicencePlatePtr>& readings, std::int32_t) {
    if (bestReading) {
        try {
            SendPlate(*bestReading, readings);
        } catch (const std::exception& exception) {
            TraceOrDrop(onResultName, __LINE__, "%1%", exception.what());
        } catch (...) {
            TraceOrDrop(onResultName, __LINE__, "Exception");
        }
    }
    OnMayReleaseLicencePlate(nullptr, bestReading);
}

void VexlaneDetectorImpl::SendPlate(const LicencePlate& plate, const std::vector<LicencePlatePtr>& readings) {
    const platform::Lock lock(resultsMutex);
    const auto found = pendingResults.find(static_cast<std::int32_t>(plate.id));
    if (found == pendingResults.end()) {
        return;
    }
    const std::vector<TrackPoint> track = TrackPointsOf(readings);
    RaisePlateEvent(*found->second, track);
    TraceOrDrop(onResultName, __LINE__, "Send plate ID = %1% Tracks: %2%", plate.id, track.size());
}

void VexlaneDetectorImpl::OnMayReleaseLicencePlate(ILicencePlateTracker*, boost::shared_ptr<LicencePlate> reading) {
    if (!reading) {
        return;
    }
    decltype(pendingResults)::node_type removed;  // destroyed after the lock, because it releases the frame to the host
    const platform::Lock lock(resultsMutex);
    TraceOrDrop("plate_recognition::VexlaneDetectorImpl::OnMayReleaseLicencePlate", __LINE__,
                "Remove plate ID = %1%, still left = %2%", reading->id, pendingResults.size());
    removed = pendingResults.extract(static_cast<std::int32_t>(reading->id));
}

void VexlaneDetectorImpl::RaisePlateEvent(const RecognitionResult& result, const std::vector<TrackPoint>& track) {
    OKM8::Analytics::ITargetAdjuster* target = nullptr;
    IDetectorEventRaiser* raiser = nullptr;
    const char* const eventName = result.lost ? EventName::PlateLost : EventName::Plate;
    if (!CreateEventWithTarget(eventName, static_cast<std::int64_t>(result.creationTime), &target, &raiser)) {
        return;
    }
    const OKM8::Analytics::TrackPointList view = ViewOf(track);
    try {
        FillEventArguments(result, *target);
        if (OKM8::IBinaryAdjuster* const binary = BinaryAdjusterOf(target)) {
            CallForeign<&OKM8::IBinaryAdjuster::SetBinaryValue>(binary, PlateKey::AllTracks, &view,
                                                                std::uint32_t{sizeof view});
        }
    } catch (...) {
        CallForeign<&IDetectorEventRaiser::Discard>(raiser);
        throw;
    }
    CallForeign<&IDetectorEventRaiser::Raise>(raiser);
}

void VexlaneDetectorImpl::FillEventArguments(const RecognitionResult& result, ITargetValues& values) {
    // In half frames the rows are those of one field; the host expects rows of the full frame.
    const std::int32_t rowScale = IsHalfFrame() ? 2 : 1;
    SetText(values, PlateKey::Text, Utf8Of(result.text));
    SetNumber(values, PlateKey::CharacterCount, static_cast<std::int32_t>(result.text.size()));
    SetText(values, PlateKey::Country, Utf8OfAnsi(result.strings[0]));
    SetNumber(values, PlateKey::Confidence, std::clamp(result.confidence, 0, 100));
    SetNumber(values, PlateKey::Direction, result.value);
    SetNumber(values, PlateKey::Left, result.rect.left);
    SetNumber(values, PlateKey::Top, arithmetic::WrappedProduct(result.rect.top, rowScale));
    SetNumber(values, PlateKey::Right, result.rect.right);
    SetNumber(values, PlateKey::Bottom, arithmetic::WrappedProduct(result.rect.bottom, rowScale));

    // A valid area stays in use after its single call, until one with an empty area.
    const auto [isSent, sent] = singleAreaValid ? std::tuple(true, singleArea) : Bound(useArea, area);
    if (isSent) {
        SetNumber(values, PlateKey::AreaLeft, sent.left);
        SetNumber(values, PlateKey::AreaTop, sent.top);
        SetNumber(values, PlateKey::AreaRight, sent.right);
        SetNumber(values, PlateKey::AreaBottom, sent.bottom);
    }
}

}  // namespace plate_recognition
