// Tests of timers and deferred calls, run for real through the Qt manager and its event loop.
#include <vanta/qttimermanager.h>
#include <vanta/timer.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEvent>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using namespace vanta;

namespace {

// Runs the event loop until condition holds or limitMs pass; true when it held.
bool pumpUntil(const std::function<bool()>& condition, int limitMs = 10000) {
    return vantatest::waitUntil([&] { return QCoreApplication::processEvents(), condition(); },
                                std::chrono::milliseconds(limitMs));
}

// Appends its name to a shared log on each notification, then runs an optional action.
struct Recorder : ITimer::IObserver {
    Recorder(char name, std::string* log) : name(name), log(log) {}
    void onTimer(const Event& event) override {
        *log += name;
        lastTimer = event.timer;
        if (action)
            action();
    }
    char name;
    std::string* log;
    ITimer* lastTimer = nullptr;
    std::function<void()> action;
};

// A deferred call that notes on which thread and how often it ran, and appends n to order if set.
struct Probe : Timer::SyncMethod {
    Probe(std::vector<int>* order = nullptr, int n = 0) : order(order), n(n) {}
    void execute() override {
        thread.store(QThread::currentThread());
        runs.fetch_add(1);
        if (order)
            order->push_back(n);
    }
    std::atomic<QThread*> thread{nullptr};
    std::atomic<int> runs{0};
    std::vector<int>* order;
    int n;
};

// A manager whose peers record, as they are destroyed, which timer they still pointed at.
struct WatchedManager : Timer::Manager {
    struct Peer : Timer::Peer {
        Peer(Timer* t, Timer** seen) : Timer::Peer(t), seen(seen) {}
        ~Peer() override { *seen = getTimer(); }
        void start(unsigned int, bool) override { active = true; }
        void stop() override { active = false; }
        bool isActive() const override { return active; }
        Timer** seen;
        bool active = false;
    };
    Timer::Peer* createPeer(Timer* t) override { return new Peer(t, &timerSeenByPeer); }
    void execute(Timer::SyncMethod& m, bool) override { m.execute(); }
    void executeAsync(Timer::SyncMethod& m) override { m.execute(); }
    Timer* timerSeenByPeer = reinterpret_cast<Timer*>(1);
};

// Counts the queued calls (posted slot invocations) delivered to the object it watches.
struct QueuedCallCounter : QObject {
    bool eventFilter(QObject*, QEvent* event) override {
        calls += event->type() == QEvent::MetaCall;
        return false;
    }
    int calls = 0;
};

class TimerTest : public ::testing::Test {
protected:
    QtTimerManager manager;
};

}  // namespace

TEST_F(TimerTest, ObserversAreKeptOnceInOrderAndMayChangeTheListDuringAFiring) {
    // The change observer a makes the first time it is told; l is not registered at first.
    const struct {
        const char* name;
        std::function<void(Timer&, Recorder& a, Recorder& c, Recorder& l)> change;
        const char *firstFiring, *secondFiring;
    } rows[] = {
        {"an added observer is reached in the same walk",
         [](Timer& t, Recorder&, Recorder&, Recorder& l) { t.addObserver(l); }, "abcl", "abcl"},
        {"removing itself skips the next one once",
         [](Timer& t, Recorder& a, Recorder&, Recorder&) { t.remObserver(a); }, "ac", "bc"},
        {"a later observer removed is not reached",
         [](Timer& t, Recorder&, Recorder& c, Recorder&) { t.remObserver(c); }, "ab", "ab"},
    };
    for (const auto& row : rows) {
        Timer timer;
        std::string log;
        Recorder a('a', &log), b('b', &log), c('c', &log), l('l', &log);
        a.action = [&, changed = false]() mutable {
            if (!std::exchange(changed, true))
                row.change(timer, a, c, l);
        };
        for (Recorder* r : {&a, &b, &c})
            ASSERT_TRUE(timer.addObserver(*r));
        EXPECT_FALSE(timer.addObserver(b)) << "kept once";
        EXPECT_FALSE(timer.remObserver(l)) << "not there";
        EXPECT_TRUE(timer.hasObserver(b) && !timer.hasObserver(l));
        timer.fire();
        EXPECT_EQ(log, row.firstFiring) << row.name;
        EXPECT_EQ(a.lastTimer, &timer);
        log.clear();
        timer.fire();
        EXPECT_EQ(log, row.secondFiring) << row.name;
        EXPECT_TRUE(timer.remObserver(b)) << "b stays through every change";
    }
}

TEST_F(TimerTest, QtPeerFiresSingleShotAndRepeating) {
    Timer timer;
    ASSERT_NE(dynamic_cast<QtTimerPeer*>(timer.getPeer()), nullptr);
    std::string log;
    Recorder r('r', &log);
    timer.addObserver(r);

    timer.start(1, true);
    EXPECT_TRUE(timer.isActive());
    ASSERT_TRUE(pumpUntil([&] { return log.size() == 1; }));
    EXPECT_FALSE(timer.isActive()) << "a single-shot timer stops after firing";
    pumpUntil([] { return false; }, 30);
    EXPECT_EQ(log.size(), 1u);

    timer.start(1, false);
    ASSERT_TRUE(pumpUntil([&] { return log.size() >= 4; })) << "a repeating timer keeps firing";
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    const size_t fired = log.size();
    pumpUntil([] { return false; }, 30);
    EXPECT_EQ(log.size(), fired) << "no firing after stop";

    // A peer destroyed first detaches: the timer forwards nothing more and does not delete it again.
    std::string orphanLog;
    Recorder o('o', &orphanLog);
    auto orphan = std::make_unique<Timer>();
    orphan->addObserver(o);
    orphan->start(1, false);
    delete orphan->getPeer();
    EXPECT_EQ(orphan->getPeer(), nullptr);
    EXPECT_FALSE(orphan->isActive());
    orphan->start(1, false);
    pumpUntil([] { return false; }, 30);
    EXPECT_TRUE(orphanLog.empty()) << "the deleted peer's timer must not fire";
    orphan.reset();
}

TEST(TimerPairing, TimerFirstClearsThePeerAndManagersReplaceEachOther) {
    ASSERT_EQ(sManager.load(), nullptr);
    auto first = std::make_unique<WatchedManager>();
    auto second = std::make_unique<WatchedManager>();
    EXPECT_EQ(sManager.load(), second.get()) << "the newest manager is current";
    {
        Timer timer;
        EXPECT_EQ(timer.getPeer()->getTimer(), &timer);
        timer.start(10, false);
        EXPECT_TRUE(timer.isActive()) << "start is forwarded to the peer";
    }
    EXPECT_EQ(second->timerSeenByPeer, nullptr) << "the timer clears the peer's pointer first";
    first.reset();
    EXPECT_EQ(sManager.load(), nullptr) << "destroying any manager leaves none";

    Timer orphan;  // no manager: a timer without a peer, not a crash
    EXPECT_EQ(orphan.getPeer(), nullptr);
    Probe probe;
    Timer::executeAsync(probe);
    EXPECT_EQ(probe.runs.load(), 0);
}

// On the UI thread execute runs at once and executeAsync later, in order; from workers both run
// on the UI thread, and a waiting execute returns only after its method ran.
TEST_F(TimerTest, DeferredCallsRunOnTheUiThread) {
    Probe now;
    Timer::execute(now, true);
    EXPECT_EQ(now.runs.load(), 1);
    std::vector<int> order;
    QueuedCallCounter wakeUps;
    manager.installEventFilter(&wakeUps);
    Probe later[] = {{&order, 0}, {&order, 1}, {&order, 2}, {&order, 3}, {&order, 4}};
    for (Probe& p : later)
        Timer::executeAsync(p);
    EXPECT_TRUE(order.empty()) << "executeAsync must not run the method before returning";
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 5; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(wakeUps.calls, 1) << "calls queued before the event loop runs share one wake-up";
    manager.removeEventFilter(&wakeUps);

    constexpr int kThreads = 3, kEach = 40;
    Probe async[kThreads][kEach], sync[kThreads];
    std::atomic<int> finished{0}, syncRanBeforeReturn{0};
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t)
        workers.emplace_back([&, t] {
            for (Probe& p : async[t])
                Timer::executeAsync(p);
            Timer::execute(sync[t], true);  // waits for the UI thread
            syncRanBeforeReturn += sync[t].runs.load();
            ++finished;
        });
    if (!pumpUntil([&] { return finished.load() == kThreads; })) {
        for (std::thread& w : workers)
            w.detach();  // still blocked in execute: fail rather than hang
        FAIL() << "the workers' calls never ran on the UI thread";
    }
    for (std::thread& w : workers)
        w.join();
    EXPECT_EQ(syncRanBeforeReturn.load(), kThreads) << "execute(m, true) returns after m ran";
    ASSERT_TRUE(pumpUntil([&] { return manager.getExecutedCount() == 6 + kThreads * (kEach + 1); }));
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(sync[t].thread.load(), QThread::currentThread());
        for (const Probe& p : async[t]) {
            EXPECT_EQ(p.runs.load(), 1);
            EXPECT_EQ(p.thread.load(), QThread::currentThread());
        }
    }
}

TEST(TimerSyncMethod, DestructionClearsTheTrackersSlot) {
    struct Nop : Timer::SyncMethod {
        using SyncMethod::SyncMethod;
        void execute() override {}
    };
    Timer::SyncMethod* tracked = nullptr;
    {
        Nop method(&tracked);
        tracked = &method;
    }
    EXPECT_EQ(tracked, nullptr) << "the tracker must learn the call is gone";
    { Nop untracked; }  // no slot: nothing to clear, nothing touched
}
