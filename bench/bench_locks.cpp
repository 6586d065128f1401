// Benchmarks of SpinLock and Semaphore against the standard mutexes and POSIX semaphores.
#include <vanta/locks.h>
#include <vanta/waiting.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

VANTA_BENCH_TARGET("uncontended", "std::mutex", 1.0);
VANTA_BENCH_TARGET("nested", "std::recursive_mutex", 0.5);
VANTA_BENCH_TARGET("contended", "std::mutex", 1.2);
VANTA_BENCH_TARGET("pingpong", "sem_t", 1.0);

// ---- Uncontended lock + unlock ----

void uncontendedOurs(benchmark::State& state) {
    vanta::SpinLock lock;
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
    }
}
BENCHMARK(uncontendedOurs)->Name("uncontended/ours");

void uncontendedMutex(benchmark::State& state) {
    std::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(uncontendedMutex)->Name("uncontended/std::mutex");

// ---- Re-lock by the owner, one level below an outer hold ----

void nestedOurs(benchmark::State& state) {
    vanta::SpinLock lock;
    lock.lock();
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
    }
    lock.unlock();
}
BENCHMARK(nestedOurs)->Name("nested/ours");

void nestedRecursiveMutex(benchmark::State& state) {
    std::recursive_mutex mutex;
    mutex.lock();
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
    mutex.unlock();
}
BENCHMARK(nestedRecursiveMutex)->Name("nested/std::recursive_mutex");

// ---- Contended: 2 to 16 threads share one lock, spin counts 0 and 4000 ----
// Each run makes kContendedOps lock / increment / unlock steps in all, split among the threads,
// so rows with more threads than processors show what waiting costs once owners are preempted.
// A shared machine's speed drifts over seconds, so every row runs SpinLock and std::mutex in
// turn (which goes first alternates) and the rows take turns too: kRounds rounds of all rows,
// spread over the whole measurement. Each figure is the median of its runs, not the least: the
// least run of a contended row is the one in which other programs kept the threads from ever
// running at the same time, which measures no contention at all.

constexpr long kContendedOps = 1000000;
constexpr int kRounds = 31;
constexpr int kContendedThreads[] = {2, 4, 8, 16};
constexpr unsigned long kContendedSpins[] = {0, 4000};

// Seconds for one run of `threads` threads taking `lock`; 0 when an increment was lost.
template <class Lock>
double contendedRun(Lock& lock, int threads) {
    const long perThread = kContendedOps / threads;
    long counter = 0;
    auto work = [&] {
        for (long i = 0; i < perThread; ++i) {
            lock.lock();
            ++counter;
            lock.unlock();
        }
    };
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> others;
    for (int t = 1; t < threads; ++t)
        others.emplace_back(work);
    work();
    for (std::thread& t : others)
        t.join();
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    return counter == threads * perThread ? seconds.count() : 0;
}

// The median run of SpinLock and of std::mutex for each (threads, spin count), measured when the
// first contended row is benchmarked. A lost increment (a run of 0) fails the figure.
using ContendedKey = std::pair<int, unsigned long>;
const std::map<ContendedKey, std::pair<double, double>>& contendedSeconds() {
    static const auto measured = [] {
        std::map<ContendedKey, std::pair<std::vector<double>, std::vector<double>>> runs;
        for (int round = 0; round < kRounds; ++round) {
            for (int threads : kContendedThreads) {
                for (unsigned long spin : kContendedSpins) {
                    auto& [ours, mutex] = runs[{threads, spin}];
                    for (int turn = 0; turn < 2; ++turn) {
                        if ((round + turn) % 2 == 0) {
                            vanta::SpinLock lock(spin);
                            ours.push_back(contendedRun(lock, threads));
                        } else {
                            std::mutex lock;
                            mutex.push_back(contendedRun(lock, threads));
                        }
                    }
                }
            }
        }
        auto median = [](std::vector<double> v) {
            std::sort(v.begin(), v.end());
            return v.front() <= 0 ? 0 : v[v.size() / 2];
        };
        std::map<ContendedKey, std::pair<double, double>> figures;
        for (const auto& [key, both] : runs)
            figures[key] = {median(both.first), median(both.second)};
        return figures;
    }();
    return measured;
}

const bool contendedRegistered = [] {
    for (int threads : kContendedThreads) {
        for (unsigned long spin : kContendedSpins) {
            for (bool isOurs : {true, false}) {
                const std::string name = std::string("contended/") +
                                         (isOurs ? "ours" : "std::mutex") + "/threads:" +
                                         std::to_string(threads) + "/spin:" + std::to_string(spin);
                benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
                    const auto [ours, mutex] = contendedSeconds().at({threads, spin});
                    const double seconds = isOurs ? ours : mutex;
                    for (auto _ : state) {
                        if (seconds <= 0)
                            return state.SkipWithError("lost increments");
                        state.SetIterationTime(seconds);
                    }
                    state.SetItemsProcessed(state.iterations() * kContendedOps);
                })->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
            }
        }
    }
    return true;
}();

// ---- Semaphore ping-pong between two threads on different processors ----

void pinTo(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu % std::max(1u, std::thread::hardware_concurrency()), &set);
    pthread_setaffinity_np(pthread_self(), sizeof set, &set);
}

// One iteration is one round trip: post to the partner, wait for its answer.
template <class Sem, class Post, class Wait>
void pingpong(benchmark::State& state, Sem& ping, Sem& pong, Post post, Wait wait) {
    cpu_set_t saved;
    pthread_getaffinity_np(pthread_self(), sizeof saved, &saved);
    pinTo(0);
    std::atomic<bool> stop{false};
    std::thread partner([&] {
        pinTo(1);
        for (;;) {
            wait(ping);
            if (stop.load(std::memory_order_relaxed))
                return;
            post(pong);
        }
    });
    for (auto _ : state) {
        post(ping);
        wait(pong);
    }
    stop = true;
    post(ping);
    partner.join();
    pthread_setaffinity_np(pthread_self(), sizeof saved, &saved);
}

void pingpongOurs(benchmark::State& state) {
    vanta::Semaphore ping(0), pong(0);
    pingpong(state, ping, pong, [](vanta::Semaphore& s) { s.post(); },
             [](vanta::Semaphore& s) { s.wait(); });
}
BENCHMARK(pingpongOurs)->Name("pingpong/ours")->UseRealTime();

void pingpongSem(benchmark::State& state) {
    sem_t ping, pong;
    sem_init(&ping, 0, 0);
    sem_init(&pong, 0, 0);
    pingpong(state, ping, pong, [](sem_t& s) { sem_post(&s); }, [](sem_t& s) { sem_wait(&s); });
    sem_destroy(&ping);
    sem_destroy(&pong);
}
BENCHMARK(pingpongSem)->Name("pingpong/sem_t")->UseRealTime();

void pingpongBinary(benchmark::State& state) {
    std::binary_semaphore ping(0), pong(0);
    pingpong(state, ping, pong, [](std::binary_semaphore& s) { s.release(); },
             [](std::binary_semaphore& s) { s.acquire(); });
}
BENCHMARK(pingpongBinary)->Name("pingpong/std::binary_semaphore")->UseRealTime();

// ---- Uncontended again, once other threads exist ----
// The C library takes a mutex with plain instructions while the process has one thread, and so
// does SpinLock; the benchmarks above ran before any thread was started. These run after the
// ping-pong threads, where both must use locked instructions.

void threadedOurs(benchmark::State& state) {
    vanta::SpinLock lock;
    for (auto _ : state) {
        lock.lock();
        lock.unlock();
    }
}
BENCHMARK(threadedOurs)->Name("threaded/ours");

void threadedMutex(benchmark::State& state) {
    std::mutex mutex;
    for (auto _ : state) {
        mutex.lock();
        mutex.unlock();
    }
}
BENCHMARK(threadedMutex)->Name("threaded/std::mutex");

}  // namespace
