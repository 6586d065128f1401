/// \file
/// vanta::System: the process-wide static operations, grouped by the family that implements them.
#pragma once

#include <vanta/export.h>
#include <QString>
#include <QStringList>

struct tm;

namespace vanta {

/// A class of static operations with one static instance (see the clock section). Each group of
/// operations below is implemented in the source of its family; the Linux parts live in linux/.
class VANTA_EXPORT System {
public:
    // ---- Sleeping and the processor count (locks.cpp, linux/systemlinux.cpp) ----

    /// Suspends the calling thread with one nanosleep for ms milliseconds; -1 sleeps for
    /// 2147483647 seconds. An interrupted sleep is not resumed. Returns nanosleep's result.
    static int sleep(int ms);
    /// The number of online processors.
    static int getNumProcessors();

    // ---- Threads (thread.cpp, linux/systemspawnlinux.cpp) ----

    /// A thread's handle: the platform thread identity (pthread_t on Linux); 0 is no thread.
    /// Compare two handles with sameThread(), not with ==.
    using ThreadHandle = unsigned long;
    /// The marker setMainThreadId() stores on the main thread.
    static constexpr unsigned kMainThreadMarker = 0xc0ffee;

    /// Starts a joinable thread running func(arg). Returns its handle, or 0 when the thread could
    /// not be created or func is null. Does not block.
    static ThreadHandle spawn(void* (*func)(void*), void* arg);
    /// Blocks until the thread ends, discarding its result. 0, or the error number (ESRCH for 0).
    static int join(ThreadHandle thread);
    /// A new per-thread storage key; its slot starts null on every thread.
    static unsigned createThreadKey();
    /// The calling thread's value under key; null when unset or key is unknown.
    static void* getThreadStorage(unsigned key);
    /// Sets the calling thread's value under key. 0, or an error number for an unknown key.
    static int setThreadStorage(unsigned key, void* value);
    /// The calling thread's handle.
    static ThreadHandle getCurrentThread();
    /// True when a and b name the same thread.
    static bool sameThread(ThreadHandle a, ThreadHandle b);
    /// Marks the calling thread: kMainThreadMarker makes it the main thread, any other id makes it
    /// an ordinary thread.
    static void setMainThreadId(unsigned id);
    /// True when the calling thread was marked with kMainThreadMarker.
    static bool isMainThread();

    // ---- Clock, frame timing and random numbers (system.cpp) ----

    /// The one instance, built at library load: its constructor starts the process clock, seeds
    /// the random generators and records the start instant.
    static System theSystem;

    /// Seeds the C library generator with s (0 counts as 3141592) and, from it, randf().
    static void seed(unsigned int s);
    /// An integer in lo..hi-1 from the C library generator; hi itself is never returned. 0 when
    /// hi < lo, lo when hi == lo. Shares the generator with seed(): not for concurrent use.
    static int random(int lo, int hi);
    /// The next value in [0, 1) of a small floating-point generator, independent of rand().
    /// Not for concurrent use.
    static double randf();

    /// The duration in seconds of the last frame (1 / the fixed rate when one is set).
    static double getGlobalDT();
    /// The fixed frame rate in frames per second; 0.0 when the rate is not fixed.
    static double getFrameRate();
    /// Called once per frame by the rendering thread. A frame that rendered measures the time
    /// since the previous rendered frame (at most 0.2 s, never negative); the first rendered
    /// frame after non-rendering ones only restarts the measurement, so pauses never count.
    /// With a fixed rate the frame time is always 1 / rate. Rendering thread only.
    static void updateGlobalDT(bool rendering);
    /// Fixes the frame time at 1 / rate (effective at once), or with fixed false lets frames be
    /// measured again from the next rendered one. Rendering thread only.
    static void setFixedFrameRate(bool fixed, double rate);

    /// Seconds since the library started, with microsecond resolution. Safe from any thread.
    static double getTime();
    /// The library's start instant in DateTime::toSeconds() units.
    static double getStartTime();
    /// Wall-clock seconds since 1970-01-01 UTC: the system clock read once, then advanced by
    /// getTime(), so later changes of the system clock are not seen. Safe from any thread.
    static int getCurrTime();
    /// Milliseconds since 1970-01-01 UTC, from the system clock now.
    static unsigned long long getSystemTime();
    /// The local offset east of UTC now, as hours and minutes (minutes carry the sign of the
    /// offset; hours include one for daylight saving time). Returns 0, or -1 when the local time
    /// could not be determined (the outputs are then untouched). Honours a changed TZ.
    static int getLocalTimeZone(int& hours, int& minutes);
    /// The C library's asctime text of t, trailing newline included; a null QString when t is
    /// beyond what it can print.
    static QString wasctime(tm* t);
    /// The C library's ctime text (local time) of *t, trailing newline included; a null QString
    /// when *t cannot be broken down.
    static QString wctime(const long* t);

    /// The current frame number; the application advances it once per frame, the library only
    /// reads it (log lines, cache ageing).
    static int sCurFrame;
    /// The planet's radius in metres, and its reciprocal (stored, not computed at use).
    static double sPlanetRadius;
    static double sInvPlanetRadius;  ///< 1 / sPlanetRadius.

private:
    /// Run only for theSystem, at library load and unload.
    System();
    ~System();

public:


    // ---- Machine description (linux/systemlinux.cpp) ----

    /// Operating systems; getOSName gives each its display name.
    enum OSVersion : int {
        kWin32s = 1,
        kWindows95 = 2,
        kWindows98 = 3,
        kWindowsME = 4,
        kWindowsNT = 5,
        kWindows2000 = 6,
        kWindowsXP = 7,
        kWindowsServer = 8,
        kWindowsVista = 9,
        kMacOSX = 10,
        kLinux = 11,
    };

    /// A fresh identifier: the 16 bytes of an RFC 4122 UUID in their standard order.
    struct GUID {
        unsigned char bytes[16];  ///< The identifier's 16 bytes.
        bool operator==(const GUID& o) const;  ///< Same bytes.
        bool operator!=(const GUID& o) const { return !(*this == o); }  ///< Different bytes.
    };

    /// The running system only (kLinux here).
    static OSVersion getOSVersion();
    /// The running system and its kernel release: "6.1.0-18-amd64" gives 6, 1, 0 and service
    /// pack 18; missing numbers are 0.
    static void getOSVersion(OSVersion& os, int& major, int& minor, int& build, int& servicePack);
    /// The display name of os, "UNKNOWN" for a value outside the enumeration.
    static QString getOSName(const OSVersion& os);
    /// Display name and version, e.g. "Linux (6.1.0.18)".
    static QString getOSVersionString();
    /// The processor code: PowerPC codes have the top bit set, x86 codes are 3 to 6, 0 is unknown.
    static int getProcessorType();
    /// The mapping behind getProcessorType from a processor family (18 PowerPC, 7 x86) and a
    /// subtype as the Mach kernel numbers them. Pure; exposed so every row can be checked.
    static int processorTypeFor(int cpuType, int cpuSubtype);
    /// The highest clock rate of processor 0 in hertz, 0 when the system does not say.
    static float getProcessorClockSpeed();
    /// Memory figures in megabytes, each byte count saturated at 2147483647 before the division,
    /// so a 32-bit caller never sees a negative figure. Read afresh on every call.
    static void getAvailableMemoryMB(int& physical, int& virtual_);  ///< virtual_ is always 2047
    static void getUsedMemoryMB(int& physical, int& virtual_);  ///< Memory in use.
    static void getTotalMemoryMB(int& physical, int& virtual_);      ///< virtual_ = 4 x physical
    /// Always false: nothing in the library chooses code paths by these.
    static bool supportsIntelMMX();
    static bool supportsIntelSIMD();  ///< Always false.
    /// A new random identifier; two calls never return the same value.
    static GUID getGUID();
    /// Usage statistics are not stored on this platform: load sets size to 0 and both return false.
    static bool loadProviderStats(void* buffer, unsigned long& size);
    /// Stores nothing; false.
    static bool saveProviderStats(const void* buffer, unsigned long size);


    // ---- Locales, addresses and the browser (locales.cpp, linux/localeslinux.cpp) ----

    /// The current locale, "en_US" at load. Set it from the main thread before others read it.
    static QString locale;
    /// Sets / copies locale; no validation.
    static void setCurrentLocale(const QString& l);
    static QString getCurrentLocale();  ///< The current locale.
    /// The user's languages from the environment (LANGUAGE, then LC_ALL, LC_MESSAGES, LANG),
    /// canonicalised ("de_CH.UTF-8@euro" gives "de_CH"); "C" and "POSIX" are skipped. May be empty.
    static QStringList getPlatformPreferredLocaleList();
    /// The platform list with the locale saved in the user's settings, when there is one, in front.
    static QStringList getPreferredLocaleList();
    /// list, with the system's region locale (LC_ALL, LC_MESSAGES or LANG) put in front when list
    /// is headed by a bare language that the region locale shares; otherwise list unchanged.
    static QStringList adjustLocaleListForRegion(const QStringList& list);
    /// adjustLocaleListForRegion(getPreferredLocaleList()).
    static QStringList getPreferredLocaleListWithRegionEmphasis();
    /// url with the maker's ".com" domain replaced by the country site of the current language
    /// (de, es, fr, it, ja); unchanged for other languages.
    static QString getOrvaneURLLocalizedByLang(const QString& url);
    /// Help-centre pages: base + "answer?id=N", base + "topic?id=N", base + "contact".
    static QString getLocalizedSupportURL(int answer);
    static QString getLocalizedSupportTopicURL(int topic);  ///< The help centre's page on topic.
    static QString getLocalizedContactSupportURL();  ///< The help centre's contact page.
    /// Opens url in the user's browser (xdg-open, started detached; does not wait for it). Spaces
    /// are sent as %20. Returns false for an empty url or when the opener could not be started;
    /// the result is also kept in sLastLaunchSucceded. The two flags are ignored here.
    static bool LaunchExternalBrowser(const QString& url, bool = false, bool = false);
    /// Does nothing here: the caller decides how to tell the user.
    static void showBrowserError(int, const QString&);
    /// The application's documents always belong to it: true, and nothing to restore.
    static bool doesAppOwnDocumentType();
    static void restoreDocumentTypeAssociation();  ///< Does nothing.


    // ---- Paths and file descriptors (file.cpp, linux/filelinux.cpp) ----

    /// Unused on this platform: direct (uncached) I/O is never offered.
    struct DirectIoInfo {
        int alignment;  ///< Unused.
        int blockSize;  ///< Unused.
    };

    /// The folder the application runs from, empty at load, ending in "/" once set.
    static QString installPath;
    /// installPath = p, with "/" appended when p does not end in one ("" becomes "/").
    static void setInstallPath(const QString& p);
    static QString getInstallPath();  ///< The install path.
    /// Per-user folders (XDG rules). The first two end in "/Orvane Vanta" and are created when
    /// missing (a failed creation is not reported); the documents folder is never created.
    static QString getAppDirectory();
    static QString getCacheDirectory();  ///< The per-user cache folder.
    static QString getMyDocumentsDirectory();  ///< The user's documents folder.
    /// The temporary folder (TMPDIR or /tmp) with a trailing "/".
    static QString getTempDirectory();
    /// Creates every missing directory of dir, always counted from "/" (a relative dir is taken
    /// as relative to the root). Returns 0, 0xC0000001 for an empty dir, or 0xC0000008 when a
    /// directory could not be made.
    static unsigned int makeAbsDirPath(const QString& dir);
    /// A name in the temporary folder that does not exist yet: prefix, random characters, then
    /// "." + extension when extension is not empty. The file is not created.
    static QString makeTempFilePath(const QString& extension, const QString& prefix);
    /// Descriptor calls; QString paths go to the system as UTF-8. Results are the system's own
    /// (-1 on failure, then getLastError() gives errno).
    static int open(const QString& path, int flags, int mode);
    /// As above, for a path already in UTF-8.
    static int open(const char* path, int flags, int mode);
    static int close(int fd);  ///< close(2).
    static int unlink(const QString& path);  ///< unlink(2).
    static int rename(const QString& from, const QString& to);  ///< rename(2).
    /// lseek(2) with 64-bit offsets.
    static long long lseek(int fd, long long offset, int whence);
    static int read(int fd, void* buf, unsigned long n);  ///< read(2).
    static int write(int fd, const void* buf, unsigned long n);  ///< write(2).
    /// The size of the open file in bytes, truncated to 32 bits; -1 when fstat fails.
    static int getSize(int fd);
    static int ftruncate(int fd, long long length);  ///< ftruncate(2) with a 64-bit length.
    static int access(const QString& path, int mode);  ///< access(2).
    /// The calling thread's errno.
    static int getLastError();
    /// Always false here; info is left untouched.
    static bool supportsDirectIo(const QString& path);
    /// Always false; info is left untouched.
    static bool getDirectIoInfo(const QString& path, DirectIoInfo& info);


    // ---- Timers and message boxes (timer.cpp) ----

    /// Kinds of message box; any value other than kMessageWarning shows an information box.
    enum MessageType : int { kMessageInformation = 0, kMessageWarning = 1 };

    /// Hands a message box to the timer manager, which shows it later on the user-interface thread
    /// (a warning box for kMessageWarning, an information box otherwise). Callable from any
    /// thread; returns at once. With no manager, nothing is shown.
    static void AsyncMessageBox(MessageType type, const QString& title, const QString& text);


};

/// Starts the process clock: getTime() counts from this call. Run by theSystem's constructor.
VANTA_EXPORT void init_clock();

}  // namespace vanta
