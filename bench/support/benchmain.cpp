// Benchmark runner: runs every registered benchmark, then prints the ours/peer ratio table.
#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <vector>

namespace vantabench {
namespace {

struct Result {
    std::string group, impl;
    double nsPerIteration;
};

std::map<std::pair<std::string, std::string>, double>& targets() {
    static std::map<std::pair<std::string, std::string>, double> table;
    return table;
}

std::vector<std::string>& notes() {
    static std::vector<std::string> lines;
    return lines;
}

// Splits "group/impl/rest" into group "group/rest" and impl.
Result split(const std::string& name, double ns) {
    const auto first = name.find('/');
    if (first == std::string::npos)
        return {name, "ours", ns};
    const auto second = name.find('/', first + 1);
    std::string impl = name.substr(first + 1, second == std::string::npos ? std::string::npos
                                                                           : second - first - 1);
    std::string group = name.substr(0, first);
    if (second != std::string::npos)
        group += name.substr(second);
    return {group, impl, ns};
}

class CollectingReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred || run.run_type != Run::RT_Iteration)
                continue;
            const double ns = run.GetAdjustedRealTime() *
                              benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                              benchmark::GetTimeUnitMultiplier(run.time_unit);
            results.push_back(split(run.benchmark_name(), ns));
        }
    }
    std::vector<Result> results;
};

double targetFor(const std::string& group, const std::string& peer) {
    for (const auto& [key, ratio] : targets()) {
        if (key.second == peer && group.compare(0, key.first.size(), key.first) == 0)
            return ratio;
    }
    return 0;
}

void printTable(const std::vector<Result>& results, FILE* to) {
    std::fprintf(to, "\n| benchmark | peer | ours (ns) | peer (ns) | ours/peer | target |\n"
                     "|---|---|---:|---:|---:|---|\n");
    for (const Result& ours : results) {
        if (ours.impl != "ours")
            continue;
        for (const Result& peer : results) {
            if (peer.group != ours.group || peer.impl == "ours")
                continue;
            const double ratio = ours.nsPerIteration / peer.nsPerIteration;
            const double target = targetFor(ours.group, peer.impl);
            char targetText[64] = "";
            if (target > 0)
                std::snprintf(targetText, sizeof targetText, "<= %.2f %s", target,
                              ratio <= target ? "met" : "MISSED");
            // Three decimals, or three significant digits for a ratio that would print as 0.000.
            std::fprintf(to, ratio >= 0.0005 ? "| %s | %s | %.1f | %.1f | %.3f | %s |\n"
                                             : "| %s | %s | %.1f | %.1f | %.3g | %s |\n",
                         ours.group.c_str(),
                         peer.impl.c_str(), ours.nsPerIteration, peer.nsPerIteration, ratio,
                         targetText);
        }
    }
    for (const std::string& line : notes())
        std::fprintf(to, "\n%s\n", line.c_str());
}

}  // namespace

Target::Target(const char* group, const char* peer, double ratio) {
    targets()[{group, peer}] = ratio;
}

void note(const std::string& line) { notes().push_back(line); }

}  // namespace vantabench

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    vantabench::CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    vantabench::printTable(reporter.results, stdout);
    if (const char* path = std::getenv("VANTA_BENCH_RESULTS")) {
        if (FILE* file = std::fopen(path, "a")) {
            std::fprintf(file, "\n## %s\n", argv[0]);
            vantabench::printTable(reporter.results, file);
            std::fclose(file);
        }
    }
    return 0;
}
