#pragma once
// The C library's allocator options, set once at the start of each program, before any thread.

#include <malloc.h>

namespace pw {

inline void SetAllocatorOptions()
{
    // Page buffers come and go in megabytes. After the first is freed glibc would serve them
    // from a heap it never gives back, and a long batch would keep the largest pages it met;
    // a fixed threshold keeps each one mapped on its own and returned when freed.
    mallopt(M_MMAP_THRESHOLD, 1 << 20);
}

} // namespace pw
