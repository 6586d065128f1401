// Benchmarks of memory pools and heap managers against glibc malloc, with jemalloc and mimalloc
// beside them for reference: churn of a working set on one and two threads, large blocks, and the
// memory a working set costs.
//
// mimalloc is loaded with dlopen(RTLD_LOCAL) and called through its own entry points
// (mi_malloc/mi_free), so it does not replace malloc for the process and glibc stays a fair peer
// in the same run. jemalloc cannot be loaded that way (it needs static TLS that a dlopen'ed
// library does not get), so its figures come from a child process of this benchmark started with
// jemalloc preloaded, which times the same workload on its malloc and reports back. The memory
// figures likewise come from fresh child processes, one per allocator, so no allocator's retained
// memory counts in another's. Times are the process's processor time (user and system, all
// threads), so other programs on a shared machine do not inflate them.
#include <vanta/memory.h>
#include <vanta/memorypool.h>
#include <vanta/arena_p.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <dlfcn.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace vanta;

namespace {

constexpr unsigned long kFirstRegion = 4194304;

// The churn workload: 10,000 live blocks, 10 million steps, each freeing a random slot's block
// and allocating one of 16..512 bytes in its place.
constexpr std::size_t kChurnLive = 10000;
constexpr long kChurnSteps = 10000000;
// Large blocks: 64 KiB..1 MiB, 64 live, 200,000 steps.
constexpr std::size_t kLargeLive = 64;
constexpr long kLargeSteps = 200000;
// A big heap: the churn with 1,000,000 live blocks (about 264 MB).
constexpr std::size_t kBigLive = 1000000;
// Ageing: a phase of 20,000 blocks of 1..4096 bytes, all freed, before the churn.
constexpr std::size_t kAgeBlocks = 20000;
// Memory: the churn sizes with 100,000 live blocks.
constexpr std::size_t kMemoryLive = 100000;
constexpr long kMemorySteps = 10000000;

// A small fast generator with a fixed seed, so every allocator sees the same sequence.
struct Rng {
    std::uint64_t state;
    std::uint64_t next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
};

// ---- The allocators, each with alloc/free ----

struct Glibc {
    void* alloc(std::size_t n) { return std::malloc(n); }
    void free(void* p) { std::free(p); }
};

struct Manager {
    HeapManager* manager;
    void* alloc(std::size_t n) { return manager->alloc(n); }
    void free(void* p) { manager->free(p); }
};

struct Pool {
    MemoryPool* pool;
    void* alloc(std::size_t n) { return pool->malloc(n); }
    void free(void* p) { pool->free(p); }
};

// A peer loaded at run time; alloc is null when the library is not there.
struct Loaded {
    void* (*allocFn)(std::size_t, int) = nullptr;
    void (*freeFn)(void*, int) = nullptr;
    void* (*allocPlain)(std::size_t) = nullptr;
    void (*freePlain)(void*) = nullptr;
    bool available() const { return allocFn || allocPlain; }
    void* alloc(std::size_t n) { return allocFn ? allocFn(n, 0) : allocPlain(n); }
    void free(void* p) {
        if (freeFn)
            freeFn(p, 0);
        else
            freePlain(p);
    }
};

Loaded& mimalloc() {
    static Loaded peer = [] {
        Loaded l;
        if (void* lib = dlopen("libmimalloc.so.2", RTLD_NOW | RTLD_LOCAL)) {
            l.allocPlain = reinterpret_cast<void* (*)(std::size_t)>(dlsym(lib, "mi_malloc"));
            l.freePlain = reinterpret_cast<void (*)(void*)>(dlsym(lib, "mi_free"));
            if (!l.allocPlain || !l.freePlain)
                l.allocPlain = nullptr;
        } else {
            std::fprintf(stderr, "mimalloc not loaded: %s\n", dlerror());
        }
        return l;
    }();
    return peer;
}

// A pool owned by its manager alone, so the manager's destruction returns it.
struct OwnPool {
    HeapManager* manager;
    OwnPool() : manager(new HeapManager(new MemoryPool("bench", kFirstRegion))) {
        TestThenAdd(manager->getPool()->refCount(), -1);
    }
    ~OwnPool() { delete manager; }
};

// ---- The workloads ----

// Frees a random slot's block and allocates a new one, steps times. minSize..maxSize bytes;
// every block has its first byte written (and, with touchPages, one byte per page), as a program
// would. Returns the peak of live payload bytes.
template <class A>
std::size_t churn(A& a, std::size_t live, long steps, std::size_t minSize, std::size_t maxSize,
                  std::uint64_t seed, bool touchPages = false) {
    Rng rng{seed};
    const std::size_t span = maxSize - minSize + 1;
    std::vector<void*> slot(live);
    std::vector<std::size_t> sizes(live);
    std::size_t liveBytes = 0, peak = 0;
    auto place = [&](std::size_t k) {
        const std::size_t n = minSize + rng.next() % span;
        char* p = static_cast<char*>(a.alloc(n));
        p[0] = char(k);
        if (touchPages) {
            for (std::size_t at = 4096; at < n; at += 4096)
                p[at] = char(k);
        }
        slot[k] = p;
        sizes[k] = n;
        liveBytes += n;
        peak = std::max(peak, liveBytes);
    };
    for (std::size_t k = 0; k < live; ++k)
        place(k);
    for (long step = 0; step < steps; ++step) {
        const std::size_t k = rng.next() % live;
        a.free(slot[k]);
        liveBytes -= sizes[k];
        place(k);
    }
    benchmark::DoNotOptimize(slot.data());
    for (void* p : slot)
        a.free(p);
    return peak;
}


// Both threads run the whole churn workload, each on an allocator of its own from make().
template <class MakeA>
void churnTwoThreads(MakeA make) {
    std::thread threads[2];
    for (int t = 0; t < 2; ++t)
        threads[t] = std::thread([&make, t] {
            auto a = make();
            churn(*a, kChurnLive, kChurnSteps, 16, 512, 777 + std::uint64_t(t));
        });
    for (std::thread& thread : threads)
        thread.join();
}

// A thread that sleeps until destroyed, so the process counts as multi-threaded meanwhile.
class ParkedThread {
public:
    ParkedThread() : mThread([this] {
        std::unique_lock<std::mutex> hold(mMutex);
        mWake.wait(hold, [this] { return mStop; });
    }) {}
    ~ParkedThread() {
        {
            std::lock_guard<std::mutex> hold(mMutex);
            mStop = true;
        }
        mWake.notify_one();
        mThread.join();
    }

private:
    std::mutex mMutex;
    std::condition_variable mWake;
    bool mStop = false;
    std::thread mThread;
};

struct OwnPoolManager {
    OwnPool own;
    Manager a{own.manager};
    void* alloc(std::size_t n) { return a.alloc(n); }
    void free(void* p) { a.free(p); }
};

// The path the library's own objects take: blocks placed with a manager, freed by doDelete.
struct OwnPoolDelete {
    OwnPool own;
    void* alloc(std::size_t n) { return own.manager->alloc(n); }
    void free(void* p) { doDelete(p); }
};

// A phase of a long-running program: kAgeBlocks blocks of 1..4096 bytes, each written, then all
// freed in random order.
template <class A>
void age(A& a) {
    Rng rng{4096};
    std::vector<void*> blocks(kAgeBlocks);
    for (void*& p : blocks) {
        p = a.alloc(1 + rng.next() % 4096);
        static_cast<char*>(p)[0] = 1;
    }
    for (std::size_t i = blocks.size(); i > 1; --i)
        std::swap(blocks[i - 1], blocks[rng.next() % i]);
    for (void* p : blocks)
        a.free(p);
}

// Processor time of the whole process (every thread, user and system), in seconds. The machine
// the benchmarks run on is shared, so wall time would count other programs' load.
double cpuSeconds() {
    timespec t;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) * 1e-9;
}

// A field of /proc/self/status in bytes ("VmRSS", "VmHWM").
std::size_t statusBytes(const char* field) {
    std::ifstream in("/proc/self/status");
    std::string line;
    const std::size_t length = std::strlen(field);
    while (std::getline(in, line)) {
        if (line.compare(0, length, field) == 0 && line[length] == ':')
            return std::strtoul(line.c_str() + length + 1, nullptr, 10) * 1024;
    }
    return 0;
}

// Runs one workload on allocators from make(): seconds of wall time for the timed workloads,
// peak resident growth over peak live payload for "memory".
template <class MakeA>
double runWorkload(const std::string& workload, MakeA make) {
    if (workload == "memory") {
        auto a = make();
        std::ofstream("/proc/self/clear_refs") << "5";  // restart the high-water mark here
        const std::size_t before = statusBytes("VmRSS");
        const std::size_t peak = churn(*a, kMemoryLive, kMemorySteps, 16, 512, 4242);
        return double(statusBytes("VmHWM") - before) / double(peak);
    }
    const double start = cpuSeconds();
    if (workload == "churn") {
        auto a = make();
        churn(*a, kChurnLive, kChurnSteps, 16, 512, 12345);
    } else if (workload == "churn2") {
        churnTwoThreads(make);
    } else if (workload == "churn_threaded") {
        // One thread churns while a second one exists but sleeps: the process is no longer
        // single-threaded, so locks need locked instructions, yet nothing is shared.
        ParkedThread parked;
        auto a = make();
        churn(*a, kChurnLive, kChurnSteps, 16, 512, 12345);
    } else if (workload == "aged") {
        // Only the churn is timed; the phase before it ages every allocator alike.
        auto a = make();
        age(*a);
        const double begin = cpuSeconds();
        churn(*a, kChurnLive, kChurnSteps, 16, 512, 12345);
        return cpuSeconds() - begin;
    } else if (workload == "big") {
        auto a = make();
        churn(*a, kBigLive, kChurnSteps, 16, 512, 12345);
    } else if (workload == "large") {
        auto a = make();
        churn(*a, kLargeLive, kLargeSteps, 64 * 1024, 1024 * 1024, 999, true);
    } else {
        return 0;
    }
    return cpuSeconds() - start;
}

double runNamed(const std::string& workload, const std::string& allocator) {
    if (allocator == "ours")
        return runWorkload(workload, [] { return std::make_unique<OwnPoolManager>(); });
    if (allocator == "ours_delete")
        return runWorkload(workload, [] { return std::make_unique<OwnPoolDelete>(); });
    if (allocator == "mimalloc" && mimalloc().available())
        return runWorkload(workload, [] { return std::make_unique<Loaded>(mimalloc()); });
    // glibc, or whatever malloc the child was started with (jemalloc preloaded).
    if (allocator == "glibc" || allocator == "jemalloc")
        return runWorkload(workload, [] { return std::make_unique<Glibc>(); });
    return 0;
}

// In a child started by inChild: runs the requested workload, prints its figure, and exits
// before the benchmark runner starts.
const bool sIsChild = [] {
    const char* request = std::getenv("VANTA_BENCH_MEMORY_CHILD");
    if (!request)
        return false;
    const std::string text(request);
    const auto blank = text.find(' ');
    const double figure = runNamed(text.substr(0, blank), text.substr(blank + 1));
    std::printf("%.17g\n", figure);
    std::fflush(stdout);
    _exit(figure > 0 ? 0 : 1);
}();

// Runs a workload in a fresh child process of this benchmark; with jemalloc, that child has
// jemalloc preloaded as its malloc. Returns the child's figure, 0 when it failed.
double inChild(const char* workload, const char* allocator) {
    const std::string request =
        std::string("VANTA_BENCH_MEMORY_CHILD=") + workload + " " + allocator;
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        if (std::strncmp(*e, "LD_PRELOAD=", 11) != 0)
            env.push_back(*e);
    }
    env.push_back(request);
    if (std::strcmp(allocator, "jemalloc") == 0)
        env.push_back("LD_PRELOAD=libjemalloc.so.2");
    std::vector<char*> envp;
    for (std::string& e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    char exe[] = "/proc/self/exe";
    char* argv[] = {exe, nullptr};

    int fds[2];
    if (pipe(fds) != 0)
        return 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    pid_t pid = -1;
    const int spawned = posix_spawn(&pid, exe, &actions, nullptr, argv, envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    std::string out;
    char buffer[128];
    ssize_t n;
    while (spawned == 0 && (n = read(fds[0], buffer, sizeof buffer)) > 0)
        out.append(buffer, std::size_t(n));
    close(fds[0]);
    int status = 1;
    if (spawned == 0)
        waitpid(pid, &status, 0);
    return spawned == 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0
               ? std::strtod(out.c_str(), nullptr)
               : 0;
}

// ---- The benchmarks ----

// Seconds of one run of a workload on a named allocator; 0 when it could not run.
double timedRun(const char* workload, const char* allocator) {
    return std::strcmp(allocator, "jemalloc") == 0 ? inChild(workload, allocator)
                                                   : runNamed(workload, allocator);
}

// Through MemoryPool::malloc/free directly, without the managed header.
double churnPoolOurs() {
    MemoryPool pool("bench", kFirstRegion);
    Pool a{&pool};
    const double start = cpuSeconds();
    churn(a, kChurnLive, kChurnSteps, 16, 512, 12345);
    return cpuSeconds() - start;
}

// The arena alone, without the pool's lock, on the same workload: what the allocator itself costs,
// so the table shows how much of the pool's time is its lock.
struct ArenaOnly {
    arena::Arena a;
    void* alloc(std::size_t n) { return arena::malloc(a, n); }
    void free(void* p) { arena::free(a, p); }
};

// An unlocked arena on a first region of its own, growing through the default system calls.
arena::Arena newPlainArena(void* first) {
    auto map = [](std::size_t size, void*) { return arena::defaultMap(size); };
    auto directMap = [](std::size_t size, void*) { return arena::defaultDirectMap(size); };
    auto unmap = [](void* base, std::size_t size, void*) { return arena::defaultUnmap(base, size); };
    return arena::create(first, kFirstRegion, false, directMap, map, nullptr, nullptr, unmap);
}

double churnArenaOurs() {
    void* first = arena::defaultDirectMap(kFirstRegion);
    ArenaOnly a{newPlainArena(first)};
    const double start = cpuSeconds();
    churn(a, kChurnLive, kChurnSteps, 16, 512, 12345);
    const double seconds = cpuSeconds() - start;
    arena::destroy(a.a);
    arena::defaultUnmap(first, kFirstRegion);
    return seconds;
}

// The least a lock around every arena call can cost: one compare-and-swap to take it and one
// exchange to release it (a sleeping waiter must be seen), around the unlocked arena, on two
// threads each with its own arena. What ours adds above this is the pool's and manager's own.
struct BareLockedArena {
    ArenaOnly arena;
    alignas(64) std::atomic<unsigned> word{0};
    void take() {
        unsigned expected = 0;
        while (!word.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                           std::memory_order_relaxed))
            expected = 0;
    }
    void release() { word.exchange(0, std::memory_order_release); }
    void* alloc(std::size_t n) {
        take();
        void* p = arena.alloc(n);
        release();
        return p;
    }
    void free(void* p) {
        take();
        arena.free(p);
        release();
    }
};

double churnFloorTwoThreads() {
    const double start = cpuSeconds();
    churnTwoThreads([] {
        struct Owned : BareLockedArena {
            void* first = arena::defaultDirectMap(kFirstRegion);
            Owned() { arena.a = newPlainArena(first); }
            ~Owned() {
                arena::destroy(arena.a);
                arena::defaultUnmap(first, kFirstRegion);
            }
        };
        return std::make_unique<Owned>();
    });
    return cpuSeconds() - start;
}

// Counts, instead of allocating, what each managed block of n bytes takes in the arena: the
// 16-byte manager header and a size word of sizeWord bytes (the arena's is 8), rounded up to 16,
// at least 32 bytes.
struct ChunkCounter {
    std::size_t sizeWord = 8;
    std::size_t liveChunkBytes = 0, peakChunkBytes = 0;
    std::size_t chunkBytes(std::size_t n) const {
        return std::max<std::size_t>(32, (n + HeapManager::kHeaderSize + sizeWord + 15) &
                                             ~std::size_t(15));
    }
    void* alloc(std::size_t n) {
        liveChunkBytes += chunkBytes(n);
        peakChunkBytes = std::max(peakChunkBytes, liveChunkBytes);
        // The churn writes the block's first byte and frees it by pointer: a real block
        // carrying its size serves both.
        auto* p = static_cast<std::size_t*>(std::malloc(sizeof(std::size_t) + n));
        *p = n;
        return p + 1;
    }
    void free(void* q) {
        std::size_t* p = static_cast<std::size_t*>(q) - 1;
        liveChunkBytes -= chunkBytes(*p);
        std::free(p);
    }
};

// Not timed: computes the memory figures once and adds them to the printed results.
void memoryFigures(benchmark::State& state) {
    for (auto _ : state) {
        char line[400];
        {
            OwnPool own;
            Manager a{own.manager};
            const std::size_t peak = churn(a, kMemoryLive, kMemorySteps, 16, 512, 4242);
            const double ratio = double(own.manager->getPool()->getMappedBytes()) / double(peak);
            std::snprintf(line, sizeof line,
                          "memory/ours (HeapManager, headers included): bytes mapped at peak / "
                          "peak live payload = %.3f (target <= 1.25: %s); %zu live blocks of "
                          "16..512 bytes, %ld steps, %.1f MB peak payload",
                          ratio, ratio <= 1.25 ? "met" : "MISSED", kMemoryLive, kMemorySteps,
                          double(peak) / 1e6);
            vantabench::note(line);
        }
        {
            // The least any arena with 16-byte aligned chunks and one size word can map for the
            // same sequence: every live block's chunk (manager header, size word, rounding to
            // 16) with no fragmentation at all, against whole regions of the 4 MiB step.
            ChunkCounter counter;
            const std::size_t peak = churn(counter, kMemoryLive, kMemorySteps, 16, 512, 4242);
            const double granule = double(kFirstRegion);
            const double regions = std::ceil(double(counter.peakChunkBytes) / granule);
            std::snprintf(line, sizeof line,
                          "memory/lower bound for HeapManager blocks: peak chunk bytes with no "
                          "fragmentation %.2f MB = %.3f of payload, so at least %.0f regions of "
                          "4 MiB: ratio >= %.3f",
                          double(counter.peakChunkBytes) / 1e6,
                          double(counter.peakChunkBytes) / double(peak), regions,
                          regions * granule / double(peak));
            vantabench::note(line);
        }
        {
            // The arena's own fragmentation on this sequence: the same blocks (manager header
            // included) in an unlocked arena growing in 64 KiB steps, whose footprint then
            // follows its peak need closely. A layout with a smaller size word, or none, would
            // pay it on top of its own chunk bytes.
            const std::size_t granularity = arena::getOption(arena::kGranularity);
            arena::setOption(arena::kGranularity, 64 * 1024);
            void* first = arena::defaultDirectMap(kFirstRegion);
            struct {
                arena::Arena a;
                void* alloc(std::size_t n) { return arena::malloc(a, n + HeapManager::kHeaderSize); }
                void free(void* p) { arena::free(a, p); }
            } headered{newPlainArena(first)};
            churn(headered, kMemoryLive, kMemorySteps, 16, 512, 4242);
            const double footprint = double(arena::stats(headered.a).footprint);
            arena::destroy(headered.a);
            arena::defaultUnmap(first, kFirstRegion);
            arena::setOption(arena::kGranularity, granularity);
            ChunkCounter layout[3];
            layout[1].sizeWord = 4;
            layout[2].sizeWord = 0;
            for (ChunkCounter& counter : layout)
                churn(counter, kMemoryLive, kMemorySteps, 16, 512, 4242);
            const double fragmentation = footprint / double(layout[0].peakChunkBytes);
            auto regionsFor = [&](const ChunkCounter& counter) {
                return std::ceil(double(counter.peakChunkBytes) * fragmentation /
                                 double(kFirstRegion));
            };
            std::snprintf(line, sizeof line,
                          "memory/fragmentation: in 64 KiB steps the arena maps %.3f of the chunk "
                          "bytes; at that, an 8-byte size word would need %.0f regions of 4 MiB, a "
                          "4-byte one (%.2f MB of chunks) %.0f, none (%.2f MB) %.0f",
                          fragmentation, regionsFor(layout[0]),
                          double(layout[1].peakChunkBytes) / 1e6, regionsFor(layout[1]),
                          double(layout[2].peakChunkBytes) / 1e6, regionsFor(layout[2]));
            vantabench::note(line);
        }
        {
            MemoryPool pool("bench", kFirstRegion);
            Pool a{&pool};
            const std::size_t peak = churn(a, kMemoryLive, kMemorySteps, 16, 512, 4242);
            std::snprintf(line, sizeof line,
                          "memory/ours (MemoryPool, no header): bytes mapped at peak / peak live "
                          "payload = %.3f",
                          double(pool.getMappedBytes()) / double(peak));
            vantabench::note(line);
        }
        std::snprintf(line, sizeof line,
                      "memory/peak resident growth / peak live payload, each in a fresh child "
                      "process: ours %.3f, glibc %.3f, jemalloc %.3f, mimalloc %.3f",
                      inChild("memory", "ours"), inChild("memory", "glibc"),
                      inChild("memory", "jemalloc"), inChild("memory", "mimalloc"));
        vantabench::note(line);
    }
    vantabench::note("jemalloc figures come from a child process with jemalloc preloaded "
                     "(it cannot be dlopen'ed: static TLS); mimalloc is called in process "
                     "through mi_malloc/mi_free.");
}

}  // namespace

VANTA_BENCH_TARGET("churn_manager", "glibc", 1.0);
VANTA_BENCH_TARGET("churn_pool", "glibc", 1.0);
VANTA_BENCH_TARGET("churn_2threads", "glibc", 1.0);
VANTA_BENCH_TARGET("large", "glibc", 1.0);
VANTA_BENCH_TARGET("churn_delete", "glibc", 1.0);
VANTA_BENCH_TARGET("churn_delete_2threads", "glibc", 1.0);
VANTA_BENCH_TARGET("aged_manager", "glibc", 1.0);
VANTA_BENCH_TARGET("aged_delete", "glibc", 1.0);
VANTA_BENCH_TARGET("big_delete", "glibc", 1.2);

namespace {

// One timed row: ours and its peers, each a function giving the seconds of one run (0: failed).
struct Row {
    const char* name;
    long steps;
    std::vector<std::pair<const char*, std::function<double()>>> runs;
};

// A shared machine's speed drifts over seconds, which would favour whichever allocator ran in a
// quiet moment, and other programs only ever add time to a run. So a row runs its allocators in
// turn, five rounds, and each allocator's figure is the least of its five runs: the one least
// disturbed, taken alike for every allocator.
constexpr int kRounds = 5;

// The figures of one row, measured when its first allocator is benchmarked.
std::map<std::string, double>& rowSeconds(const Row& row) {
    static std::map<std::string, std::map<std::string, double>> measured;
    auto found = measured.find(row.name);
    if (found != measured.end())
        return found->second;
    std::map<std::string, std::vector<double>> times;
    for (int round = 0; round < kRounds; ++round) {
        for (const auto& [allocator, run] : row.runs) {
            times[allocator].push_back(run());
        }
    }
    std::map<std::string, double>& least = measured[row.name];
    std::string runs = std::string(row.name) + ": seconds of each run";
    const auto median = [](std::vector<double> v) {
        std::sort(v.begin(), v.end());
        return v[v.size() / 2];
    };
    char text[64];
    for (const auto& [allocator, seconds] : times) {
        // A failed run (0) fails the allocator's figure.
        least[allocator] = *std::min_element(seconds.begin(), seconds.end());
        runs += "; " + allocator;
        for (double run : seconds) {
            std::snprintf(text, sizeof text, " %.3f", run);
            runs += text;
        }
        if (allocator != "ours" && median(seconds) > 0) {
            std::snprintf(text, sizeof text, " (median ours/%s %.3f)", allocator.c_str(),
                          median(times.at("ours")) / median(seconds));
            runs += text;
        }
    }
    vantabench::note(runs);
    return least;
}

const bool sRegistered = [] {
    auto peers = [](const char* workload) {
        std::vector<std::pair<const char*, std::function<double()>>> runs;
        for (const char* allocator : {"glibc", "jemalloc", "mimalloc"}) {
            if (std::strcmp(allocator, "mimalloc") == 0 && !mimalloc().available())
                continue;
            runs.push_back({allocator, [=] { return timedRun(workload, allocator); }});
        }
        return runs;
    };
    auto row = [&](const char* name, long steps, std::function<double()> ours,
                   const char* workload) {
        Row r{name, steps, {{"ours", std::move(ours)}}};
        for (auto& peer : peers(workload))
            r.runs.push_back(peer);
        return r;
    };
    auto named = [](const char* workload, const char* ours = "ours") {
        return [=] { return timedRun(workload, ours); };
    };
    static const std::vector<Row> rows = {
        row("churn_manager", kChurnSteps, named("churn"), "churn"),
        row("churn_pool", kChurnSteps, churnPoolOurs, "churn"),
        row("churn_2threads", 2 * kChurnSteps, named("churn2"), "churn2"),
        row("churn_threaded", kChurnSteps, named("churn_threaded"), "churn_threaded"),
        row("churn_delete", kChurnSteps, named("churn", "ours_delete"), "churn"),
        row("churn_delete_2threads", 2 * kChurnSteps, named("churn2", "ours_delete"), "churn2"),
        row("aged_manager", kChurnSteps, named("aged"), "aged"),
        row("aged_delete", kChurnSteps, named("aged", "ours_delete"), "aged"),
        row("big_delete", kChurnSteps, named("big", "ours_delete"), "big"),
        row("large", kLargeSteps, named("large"), "large"),
        row("floor_2threads", 2 * kChurnSteps, churnFloorTwoThreads, "churn2"),
        row("churn_arena_unlocked", kChurnSteps, churnArenaOurs, "churn"),
    };
    for (const Row& r : rows) {
        for (const auto& run : r.runs) {
            const std::string allocator = run.first;
            const std::string name = std::string(r.name) + "/" + allocator;
            benchmark::RegisterBenchmark(name.c_str(), [&r, allocator](benchmark::State& state) {
                const double seconds = rowSeconds(r)[allocator];
                for (auto _ : state) {
                    if (seconds <= 0)
                        return state.SkipWithError("workload failed");
                    state.SetIterationTime(seconds);
                }
                state.SetItemsProcessed(state.iterations() * r.steps);
            })->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RegisterBenchmark("memory_figures", memoryFigures)
        ->Iterations(1)
        ->Unit(benchmark::kMillisecond);
    return true;
}();

}  // namespace
