// Worker groups: AsyncThread's start, rendezvous, run requests and stop.
#include <vanta/thread.h>

#include <vanta/memory.h>

#include <new>

namespace vanta {

// One worker's record.
struct AsyncThread::ThreadInfo {
    explicit ThreadInfo(AsyncThread* owner) : group(owner) {}

    AsyncThread* group;
    System::ThreadHandle thread = 0;  // 0 until started
    // One unit per request not yet started (posted by ready()), plus the wake-up of exitThreads().
    Semaphore wake{0};
    // Guarded by group->lock: requests accepted and not yet finished, 0 to 2. Every worker's
    // count changes at the same moments (ready() and the end of a round), so a burst of ready()
    // calls is accepted or dropped alike for all workers, wherever each one is in its round.
    int pending = 0;
    bool served = false;  // guarded by group->lock: this round's call answers a request
};

AsyncThread::AsyncThread(AsyncThreadHandler* handler, unsigned long threadCount)
    : handler(handler), threadCount(threadCount), lock(0) {
    threads = static_cast<ThreadInfo*>(doNew(sizeof(ThreadInfo) * (threadCount ? threadCount : 1)));
    for (unsigned long i = 0; i < threadCount; ++i)
        new (&threads[i]) ThreadInfo(this);
}

AsyncThread::~AsyncThread() {
    for (unsigned long i = 0; i < threadCount; ++i)
        threads[i].~ThreadInfo();
    doDelete(threads);
}

int AsyncThread::startThreads() {
    if (started.load(std::memory_order_acquire))
        return kAlreadyStarted;
    {
        CSMutex guard(lock);
        quit.store(0, std::memory_order_relaxed);
        for (unsigned long i = 0; i < threadCount; ++i) {
            threads[i].thread = 0;
            threads[i].pending = 0;
            threads[i].served = false;
        }
    }
    for (unsigned long i = 0; i < threadCount; ++i)
        threads[i].thread = System::spawn(asyncFunc, &threads[i]);
    syncThreads(threadCount + 1);
    CSMutex guard(lock);
    started.store(1, std::memory_order_release);
    return 0;
}

int AsyncThread::syncThreads(unsigned long n) {
    if (n == 0)
        return -1;
    lock.lock(SpinLock::kForever);
    const unsigned long round = syncRound;
    if (++arrivals >= n) {
        arrivals = 0;
        ++syncRound;
        // Everyone has finished the round: the requests it answered are done.
        for (unsigned long i = 0; i < threadCount; ++i) {
            if (threads[i].served && threads[i].pending > 0)
                --threads[i].pending;
            threads[i].served = false;
        }
        syncGate.broadcast();
    } else {
        // Also give up when the group is being stopped: a worker that left at its wait never
        // arrives here, and the others must not wait for it for ever.
        while (syncRound == round && !quit.load(std::memory_order_relaxed))
            syncGate.wait(lock);
    }
    return lock.unlock();
}

void AsyncThread::ready() {
    if (!started.load(std::memory_order_acquire))
        return;
    CSMutex guard(lock);
    for (unsigned long i = 0; i < threadCount; ++i) {
        ThreadInfo& info = threads[i];
        if (info.pending >= 2)
            continue;  // two runs queued already: this request is dropped
        ++info.pending;
        info.wake.post();
    }
}

int AsyncThread::exitThreads() {
    if (!started.load(std::memory_order_acquire))
        return 0;
    {
        CSMutex guard(lock);
        quit.store(1, std::memory_order_relaxed);
        for (unsigned long i = 0; i < threadCount; ++i) {
            if (threads[i].pending == 0)
                threads[i].wake.post();
        }
        syncGate.broadcast();
    }
    while (runningCount() != 0)
        System::sleep(10);
    // Every worker has left its loop; joining returns their thread resources at once.
    for (unsigned long i = 0; i < threadCount; ++i) {
        System::join(threads[i].thread);
        threads[i].thread = 0;
    }
    CSMutex guard(lock);
    arrivals = 0;
    quit.store(0, std::memory_order_relaxed);
    return 0;
}

long AsyncThread::runningCount() const { return __atomic_load_n(&running, __ATOMIC_ACQUIRE); }

void* AsyncThread::asyncFunc(void* info) {
    ThreadInfo* record = static_cast<ThreadInfo*>(info);
    record->group->asyncHandler(record);
    return nullptr;
}

void AsyncThread::asyncHandler(ThreadInfo* info) {
    TestThenAdd(&running, 1);
    // The first rendezvous includes the starting thread, later ones only the workers.
    unsigned long party = threadCount + 1;
    for (;;) {
        syncThreads(party);
        party = threadCount;

        {
            CSMutex guard(lock);
            if (quit.load(std::memory_order_relaxed)) {
                info->pending = 0;
                break;
            }
        }
        // Every accepted request left one unit in `wake`; take the next one, or give up after
        // the time-out and run anyway (no error). A zero time-out still takes a waiting unit.
        const bool requested = waitTimeoutMs == 0 ? info->wake.trywait() == 0
                                                  : info->wake.trywait(waitTimeoutMs) == 0;
        if (quit.load(std::memory_order_relaxed)) {
            CSMutex guard(lock);
            info->pending = 0;
            break;
        }
        if (requested) {
            CSMutex guard(lock);
            info->served = true;
        }
        if (handler)
            handler->handleAsync();
    }
    TestThenAdd(&running, -1);
}

}  // namespace vanta
