#include "engine/vexlane_detector_impl.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <exception>
#include <limits>
#include <utility>

#include "arithmetic/arithmetic.h"
#include "diagnostics/debug_level.h"
#include "diagnostics/trace.h"
#include "engine/engine_text.h"
#include "engine/tracking.h"
#include "image_transform/colour_converter.h"
#include "platform/foreign_call.h"
#include "sdk/setting_keys.h"
#include "server/server_launcher.h"

namespace plate_recognition {

namespace {

namespace SettingKey = OKM8::Analytics::SettingKey;
using diagnostics::Compose;
using diagnostics::TraceOrDrop;
using diagnostics::WriteTrace;
using OKM8::MFF::ICompositeBuffer;
using platform::CallForeign;

constexpr char constructorName[] = "plate_recognition::VexlaneDetectorImpl::VexlaneDetectorImpl";
constexpr char setMaxMinPlateName[] = "plate_recognition::VexlaneDetectorImpl::SetMaxMinPlate";
constexpr char recognizeName[] = "plate_recognition::VexlaneDetectorImpl::Recognize";

constexpr std::uint32_t bytesPerPixel = 3;

bool IsVerbose() {
    return diagnostics::DebugLevel() != 0;
}

// Three times the number of pixels may not fit 64 bits.
bool IsBgr24(const FrameImage& image) {
    return image.size % bytesPerPixel == 0 && image.size / bytesPerPixel == std::uint64_t{image.width} * image.height;
}

std::uint64_t TimeStampOf(const boost::shared_ptr<ICompositeBuffer>& buffer) {
    return buffer ? CallForeign<&ICompositeBuffer::GetTimeStamp>(buffer.get()) : 0;
}

}  // namespace

VexlaneDetectorImpl::VexlaneDetectorImpl(OKM8::IContract* hostPeer, void* hostObject)
    : BaseDetectorImpl(hostPeer, hostObject) {
    BindSetting(SettingKey::ZoneWidth, &zoneWidth);
    BindSetting(SettingKey::ZoneWidthMin, &zoneWidthMin);
    BindSetting(SettingKey::ResultReady, &resultReady);
    BindSetting(SettingKey::ResultWaitTime, &resultWaitTime);
    BindSetting(SettingKey::ResultRecCount, &resultRecCount);
    try {
        if (IsVerbose()) {
            WriteTrace(constructorName, __LINE__, "Create vexlane detector");
        }
        GetServerLauncher()->Restart();
    } catch (const std::exception& exception) {
        TraceOrDrop(constructorName, __LINE__, "%1%", exception.what());
        Fail(exception.what());
    }
}

VexlaneDetectorImpl::~VexlaneDetectorImpl() {
    try {
        GetServerLauncher()->Stop();
    } catch (const std::exception& exception) {
        TraceOrDrop("plate_recognition::VexlaneDetectorImpl::~VexlaneDetectorImpl", __LINE__, "%1%", exception.what());
    }
    {
        decltype(pendingResults) dropped;  // destroyed after the lock, because it releases frames to the host
        const platform::Lock lock(resultsMutex);
        dropped.swap(pendingResults);
    }
    // The tracker releases its readings through this detector, so it is destroyed first.
    tracker.reset();
}

void VexlaneDetectorImpl::OnSettingsApplied() {
    if (tracker) {
        tracker->SetLostTimeout(static_cast<std::uint64_t>(trackerParameter));
    }
    plateRangeMax = -1;
    plateRangeMin = -1;
    // The engine needs whole colour frames, so the converter replaces the deinterlacer that the base class has just
    // installed for half frames. Half frames affect only the rows of events and the detection area.
    transformer.Replace({boost::make_shared<image_transform::ConverterYUV2RGB>()});
}

void VexlaneDetectorImpl::SetMaxMinPlate(std::uint32_t frameWidth) {
    const auto [largestPercent, smallestPercent] = Bound(zoneWidth, zoneWidthMin);
    const std::int32_t maximum = arithmetic::SignedPercentOf(frameWidth, largestPercent);
    const std::int32_t minimum = arithmetic::SignedPercentOf(frameWidth, smallestPercent);
    plateRangeMax = maximum;
    plateRangeMin = minimum;
    if (!CallForeign<&::SetPlateRange>(minimum, maximum)) {
        GetServerLauncher()->Restart();
        return;
    }
    // The range is stored before it is compared, so the line is never written; it would be written for each frame.
    if ((plateRangeMax != maximum || plateRangeMin != minimum) && IsVerbose()) {
        WriteTrace(setMaxMinPlateName, __LINE__, Compose("Set plate range %1%, %2%", plateRangeMin, plateRangeMax));
    }
}

void VexlaneDetectorImpl::Recognize(FrameImage& frame, boost::shared_ptr<ICompositeBuffer> buffer) {
    try {
        ReadFrame(frame, buffer);
    } catch (const std::exception& exception) {
        TraceOrDrop(recognizeName, __LINE__, "%1%", exception.what());
    } catch (...) {
        TraceOrDrop(recognizeName, __LINE__, "Exception");
    }
}

void VexlaneDetectorImpl::ReadFrame(FrameImage& frame, const boost::shared_ptr<ICompositeBuffer>& buffer) {
    ++frameCount;
    // Without the converter in the chain the frame is the host's, and the engine would read past its end.
    if (!IsBgr24(frame)) {
        Fail("Wrong image format");
        holdFrame = true;  // no OnFrameDone, as for a frame that the converter refuses
        return;
    }
    SetMaxMinPlate(frame.width);
    const auto plates = boost::make_shared<RPLATE[]>(engineRecordCount);  // zeroed
    CreateTracker();

    tagRECT region = {};
    tagRECT* searchRegion = nullptr;
    if (const auto [isLimited, percent] = Bound(useArea, area); isLimited) {
        region = {arithmetic::UnsignedPercentOf(frame.width, percent.left),
                  arithmetic::UnsignedPercentOf(frame.height, percent.top),
                  arithmetic::UnsignedPercentOf(frame.width, percent.right),
                  arithmetic::UnsignedPercentOf(frame.height, percent.bottom)};
        searchRegion = &region;
    }
    IMG image = {frame.width, frame.height, bytesPerPixel, frame.width * bytesPerPixel, frame.data};
    int plateCount = CallForeign<&::Recognize2>(nullptr, &image, searchRegion, plates.get(), 0);
    GetServerLauncher()->MarkAlive();
    if (IsVerbose()) {
        constexpr int iteration = 0;
        WriteTrace(recognizeName, __LINE__,
                   Compose("Frame count: %3% Iteration : %2% NumberOfPlate is %1%", plateCount, iteration, frameCount));
    }

    if (plateCount > maxPlateCount) {
        if (IsVerbose()) {
            WriteTrace(recognizeName, __LINE__,
                       Compose("Plate count %1% exceeds %2%: the frame counts as one without plates", plateCount,
                               maxPlateCount));
        }
        plateCount = 0;
    }

    const std::uint64_t timeStamp = TimeStampOf(buffer);
    std::vector<LicencePlatePtr> readings;
    readings.reserve(static_cast<std::size_t>(std::clamp(plateCount, 0, engineRecordCount)));
    for (int index = 0; index < plateCount; ++index) {
        const RPLATE& plate = PlateAt(plates.get(), index);
        readings.push_back(ReadingOf(plate, frame.width, frame.height, timeStamp, nextPlateId, frameCount));
        auto result = CreateResult(buffer, plate);
        const platform::Lock lock(resultsMutex);
        // A previous result with the key is destroyed after the lock, because it releases its frame to the host.
        pendingResults[static_cast<std::int32_t>(nextPlateId)].swap(result);
        ++nextPlateId;
    }
    tracker->ProcessPlates(readings, timeStamp);
}

// The tracker is created once: later changes of these settings do not affect it.
void VexlaneDetectorImpl::CreateTracker() {
    if (tracker) {
        return;
    }
    const auto [isLimited, maxWait, wantedReadings] = Bound(resultReady, resultWaitTime, resultRecCount);
    tracker = MakeTracker(this, trackerParameter, {isLimited, maxWait, wantedReadings});
}

boost::shared_ptr<RecognitionResult> VexlaneDetectorImpl::CreateResult(
    const boost::shared_ptr<ICompositeBuffer>& buffer, const RPLATE& plate) {
    PlateDescription description;
    description.text = ResultTextOf(plate);
    description.strings[0] = CountryCodeOf(plate);
    if (!description.text.empty()) {
        description.confidence =
            arithmetic::Truncated(ConfidenceSumOf(plate) / static_cast<double>(description.text.size()));
    }
    // The left edge is the inner of the two corners; the other three edges are the outer ones.
    description.rect.left = std::max(plate.corner1.x, plate.corner2.x);
    description.rect.top = std::min(plate.corner3.y, plate.corner1.y);
    description.rect.right = std::max(plate.corner3.x, plate.corner4.x);
    description.rect.bottom = std::max(plate.corner2.y, plate.corner4.y);
    description.isFinished = inSingleCall;
    if (IsVerbose()) {
        const PlateRect& rect = description.rect;
        diagnostics::WriteTraceW(
            "plate_recognition::VexlaneDetectorImpl::CreateResult", __LINE__,
            Compose(L"Create result: Plate = %1% Rect = {%2%, %3%, %4%, %5%} IsFinished = %6% Id = %7%",
                    description.text, rect.left, rect.top, rect.right, rect.bottom, description.isFinished,
                    nextPlateId));
    }
    return boost::make_shared<RecognitionResult>(buffer, std::move(description),
                                                 static_cast<std::uint32_t>(nextPlateId), TimeStampOf(buffer));
}

boost::shared_ptr<RecognitionResult> VexlaneDetectorImpl::CreateFakeResult(
    const boost::shared_ptr<ICompositeBuffer>& buffer) {
    PlateDescription description;
    description.text = L"FAKE";
    description.strings[0] = "Unknown";
    description.confidence = 100;
    description.rect = {294, 511, 481, 548};
    if (IsVerbose()) {
        const PlateRect& rect = description.rect;
        diagnostics::WriteTraceW(
            "plate_recognition::VexlaneDetectorImpl::CreateFakeResult", __LINE__,
            Compose(L"Create result: Plate = %1% Rect = {%2%, %3%, %4%, %5%} IsFinished = %6% ID = %7%",
                    description.text, rect.left, rect.top, rect.right, rect.bottom, description.isFinished,
                    nextPlateId));
    }
    return boost::make_shared<RecognitionResult>(buffer, std::move(description),
                                                 static_cast<std::uint32_t>(nextPlateId), TimeStampOf(buffer));
}

}  // namespace plate_recognition
