// Tests of the arena allocator: alignment, best fit, coalescing, growth callbacks, trimming, the
// heap check itself, and randomised stress through memory pools on one and two threads.
#include <vanta/arena_p.h>
#include <vanta/memorypool.h>

#include "threadsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

using namespace vanta;

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const long kStressOps = 200000, kThreadOps = 50000;  // sanitised runs are many times slower
#else
const long kStressOps = 1000000, kThreadOps = 500000;
#endif

// A stand-in for the system: counts every call, can refuse maps, and remembers live regions so
// the test can release what the arena leaves to its supplier.
struct FakeSystem {
    int directMaps = 0, maps = 0, breaks = 0, unmaps = 0;
    bool refuse = false, breakWorks = false;
    std::size_t lastMapSize = 0, lastUnmapSize = 0;
    std::vector<std::pair<void*, std::size_t>> live;

    static FakeSystem& of(void* user) { return *static_cast<FakeSystem*>(user); }
    void* take(int& counter, std::size_t size) {
        ++counter;
        if (refuse)
            return arena::kMapFailed;
        live.push_back({arena::defaultMap(size), size});
        lastMapSize = size;
        return live.back().first;
    }
    static void* directMap(std::size_t size, void* u) { return of(u).take(of(u).directMaps, size); }
    static void* map(std::size_t size, void* u) { return of(u).take(of(u).maps, size); }
    static void* brk(int increment, void* u) {
        FakeSystem& sys = of(u);
        if (sys.breakWorks)
            return sys.take(sys.breaks, std::size_t(increment));
        ++sys.breaks;
        return arena::kMapFailed;
    }
    static int unmap(void* base, std::size_t size, void* u) {
        FakeSystem& sys = of(u);
        ++sys.unmaps;
        sys.lastUnmapSize = size;
        auto it = std::find_if(sys.live.begin(), sys.live.end(),
                               [&](const auto& region) { return region.first == base; });
        if (it != sys.live.end())
            sys.live.erase(it);
        return arena::defaultUnmap(base, size);
    }
    ~FakeSystem() {
        for (auto& [base, size] : live)
            arena::defaultUnmap(base, size);
    }
};

// An arena on a first region of its own, with the fake system's callbacks and options restored
// afterwards (they are process-wide).
struct TestArena {
    explicit TestArena(std::size_t firstSize = 256 * 1024, bool withUnmap = true,
                       bool locked = false)
        : size(firstSize) {
        arena::setOption(arena::kGranularity, 64 * 1024);
        arena::setOption(arena::kTrimThreshold, ~std::size_t(0));
        a = arena::create(first, size, locked, &FakeSystem::directMap, &FakeSystem::map,
                          &FakeSystem::brk, &sys, withUnmap ? &FakeSystem::unmap : nullptr);
    }
    ~TestArena() {
        arena::destroy(a);
        arena::defaultUnmap(first, size);
        arena::setOption(arena::kGranularity, savedGranularity);
        arena::setOption(arena::kTrimThreshold, savedThreshold);
    }
    bool healthy() {
        std::string why;
        const bool ok = arena::check(a, &why);
        EXPECT_TRUE(ok) << why;
        return ok;
    }

    FakeSystem sys;
    std::size_t size;
    void* first = arena::defaultMap(size);
    std::size_t savedGranularity = arena::getOption(arena::kGranularity);
    std::size_t savedThreshold = arena::getOption(arena::kTrimThreshold);
    arena::Arena a = nullptr;
};

std::uintptr_t addr(const void* p) { return reinterpret_cast<std::uintptr_t>(p); }
// The word before a payload (its chunk's size and bits), and a free chunk's first link.
std::size_t& sizeWord(void* payload) { return static_cast<std::size_t*>(payload)[-1]; }
void*& link(void* payload) { return *static_cast<void**>(payload); }

}  // namespace

TEST(Arena, BlocksAreAlignedAndHoldWhatWasAsked) {
    TestArena t;
    ASSERT_NE(t.a, nullptr);
    std::vector<void*> blocks;
    for (std::size_t n : {0, 1, 8, 15, 16, 17, 24, 25, 100, 1000, 1007, 1008, 1009, 4096, 65536,
                          200000, 1 << 20, (3 << 20) + 5}) {
        void* p = arena::malloc(t.a, n);
        ASSERT_NE(p, nullptr) << n;
        EXPECT_EQ(addr(p) % 16, 0u) << n;
        const std::size_t usable = arena::usableSize(p);
        EXPECT_GE(usable, n);
        EXPECT_LT(usable, n + 48) << "more slack than rounding explains for " << n;
        std::memset(p, 0xA5, usable);  // the whole usable range is ours to write
        blocks.push_back(p);
    }
    ASSERT_TRUE(t.healthy());
    for (void* p : blocks)
        arena::free(t.a, p);
    ASSERT_TRUE(t.healthy());
    EXPECT_EQ(arena::stats(t.a).inUseBytes, 0u);
}

TEST(Arena, BestFitTakesTheSmallestFreeChunkThenTheLowestAddress) {
    TestArena t;
    // Free chunks of several sizes, kept apart by live guards so they cannot coalesce.
    const std::size_t sizes[] = {2000, 1500, 3000, 1500, 96, 48, 200};
    std::vector<void*> holes;
    for (std::size_t n : sizes) {
        holes.push_back(arena::malloc(t.a, n));
        ASSERT_NE(arena::malloc(t.a, 16), nullptr);
    }
    for (void* p : holes)
        arena::free(t.a, p);
    ASSERT_TRUE(t.healthy());

    // Both 1500s fit 1490, the lower first; 2000 beats 3000; small sizes come back exactly from
    // their quick lists.
    const std::pair<std::size_t, int> requestAndHole[] = {{1490, 1}, {1490, 3}, {2000, 0}, {48, 5},
                                                         {96, 4},   {200, 6},  {2500, 2}};
    for (auto [request, hole] : requestAndHole)
        EXPECT_EQ(arena::malloc(t.a, request), holes[hole]) << request;
    EXPECT_TRUE(t.healthy());
}

TEST(Arena, ASmallRequestTakesAFreeChunkOfItsOwnSizeFromTheBins) {
    TestArena t;
    void* hole = arena::malloc(t.a, 100);
    ASSERT_NE(arena::malloc(t.a, 16), nullptr);  // keeps the hole from coalescing
    arena::free(t.a, hole);
    arena::trim(t.a, 0);  // from its quick list into the bins
    // The rest of the region could serve it too; the exact fit is taken.
    EXPECT_EQ(arena::malloc(t.a, 100), hole);
    EXPECT_TRUE(t.healthy());
}

TEST(Arena, ManyTreeChunksComeBackByBestFit) {
    // Forty free chunks in three size trees, enough that their nodes have children on both
    // sides: twenty sizes, each twice. Hole i and hole i + 20 have the same size.
    TestArena t;
    std::vector<void*> holes;
    for (std::size_t i = 0; i < 40; ++i) {
        holes.push_back(arena::malloc(t.a, 1100 + 16 * ((i * 7) % 20)));
        ASSERT_NE(arena::malloc(t.a, 16), nullptr);
    }
    for (void* p : holes)
        arena::free(t.a, p);
    ASSERT_TRUE(t.healthy());
    for (std::size_t size = 0; size < 20; ++size) {
        const std::size_t first = (size * 3) % 20;  // 3 undoes the shuffle: 7 * 3 = 1 mod 20
        for (std::size_t hole : {first, first + 20})  // equal sizes: the lower address first
            EXPECT_EQ(arena::malloc(t.a, 1100 + 16 * size), holes[hole]) << size;
    }
    EXPECT_TRUE(t.healthy());
}

TEST(Arena, FreeNeighboursCoalesceInEveryOrder) {
    // Three neighbours freed in each of the six orders end as one chunk that serves their sum.
    // Small chunks wait in the quick lists until a trim (or a shortage) coalesces them.
    const int orders[][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    for (std::size_t chunk : {std::size_t(1520), std::size_t(496)}) {
        for (const auto& order : orders) {
            TestArena t;
            void* block[3];
            for (void*& p : block)
                p = arena::malloc(t.a, chunk - 8);
            ASSERT_NE(arena::malloc(t.a, 16), nullptr);
            const std::size_t freeBefore = arena::stats(t.a).freeChunks;
            for (int i : order) {
                arena::free(t.a, block[i]);
                ASSERT_TRUE(t.healthy());
            }
            if (chunk < 1024) {
                EXPECT_EQ(arena::stats(t.a).quickBytes, 3 * chunk);
                arena::trim(t.a, 0);
                EXPECT_EQ(arena::stats(t.a).quickBytes, 0u);
                ASSERT_TRUE(t.healthy());
            }
            EXPECT_EQ(arena::stats(t.a).freeChunks, freeBefore + 1) << chunk;
            EXPECT_EQ(arena::malloc(t.a, 3 * chunk - 8), block[0]) << chunk;
        }
    }
}

TEST(Arena, QuickListsAreCoalescedBeforeTheArenaGrows) {
    TestArena t(64 * 1024);
    std::vector<void*> blocks;
    while (arena::stats(t.a).freeBytes >= 512)
        blocks.push_back(arena::malloc(t.a, 400));
    for (void* p : blocks)
        arena::free(t.a, p);
    // Most of the region now waits in quick lists or bins in 416-byte pieces; a large request
    // must be served from them, coalesced, rather than from a new region.
    ASSERT_NE(arena::malloc(t.a, 40000), nullptr);
    EXPECT_EQ(t.sys.maps + t.sys.directMaps + t.sys.breaks, 0);
    EXPECT_TRUE(t.healthy());
}

TEST(Arena, GrowsOnlyThroughItsCallbacks) {
    struct Row {
        const char* name;
        bool breakWorks;
        std::size_t request;
        int directMaps, maps, breaks;
    } rows[] = {
        {"granule from the map after a refused break", false, 40000, 0, 1, 1},
        {"granule from a working break", true, 40000, 0, 0, 1},
        {"oversized request mapped directly", false, 300000, 1, 0, 0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        TestArena t(64 * 1024);
        t.sys.breakWorks = row.breakWorks;
        // Fill the first region, then ask for one more block that cannot fit in it.
        while (arena::stats(t.a).freeBytes >= row.request + 64)
            ASSERT_NE(arena::malloc(t.a, row.request), nullptr);
        void* p = arena::malloc(t.a, row.request);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(t.sys.directMaps, row.directMaps);
        EXPECT_EQ(t.sys.maps, row.maps);
        EXPECT_EQ(t.sys.breaks, row.breaks);
        EXPECT_GE(t.sys.lastMapSize, row.request);
        if (row.request < 64 * 1024) {
            EXPECT_EQ(t.sys.lastMapSize % (64 * 1024), 0u) << "growth in whole granules";
        }
        EXPECT_EQ(arena::stats(t.a).regions, 2u);
        EXPECT_EQ(arena::stats(t.a).footprint, 64 * 1024 + t.sys.lastMapSize);
        EXPECT_TRUE(t.healthy());
    }
}

TEST(Arena, RegionsGoBackOnlyByTrimThresholdOrDestroy) {
    TestArena t(64 * 1024);
    void* big = arena::malloc(t.a, 500000);
    ASSERT_NE(big, nullptr);
    const std::size_t bigRegion = t.sys.lastMapSize;
    arena::free(t.a, big);
    EXPECT_EQ(t.sys.unmaps, 0) << "with the threshold at its maximum nothing is trimmed";
    EXPECT_EQ(arena::stats(t.a).regions, 2u);
    EXPECT_EQ(arena::malloc(t.a, 400000), big) << "the free region is reused";
    arena::free(t.a, big);

    EXPECT_EQ(arena::trim(t.a, 10 << 20), 0) << "a pad larger than the free memory keeps it";
    EXPECT_EQ(arena::trim(t.a, 0), 1);
    EXPECT_EQ(t.sys.unmaps, 1);
    EXPECT_EQ(t.sys.lastUnmapSize, bigRegion);
    EXPECT_EQ(arena::stats(t.a).regions, 1u);
    EXPECT_TRUE(t.healthy());

    arena::setOption(arena::kTrimThreshold, 0);
    arena::free(t.a, arena::malloc(t.a, 500000));
    EXPECT_EQ(t.sys.unmaps, 2) << "above the threshold a wholly free region goes at once";

    arena::setOption(arena::kTrimThreshold, ~std::size_t(0));
    for (int i = 0; i < 3; ++i)
        ASSERT_NE(arena::malloc(t.a, 500000), nullptr);
    EXPECT_EQ(arena::destroy(t.a), 3 * bigRegion);
    EXPECT_EQ(t.sys.unmaps, 5);
    t.a = nullptr;
}

TEST(Arena, WithoutUnmapRegionsStayWithTheirSupplier) {
    TestArena t(64 * 1024, false);
    arena::free(t.a, arena::malloc(t.a, 500000));
    EXPECT_EQ(arena::trim(t.a, 0), 0);
    EXPECT_EQ(arena::destroy(t.a), 0u);
    t.a = nullptr;
    EXPECT_EQ(t.sys.live.size(), 1u);  // released by the fake system itself
}

TEST(Arena, CheckFindsDamage) {
    // The stress tests rely on the check; make sure it notices each kind of corruption.
    struct Row {
        const char* name;
        std::size_t size;
        void (*damage)(void* live, void* freed);
    } rows[] = {
        {"size word of a live block", 1100, [](void* live, void*) { sizeWord(live) += 16; }},
        {"in-use bit of a live block", 1100, [](void* live, void*) { sizeWord(live) &= ~2ul; }},
        {"link of a free block", 1100, [](void* live, void* freed) { link(freed) = live; }},
        {"link of a quick-listed block", 100, [](void* live, void* freed) { link(freed) = live; }},
        {"size of a quick-listed block", 100, [](void*, void* freed) { sizeWord(freed) += 16; }},
        {"footer of a free block", 1100, [](void*, void* freed) {
             sizeWord(static_cast<char*>(freed) - 8 + (sizeWord(freed) & ~15ul)) += 16;
         }},
    };
    for (const Row& row : rows) {
        TestArena t;
        void* live = arena::malloc(t.a, row.size);
        void* freed = arena::malloc(t.a, row.size);
        arena::malloc(t.a, 16);
        void* other = arena::malloc(t.a, row.size);
        arena::malloc(t.a, 16);
        arena::free(t.a, other);  // two free chunks of one size, freed the more recent
        arena::free(t.a, freed);
        ASSERT_TRUE(t.healthy());
        row.damage(live, freed);
        std::string why;
        EXPECT_FALSE(arena::check(t.a, &why)) << row.name;
        EXPECT_FALSE(why.empty()) << row.name;
    }
}

TEST(Arena, CheckFindsATreeRotatedOutOfPriorityOrder) {
    // A rotation keeps a tree in size and address order but puts a parent below its child: only
    // the priority rule tells. Forty equal free chunks make one tree; rotate a node that has
    // both a parent and a child.
    TestArena t;
    std::vector<char*> nodes;
    for (int i = 0; i < 40; ++i) {
        nodes.push_back(static_cast<char*>(arena::malloc(t.a, 1100)));
        ASSERT_NE(arena::malloc(t.a, 16), nullptr);
    }
    for (char* p : nodes)
        arena::free(t.a, p);
    ASSERT_TRUE(t.healthy());
    // Links are chunk addresses, 16 bytes before the payload; link 0 is the left child.
    auto child = [](char* node, int side) { return reinterpret_cast<void**>(node)[side]; };
    auto setChild = [](char* node, int side, void* to) { reinterpret_cast<void**>(node)[side] = to; };
    auto payload = [](void* chunk) { return static_cast<char*>(chunk) + 16; };
    bool rotated = false;
    for (char* parent : nodes) {
        for (int way = 0; way < 2 && !rotated; ++way) {
            void* c = child(parent, way);
            if (!c)
                continue;
            char* node = payload(c);
            for (int side = 0; side < 2 && !rotated; ++side) {
                void* l = child(node, side);
                if (!l)
                    continue;
                // The child takes the node's place; the node becomes the child's child on the
                // other side and adopts what the child had there.
                char* lifted = payload(l);
                setChild(node, side, child(lifted, 1 - side));
                setChild(lifted, 1 - side, c);
                setChild(parent, way, l);
                rotated = true;
            }
        }
        if (rotated)
            break;
    }
    ASSERT_TRUE(rotated);
    std::string why;
    EXPECT_FALSE(arena::check(t.a, &why));
    EXPECT_NE(why.find("priorities"), std::string::npos) << why;
}

namespace {

// Frees the pointer offset bytes into a zeroed block of a fresh pool, after planting a word that
// reads as the size of a small chunk in use (48 bytes, in use, the one before in use) just
// before it, where a free looks for its chunk's size.
void freeAfterPlantedSize(std::size_t offset) {
    MemoryPool pool("a", 4194304);
    auto* p = static_cast<char*>(pool.malloc(256));
    std::memset(p, 0, 256);
    sizeWord(p + offset) = 48 | 3;
    pool.free(p + offset);
}

}  // namespace

TEST(ArenaDeathTest, FreeStopsTheProcessOnABlockItCannotTakeBack) {
    // Going on would hand one block to two callers, give pool A a block of pool B, or hand out
    // memory still in use (unaligned, or overlapping its neighbour).
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr unsigned long kRegion = 4194304;
    const struct {
        const char* name;
        void (*misuse)();
        const char* message;
    } rows[] = {
        {"small block freed twice", [] {
             MemoryPool pool("a", kRegion);
             void* p = pool.malloc(64);
             pool.free(p);
             pool.free(p);
         }, "free\\(\\): double free detected: 0x[0-9a-f]+"},
        {"large block freed twice", [] {
             MemoryPool pool("a", kRegion);
             void* p = pool.malloc(64 * 1024);
             pool.malloc(64);  // keeps the block from merging into the free space after it
             pool.free(p);
             pool.free(p);
         }, "free\\(\\): double free or invalid pointer \\(no block in use starts here\\): 0x[0-9a-f]+"},
        {"block given to a pool that never had an arena", [] {
             MemoryPool hopeless("hopeless", 64);
             MemoryPool pool("a", kRegion);
             hopeless.free(pool.malloc(64));
         }, "free\\(\\): pointer not from this pool: 0x[0-9a-f]+"},
        {"block of another pool", [] {
             MemoryPool a("a", kRegion), b("b", kRegion);
             a.free(b.malloc(64));
         }, "free\\(\\): pointer not from this pool: 0x[0-9a-f]+"},
        {"block of a region already given back", [] {
             TestArena t(64 * 1024);
             void* big = arena::malloc(t.a, 500000);  // a region of its own
             arena::free(t.a, big);  // its region is now the one a free tries first
             arena::trim(t.a, 0);    // and goes back to the system
             arena::free(t.a, big);
         }, "free\\(\\): pointer not from this pool: 0x[0-9a-f]+"},
        {"pointer inside a block, after a word that looks like a size in use",
         [] { freeAfterPlantedSize(64); }, "free\\(\\): invalid next size: 0x[0-9a-f]+"},
        {"misaligned pointer", [] { freeAfterPlantedSize(8); },
         "free\\(\\): invalid pointer \\(misaligned\\): 0x[0-9a-f]+"},
        {"size word overwritten by the block before", [] {
             MemoryPool pool("a", kRegion);
             auto* a = static_cast<char*>(pool.malloc(88));  // ends exactly at b's size word
             auto* b = static_cast<char*>(pool.malloc(88));
             std::memset(b, 0, 88);
             pool.malloc(88);
             ASSERT_EQ(a + 88, b - 8);
             a[88] = 48 | 3;  // one byte too many
             pool.free(b);
         }, "free\\(\\): invalid next size: 0x[0-9a-f]+"},
    };
    for (const auto& row : rows)
        EXPECT_DEATH(row.misuse(), row.message) << row.name;
}

TEST(Arena, BadRequestsAndRefusedMapsGiveNullAndTheArenaStillWorks) {
    TestArena t(64 * 1024);
    for (std::size_t n : {~std::size_t(0), ~std::size_t(0) - 8, std::size_t(1) << 61})
        EXPECT_EQ(arena::malloc(t.a, n), nullptr) << n;
    EXPECT_EQ(t.sys.maps + t.sys.directMaps, 0) << "impossible sizes never reach the system";
    arena::free(t.a, nullptr);
    t.sys.refuse = true;
    EXPECT_EQ(arena::malloc(t.a, 1 << 20), nullptr);  // direct map refused
    const std::size_t tooBig = arena::stats(t.a).freeBytes;
    EXPECT_EQ(arena::malloc(t.a, tooBig), nullptr);  // granule refused, first region too small
    EXPECT_EQ(t.sys.directMaps, 1);
    EXPECT_EQ(t.sys.maps, 1);
    void* small = arena::malloc(t.a, 100);
    EXPECT_NE(small, nullptr) << "requests that fit must still be served";
    arena::free(t.a, small);
    EXPECT_EQ(arena::stats(t.a).regions, 1u);
    EXPECT_TRUE(t.healthy());

    char tiny[64];
    EXPECT_EQ(arena::create(tiny, sizeof tiny, false, nullptr, nullptr, nullptr, nullptr), nullptr);
    EXPECT_EQ(arena::create(arena::kMapFailed, 1 << 20, false, nullptr, nullptr, nullptr, nullptr),
              nullptr);
    EXPECT_EQ(arena::malloc(nullptr, 10), nullptr);
    EXPECT_EQ(arena::destroy(nullptr), 0u);
    EXPECT_EQ(arena::trim(nullptr, 0), 0);
    EXPECT_FALSE(arena::setOption(arena::kGranularity, 3000)) << "not a power of two";
    EXPECT_FALSE(arena::setOption(arena::kGranularity, 1024)) << "below a page";
    const std::size_t granularity = arena::getOption(arena::kGranularity);
    EXPECT_TRUE(arena::setOption(arena::kGranularity, 2 * granularity));
    EXPECT_EQ(arena::getOption(arena::kGranularity), 2 * granularity);
    EXPECT_TRUE(arena::setOption(arena::kGranularity, granularity));
}

namespace {

struct Slot {
    unsigned char* p = nullptr;
    std::size_t size = 0;
    unsigned char fill = 0;
    bool intact() const { return p[0] == fill && std::memcmp(p, p + 1, size - 1) == 0; }
};

// Sizes from 1 byte to 1 MiB, 90% under 1 KiB and 1% over 64 KiB, log-uniform within each band
// so every bin and tree sees traffic.
std::size_t stressSize(std::mt19937_64& rng) {
    const unsigned band = unsigned(rng() % 100);
    const double low = band < 90 ? 0 : band < 99 ? 10 : 16;
    const double top = band < 90 ? 10 : band < 99 ? 16 : 20;
    return std::size_t(std::exp2(std::uniform_real_distribution<double>(low, top)(rng)));
}

// ops malloc/free operations on slotCount slots of pool (a MemoryPool, or anything with its
// malloc, free and checkHeap), each block filled on malloc and checked before its free, the whole
// heap checked every 10,000 operations. Returns the first fault, or "".
template <class Pool>
std::string stress(Pool& pool, unsigned seed, long ops, std::size_t slotCount) {
    std::mt19937_64 rng(seed);
    std::vector<Slot> slot(slotCount);
    std::string why;
    for (long op = 1; op <= ops; ++op) {
        Slot& s = slot[rng() % slotCount];
        if (s.p) {
            if (!s.intact())
                return "block overwritten (size " + std::to_string(s.size) + ")";
            pool.free(s.p);
            s.p = nullptr;
        } else {
            s.size = stressSize(rng);
            s.fill = static_cast<unsigned char>(rng() | 1);
            s.p = static_cast<unsigned char*>(pool.malloc(s.size));
            if (!s.p)
                return "malloc failed for " + std::to_string(s.size);
            if (addr(s.p) % 16 != 0)
                return "misaligned block";
            std::memset(s.p, s.fill, s.size);
        }
        if (op % 10000 == 0 && !pool.checkHeap(&why))
            return "heap check after op " + std::to_string(op) + ": " + why;
    }
    for (Slot& s : slot) {
        if (s.p && !s.intact())
            return "block overwritten at the end";
        pool.free(s.p);
    }
    return pool.checkHeap(&why) ? std::string() : "final heap check: " + why;
}

}  // namespace

// Two threads stress one heap at once, each on slots of its own.
template <class Heap>
void expectTwoThreadsKeepItIntact(Heap& heap, unsigned seed) {
    std::string result[2];
    vantatest::runThreads(
        2, [&](int i) { result[i] = stress(heap, seed + unsigned(i), kThreadOps, 1500); },
        std::chrono::seconds(250));
    EXPECT_EQ(result[0], "");
    EXPECT_EQ(result[1], "");
}

TEST(ArenaStress, MillionRandomOperationsKeepEveryBlockAndTheHeapIntact) {
    MemoryPool pool("stress", 4194304);
    EXPECT_EQ(stress(pool, 20240601, kStressOps, 3000), "");
}

// An arena created locked serialises its callers itself, as a pool's lock does.
TEST(ArenaStress, TwoThreadsOnOneLockedArena) {
    TestArena t(4194304, true, true);
    struct {
        arena::Arena a;
        void* malloc(std::size_t n) { return arena::malloc(a, n); }
        void free(void* p) { arena::free(a, p); }
        bool checkHeap(std::string* why) { return arena::check(a, why); }
    } locked{t.a};
    expectTwoThreadsKeepItIntact(locked, 91);
}

TEST(ArenaStress, TwoThreadsOnOnePool) {
    MemoryPool pool("shared", 4194304);
    expectTwoThreadsKeepItIntact(pool, 77);
}
