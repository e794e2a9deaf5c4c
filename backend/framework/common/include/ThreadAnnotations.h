// Lock annotations: which lock guards which member, which function needs which lock.
//
// clang checks them (-Wthread-safety, preset `clang`); for other compilers they are empty. The check does
// not see calls through pointers to functions: a routine reached that way asserts that the lock is held.
#pragma once

#if defined(__clang__)
#define ZT_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZT_THREAD_ATTRIBUTE(x)
#endif

#define ZT_CAPABILITY(name) ZT_THREAD_ATTRIBUTE(capability(name))
#define ZT_SCOPED_CAPABILITY ZT_THREAD_ATTRIBUTE(scoped_lockable)
#define ZT_GUARDED_BY(lock) ZT_THREAD_ATTRIBUTE(guarded_by(lock))
#define ZT_REQUIRES(...) ZT_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define ZT_EXCLUDES(...) ZT_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ZT_ACQUIRE(...) ZT_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZT_RELEASE(...) ZT_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZT_RETURN_CAPABILITY(lock) ZT_THREAD_ATTRIBUTE(lock_returned(lock))
#define ZT_NO_THREAD_SAFETY_ANALYSIS ZT_THREAD_ATTRIBUTE(no_thread_safety_analysis)
