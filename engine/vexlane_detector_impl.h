/// The detector: calls the engine once per frame, tracks its plates and raises their events.
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
#include "engine/tracking.h"
#include "platform/mutex.h"
#include "tracker/licence_plate_tracker_interface.h"

namespace plate_recognition {

/// Threads: as the base class. `resultsMutex` guards the pending results. It is taken while the frame mutex is held,
/// and held while an event is raised; no other call to the host is made with it. It is never held together with the
/// launcher's mutex.
class VexlaneDetectorImpl : public BaseDetectorImpl, public ILicencePlateTrackerResultSink {
  public:
    /// Binds the engine's settings and restarts the recognition server; if that fails, the error state is set and the
    /// detector is usable. Arguments as for the base class.
    VexlaneDetectorImpl(OKM8::IContract* hostPeer, void* hostObject);
    /// Stops the server, for all detectors, and drops the pending results. Raises no events.
    ~VexlaneDetectorImpl();
    OKM8_OBJECT_DESTRUCTOR_SLOT(VexlaneDetectorImpl)

    void OnSettingsApplied() override;
    /// Never throws: an exception is written as a trace line, and the tracker is not called for the frame. A frame that
    /// does not have 3 bytes per pixel is not passed to the engine and gets the error "Wrong image format".
    void Recognize(FrameImage& frame, boost::shared_ptr<OKM8::MFF::ICompositeBuffer> buffer) override;

    // Further slots of the first table, in this order.

    /// Returns "VEXLANE". Any thread.
    virtual std::string GetDetectorType();
    /// Sets the event arguments of a result on a target, except the track: the plate's corners in pixels of the full
    /// frame, the area in percent. FRAME.
    virtual void FillEventArguments(const RecognitionResult& result, OKM8::Analytics::ITargetValues& values);
    /// Raises the event of a result. Throws what the host throws; the event is then discarded unless Raise threw.
    /// FRAME.
    virtual void RaisePlateEvent(const RecognitionResult& result, const std::vector<TrackPoint>& track);

    // The tracker's reports. After the slots above, because in the Itanium ABI they add slots to the first table.

    /// Raises the plate's event and drops its result. If the event throws, a trace line is written; it is not tried
    /// again.
    void OnResult(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> bestReading,
                  const std::vector<LicencePlatePtr>& readings, std::int32_t reason) override;
    /// Drops the result of a reading.
    void OnMayReleaseLicencePlate(ILicencePlateTracker* tracker, boost::shared_ptr<LicencePlate> reading) override;

    /// Sets the engine's plate-size range for a frame of that width: width x percent / 100 in pixels for each end,
    /// truncated, with a product that wraps at 32 bits. Restarts the server when the engine refuses the range. FRAME.
    void SetMaxMinPlate(std::uint32_t frameWidth);

    /// Returns a result for one plate, with the next plate ID. Throws std::exception when `buffer` is null. FRAME.
    boost::shared_ptr<RecognitionResult> CreateResult(const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer,
                                                      const RPLATE& plate);

    /// Returns a fixed sample result. Throws as CreateResult. FRAME.
    boost::shared_ptr<RecognitionResult> CreateFakeResult(const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer);

  protected:
    std::int32_t zoneWidth = 100;     // bound; largest plate width in percent of the frame width; 100 is no limit
    std::int32_t zoneWidthMin = 0;    // bound; smallest
    std::int32_t plateRangeMax = -1;  // pixels; last values passed to the engine
    std::int32_t plateRangeMin = -1;
    std::uint64_t nextPlateId = 0;
    std::uint64_t frameCount = 0;
    std::int32_t trackerParameter = defaultLostTimeout;  // milliseconds
    boost::shared_ptr<ILicencePlateTracker> tracker;
    std::map<std::int32_t, boost::shared_ptr<RecognitionResult>> pendingResults
        VEXLANE_GUARDED_BY(resultsMutex);  // by plate ID
    platform::Mutex resultsMutex;
    bool resultReady = false;         // bound
    std::int32_t resultRecCount = 0;  // bound; readings
    std::int32_t resultWaitTime = 0;  // bound; seconds

  private:
    void ReadFrame(FrameImage& frame, const boost::shared_ptr<OKM8::MFF::ICompositeBuffer>& buffer);
    void CreateTracker();
    void SendPlate(const LicencePlate& plate, const std::vector<LicencePlatePtr>& readings);
};

}  // namespace plate_recognition
