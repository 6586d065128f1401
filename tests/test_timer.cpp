// Tests of timers and deferred calls, run for real through the Qt manager and its event loop.
#include <vanta/qttimermanager.h>
#include <vanta/timer.h>

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

// Runs the event loop until condition holds or limitMs pass; true when it held.
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

void pumpFor(int ms) { pumpUntil([] { return false; }, ms); }

// Logs its name on each notification, then runs an optional action.
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

// A deferred call that notes on which thread and how often it ran.
class Probe : public Timer::SyncMethod {
public:
    void execute() override {
        thread.store(QThread::currentThread());
        runs.fetch_add(1);
        if (order)
            order->push_back(n);
    }
    std::atomic<QThread*> thread{nullptr};
    std::atomic<int> runs{0};
    std::vector<int>* order = nullptr;  // when set, n is appended on each run
    int n = 0;
};

// A peer that records, as it is destroyed, which timer it still pointed at.
class WatchedPeer : public Timer::Peer {
public:
    WatchedPeer(Timer* t, Timer** seen) : Peer(t), mSeen(seen) {}
    ~WatchedPeer() override { *mSeen = getTimer(); }
    void start(unsigned int, bool) override { mActive = true; }
    void stop() override { mActive = false; }
    bool isActive() const override { return mActive; }

private:
    Timer** mSeen;
    bool mActive = false;
};

class WatchedManager : public Timer::Manager {
public:
    Timer::Peer* createPeer(Timer* t) override { return new WatchedPeer(t, &timerSeenByPeer); }
    void execute(Timer::SyncMethod& m, bool) override { m.execute(); }
    void executeAsync(Timer::SyncMethod& m) override { m.execute(); }
    Timer* timerSeenByPeer = reinterpret_cast<Timer*>(1);
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
    EXPECT_FALSE(timer.remObserver(never));
    timer.fire();
    EXPECT_EQ(log, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(a.lastTimer, &timer);
    EXPECT_TRUE(timer.remObserver(a));
    EXPECT_FALSE(timer.hasObserver(a));
    timer.fire();
    EXPECT_EQ(log, (std::vector<std::string>{"a", "b", "b"}));
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
    pumpFor(30);
    EXPECT_EQ(log.size(), 1u);

    timer.start(1, false);
    ASSERT_TRUE(pumpUntil([&] { return log.size() >= 4; })) << "a repeating timer keeps firing";
    timer.stop();
    EXPECT_FALSE(timer.isActive());
    const size_t fired = log.size();
    pumpFor(30);
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
    timer->start(1, false);  // nothing to forward to: a no-op
    pumpFor(30);
    EXPECT_TRUE(log.empty()) << "the deleted peer's timer must not fire";
    timer.reset();  // must not delete the peer a second time
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

TEST_F(TimerTest, OnTheUiThreadExecuteRunsAtOnceAndAsyncLaterInOrder) {
    Probe now;
    Timer::execute(now, true);
    EXPECT_EQ(now.runs.load(), 1);

    std::vector<int> order;
    Probe later[5];
    for (int n = 0; n < 5; ++n) {
        later[n].order = &order;
        later[n].n = n;
        Timer::executeAsync(later[n]);
    }
    EXPECT_TRUE(order.empty()) << "executeAsync must not run the method before returning";
    ASSERT_TRUE(pumpUntil([&] { return order.size() == 5; }));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
}

TEST_F(TimerTest, WorkerThreadsCallsRunOnTheUiThread) {
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
    ASSERT_TRUE(pumpUntil([&] { return manager.getExecutedCount() == kThreads * (kEach + 1); }));
    for (int t = 0; t < kThreads; ++t) {
        EXPECT_EQ(sync[t].thread.load(), QThread::currentThread());
        for (const Probe& p : async[t]) {
            EXPECT_EQ(p.runs.load(), 1);
            EXPECT_EQ(p.thread.load(), QThread::currentThread());
        }
    }
}
