#pragma once

/// Clang's thread-safety annotations; other compilers see nothing. `clang -Wthread-safety` then checks at
/// compile time that what is KX_GUARDED_BY a mutex is only touched while that mutex is held.
#ifdef __clang__
#define KX_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define KX_THREAD_ANNOTATION(x)
#endif

/// On a class: it is a lock; `name` is what the compiler calls it ("mutex").
#define KX_CAPABILITY(name) KX_THREAD_ANNOTATION(capability(name))
/// On a class: its constructor takes a lock, its destructor lets go of it.
#define KX_SCOPED_CAPABILITY KX_THREAD_ANNOTATION(scoped_lockable)

/// On data: read and written only with the lock held.
#define KX_GUARDED_BY(lock) KX_THREAD_ANNOTATION(guarded_by(lock))
/// On a pointer: what it points to is read and written only with the lock held.
#define KX_PT_GUARDED_BY(lock) KX_THREAD_ANNOTATION(pt_guarded_by(lock))

/// On a lock: the order in which it is taken when several are held.
#define KX_ACQUIRED_BEFORE(...) KX_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define KX_ACQUIRED_AFTER(...) KX_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))

/// On a function: the caller holds the locks.
#define KX_REQUIRES(...) KX_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// On a function: the caller does not hold the locks; the function takes them itself.
#define KX_EXCLUDES(...) KX_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// On a function: it returns with the locks held.
#define KX_ACQUIRE(...) KX_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// On a function: it lets go of the locks, which the caller holds.
#define KX_RELEASE(...) KX_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// On a function: it returns `result` when it took the locks.
#define KX_TRY_ACQUIRE(result, ...) KX_THREAD_ANNOTATION(try_acquire_capability(result, ##__VA_ARGS__))
/// On a function: it ends the program unless the lock is held.
#define KX_ASSERT_CAPABILITY(lock) KX_THREAD_ANNOTATION(assert_capability(lock))
/// On a function: it returns a reference to the lock.
#define KX_RETURN_CAPABILITY(lock) KX_THREAD_ANNOTATION(lock_returned(lock))

/// On a function: not checked. Say beside it why it is right all the same.
#define KX_NO_THREAD_SAFETY_ANALYSIS KX_THREAD_ANNOTATION(no_thread_safety_analysis)
