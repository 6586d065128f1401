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
            MemoryPool* found = array ? array->find(a) : nullptr;
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
    // One version of the list: the regions in address order, and for every MiB of address space
    // (by address modulo kNearSlots) the regions that overlap it, so most lookups go straight to
    // their region. A slot holds up to two region numbers plus one; kCrowded in the second
    // place means more regions share the slot and a miss there needs the bisection.
    static constexpr int kNearShift = 20;
    static constexpr std::size_t kNearSlots = 4096;
    static constexpr std::uint32_t kCrowded = ~std::uint32_t(0);
    struct Published {
        explicit Published(std::size_t capacity)
            : entries(new Slot[capacity]), near(new std::atomic<std::uint64_t>[kNearSlots]),
              capacity(capacity) {}
        std::unique_ptr<Slot[]> entries;
        std::unique_ptr<std::atomic<std::uint64_t>[]> near;
        const std::size_t capacity;
        std::atomic<std::size_t> count{0};

        // The pool of entry number (plus one) k when its region holds a, else null. Bounds-
        // checked: a reader overtaken by a writer may see any number here.
        MemoryPool* poolAt(std::uint32_t k, std::uintptr_t a) const {
            if (k == 0 || k > capacity)
                return nullptr;
            const Slot& slot = entries[k - 1];
            return a - slot.base.load(std::memory_order_acquire) <
                           slot.size.load(std::memory_order_acquire)
                       ? slot.pool.load(std::memory_order_acquire)
                       : nullptr;
        }

        MemoryPool* find(std::uintptr_t a) const {
            const std::uint64_t pair = near[(a >> kNearShift) % kNearSlots].load(std::memory_order_acquire);
            const auto first = std::uint32_t(pair), second = std::uint32_t(pair >> 32);
            if (MemoryPool* pool = poolAt(first, a))
                return pool;
            if (second != kCrowded)
                return poolAt(second, a);
            // The last region starting at or below a, if any, is the only one that can hold it.
            std::size_t low = 0;
            std::size_t high = std::min(count.load(std::memory_order_acquire), capacity);
            while (low < high) {
                const std::size_t mid = (low + high) / 2;
                if (entries[mid].base.load(std::memory_order_acquire) <= a)
                    low = mid + 1;
                else
                    high = mid;
            }
            return poolAt(std::uint32_t(low), a);
        }
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
        std::vector<std::uint64_t> near(kNearSlots, 0);
        for (std::size_t i = 0; i < mMaster.size(); ++i) {
            const Entry& e = mMaster[i];
            target->entries[i].base.store(e.base, std::memory_order_release);
            target->entries[i].size.store(e.size, std::memory_order_release);
            target->entries[i].pool.store(e.pool, std::memory_order_release);
            const std::uintptr_t first = e.base >> kNearShift;
            const std::uintptr_t last = (e.base + e.size - 1) >> kNearShift;
            for (std::uintptr_t g = first; g <= last && g - first < kNearSlots; ++g) {
                std::uint64_t& pair = near[g % kNearSlots];
                const auto number = std::uint64_t(i + 1);
                if ((pair & 0xffffffffu) == 0)
                    pair |= number;
                else if ((pair >> 32) == 0)
                    pair |= number << 32;
                else
                    pair |= std::uint64_t(kCrowded) << 32;
            }
        }
        for (std::size_t slot = 0; slot < kNearSlots; ++slot)
            target->near[slot].store(near[slot], std::memory_order_release);
        target->count.store(mMaster.size(), std::memory_order_release);
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
    const MemoryManager* entry = manager;
    SpinLockInline::enterRegion(mLock);
    mManagers.insert(std::upper_bound(mManagers.begin(), mManagers.end(), entry), entry);
    SpinLockInline::exitRegion(mLock);
}

void MemoryPool::removeManager(HeapManager* manager) {
    const MemoryManager* entry = manager;
    SpinLockInline::enterRegion(mLock);
    auto at = std::lower_bound(mManagers.begin(), mManagers.end(), entry);
    if (at != mManagers.end() && *at == entry)
        mManagers.erase(at);
    if (mLastOwner == entry)
        mLastOwner = nullptr;
    SpinLockInline::exitRegion(mLock);
}

bool MemoryPool::hasManager(const MemoryManager* manager) {
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
