/// Boost's mutexes with annotations: clang's -Wthread-safety reports accesses to a member without its mutex
/// (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html). For other compilers they are plain mutexes.
#pragma once

#include <boost/thread/mutex.hpp>
#include <boost/thread/recursive_mutex.hpp>

#ifdef __clang__
#define VEXLANE_THREAD_SAFETY(...) __attribute__((__VA_ARGS__))
#else
#define VEXLANE_THREAD_SAFETY(...)
#endif

/// After a member: accessed only while that mutex is held.
#define VEXLANE_GUARDED_BY(mutex) VEXLANE_THREAD_SAFETY(guarded_by(mutex))
/// After a function's parameters: called only while that mutex is held.
#define VEXLANE_REQUIRES(mutex) VEXLANE_THREAD_SAFETY(requires_capability(mutex))
/// After a function's parameters: not checked. A comment states the reason.
#define VEXLANE_UNCHECKED VEXLANE_THREAD_SAFETY(no_thread_safety_analysis)

namespace platform {

template <class Base>
class VEXLANE_THREAD_SAFETY(capability("mutex")) AnnotatedMutex : public Base {
  public:
    void lock() VEXLANE_THREAD_SAFETY(acquire_capability()) { Base::lock(); }
    void unlock() VEXLANE_THREAD_SAFETY(release_capability()) { Base::unlock(); }
    bool try_lock() VEXLANE_THREAD_SAFETY(try_acquire_capability(true)) { return Base::try_lock(); }
};

using Mutex = AnnotatedMutex<boost::mutex>;
using RecursiveMutex = AnnotatedMutex<boost::recursive_mutex>;

/// Holds a mutex for its lifetime.
template <class Locked>
class VEXLANE_THREAD_SAFETY(scoped_lockable) Lock {
  public:
    explicit Lock(Locked& locked) VEXLANE_THREAD_SAFETY(acquire_capability(locked)) : held_(locked) { held_.lock(); }
    ~Lock() VEXLANE_THREAD_SAFETY(release_capability()) { held_.unlock(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

  private:
    Locked& held_;
};

}  // namespace platform
