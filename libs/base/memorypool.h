/// \file
/// Memory pools: named, locked arenas that record every system region they obtain.
#pragma once

#include <vanta/export.h>
#include <vanta/locks.h>
#include <vanta/memory.h>

#include <QString>

#include <atomic>
#include <string>
#include <vector>

namespace vanta {

/// One system region of a pool.
struct VANTA_EXPORT MMapRange {
    /// First byte of the region.
    void* base;
    unsigned long size;  ///< bytes
};

/// A heap of its own: blocks come from an arena over regions mapped for this pool alone, and every
/// region is recorded both here and in the process-wide list that isPointerFromPool scans.
/// Regions are never handed back before the pool is destroyed.
///
/// Thread safety: malloc and free may be called from any thread (the pool's lock serialises them).
/// The allocated count is exact with any number of threads: heap managers change their part under
/// the pool's lock they hold for the block anyway, addAllocation/subtractAllocation theirs with an
/// atomic add.
///
/// Every free checks the block first and stops the process with "free(): <what>: <pointer>" on
/// standard error when it is not a block of this pool in use (see HeapManager::free for managed
/// blocks).
class VANTA_EXPORT MemoryPool : public MemoryObject {
public:
    /// Maps a first region of initialSize bytes and builds the arena on it. If the system refuses
    /// the region, the pool exists but every malloc returns null.
    MemoryPool(char const* name, unsigned long initialSize);
    /// Returns every region of the pool to the system. Blocks still live become invalid.
    virtual ~MemoryPool();

    MemoryPool(const MemoryPool&) = delete;
    MemoryPool& operator=(const MemoryPool&) = delete;

    /// A 16-byte aligned block of at least size bytes; null when the arena cannot obtain memory.
    /// Takes the pool's lock, waiting without limit. The caller owns the block until free.
    void* malloc(unsigned long size);
    /// Returns a block of this pool (null does nothing). Takes the pool's lock. Stops the process
    /// when p is not a block of this pool in use (misaligned, outside the pool, freed already, or
    /// with damaged boundary tags).
    void free(void* p);

    /// Adds to the payload bytes the pool's users report; malloc and free do not touch the count,
    /// and heap managers count their blocks themselves.
    void addAllocation(unsigned long size) {
        mAllocated.fetch_add(size, std::memory_order_relaxed);
    }
    /// Takes back what addAllocation reported.
    void subtractAllocation(unsigned long size) {
        mAllocated.fetch_sub(size, std::memory_order_relaxed);
    }
    /// The payload bytes of the live blocks of this pool's heap managers, plus what was reported
    /// through add and subtractAllocation.
    unsigned long getAllocatedMemory() const {
        return mManaged.load(std::memory_order_relaxed) + mAllocated.load(std::memory_order_relaxed);
    }

    /// The name given at construction.
    QString getName() const { return mName; }
    /// The reference count, changed with TestThenAdd by heap managers; 1 after construction.
    long volatile* refCount() { return &mRefCount; }
    /// The reference count, read without a lock.
    long getRefCount() const { return __atomic_load_n(&mRefCount, __ATOMIC_RELAXED); }

    /// A snapshot of this pool's regions, in the order they were obtained.
    std::vector<MMapRange> getRanges() const;
    /// Bytes of all regions of this pool.
    unsigned long getMappedBytes() const;
    /// Walks the pool's arena and verifies every chunk and bin (see the arena's check); for tests.
    /// False with a description in *why when the heap is damaged or the pool has no arena.
    bool checkHeap(std::string* why = nullptr);

    /// True when p lies inside a region of any live pool. Takes no lock: a bisection of the
    /// process-wide region list (kept in address order), which writers publish whole. False
    /// before that list exists.
    static bool isPointerFromPool(void* p);
    /// The live pool whose region holds p, or null; found as isPointerFromPool finds it.
    static MemoryPool* poolOf(const void* p);
    /// A snapshot of the process-wide region list, for tests.
    static std::vector<MMapRange> allRanges();

    /// Arena callbacks; user is the pool. The map callbacks map a region with the default system
    /// call and record it (a refused region is not recorded); munmapCB unmaps and forgets one, for
    /// callers that release a pool region themselves; sbreakCB always fails (all bits set), so
    /// every region comes through the map callbacks.
    static void* directMmapCB(unsigned long size, void* user);
    /// Maps a region and records it.
    static void* mmapCB(unsigned long size, void* user);
    /// Unmaps a region and forgets it.
    static int munmapCB(char* base, unsigned long size, void* user);
    /// Always fails.
    static void* sbreakCB(int increment, void* user);

private:
    friend class HeapManager;
    friend void doDelete(void*, MemoryManager*);
    // Managed blocks (memorypool_p.h). allocManaged takes the lock, carves a block with its
    // header naming manager and counts it; lockBlock takes the lock and returns the manager of
    // a checked block, keeping the lock; releaseBlock frees it and lets the lock go.
    void* allocManaged(HeapManager* manager, unsigned long size);
    HeapManager* lockBlock(void* payload);
    void releaseBlock(HeapManager* owner, void* payload);
    void unlock();
    void addManager(HeapManager* manager);
    void removeManager(HeapManager* manager);
    bool hasManager(const MemoryManager* manager);
    void record(void* base, unsigned long size);

    QString mName;
    long volatile mRefCount = 1;  ///< atomic through TestThenAdd
    std::atomic<unsigned long> mAllocated{0};  ///< add/subtractAllocation, atomic adds
    std::atomic<unsigned long> mManaged{0};    ///< heap managers' blocks, changed under mLock
    void* mArena = nullptr;       ///< guarded by mLock
    SpinLock mLock{0};
    std::vector<const MemoryManager*> mManagers;  ///< in address order; guarded by mLock
    const MemoryManager* mLastOwner = nullptr;    ///< found last by lockBlock; guarded by mLock
    std::vector<MMapRange> mRanges;  ///< guarded by the process-wide region lock
};

/// Removes the first entry whose base is base (size is not compared) by moving the last entry
/// into its place; order is not preserved. Nothing changes when base is not listed.
VANTA_EXPORT void removeFromList(std::vector<MMapRange>& list, void* base, unsigned long size);

}  // namespace vanta
