// HashTable::find on the subsystem registry's shape against std::unordered_map::find.
#include <vanta/status.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <unordered_map>
#include <vector>

using namespace vanta;

namespace {

class BenchSubsys : public StatusSubsys {
public:
    explicit BenchSubsys(unsigned short number) : StatusSubsys(number, QStringLiteral("BENCH")) {}
    const QString& getErrorString(unsigned int) const override {
        static const QString none;
        return none;
    }
};

// Twenty subsystems as an application registers them: a run of low numbers and a second block,
// which shares four buckets of the 53 with the first.
std::vector<unsigned short> numbers() {
    std::vector<unsigned short> result;
    for (unsigned short n = 1; n <= 10; ++n)
        result.push_back(n);
    for (unsigned short n = 100; n < 110; ++n)
        result.push_back(n);
    return result;
}

struct Registry {
    std::vector<std::unique_ptr<BenchSubsys>> subsystems;
    StatusSubsysTable table{15};
    std::unordered_map<unsigned short, StatusSubsys*> map;
    // Every registered number, then as many that are not registered.
    std::vector<unsigned short> probes;

    Registry() {
        for (unsigned short n : numbers()) {
            subsystems.push_back(std::make_unique<BenchSubsys>(n));
            table.insertElem(table.hash(n), subsystems.back().get());
            map.emplace(n, subsystems.back().get());
            probes.push_back(n);
            probes.push_back(static_cast<unsigned short>(n + 1000));
        }
    }
};

Registry& registry() {
    static Registry r;
    return r;
}

void findOurs(benchmark::State& state) {
    Registry& r = registry();
    for (auto _ : state) {
        for (unsigned short n : r.probes)
            benchmark::DoNotOptimize(r.table.find(n));
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(r.probes.size()));
}
BENCHMARK(findOurs)->Name("hash_find/ours");

void findUnorderedMap(benchmark::State& state) {
    Registry& r = registry();
    for (auto _ : state) {
        for (unsigned short n : r.probes) {
            auto it = r.map.find(n);
            benchmark::DoNotOptimize(it == r.map.end() ? nullptr : it->second);
        }
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(r.probes.size()));
}
BENCHMARK(findUnorderedMap)->Name("hash_find/unordered_map");

VANTA_BENCH_TARGET("hash_find", "unordered_map", 1.5);

}  // namespace
