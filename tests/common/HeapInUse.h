#pragma once

// Bytes of heap the process has in use, counted over every thread. Under a sanitizer its own
// allocator owns the heap (glibc's counters then read nothing) and its count excludes the
// quarantine of freed blocks; otherwise glibc's totals over all arenas, blocks it mapped on their
// own included.

#include <malloc.h>

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define PELORA_HEAP_FROM_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PELORA_HEAP_FROM_SANITIZER 1
#endif

#ifdef PELORA_HEAP_FROM_SANITIZER
// From the sanitizer runtime's allocator interface (its header does not ship with every
// compiler).
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace pelora::testing {

inline size_t heapInUse() {
#ifdef PELORA_HEAP_FROM_SANITIZER
    return __sanitizer_get_current_allocated_bytes();
#else
    malloc_trim(0);
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

}  // namespace pelora::testing
