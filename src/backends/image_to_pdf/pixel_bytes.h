#pragma once

// Page-sized byte buffers. Growing one leaves the new bytes as they are: a decoder that writes
// every byte anyway should not pay first for zeroing a whole page on one thread (resize(n, 0)
// still zeroes). Buffers of a few megabytes ask the kernel for huge pages, so that filling an
// A4 page takes a handful of page faults instead of thousands.

#include <sys/mman.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>
#include <vector>

namespace pw::i2p {

template <typename T> struct UninitialisedAllocator : std::allocator<T> {
    static constexpr size_t kHugePage = size_t(2) << 20;

    template <typename U> struct rebind {
        using other = UninitialisedAllocator<U>;
    };
    template <typename U> void construct(U *p) noexcept { ::new (static_cast<void *>(p)) U; }
    template <typename U, typename... Args> void construct(U *p, Args &&...args)
    {
        ::new (static_cast<void *>(p)) U(std::forward<Args>(args)...);
    }

    T *allocate(size_t n)
    {
        const size_t bytes = n * sizeof(T);
        if (bytes < kHugePage)
            return std::allocator<T>::allocate(n);
        const size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
        void *p = std::aligned_alloc(kHugePage, rounded);
        if (!p)
            throw std::bad_alloc();
        ::madvise(p, rounded, MADV_HUGEPAGE); // advice only: without it, small pages
        return static_cast<T *>(p);
    }
    void deallocate(T *p, size_t n)
    {
        if (n * sizeof(T) < kHugePage)
            return std::allocator<T>::deallocate(p, n);
        std::free(p);
    }
};

using PixelBytes = std::vector<uint8_t, UninitialisedAllocator<uint8_t>>;

} // namespace pw::i2p
