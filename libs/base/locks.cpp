// Locks: SpinLock recursion over a critical region, and the lazily created process-wide locks.
#include "locks.h"

#include "locks_p.h"
#include "system.h"

namespace vanta {

namespace lockdetail {
__thread char tThreadTag;
}  // namespace lockdetail

namespace {

inline const void* self() { return lockdetail::callerIdentity(); }

}  // namespace

namespace {

// The longest a waiter polls before it sleeps, whatever its spin count. Polling pays only when
// the owner lets go sooner than going to sleep and being woken would take (several microseconds);
// past that it only keeps a processor from the owner, who may be waiting for one.
constexpr int64_t kMaxSpinNs = 2000;
// Pauses between two polls double up to this many, so a waiter reads the shared line less often
// and leaves the owner's release and re-lock uncontested.
constexpr uint32_t kMaxPauses = 16;

// Sleeps on a region's word until it is entered (true) or the deadline passes (false; null: no
// deadline). The word is marked contended so the holder wakes a sleeper on exit.
bool sleepUntilEntered(std::atomic<uint32_t>& word, const timespec* deadline) {
    while (word.exchange(2, std::memory_order_acquire) != 0) {
        if (deadline && futex::passed(*deadline))
            return false;
        futex::wait(word, 2, deadline);
    }
    return true;
}

}  // namespace

bool lockdetail::CriticalRegion::spin(uint32_t spinCount, int64_t endNs) {
    uint32_t pauses = 1;
    for (uint64_t spent = 0; spent < spinCount; spent += pauses) {
        for (uint32_t i = 0; i < pauses; ++i)
            futex::relax();
        const uint32_t word = mWord.load(std::memory_order_relaxed);
        if (word == 0 && tryEnter())
            return true;
        // A waiter that arrived meanwhile went to sleep: the lock passes through the kernel now,
        // and this poller would only race the thread to be woken.
        if (word == 2 || futex::nowNs() >= endNs)
            return false;
        if (pauses < kMaxPauses)
            pauses *= 2;
    }
    return false;
}

bool lockdetail::CriticalRegion::enterContended(unsigned int durationMs, uint32_t spinCount) {
    // The deadline is taken before the first poll, so polling counts against the time-out. The
    // polling itself ends long before any deadline of a millisecond or more.
    timespec deadline{};
    const timespec* limit = nullptr;
    if (durationMs != kForever) {
        deadline = futex::deadlineAfter(durationMs);
        limit = &deadline;
    }
    if (spinCount == 0)
        return sleepUntilEntered(mWord, limit);
    // Only a lock's one waiter polls: the owner and the poller then need two processors, and
    // with more waiters than that the owner is likely not running, or the lock passes through
    // the kernel anyway. Waiters are counted until they leave, asleep or not.
    const bool alone = mWaiters.fetch_add(1, std::memory_order_relaxed) == 0;
    const bool entered = (alone && spin(spinCount, futex::nowNs() + kMaxSpinNs)) ||
                         sleepUntilEntered(mWord, limit);
    mWaiters.fetch_sub(1, std::memory_order_relaxed);
    return entered;
}

void lockdetail::CriticalRegion::wakeOne() { futex::wake(mWord, 1); }

SpinLock::SpinLock(unsigned long spinCount) : mHead(new SpinLockData) {
    data().spinCount = System::getNumProcessors() > 1 ? uint32_t(spinCount) : 0;
}

SpinLock::~SpinLock() { delete &data(); }

// The inline lock() found the region held and the caller not the owner, which it cannot become
// meanwhile: only the region decides.
bool SpinLock::waitForRegion(unsigned int timeoutMs) {
    const unsigned int duration = timeoutMs == kForever ? CriticalRegion::kForever : timeoutMs;
    SpinLockData& d = data();
    return d.region.enter(duration, d.spinCount);
}

void SpinLock::stealOwnership() { mHead->owner.store(self(), std::memory_order_relaxed); }

void SpinLock::forceUnlock() {
    stealOwnership();
    unlock();
}

int SpinLock::depth() const { return isOwnedByCaller() ? mHead->depth : 0; }

bool SpinLock::isOwnedByCaller() const {
    return mHead->owner.load(std::memory_order_relaxed) == self();
}

long TestThenAdd(long volatile* target, long delta) {
    return __atomic_fetch_add(target, delta, __ATOMIC_SEQ_CST);
}

namespace {

// The three globals of one process-wide lock. Zero-initialised, so they are valid before any
// static constructor runs.
struct ProcessLock {
    std::atomic<SpinLock*> lock{nullptr};
    std::atomic<int32_t> inited{0};
    long volatile interlock = 0;

    void init() {
        if (inited.load(std::memory_order_acquire) != 0)
            return;
        if (TestThenAdd(&interlock, 1) == 0) {
            // This thread won: it creates the lock. The interlock stays taken for good, so the
            // lock is never created twice, not even after shutdown.
            lock.store(new SpinLock(0), std::memory_order_relaxed);
            inited.store(1, std::memory_order_release);
            return;
        }
        while (inited.load(std::memory_order_acquire) == 0)
            System::sleep(1);
        TestThenAdd(&interlock, -1);
    }

    SpinLock* get() {
        if (inited.load(std::memory_order_acquire) == 0)
            init();
        return lock.load(std::memory_order_relaxed);
    }

    void shutdown() { delete lock.exchange(nullptr, std::memory_order_acq_rel); }
};

ProcessLock gGlobal;
ProcessLock gBlockMain;

}  // namespace

int GlobalLock::lock() { return gGlobalLock()->lock(SpinLock::kForever); }
int GlobalLock::trylock() { return gGlobalLock()->trylock(); }
int GlobalLock::unlock() { return gGlobalLock()->unlock(); }
SpinLock* GlobalLock::gGlobalLock() { return gGlobal.get(); }
void GlobalLock::initGlobalLock() { gGlobal.init(); }
void GlobalLock::shutdown() { gGlobal.shutdown(); }

int BlockMainLock::lock() { return gGlobalLock()->lock(SpinLock::kForever); }
int BlockMainLock::trylock() { return gGlobalLock()->trylock(); }
int BlockMainLock::unlock() { return gGlobalLock()->unlock(); }
SpinLock* BlockMainLock::gGlobalLock() { return gBlockMain.get(); }
void BlockMainLock::initGlobalLock() { gBlockMain.init(); }
void BlockMainLock::shutdown() { gBlockMain.shutdown(); }

}  // namespace vanta
