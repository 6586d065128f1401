// Benchmark support: ours-versus-peer ratios printed after each run.
//
// Name benchmarks "group/impl[/more]": impl "ours" is this library, every other impl in the same
// group is a peer. After the run each peer gets a line with the ratio ours/peer (below 1: ours is
// faster), checked against a target where one is declared.
#pragma once

#include <string>

namespace vantabench {

// Declares the target ratio ours/peer for a group (the name without the impl part).
struct Target {
    Target(const char* group, const char* peer, double ratio);
};

// Adds a free-form line (for example a memory figure) to the printed results.
void note(const std::string& line);

}  // namespace vantabench

#define VANTA_BENCH_CONCAT2(a, b) a##b
#define VANTA_BENCH_CONCAT(a, b) VANTA_BENCH_CONCAT2(a, b)
#define VANTA_BENCH_TARGET(group, peer, ratio) \
    static vantabench::Target VANTA_BENCH_CONCAT(vantaTarget, __LINE__)(group, peer, ratio)
