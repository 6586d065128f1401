// Start-up of a program that links only the core library (Qt Core and Gui) against the same
// program linking the widgets library too (and so Qt Widgets): the time from start to exit, and
// the resident memory each reaches.
#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <string>

extern char** environ;

namespace {

long gMaxRssKb[2] = {0, 0};

// Starts program, waits for it, and returns its wall time in seconds (-1 when it failed); keeps
// the largest resident size it reached.
double runOnce(const char* program, long* maxRssKb) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    char* argv[] = {const_cast<char*>(program), nullptr};
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    int status = -1;
    struct rusage usage {};
    if (posix_spawn(&pid, program, &files, nullptr, argv, environ) == 0)
        wait4(pid, &status, 0, &usage);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    posix_spawn_file_actions_destroy(&files);
    *maxRssKb = std::max(*maxRssKb, usage.ru_maxrss);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? elapsed.count() : -1;
}

void startProgram(benchmark::State& state, const char* program, long* maxRssKb) {
    for (auto _ : state) {
        const double seconds = runOnce(program, maxRssKb);
        if (seconds < 0)
            return state.SkipWithError("the program failed");
        state.SetIterationTime(seconds);
    }
}

void coreOnly(benchmark::State& state) { startProgram(state, VANTA_LOAD_CORE, &gMaxRssKb[0]); }
void withWidgets(benchmark::State& state) { startProgram(state, VANTA_LOAD_WIDGETS, &gMaxRssKb[1]); }

}  // namespace

VANTA_BENCH_TARGET("start-and-exit", "with-widgets", 1.0);
BENCHMARK(coreOnly)->Name("start-and-exit/ours")->UseManualTime()->Iterations(200);
BENCHMARK(withWidgets)->Name("start-and-exit/with-widgets")->UseManualTime()->Iterations(200);

// Runs after both rows (benchmarks run in registration order) and records the memory figures.
static void memoryNote(benchmark::State& state) {
    for (auto _ : state) {
    }
    vantabench::note("Resident memory at exit (largest of the runs): core only " +
                     std::to_string(gMaxRssKb[0]) + " kB, with the widgets library " +
                     std::to_string(gMaxRssKb[1]) + " kB.");
}
BENCHMARK(memoryNote)->Name("zz-memory-note")->Iterations(1);
