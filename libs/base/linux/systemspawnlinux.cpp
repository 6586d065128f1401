// Linux implementation of vanta::System's thread operations over POSIX threads.
#include <vanta/memory.h>
#include <vanta/system.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <mutex>
#include <new>
#include <type_traits>

namespace vanta {

static_assert(std::is_same_v<pthread_t, System::ThreadHandle>,
              "System::ThreadHandle must be the platform thread identity");

namespace {

// What a new thread runs; allocated by spawn() from the default heap, freed by the thread itself.
struct ThreadStart {
    void* (*func)(void*);
    void* arg;
};

// The entry of every spawned thread: runs the function, then frees its start record.
void* threadEntry(void* record) {
    ThreadStart* start = static_cast<ThreadStart*>(record);
    void* (*func)(void*) = start->func;
    void* arg = start->arg;
    start->~ThreadStart();
    doDelete(start);
    return func(arg);
}

// The key whose slot marks the main thread. Created once, by whichever thread first marks itself;
// isMainThread() reads it only after seeing `created`.
std::once_flag sThreadIdKeyOnce;
std::atomic<bool> sThreadIdKeyCreated{false};
unsigned sThreadIdKey = 0;

}  // namespace

System::ThreadHandle System::spawn(void* (*func)(void*), void* arg) {
    if (!func)
        return 0;
    void* memory = doNew(sizeof(ThreadStart));
    if (!memory)
        return 0;
    ThreadStart* start = new (memory) ThreadStart{func, arg};
    pthread_t thread;
    if (pthread_create(&thread, nullptr, threadEntry, start) != 0) {
        start->~ThreadStart();
        doDelete(start);
        return 0;
    }
    return thread;
}

int System::join(ThreadHandle thread) {
    // The one handle known to be invalid is refused here rather than left to the C library.
    if (thread == 0)
        return ESRCH;
    return pthread_join(thread, nullptr);
}

unsigned System::createThreadKey() {
    pthread_key_t key = 0;
    pthread_key_create(&key, nullptr);
    return key;
}

void* System::getThreadStorage(unsigned key) { return pthread_getspecific(key); }

int System::setThreadStorage(unsigned key, void* value) { return pthread_setspecific(key, value); }

System::ThreadHandle System::getCurrentThread() { return pthread_self(); }

bool System::sameThread(ThreadHandle a, ThreadHandle b) { return pthread_equal(a, b) != 0; }

void System::setMainThreadId(unsigned id) {
    // A flag rather than "key still 0": 0 is a valid key, and two threads marking themselves at
    // once must share one key.
    std::call_once(sThreadIdKeyOnce, [] {
        sThreadIdKey = createThreadKey();
        sThreadIdKeyCreated.store(true, std::memory_order_release);
    });
    setThreadStorage(sThreadIdKey, reinterpret_cast<void*>(uintptr_t(id)));
}

bool System::isMainThread() {
    if (!sThreadIdKeyCreated.load(std::memory_order_acquire))
        return false;
    return getThreadStorage(sThreadIdKey) == reinterpret_cast<void*>(uintptr_t(kMainThreadMarker));
}

}  // namespace vanta
