// The library's mutex and lock guard, annotated so that clang checks the lock rules at compile
// time: which members a mutex guards, which functions need it held, and which must be called
// with it released.
//
// Under clang with -Wthread-safety, touching a GUARDED_BY member without its mutex, calling a
// REQUIRES function without it, or calling an EXCLUDES function (one that locks) with it held is
// a warning (an error with -Werror). Under other compilers the macros expand to nothing. Either
// way the wrappers compile to the plain std::mutex calls: the check costs nothing at run time.
#pragma once

#include <mutex>

#if defined(__clang__)
#define MDH_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define MDH_THREAD_ANNOTATION(attribute)
#endif

// A type that is a lock; `name` is what the warnings call it.
#define CAPABILITY(name) MDH_THREAD_ANNOTATION(capability(name))
// A type whose objects hold a lock from construction to destruction.
#define SCOPED_CAPABILITY MDH_THREAD_ANNOTATION(scoped_lockable)
// A member that may be read or written only with the mutex held.
#define GUARDED_BY(mutex) MDH_THREAD_ANNOTATION(guarded_by(mutex))
// A function that the caller must call with the mutex held; it never locks it.
#define REQUIRES(...) MDH_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
// A function that takes the mutex itself: the caller must not hold it (it is not recursive).
#define EXCLUDES(...) MDH_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// A function that returns with the mutex held, or that releases it.
#define ACQUIRE(...) MDH_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) MDH_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
// A function that holds the mutex afterwards exactly when it returns the first argument.
#define TRY_ACQUIRE(...) MDH_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
// A function the analysis skips (test inspection that reads without locking).
#define NO_THREAD_SAFETY_ANALYSIS MDH_THREAD_ANNOTATION(no_thread_safety_analysis)

// A non-recursive std::mutex the analysis knows as a lock. Meets Lockable, so std::unique_lock
// works with it too (unchecked).
class CAPABILITY("mutex") Mutex {
  public:
    void lock() ACQUIRE() { mutex.lock(); }
    void unlock() RELEASE() { mutex.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return mutex.try_lock(); }

  private:
    std::mutex mutex;
};

// Holds `mutex` for the rest of the scope, as std::lock_guard does.
class SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : held(mutex) { held.lock(); }
    ~MutexLock() RELEASE() { held.unlock(); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    Mutex& held;
};
