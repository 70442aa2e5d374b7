/// The objects of an event. Host side: the host creates them, the library fills them in and ends the event with Raise
/// or Discard; it deletes none of them.
///
/// All operations are called on the frame thread while the detector handles the frame. From inside: quiet calls. Frame
/// calls and Destroy are not supported, because the detector is in the middle of the frame and holds locks.
#pragma once

#include "sdk/contract.h"
#include "sdk/detector.h"

namespace OKM8 {

/// An object that can be copied: a base of targets. The library calls none of its operations.
struct ICloneable : IContract {};

/// Receives values of raw bytes.
struct IBinaryAdjuster : IContract {
    /// Sets `size` bytes under a name.
    /// Returns: nothing.
    /// Ownership: the name is valid during the call; `data` is the library's and valid until Raise or Discard returns.
    /// Thread: frame thread. From inside: quiet calls.
    virtual void SetBinaryValue(const char* name, const void* data, uint32_t size) = 0;
};

namespace Analytics {

/// The typed values of a target.
struct ITargetValues : IContract {
    /// Set one value each; texts are UTF-8.
    /// Returns: nothing.
    /// Ownership: name and text are the library's and valid during the call.
    /// Thread: frame thread. From inside: quiet calls.
    virtual void SetStringValue(const char* name, const char* value) = 0;
    virtual void SetDoubleValue(const char* name, double value) = 0;
    virtual void SetIntValue(const char* name, int32_t value) = 0;
    virtual void SetBoolValue(const char* name, bool value) = 0;
};

/// One target of an event. An object that also receives raw bytes has IBinaryAdjuster as a later base class; the
/// library finds it by run-time type information (dynamic_cast), which the host's compiler must not turn off.
struct ITargetAdjuster : ICloneable, ITargetValues {};

static_assert(sizeof(ITargetAdjuster) == 2 * sizeof(void*), "two tables: the copyable object, then the values");

/// The targets of one event.
struct ITargetEnumeratorAdjuster : IContract {
    virtual void Unused1() = 0;
    virtual void Unused2() = 0;
    virtual void Unused3() = 0;
    virtual void Unused4() = 0;
    virtual void Unused5() = 0;
    virtual void Unused6() = 0;
    virtual void Unused7() = 0;
    /// Adds an empty target to the list. The library passes 0.
    /// Returns: the target; null on failure, and the event is then discarded.
    /// Ownership: the target stays the host's and must be valid until Raise or Discard returns.
    /// Thread: frame thread. From inside: quiet calls.
    virtual ITargetAdjuster* AddTarget(int32_t reserved) = 0;
};

/// Creates target lists; a service of the host object.
struct ITargetEnumeratorFactory : IContract {
    virtual void Unused1() = 0;
    virtual void Unused2() = 0;
    virtual void Unused3() = 0;
    virtual void Unused4() = 0;
    virtual void Unused5() = 0;
    virtual void Unused6() = 0;
    /// Creates a list for an event at a time, in milliseconds since 1970-01-01 00:00 UTC.
    /// Returns: the list; null on failure, and there is then no event.
    /// Ownership: the list stays the host's and must be valid until Raise or Discard returns.
    /// Thread: frame thread. From inside: quiet calls.
    virtual ITargetEnumeratorAdjuster* CreateTargetEnumerator(int64_t timeMs) = 0;
};

/// The arguments of one event.
struct IEventArgsAdjuster : IContract {
    virtual void Unused1() = 0;
    virtual void Unused2() = 0;
    virtual void Unused3() = 0;
    virtual void Unused4() = 0;
    virtual void Unused5() = 0;
    virtual void Unused6() = 0;
    virtual void Unused7() = 0;
    /// Sets an object under a name.
    /// Returns: nothing.
    /// Ownership: the object is the host's; the name is the library's and valid during the call.
    /// Thread: frame thread. From inside: quiet calls.
    virtual void SetObjectValue(const char* name, IContract* value) = 0;
};

/// One event that is not yet raised.
struct IDetectorEventRaiser : IContract {
    virtual void Unused1() = 0;
    /// Raises the event.
    /// Returns: nothing.
    /// Ownership: the raiser is the host's again; the library does not use it or its objects afterwards.
    /// Thread: frame thread. From inside: quiet calls.
    virtual void Raise() = 0;
    /// Discards the event. The library calls either Raise or Discard, once.
    /// Returns: nothing.
    /// Ownership: as Raise.
    /// Thread: frame thread. From inside: quiet calls.
    virtual void Discard() = 0;
    /// Returns: the event's arguments; null on failure, and the event is then discarded.
    /// Ownership: the arguments stay the host's and must be valid until Raise or Discard returns.
    /// Thread: frame thread. From inside: quiet calls.
    virtual IEventArgsAdjuster* GetEventArgs() = 0;
};

}  // namespace Analytics
}  // namespace OKM8
