// vanta::System: the process-wide static operations, grouped by the family that implements them.
#pragma once

namespace vanta {

// A class of static operations with one static instance (see the clock section). Each group of
// operations below is implemented in the source of its family; the Linux parts live in linux/.
class System {
public:
    // ---- Sleeping and the processor count (locks.cpp, linux/systemlinux.cpp) ----

    // Suspends the calling thread with one nanosleep for ms milliseconds; -1 sleeps for
    // 2147483647 seconds. An interrupted sleep is not resumed. Returns nanosleep's result.
    static int sleep(int ms);
    // The number of online processors.
    static int getNumProcessors();

    // ---- Threads (thread.cpp, linux/systemspawnlinux.cpp) ----

    // A thread's handle: the platform thread identity (pthread_t on Linux); 0 is no thread.
    // Compare two handles with sameThread(), not with ==.
    using ThreadHandle = unsigned long;
    // The marker setMainThreadId() stores on the main thread.
    static constexpr unsigned kMainThreadMarker = 0xc0ffee;

    // Starts a joinable thread running func(arg). Returns its handle, or 0 when the thread could
    // not be created or func is null. Does not block.
    static ThreadHandle spawn(void* (*func)(void*), void* arg);
    // Blocks until the thread ends, discarding its result. 0, or the error number (ESRCH for 0).
    static int join(ThreadHandle thread);
    // A new per-thread storage key; its slot starts null on every thread.
    static unsigned createThreadKey();
    // The calling thread's value under key; null when unset or key is unknown.
    static void* getThreadStorage(unsigned key);
    // Sets the calling thread's value under key. 0, or an error number for an unknown key.
    static int setThreadStorage(unsigned key, void* value);
    // The calling thread's handle.
    static ThreadHandle getCurrentThread();
    // True when a and b name the same thread.
    static bool sameThread(ThreadHandle a, ThreadHandle b);
    // Marks the calling thread: kMainThreadMarker makes it the main thread, any other id makes it
    // an ordinary thread.
    static void setMainThreadId(unsigned id);
    // True when the calling thread was marked with kMainThreadMarker.
    static bool isMainThread();

    // ---- Clock, frame timing and random numbers (system.cpp) ----

    // The current frame number; the application advances it once per frame, the library only
    // reads it (log lines, cache ageing).
    static int sCurFrame;


    // ---- Machine description (linux/systemlinux.cpp) ----


    // ---- Locales, addresses and the browser (locale.cpp) ----


    // ---- Paths and file descriptors (file.cpp, linux/filelinux.cpp) ----


    // ---- Timers and message boxes (timer.cpp) ----


};

}  // namespace vanta
