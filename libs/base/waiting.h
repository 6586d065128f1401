/// \file
/// Waiting primitives: the counting Semaphore, the reusable Barrier and the Conditional.
#pragma once

#include <vanta/export.h>
#include <vanta/locks.h>

#include <atomic>

namespace vanta {

struct SemaphoreData;
struct ConditionalData;

/// A counting semaphore: post() adds a unit, the waits take one.
///
/// The count ranges from 0 to kMaxCount. A semaphore constructed with a count outside that range
/// is unusable: every call on it returns -1 at once. Safe to use from any threads; nothing throws
/// after construction.
class VANTA_EXPORT Semaphore {
public:
    static constexpr long kMaxCount = 0x7fffffff;  ///< The highest count.

    explicit Semaphore(long initialCount = 0);  ///< A semaphore holding initialCount.
    ~Semaphore();

    Semaphore(const Semaphore&) = delete;
    Semaphore& operator=(const Semaphore&) = delete;

    /// Blocks until a unit is available and takes it. 0, or -1 for an unusable semaphore.
    int wait();
    /// Takes a unit if one is available now. 0 when taken, -1 otherwise; never blocks.
    int trywait();
    /// Polls: negative waits like wait(); 0 fails at once without even trying; otherwise tries up
    /// to timeoutMs times, sleeping 1 millisecond after each miss, then returns -1. 0 when taken.
    int trywait(long timeoutMs);
    /// Adds one unit, waking one waiter. -1, with nothing changed, when the count is already
    /// kMaxCount or the semaphore is unusable.
    int post();

private:
    SemaphoreData* mData;
};

/// A condition variable that waits together with a SpinLock.
///
/// The caller must hold the lock (at any depth). The wait releases it completely, so other threads
/// can take it while the caller sleeps, and takes it back at the same depth before returning.
/// Wake-ups may be spurious: callers re-check their condition after every return.
class VANTA_EXPORT Conditional {
public:
    Conditional();
    ~Conditional();

    Conditional(const Conditional&) = delete;
    Conditional& operator=(const Conditional&) = delete;

    /// Blocks until signalled. 0; -1 at once, without waiting, when the caller does not hold lock.
    int wait(SpinLock& lock);
    /// As wait(), giving up timeoutMs milliseconds from now. 0 when woken, -1 when the time ran
    /// out (timeoutMs 0: at once, unless a signal arrived after the lock was released) or the
    /// caller does not hold lock. The lock is held again on return either way, if it was held.
    int timedwait(SpinLock& lock, unsigned long timeoutMs);
    /// Wakes one waiter; 0.
    int signal();
    /// Wakes every waiter; 0.
    int broadcast();

private:
    int waitUntil(SpinLock& lock, bool limited, unsigned long timeoutMs);
    ConditionalData* mData;
};

/// A reusable rendezvous of a fixed number of threads.
///
/// Each enter() blocks until `total` threads have entered for the current round; then all of them
/// return and the next round begins. A thread that leaves and enters again at once joins the next
/// round: it can never slip through the round that is still letting its waiters go.
class VANTA_EXPORT Barrier {
public:
    explicit Barrier(int total);  ///< A barrier for total threads.
    ~Barrier();

    Barrier(const Barrier&) = delete;
    Barrier& operator=(const Barrier&) = delete;

    /// Blocks until the round is complete; 0. A barrier of total 1 never blocks; one of total 0
    /// or less can never complete, so its enter() returns -1 at once.
    int enter();

    /// For tests and diagnostics: the rounds completed so far.
    unsigned long rounds() const;

private:
    SpinLock mLock;
    Conditional mGate;        ///< waiters sleep here until mRound moves on
    const int mTotal;
    int mWaiting = 0;         ///< guarded by mLock: threads in the current round so far
    /// Advanced under mLock; read without it only by rounds().
    std::atomic<unsigned long> mRound{0};
};

}  // namespace vanta
