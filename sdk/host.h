/// What the host offers to the library. Host side.
#pragma once

#include "sdk/contract.h"
#include "sdk/detector.h"
#include "sdk/events.h"

namespace OKM8 {

/// The host object, the argument of InitializeModule.
struct IHost : IContract {
    /// A host service seen as the named interface, or null. Asked for ILogger when a detector is made (owner thread)
    /// and for Analytics::ITargetEnumeratorFactory for every event (frame thread). The service stays the host's and
    /// must outlive the detectors. From inside: quiet calls, and in CreateDetector none.
    virtual void* GetInterface(const char* contractName) = 0;
};

/// The host's log.
struct ILogger : IContract {
    virtual void Unused1() = 0;
    virtual void Unused2() = 0;
    /// Writes one text, valid during the call alone. 2 stands for an engine that failed to start, 3 for an error.
    /// Owner thread or frame thread. From inside: quiet calls, and in CreateDetector and Destroy none.
    virtual void WriteLog(int32_t level, const char* text) = 0;
};

namespace Analytics {

/// The host's object for one detector, the second argument of CreateDetector.
struct IDetectorPeer : IContract {
    /// Returns a raiser for an event of that name and time (milliseconds since 1970-01-01 00:00 UTC), or null.
    /// The library passes kind 3 and ends the raiser with Raise or Discard. Frame thread. From inside: quiet calls.
    virtual IDetectorEventRaiser* CreateEventRaiser(IDetector* detector, const char* eventName, int64_t timeMs,
                                                    int32_t kind) = 0;
};

}  // namespace Analytics
}  // namespace OKM8
