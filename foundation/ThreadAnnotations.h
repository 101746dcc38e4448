#pragma once

/// Lock annotations that a clang build checks and other compilers skip.
#if defined(__clang__)
#define VELORINE_ATTRIBUTE(x) __attribute__((x))
#else
#define VELORINE_ATTRIBUTE(x)
#endif

#define CAPABILITY(x) VELORINE_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY VELORINE_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) VELORINE_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) VELORINE_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) VELORINE_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define ACQUIRE(...) VELORINE_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) VELORINE_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) VELORINE_ATTRIBUTE(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) VELORINE_ATTRIBUTE(release_shared_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) VELORINE_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS VELORINE_ATTRIBUTE(no_thread_safety_analysis)
