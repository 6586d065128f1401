// Tests of Semaphore, Conditional and Barrier.
#include <vanta/waiting.h>

#include "threadsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace vanta;
using namespace vantatest;
using Clock = std::chrono::steady_clock;

TEST(Semaphore, CountsUnitsWithinItsLimitsAndRefusesWhenEmpty) {
    Semaphore sem(2);
    EXPECT_EQ(sem.trywait(), 0);
    EXPECT_EQ(sem.trywait(), 0);
    EXPECT_EQ(sem.trywait(), -1);
    EXPECT_EQ(sem.post(), 0);
    EXPECT_EQ(sem.trywait(0), -1) << "a zero time-out makes no attempt, even with a unit there";
    EXPECT_EQ(sem.trywait(5), 0);
    const auto start = Clock::now();
    EXPECT_EQ(sem.trywait(30), -1);
    EXPECT_GE(msSince(start), 30) << "thirty attempts sleep at least a millisecond each";

    for (long bad : {-1L, Semaphore::kMaxCount + 1}) {
        Semaphore unusable(bad);
        for (int result : {unusable.post(), unusable.wait(), unusable.trywait(),
                           unusable.trywait(-5)})
            EXPECT_EQ(result, -1) << bad;
    }
    Semaphore full(Semaphore::kMaxCount);
    EXPECT_EQ(full.post(), -1);
    EXPECT_EQ(full.trywait(), 0);
    EXPECT_EQ(full.post(), 0);
}

TEST(Semaphore, WaitsTakeAUnitPostedLaterAndNoneIsLostUnderContention) {
    // A unit already there is taken by the shortest time-out.
    Semaphore ready(1);
    EXPECT_EQ(ready.trywait(1), 0);
    // trywait(-5) waits like wait(); trywait(n) takes a unit posted while it polls.
    for (long timeout : {-5L, 10000L}) {
        Semaphore sem(0);
        std::atomic<int> result{1};
        runThreads(2, [&](int i) {
            if (i == 0)
                result = sem.trywait(timeout);
            else
                std::this_thread::sleep_for(std::chrono::milliseconds(20)), sem.post();
        });
        EXPECT_EQ(result.load(), 0) << timeout;
        EXPECT_EQ(sem.trywait(), -1) << timeout;
    }
    // Producers and consumers on both sides of the spin-then-sleep path: every call succeeds,
    // whichever phase of the wait the unit arrives in.
    Semaphore sem(0);
    std::atomic<int> failures{0};
    runThreads(4, [&](int i) {
        for (int n = 0; n < 20000; ++n)
            failures += (i % 2 ? sem.post() : sem.wait()) != 0;
    });
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(sem.trywait(), -1);
}

TEST(Semaphore, PostWakesTheOneSleepingWaiter) {
    // Long enough after wait() began that the waiter has stopped polling and sleeps.
    Semaphore sem(0);
    std::atomic<bool> entered{false};
    runThreads(2, [&](int i) {
        if (i == 0) {
            entered = true;
            EXPECT_EQ(sem.wait(), 0);
            return;
        }
        waitUntil([&] { return entered.load(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(sem.post(), 0);
    });
}

TEST(Conditional, TimedWaitReleasesTheLockAndRetakesItAtDepth) {
    SpinLock lock;
    Conditional cond;
    EXPECT_EQ(cond.wait(lock), -1) << "the caller must hold the lock";
    EXPECT_EQ(cond.timedwait(lock, 10000), -1);
    lock.lock();
    lock.lock();
    EXPECT_EQ(cond.timedwait(lock, 0), -1);
    EXPECT_EQ(lock.depth(), 2);

    std::atomic<int> otherTook{-1};
    std::thread other([&] {
        waitUntil([&] { return lock.trylock() == 0; });
        otherTook = 0;
        lock.unlock();
    });
    const auto start = Clock::now();
    EXPECT_EQ(cond.timedwait(lock, 100), -1);
    EXPECT_GE(msSince(start), 99);
    other.join();
    EXPECT_EQ(otherTook.load(), 0) << "the lock must be free while its holder waits";
    EXPECT_EQ(lock.depth(), 2);
    lock.unlock();
    lock.unlock();
    EXPECT_EQ(lock.unlock(), -1);
}

TEST(Conditional, SignalAloneWakesASleepingWaiter) {
    SpinLock lock;
    Conditional cond;
    std::atomic<int> result{1};
    std::atomic<bool> entered{false};
    runThreads(2, [&](int i) {
        if (i == 0) {
            CSMutex guard(lock);
            entered = true;
            result = cond.timedwait(lock, 5000);  // -1 only if the signal never woke it
            return;
        }
        // Once the lock is free again the waiter is inside its wait; give it time to sleep.
        waitUntil([&] { return entered.load() && lock.trylock() == 0; });
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        cond.signal();
        lock.unlock();
    });
    EXPECT_EQ(result.load(), 0);
}

TEST(Conditional, SignalAndBroadcastWakeWaiters) {
    // A hand-off queue: every item produced is consumed exactly once.
    SpinLock lock;
    Conditional cond;
    long items = 0, consumed = 0;
    bool closed = false;
    constexpr int kItems = 20000;
    runThreads(4, [&](int i) {
        CSMutex guard(lock);
        if (i == 0) {
            for (int n = 0; n < kItems; ++n) {
                ++items;
                cond.signal();
                lock.unlock();
                lock.lock();
            }
            closed = true;
            cond.broadcast();
            return;
        }
        for (;;) {
            while (items == 0 && !closed)
                EXPECT_EQ(i == 1 ? cond.timedwait(lock, 60000) : cond.wait(lock), 0);
            if (items == 0)
                return;
            --items;
            ++consumed;
        }
    });
    EXPECT_EQ(consumed, kItems);
}

TEST(Barrier, KeepsEveryThreadInTheSameRound) {
    constexpr int kRounds = 1000;
    for (int total : {2, 3, 5, 8}) {
        Barrier barrier(total);
        std::atomic<int> arrived{0}, faults{0};
        runThreads(total, [&](int) {
            for (int round = 0; round < kRounds; ++round) {
                ++arrived;
                if (barrier.enter() != 0)
                    ++faults;
                // Everyone has arrived for this round, and nobody can be past the next one.
                const int now = arrived.load();
                if (now < total * (round + 1) || now > total * (round + 2))
                    ++faults;
            }
        });
        EXPECT_EQ(faults.load(), 0) << total << " threads";
        EXPECT_EQ(barrier.rounds(), static_cast<unsigned long>(kRounds)) << total << " threads";
    }
    Barrier single(1);  // never blocks
    EXPECT_EQ(single.enter(), 0);
    EXPECT_EQ(single.enter(), 0);
    EXPECT_EQ(single.rounds(), 2ul);
    for (int bad : {0, -3})
        EXPECT_EQ(Barrier(bad).enter(), -1) << bad;
}
