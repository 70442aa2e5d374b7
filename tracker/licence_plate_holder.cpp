#include "tracker/licence_plate_holder.h"

#include <utility>

#include "arithmetic/arithmetic.h"

LicencePlateHolder::LicencePlateHolder(boost::shared_ptr<LicencePlate> heldReading,
                                       ILicencePlateTrackerResultSink* resultSink)
    : reading(std::move(heldReading)), sink(resultSink) {
    if (reading) {
        centreX = arithmetic::WrappedSum(reading->cornerA.x, reading->cornerB.x) / 2;
        centreY = arithmetic::WrappedSum(reading->cornerA.y, reading->cornerC.y) / 2;
    }
}

LicencePlateHolder::~LicencePlateHolder() {
    if (sink == nullptr || !reading || released) {
        return;
    }
    try {
        sink->OnMayReleaseLicencePlate(nullptr, reading);
    } catch (...) {
        // A destructor cannot report a failure.
    }
}
