// Benchmarks of SpinLock and Semaphore against the standard mutexes and POSIX semaphores.
#include <vanta/locks.h>
#include <vanta/waiting.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <pthread.h>
#include <sched.h>
#include <semaphore.h>

#include <atomic>
#include <mutex>
#include <semaphore>
#include <thread>

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

// ---- Two threads, each 5 million lock / increment / unlock ----

constexpr long kContendedLoops = 5000000;

template <class Lock>
void contended(benchmark::State& state, Lock& lock) {
    for (auto _ : state) {
        long counter = 0;
        auto work = [&] {
            for (long i = 0; i < kContendedLoops; ++i) {
                lock.lock();
                ++counter;
                lock.unlock();
            }
        };
        std::thread other(work);
        work();
        other.join();
        if (counter != 2 * kContendedLoops)
            state.SkipWithError("lost increments");
    }
}

void contendedOurs(benchmark::State& state) {
    vanta::SpinLock lock;
    contended(state, lock);
}
BENCHMARK(contendedOurs)->Name("contended/ours")->Unit(benchmark::kMillisecond)->UseRealTime()
    ->Iterations(3);

void contendedMutex(benchmark::State& state) {
    std::mutex mutex;
    contended(state, mutex);
}
BENCHMARK(contendedMutex)->Name("contended/std::mutex")->Unit(benchmark::kMillisecond)
    ->UseRealTime()->Iterations(3);

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
