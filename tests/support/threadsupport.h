// Thread helpers for the concurrency suites: every join is bounded, so a deadlock aborts the run
// with a message instead of hanging it.
#pragma once

#include "testsupport.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace vantatest {

// Runs body(i) for i in [0, count) on threads of their own and joins them; aborts the run when
// they have not all returned within limit.
template <class F>
void runThreads(int count, F body, std::chrono::milliseconds limit = std::chrono::seconds(120)) {
    std::atomic<int> done{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] { body(i), ++done; });
    if (!waitUntil([&] { return done.load() == count; }, limit)) {
        std::fprintf(stderr, "deadlock: %d of %d threads still blocked\n", count - done.load(), count);
        std::abort();
    }
    for (auto& t : threads)
        t.join();
}

// Runs body on one other thread and waits for it, bounded.
template <class F>
void onOtherThread(F body) {
    runThreads(1, [&](int) { body(); });
}

inline long msSince(std::chrono::steady_clock::time_point start) {
    using namespace std::chrono;
    return long(duration_cast<milliseconds>(steady_clock::now() - start).count());
}

}  // namespace vantatest
