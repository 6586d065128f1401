// Tests of SpinLock, CSMutex, the process-wide locks, TestThenAdd and System::sleep.
#include <vanta/locks.h>
#include <vanta/locks_p.h>
#include <vanta/system.h>

#include "threadsupport.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

using namespace vanta;
using namespace vantatest;
using Clock = std::chrono::steady_clock;

namespace {

// What another thread gets from trylock (releasing it again when taken).
int tryFromOtherThread(SpinLock& lock) {
    int result = 1;
    onOtherThread([&] {
        result = lock.trylock();
        if (result == 0)
            lock.unlock();
    });
    return result;
}

// The scheduler state of one of this process's threads, as the kernel reports it: 'R' while it
// runs or could run (a busy-polling thread), 'S' while it sleeps in a system call.
char threadState(pid_t tid) {
    std::ifstream stat("/proc/self/task/" + std::to_string(tid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    const auto end = text.rfind(')');  // the thread's name may hold any character
    return end == std::string::npos || end + 2 >= text.size() ? '?' : text[end + 2];
}

}  // namespace

TEST(SpinLock, RecursionCountsEveryLevelAndOnlyTheOwnerMayUnlock) {
    SpinLock lock;
    // Until this test starts a thread its process may have only one, where locks take their
    // plain path: trylock takes a free lock there too.
    ASSERT_EQ(lock.trylock(), 0);
    ASSERT_EQ(lock.unlock(), 0);
    for (int depth = 1; depth <= 5; ++depth) {
        ASSERT_EQ(lock.lock(), 0);
        EXPECT_EQ(lock.depth(), depth);
    }
    int unlockResult = 0, zeroResult = 0;
    onOtherThread([&] {
        unlockResult = lock.unlock();
        zeroResult = lock.lock(0);
    });
    EXPECT_EQ(unlockResult, -1);
    EXPECT_EQ(zeroResult, -1);
    EXPECT_EQ(tryFromOtherThread(lock), -1);
    EXPECT_TRUE(lock.isOwnedByCaller());
    for (int depth = 4; depth >= 0; --depth) {
        ASSERT_EQ(lock.unlock(), 0);
        EXPECT_EQ(lock.depth(), depth);
    }
    EXPECT_EQ(lock.unlock(), -1) << "unlocking a free lock must fail";
    EXPECT_EQ(tryFromOtherThread(lock), 0) << "a fully released lock is free for another thread";
}

TEST(SpinLock, TimedLockGivesUpAfterItsTimeOrTakesALockReleasedInTime) {
    SpinLock lock;
    ASSERT_EQ(lock.lock(), 0);
    int result = 0;
    long waited = 0;
    onOtherThread([&] {
        const auto start = Clock::now();
        result = lock.lock(80);
        waited = msSince(start);
    });
    EXPECT_EQ(result, -1);
    EXPECT_GE(waited, 75) << "the time-out must really wait";
    EXPECT_LT(waited, 5000) << "the time-out must really give up";

    std::atomic<int> late{1};
    std::thread t([&] {
        late = 2;
        late = lock.lock(10000);
        if (late == 0)
            lock.unlock();
    });
    ASSERT_TRUE(waitUntil([&] { return late.load() == 2; }));
    System::sleep(20);
    lock.unlock();
    ASSERT_TRUE(waitUntil([&] { return late.load() != 2; }));
    t.join();
    EXPECT_EQ(late.load(), 0);
}

TEST(SpinLock, ATimeOutHoldsFromTheFirstPollWhateverTheSpinCount) {
    // Four billion polls last well over a second on any processor: the deadline must end the
    // polling, not the budget. A budget of one poll runs out first: the waiter must then sleep,
    // not take the lock. The bound is generous, for a loaded machine.
    for (unsigned long spin : {1ul, 4000000000ul}) {
        SpinLock lock(spin);
        ASSERT_EQ(lock.lock(), 0);
        for (unsigned int timeoutMs : {0u, 1u, 50u}) {
            int result = 0;
            long waited = 0;
            onOtherThread([&] {
                const auto start = Clock::now();
                result = lock.lock(timeoutMs);
                waited = msSince(start);
            });
            EXPECT_EQ(result, -1) << "spin " << spin << ", time-out " << timeoutMs;
            EXPECT_GE(waited, long(timeoutMs) - 1) << "spin " << spin << ", time-out " << timeoutMs;
            EXPECT_LT(waited, long(timeoutMs) + 1000) << "spin " << spin << ", time-out " << timeoutMs;
        }
        EXPECT_EQ(lock.depth(), 1) << "a waiter that timed out changes nothing";
        EXPECT_EQ(lock.unlock(), 0);
    }
}

TEST(SpinLock, AWaiterWithAHugeSpinCountSoonSleepsInsteadOfPolling) {
    // Four billion polls would keep the waiter running for well over the ten seconds the
    // kernel is given here to report it asleep.
    SpinLock lock(4000000000ul);
    ASSERT_EQ(lock.lock(), 0);
    std::atomic<pid_t> tid{0};
    std::atomic<int> result{1};
    std::thread waiter([&] {
        tid = gettid();
        result = lock.lock();
        if (result == 0)
            lock.unlock();
    });
    ASSERT_TRUE(waitUntil([&] { return tid.load() != 0; }));
    const bool asleep = waitUntil([&] { return threadState(tid) == 'S'; });
    lock.unlock();
    waiter.join();
    EXPECT_TRUE(asleep) << "the waiter was still polling";
    EXPECT_EQ(result.load(), 0);
}

TEST(SpinLock, AWaiterWithAHugeSpinCountTakesALockReleasedLater) {
    // The waiter may stop polling long before the release; it must still take the lock then,
    // not sleep on or spend its budget first.
    SpinLock lock(4000000000ul);
    std::atomic<int> stage{0};
    std::atomic<bool> taken{false};
    bool takenInTime = false;
    runThreads(2, [&](int i) {
        if (i == 0) {
            lock.lock();
            stage = 1;
            while (stage.load() != 2)
                std::this_thread::yield();
            System::sleep(20);
            lock.unlock();
            takenInTime = waitUntil([&] { return taken.load(); }, std::chrono::milliseconds(500));
        } else {
            while (stage.load() != 1)
                std::this_thread::yield();
            stage = 2;
            lock.lock();
            taken = true;
            lock.unlock();
        }
    });
    EXPECT_TRUE(takenInTime);
}

TEST(SpinLockDeathTest, WithOneThreadATakenRegionIsNotTakenAgain) {
    // A fresh process has one thread, where the region is taken with plain loads and stores; a
    // pool holds only the region, so the lock has no owner and lock() must go by the region.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SpinLock lock(4000);
            SpinLockInline::enterRegion(lock);
            const bool refused = lock.trylock() == -1 && lock.lock(1) == -1;
            SpinLockInline::exitRegion(lock);
            std::_Exit(refused && lock.trylock() == 0 ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(SpinLock, StealAndForceUnlockTakeOverALockLeftByAnExitedThread) {
    SpinLock lock;
    auto takeTwiceElsewhere = [&] { onOtherThread([&] { lock.lock(), lock.lock(); }); };
    takeTwiceElsewhere();
    EXPECT_EQ(lock.trylock(), -1);
    lock.stealOwnership();
    EXPECT_EQ(lock.depth(), 2) << "ownership changes hands with the depth kept";
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(lock.unlock(), -1);
    takeTwiceElsewhere();
    lock.forceUnlock();  // one level released from here
    EXPECT_EQ(lock.depth(), 1);
    EXPECT_EQ(lock.unlock(), 0);
    EXPECT_EQ(tryFromOtherThread(lock), 0);
}

TEST(SpinLock, OneThreadAtATimeHoldsTheLockWhetherItsWaitersSleepOrPoll) {
    // Waiters that poll take the lock the moment it is released, racing an owner that takes it
    // straight back: the lock must never let two in. Occupancy is counted on entry, which sees
    // any overlap, not only one that loses an increment.
    for (unsigned long spin : {0ul, 100ul, 4000ul}) {
        SpinLock lock(spin);
        long counter = 0;
        std::atomic<int> occupants{0};
        std::atomic<bool> overlapped{false};
        runThreads(4, [&](int) {
            for (int n = 0; n < 100000; ++n) {
                CSMutex outer(lock);
                CSMutex inner(lock);
                if (occupants.fetch_add(1, std::memory_order_relaxed) != 0)
                    overlapped = true;
                ++counter;
                occupants.fetch_sub(1, std::memory_order_relaxed);
            }
        });
        EXPECT_FALSE(overlapped.load()) << "spin count " << spin;
        EXPECT_EQ(counter, 4 * 100000) << "spin count " << spin;
    }
}

TEST(ProcessLocks, RacingFirstUseCreatesExactlyOneLock) {
    // The library never takes BlockMainLock itself, so here it is still uncreated.
    std::atomic<int> ready{0};
    std::vector<SpinLock*> seen(8, nullptr);
    runThreads(8, [&](int i) {
        ++ready;  // spin, not poll, so the eight first uses really collide (bounded)
        for (auto end = Clock::now() + std::chrono::seconds(10); ready < 8 && Clock::now() < end;)
            std::this_thread::yield();
        seen[i] = BlockMainLock::gGlobalLock();
        BlockMainLock::lock();
        BlockMainLock::unlock();
    });
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
    runThreads(4, [&](int) {
        for (int n = 0; n < 50000; ++n)
            TestThenAdd(&shared, 1);
    });
    EXPECT_EQ(shared, 200000);
}

TEST(System, SleepWaitsAboutTheRequestedTime) {
    for (int ms : {30, 1500}) {  // whole seconds and the rest
        const auto start = Clock::now();
        EXPECT_EQ(System::sleep(ms), 0);
        EXPECT_GE(msSince(start), ms - 1);
    }
    EXPECT_EQ(System::sleep(0), 0);

    // -1 sleeps until a signal cuts the sleep short, and says so with -1.
    struct sigaction wake {}, saved {};
    wake.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &wake, &saved), 0);
    std::atomic<int> result{1};
    std::atomic<bool> asleep{false};
    pthread_t sleeper{};
    runThreads(2, [&](int i) {
        if (i == 0) {
            sleeper = pthread_self();
            asleep = true;
            result = System::sleep(-1);
            return;
        }
        waitUntil([&] { return asleep.load(); });
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        EXPECT_EQ(result.load(), 1) << "sleep(-1) returned at once";
        // Signal until the sleep is over: one sent before the sleep began would be lost.
        waitUntil([&] { return pthread_kill(sleeper, SIGUSR1), result.load() != 1; });
    });
    EXPECT_EQ(result.load(), -1);
    sigaction(SIGUSR1, &saved, nullptr);
}
