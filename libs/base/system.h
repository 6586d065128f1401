// vanta::System: the process-wide static operations, grouped by the family that implements them.
#pragma once

#include <QString>

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


    // ---- Clock, frame timing and random numbers (system.cpp) ----

    // The current frame number; the application advances it once per frame, the library only
    // reads it (log lines, cache ageing).
    static int sCurFrame;


    // ---- Machine description (linux/systemlinux.cpp) ----


    // ---- Locales, addresses and the browser (locale.cpp) ----


    // ---- Paths and file descriptors (file.cpp, linux/filelinux.cpp) ----


    // ---- Timers and message boxes (timer.cpp) ----

    // Kinds of message box; any value other than kMessageWarning shows an information box.
    enum MessageType : int { kMessageInformation = 0, kMessageWarning = 1 };

    // Hands a message box to the timer manager, which shows it later on the user-interface thread
    // (a warning box for kMessageWarning, an information box otherwise). Callable from any
    // thread; returns at once. With no manager, nothing is shown.
    static void AsyncMessageBox(MessageType type, const QString& title, const QString& text);


};

}  // namespace vanta
