// The arena allocator: boundary-tagged chunks in exact-size lists and size-ordered trees.
//
// Chunk layout (every chunk starts at a 16-byte boundary):
//   +0  prevFoot  the previous chunk's size, valid only while that chunk is free
//   +8  head      this chunk's size | kQuick | kCInUse | kPInUse
//   +16 payload   (a free chunk keeps its two links here)
// A chunk in use lends the next chunk's prevFoot word to its payload, so its overhead is one word
// and a block of n bytes takes a chunk of round16(n + 8) bytes, at least 32.
//
// Small chunks that are freed go first to a short per-size quick list, still marked in use, so
// the common free-then-malloc of one size touches no neighbour; chunks beyond the quick lists'
// limit, and all of them whenever the arena would otherwise grow or is trimmed, are coalesced.
//
// Region layout: [arena record (first region only)] [chunks ...] [fence] [region record]. The
// fence is a zero-size chunk marked in use, so coalescing and walks stop at the region's end.
#include "arena_p.h"

#include "locks_p.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <new>
#include <unordered_set>

namespace vanta {
namespace arena {

namespace {

constexpr std::size_t kAlign = 16;
constexpr std::size_t kPInUse = 1;  // the previous chunk is in use
constexpr std::size_t kCInUse = 2;  // this chunk is in use
constexpr std::size_t kQuick = 4;   // this chunk waits in a quick list (still marked in use)
constexpr std::size_t kFlags = kAlign - 1;
constexpr std::size_t kMinChunk = 32;
constexpr std::size_t kPayloadOffset = 16;
constexpr std::size_t kLargeMin = 1024;    // chunks from here on live in trees
constexpr int kSmallBins = 64;             // index = size / 16, sizes 32..1008
constexpr int kLargeBins = 4 * (64 - 10);  // four bins per power of two from 1 KiB
constexpr unsigned kQuickLimit = 64;       // chunks per quick list
constexpr std::size_t kRegionSlots = 1024;  // remembered regions, by MiB of address space
constexpr std::size_t kMaxRequest = std::size_t(1) << 60;
constexpr std::size_t kPage = 4096;

struct Chunk {
    std::size_t prevFoot;
    std::size_t head;
    Chunk* fd;  // small list: next; tree: left child
    Chunk* bk;  // small list: previous; tree: right child
};

struct Region {
    void* base;         // as the callback returned it
    std::size_t size;   // as requested from the callback
    Chunk* first;       // first chunk
    Chunk* fence;       // end marker
    Region* next;
    bool isFirst;       // the creator's region: never released
};

inline std::size_t roundUp(std::size_t n, std::size_t to) { return (n + to - 1) & ~(to - 1); }
inline char* alignUp(void* p) {
    return reinterpret_cast<char*>(roundUp(reinterpret_cast<std::uintptr_t>(p), kAlign));
}
inline char* alignDown(char* p) {
    return reinterpret_cast<char*>(reinterpret_cast<std::uintptr_t>(p) & ~std::uintptr_t(kFlags));
}

inline std::size_t sizeOf(const Chunk* c) { return c->head & ~kFlags; }
inline bool inUse(const Chunk* c) { return c->head & kCInUse; }
inline bool prevInUse(const Chunk* c) { return c->head & kPInUse; }
inline Chunk* at(void* p, std::size_t offset) {
    return reinterpret_cast<Chunk*>(static_cast<char*>(p) + offset);
}
inline Chunk* nextOf(Chunk* c) { return at(c, sizeOf(c)); }
inline void* payloadOf(Chunk* c) { return reinterpret_cast<char*>(c) + kPayloadOffset; }
inline Chunk* chunkOf(const void* p) {
    return reinterpret_cast<Chunk*>(const_cast<char*>(static_cast<const char*>(p)) -
                                    kPayloadOffset);
}

// The chunk size that serves a request of n bytes.
inline std::size_t chunkSizeFor(std::size_t n) {
    return std::max(kMinChunk, roundUp(n + sizeof(std::size_t), kAlign));
}

inline int log2Floor(std::size_t n) { return 63 - __builtin_clzll(n); }
inline int largeIndex(std::size_t size) {
    const int lg = log2Floor(size);
    return (lg - 10) * 4 + int((size >> (lg - 2)) & 3);
}

// Tree priority: a hash of the address, so the trees are balanced in expectation without a
// stored field, and the shape does not depend on the order of frees.
inline std::uint64_t priorityOf(const Chunk* c) {
    std::uint64_t x = reinterpret_cast<std::uintptr_t>(c);
    x ^= x >> 33;
    x *= 0xff51afd7ed558ccdULL;
    x ^= x >> 33;
    return x;
}
// Trees are ordered by size, then address: the best fit is the leftmost large-enough chunk, and
// among equals the lowest address, which keeps the heap compact.
inline bool keyLess(const Chunk* a, const Chunk* b) {
    const std::size_t sa = sizeOf(a), sb = sizeOf(b);
    return sa < sb || (sa == sb && reinterpret_cast<std::uintptr_t>(a) <
                                       reinterpret_cast<std::uintptr_t>(b));
}

// Treap operations on the (fd = left, bk = right) links.
Chunk* merge(Chunk* a, Chunk* b) {
    if (!a)
        return b;
    if (!b)
        return a;
    if (priorityOf(a) > priorityOf(b)) {
        a->bk = merge(a->bk, b);
        return a;
    }
    b->fd = merge(a, b->fd);
    return b;
}

void split(Chunk* t, const Chunk* key, Chunk*& less, Chunk*& greater) {
    if (!t) {
        less = greater = nullptr;
    } else if (keyLess(t, key)) {
        split(t->bk, key, t->bk, greater);
        less = t;
    } else {
        split(t->fd, key, less, t->fd);
        greater = t;
    }
}

Chunk* treeInsert(Chunk* t, Chunk* n) {
    if (!t || priorityOf(n) > priorityOf(t)) {
        split(t, n, n->fd, n->bk);
        return n;
    }
    if (keyLess(n, t))
        t->fd = treeInsert(t->fd, n);
    else
        t->bk = treeInsert(t->bk, n);
    return t;
}

Chunk* treeErase(Chunk* t, Chunk* n) {
    if (t == n)
        return merge(t->fd, t->bk);
    if (keyLess(n, t))
        t->fd = treeErase(t->fd, n);
    else
        t->bk = treeErase(t->bk, n);
    return t;
}

Chunk* treeLowerBound(Chunk* t, std::size_t size) {
    Chunk* best = nullptr;
    while (t) {
        if (sizeOf(t) >= size) {
            best = t;
            t = t->fd;
        } else {
            t = t->bk;
        }
    }
    return best;
}

Chunk* treeLeftmost(Chunk* t) {
    while (t->fd)
        t = t->fd;
    return t;
}

std::atomic<std::size_t> gGranularity{std::size_t(64) * 1024};
std::atomic<std::size_t> gTrimThreshold{std::size_t(2) * 1024 * 1024};

bool mapFailed(void* p) { return !p || p == kMapFailed; }

}  // namespace

namespace {

// The regions of an arena in address order, for bisection. Its storage is a mapping of its own,
// like the regions, so an arena needs no memory from the C library heap.
class RegionIndex {
public:
    RegionIndex() = default;
    RegionIndex(const RegionIndex&) = delete;
    RegionIndex& operator=(const RegionIndex&) = delete;
    ~RegionIndex() {
        if (mItems)
            defaultUnmap(mItems, mCapacity * sizeof(Region*));
    }

    Region** begin() const { return mItems; }
    Region** end() const { return mItems + mCount; }

    // Room for one more region; false when the system refuses the memory for it.
    bool reserveOne() {
        if (mCount < mCapacity)
            return true;
        const std::size_t capacity = mCapacity ? 2 * mCapacity : kPage / sizeof(Region*);
        void* grown = defaultMap(capacity * sizeof(Region*));
        if (mapFailed(grown))
            return false;
        if (mItems) {
            std::copy(begin(), end(), static_cast<Region**>(grown));
            defaultUnmap(mItems, mCapacity * sizeof(Region*));
        }
        mItems = static_cast<Region**>(grown);
        mCapacity = capacity;
        return true;
    }
    // Inserts r in address order; reserveOne must have made room.
    void insert(Region* r) {
        Region** at = std::upper_bound(begin(), end(), r, [](const Region* a, const Region* b) {
            return a->first < b->first;
        });
        std::copy_backward(at, end(), end() + 1);
        *at = r;
        ++mCount;
    }
    void erase(const Region* r) {
        Region** at = std::find(begin(), end(), r);
        if (at != end()) {
            std::copy(at + 1, end(), at);
            --mCount;
        }
    }

private:
    Region** mItems = nullptr;
    std::size_t mCount = 0, mCapacity = 0;
};

}  // namespace

void reportBadFree(const char* fault, const void* p) {
    std::fprintf(stderr, "free(): %s: %p\n", fault, p);
    std::abort();
}

struct ArenaState {
    // What every quick malloc and free reads or writes, at the front: the bounds of the region
    // of the last chunk freed (tried first when a free checks its pointer), then the quick
    // lists. Freed small chunks wait there still marked in use, linked through fd.
    const char* lastLow = nullptr;   // that region's first chunk
    const char* lastHigh = nullptr;  // and its fence
    bool locked;
    std::uint8_t quickCount[kSmallBins] = {};
    Chunk* quick[kSmallBins] = {};
    Chunk* smallBins[kSmallBins] = {};
    Chunk* largeBins[kLargeBins] = {};
    std::uint64_t smallMap = 0;       // bit i: smallBins[i] is not empty
    std::uint64_t largeMap[4] = {};   // bit i: largeBins[i] is not empty
    Region* regions = nullptr;        // the first region is always last in this list
    RegionIndex byAddress;            // the same regions in address order, for findRegion
    // A region found last in each MiB of address space (by address modulo the slots), tried
    // before the bisection: a pool's regions are 4 MiB or more, so only the MiB where one region
    // ends and the next begins is shared, and most frees find their region here.
    const Region* regionNear[kRegionSlots] = {};
    DirectMapFn directMap;
    MapFn map;
    BreakFn brk;
    UnmapFn unmap;
    void* user;
    CriticalRegion lock;
    // markedBytes counts every chunk marked in use, those waiting in the quick lists included,
    // so a quick malloc or free leaves it alone.
    std::size_t regionCount = 0, footprint = 0, markedBytes = 0, freeBytes = 0, freeChunks = 0;

    void enter() {
        if (locked)
            lock.enter(CriticalRegion::kForever, 100);
    }
    void exit() {
        if (locked)
            lock.exit();
    }

    // Why freeing the block p would damage the heap, or null when p is the payload of a chunk of
    // this arena in use. Each step reads only what the steps before proved to be ours: p is
    // aligned as payloads are, its chunk lies inside one of this arena's regions (the region of
    // the last free is tried first), is marked in use and not waiting in a quick list, and its
    // size ends inside that region at a chunk that records it as in use and whose own size is
    // sane: the boundary tags on both sides agree.
    const char* badFree(const void* p) {
        if ((reinterpret_cast<std::uintptr_t>(p) & kFlags) != 0)
            return "invalid pointer (misaligned)";
        const Chunk* c = chunkOf(p);
        const char* at = reinterpret_cast<const char*>(c);
        if ((at < lastLow || at >= lastHigh) && !nearRegion(c) && !findRegion(c))
            return "pointer not from this pool";
        if (c->head & kQuick)
            return "double free detected";
        if (!inUse(c))
            return "double free or invalid pointer (no block in use starts here)";
        const std::size_t size = sizeOf(c);
        if (size < kMinChunk || size > std::size_t(lastHigh - at))
            return "invalid size";
        const Chunk* next = nextOf(const_cast<Chunk*>(c));
        const std::size_t nextSize = sizeOf(next);
        if (!prevInUse(next) ||
            (reinterpret_cast<const char*>(next) != lastHigh &&
             (nextSize < kMinChunk ||
              nextSize > std::size_t(lastHigh - reinterpret_cast<const char*>(next)))))
            return "invalid next size";
        return nullptr;
    }

    // Makes the region remembered for c's MiB of address space the one tried first when it
    // holds c; false when it does not.
    bool nearRegion(const Chunk* c) {
        const Region* r = regionNear[regionSlot(c)];
        if (!r || !inside(r, c))
            return false;
        lastLow = reinterpret_cast<const char*>(r->first);
        lastHigh = reinterpret_cast<const char*>(r->fence);
        return true;
    }

    // Makes the region holding c the one tried first; false when no region of this arena
    // holds it. A bisection of the regions in address order, so the cost grows with the log of
    // their number. Out of line: most frees fall in the region of the one before.
    [[gnu::noinline]] bool findRegion(const Chunk* c) {
        const char* at = reinterpret_cast<const char*>(c);
        auto after = std::upper_bound(
            byAddress.begin(), byAddress.end(), at,
            [](const char* a, const Region* r) { return a < reinterpret_cast<char*>(r->first); });
        if (after == byAddress.begin())
            return false;
        const Region* r = *(after - 1);
        if (at >= reinterpret_cast<char*>(r->fence))
            return false;
        regionNear[regionSlot(c)] = r;
        lastLow = reinterpret_cast<const char*>(r->first);
        lastHigh = reinterpret_cast<const char*>(r->fence);
        return true;
    }

    static bool inside(const Region* r, const Chunk* c) {
        return reinterpret_cast<const char*>(c) >= reinterpret_cast<char*>(r->first) &&
               reinterpret_cast<const char*>(c) < reinterpret_cast<char*>(r->fence);
    }
    // The slot of regionNear for the MiB of address space around c.
    static std::size_t regionSlot(const void* c) {
        return (reinterpret_cast<std::uintptr_t>(c) >> 20) % kRegionSlots;
    }

    // Room in the region index for one more region; false when memory for it cannot be had.
    bool indexRoom() { return byAddress.reserveOne(); }

    void insertFree(Chunk* c) {
        const std::size_t size = sizeOf(c);
        freeBytes += size;
        ++freeChunks;
        if (size < kLargeMin) {
            const int i = int(size >> 4);
            Chunk* head = smallBins[i];
            c->fd = head;
            c->bk = nullptr;
            if (head)
                head->bk = c;
            smallBins[i] = c;
            smallMap |= std::uint64_t(1) << i;
        } else {
            const int i = largeIndex(size);
            c->fd = c->bk = nullptr;
            largeBins[i] = treeInsert(largeBins[i], c);
            largeMap[i >> 6] |= std::uint64_t(1) << (i & 63);
        }
    }

    void removeFree(Chunk* c) {
        const std::size_t size = sizeOf(c);
        freeBytes -= size;
        --freeChunks;
        if (size < kLargeMin) {
            const int i = int(size >> 4);
            if (c->bk)
                c->bk->fd = c->fd;
            else
                smallBins[i] = c->fd;
            if (c->fd)
                c->fd->bk = c->bk;
            if (!smallBins[i])
                smallMap &= ~(std::uint64_t(1) << i);
        } else {
            const int i = largeIndex(size);
            largeBins[i] = treeErase(largeBins[i], c);
            if (!largeBins[i])
                largeMap[i >> 6] &= ~(std::uint64_t(1) << (i & 63));
        }
    }

    // The first non-empty large bin at or after index from, or -1.
    int nextLargeBin(int from) const {
        for (int word = from >> 6; word < 4; ++word) {
            std::uint64_t bits = largeMap[word];
            if (word == from >> 6)
                bits &= ~std::uint64_t(0) << (from & 63);
            if (bits)
                return word * 64 + __builtin_ctzll(bits);
        }
        return -1;
    }

    // Removes and returns the best-fitting free chunk of at least size bytes, or null.
    Chunk* takeBestFit(std::size_t size) {
        int from = 0;
        if (size < kLargeMin) {
            const int i = int(size >> 4);
            const std::uint64_t fits = smallMap & (~std::uint64_t(0) << i);
            if (fits) {
                Chunk* c = smallBins[__builtin_ctzll(fits)];
                removeFree(c);
                return c;
            }
        } else {
            from = largeIndex(size);
            if (Chunk* c = treeLowerBound(largeBins[from], size)) {
                removeFree(c);
                return c;
            }
            ++from;
        }
        const int bin = from < kLargeBins ? nextLargeBin(from) : -1;
        if (bin < 0)
            return nullptr;
        Chunk* c = treeLeftmost(largeBins[bin]);
        removeFree(c);
        return c;
    }

    // The payload of a chunk of size bytes: from its quick list when one waits there, else
    // from the bins.
    void* allocate(std::size_t size) {
        if (size < kLargeMin) {
            const int i = int(size >> 4);
            if (Chunk* c = quick[i]) {
                quick[i] = c->fd;
                c->head &= ~kQuick;
                --quickCount[i];
                return payloadOf(c);
            }
        }
        return takeFromBins(size);
    }

    // The payload of a chunk of size bytes from the bins, marked in use; null when the system
    // refused more. Out of line, so that the quick-list path needs no saved registers.
    [[gnu::noinline]] void* takeFromBins(std::size_t size) {
        Chunk* c = takeBestFit(size);
        // Before asking the system, see whether the quick lists hold enough once coalesced.
        if (!c && flushQuick())
            c = takeBestFit(size);
        if (!c && grow(size))
            c = takeBestFit(size);
        if (!c)
            return nullptr;
        carve(c, size);
        return payloadOf(c);
    }

    // Returns the block p, which badFree passed: to its quick list when there is room, else
    // into the bins.
    void deallocate(void* p) {
        Chunk* c = chunkOf(p);
        const std::size_t size = sizeOf(c);
        const int i = int(size >> 4);
        if (size < kLargeMin && quickCount[i] < kQuickLimit) {
            c->head |= kQuick;
            c->fd = quick[i];
            quick[i] = c;
            ++quickCount[i];
        } else {
            freeToBins(c);
        }
    }

    // Marks the free (unbinned) chunk c in use for size bytes, returning any remainder large
    // enough to be a chunk to the bins.
    void carve(Chunk* c, std::size_t size) {
        const std::size_t whole = sizeOf(c);
        if (whole - size >= kMinChunk) {
            Chunk* rest = at(c, size);
            rest->head = (whole - size) | kPInUse;
            nextOf(rest)->prevFoot = whole - size;
            insertFree(rest);
            c->head = size | kCInUse | (c->head & kPInUse);
        } else {
            size = whole;
            c->head |= kCInUse;
            nextOf(c)->head |= kPInUse;
        }
        markedBytes += size;
    }

    // Out of line, so that the quick-list path of free stays short.
    [[gnu::noinline]] void freeToBins(Chunk* c) {
        markedBytes -= sizeOf(c);
        coalesceAndBin(c);
    }

    // Marks the chunk c (in use, not in a quick list) free, merges it with free neighbours and
    // bins the result; a region left wholly free may go back to the system.
    void coalesceAndBin(Chunk* c) {
        std::size_t size = sizeOf(c);
        if (!prevInUse(c)) {
            Chunk* prev = reinterpret_cast<Chunk*>(reinterpret_cast<char*>(c) - c->prevFoot);
            removeFree(prev);
            size += sizeOf(prev);
            c->head = 0;  // now inside prev: a second free of it must not find "in use" here
            c = prev;
        }
        Chunk* next = at(c, size);
        if (!inUse(next)) {
            removeFree(next);
            size += sizeOf(next);
            next = at(c, size);
        }
        // The chunk before a free chunk is always in use: free neighbours never touch.
        c->head = size | kPInUse;
        next->prevFoot = size;
        next->head &= ~kPInUse;
        insertFree(c);
        if (unmap && freeBytes > gTrimThreshold.load(std::memory_order_relaxed)) {
            if (Region* region = wholeRegionOf(c))
                release(region, c);
        }
    }

    // Coalesces every chunk waiting in the quick lists. True when there were any.
    bool flushQuick() {
        bool any = false;
        for (int i = 0; i < kSmallBins; ++i) {
            while (Chunk* c = quick[i]) {
                quick[i] = c->fd;
                markedBytes -= sizeOf(c);
                coalesceAndBin(c);
                any = true;
            }
            quickCount[i] = 0;
        }
        return any;
    }

    // Bytes of the chunks waiting in the quick lists.
    std::size_t quickBytes() const {
        std::size_t bytes = 0;
        for (int i = 0; i < kSmallBins; ++i)
            bytes += std::size_t(quickCount[i]) * std::size_t(i) * 16;
        return bytes;
    }

    // Lays out a region and returns its one free chunk to the bins.
    void addRegion(void* base, std::size_t size, char* start, bool isFirst) {
        char* end = static_cast<char*>(base) + size;
        Region* record = reinterpret_cast<Region*>(alignDown(end - sizeof(Region)));
        Chunk* fence = reinterpret_cast<Chunk*>(reinterpret_cast<char*>(record) - kAlign);
        Chunk* first = reinterpret_cast<Chunk*>(start);
        const std::size_t chunkBytes = std::size_t(reinterpret_cast<char*>(fence) - start);
        first->head = chunkBytes | kPInUse;
        fence->prevFoot = chunkBytes;
        fence->head = kCInUse;
        *record = Region{base, size, first, fence, nullptr, isFirst};
        // New regions go to the front; the first region stays last, where destroy skips it.
        record->next = regions;
        regions = record;
byAddress.insert(record);  // indexRoom made room
        ++regionCount;
        footprint += size;
        insertFree(first);
    }

    // Obtains a region that can hold a chunk of size bytes. False when every way failed.
    bool grow(std::size_t size) {
        if (!indexRoom())
            return false;
        const std::size_t overhead = kAlign + sizeof(Region) + 2 * kAlign;
        const std::size_t need = size + overhead;
        const std::size_t granule = gGranularity.load(std::memory_order_relaxed);
        void* base = nullptr;
        std::size_t length = 0;
        if (need > granule && directMap) {
            length = roundUp(need, kPage);
            base = directMap(length, user);
        } else {
            length = roundUp(need, granule);
            if (brk && length <= std::size_t(INT_MAX))
                base = brk(int(length), user);
            if (mapFailed(base) && map)
                base = map(length, user);
        }
        if (mapFailed(base))
            return false;
        addRegion(base, length, alignUp(base), false);
        return true;
    }

    // Returns a wholly free region (not the first) through the unmap callback.
    // The region's chunk must be the free chunk c.
    bool release(Region* region, Chunk* c) {
        removeFree(c);
        Region** link = &regions;
        while (*link != region)
            link = &(*link)->next;
        *link = region->next;
        byAddress.erase(region);
        for (const Region*& remembered : regionNear) {
            if (remembered == region)
                remembered = nullptr;
        }
        if (lastLow == reinterpret_cast<const char*>(region->first))
            lastLow = lastHigh = nullptr;
        --regionCount;
        footprint -= region->size;
        unmap(region->base, region->size, user);
        return true;
    }

    // The region whose free chunk c spans it entirely, or null.
    static Region* wholeRegionOf(Chunk* c) {
        Chunk* after = nextOf(c);
        if (sizeOf(after) != 0)
            return nullptr;
        Region* region = reinterpret_cast<Region*>(reinterpret_cast<char*>(after) + kAlign);
        return region->first == c && !region->isFirst ? region : nullptr;
    }
};

void* defaultDirectMap(std::size_t size) { return defaultMap(size); }

void* defaultMap(std::size_t size) {
    return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
}

int defaultUnmap(void* base, std::size_t size) { return munmap(base, size); }

bool setOption(Option option, std::size_t value) {
    switch (option) {
    case kGranularity:
        if (value < kPage || (value & (value - 1)) != 0)
            return false;
        gGranularity.store(value, std::memory_order_relaxed);
        return true;
    case kTrimThreshold:
        gTrimThreshold.store(value, std::memory_order_relaxed);
        return true;
    }
    return false;
}

std::size_t getOption(Option option) {
    return option == kGranularity ? gGranularity.load(std::memory_order_relaxed)
                                  : gTrimThreshold.load(std::memory_order_relaxed);
}

Arena create(void* base, std::size_t capacity, bool locked, DirectMapFn directMap, MapFn map,
             BreakFn brk, void* user, UnmapFn unmap) {
    if (mapFailed(base))
        return nullptr;
    char* start = alignUp(base);
    const std::size_t stateBytes = roundUp(sizeof(ArenaState), kAlign);
    const std::size_t tail = kAlign + sizeof(Region) + kAlign;
    const std::size_t lead = std::size_t(start - static_cast<char*>(base));
    if (capacity < lead + stateBytes + kMinChunk + tail)
        return nullptr;
    ArenaState* state = new (start) ArenaState;
    if (!state->indexRoom()) {
        state->~ArenaState();
        return nullptr;
    }
    state->directMap = directMap;
    state->map = map;
    state->brk = brk;
    state->unmap = unmap;
    state->user = user;
    state->locked = locked;
    state->addRegion(base, capacity, start + stateBytes, true);
    return state;
}

std::size_t destroy(Arena a) {
    if (!a)
        return 0;
    std::size_t released = 0;
    Region* region = a->regions;
    while (region && !region->isFirst) {
        Region* next = region->next;  // the record lives in the region about to go
        if (a->unmap) {
            released += region->size;
            a->unmap(region->base, region->size, a->user);
        }
        region = next;
    }
    a->~ArenaState();
    return released;
}

namespace {

// The calls for arenas created locked: the same steps inside the arena's own lock. Out of line,
// so that the unlocked calls (every pool's) stay short.
[[gnu::noinline]] void* lockedMalloc(Arena a, std::size_t size) {
    a->enter();
    void* p = a->allocate(size);
    a->exit();
    return p;
}

[[gnu::noinline]] void lockedFree(Arena a, void* p) {
    a->enter();
    if (const char* fault = a->badFree(p))
        reportBadFree(fault, p);
    a->deallocate(p);
    a->exit();
}

}  // namespace

void* malloc(Arena a, std::size_t n) {
    if (!a || n > kMaxRequest)
        return nullptr;
    if (a->locked)
        return lockedMalloc(a, chunkSizeFor(n));
    return a->allocate(chunkSizeFor(n));
}

void free(Arena a, void* p) {
    if (!p)
        return;
    if (!a)
        reportBadFree("pointer not from this pool", p);
    if (a->locked) {
        lockedFree(a, p);
    } else {
        if (const char* fault = a->badFree(p))
            reportBadFree(fault, p);
        a->deallocate(p);
    }
}

const char* badFree(Arena a, const void* p) {
    return a ? a->badFree(p) : "pointer not from this pool";
}

void freeChecked(Arena a, void* p) { a->deallocate(p); }

std::size_t usableSize(const void* p) {
    return p ? sizeOf(chunkOf(p)) - sizeof(std::size_t) : 0;
}

int trim(Arena a, std::size_t pad) {
    if (!a)
        return 0;
    a->enter();
    a->flushQuick();
    int count = 0;
    for (Region* region = a->regions; a->unmap && region && !region->isFirst;) {
        Region* next = region->next;
        Chunk* c = region->first;
        if (!inUse(c) && ArenaState::wholeRegionOf(c) == region &&
            a->freeBytes - sizeOf(c) >= pad) {
            a->release(region, c);
            ++count;
        }
        region = next;
    }
    a->exit();
    return count;
}

Stats stats(Arena a) {
    if (!a)
        return {};
    a->enter();
    const std::size_t quick = a->quickBytes();
    Stats s{a->regionCount, a->footprint, a->markedBytes - quick, a->freeBytes, a->freeChunks,
            quick};
    a->exit();
    return s;
}

namespace {

struct Checker {
    ArenaState* a;
    std::string* why;
    std::unordered_set<const Chunk*> binned;
    std::unordered_set<const Chunk*> quick;

    bool fail(const char* what, const void* where) {
        if (why) {
            char text[160];
            std::snprintf(text, sizeof text, "%s at %p", what, where);
            *why = text;
        }
        return false;
    }

    // Verifies order, priorities and size range of one tree; collects its chunks.
    bool checkTree(const Chunk* t, int bin, const Chunk* low, const Chunk* high, int depth) {
        if (!t)
            return true;
        if (depth > 200)
            return fail("tree too deep (cycle?)", t);
        if (inUse(t))
            return fail("chunk in use found in a tree", t);
        if (sizeOf(t) < kLargeMin || largeIndex(sizeOf(t)) != bin)
            return fail("chunk in the wrong tree", t);
        if ((low && !keyLess(low, t)) || (high && !keyLess(t, high)))
            return fail("tree out of order", t);
        if ((t->fd && priorityOf(t->fd) > priorityOf(t)) ||
            (t->bk && priorityOf(t->bk) > priorityOf(t)))
            return fail("tree priorities out of order", t);
        if (!binned.insert(t).second)
            return fail("chunk twice in the bins", t);
        return checkTree(t->fd, bin, low, t, depth + 1) &&
               checkTree(t->bk, bin, t, high, depth + 1);
    }

    bool checkBins() {
        for (int i = 0; i < kSmallBins; ++i) {
            unsigned count = 0;
            for (const Chunk* c = a->quick[i]; c; c = c->fd) {
                if (++count > kQuickLimit)
                    return fail("quick list too long (cycle?)", c);
                if (!inUse(c) || sizeOf(c) != std::size_t(i) * 16)
                    return fail("chunk in the wrong quick list", c);
                if (!quick.insert(c).second)
                    return fail("chunk twice in a quick list", c);
            }
            if (count != a->quickCount[i])
                return fail("quick list count wrong", a->quick[i]);
        }
        for (int i = 0; i < kSmallBins; ++i) {
            const bool marked = a->smallMap & (std::uint64_t(1) << i);
            if (marked != (a->smallBins[i] != nullptr))
                return fail("small bin map disagrees with its bin", a->smallBins[i]);
            const Chunk* prev = nullptr;
            for (const Chunk* c = a->smallBins[i]; c; prev = c, c = c->fd) {
                if (c->bk != prev)
                    return fail("small bin back link broken", c);
                if (inUse(c) || sizeOf(c) != std::size_t(i) * 16)
                    return fail("chunk in the wrong small bin", c);
                if (!binned.insert(c).second)
                    return fail("chunk twice in the bins", c);
            }
        }
        for (int i = 0; i < kLargeBins; ++i) {
            const bool marked = a->largeMap[i >> 6] & (std::uint64_t(1) << (i & 63));
            if (marked != (a->largeBins[i] != nullptr))
                return fail("large bin map disagrees with its bin", a->largeBins[i]);
            if (!checkTree(a->largeBins[i], i, nullptr, nullptr, 0))
                return false;
        }
        return true;
    }

    bool run() {
        if (!checkBins())
            return false;
        std::size_t regions = 0, footprint = 0, used = 0, freeBytes = 0, freeChunks = 0,
                    quickSeen = 0;
        for (Region* r = a->regions; r; r = r->next) {
            ++regions;
            footprint += r->size;
            if (!r->next && !r->isFirst)
                return fail("the first region is not last", r);
            Chunk* c = r->first;
            bool prevUsed = true;
            if ((reinterpret_cast<std::uintptr_t>(c) & kFlags) != 0)
                return fail("misaligned first chunk", c);
            while (c != r->fence) {
                const std::size_t size = sizeOf(c);
                if (size < kMinChunk || reinterpret_cast<char*>(c) + size >
                                            reinterpret_cast<char*>(r->fence))
                    return fail("chunk size out of range", c);
                if (prevInUse(c) != prevUsed)
                    return fail("previous-in-use bit wrong", c);
                if (inUse(c)) {
                    used += size;
                    quickSeen += quick.count(c);
                } else {
                    if (!prevUsed)
                        return fail("two free chunks touch (not coalesced)", c);
                    if (nextOf(c)->prevFoot != size)
                        return fail("free chunk footer wrong", c);
                    if (!binned.count(c))
                        return fail("free chunk missing from the bins", c);
                    freeBytes += size;
                    ++freeChunks;
                }
                prevUsed = inUse(c);
                c = nextOf(c);
            }
            if (r->fence->head != (kCInUse | (prevUsed ? kPInUse : 0)))
                return fail("fence damaged", r->fence);
        }
        if (freeChunks != binned.size())
            return fail("bins hold chunks outside every region", nullptr);
        if (quickSeen != quick.size())
            return fail("quick lists hold something that is not a chunk", nullptr);
        if (regions != a->regionCount || footprint != a->footprint ||
            used != a->markedBytes ||
            freeBytes != a->freeBytes || freeChunks != a->freeChunks)
            return fail("counters disagree with the walk", a);
        return true;
    }
};

}  // namespace

bool check(Arena a, std::string* why) {
    if (!a) {
        if (why)
            *why = "no arena";
        return false;
    }
    a->enter();
    const bool ok = Checker{a, why, {}, {}}.run();
    a->exit();
    return ok;
}

}  // namespace arena
}  // namespace vanta
