// Managed allocation: doNew/doDelete, the MemoryObject class operators, heap managers and buffers.
#include <vanta/memory.h>

#include <vanta/memorypool.h>

#include "memorypool_p.h"

#include <cstdlib>
#include <cstring>
#include <typeinfo>

namespace vanta {

namespace {

constexpr unsigned long kDefaultPoolSize = 4194304;

}  // namespace

void* doNew(unsigned long size, MemoryManager* mm) {
    return mm ? mm->alloc(size) : std::malloc(size);
}

void doDelete(void* p, MemoryManager*) {
    if (!p)
        return;
    MemoryPool* pool = MemoryPool::poolOf(p);
    if (!pool) {
        std::free(p);
        return;
    }
    HeapManager* owner = pool->lockBlock(p);
    // The header names a live manager of this pool: its own free runs. For a plain HeapManager
    // that is the release below, done under the lock already held instead of taking it again.
    if (typeid(*owner) == typeid(HeapManager)) {
        pool->releaseBlock(owner, p);
    } else {
        pool->unlock();
        owner->free(p);
    }
}

void* Malloc(unsigned long size, MemoryManager* mm) { return doNew(size, mm); }

void* Calloc(unsigned long size, MemoryManager* mm) {
    void* p = Malloc(size, mm);
    if (p)
        std::memset(p, 0, size);
    return p;
}

void* Realloc(void* p, unsigned long size) { return p ? std::realloc(p, size) : doNew(size); }

void Free(void* p) { doDelete(p); }

void* MemoryObject::operator new(std::size_t size) noexcept { return doNew(size ? size : 1); }
void* MemoryObject::operator new[](std::size_t size) noexcept { return doNew(size ? size : 1); }
void* MemoryObject::operator new(std::size_t size, MemoryManager* mm) noexcept {
    return doNew(size ? size : 1, mm);
}
void* MemoryObject::operator new[](std::size_t size, MemoryManager* mm) noexcept {
    return doNew(size ? size : 1, mm);
}
void MemoryObject::operator delete(void* p) { doDelete(p); }
void MemoryObject::operator delete[](void* p) { doDelete(p); }
void MemoryObject::operator delete(void* p, MemoryManager*) { doDelete(p); }
void MemoryObject::operator delete[](void* p, MemoryManager*) { doDelete(p); }

std::atomic<MemoryPool*> HeapManager::sDefaultPool{nullptr};

HeapManager::HeapManager(MemoryPool* pool) : mPool(pool) {
    if (!mPool) {
        // The client's default pool when it set one; otherwise one is made, and when several
        // threads make their first managers at once, one pool wins and the others are dropped.
        mPool = sDefaultPool.load(std::memory_order_acquire);
        if (!mPool) {
            auto* fresh = new MemoryPool("default", kDefaultPoolSize);
            if (sDefaultPool.compare_exchange_strong(mPool, fresh, std::memory_order_acq_rel,
                                                     std::memory_order_acquire))
                mPool = fresh;
            else
                delete fresh;
        }
    }
    if (mPool) {
        TestThenAdd(mPool->refCount(), 1);
        mPool->addManager(this);
    }
}

HeapManager::~HeapManager() {
    clear();
    if (mPool)
        mPool->removeManager(this);
    if (mPool && TestThenAdd(mPool->refCount(), -1) == 1)
        delete mPool;
}

void* HeapManager::alloc(unsigned long size) {
    // The header must fit too; a size this close to the limit cannot be served anyway.
    if (!mPool || size > ~0ul - kHeaderSize)
        return nullptr;
    return mPool->allocManaged(this, size);
}

void HeapManager::free(void* p) {
    if (!p)
        return;
    if (!mPool)
        arena::reportBadFree("pointer not from this pool", p);
    HeapManager* owner = mPool->lockBlock(p);
    if (owner != this)
        arena::reportBadFree("invalid pointer (a block of another manager)", p);
    mPool->releaseBlock(this, p);
}

void* HeapManager::allocAligned(unsigned long size, unsigned long) { return alloc(size); }

void HeapManager::clear() {}

MemoryManager* HeapManager::managerOf(const void* payload) { return headerOf(payload)->manager; }

unsigned long HeapManager::sizeOf(const void* payload) { return headerOf(payload)->size; }

HeapBuffer::HeapBuffer(HeapManager* manager, unsigned long capacity, unsigned long alignment)
    : mData(manager ? manager->allocAligned(capacity, alignment) : Malloc(capacity, nullptr)),
      mCapacity(mData ? capacity : 0),
      mAlignment(alignment),
      mManager(manager) {}

HeapBuffer::~HeapBuffer() {
    if (mManager)
        mManager->free(mData);
    else
        Free(mData);
}

bool HeapBuffer::appendData(void const* src, unsigned long n) {
    if (!src || n == 0)
        return true;
    if (n > mCapacity - mUsed)
        return false;
    std::memcpy(static_cast<char*>(mData) + mUsed, src, n);
    mUsed += n;
    return true;
}

}  // namespace vanta
