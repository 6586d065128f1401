// Not API. The SpinLock's record and its critical region, shared with the waiting primitives.
#pragma once

#include "linux/futex_p.h"

#include <pthread.h>

namespace vanta {

// A non-recursive critical region on one futex word: 0 free, 1 taken, 2 taken with sleepers.
// Recursion is handled above it by SpinLock.
class CriticalRegion {
public:
    static constexpr unsigned int kForever = 0x7fffffff;

    // Enters within durationMs (0: only if free now; kForever: no limit). True when entered.
    bool enter(unsigned int durationMs, uint32_t spinCount) {
        uint32_t expected = 0;
        if (mWord.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                          std::memory_order_relaxed))
            return true;
        if (durationMs == 0)
            return false;
        for (uint32_t i = 0; i < spinCount; ++i) {
            futex::relax();
            expected = 0;
            if (mWord.load(std::memory_order_relaxed) == 0 &&
                mWord.compare_exchange_weak(expected, 1, std::memory_order_acquire,
                                            std::memory_order_relaxed))
                return true;
        }
        return enterSlow(durationMs);
    }

    void exit() {
        if (mWord.exchange(0, std::memory_order_release) == 2)
            futex::wake(mWord, 1);
    }

private:
    bool enterSlow(unsigned int durationMs) {
        timespec deadline{};
        const bool limited = durationMs != kForever;
        if (limited)
            deadline = futex::deadlineAfter(durationMs);
        // Mark the word contended so the holder wakes a sleeper on exit.
        while (mWord.exchange(2, std::memory_order_acquire) != 0) {
            if (limited && futex::passed(deadline))
                return false;
            futex::wait(mWord, 2, limited ? &deadline : nullptr);
        }
        return true;
    }

    std::atomic<uint32_t> mWord{0};
};

struct SpinLockData {
    CriticalRegion region;
    int depth = 0;            // levels held by the owner; touched only by the owner
    uint32_t spinCount = 0;   // busy-wait budget before sleeping
    // Compared without the region: a thread only ever finds its own id here while it owns the
    // lock, so a relaxed load is enough.
    std::atomic<pthread_t> owner{0};
};

}  // namespace vanta
