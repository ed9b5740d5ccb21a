// Which mutex guards what, in words that Clang checks with -Wthread-safety; other compilers see
// nothing. See addon/mutex.h for the mutex and the locks that carry them.
#pragma once

#if defined(__clang__)
#define OSTREL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define OSTREL_THREAD_ATTRIBUTE(x)
#endif

/// A type that can be held, and one that holds it for the life of an object.
#define OSTREL_CAPABILITY(name) OSTREL_THREAD_ATTRIBUTE(capability(name))
#define OSTREL_SCOPED_CAPABILITY OSTREL_THREAD_ATTRIBUTE(scoped_lockable)

/// A field that may be touched only with the mutex held.
#define OSTREL_GUARDED_BY(mutex) OSTREL_THREAD_ATTRIBUTE(guarded_by(mutex))

/// What a function does with mutexes: it needs them held, takes them, gives them back, or stands
/// where they are held though the analysis cannot see it.
#define OSTREL_REQUIRES(...) OSTREL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define OSTREL_ACQUIRE(...) OSTREL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define OSTREL_TRY_ACQUIRE(...) OSTREL_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define OSTREL_RELEASE(...) OSTREL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define OSTREL_ASSERTS(...) OSTREL_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
