// Tests of SpinLock, CSMutex, the process-wide locks, TestThenAdd and System::sleep.
#include <vanta/locks.h>
#include <vanta/locks_p.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

using namespace vanta;
using Clock = std::chrono::steady_clock;

namespace {

long elapsedMs(Clock::time_point since) {
    return long(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - since).count());
}

// Runs body on another thread and waits for it, bounded.
template <class F>
void onOtherThread(F body) {
    std::atomic<bool> done{false};
    std::thread t([&] {
        body();
        done = true;
    });
    ASSERT_TRUE(vantatest::waitUntil([&] { return done.load(); }));
    t.join();
}

}  // namespace

TEST(SpinLock, OwnerIdentityIsTheCallersPthread) {
    auto check = [] { return pthread_equal(currentThread(), pthread_self()) != 0; };
    EXPECT_TRUE(check());
    bool other = false;
    onOtherThread([&] { other = check(); });
    EXPECT_TRUE(other);
}

TEST(SpinLock, RecursionCountsEveryLevel) {
    SpinLock lock;
    for (int depth = 1; depth <= 5; ++depth) {
        ASSERT_EQ(lock.lock(), 0);
        EXPECT_EQ(lock.depth(), depth);
    }
    for (int depth = 4; depth >= 0; --depth) {
        ASSERT_EQ(lock.unlock(), 0);
        EXPECT_EQ(lock.depth(), depth);
    }
    EXPECT_EQ(lock.unlock(), -1) << "unlocking a free lock must fail";
    int other = 0;
    onOtherThread([&] {
        other = lock.trylock();
        if (other == 0)
            lock.unlock();
    });
    EXPECT_EQ(other, 0) << "a fully released lock must be free for another thread";
}

TEST(SpinLock, NonOwnerCannotUnlockOrEnter) {
    SpinLock lock;
    ASSERT_EQ(lock.lock(), 0);
    int unlockResult = 0, tryResult = 0, zeroResult = 0;
    onOtherThread([&] {
        unlockResult = lock.unlock();
        tryResult = lock.trylock();
        zeroResult = lock.lock(0);
    });
    EXPECT_EQ(unlockResult, -1);
    EXPECT_EQ(tryResult, -1);
    EXPECT_EQ(zeroResult, -1);
    EXPECT_TRUE(lock.isOwnedByCaller());
    EXPECT_EQ(lock.depth(), 1);
    EXPECT_EQ(lock.unlock(), 0);
}

TEST(SpinLock, TimedLockWaitsThenGivesUp) {
    SpinLock lock;
    ASSERT_EQ(lock.lock(), 0);
    int result = 0;
    long waited = 0;
    onOtherThread([&] {
        const auto start = Clock::now();
        result = lock.lock(80);
        waited = elapsedMs(start);
    });
    EXPECT_EQ(result, -1);
    EXPECT_GE(waited, 75) << "the time-out must really wait";
    EXPECT_LT(waited, 5000) << "the time-out must really give up";
    lock.unlock();
}

TEST(SpinLock, TimedLockSucceedsWhenReleasedInTime) {
    SpinLock lock;
    ASSERT_EQ(lock.lock(), 0);
    std::atomic<int> result{1};
    std::atomic<bool> waiting{false};
    std::thread t([&] {
        waiting = true;
        result = lock.lock(10000);
        if (result == 0)
            lock.unlock();
    });
    ASSERT_TRUE(vantatest::waitUntil([&] { return waiting.load(); }));
    System::sleep(20);
    lock.unlock();
    ASSERT_TRUE(vantatest::waitUntil([&] { return result.load() != 1; }));
    t.join();
    EXPECT_EQ(result.load(), 0);
}

TEST(SpinLock, ForceUnlockHandsOverALevel) {
    SpinLock lock;
    onOtherThread([&] { ASSERT_EQ(lock.lock(), 0); });
    // The other thread has exited still holding the lock; release it from here.
    EXPECT_EQ(lock.trylock(), -1);
    lock.forceUnlock();
    int other = -1;
    onOtherThread([&] {
        other = lock.trylock();
        if (other == 0)
            lock.unlock();
    });
    EXPECT_EQ(other, 0);
}

TEST(SpinLock, StealOwnershipKeepsDepth) {
    SpinLock lock;
    onOtherThread([&] {
        lock.lock();
        lock.lock();
    });
    lock.stealOwnership();
    EXPECT_EQ(lock.depth(), 2);
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(lock.unlock(), -1);
}

TEST(SpinLock, RecursiveIncrementsFromManyThreadsAreExact) {
    for (unsigned long spin : {0ul, 100ul}) {
        SpinLock lock(spin);
        long counter = 0;
        constexpr int kThreads = 8, kIterations = 20000;
        std::vector<std::thread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < kIterations; ++n) {
                    CSMutex outer(lock);
                    CSMutex inner(lock);
                    ++counter;
                }
            });
        for (auto& t : threads)
            t.join();
        EXPECT_EQ(counter, long(kThreads) * kIterations) << "spin count " << spin;
    }
}

TEST(ProcessLocks, RacingFirstUseCreatesExactlyOneLock) {
    // The library never takes BlockMainLock itself, so here it is still uncreated.
    constexpr int kThreads = 8;
    std::atomic<int> ready{0};
    std::atomic<bool> go{false};
    std::vector<SpinLock*> seen(kThreads, nullptr);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            ++ready;
            while (!go.load())
                std::this_thread::yield();
            seen[i] = BlockMainLock::gGlobalLock();
            BlockMainLock::lock();
            BlockMainLock::unlock();
        });
    ASSERT_TRUE(vantatest::waitUntil([&] { return ready.load() == kThreads; }));
    go = true;
    for (auto& t : threads)
        t.join();
    ASSERT_NE(seen[0], nullptr);
    for (SpinLock* lock : seen)
        EXPECT_EQ(lock, seen[0]);
    EXPECT_EQ(BlockMainLock::gGlobalLock(), seen[0]);

    BlockMainLock::shutdown();
    EXPECT_EQ(BlockMainLock::gGlobalLock(), nullptr) << "a shut-down lock is never re-created";
}

TEST(ProcessLocks, GlobalLockIsRecursiveAndExclusive) {
    ASSERT_EQ(GlobalLock::lock(), 0);
    ASSERT_EQ(GlobalLock::lock(), 0);
    int other = 0;
    onOtherThread([&] { other = GlobalLock::trylock(); });
    EXPECT_EQ(other, -1);
    EXPECT_EQ(GlobalLock::unlock(), 0);
    EXPECT_EQ(GlobalLock::unlock(), 0);
    EXPECT_EQ(GlobalLock::unlock(), -1);
}

TEST(TestThenAdd, ReturnsPreviousValueAndIsAtomic) {
    long volatile value = 5;
    EXPECT_EQ(TestThenAdd(&value, 3), 5);
    EXPECT_EQ(TestThenAdd(&value, -10), 8);
    EXPECT_EQ(value, -2);

    long volatile shared = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int n = 0; n < 50000; ++n)
                TestThenAdd(&shared, 1);
        });
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(shared, 200000);
}

TEST(System, SleepWaitsAboutTheRequestedTime) {
    const auto start = Clock::now();
    EXPECT_EQ(System::sleep(30), 0);
    EXPECT_GE(elapsedMs(start), 29);
    EXPECT_EQ(System::sleep(0), 0);
    EXPECT_GE(System::getNumProcessors(), 1);
}
