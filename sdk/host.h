/// The host object, its log and its object for a detector. Host side.
#pragma once

#include "sdk/contract.h"
#include "sdk/detector.h"
#include "sdk/events.h"

namespace OKM8 {

/// The host object, the argument of InitializeModule.
struct IHost : IContract {
    /// Finds a service of the host. The library asks for ILogger, which may be missing, and for
    /// Analytics::ITargetEnumeratorFactory, without which there are no events.
    /// Returns: a pointer to the named interface; null if there is no such service.
    /// Ownership: the service stays the host's and must be valid until the last detector has been destroyed.
    /// Thread: owner thread for ILogger, in CreateDetector; frame thread for ITargetEnumeratorFactory, for every event.
    /// From inside: quiet calls; during CreateDetector none.
    virtual void* GetInterface(const char* contractName) = 0;
};

/// The host's log.
struct ILogger : IContract {
    virtual void Unused1() = 0;
    virtual void Unused2() = 0;
    /// Writes one text. Level 2: the engine failed to start. Level 3: an error.
    /// Returns: nothing.
    /// Ownership: the text is the library's and valid during the call.
    /// Thread: owner thread or frame thread. From inside: quiet calls; during CreateDetector and Destroy none.
    virtual void WriteLog(int32_t level, const char* text) = 0;
};

namespace Analytics {

/// The host's object for one detector: the second argument of CreateDetector.
struct IDetectorPeer : IContract {
    /// Creates an event with a name and a time, in milliseconds since 1970-01-01 00:00 UTC. The library passes kind 3.
    /// Returns: the raiser; null on failure, and there is then no event.
    /// Ownership: the raiser is the library's until it calls Raise or Discard, which it does exactly once.
    /// Thread: frame thread. From inside: quiet calls.
    virtual IDetectorEventRaiser* CreateEventRaiser(IDetector* detector, const char* eventName, int64_t timeMs,
                                                    int32_t kind) = 0;
};

}  // namespace Analytics
}  // namespace OKM8
