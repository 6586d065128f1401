/// \file
/// Locks: the recursive SpinLock, its scoped guard, the two process-wide locks and the atomic add.
#pragma once

#include <vanta/export.h>
#include <sys/single_threaded.h>

#include <atomic>
#include <cstdint>

namespace vanta {

struct SpinLockData;

/// Not API: what the inline lock and unlock paths below need to see.
namespace lockdetail {

/// One byte per thread, defined by the library. Its address identifies the calling thread; the
/// initial-exec model makes taking it two instructions, with no call.
VANTA_EXPORT extern __thread char tThreadTag __attribute__((tls_model("initial-exec")));

/// The calling thread's identity as the lock records it: never null, unique among live threads.
inline const void* callerIdentity() { return &tThreadTag; }

/// True while the process has one thread. Then nobody can touch a lock word concurrently, so it
/// is taken and released with plain loads and stores instead of locked instructions (the C
/// library's own allocator does the same). The flag turns false before a second thread starts,
/// and only the one existing thread can start it, so a check followed by a plain update cannot
/// be overtaken.
inline bool singleThreaded() { return __libc_single_threaded != 0; }

/// A non-recursive critical region on one futex word: 0 free, 1 taken, 2 taken with sleepers.
/// Recursion is handled above it by SpinLock.
class VANTA_EXPORT CriticalRegion {
public:
    /// A duration that never expires.
    static constexpr unsigned int kForever = 0x7fffffff;

    /// Enters if the region is free now; never waits. Forced inline, as is exit: they are the
    /// whole cost of an uncontended lock.
    [[gnu::always_inline]] bool tryEnter() {
        if (singleThreaded()) {
            if (mWord.load(std::memory_order_relaxed) != 0)
                return false;
            mWord.store(1, std::memory_order_relaxed);
            return true;
        }
        std::uint32_t expected = 0;
        return mWord.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }

    /// Enters within durationMs (0: only if free now; kForever: no limit). True when entered.
    [[gnu::always_inline]] bool enter(unsigned int durationMs, std::uint32_t spinCount) {
        return tryEnter() || (durationMs != 0 && enterContended(durationMs, spinCount));
    }

    /// Leaves the region, waking one sleeper if there is one.
    [[gnu::always_inline]] void exit() {
        std::uint32_t previous;
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

    // Polls a while when that is likely to pay, then sleeps on the word until it is free or
    // durationMs, counted from the call, runs out. Out of line, so the uncontended path above
    // stays small.
    bool enterContended(unsigned int durationMs, std::uint32_t spinCount);

    // Polls the word with growing pauses, at most spinCount pauses and never past endNs (on the
    // monotonic clock); gives up early when the word shows sleepers. True when entered.
    bool spin(std::uint32_t spinCount, std::int64_t endNs);

    std::atomic<std::uint32_t> mWord{0};
    std::atomic<std::uint32_t> mWaiters{0};  // threads in enterContended with a spin count
};

/// The start of every lock's private record: who holds it, how often, and the region that keeps
/// other threads out. The owner is compared without any lock: a thread only ever finds its own
/// identity here while it holds the lock.
struct VANTA_EXPORT SpinLockHead {
    std::atomic<const void*> owner{nullptr};  ///< the holding thread's identity; null when free
    int depth = 0;  ///< levels held by the owner; touched only by the owner
    CriticalRegion region;  ///< held while the lock has an owner
};

}  // namespace lockdetail

/// A recursive lock owned by one thread, with a time-out on acquisition.
///
/// The owner may lock again any number of times; each lock needs one unlock. Re-entry and the
/// release of a nested level touch only the lock's record, never the kernel. Time-outs are in
/// milliseconds; kForever (all ones) waits without limit, 0 never waits.
/// Results are 0 (success) or -1 (timed out, or the caller is not the owner); nothing is thrown.
class VANTA_EXPORT SpinLock {
public:
    /// A time-out that never expires.
    static constexpr unsigned int kForever = ~0u;

    /// spinCount: how many times a contended lock busy-polls before it sleeps; ignored (0) on a
    /// single-processor machine.
    explicit SpinLock(unsigned long spinCount = 0);
    /// Does not check that the lock is free.
    ~SpinLock();

    SpinLock(const SpinLock&) = delete;
    SpinLock& operator=(const SpinLock&) = delete;

    /// 0 when the calling thread holds the lock on return; -1 when timeoutMs passed first.
    /// Inline unless the lock is held by another thread: the owner's re-entry is an identity
    /// compare and a depth bump, and taking a free lock one step on its region.
    int lock(unsigned int timeoutMs = kForever) {
        lockdetail::SpinLockHead& h = *mHead;
        const void* self = lockdetail::callerIdentity();
        if (h.owner.load(std::memory_order_relaxed) == self) {
            ++h.depth;
            return 0;
        }
        if (!h.region.tryEnter() && !waitForRegion(timeoutMs))
            return -1;
        h.owner.store(self, std::memory_order_relaxed);
        h.depth = 1;
        return 0;
    }
    /// As lock(0): never waits.
    int trylock() { return lock(0); }
    /// Releases one level. -1, with nothing changed, when the calling thread is not the owner.
    /// Inline; only waking a thread that sleeps on the lock leaves the header.
    int unlock() {
        lockdetail::SpinLockHead& h = *mHead;
        // The owner first: depth belongs to the owner, and another thread must not read it.
        if (h.owner.load(std::memory_order_relaxed) != lockdetail::callerIdentity())
            return -1;
        if (h.depth > 1) {
            --h.depth;
            return 0;
        }
        // The depth is left at 1: it counts only while there is an owner, and the next owner
        // sets it.
        h.owner.store(nullptr, std::memory_order_relaxed);
        h.region.exit();
        return 0;
    }
    /// Makes the calling thread the owner, keeping the depth.
    void stealOwnership();
    /// stealOwnership() then unlock(): releases one level of a lock another thread took.
    void forceUnlock();

    /// For tests and diagnostics: the owner's nesting depth (0 when free), read by the owner.
    int depth() const;
    /// True when the calling thread owns the lock.
    bool isOwnedByCaller() const;

private:
    // Another thread holds the lock: waits up to timeoutMs for its region. False when time ran
    // out.
    bool waitForRegion(unsigned int timeoutMs);
    SpinLockData& data() const;
    friend class Conditional;
    friend struct SpinLockInline;
    // Points at a SpinLockData, which starts with this head.
    lockdetail::SpinLockHead* mHead;
};

/// Scoped guard: locks for ever on construction, unlocks on destruction.
class VANTA_EXPORT CSMutex {
public:
    /// Locks lock, waiting as long as it takes.
    explicit CSMutex(SpinLock& lock) : mLock(lock) { mLock.lock(SpinLock::kForever); }
    ~CSMutex() { mLock.unlock(); }
    CSMutex(const CSMutex&) = delete;
    CSMutex& operator=(const CSMutex&) = delete;

private:
    SpinLock& mLock;
};

/// The process-wide lock guarding the library's registries and clock state. Created on first use
/// by exactly one thread, even when several threads race to use it first; never re-created after
/// shutdown(), and using it after shutdown() is an error.
class VANTA_EXPORT GlobalLock {
public:
    /// Locks the global lock for ever; 0 on success.
    static int lock();
    /// Takes the global lock if free; 0 on success, -1 when held elsewhere.
    static int trylock();
    /// Releases one level; -1 when the caller is not the owner.
    static int unlock();
    /// The lock, created on first call; null after shutdown().
    static SpinLock* gGlobalLock();
    /// Creates the lock if it does not exist yet.
    static void initGlobalLock();
    /// Destroys the lock; it is never created again.
    static void shutdown();
};

/// A second, independent process-wide lock for the application; the library never takes it.
class VANTA_EXPORT BlockMainLock {
public:
    /// Locks for ever; 0 on success.
    static int lock();
    /// Takes the lock if free; 0 on success, -1 when held elsewhere.
    static int trylock();
    /// Releases one level; -1 when the caller is not the owner.
    static int unlock();
    /// The lock, created on first call; null after shutdown().
    static SpinLock* gGlobalLock();
    /// Creates the lock if it does not exist yet.
    static void initGlobalLock();
    /// Destroys the lock; it is never created again.
    static void shutdown();
};

/// Atomically adds delta to *target (a full barrier) and returns the value it held before.
VANTA_EXPORT long TestThenAdd(long volatile* target, long delta);

}  // namespace vanta
