/// \file
/// Dynamic libraries loaded from the install folder by short name, and child processes.
#pragma once

#include <vanta/export.h>
#include <QString>
#include <QStringList>

namespace vanta {

struct LibraryData;
struct ProcessData;

/// A shared library in the application's install folder (System::getInstallPath()), named by a
/// short name: "x" is `<install>/libx.so`. A name with a folder part keeps the "lib" prefix before
/// the last separator: "plugins/x" is `<install>/pluginslib/x.so`, the layout deployed folders use.
/// An empty name stands for the running program. Not thread-safe: one owner at a time.
class VANTA_EXPORT Library {
public:
    /// Records name; loads nothing.
    explicit Library(const QString& name);
    /// Forgets the handle; the library itself stays loaded (symbols handed out remain valid).
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /// Loads getFilePath() with lazy binding and global symbols. False when already loaded, or
    /// when the loader fails: then one line `Failed to load "<path>" because "<reason>"` goes to
    /// standard error and a later load() may try again. An empty name always succeeds.
    bool load();
    /// False when not loaded; otherwise closes the handle and answers whether dlclose succeeded.
    bool unload();
    bool isLoaded();  ///< True between a successful load() and unload().
    /// The address of symbol in this library; null when not loaded, for the empty name, or when
    /// the library has no such symbol.
    void* resolve(const QString& symbol);
    QString getLibraryName() const;  ///< The short name given at construction.
    /// The file load() opens, empty for an empty name.
    QString getFilePath() const;
    /// path = install path + the name's folder part; base = the rest, its leading "/" included.
    void calculatePathAndBaseName(QString& path, QString& base) const;

private:
    LibraryData* d;
};

/// A child program started at once with its arguments (no shell). One owner; not thread-safe.
class VANTA_EXPORT Process {
public:
    /// Starts program (a path, or a name looked up on PATH) with arguments in order. A program
    /// that cannot be started writes `Failed to start "<program>": <reason>` to standard error;
    /// the object then reports not running, with status 127.
    Process(const QString& program, const QStringList& arguments);
    /// Terminates the child first when it is still running (SIGTERM, then SIGKILL if it ignores
    /// that for a few seconds), and reaps it, so no zombie is left behind.
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    /// Whether the child has not ended yet. Does not block.
    bool isRunning();
    /// Waits until the child has ended.
    void block();
    /// Asks the child politely to end (SIGTERM); does not wait.
    void kill();
    /// The exit code once the child has ended; for a child ended by a signal, the signal's
    /// number (15 after kill()). Meaningless while running.
    int status();

private:
    ProcessData* d;
};

/// Autorelease pools have no meaning on Linux: create returns a token that release accepts
/// (release of null does nothing). Kept so code written for other platforms runs unchanged.
VANTA_EXPORT void* createAutoreleasePool();
VANTA_EXPORT void releaseAutoreleasePool(void* pool);  ///< Accepts what createAutoreleasePool returned, or null.

}  // namespace vanta
