// The vanta tool over a file of coordinates: one process reading `vanta latlng -`, against the
// shell loop a user would otherwise write, one `vanta latlng TEXT` process per line. Both rows are
// the time per coordinate, start-up included.
#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr int kLines = 100000;
const char* const kSamples[] = {"37.7749N 122.4194W", "-33.8688/151.2093", "12,5N 45,3E",
                                "37°46'30\"N 122°25'10\"W"};

// A file of kLines coordinates, written once per run.
const std::string& coordinateFile() {
    static const std::string path = [] {
        char name[] = "/tmp/vanta-bench-coords-XXXXXX";
        const int fd = mkstemp(name);
        FILE* file = fdopen(fd, "w");
        for (int i = 0; i < kLines; ++i)
            std::fprintf(file, "%s\n", kSamples[i % 4]);
        std::fclose(file);
        std::atexit([] { unlink(coordinateFile().c_str()); });
        return std::string(name);
    }();
    return path;
}

// Runs the tool with stdin from `input`, its output discarded; the wall time in seconds, or -1
// when it did not exit 0.
double runTool(std::vector<const char*> args, const char* input) {
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, input, O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&files, 2, "/dev/null", O_WRONLY, 0);
    args.insert(args.begin(), VANTA_TOOL);
    args.push_back(nullptr);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = 0;
    int status = -1;
    if (posix_spawn(&pid, VANTA_TOOL, &files, nullptr, const_cast<char**>(args.data()), environ) == 0)
        waitpid(pid, &status, 0);
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    posix_spawn_file_actions_destroy(&files);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? elapsed.count() : -1;
}

void batchOfLines(benchmark::State& state) {
    const std::string& input = coordinateFile();
    for (auto _ : state) {
        const double seconds = runTool({"latlng", "-"}, input.c_str());
        if (seconds < 0)
            return state.SkipWithError("vanta latlng - failed");
        state.SetIterationTime(seconds / kLines);
    }
}

// Each iteration starts kProcesses processes and reports the time of one, so both rows run the
// same number of iterations and share one name suffix.
constexpr int kProcesses = 100;

void processPerLine(benchmark::State& state) {
    for (auto _ : state) {
        double total = 0;
        for (int i = 0; i < kProcesses; ++i) {
            const double seconds = runTool({"latlng", kSamples[i % 4]}, "/dev/null");
            if (seconds < 0)
                return state.SkipWithError("vanta latlng TEXT failed");
            total += seconds;
        }
        state.SetIterationTime(total / kProcesses);
    }
}

}  // namespace

VANTA_BENCH_TARGET("latlng-per-line", "process-per-line", 0.01);
BENCHMARK(batchOfLines)->Name("latlng-per-line/ours")->UseManualTime()->Iterations(3);
BENCHMARK(processPerLine)->Name("latlng-per-line/process-per-line")->UseManualTime()->Iterations(3);
