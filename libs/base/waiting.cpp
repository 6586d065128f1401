// Waiting primitives: a futex-backed counting semaphore, the condition variable on a SpinLock's
// critical region, and the barrier built from the two.
#include <vanta/waiting.h>

#include <vanta/system.h>

#include "locks_p.h"

#include <sched.h>

#include <climits>

namespace vanta {

// ---- Semaphore ----

// The count lives in one futex word. Waiters announce themselves in `sleepers` before sleeping, so
// post() makes a wake-up call only when someone may be asleep. Both sides use sequentially
// consistent read-modify-writes: either the poster sees the sleeper, or the sleeper's futex call
// sees the new count and does not sleep.
struct SemaphoreData {
    std::atomic<uint32_t> count{0};
    std::atomic<uint32_t> sleepers{0};
    uint32_t spin = 0;  // polls before sleeping; 0 on a single processor
    bool usable = false;

    // Takes a unit if there is one; a lost race with another taker is retried, not reported.
    bool take() {
        uint32_t c = count.load(std::memory_order_relaxed);
        while (c > 0) {
            if (count.compare_exchange_weak(c, c - 1, std::memory_order_acquire,
                                            std::memory_order_relaxed))
                return true;
        }
        return false;
    }
};

namespace {

// A unit posted from another processor usually arrives within a few microseconds; polling about
// that long (a hundred pauses, then a few yields) saves the two system calls and the scheduler
// round trip of sleeping. Measured with the ping-pong benchmark; kept short because a waiter
// that spins burns a processor other threads could use.
constexpr uint32_t kSemaphorePauses = 100;
constexpr uint32_t kSemaphoreYields = 4;

}  // namespace

Semaphore::Semaphore(long initialCount) : mData(new SemaphoreData) {
    if (initialCount < 0 || initialCount > kMaxCount)
        return;
    mData->count.store(uint32_t(initialCount), std::memory_order_relaxed);
    mData->spin = System::getNumProcessors() > 1 ? kSemaphorePauses : 0;
    mData->usable = true;
}

Semaphore::~Semaphore() { delete mData; }

int Semaphore::wait() {
    SemaphoreData& d = *mData;
    if (!d.usable)
        return -1;
    if (d.take())
        return 0;
    for (uint32_t i = 0; i < d.spin; ++i) {
        futex::relax();
        if (d.count.load(std::memory_order_relaxed) != 0 && d.take())
            return 0;
    }
    for (uint32_t i = 0; d.spin && i < kSemaphoreYields; ++i) {
        sched_yield();
        if (d.take())
            return 0;
    }
    d.sleepers.fetch_add(1, std::memory_order_seq_cst);
    while (!d.take())
        futex::wait(d.count, 0, nullptr);
    d.sleepers.fetch_sub(1, std::memory_order_relaxed);
    return 0;
}

int Semaphore::trywait() { return mData->usable && mData->take() ? 0 : -1; }

int Semaphore::trywait(long timeoutMs) {
    if (timeoutMs < 0)
        return wait();
    // A zero time-out makes no attempt at all, unlike trywait() without one.
    static const timespec kPollInterval{0, 1000000};
    for (long attempt = 0; attempt < timeoutMs; ++attempt) {
        if (trywait() == 0)
            return 0;
        nanosleep(&kPollInterval, nullptr);
    }
    return -1;
}

int Semaphore::post() {
    SemaphoreData& d = *mData;
    if (!d.usable)
        return -1;
    uint32_t c = d.count.load(std::memory_order_relaxed);
    do {
        if (c >= uint32_t(kMaxCount))
            return -1;
    } while (!d.count.compare_exchange_weak(c, c + 1, std::memory_order_seq_cst,
                                            std::memory_order_relaxed));
    if (d.sleepers.load(std::memory_order_seq_cst) != 0)
        futex::wake(d.count, 1);
    return 0;
}

// ---- Conditional ----

// A sequence word that every signal advances. A waiter reads it while still holding the lock and
// sleeps only while it is unchanged, so a signal sent after the waiter released the lock is
// never lost. `sleepers` spares the wake-up call when nobody waits.
struct ConditionalData {
    std::atomic<uint32_t> sequence{0};
    std::atomic<uint32_t> sleepers{0};
};

Conditional::Conditional() : mData(new ConditionalData) {}

Conditional::~Conditional() { delete mData; }

int Conditional::wait(SpinLock& lock) { return waitUntil(lock, false, 0); }

int Conditional::timedwait(SpinLock& lock, unsigned long timeoutMs) {
    return waitUntil(lock, true, timeoutMs);
}

int Conditional::waitUntil(SpinLock& lock, bool limited, unsigned long timeoutMs) {
    SpinLockData& held = lock.data();
    const void* const me = lockdetail::callerIdentity();
    if (held.owner.load(std::memory_order_relaxed) != me)
        return -1;
    timespec deadline{};
    if (limited)
        deadline = futex::deadlineAfter(timeoutMs);

    const uint32_t seen = mData->sequence.load(std::memory_order_relaxed);
    mData->sleepers.fetch_add(1, std::memory_order_seq_cst);
    // Release every level the caller holds, so another thread can take the lock and signal.
    const int depth = held.depth;
    held.depth = 0;
    held.owner.store(nullptr, std::memory_order_relaxed);
    held.region.exit();

    const bool woken = futex::wait(mData->sequence, seen, limited ? &deadline : nullptr);

    mData->sleepers.fetch_sub(1, std::memory_order_relaxed);
    held.region.enter(CriticalRegion::kForever, held.spinCount);
    held.owner.store(me, std::memory_order_relaxed);
    held.depth = depth;
    return woken ? 0 : -1;
}

int Conditional::signal() {
    mData->sequence.fetch_add(1, std::memory_order_seq_cst);
    if (mData->sleepers.load(std::memory_order_seq_cst) != 0)
        futex::wake(mData->sequence, 1);
    return 0;
}

int Conditional::broadcast() {
    mData->sequence.fetch_add(1, std::memory_order_seq_cst);
    if (mData->sleepers.load(std::memory_order_seq_cst) != 0)
        futex::wake(mData->sequence, INT_MAX);
    return 0;
}

// ---- Barrier ----

// Waiters sleep until the round number moves on, rather than each taking a semaphore unit: a
// unit is not tied to a round, so a thread re-entering at once could take the unit meant for a
// slow waiter of the round before and run a round ahead of it.
Barrier::Barrier(int total) : mLock(0), mTotal(total) {}

Barrier::~Barrier() = default;

int Barrier::enter() {
    if (mTotal < 1)
        return -1;
    mLock.lock(SpinLock::kForever);
    const unsigned long round = mRound.load(std::memory_order_relaxed);
    if (++mWaiting == mTotal) {
        mWaiting = 0;
        mRound.store(round + 1, std::memory_order_relaxed);
        mGate.broadcast();
    } else {
        while (mRound.load(std::memory_order_relaxed) == round)
            mGate.wait(mLock);
    }
    return mLock.unlock();
}

unsigned long Barrier::rounds() const { return mRound.load(std::memory_order_relaxed); }

}  // namespace vanta
