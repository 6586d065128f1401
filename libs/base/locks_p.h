// Not API. The SpinLock's record and its critical region, shared with the waiting primitives.
#pragma once

#include "locks.h"
#include "linux/futex_p.h"

namespace vanta {

using lockdetail::CriticalRegion;
using lockdetail::singleThreaded;

// The owner, depth and region of one SpinLock, and its spin budget. A cache line of its own:
// records allocated one after the other (two pools' locks) would otherwise share a line, and
// every lock and unlock by one thread would take it away from the other.
struct alignas(64) SpinLockData : lockdetail::SpinLockHead {
    uint32_t spinCount = 0;  // busy-wait budget before sleeping
};
static_assert(sizeof(SpinLockData) == 64);

inline SpinLockData& SpinLock::data() const { return static_cast<SpinLockData&>(*mHead); }

// The steps of SpinLock's lock that the header leaves to the library, and a memory pool's lock,
// which is taken around each allocation and makes no call when uncontended.
struct SpinLockInline {
    // The caller does not hold the lock: takes it within durationMs. False when time ran out.
    static bool takeFree(SpinLockData& d, unsigned int durationMs) {
        if (!d.region.enter(durationMs, d.spinCount))
            return false;
        d.owner.store(lockdetail::callerIdentity(), std::memory_order_relaxed);
        d.depth = 1;
        return true;
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
