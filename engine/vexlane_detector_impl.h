/// The detector: drives the engine once a frame, follows its plates and raises their events.
#pragma once

#include <boost/shared_ptr.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "detector/base_detector_impl.h"
#include "engine/engine_records.h"
#include "engine/recognition_result.h"
#include "engine/track_points.h"
#include "platform/mutex.h"
#include "tracker/licence_plate_tracker_interface.h"

namespace plate_recognition {

/// Threads as its base. `resultsMutex` guards the pending results; it is taken under the frame mutex and held while an
/// event is raised. Nothing else calls the host with it, and it and the launcher's mutex are never held together.
class VexlaneDetectorImpl : public BaseDetectorImpl, public ILicencePlateTrackerResultSink {
  public:
    /// Binds the engine's settings and restarts the recognition server; a failure of that stands in the error state and
    /// leaves a usable detector. Arguments as for the base.
    VexlaneDetectorImpl(OKM8::IContract* hostPeer, void* hostObject);
    /// Stops the server, for all detectors, and drops what is pending. Raises no events.
    ~VexlaneDetectorImpl();
    OKM8_OBJECT_DESTRUCTOR_SLOT(VexlaneDetectorImpl)

    void OnSettingsApplied() override;
    /// Nothing gets out of it: a failure is a trace line, and the tracker is not called for the frame. An image that is
    /// not 3 bytes a pixel does not reach the engine; it is the frame's error "Wrong image format".
    void Recognize(FrameImage& frame, boost::shared_ptr<OKM8::MFF::ICompositeBuffer> buffer) override;

    // Further slots of the first table, in this order.

    /// "VEXLANE". Any thread.
    virtual std::string GetDetectorType();
    /// Sets a result's arguments on a target, all but the track. FRAME.
    virtual void FillEventArguments(const RecognitionResult& result, OKM8::Analytics::ITargetValues& values);
    /// Raises a result's event. FRAME.
    virtual void RaisePlateEvent(const RecognitionResult& result, const std::vector<TrackPoint>& track);

    // The tracker's reports; after the slots above, since on one ABI they add to the first table.

    /// Raises the plate's event and drops its result. An event that throws is a trace line and is not tried again.
    void OnResult(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> bestReading,
                  const std::vector<LicencePlatePtr>& readings, std::int32_t reason) override;
    void OnMayReleaseLicencePlate(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> reading) override;

    /// Gives the engine the range of plate widths, in pixels, for a frame of that width; restarts the server when the
    /// engine refuses it. FRAME.
    void SetMaxMinPlate(std::uint32_t frameWidth);

    /// A result of one plate, under the ID that comes next. Throws std::exception for an empty frame handle. FRAME.
    boost::shared_ptr<RecognitionResult> CreateResult(const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer,
                                                      const RPLATE& plate);

    /// A fixed sample. Throws as CreateResult. FRAME.
    boost::shared_ptr<RecognitionResult> CreateFakeResult(const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer);

  protected:
    std::int32_t zoneWidth = 100;     // bound; largest plate width in percent of the frame's; 100 is no limit
    std::int32_t zoneWidthMin = 0;    // bound; smallest
    std::int32_t plateRangeMax = -1;  // pixels, as given to the engine
    std::int32_t plateRangeMin = -1;
    std::uint64_t nextPlateId = 0;
    std::uint64_t frameCount = 0;
    std::int32_t trackerParameter = 3000;  // milliseconds after which a track is lost
    boost::shared_ptr<ILicencePlateTracker> tracker;
    std::map<std::int32_t, boost::shared_ptr<RecognitionResult>> pendingResults
        VEXLANE_GUARDED_BY(resultsMutex);  // by plate ID
    platform::Mutex resultsMutex;
    bool resultReady = false;         // bound
    std::int32_t resultRecCount = 0;  // bound; readings
    std::int32_t resultWaitTime = 0;  // bound; seconds

  private:
    void ReadFrame(FrameImage& frame, const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer);
    void MakeTracker();
    void SendPlate(const LicencePlate& plate, const std::vector<LicencePlatePtr>& readings);
    LicencePlatePtr MakeReading(const FrameImage& frame, std::uint64_t timeStamp, const RPLATE& plate) const;
};

}  // namespace plate_recognition
