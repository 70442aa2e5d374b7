/// The root of the host contract, and the two places where compilers lay out virtual tables differently.
///
/// Objects cross the boundary as virtual tables with fixed slots, so host and library may be built by different
/// compilers. The headers of this folder include only <stdint.h> and <stddef.h>, need C++11, and compile freestanding.
///
/// Each operation is described by one sentence and three lines:
/// - Returns: what it returns, also on failure.
/// - Ownership: who owns and frees the objects and texts that are passed or returned, and how long they are valid.
/// - Thread: which thread calls it, what it waits for, and in which state of the detector.
///   For an operation of the host: what the host may call from inside it ("From inside").
///
/// Terms:
/// - Host side: implemented by the host, called by the library. Library side: the reverse.
/// - Any thread: may be called at any time from any thread.
/// - Frame thread: the thread inside Receive or ReceiveSingle of the detector; the host chooses it for each call.
/// - Owner thread: the thread that loads the library, creates detectors and destroys them.
/// - Quiet calls: a detector's QueryContract, setters, GetErrorCode, GetErrorMessage and the operations of
///   IMediaReceiverController. None of them waits for a frame.
/// - Frame calls: a detector's Receive, ReceiveSingle and ApplySettings.
///
/// Calls from inside. While a detector is calling an operation of the host, the host may call that detector on the same
/// thread:
/// - Quiet calls: from inside every operation that is called during a frame call.
/// - Frame calls: only from inside OnFrameDone. The result of the outer call does not change.
/// - Destroy: never, because the library would return into a deleted object.
/// - While Destroy or CreateDetector runs: no calls.
/// An operation of the host must not wait for another thread that is inside a frame call of the same detector: that
/// thread waits for this one.
///
/// No operation returns a class by value.
///
/// Exceptions, library side. Only three operations throw: GetModule and CreateDetector when they cannot create the
/// object, and ApplySettings an exception that is not derived from std::exception. The exception belongs to the
/// library's compiler. On Windows a host built by another compiler cannot catch it by type, destructors do not run in
/// the stack frames that it passes, and an exception that is not caught ends the process.
/// Exceptions, host side. The host's operations should not throw. The library catches every C++ exception that they do
/// throw, of any compiler: it becomes the error of the frame, discards the event, or is ignored if it leaves Release.
/// One case differs: what GetInterface throws while a detector is created leaves CreateDetector.
/// Exceptions of the system, such as access violations, are not caught. A host that handles one outside of the call
/// leaves the detector locked.
#pragma once

#include <stddef.h>
#include <stdint.h>

#if defined(_MSC_VER)
#define OKM8_MICROSOFT_ABI 1
#else
#define OKM8_MICROSOFT_ABI 0
#endif

#if OKM8_MICROSOFT_ABI
/// Declares two overloads of one name so that `first` gets the earlier slot: this ABI puts overloads of one name into
/// the table in reverse order of declaration.
#define OKM8_OVERLOADS_IN_SLOT_ORDER(first, second) \
    second;                                         \
    first
/// Declares the destructor slot in the root interface. In this ABI a virtual destructor takes one slot.
#define OKM8_ROOT_DESTRUCTOR_SLOT(Interface) \
    virtual ~Interface() {}
/// Defines the destructor slot in a class of which objects are created. In this ABI the compiler defines it.
#define OKM8_OBJECT_DESTRUCTOR_SLOT(Class)
#else
#define OKM8_OVERLOADS_IN_SLOT_ORDER(first, second) \
    first;                                          \
    second
/// In this ABI a virtual destructor takes two slots, so the slot is an ordinary operation: it destroys the object,
/// frees its memory if bit 0 of `flags` is set, and returns the object's address.
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

/// Destroys an object of the most derived class `Object` that was created by `new`. Bit 0 of `flags`: frees its memory.
/// Returns `address`.
template <class Object>
inline void* DestroyObject(void* address, Object* object, unsigned flags) {
    object->Object::~Object();
    if ((flags & 1u) != 0) {
        ::operator delete(address);
    }
    return address;
}

}  // namespace Detail

/// The root of every interface. Host side and library side.
struct IContract {
    /// Finds an interface of this object by its name (sdk/contract_names.h).
    /// Returns: a pointer to the named interface; null if the name is null or unknown.
    /// Ownership: the pointer belongs to the object and is valid as long as the object.
    /// Thread: any thread; does not wait for a frame, does not change a detector's error state. On the host side only
    /// frame buffers are queried, on the frame thread; from inside: quiet calls.
    OKM8_OVERLOADS_IN_SLOT_ORDER(virtual void* QueryContract(const char* contractName) = 0,
                                 virtual void* QueryContract(const char* contractName) const = 0);

    /// The destructor's slot. Do not apply `delete` to an interface pointer: use IDestroyable::Destroy for a detector,
    /// DestroyThroughSlot for an object that has no such operation.
    /// Returns: the object's address (as a virtual destructor: nothing); cannot fail.
    /// Ownership: bit 0 of `flags` frees the object's memory, which the object's own side allocated.
    /// Thread: owner thread, while no thread is inside the object.
    OKM8_ROOT_DESTRUCTOR_SLOT(IContract)
};

/// Destroys an object through its destructor slot.
/// Returns: nothing; cannot fail. Does nothing for null.
/// Ownership: the side that created the object frees its memory; all pointers to it are invalid afterwards.
/// Thread: owner thread, while no thread is inside the object.
inline void DestroyThroughSlot(IContract* object) {
#if OKM8_MICROSOFT_ABI
    delete object;
#else
    if (object != nullptr) {
        object->DestructorSlot(1u);
    }
#endif
}

/// An object that deletes itself. Library side.
struct IDestroyable : IContract {
    /// Deletes the object.
    /// Returns: nothing; cannot fail.
    /// Ownership: all pointers to the object are invalid afterwards; it releases the buffers that it still holds first.
    /// Thread: owner thread, while no thread is inside the object. Not from inside any operation of the host that the
    /// object calls, including OnFrameDone, Raise, Release and WriteLog.
    virtual void Destroy() = 0;
};

static_assert(sizeof(void*) == 8, "the contract is laid out for 64-bit pointers");
static_assert(sizeof(IContract) == sizeof(void*), "an interface is one table pointer");
static_assert(sizeof(IDestroyable) == sizeof(void*), "an interface is one table pointer");

}  // namespace OKM8
