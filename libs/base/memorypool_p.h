// Not API. The counted pool calls behind every managed block, inline in the heap manager: the
// manager's alloc and free then make one call each, into the arena.
#pragma once

#include "memorypool.h"

#include "arena_p.h"
#include "locks_p.h"

namespace vanta {

inline void* MemoryPool::mallocCounted(unsigned long size, unsigned long payload) {
    SpinLockInline::enterRegion(mLock);
    void* p = arena::malloc(static_cast<arena::Arena>(mArena), size);
    if (p)
        mAllocated.store(mAllocated.load(std::memory_order_relaxed) + payload,
                         std::memory_order_relaxed);
    SpinLockInline::exitRegion(mLock);
    return p;
}

inline void MemoryPool::freeCounted(void* p, unsigned long payload) {
    SpinLockInline::enterRegion(mLock);
    mAllocated.store(mAllocated.load(std::memory_order_relaxed) - payload,
                     std::memory_order_relaxed);
    arena::free(static_cast<arena::Arena>(mArena), p);
    SpinLockInline::exitRegion(mLock);
}

}  // namespace vanta
