// Not API. The SpinLock's record and its critical region, shared with the waiting primitives.
#pragma once

#include "locks.h"
#include "linux/futex_p.h"

#include <sys/single_threaded.h>

namespace vanta {

// True while the process has one thread. Then nobody can touch a lock word concurrently, so it
// can be taken and released with plain loads and stores instead of locked instructions (the C
// library's own mutexes do the same). The flag turns false before a second thread starts, and
// only the one existing thread can start it, so a check followed by a plain update cannot be
// overtaken.
inline bool singleThreaded() { return __libc_single_threaded != 0; }

// A non-recursive critical region on one futex word: 0 free, 1 taken, 2 taken with sleepers.
// Recursion is handled above it by SpinLock.
class CriticalRegion {
public:
    static constexpr unsigned int kForever = 0x7fffffff;

    // Enters if the region is free now; never waits. Forced inline, as is exit: they are the
    // whole cost of an uncontended lock.
    [[gnu::always_inline]] bool tryEnter() {
        if (singleThreaded()) {
            if (mWord.load(std::memory_order_relaxed) != 0)
                return false;
            mWord.store(1, std::memory_order_relaxed);
            return true;
        }
        uint32_t expected = 0;
        return mWord.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }

    // Enters within durationMs (0: only if free now; kForever: no limit). True when entered.
    [[gnu::always_inline]] bool enter(unsigned int durationMs, uint32_t spinCount) {
        return tryEnter() || (durationMs != 0 && enterContended(durationMs, spinCount));
    }

    [[gnu::always_inline]] void exit() {
        uint32_t previous;
        if (singleThreaded()) {
            previous = mWord.load(std::memory_order_relaxed);
            mWord.store(0, std::memory_order_relaxed);
        } else {
            previous = mWord.exchange(0, std::memory_order_release);
        }
        if (previous == 2)
            wakeOne();
    }

private:
    // Wakes one sleeper. Out of line, so the uncontended exit stays small enough to inline.
    void wakeOne();

    // Polls up to spinCount times, then sleeps on the word until it is free or time runs out.
    // Out of line, so the uncontended path above stays small.
    bool enterContended(unsigned int durationMs, uint32_t spinCount);

    std::atomic<uint32_t> mWord{0};
};

// The owner, depth and lock word of one SpinLock. A cache line of its own: records allocated one
// after the other (two pools' locks) would otherwise share a line, and every lock and unlock by
// one thread would take it away from the other.
struct alignas(64) SpinLockData : lockdetail::SpinLockHead {
    CriticalRegion region;
    uint32_t spinCount = 0;  // busy-wait budget before sleeping
};
static_assert(sizeof(SpinLockData) == 64);

inline SpinLockData& SpinLock::data() const { return static_cast<SpinLockData&>(*mHead); }

// The steps of SpinLock's lock and unlock, inline. The public calls use the two that leave the
// header; a memory pool, which takes its lock around each allocation, uses the region steps, so
// that an uncontended lock makes no call.
struct SpinLockInline {
    // The caller does not hold the lock: takes it within durationMs. False when time ran out.
    static bool takeFree(SpinLockData& d, unsigned int durationMs) {
        if (!d.region.enter(durationMs, d.spinCount))
            return false;
        d.owner.store(lockdetail::callerIdentity(), std::memory_order_relaxed);
        d.depth = 1;
        return true;
    }

    // Releases the last level; the caller is the owner. The depth is left at 1: it counts only
    // while there is an owner, and the next owner sets it.
    static void releaseLast(SpinLockData& d) {
        d.owner.store(nullptr, std::memory_order_relaxed);
        d.region.exit();
    }

    // A memory pool's lock around each call into its arena. A pool never takes its lock again
    // while holding it (nothing the arena calls comes back into the pool), so the region alone
    // keeps other threads out; the owner and depth, which only re-entry needs, are not kept.
    static void enterRegion(SpinLock& lock) {
        SpinLockData& d = lock.data();
        d.region.enter(CriticalRegion::kForever, d.spinCount);
    }

    static void exitRegion(SpinLock& lock) { lock.data().region.exit(); }
};

}  // namespace vanta
