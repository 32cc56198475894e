#pragma once

// Facts about locks: which lock guards a field, and which lock a function needs. clang's thread safety
// analysis checks them in tools/checks/thread-safety, which defines `UTL_CHECK_LOCKS`. Without that they are
// nothing, for every compiler. The analysis knows no lock that is taken twice: a function that says
// `UTL_REQUIRES` does not itself take that lock again.
#ifdef UTL_CHECK_LOCKS
#define UTL_LOCK_ANNOTATION(...) __attribute__((__VA_ARGS__))
#else
#define UTL_LOCK_ANNOTATION(...)
#endif

/// The type is a lock; or a scope object that holds one until it is destroyed.
///@{
#define UTL_CAPABILITY UTL_LOCK_ANNOTATION(capability("lock"))
#define UTL_SCOPED_CAPABILITY UTL_LOCK_ANNOTATION(scoped_lockable)
///@}

/// The field, or what the pointer points to, is used only by the holder of the lock.
///@{
#define UTL_GUARDED_BY(lock) UTL_LOCK_ANNOTATION(guarded_by(lock))
#define UTL_PT_GUARDED_BY(lock) UTL_LOCK_ANNOTATION(pt_guarded_by(lock))
///@}

/// The caller holds the lock, and still holds it afterwards.
#define UTL_REQUIRES(...) UTL_LOCK_ANNOTATION(requires_capability(__VA_ARGS__))

/// The caller must not hold the lock, because the function waits for a thread that may need it, or calls out
/// of the library. A function that only takes the lock does not say so: its caller may hold it already.
#define UTL_EXCLUDES(...) UTL_LOCK_ANNOTATION(locks_excluded(__VA_ARGS__))

/// The function takes the lock, alone or shared, takes it if it returns `result`, or gives it back. Without a
/// lock in parentheses it is the object itself, or what the scope object holds.
///@{
#define UTL_ACQUIRE(...) UTL_LOCK_ANNOTATION(acquire_capability(__VA_ARGS__))
#define UTL_ACQUIRE_SHARED(...) UTL_LOCK_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define UTL_TRY_ACQUIRE(result) UTL_LOCK_ANNOTATION(try_acquire_capability(result))
#define UTL_RELEASE() UTL_LOCK_ANNOTATION(release_capability())
#define UTL_RELEASE_SHARED() UTL_LOCK_ANNOTATION(release_shared_capability())
///@}

/// The analysis leaves the function out; a comment says why.
#define UTL_NO_THREAD_SAFETY_ANALYSIS UTL_LOCK_ANNOTATION(no_thread_safety_analysis)

/// The function returns a reference to the lock.
#define UTL_RETURN_CAPABILITY(lock) UTL_LOCK_ANNOTATION(lock_returned(lock))
