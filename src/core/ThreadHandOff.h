#pragma once

// ThreadSanitizer sees our own locks and atomics, but not those inside Qt, which it cannot
// instrument: a task handed to another thread through Qt's event queue or thread pool would look
// like a race with the thread that built it. The sending side marks the handed-over object as
// released, the receiving side acquires it before touching it. Outside ThreadSanitizer builds
// both are nothing.

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace dispatch {

inline void handOff(void* object) {
#if defined(__SANITIZE_THREAD__)
    __tsan_release(object);
#else
    (void)object;
#endif
}

inline void takeOver(void* object) {
#if defined(__SANITIZE_THREAD__)
    __tsan_acquire(object);
#else
    (void)object;
#endif
}

}  // namespace dispatch
