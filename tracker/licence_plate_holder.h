/// A reading's place in the tracker: hands the reading back when it was never reported.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>

#include "tracker/licence_plate_tracker_interface.h"

struct LicencePlateHolder {
    /// `resultSink` is not owned and may be null; the reading may be null.
    LicencePlateHolder(boost::shared_ptr<LicencePlate> heldReading, ILicencePlateTrackerResultSink* resultSink);

    /// Calls the sink's OnMayReleaseLicencePlate unless the reading was reported. Never throws.
    virtual ~LicencePlateHolder();

    LicencePlateHolder(const LicencePlateHolder&) = delete;
    LicencePlateHolder& operator=(const LicencePlateHolder&) = delete;

    boost::shared_ptr<LicencePlate> reading;
    ILicencePlateTrackerResultSink* sink;
    std::int32_t centreX = 0;  ///< pixels, computed once; 0, 0 without a reading
    std::int32_t centreY = 0;
    bool released = false;  ///< set when the reading was reported
};

using LicencePlateHolderPtr = boost::shared_ptr<LicencePlateHolder>;
