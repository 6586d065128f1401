// Tests of System's thread operations and AsyncThread worker groups.
#include <vanta/memory.h>
#include <vanta/system.h>
#include <vanta/thread.h>

#include "threadsupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <sys/mman.h>
#include <thread>
#include <vector>

using namespace vanta;
using namespace vantatest;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

// Counts handler calls per worker thread; while `hold` is set each call waits for it to clear.
class CountingHandler : public AsyncThreadHandler {
public:
    void handleAsync() override {
        waitUntil([&] { return !hold.load(); });
        std::lock_guard<std::mutex> guard(mutex);
        ++perThread[System::getCurrentThread()];
        ++calls;
    }
    // True when every one of `workers` threads has made exactly `each` calls.
    bool eachCalled(size_t workers, int each) {
        std::lock_guard<std::mutex> guard(mutex);
        return perThread.size() == workers &&
               std::all_of(perThread.begin(), perThread.end(),
                           [&](const auto& entry) { return entry.second == each; });
    }
    std::atomic<bool> hold{false};
    std::atomic<int> calls{0};
    std::mutex mutex;
    std::map<System::ThreadHandle, int> perThread;
};

}  // namespace

TEST(System, SpawnRunsTheFunctionAndJoinWaitsForIt) {
    struct Probe {
        int argument = 0;
        System::ThreadHandle seenSelf = 0;
        bool main = true;
    } probe;
    const System::ThreadHandle handle = System::spawn(
        [](void* arg) -> void* {
            auto* p = static_cast<Probe*>(arg);
            *p = {42, System::getCurrentThread(), System::isMainThread()};
            return nullptr;
        },
        &probe);
    ASSERT_NE(handle, 0ul);
    onOtherThread([&] { EXPECT_EQ(System::join(handle), 0); });
    EXPECT_EQ(probe.argument, 42);
    EXPECT_TRUE(System::sameThread(probe.seenSelf, handle));
    EXPECT_FALSE(System::sameThread(handle, System::getCurrentThread()));
    EXPECT_FALSE(probe.main);
    EXPECT_EQ(System::spawn(nullptr, nullptr), 0ul);
    EXPECT_EQ(System::join(0), ESRCH);
}

TEST(SystemDeathTest, SpawnWithoutMemoryReturnsNoThread) {
    if (!canLimitAddressSpace())
        GTEST_SKIP() << "a sanitizer needs the address space";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // In a child with 32 MiB of address space left: first no thread stack fits (the heap still
    // has room for the start record), then the heap is full too.
    const auto failures = [] {
        std::vector<void*> maps, blocks;
        maps.reserve(1 << 10);
        blocks.reserve(1 << 20);
        if (!limitAddressSpace(32u << 20))
            return 100;
        while (maps.size() < maps.capacity()) {
            void* m = mmap(nullptr, 1 << 20, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
            if (m == MAP_FAILED)
                break;
            maps.push_back(m);
        }
        const auto nothing = [](void*) -> void* { return nullptr; };
        int failed = System::spawn(nothing, nullptr) != 0;
        for (const unsigned long size : {4096ul, 256ul, 16ul}) {  // down to the smallest block
            while (blocks.size() < blocks.capacity()) {
                void* p = doNew(size);
                if (!p)
                    break;
                blocks.push_back(p);
            }
        }
        failed += maps.size() == maps.capacity() || blocks.size() == blocks.capacity();
        failed += System::spawn(nothing, nullptr) != 0;
        return failed;
    };
    EXPECT_EXIT(std::_Exit(failures()), ::testing::ExitedWithCode(0), "");
}

TEST(System, ThreadStorageAndTheMainThreadMarkAreKeptPerThread) {
    const unsigned key = System::createThreadKey();
    int here = 0, there = 0;
    EXPECT_EQ(System::getThreadStorage(key), nullptr);
    EXPECT_EQ(System::setThreadStorage(key, &here), 0);
    struct Row {
        bool mark;
        unsigned id;
        bool isMain;
    };
    for (const Row& row : {Row{true, System::kMainThreadMarker, true}, Row{true, 1, false},
                           Row{false, 0, false}}) {
        bool sawMain = !row.isMain;
        void *sawBefore = &here, *sawAfter = nullptr;
        onOtherThread([&] {
            sawBefore = System::getThreadStorage(key);
            System::setThreadStorage(key, &there);
            sawAfter = System::getThreadStorage(key);
            if (row.mark)
                System::setMainThreadId(row.id);
            sawMain = System::isMainThread();
        });
        EXPECT_EQ(sawMain, row.isMain) << "id " << row.id;
        EXPECT_EQ(sawBefore, nullptr);
        EXPECT_EQ(sawAfter, &there);
    }
    EXPECT_EQ(System::getThreadStorage(key), &here);
}

TEST(AsyncThread, EachReadyGivesOneCallPerWorkerAndAtMostTwoQueue) {
    for (const int workers : {3, 1}) {  // one worker: the start rendezvous is just the pair
        SCOPED_TRACE(workers);
        CountingHandler handler;
        AsyncThread group(&handler, workers);
        group.ready();  // not started: no effect
        ASSERT_EQ(group.startThreads(), 0);
        EXPECT_EQ(group.runningCount(), workers);
        EXPECT_EQ(group.startThreads(), AsyncThread::kAlreadyStarted);
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_EQ(handler.calls.load(), 0) << "no call before the first ready()";
        // The workers hold in their first call, so the second request queues and the third
        // drops.
        handler.hold = true;
        for (int n = 0; n < 3; ++n)
            group.ready();
        handler.hold = false;
        EXPECT_TRUE(waitUntil([&] { return handler.eachCalled(workers, 2); }));
        std::this_thread::sleep_for(milliseconds(100));
        EXPECT_EQ(handler.calls.load(), 2 * workers);
        group.ready();
        EXPECT_TRUE(waitUntil([&] { return handler.eachCalled(workers, 3); }));
        std::this_thread::sleep_for(milliseconds(50));
        EXPECT_EQ(handler.calls.load(), 3 * workers);
        onOtherThread([&] { EXPECT_EQ(group.exitThreads(), 0); });
        EXPECT_EQ(group.runningCount(), 0);
        EXPECT_EQ(group.startThreads(), AsyncThread::kAlreadyStarted) << "a group never restarts";
    }
}

TEST(AsyncThread, WaitTimeOutDrivesRounds) {
    CountingHandler handler;
    AsyncThread group(&handler, 2);
    group.setWaitTimeout(50);
    const auto start = Clock::now();
    ASSERT_EQ(group.startThreads(), 0);
    EXPECT_TRUE(waitUntil([&] { return handler.calls.load() >= 6; }));
    const long elapsed = msSince(start);
    onOtherThread([&] { group.exitThreads(); });
    // Each round waits out the time-out first, so the rounds cannot outpace it.
    EXPECT_LE(handler.calls.load(), 2 * (elapsed / 50 + 1));
}

TEST(AsyncThread, StopsCleanlyInEveryState) {
    CountingHandler handler;
    AsyncThread never(&handler, 2);
    EXPECT_EQ(never.exitThreads(), 0);
    EXPECT_EQ(never.syncThreads(0), -1);
    // Stopping while requests keep coming must find every worker, wherever it is.
    for (int trial = 0; trial < 20; ++trial) {
        AsyncThread group(&handler, 4);
        ASSERT_EQ(group.startThreads(), 0);
        for (int n = 0; n < trial * 5; ++n)
            group.ready();
        onOtherThread([&] { EXPECT_EQ(group.exitThreads(), 0); });
        EXPECT_EQ(group.runningCount(), 0);
        EXPECT_EQ(group.exitThreads(), 0) << "a second stop is harmless";
    }
}
