/// The objects by which events reach the host. Host side, all of them: the library asks for them, fills them in and
/// gives the event away with Raise or Discard; it never deletes one.
///
/// All operations run on the frame thread while the detector handles the frame. From inside: quiet calls. Frame calls
/// and Destroy are not supported: the detector is in the middle of the frame, and holds locks that frames need.
#pragma once

#include "sdk/contract.h"
#include "sdk/detector.h"

namespace OKM8 {

/// An object that can be copied. Takes part in the class tree of targets; no operation of it is called.
struct ICloneable : IContract {};

/// Takes a value of raw bytes.
struct IBinaryAdjuster : IContract {
    /// `data` is the library's and valid until the event has been raised or discarded.
    virtual void SetBinaryValue(const char* name, const void* data, uint32_t size) = 0;
};

namespace Analytics {

/// The typed values of a target. Names and texts (UTF-8) are valid during the call alone.
struct ITargetValues : IContract {
    virtual void SetStringValue(const char* name, const char* value) = 0;
    virtual void SetDoubleValue(const char* name, double value) = 0;
    virtual void SetIntValue(const char* name, int32_t value) = 0;
    virtual void SetBoolValue(const char* name, bool value) = 0;
};

/// One target of an event. An object that takes raw bytes too has IBinaryAdjuster as a later base, where a checked
/// cast finds it.
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
    /// Returns a new, empty target in the list, or null. The library passes 0. The target stays the host's.
    virtual ITargetAdjuster* AddTarget(int32_t reserved) = 0;
};

/// Makes target lists; a service of the host object.
struct ITargetEnumeratorFactory : IContract {
    virtual void Unused1() = 0;
    virtual void Unused2() = 0;
    virtual void Unused3() = 0;
    virtual void Unused4() = 0;
    virtual void Unused5() = 0;
    virtual void Unused6() = 0;
    /// Returns a new list for an event of that time (milliseconds since 1970-01-01 00:00 UTC), or null.
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
    /// Attaches a host object under a name; the name is valid during the call alone.
    virtual void SetObjectValue(const char* name, IContract* value) = 0;
};

/// One event in the making.
struct IDetectorEventRaiser : IContract {
    virtual void Unused1() = 0;
    /// Sends the event; the raiser is the host's again. From inside: quiet calls alone, as everywhere in this file.
    virtual void Raise() = 0;
    /// Gives the event up; the raiser is the host's again. Called at most once, and never together with Raise.
    virtual void Discard() = 0;
    /// The event's arguments, or null.
    virtual IEventArgsAdjuster* GetEventArgs() = 0;
};

}  // namespace Analytics
}  // namespace OKM8
