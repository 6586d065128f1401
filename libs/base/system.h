// vanta::System: the process-wide static operations, grouped by the family that implements them.
#pragma once

#include <QString>

struct tm;

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

    // The one instance, built at library load: its constructor starts the process clock, seeds
    // the random generators and records the start instant.
    static System theSystem;

    // Seeds the C library generator with s (0 counts as 3141592) and, from it, randf().
    static void seed(unsigned int s);
    // An integer in lo..hi-1 from the C library generator; hi itself is never returned. 0 when
    // hi < lo, lo when hi == lo. Shares the generator with seed(): not for concurrent use.
    static int random(int lo, int hi);
    // The next value in [0, 1) of a small floating-point generator, independent of rand().
    // Not for concurrent use.
    static double randf();

    // The duration in seconds of the last frame (1 / the fixed rate when one is set).
    static double getGlobalDT();
    // The fixed frame rate in frames per second; 0.0 when the rate is not fixed.
    static double getFrameRate();
    // Called once per frame by the rendering thread. A frame that rendered measures the time
    // since the previous rendered frame (at most 0.2 s, never negative); the first rendered
    // frame after non-rendering ones only restarts the measurement, so pauses never count.
    // With a fixed rate the frame time is always 1 / rate. Rendering thread only.
    static void updateGlobalDT(bool rendering);
    // Fixes the frame time at 1 / rate (effective at once), or with fixed false lets frames be
    // measured again from the next rendered one. Rendering thread only.
    static void setFixedFrameRate(bool fixed, double rate);

    // Seconds since the library started, with microsecond resolution. Safe from any thread.
    static double getTime();
    // The library's start instant in DateTime::toSeconds() units.
    static double getStartTime();
    // Wall-clock seconds since 1970-01-01 UTC: the system clock read once, then advanced by
    // getTime(), so later changes of the system clock are not seen. Safe from any thread.
    static int getCurrTime();
    // Milliseconds since 1970-01-01 UTC, from the system clock now.
    static unsigned long long getSystemTime();
    // The local offset east of UTC now, as hours and minutes (minutes carry the sign of the
    // offset; hours include one for daylight saving time). Returns 0, or -1 when the local time
    // could not be determined (the outputs are then untouched). Honours a changed TZ.
    static int getLocalTimeZone(int& hours, int& minutes);
    // The C library's asctime text of t, trailing newline included; a null QString when t is
    // beyond what it can print.
    static QString wasctime(tm* t);
    // The C library's ctime text (local time) of *t, trailing newline included; a null QString
    // when *t cannot be broken down.
    static QString wctime(const long* t);

    // The current frame number; the application advances it once per frame, the library only
    // reads it (log lines, cache ageing).
    static int sCurFrame;
    // The planet's radius in metres, and its reciprocal (stored, not computed at use).
    static double sPlanetRadius;
    static double sInvPlanetRadius;

private:
    // Run only for theSystem, at library load and unload.
    System();
    ~System();

public:


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

// Starts the process clock: getTime() counts from this call. Run by theSystem's constructor.
void init_clock();

}  // namespace vanta
