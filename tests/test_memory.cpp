// Tests of memory pools, heap managers, managed delete, the MemoryObject operators and HeapBuffer.
#include <vanta/memory.h>
#include <vanta/memorypool.h>

#include "threadsupport.h"

#include <gtest/gtest.h>

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

using namespace vanta;

namespace {

constexpr unsigned long kMiB = 1024 * 1024;
// More than any machine can map: the arena's request is refused.
constexpr unsigned long kImpossible = 1ul << 50;

// Counts the calls reaching it through the virtual slots, to show where a delete was routed.
class CountingManager : public HeapManager {
public:
    using HeapManager::HeapManager;
    void* alloc(unsigned long size) override {
        ++allocs;
        return HeapManager::alloc(size);
    }
    void free(void* p) override {
        ++frees;
        HeapManager::free(p);
    }
    int allocs = 0, frees = 0;
};

// A pool that reports its own destruction.
struct WatchedPool : MemoryPool {
    explicit WatchedPool(bool* destroyed) : MemoryPool("watched", 4 * kMiB), destroyed(destroyed) {}
    ~WatchedPool() override { *destroyed = true; }
    bool* destroyed;
};

// An object of the library's kind: allocated through the MemoryObject operators.
struct Managed : MemoryObject {
    char bytes[40] = {};
};

bool listed(const std::vector<MMapRange>& list, void* base) {
    return std::any_of(list.begin(), list.end(),
                       [&](const MMapRange& r) { return r.base == base; });
}

}  // namespace

TEST(MemoryPool, EveryRegionIsRecordedDecidesMembershipAndGoesBackOnDestruction) {
    auto* pool = new MemoryPool("growing", 64 * 1024);
    ASSERT_EQ(pool->getRanges().size(), 1u) << "the first region is recorded at once";
    const MMapRange first = pool->getRanges()[0];
    ASSERT_EQ(first.size, 64 * 1024ul);
    char* base = static_cast<char*>(first.base);
    const struct {
        const char* name;
        void* p;
        bool expected;
    } rows[] = {
        {"base", base, true},
        {"last byte", base + first.size - 1, true},
        {"one past the end", base + first.size, false},
        {"one before the base", base - 1, false},
        {"null", nullptr, false},
    };
    for (const auto& row : rows)  // before growth, while no other region can border this one
        EXPECT_EQ(MemoryPool::isPointerFromPool(row.p), row.expected) << row.name;

    std::vector<void*> blocks;
    const unsigned long reported = pool->getAllocatedMemory();
    for (unsigned long size : {100ul, 3 * kMiB, 5 * kMiB, 2 * kMiB, 200ul, 9 * kMiB}) {
        blocks.push_back(pool->malloc(size));
        ASSERT_NE(blocks.back(), nullptr) << size;
        EXPECT_TRUE(MemoryPool::isPointerFromPool(blocks.back()));
    }
    EXPECT_EQ(pool->getAllocatedMemory(), reported) << "only managers report bytes";
    const std::vector<MMapRange> ranges = pool->getRanges();
    EXPECT_GE(ranges.size(), 4u);
    unsigned long mapped = 0;
    for (const MMapRange& r : ranges) {
        EXPECT_TRUE(listed(MemoryPool::allRanges(), r.base));
        // Growth comes in 4 MiB steps; only a block past a step gets a region of its own size.
        if (r.base != first.base) {
            EXPECT_TRUE(r.size % (4 * kMiB) == 0 || r.size > 4 * kMiB) << r.size;
        }
        mapped += r.size;
    }
    EXPECT_EQ(pool->getMappedBytes(), mapped);
    EXPECT_GE(mapped, 19 * kMiB);
    std::string why;
    EXPECT_TRUE(pool->checkHeap(&why)) << why;

    delete pool;
    for (const MMapRange& r : ranges) {
        EXPECT_FALSE(listed(MemoryPool::allRanges(), r.base));
        unsigned char resident;
        EXPECT_EQ(mincore(r.base, 1, &resident), -1) << "the region is still mapped";
    }
    for (void* p : blocks)
        EXPECT_FALSE(MemoryPool::isPointerFromPool(p));
    EXPECT_FALSE(MemoryPool::isPointerFromPool(base));
}

TEST(MemoryPool, RemoveFromListMovesTheLastEntryIntoTheGap) {
    char a, b, c, d;
    const struct {
        const char* name;
        std::vector<void*> before;
        void* base;
        std::vector<void*> after;
    } rows[] = {
        {"first of three", {&a, &b, &c}, &a, {&c, &b}},
        {"middle of three", {&a, &b, &c}, &b, {&a, &c}},
        {"last of three", {&a, &b, &c}, &c, {&a, &b}},
        {"not listed", {&a, &b, &c}, &d, {&a, &b, &c}},
        {"only the first of two equal bases", {&a, &b, &a}, &a, {&a, &b}},
        {"empty list", {}, &a, {}},
    };
    for (const auto& row : rows) {
        std::vector<MMapRange> list;
        for (void* base : row.before)
            list.push_back({base, 4096});
        removeFromList(list, row.base, 12345);  // the size is not compared
        std::vector<void*> bases;
        for (const MMapRange& r : list)
            bases.push_back(r.base);
        EXPECT_EQ(bases, row.after) << row.name;
    }
}

TEST(HeapManager, ByteCountsGoUpAndBackDownExactlyByEveryRoute) {
    HeapManager manager;
    MemoryPool* pool = manager.getPool();
    ASSERT_EQ(pool, HeapManager::sDefaultPool.load());
    const unsigned long poolBefore = pool->getAllocatedMemory();
    const struct {
        const char* name;
        void (*release)(HeapManager&, void*);
    } routes[] = {
        {"manager free", [](HeapManager& m, void* p) { m.free(p); }},
        {"doDelete", [](HeapManager&, void* p) { doDelete(p); }},
        {"Free", [](HeapManager&, void* p) { Free(p); }},
        {"doDelete with another manager named", [](HeapManager&, void* p) {
             HeapManager other;
             doDelete(p, &other);
         }},
    };
    for (const auto& route : routes) {
        SCOPED_TRACE(route.name);
        std::vector<void*> blocks;
        unsigned long total = 0;
        for (unsigned long size : {100ul, 0ul, 1ul, 4096ul, 300000ul}) {
            void* p = doNew(size, &manager);
            ASSERT_NE(p, nullptr);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 16, 0u);
            EXPECT_EQ(HeapManager::managerOf(p), &manager);
            EXPECT_EQ(HeapManager::sizeOf(p), size);
            total += size;
            EXPECT_EQ(manager.getAllocatedSize(), total);
            EXPECT_EQ(pool->getAllocatedMemory(), poolBefore + total);
            blocks.push_back(p);
        }
        for (void* p : blocks)
            route.release(manager, p);
        EXPECT_EQ(manager.getAllocatedSize(), 0u);
        EXPECT_EQ(pool->getAllocatedMemory(), poolBefore);
    }
    EXPECT_TRUE(pool->checkHeap());
}

TEST(ManagedDelete, RoutesPoolBlocksToTheirManagerAndOthersToTheCLibrary) {
    CountingManager manager;
    void* pooled = doNew(64, &manager);
    void* plain = doNew(64);  // C library
    ASSERT_TRUE(MemoryPool::isPointerFromPool(pooled));
    ASSERT_FALSE(MemoryPool::isPointerFromPool(plain));
    doDelete(plain, &manager);  // the manager argument is ignored
    doDelete(nullptr, &manager);
    EXPECT_EQ(manager.frees, 0);
    doDelete(pooled);
    EXPECT_EQ(manager.frees, 1);

    // Objects placed with a manager come back to it through a plain delete, arrays too.
    Managed* object = new (&manager) Managed;
    Managed* array = new (&manager) Managed[3];
    Managed* heapObject = new Managed;
    EXPECT_EQ(manager.allocs, 3);
    EXPECT_FALSE(MemoryPool::isPointerFromPool(heapObject));
    delete object;
    delete[] array;
    delete heapObject;
    EXPECT_EQ(manager.frees, 3);
    EXPECT_EQ(manager.getAllocatedSize(), 0u);

    // Zero-size requests are served as one byte, so every block is distinct.
    void* zero[4] = {MemoryObject::operator new(0), MemoryObject::operator new[](0),
                     MemoryObject::operator new(0, &manager),
                     MemoryObject::operator new[](0, &manager)};
    for (void* p : zero)
        ASSERT_NE(p, nullptr);
    EXPECT_NE(zero[0], zero[1]);
    EXPECT_NE(zero[2], zero[3]);
    EXPECT_EQ(HeapManager::sizeOf(zero[2]), 1u);
    EXPECT_EQ(manager.getAllocatedSize(), 2u);
    MemoryObject::operator delete(zero[0]);
    MemoryObject::operator delete[](zero[1]);
    MemoryObject::operator delete(zero[2], &manager);
    MemoryObject::operator delete[](zero[3]);
    EXPECT_EQ(manager.getAllocatedSize(), 0u);
}

TEST(HeapManager, LastManagerOfACallerPoolDeletesItButNeverTheDefaultPool) {
    bool destroyed = false;
    auto* pool = new WatchedPool(&destroyed);
    EXPECT_EQ(pool->getRefCount(), 1);
    auto* first = new HeapManager(pool);
    auto* second = new HeapManager(pool);
    EXPECT_EQ(pool->getRefCount(), 3);
    TestThenAdd(pool->refCount(), -1);  // the caller lets go of its own reference
    doDelete(first->alloc(10));
    delete first;
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(pool->getRefCount(), 1);
    delete second;
    EXPECT_TRUE(destroyed);

    delete new HeapManager;
    MemoryPool* defaultPool = HeapManager::sDefaultPool.load();
    ASSERT_NE(defaultPool, nullptr);
    const long refs = defaultPool->getRefCount();
    EXPECT_GE(refs, 1);
    for (int i = 0; i < 3; ++i)
        delete new HeapManager(nullptr);
    EXPECT_EQ(HeapManager::sDefaultPool.load(), defaultPool);
    EXPECT_EQ(defaultPool->getRefCount(), refs);
}

TEST(HeapBuffer, FillsExactlyToCapacityAndNeverBeyond) {
    HeapManager manager;
    char source[65];
    for (int i = 0; i < 65; ++i)
        source[i] = char('a' + i % 26);
    for (HeapManager* owner : {&manager, static_cast<HeapManager*>(nullptr)}) {
        SCOPED_TRACE(owner ? "pool storage" : "C library storage");
        const unsigned long before = manager.getAllocatedSize();
        auto* buffer = new HeapBuffer(owner, 64, 16);
        ASSERT_NE(buffer->getData(), nullptr);
        EXPECT_EQ(MemoryPool::isPointerFromPool(buffer->getData()), owner != nullptr);
        EXPECT_EQ(manager.getAllocatedSize(), before + (owner ? 64 : 0));
        const struct {
            const char* src;
            unsigned long n;
            bool ok;
            unsigned long used;
        } steps[] = {
            {source, 60, true, 60},      {source + 60, 5, false, 60}, {nullptr, 100, true, 60},
            {source, 0, true, 60},       {source + 60, 4, true, 64},  {source, 1, false, 64},
            {source, ~0ul, false, 64},
        };
        for (const auto& step : steps) {
            EXPECT_EQ(buffer->appendData(step.src, step.n), step.ok) << step.n;
            EXPECT_EQ(buffer->getUsed(), step.used) << step.n;
        }
        EXPECT_EQ(std::memcmp(buffer->getData(), source, 64), 0);
        delete buffer;
        EXPECT_EQ(manager.getAllocatedSize(), before);
    }
}

TEST(BadInput, ExhaustedPoolGivesNullsNeverCorruption) {
    MemoryPool pool("tight", 64 * 1024);
    TestThenAdd(pool.refCount(), 1);  // kept alive by this test, not by the manager
    EXPECT_EQ(pool.malloc(kImpossible), nullptr);
    EXPECT_EQ(pool.getRanges().size(), 1u) << "a refused region is not recorded";
    pool.free(nullptr);
    {
        HeapManager manager(&pool);
        for (unsigned long size : {kImpossible, ~0ul, ~0ul - 8})
            EXPECT_EQ(manager.alloc(size), nullptr) << size;
        EXPECT_EQ(Calloc(kImpossible, &manager), nullptr);
        EXPECT_EQ(manager.getAllocatedSize(), 0u);
        EXPECT_EQ(pool.getAllocatedMemory(), 0u);

        HeapBuffer buffer(&manager, kImpossible, 16);
        EXPECT_EQ(buffer.getData(), nullptr);
        EXPECT_EQ(buffer.getCapacity(), 0u);
        const char byte = 'x';
        EXPECT_FALSE(buffer.appendData(&byte, 1));
        EXPECT_TRUE(buffer.appendData(nullptr, 1));
        EXPECT_EQ(buffer.getUsed(), 0u);
    }
    EXPECT_EQ(pool.getRefCount(), 2);
    TestThenAdd(pool.refCount(), -1);
    void* p = pool.malloc(1000);
    EXPECT_NE(p, nullptr) << "the pool keeps serving what it can";
    pool.free(p);
    EXPECT_TRUE(pool.checkHeap());

    // A first region too small (or refused) leaves a pool that only ever answers null.
    for (unsigned long initial : {0ul, 64ul, kImpossible}) {
        MemoryPool hopeless("hopeless", initial);
        EXPECT_EQ(hopeless.malloc(16), nullptr) << initial;
        hopeless.free(nullptr);
        EXPECT_FALSE(hopeless.checkHeap()) << initial;
    }
}

TEST(CLibraryBlocks, CallocZeroesReusedBlocks) {
    HeapManager manager;
    void* dirty = manager.alloc(256);  // handed out again below: Calloc must clear it
    std::memset(dirty, 0xEE, 256);
    manager.free(dirty);
    for (MemoryManager* mm : {static_cast<MemoryManager*>(&manager),
                              static_cast<MemoryManager*>(nullptr)}) {
        auto* zeroed = static_cast<unsigned char*>(Calloc(256, mm));
        ASSERT_NE(zeroed, nullptr);
        EXPECT_TRUE(std::all_of(zeroed, zeroed + 256, [](unsigned char c) { return c == 0; }));
        Free(zeroed);
    }
}

// One manager shared by two threads, and the pool's own count changed by both at the same time:
// every count ends exactly where it started.
TEST(HeapManager, CountsStayExactWhenThreadsShareAManagerAndAPool) {
    auto* pool = new MemoryPool("shared counts", 4 * kMiB);
    HeapManager manager(pool);
    vantatest::runThreads(2, [&](int t) {
        std::mt19937 rng(unsigned(t) + 11);
        for (int op = 0; op < 200000; ++op) {
            const unsigned long size = 1 + rng() % 300;
            void* p = manager.alloc(size);
            pool->addAllocation(size);
            if (op % 2)
                doDelete(p);
            else
                manager.free(p);
            pool->subtractAllocation(size);
        }
    });
    EXPECT_EQ(manager.getAllocatedSize(), 0u);
    EXPECT_EQ(pool->getAllocatedMemory(), 0u);
}

// The lock-free lookup gives the answer of a plain scan of every region, for pools of every
// shape, and keeps finding a pool's blocks while other threads map and unmap regions.
TEST(MemoryPool, LookupAgreesWithAScanOfEveryRegionWhileRegionsComeAndGo) {
    // Pools of every shape: regions from one page (several then share a MiB, which the quick
    // path cannot tell apart) to 12 MiB, grown by small and by direct-mapped requests. After each
    // pool, every region so far is looked up, so lists of every length are seen (an array filled
    // to its last entry included).
    std::vector<MemoryPool*> pools;
    const auto inAnyRegion = [](const char* p) {
        for (const MMapRange& r : MemoryPool::allRanges()) {
            if (p >= static_cast<char*>(r.base) && p < static_cast<char*>(r.base) + r.size)
                return true;
        }
        return false;
    };
    const auto ownerOf = [&](const char* p) -> MemoryPool* {
        for (MemoryPool* pool : pools) {
            for (const MMapRange& r : pool->getRanges()) {
                if (p >= static_cast<char*>(r.base) && p < static_cast<char*>(r.base) + r.size)
                    return pool;
            }
        }
        return nullptr;
    };
    for (unsigned long initial : {64 * 1024ul, 4 * kMiB, 100ul, 12 * kMiB, 4096ul, 100ul, 8192ul,
                                  64 * 1024ul, 4096ul, 4 * kMiB}) {
        pools.push_back(new MemoryPool("lookup", initial));
        if (initial >= 64 * 1024) {
            for (unsigned long size : {5 * kMiB, 1000ul, 9 * kMiB})
                pools.back()->malloc(size);
        }
        for (MemoryPool* pool : pools) {
            for (const MMapRange& r : pool->getRanges()) {
                char* base = static_cast<char*>(r.base);
                for (char* p :
                     {base - 1, base, base + 8, base + r.size / 2, base + r.size - 1, base + r.size}) {
                    EXPECT_EQ(MemoryPool::isPointerFromPool(p), inAnyRegion(p));
                    if (MemoryPool* owner = ownerOf(p)) {
                        EXPECT_EQ(MemoryPool::poolOf(p), owner);
                    }
                }
            }
        }
    }

    // Readers look up the blocks of one pool while a writer makes and drops pools.
    MemoryPool* steady = pools.front();
    std::vector<void*> blocks;
    for (int i = 0; i < 64; ++i)
        blocks.push_back(steady->malloc(100000));
    std::atomic<bool> done{false};
    std::atomic<long> wrong{0};
    vantatest::runThreads(3, [&](int t) {
        if (t == 0) {
            for (int round = 0; round < 300; ++round) {
                MemoryPool churned("churned", 64 * 1024);
                churned.malloc(5 * kMiB);
            }
            done = true;
            return;
        }
        while (!done) {
            for (void* p : blocks)
                wrong += MemoryPool::poolOf(p) != steady;
        }
    });
    EXPECT_EQ(wrong.load(), 0);
    for (MemoryPool* pool : pools)
        delete pool;
}

TEST(HeapManager, ThreadsWithTheirOwnManagersShareOnePool) {
    auto* pool = new MemoryPool("threads", 4 * kMiB);
    unsigned long leftover[2] = {1, 1};
    vantatest::runThreads(2, [&](int t) {
        HeapManager manager(pool);
        std::mt19937 rng(unsigned(t) + 5);
        std::vector<void*> live(500, nullptr);
        for (int op = 0; op < 100000; ++op) {
            void*& slot = live[rng() % live.size()];
            if (slot)
                doDelete(slot), slot = nullptr;  // routed back through the header
            else
                slot = doNew(16 + rng() % 497, &manager);
        }
        for (void* p : live)
            doDelete(p);
        leftover[t] = manager.getAllocatedSize();
    });
    EXPECT_EQ(leftover[0], 0u);
    EXPECT_EQ(leftover[1], 0u);
    EXPECT_EQ(pool->getAllocatedMemory(), 0u);
    EXPECT_EQ(pool->getRefCount(), 1);
    std::string why;
    EXPECT_TRUE(pool->checkHeap(&why)) << why;
    delete pool;
}

// A fresh process (the "threadsafe" style re-runs this test alone), so no manager has made a
// default pool before the client sets its own.
TEST(HeapManagerDeathTest, UsesTheClientsDefaultPool) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto firstManagers = [] {
        auto* client = new MemoryPool("client", 4194304);
        HeapManager::sDefaultPool.store(client);
        HeapManager first(nullptr);
        HeapManager second(nullptr);
        return first.getPool() == client && second.getPool() == client &&
               HeapManager::sDefaultPool.load() == client;
    };
    EXPECT_EXIT(std::_Exit(firstManagers() ? 0 : 1), ::testing::ExitedWithCode(0), "");
}

namespace {

// What a planted table makes a call through a forged manager word run.
[[noreturn]] void planted() {
    std::fputs("planted code ran\n", stderr);
    std::_Exit(7);
}

// The pointer as it is, out of the compiler's sight: a second delete is the misuse under test.
template <class T>
T* hidden(T* p) {
    asm volatile("" : "+r"(p));
    return p;
}

// Managed blocks of 72 bytes take 96-byte chunks: the payload ends at the next chunk's size word.
constexpr unsigned long kSnug = 72;

}  // namespace

// Every public way of freeing a managed block stops the process on a block it cannot take back,
// naming the pointer, before it trusts (or calls through) any word of the block.
TEST(ManagedDeleteDeathTest, EveryFreePathStopsOnABlockItCannotTakeBack) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const char* const kDouble = "free\\(\\): double free detected: 0x[0-9a-f]+";
    const char* const kGone = "free\\(\\): double free or invalid pointer \\(no block in use "
                              "starts here\\): 0x[0-9a-f]+";
    const struct {
        const char* name;
        void (*misuse)();
        const char* message;
    } rows[] = {
        {"doDelete twice", [] {
             HeapManager hm;
             void* p = hm.alloc(64);
             doDelete(p);
             doDelete(p);
         }, kDouble},
        {"Free twice, 200 KiB", [] {
             HeapManager hm;
             void* p = hm.alloc(200 * 1024);
             hm.alloc(64);  // keeps the block from merging into the free space after it
             Free(p);
             Free(p);
         }, kGone},
        {"delete twice of an object placed with a manager", [] {
             HeapManager hm;
             Managed* object = new (&hm) Managed;
             delete object;
             delete hidden(object);
         }, kDouble},
        {"delete[] twice", [] {
             HeapManager hm;
             Managed* array = new (&hm) Managed[30];
             delete[] array;
             delete[] hidden(array);
         }, kGone},
        {"HeapBuffer destroyed after its storage was freed", [] {
             HeapManager hm;
             auto* buffer = new HeapBuffer(&hm, 64, 16);
             hm.free(buffer->getData());
             delete buffer;
         }, kDouble},
        {"manager free twice", [] {
             HeapManager hm;
             void* p = hm.alloc(64);
             hm.free(p);
             hm.free(p);
         }, kDouble},
        {"doDelete of a pointer inside a block", [] {
             HeapManager hm;
             auto* p = static_cast<char*>(hm.alloc(256));
             std::memset(p, 0, 256);
             doDelete(p + 32);
         }, kGone},
        {"doDelete of a misaligned pointer", [] {
             HeapManager hm;
             doDelete(static_cast<char*>(hm.alloc(256)) + 8);
         }, "free\\(\\): invalid pointer \\(misaligned\\): 0x[0-9a-f]+"},
        {"block of one manager freed through another of the same pool", [] {
             HeapManager a, b;
             ASSERT_EQ(a.getPool(), b.getPool());
             b.free(a.alloc(64));
         }, "free\\(\\): invalid pointer \\(a block of another manager\\): 0x[0-9a-f]+"},
        {"block whose manager is gone", [] {
             void* p = nullptr;
             {
                 HeapManager shortLived;
                 p = shortLived.alloc(64);
                 doDelete(shortLived.alloc(64));  // the pool has just seen this manager
             }
             doDelete(p);
         }, "free\\(\\): invalid pointer \\(its header names no manager of this pool\\): "
            "0x[0-9a-f]+"},
        {"pool block without a header", [] {
             HeapManager hm;
             auto* p = static_cast<char*>(hm.getPool()->malloc(64));
             std::memset(p, 0, 64);
             doDelete(p + 16);  // a chunk of its own would start here if p held a header
         }, "free\\(\\): "},
        {"a second doDelete calling through a table planted in the block before", [] {
             // After the first free, the block's manager word links to the next chunk of its
             // size, whose first word is the last word of the block before it: ordinary data.
             static void* table[8];
             for (void*& slot : table)
                 slot = reinterpret_cast<void*>(&planted);
             HeapManager hm;
             auto* z = static_cast<char*>(hm.alloc(kSnug));
             auto* y = static_cast<char*>(hm.alloc(kSnug));
             auto* x = static_cast<char*>(hm.alloc(kSnug));
             void* vtable = table;
             std::memcpy(z + 64, &vtable, sizeof vtable);
             doDelete(y);
             doDelete(x);
             doDelete(x);
         }, kDouble},
    };
    for (const auto& row : rows)
        EXPECT_DEATH(row.misuse(), row.message) << row.name;
}

// A size word made 32 bytes larger, ending where a chunk that looks sound was planted, passes the
// boundary tags; the header's size still tells.
TEST(ManagedDeleteDeathTest, ASizeWordThatDisagreesWithTheHeaderIsCaught) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto misuse = [] {
        HeapManager hm;
        auto* a = static_cast<char*>(hm.alloc(kSnug));
        auto* b = static_cast<char*>(hm.alloc(kSnug));
        auto* c = static_cast<char*>(hm.alloc(kSnug));
        a[kSnug] = char(128 | 3);  // b's chunk is 96 bytes; now it reads 128, in use
        // Where 128 bytes from b's chunk end: c's payload, 8 bytes in. A chunk of 48 bytes
        // whose previous chunk is in use.
        const std::size_t planted = 48 | 1;
        std::memcpy(c + 8, &planted, sizeof planted);
        doDelete(b);
    };
    EXPECT_DEATH(misuse(), "free\\(\\): invalid size \\(the block's header disagrees with its "
                           "chunk\\): 0x[0-9a-f]+");
}

// Writing one to eight bytes past a block lands on the next block's size word; freeing that
// block then stops, through the manager and through doDelete, whatever the bytes say.
TEST(ManagedDeleteDeathTest, OverflowIntoTheNextSizeWordIsCaughtByTheNextFree) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (bool viaManager : {false, true}) {
        for (unsigned char fill : {0x03, 0x43, 0x73}) {  // each reads as a chunk in use: of size
                                                        // 0, smaller, larger
            for (std::size_t overflow = 1; overflow <= 8; ++overflow) {
                const auto misuse = [&] {
                    HeapManager hm;
                    auto* a = static_cast<char*>(hm.alloc(kSnug));
                    auto* b = static_cast<char*>(hm.alloc(kSnug));
                    std::memset(b, 0, kSnug);
                    hm.alloc(kSnug);
                    std::memset(a + kSnug, fill, overflow);
                    if (viaManager)
                        hm.free(b);
                    else
                        doDelete(b);
                };
                EXPECT_DEATH(misuse(), "free\\(\\): invalid (next )?size.*: 0x[0-9a-f]+")
                    << "fill " << int(fill) << ", " << overflow << " bytes, "
                    << (viaManager ? "manager free" : "doDelete");
            }
        }
    }
}
