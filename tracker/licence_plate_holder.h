/// A reading that the tracker holds. Its destructor releases it to the sink unless it was reported.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "tracker/licence_plate_tracker_interface.h"

/// Held by shared pointer. One thread at a time.
struct LicencePlateHolder {
    /// `resultSink` is not owned and may be null; the reading may be null.
    LicencePlateHolder(boost::shared_ptr<LicencePlate> heldReading, ILicencePlateTrackerResultSink* resultSink);

    /// Calls the sink's OnMayReleaseLicencePlate unless `released` is set or there is no reading. Never throws.
    virtual ~LicencePlateHolder();

    LicencePlateHolder(const LicencePlateHolder&) = delete;
    LicencePlateHolder& operator=(const LicencePlateHolder&) = delete;

    boost::shared_ptr<LicencePlate> reading;
    ILicencePlateTrackerResultSink* sink;
    /// The centre in pixels, computed once: (A.x + B.x) / 2 and (A.y + C.y) / 2, truncated toward zero; 0, 0 without a
    /// reading.
    std::int32_t centreX = 0;
    std::int32_t centreY = 0;
    bool released = false;  ///< set once the reading is reported
};

using LicencePlateHolderPtr = boost::shared_ptr<LicencePlateHolder>;
