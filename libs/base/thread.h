/// \file
/// Worker groups: AsyncThread runs one handler on a fixed set of threads in lock-step rounds.
#pragma once

#include <vanta/export.h>
#include <vanta/locks.h>
#include <vanta/system.h>
#include <vanta/waiting.h>

#include <atomic>

namespace vanta {

/// The work an AsyncThread's workers run. Only handleAsync is called, on every worker at once, so
/// it must be safe for that; no worker index is passed (split work with a shared TestThenAdd
/// counter if needed).
class VANTA_EXPORT AsyncThreadHandler {
public:
    virtual void handleAsync() = 0;  ///< The work; runs on every worker at once.
    virtual ~AsyncThreadHandler() = default;
};

/// A fixed group of worker threads that run one handler in rounds.
///
/// Each ready() asks every worker for one more call of the handler; at most two calls can be
/// queued per worker, further requests are dropped. Workers meet after every call, so they are
/// never more than one round apart. With a wait time-out set, a worker that gets no request within
/// it runs the handler anyway. A group is started once and stopped once; it cannot be restarted.
class VANTA_EXPORT AsyncThread {
public:
    /// Status returned by a second startThreads().
    static constexpr int kAlreadyStarted = int(0xc0000002);

    /// Borrows handler (it must outlive the group's threads). Starts no thread.
    AsyncThread(AsyncThreadHandler* handler, unsigned long threadCount);
    /// Does not stop the workers: call exitThreads() first.
    ~AsyncThread();

    AsyncThread(const AsyncThread&) = delete;
    AsyncThread& operator=(const AsyncThread&) = delete;

    /// How long a worker waits for ready() before running the handler anyway, in milliseconds;
    /// negative (the default) waits for ever, 0 never waits. Set it before startThreads().
    void setWaitTimeout(long ms) { waitTimeoutMs = ms; }

    /// Starts the workers and blocks until every one has entered its loop. 0, or kAlreadyStarted
    /// (nothing changed) when called a second time.
    int startThreads();
    /// The workers' rendezvous: blocks until n threads have called it for this round, or the
    /// group is being stopped. The last arrival also retires the requests the round answered.
    /// 0; -1 at once for n of 0.
    int syncThreads(unsigned long n);
    /// Asks every worker for one more handler call. Does nothing before startThreads().
    void ready();
    /// Stops the workers and blocks until none is running, then joins their threads; always 0.
    /// Does nothing on a group that was never started.
    int exitThreads();

    /// For tests and diagnostics: workers currently inside their loop.
    long runningCount() const;

    struct ThreadInfo;

private:
    static void* asyncFunc(void* info);
    void asyncHandler(ThreadInfo* info);

    AsyncThreadHandler* handler;
    /// Set by exitThreads under lock; read without it by workers after a wait.
    std::atomic<int> quit{0};
    /// Set once under lock by startThreads; read without it by ready() and exitThreads().
    std::atomic<int> started{0};
    const unsigned long threadCount;
    long volatile running = 0;  ///< changed only with TestThenAdd
    ThreadInfo* threads;        ///< threadCount records, owned
    SpinLock lock;              ///< guards quit's changes, arrivals, syncRound and every pending
    Conditional syncGate;       ///< rendezvous waiters sleep here until syncRound moves on
    unsigned long arrivals = 0;
    unsigned long syncRound = 0;
    long waitTimeoutMs = -1;    ///< set by the owner before startThreads; read by the workers
};

}  // namespace vanta
