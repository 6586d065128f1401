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

// A memory pool's lock steps, inline: an uncontended lock makes no call.
struct SpinLockInline {
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
