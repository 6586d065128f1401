// Tests of timers and deferred calls, run for real through the Qt manager and its event loop.
#include <vanta/qttimermanager.h>
#include <vanta/timer.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

using namespace vanta;

namespace {

// Runs the event loop until condition holds or the limit passes; true when it held.
bool pumpUntil(const std::function<bool()>& condition, int limitMs = 10000) {
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > limitMs)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

// Records each notification in a shared log, then runs an optional action.
class Recorder : public ITimer::IObserver {
public:
    Recorder(std::string name, std::vector<std::string>* log) : name(std::move(name)), log(log) {}
    void onTimer(const Event& event) override {
        log->push_back(name);
        lastTimer = event.timer;
        if (action)
            action();
    }
    std::string name;
    std::vector<std::string>* log;
    ITimer* lastTimer = nullptr;
    std::function<void()> action;
};

// A deferred call that notes where and how often it ran.
class Probe : public Timer::SyncMethod {
public:
    using SyncMethod::SyncMethod;
    void execute() override {
        thread.store(QThread::currentThread());
        runs.fetch_add(1);
    }
    std::atomic<QThread*> thread{nullptr};
    std::atomic<int> runs{0};
};

class TimerTest : public ::testing::Test {
protected:
    QtTimerManager manager;
};

}  // namespace

TEST_F(TimerTest, ObserversAreKeptOnceAndInOrder) {
    Timer timer;
    std::vector<std::string> log;
    Recorder a("a", &log), b("b", &log), never("never", &log);
    EXPECT_TRUE(timer.addObserver(a));
    EXPECT_FALSE(timer.addObserver(a));
    EXPECT_TRUE(timer.addObserver(b));
    EXPECT_TRUE(timer.hasObserver(b));
    EXPECT_FALSE(timer.hasObserver(never));
    EXPECT_FALSE(timer.remObserver(never));

    timer.fire();
    EXPECT_EQ(log, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(a.lastTimer, &timer);

    EXPECT_TRUE(timer.remObserver(a));
    EXPECT_FALSE(timer.remObserver(a));
    log.clear();
    timer.fire();
    EXPECT_EQ(log, (std::vector<std::string>{"b"}));
}

TEST_F(TimerTest, ObserversChangingTheListDuringAFiring) {
    struct Row {
        const char* name;
        // The change observer "a" makes the first time it is notified.
        std::function<void(Timer&, Recorder& a, Recorder& c, Recorder& late)> change;
        std::vector<std::string> firstFiring, secondFiring;
    };
    const Row rows[] = {
        {"an added observer is reached in the same walk",
         [](Timer& t, Recorder&, Recorder&, Recorder& late) { t.addObserver(late); },
         {"a", "b", "c", "late"}, {"a", "b", "c", "late"}},
        {"removing itself skips the next one once",
         [](Timer& t, Recorder& a, Recorder&, Recorder&) { t.remObserver(a); },
         {"a", "c"}, {"b", "c"}},
        {"a later observer removed is not reached",
         [](Timer& t, Recorder&, Recorder& c, Recorder&) { t.remObserver(c); },
         {"a", "b"}, {"a", "b"}},
    };
    for (const Row& row : rows) {
        Timer timer;
        std::vector<std::string> log;
        Recorder a("a", &log), b("b", &log), c("c", &log), late("late", &log);
        bool changed = false;
        a.action = [&] {
            if (!changed) {
                changed = true;
                row.change(timer, a, c, late);
            }
        };
        for (Recorder* r : {&a, &b, &c})
            timer.addObserver(*r);
        timer.fire();
        EXPECT_EQ(log, row.firstFiring) << row.name;
        log.clear();
        timer.fire();
        EXPECT_EQ(log, row.secondFiring) << row.name;
    }
}

TEST_F(TimerTest, QtPeerFiresSingleShotAndRepeating) {
    Timer timer;
    ASSERT_NE(dynamic_cast<QtTimerPeer*>(timer.getPeer()), nullptr);
    std::vector<std::string> log;
    Recorder r("r", &log);
    timer.addObserver(r);

    timer.start(1, true);
    EXPECT_TRUE(timer.isActive());
    ASSERT_TRUE(pumpUntil([&] { return log.size() == 1; }));
    EXPECT_FALSE(timer.isActive()) << "a single-shot timer stops after firing";
    QCoreApplication::processEvents(QEventLoop::AllEvents, 30);
    EXPECT_EQ(log.size(), 1u);

    log.clear();
    timer.start(1, false);
    ASSERT_TRUE(pumpUntil([&] { return log.size() >= 3; })) << "a repeating timer keeps firing";
    EXPECT_TRUE(timer.isActive());
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    const size_t fired = log.size();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 30);
    EXPECT_EQ(log.size(), fired) << "no firing after stop";
}

TEST_F(TimerTest, PeerDestroyedFirstDetachesFromTheTimer) {
    auto timer = std::make_unique<Timer>();
    std::vector<std::string> log;
    Recorder r("r", &log);
    timer->addObserver(r);
    timer->start(1, false);
    delete timer->getPeer();
    EXPECT_EQ(timer->getPeer(), nullptr);
    EXPECT_FALSE(timer->isActive());
    timer->start(1, false);  // nothing to forward to: must be a no-op
    timer->stop();
    QCoreApplication::processEvents(QEventLoop::AllEvents, 30);
    EXPECT_TRUE(log.empty()) << "the deleted QTimer must not fire";
    timer.reset();  // must not delete the peer a second time
}

namespace {

// A peer that reports, as it is destroyed, which timer it still pointed at.
class WatchedPeer : public Timer::Peer {
public:
    WatchedPeer(Timer* t, Timer** timerAtDestruction) : Peer(t), mSeen(timerAtDestruction) {}
    ~WatchedPeer() override { *mSeen = getTimer(); }
    void start(unsigned int, bool) override { active = true; }
    void stop() override { active = false; }
    bool isActive() const override { return active; }
    bool active = false;

private:
    Timer** mSeen;
};

class WatchedManager : public Timer::Manager {
public:
    Timer::Peer* createPeer(Timer* t) override { return new WatchedPeer(t, &timerAtDestruction); }
    void execute(Timer::SyncMethod& m, bool) override { m.execute(); }
    void executeAsync(Timer::SyncMethod& m) override { m.execute(); }
    Timer* timerAtDestruction = reinterpret_cast<Timer*>(1);
};

}  // namespace

TEST(TimerPairing, TimerDestroyedFirstClearsThePeersBackPointer) {
    WatchedManager manager;
    {
        Timer timer;
        ASSERT_NE(timer.getPeer(), nullptr);
        EXPECT_EQ(timer.getPeer()->getTimer(), &timer);
        timer.start(10, false);
        EXPECT_TRUE(timer.isActive()) << "start is forwarded to the peer";
        timer.stop();
        EXPECT_FALSE(timer.isActive());
    }
    EXPECT_EQ(manager.timerAtDestruction, nullptr);
}

TEST(TimerPairing, TheNewestManagerIsCurrentAndDestroyingAnyLeavesNone) {
    ASSERT_EQ(sManager.load(), nullptr);
    {
        auto first = std::make_unique<WatchedManager>();
        EXPECT_EQ(sManager.load(), first.get());
        auto second = std::make_unique<WatchedManager>();
        EXPECT_EQ(sManager.load(), second.get());
        first.reset();
        EXPECT_EQ(sManager.load(), nullptr);
    }
    EXPECT_EQ(sManager.load(), nullptr);
    Timer orphan;  // no manager: a timer without a peer, not a crash
    EXPECT_EQ(orphan.getPeer(), nullptr);
    Probe probe;
    Timer::executeAsync(probe);
    Timer::execute(probe, true);
    EXPECT_EQ(probe.runs.load(), 0);
}

TEST_F(TimerTest, ExecuteOnTheUiThreadRunsAtOnceAsyncRunsLaterInOrder) {
    Probe now;
    Timer::execute(now, true);
    EXPECT_EQ(now.runs.load(), 1);
    EXPECT_EQ(now.thread.load(), QThread::currentThread());

    std::vector<int> order;
    struct Ordered : Timer::SyncMethod {
        Ordered(std::vector<int>* o, int n) : order(o), n(n) {}
        void execute() override { order->push_back(n); }
        std::vector<int>* order;
        int n;
    };
    std::vector<std::unique_ptr<Ordered>> methods;
    for (int n = 0; n < 5; ++n) {
        methods.push_back(std::make_unique<Ordered>(&order, n));
        Timer::executeAsync(*methods.back());
    }
    EXPECT_TRUE(order.empty()) << "executeAsync must not run the method before returning";
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 5; }));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(TimerTest, WorkerThreadCallsRunOnTheUiThread) {
    Probe async, sync;
    std::atomic<bool> asyncReturned{false}, syncReturned{false};
    std::atomic<int> syncRunsSeenByWorker{-1};
    std::thread worker([&] {
        Timer::executeAsync(async);
        asyncReturned = true;
        Timer::execute(sync, true);  // waits for the UI thread
        syncRunsSeenByWorker = sync.runs.load();
        syncReturned = true;
    });
    const bool done = pumpUntil([&] { return syncReturned.load(); });
    if (!done) {
        worker.detach();  // still blocked in execute: fail rather than hang
        FAIL() << "the worker's calls never ran on the UI thread";
    }
    worker.join();
    EXPECT_TRUE(asyncReturned.load());
    EXPECT_EQ(async.runs.load(), 1);
    EXPECT_EQ(async.thread.load(), QThread::currentThread());
    EXPECT_EQ(syncRunsSeenByWorker.load(), 1) << "execute(m, true) returns after m ran";
    EXPECT_EQ(sync.thread.load(), QThread::currentThread());
    EXPECT_EQ(manager.getExecutedCount(), 2u);
}

TEST_F(TimerTest, ManyThreadsQueueAtOnce) {
    constexpr int kThreads = 4, kEach = 50;
    std::vector<std::unique_ptr<Probe>> probes;
    for (int i = 0; i < kThreads * kEach; ++i)
        probes.push_back(std::make_unique<Probe>());
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i)
                Timer::executeAsync(*probes[size_t(t * kEach + i)]);
        });
    for (std::thread& t : threads)
        t.join();
    ASSERT_TRUE(pumpUntil([&] { return manager.getExecutedCount() == kThreads * kEach; }));
    for (const auto& p : probes)
        EXPECT_EQ(p->runs.load(), 1);
}

TEST(SyncMethod, DestructionClearsTheTrackersSlot) {
    Timer::SyncMethod* slot = nullptr;
    {
        Probe tracked(&slot);
        slot = &tracked;
    }
    EXPECT_EQ(slot, nullptr);
}
