/// \file
/// A ready timer manager and peer on Qt's event loop, for applications to install as they are.
#pragma once

#include <vanta/export.h>
#include <vanta/timer.h>

#include <QObject>
#include <QTimer>

#include <condition_variable>
#include <deque>
#include <mutex>

namespace vanta {

/// The timer manager of a Qt application. Construct it on the user-interface thread (the thread
/// running the event loop) after the QCoreApplication, before the first Timer; destroy it there
/// once no other thread can call into it any more.
///
/// Its timers are QTimers living on the thread that constructs each Timer (normally the
/// user-interface thread). Deferred calls go through a queue guarded by a mutex and are run by the
/// manager's event loop, in the order they were queued.
class VANTA_EXPORT QtTimerManager : public QObject, public Timer::Manager {
    Q_OBJECT

public:
    /// A manager on the constructing thread's event loop.
    explicit QtTimerManager(QObject* parent = nullptr);
    ~QtTimerManager() override;

    /// A QtTimerPeer for timer.
    Timer::Peer* createPeer(Timer* timer) override;

    /// On the user-interface thread: runs m at once. From another thread: queues m and, when
    /// wait is true, blocks until it has run (the user-interface thread must not be waiting for
    /// the caller then); when wait is false, returns at once as executeAsync does.
    void execute(Timer::SyncMethod& m, bool wait) override;

    /// Queues m to run on the user-interface thread at the next turn of its event loop, even when
    /// called from that thread. Never blocks beyond the queue's mutex.
    void executeAsync(Timer::SyncMethod& m) override;

    /// For tests: how many methods this manager has run.
    unsigned long getExecutedCount() const;

private:
    Q_INVOKABLE void runQueued();

    struct Pending {
        Timer::SyncMethod* method;
        bool* done;  ///< set under mMutex once the method ran; null when nobody waits
    };

    bool enqueue(const Pending& pending);

    mutable std::mutex mMutex;
    std::condition_variable mRan;  ///< signalled under mMutex after each waited-for method
    std::deque<Pending> mQueue;    ///< guarded by mMutex
    bool mWakePosted = false;      ///< guarded by mMutex: a runQueued call is on its way
    unsigned long mExecuted = 0;   ///< guarded by mMutex
};

/// A Timer's peer on a QTimer. mode true makes the timer single-shot (it fires once and stops);
/// false repeats every interval. Fires the Timer on the thread that owns this peer.
class VANTA_EXPORT QtTimerPeer : public QObject, public Timer::Peer {
    Q_OBJECT

public:
    /// A stopped QTimer for timer, on the constructing thread.
    explicit QtTimerPeer(Timer* timer);
    ~QtTimerPeer() override;

    /// Starts the QTimer; mode true for a single shot.
    void start(unsigned int intervalMs, bool mode) override;
    void stop() override;  ///< Stops the QTimer.
    bool isActive() const override;  ///< True while the QTimer runs.

private:
    QTimer mTimer;
};

}  // namespace vanta
