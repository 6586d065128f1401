// Memory pools: the arena behind a lock, and the process-wide record of every pool region.
#include <vanta/memorypool.h>

#include "arena_p.h"
#include "locks_p.h"

#include <algorithm>
#include <memory>

namespace vanta {

namespace {

// The regions of all pools, in address order, for the lock-free lookup of poolOf. Writers (the
// map callbacks and pool destruction) change it under the range lock and publish each version as
// a whole array that stays unchanged while it is current. Two arrays take turns: the one a
// publication replaces is refilled by the publication after next. A reader still scanning it
// then would see a mix, so the sequence number moves with every publication and a reader that
// saw it move scans again; entries are atomics, so such a read is a stale value, never a race.
class RangeList {
public:
    // Adds or removes the region at base and publishes the new version. Under the range lock.
    void add(void* base, unsigned long size, MemoryPool* pool) {
        auto at = std::upper_bound(mMaster.begin(), mMaster.end(), address(base),
                                   [](std::uintptr_t a, const Entry& e) { return a < e.base; });
        mMaster.insert(at, Entry{address(base), size, pool});
        publish();
    }
    void remove(void* base) {
        auto at = std::find_if(mMaster.begin(), mMaster.end(),
                               [&](const Entry& e) { return e.base == address(base); });
        if (at == mMaster.end())
            return;
        mMaster.erase(at);
        publish();
    }
    // The regions, under the range lock.
    std::vector<MMapRange> snapshot() const {
        std::vector<MMapRange> list;
        for (const Entry& e : mMaster)
            list.push_back({reinterpret_cast<void*>(e.base), e.size});
        return list;
    }

    // The pool whose region holds p, or null. Takes no lock and writes nothing shared.
    MemoryPool* find(const void* p) const {
        const std::uintptr_t a = address(p);
        for (;;) {
            const unsigned seen = mSequence.load(std::memory_order_acquire);
            const Published* array = mCurrent.load(std::memory_order_acquire);
            MemoryPool* found = nullptr;
            if (array) {
                // The last region starting at or below a, if any, is the only one that can hold it.
                std::size_t low = 0, high = array->count.load(std::memory_order_relaxed);
                high = std::min(high, array->capacity);
                while (low < high) {
                    const std::size_t mid = (low + high) / 2;
                    if (array->entries[mid].base.load(std::memory_order_relaxed) <= a)
                        low = mid + 1;
                    else
                        high = mid;
                }
                if (low > 0) {
                    const Slot& slot = array->entries[low - 1];
                    const std::uintptr_t base = slot.base.load(std::memory_order_relaxed);
                    if (a - base < slot.size.load(std::memory_order_relaxed))
                        found = slot.pool.load(std::memory_order_relaxed);
                }
            }
            std::atomic_thread_fence(std::memory_order_acquire);
            if (mSequence.load(std::memory_order_relaxed) == seen)
                return found;
        }
    }

private:
    struct Entry {
        std::uintptr_t base;
        unsigned long size;
        MemoryPool* pool;
    };
    struct Slot {
        std::atomic<std::uintptr_t> base{0};
        std::atomic<unsigned long> size{0};
        std::atomic<MemoryPool*> pool{nullptr};
    };
    struct Published {
        explicit Published(std::size_t capacity)
            : entries(new Slot[capacity]), capacity(capacity) {}
        std::unique_ptr<Slot[]> entries;
        const std::size_t capacity;
        std::atomic<std::size_t> count{0};
    };

    static std::uintptr_t address(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }

    void publish() {
        Published* target = mSpare;
        if (!target || target->capacity < mMaster.size()) {
            // Outgrown: a reader may still hold the old array, so it is kept (the capacities
            // double, so all kept arrays together stay under twice the largest).
            if (target)
                mOutgrown.emplace_back(target);
            target = new Published(std::max<std::size_t>(16, 2 * mMaster.size()));
        }
        mSequence.store(mSequence.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        for (std::size_t i = 0; i < mMaster.size(); ++i) {
            target->entries[i].base.store(mMaster[i].base, std::memory_order_relaxed);
            target->entries[i].size.store(mMaster[i].size, std::memory_order_relaxed);
            target->entries[i].pool.store(mMaster[i].pool, std::memory_order_relaxed);
        }
        target->count.store(mMaster.size(), std::memory_order_relaxed);
        mSpare = mCurrent.exchange(target, std::memory_order_acq_rel);
        mSequence.store(mSequence.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    std::vector<Entry> mMaster;  // what the next publication holds
    std::atomic<Published*> mCurrent{nullptr};
    Published* mSpare = nullptr;
    std::vector<std::unique_ptr<Published>> mOutgrown;
    std::atomic<unsigned> mSequence{0};
};

// The region list and the lock that guards its writers and every pool's own list. Constant-
// initialised to null, so code running before static initialisation can test them; created once
// and never destroyed, because pools may outlive every other static object.
std::atomic<RangeList*> sRanges{nullptr};
std::atomic<SpinLock*> sRangesLock{nullptr};

void createRangeList() {
    static const bool created = [] {
        sRangesLock.store(new SpinLock(0), std::memory_order_relaxed);
        sRanges.store(new RangeList, std::memory_order_release);
        return true;
    }();
    (void)created;
}

// Build the list during static initialisation, before any pool can exist.
const bool sRangeListBuilt = (createRangeList(), true);

constexpr unsigned long kGranularity = 4194304;  // system requests come in 4 MiB steps

inline arena::Arena arenaOf(void* handle) { return static_cast<arena::Arena>(handle); }

}  // namespace

void removeFromList(std::vector<MMapRange>& list, void* base, unsigned long) {
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (list[i].base == base) {
            list[i] = list.back();
            list.pop_back();
            return;
        }
    }
}

MemoryPool::MemoryPool(char const* name, unsigned long initialSize)
    : mName(QString::fromUtf8(name)) {
    // A pool may be built by a static constructor that runs before this file's own.
    createRangeList();
    void* first = directMmapCB(initialSize, this);
    mArena = arena::create(first, initialSize, false, &directMmapCB, &mmapCB, &sbreakCB, this);
    // Process-wide options: every pool sets the same values again. Free memory is kept for reuse
    // rather than trimmed, so system calls stay rare.
    arena::setOption(arena::kGranularity, kGranularity);
    arena::setOption(arena::kTrimThreshold, ~std::size_t(0));
}

MemoryPool::~MemoryPool() {
    if (mArena) {
        arena::trim(arenaOf(mArena), 0);
        arena::destroy(arenaOf(mArena));
    }
    SpinLock* lock = sRangesLock.load(std::memory_order_acquire);
    CSMutex guard(*lock);
    RangeList* all = sRanges.load(std::memory_order_relaxed);
    for (const MMapRange& range : mRanges) {
        all->remove(range.base);
        arena::defaultUnmap(range.base, range.size);
    }
    mRanges.clear();
}

void* MemoryPool::malloc(unsigned long size) {
    SpinLockInline::enterRegion(mLock);
    void* p = arena::malloc(arenaOf(mArena), size);
    SpinLockInline::exitRegion(mLock);
    return p;
}

void MemoryPool::free(void* p) {
    SpinLockInline::enterRegion(mLock);
    arena::free(arenaOf(mArena), p);
    SpinLockInline::exitRegion(mLock);
}

std::vector<MMapRange> MemoryPool::getRanges() const {
    CSMutex guard(*sRangesLock.load(std::memory_order_acquire));
    return mRanges;
}

unsigned long MemoryPool::getMappedBytes() const {
    CSMutex guard(*sRangesLock.load(std::memory_order_acquire));
    unsigned long total = 0;
    for (const MMapRange& range : mRanges)
        total += range.size;
    return total;
}

void MemoryPool::addManager(HeapManager* manager) {
    SpinLockInline::enterRegion(mLock);
    mManagers.insert(std::upper_bound(mManagers.begin(), mManagers.end(), manager), manager);
    SpinLockInline::exitRegion(mLock);
}

void MemoryPool::removeManager(HeapManager* manager) {
    SpinLockInline::enterRegion(mLock);
    auto at = std::lower_bound(mManagers.begin(), mManagers.end(), manager);
    if (at != mManagers.end() && *at == manager)
        mManagers.erase(at);
    if (mLastOwner == manager)
        mLastOwner = nullptr;
    SpinLockInline::exitRegion(mLock);
}

bool MemoryPool::hasManager(HeapManager* manager) {
    return std::binary_search(mManagers.begin(), mManagers.end(), manager);
}

bool MemoryPool::checkHeap(std::string* why) {
    SpinLockInline::enterRegion(mLock);
    const bool ok = arena::check(arenaOf(mArena), why);
    SpinLockInline::exitRegion(mLock);
    return ok;
}

bool MemoryPool::isPointerFromPool(void* p) { return poolOf(p) != nullptr; }

MemoryPool* MemoryPool::poolOf(const void* p) {
    const RangeList* all = sRanges.load(std::memory_order_acquire);
    return all ? all->find(p) : nullptr;
}

std::vector<MMapRange> MemoryPool::allRanges() {
    RangeList* all = sRanges.load(std::memory_order_acquire);
    if (!all)
        return {};
    CSMutex guard(*sRangesLock.load(std::memory_order_relaxed));
    return all->snapshot();
}

void MemoryPool::record(void* base, unsigned long size) {
    CSMutex guard(*sRangesLock.load(std::memory_order_acquire));
    sRanges.load(std::memory_order_relaxed)->add(base, size, this);
    mRanges.push_back({base, size});
}

void* MemoryPool::directMmapCB(unsigned long size, void* user) {
    void* base = arena::defaultDirectMap(size);
    if (base != arena::kMapFailed)
        static_cast<MemoryPool*>(user)->record(base, size);
    return base;
}

void* MemoryPool::mmapCB(unsigned long size, void* user) {
    void* base = arena::defaultMap(size);
    if (base != arena::kMapFailed)
        static_cast<MemoryPool*>(user)->record(base, size);
    return base;
}

int MemoryPool::munmapCB(char* base, unsigned long size, void* user) {
    const int result = arena::defaultUnmap(base, size);
    CSMutex guard(*sRangesLock.load(std::memory_order_acquire));
    sRanges.load(std::memory_order_relaxed)->remove(base);
    removeFromList(static_cast<MemoryPool*>(user)->mRanges, base, size);
    return result;
}

void* MemoryPool::sbreakCB(int, void*) { return arena::kMapFailed; }

}  // namespace vanta
