/// \file
/// Managed allocation: memory managers, pool-backed heap managers, managed objects and buffers.
///
/// A block from a HeapManager carries a two-word header (its manager, its size) just before the
/// payload; any other block came from the C library heap. doDelete tells the two apart by asking
/// whether the address lies in a memory pool, so one delete serves both kinds.
#pragma once

#include <vanta/export.h>
#include <atomic>
#include <cstddef>

namespace vanta {

class MemoryManager;
class MemoryPool;

/// Allocates size bytes: from mm when given (through its virtual alloc), otherwise from the C
/// library's malloc. Returns null on failure; never throws. The caller owns the block.
VANTA_EXPORT void* doNew(unsigned long size, MemoryManager* mm = nullptr);
/// Frees a block from doNew, whichever heap it came from: a pool block goes to the manager named
/// in its header, any other to the C library's free. Null does nothing. The manager argument is
/// ignored. A pool block is checked before its header is trusted, and a bad one (freed already,
/// not the start of a block, its manager gone) stops the process (see HeapManager).
VANTA_EXPORT void doDelete(void* p, MemoryManager* mm = nullptr);

/// Same as doNew.
VANTA_EXPORT void* Malloc(unsigned long size, MemoryManager* mm = nullptr);
/// Malloc, then zeroes the size bytes. Null (nothing zeroed) when the allocation failed.
VANTA_EXPORT void* Calloc(unsigned long size, MemoryManager* mm = nullptr);
/// For C library blocks only: null p gives doNew(size, null), otherwise the C library's realloc.
/// A pool block must not be passed here.
VANTA_EXPORT void* Realloc(void* p, unsigned long size);
/// Same as doDelete.
VANTA_EXPORT void Free(void* p);

/// Base class whose class operators route every heap instance through doNew/doDelete, so an
/// object may be placed with a manager (new (mm) T) and still be deleted with a plain delete.
/// Allocation failure gives a null pointer, never an exception.
class VANTA_EXPORT MemoryObject {
public:
    /// A size of 0 is served as 1, so every object has a distinct address.
    static void* operator new(std::size_t size) noexcept;
    /// As operator new, for arrays.
    static void* operator new[](std::size_t size) noexcept;
    /// Places the object with manager mm (see doNew).
    static void* operator new(std::size_t size, MemoryManager* mm) noexcept;
    /// As the placed operator new, for arrays.
    static void* operator new[](std::size_t size, MemoryManager* mm) noexcept;
    /// Returns the block through doDelete; null is ignored.
    static void operator delete(void* p);
    /// As operator delete, for arrays.
    static void operator delete[](void* p);
    /// Called when a placed constructor throws; as operator delete.
    static void operator delete(void* p, MemoryManager* mm);
    /// Called when a placed array constructor throws; as operator delete.
    static void operator delete[](void* p, MemoryManager* mm);
};

/// An allocator of managed blocks.
class VANTA_EXPORT MemoryManager : public MemoryObject {
public:
    virtual ~MemoryManager() = default;
    /// A block of size bytes, or null; the caller owns it until free.
    virtual void* alloc(unsigned long size) = 0;
    /// Returns a block from alloc.
    virtual void free(void* p) = 0;
};

/// A manager that carves its blocks from a memory pool, writes the managed header before each
/// payload and keeps count of the payload bytes it has handed out.
///
/// Thread safety: alloc and free may run on several threads. Both byte counts (the manager's and
/// the pool's) change under the pool's lock, so they stay exact however many threads share them.
///
/// Every way of freeing a block (free, doDelete, Free, the MemoryObject operators delete, a
/// HeapBuffer's destructor) checks it before trusting any word of it: the pointer lies in a pool,
/// is aligned as payloads are and starts a chunk in use whose boundary tags agree, and its header
/// names a live manager of that pool and a size that fits the chunk. A block that fails stops the
/// process with "free(): <what>: <pointer>" on standard error, as the C library's free does.
class VANTA_EXPORT HeapManager : public MemoryManager {
public:
    /// The pool used by managers built without one: created on first need (a 4 MiB first region),
    /// then kept for the life of the process.
    static std::atomic<MemoryPool*> sDefaultPool;

    /// Uses pool, or the default pool when pool is null, and holds one reference on it.
    explicit HeapManager(MemoryPool* pool = nullptr);
    /// Drops the reference on the pool, deleting the pool when this was the last one. Blocks still
    /// live are not freed.
    ~HeapManager() override;

    /// A 16-byte aligned payload of size bytes behind a header naming this manager. Null when the
    /// pool is exhausted. Does not block beyond the pool's lock.
    void* alloc(unsigned long size) override;
    /// Returns a block of this manager (header included) to the pool; null does nothing. A block
    /// that is not a live block of this manager (another manager's too) stops the process.
    void free(void* p) override;
    /// Calls alloc(size): payloads already have the pool's 16-byte alignment; larger alignments
    /// are not applied.
    void* allocAligned(unsigned long size, unsigned long alignment);
    /// Does nothing: a heap manager does not track its blocks.
    void clear();
    /// The payload bytes of this manager's live blocks.
    unsigned long getAllocatedSize() const {
        return mAllocatedSize.load(std::memory_order_relaxed);
    }
    /// The pool the blocks come from.
    MemoryPool* getPool() const { return mPool; }

    /// The bytes of the header before every payload, and the payload's manager and size as the
    /// header records them.
    static constexpr unsigned long kHeaderSize = 2 * sizeof(void*);
    /// The manager recorded in payload's header.
    static MemoryManager* managerOf(const void* payload);
    /// The size recorded in payload's header.
    static unsigned long sizeOf(const void* payload);

private:
    friend class MemoryPool;
    std::atomic<unsigned long> mAllocatedSize{0};  ///< changed under the pool's lock
    MemoryPool* mPool;
};

/// A byte buffer of fixed capacity, filled by appending; it never grows.
class VANTA_EXPORT HeapBuffer : public MemoryObject {
public:
    /// Storage of capacity bytes from manager->allocAligned, or from Malloc without a manager.
    /// If the storage cannot be had, the buffer has capacity 0.
    HeapBuffer(HeapManager* manager, unsigned long capacity, unsigned long alignment);
    /// Returns the storage to its manager, or through Free.
    virtual ~HeapBuffer();

    HeapBuffer(const HeapBuffer&) = delete;
    HeapBuffer& operator=(const HeapBuffer&) = delete;

    /// Copies n bytes after the used ones. True at once (nothing copied) for a null src or n of 0;
    /// false, copying nothing, when they would not fit.
    bool appendData(void const* src, unsigned long n);

    /// The storage; null when it could not be had.
    void* getData() const { return mData; }
    /// Bytes appended so far.
    unsigned long getUsed() const { return mUsed; }
    /// Bytes the buffer can hold.
    unsigned long getCapacity() const { return mCapacity; }
    /// Alignment asked of the storage.
    unsigned long getAlignment() const { return mAlignment; }
    /// The manager the storage came from; null for Malloc.
    HeapManager* getManager() const { return mManager; }

private:
    [[maybe_unused]] int mOne = 1;  ///< set at construction, not otherwise used
    void* mData;
    unsigned long mUsed = 0;
    unsigned long mCapacity;
    unsigned long mAlignment;
    HeapManager* mManager;
};

}  // namespace vanta
