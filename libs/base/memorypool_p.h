// Not API. The pool's side of every managed block, inline in the heap manager and the managed
// delete: each alloc and free then makes one call, into the arena, under one hold of the lock.
#pragma once

#include "memorypool.h"

#include "arena_p.h"
#include "locks_p.h"

namespace vanta {

// The header before every managed payload: two words, so payloads keep the pool's alignment.
struct BlockHeader {
    MemoryManager* manager;
    unsigned long size;
};
static_assert(sizeof(BlockHeader) == HeapManager::kHeaderSize);

inline BlockHeader* headerOf(const void* payload) {
    return reinterpret_cast<BlockHeader*>(const_cast<char*>(static_cast<const char*>(payload)) -
                                          sizeof(BlockHeader));
}

inline void* MemoryPool::allocManaged(HeapManager* manager, unsigned long size) {
    SpinLockInline::enterRegion(mLock);
    auto* header =
        static_cast<BlockHeader*>(arena::malloc(static_cast<arena::Arena>(mArena), size + HeapManager::kHeaderSize));
    if (header) {
        *header = BlockHeader{manager, size};
        // Both counts change only under this lock, so plain (atomic, for readers) loads and
        // stores keep them exact on any number of threads.
        manager->mAllocatedSize.store(manager->mAllocatedSize.load(std::memory_order_relaxed) + size,
                                      std::memory_order_relaxed);
        mManaged.store(mManaged.load(std::memory_order_relaxed) + size, std::memory_order_relaxed);
    }
    SpinLockInline::exitRegion(mLock);
    return header ? header + 1 : nullptr;
}

inline HeapManager* MemoryPool::lockBlock(void* payload) {
    SpinLockInline::enterRegion(mLock);
    BlockHeader* header = headerOf(payload);
    // The arena proves the chunk is ours and in use before anything in it is read; only then
    // is the header, inside that chunk, trusted as far as its manager is one of ours and its
    // size agrees with the chunk's.
    if (const char* fault = arena::badFree(static_cast<arena::Arena>(mArena), header))
        arena::reportBadFree(fault, payload);
    // Compared as it is: a cast to the manager's class could read the object, which is only
    // known to exist once it is found among this pool's managers.
    const MemoryManager* named = header->manager;
    if (named != mLastOwner) {
        if (!hasManager(named))
            arena::reportBadFree("invalid pointer (its header names no manager of this pool)",
                                 payload);
        mLastOwner = named;
    }
    auto* owner = static_cast<HeapManager*>(header->manager);
    const unsigned long room = arena::usableSize(header) - HeapManager::kHeaderSize;
    if (room - header->size >= 32)  // a chunk is at most 31 bytes larger than its request
        arena::reportBadFree("invalid size (the block's header disagrees with its chunk)", payload);
    return owner;
}

inline void MemoryPool::releaseBlock(HeapManager* owner, void* payload) {
    BlockHeader* header = headerOf(payload);
    const unsigned long size = header->size;
    owner->mAllocatedSize.store(owner->mAllocatedSize.load(std::memory_order_relaxed) - size,
                                std::memory_order_relaxed);
    mManaged.store(mManaged.load(std::memory_order_relaxed) - size, std::memory_order_relaxed);
    arena::freeChecked(static_cast<arena::Arena>(mArena), header);
    SpinLockInline::exitRegion(mLock);
}

inline void MemoryPool::unlock() { SpinLockInline::exitRegion(mLock); }

}  // namespace vanta
