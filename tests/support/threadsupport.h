// Thread helpers for the concurrency suites: every join is bounded, so a deadlock aborts the test
// within 10 s with a message instead of hanging until the ctest time-out.
#pragma once

#include "testsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

namespace vantatest {

// The longest a test waits for its threads. Blocked threads cannot be joined or abandoned safely
// (they use the test's locals), so the test process aborts instead.
constexpr std::chrono::milliseconds kDeadlockLimit = std::chrono::seconds(10);

// Runs body(i) for i in [0, count) on threads of their own and joins them; aborts the test when
// they have not all returned within limit.
template <class F>
void runThreads(int count, F body, std::chrono::milliseconds limit = kDeadlockLimit) {
    std::atomic<int> done{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back([&, i] { body(i), ++done; });
    if (!waitUntil([&] { return done.load() == count; }, limit)) {
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        std::fprintf(stderr, "deadlock in %s.%s: %d of %d threads still blocked after %lld ms\n",
                     test ? test->test_suite_name() : "?", test ? test->name() : "?",
                     count - done.load(), count, static_cast<long long>(limit.count()));
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
