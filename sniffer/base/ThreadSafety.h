#pragma once

// Clang's thread-safety annotations (-Wthread-safety). They expand to nothing for other compilers.

#if defined(__clang__)
#define VOIP_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VOIP_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(name) VOIP_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY VOIP_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(mutex) VOIP_THREAD_ANNOTATION(guarded_by(mutex))
#define REQUIRES(...) VOIP_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) VOIP_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) VOIP_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VOIP_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
