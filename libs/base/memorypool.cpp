// Memory pools: the arena behind a lock, and the process-wide record of every pool region.
#include <vanta/memorypool.h>

#include "arena_p.h"
#include "locks_p.h"

namespace vanta {

namespace {

// The regions of all pools, and the lock that guards it and every pool's own list. Constant-
// initialised to null, so code running before static initialisation can test them; created once
// and never destroyed, because pools may outlive every other static object.
std::atomic<std::vector<MMapRange>*> sRanges{nullptr};
std::atomic<SpinLock*> sRangesLock{nullptr};

void createRangeList() {
    static const bool created = [] {
        sRangesLock.store(new SpinLock(0), std::memory_order_relaxed);
        sRanges.store(new std::vector<MMapRange>, std::memory_order_release);
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
    std::vector<MMapRange>* all = sRanges.load(std::memory_order_relaxed);
    for (const MMapRange& range : mRanges) {
        removeFromList(*all, range.base, range.size);
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

bool MemoryPool::checkHeap(std::string* why) {
    SpinLockInline::enterRegion(mLock);
    const bool ok = arena::check(arenaOf(mArena), why);
    SpinLockInline::exitRegion(mLock);
    return ok;
}

bool MemoryPool::isPointerFromPool(void* p) {
    std::vector<MMapRange>* all = sRanges.load(std::memory_order_acquire);
    if (!all)
        return false;
    CSMutex guard(*sRangesLock.load(std::memory_order_relaxed));
    const auto address = reinterpret_cast<std::uintptr_t>(p);
    for (const MMapRange& range : *all) {
        const auto base = reinterpret_cast<std::uintptr_t>(range.base);
        if (base <= address && address - base < range.size)
            return true;
    }
    return false;
}

std::vector<MMapRange> MemoryPool::allRanges() {
    std::vector<MMapRange>* all = sRanges.load(std::memory_order_acquire);
    if (!all)
        return {};
    CSMutex guard(*sRangesLock.load(std::memory_order_relaxed));
    return *all;
}

void MemoryPool::record(void* base, unsigned long size) {
    CSMutex guard(*sRangesLock.load(std::memory_order_acquire));
    sRanges.load(std::memory_order_relaxed)->push_back({base, size});
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
    removeFromList(*sRanges.load(std::memory_order_relaxed), base, size);
    removeFromList(static_cast<MemoryPool*>(user)->mRanges, base, size);
    return result;
}

void* MemoryPool::sbreakCB(int, void*) { return arena::kMapFailed; }

}  // namespace vanta
