/// The root of the host contract, and the two places where compilers lay out virtual tables differently.
///
/// Every object crosses the boundary as a virtual table whose slots are fixed; host and library need not come
/// from the same compiler. All headers of this folder stand alone, include nothing but <stdint.h> and <stddef.h>,
/// and can be compiled freestanding.
///
/// Words used in the comments of this folder:
/// - "host side": implemented by the host, called by the library; "library side": the reverse.
/// - "any thread": may be called at any time from any thread.
/// - "frame thread": the thread that is inside Receive or ReceiveSingle of the detector concerned; the host chooses
///   it, call by call.
/// - "owner thread": the thread that loads the library, creates detectors and destroys them.
/// - "quiet calls": a detector's QueryContract, its setters, GetErrorCode, GetErrorMessage and the controller
///   operations. None waits for a frame.
/// - "frame calls": a detector's Receive, ReceiveSingle and ApplySettings.
///
/// Calls from inside: while a detector is inside an operation of the host, the host may call that detector on the same
/// thread, as follows. Each operation of the host says which of these it allows.
/// - Quiet calls: from inside every operation that is called during a frame call.
/// - Frame calls: from inside OnFrameDone alone. The outcome of the outer call stays as it is.
/// - Destroy: never, since there is nothing to return to. While Destroy or CreateDetector runs: no call at all.
/// An operation of the host must not wait for another thread that is inside a frame call of the same detector: that
/// thread waits for it.
///
/// No operation returns a class by value.
///
/// Exceptions. No operation of the library side throws but for three that say so: GetModule and CreateDetector when an
/// object cannot be made, ApplySettings for what is no std::exception. What they throw belongs to the library's
/// compiler. On Windows a host of another compiler cannot catch it by type, and its destructors do not run in the
/// frames that the exception passes; when nothing takes the exception, the process ends. No operation of the host side
/// is meant to throw. A C++ exception that one throws nevertheless, of whatever compiler, ends in the library: as the
/// error of the frame, as the end of the event, or nowhere when it leaves Release. Only one that leaves GetInterface
/// while a detector is made gets out, through CreateDetector. The system's exceptions, such as access violations, are
/// not caught: one that a host handles outside of a call leaves the detector locked.
#pragma once

#include <stddef.h>
#include <stdint.h>

#if defined(_MSC_VER)
#define OKM8_MICROSOFT_ABI 1
#else
#define OKM8_MICROSOFT_ABI 0
#endif

#if OKM8_MICROSOFT_ABI
/// Declares two overloads of one name so that `first` stands in the earlier slot: this ABI lays overloads out last
/// declared first.
#define OKM8_OVERLOADS_IN_SLOT_ORDER(first, second) \
    second;                                         \
    first
/// Declares the destructor slot in the root interface. A virtual destructor is one slot here.
#define OKM8_ROOT_DESTRUCTOR_SLOT(Interface) \
    virtual ~Interface() {}
/// Completes the destructor slot in a class that objects are made of. Nothing is missing here.
#define OKM8_OBJECT_DESTRUCTOR_SLOT(Class)
#else
#define OKM8_OVERLOADS_IN_SLOT_ORDER(first, second) \
    first;                                          \
    second
/// A virtual destructor would take two slots here, so the slot is an ordinary operation: it destroys the object,
/// frees it when bit 0 of `flags` is set, and returns the object's address.
#define OKM8_ROOT_DESTRUCTOR_SLOT(Interface)          \
    virtual void* DestructorSlot(unsigned flags) = 0; \
                                                      \
  protected:                                          \
    ~Interface() = default;                           \
                                                      \
  public:
#define OKM8_OBJECT_DESTRUCTOR_SLOT(Class)                                                  \
    void* DestructorSlot(unsigned flags) override {                                         \
        return ::OKM8::Detail::DestroyObject<Class>(static_cast<void*>(this), this, flags); \
    }
#endif

namespace OKM8 {

namespace Detail {

/// Ends an object whose most derived class is `Object` and which was made by `new`.
template <class Object>
inline void* DestroyObject(void* address, Object* object, unsigned flags) {
    object->Object::~Object();
    if ((flags & 1u) != 0) {
        ::operator delete(address);
    }
    return address;
}

}  // namespace Detail

/// The root of every interface. Both sides implement it.
struct IContract {
    /// Returns the sub-object that has the named interface, or null for a null or unknown name.
    /// The answer belongs to the object and lives as long as it. Any thread; leaves a detector's error state alone.
    OKM8_OVERLOADS_IN_SLOT_ORDER(virtual void* QueryContract(const char* contractName) = 0,
                                 virtual void* QueryContract(const char* contractName) const = 0);

    /// `delete` is never applied to an interface pointer; see DestroyThroughSlot.
    OKM8_ROOT_DESTRUCTOR_SLOT(IContract)
};

/// Ends and frees the object through its destructor slot; null is a no-op. The object's own side frees the memory.
inline void DestroyThroughSlot(IContract* object) {
#if OKM8_MICROSOFT_ABI
    delete object;
#else
    if (object != nullptr) {
        object->DestructorSlot(1u);
    }
#endif
}

/// Library side: an object that ends itself.
struct IDestroyable : IContract {
    /// The object deletes itself; every pointer to it is dead afterwards. Cannot fail.
    /// Buffers that it still keeps are released before it returns.
    /// Owner thread, while no thread is inside the object: not from inside any operation of the host that the object
    /// calls, OnFrameDone, Raise, Release and WriteLog included.
    virtual void Destroy() = 0;
};

static_assert(sizeof(void*) == 8, "the contract is laid out for 64-bit pointers");
static_assert(sizeof(IContract) == sizeof(void*), "an interface is one table pointer");
static_assert(sizeof(IDestroyable) == sizeof(void*), "an interface is one table pointer");

}  // namespace OKM8
