// Benchmarks of setting changes and save frames against a plain value with a std::function
// callback list and an undo log.
#include <vanta/settings.h>
#include <vanta/typedsetting.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using namespace vanta;

// ---- Allocation counter ----
// Every heap allocation of the process (operator new, Qt and the library's doNew all end in the
// C library) passes through these, so a loop's allocations can be counted exactly.

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* p, size_t size);

namespace {
std::atomic<long> gAllocations{0};
}  // namespace

extern "C" void* malloc(size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

extern "C" void* calloc(size_t count, size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* p, size_t size) {
    gAllocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, size);
}

namespace {

// ---- Ours ----

class CountingObserver : public SettingObserver {
public:
    explicit CountingObserver(Setting& s) : SettingObserver(s) {}
    void onSettingChanged(const Event&) override { ++calls; }
    void onSettingPreDelete(const Event&) override {}
    long calls = 0;
};

SettingGroup& benchGroup() {
    static SettingGroup group("Bench");
    return group;
}

struct OurSetting {
    explicit OurSetting(int observers) : setting(benchGroup(), "value", 0) {
        for (int i = 0; i < observers; ++i)
            this->observers.push_back(std::make_unique<CountingObserver>(setting));
    }
    IntSetting setting;
    std::vector<std::unique_ptr<CountingObserver>> observers;
};

// ---- Peer: a plain value, a callback list, an undo log ----

struct PlainSetting {
    void set(int v) {
        if (v == value)
            return;
        value = v;
        for (const auto& callback : callbacks)
            callback(v);
    }
    int value = 0;
    std::vector<std::function<void(int)>> callbacks;
};

struct PeerSetting {
    explicit PeerSetting(int observers) : counts(size_t(observers), 0) {
        for (int i = 0; i < observers; ++i)
            plain.callbacks.push_back([this, i](int) { ++counts[size_t(i)]; });
    }
    PlainSetting plain;
    std::vector<long> counts;
};

constexpr int kFrameChanges = 10000;
constexpr int kFrameSettings = 100;

// ---- set with 0, 1, 10 observers ----

void setOurs(benchmark::State& state) {
    OurSetting s(int(state.range(0)));
    int v = 0;
    for (auto _ : state) {
        s.setting.set(v ^= 1);
        benchmark::ClobberMemory();
    }
}

void setPeer(benchmark::State& state) {
    PeerSetting s(int(state.range(0)));
    int v = 0;
    for (auto _ : state) {
        s.plain.set(v ^= 1);
        benchmark::ClobberMemory();
    }
}

// ---- A frame of 10,000 changes, rolled back ----

void frameOurs(benchmark::State& state) {
    std::vector<std::unique_ptr<IntSetting>> settings;
    for (int i = 0; i < kFrameSettings; ++i)
        settings.push_back(std::make_unique<IntSetting>(benchGroup(), "frame", 0));
    for (auto _ : state) {
        Setting::pushAllSettings();
        for (int i = 1; i <= kFrameChanges; ++i)
            settings[size_t(i % kFrameSettings)]->set(i);
        Setting::popAllSettings();
    }
    state.SetItemsProcessed(state.iterations() * kFrameChanges);
}

void framePeer(benchmark::State& state) {
    std::vector<PlainSetting> settings(kFrameSettings);
    std::vector<std::pair<PlainSetting*, int>> undo;
    for (auto _ : state) {
        undo.clear();
        for (int i = 1; i <= kFrameChanges; ++i) {
            PlainSetting& s = settings[size_t(i % kFrameSettings)];
            if (s.value != i)
                undo.emplace_back(&s, s.value);
            s.set(i);
        }
        for (auto it = undo.rbegin(); it != undo.rend(); ++it)
            it->first->value = it->second;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kFrameChanges);
}

// One group per observer count ("set1obs", "set10obs"): names that are not prefixes of each other.
const bool gSetRegistered = [] {
    for (int observers : {0, 1, 10}) {
        const std::string group = "set" + std::to_string(observers) + "obs";
        benchmark::RegisterBenchmark((group + "/ours").c_str(), setOurs)->Arg(observers);
        benchmark::RegisterBenchmark((group + "/stdfunction").c_str(), setPeer)->Arg(observers);
    }
    return true;
}();
BENCHMARK(frameOurs)->Name("frame10000/ours");
BENCHMARK(framePeer)->Name("frame10000/undolog");

// No ratio budgets: what matters is that notification cost grows linearly with the observers
// (compare the 0, 1 and 10 rows) and that set allocates nothing (the counts printed below). With
// nobody listening ours also stamps the modifier and checks for an open frame and for observers
// of the setting and of its group; in a frame every change also records a saved value and crosses
// the virtual pushSetting/popSetting that let a setting type save its own way.

// Allocations per call, counted outside the timed runs.
struct AllocationReport {
    AllocationReport() {
        constexpr int kCalls = 100000;
        for (int observers : {0, 10}) {
            OurSetting s(observers);
            const long before = gAllocations.load();
            for (int i = 1; i <= kCalls; ++i)
                s.setting.set(i);
            const long count = gAllocations.load() - before;
            vantabench::note("allocations in " + std::to_string(kCalls) + " set calls with " +
                             std::to_string(observers) + " observers, no frame open: " +
                             std::to_string(count));
        }
        // In a frame: the first cycle grows the frame's array and each setting's saved values;
        // later cycles reuse that capacity.
        std::vector<std::unique_ptr<IntSetting>> settings;
        for (int i = 0; i < kFrameSettings; ++i)
            settings.push_back(std::make_unique<IntSetting>(benchGroup(), "frame", 0));
        long perCycle[2] = {0, 0};
        for (long& count : perCycle) {
            const long before = gAllocations.load();
            Setting::pushAllSettings();
            for (int i = 1; i <= kFrameChanges; ++i)
                settings[size_t(i % kFrameSettings)]->set(i);
            Setting::popAllSettings();
            count = gAllocations.load() - before;
        }
        vantabench::note("allocations in a frame of " + std::to_string(kFrameChanges) +
                         " changes: first cycle " + std::to_string(perCycle[0]) +
                         ", second cycle " + std::to_string(perCycle[1]));
    }
};

}  // namespace

// Runs before main, after the group's first use builds it.
static AllocationReport gAllocationReport;
