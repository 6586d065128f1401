/// \file
/// Locks: the recursive SpinLock, its scoped guard, the two process-wide locks and the atomic add.
#pragma once

namespace vanta {

struct SpinLockData;

/// A recursive lock owned by one thread, with a time-out on acquisition.
///
/// The owner may lock again any number of times; each lock needs one unlock. Re-entry and the
/// release of a nested level touch only the lock's record, never the kernel. Time-outs are in
/// milliseconds; kForever (all ones) waits without limit, 0 never waits.
/// Results are 0 (success) or -1 (timed out, or the caller is not the owner); nothing is thrown.
class SpinLock {
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
    int lock(unsigned int timeoutMs = kForever);
    /// As lock(0): never waits.
    int trylock();
    /// Releases one level. -1, with nothing changed, when the calling thread is not the owner.
    int unlock();
    /// Makes the calling thread the owner, keeping the depth.
    void stealOwnership();
    /// stealOwnership() then unlock(): releases one level of a lock another thread took.
    void forceUnlock();

    /// For tests and diagnostics: the owner's nesting depth (0 when free), read by the owner.
    int depth() const;
    /// True when the calling thread owns the lock.
    bool isOwnedByCaller() const;

private:
    int lockContended(unsigned int timeoutMs);
    friend class Conditional;
    SpinLockData* mData;
};

/// Scoped guard: locks for ever on construction, unlocks on destruction.
class CSMutex {
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
class GlobalLock {
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
class BlockMainLock {
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
long TestThenAdd(long volatile* target, long delta);

}  // namespace vanta
