// Saving a settings file so that no saver, stopped or killed, can stall the next one or lose data.
// Not API: exists for versioninfo.cpp, ui/memorywindow.cpp and their tests.
#pragma once

#include <vanta/export.h>

#include <QSettings>
#include <QString>

#include <functional>

namespace vanta {

// Applies change to settings and writes the file at once; returns NoError, AccessError or
// FormatError, and writes a failure to LM_ERROR as well. Every settings write of the library
// goes through here. Never waits longer than kSaveWaitMs for other savers.
//
// The store's own lock ("<file>.lock") waits for ever for a holder that is alive but stopped,
// so it is taken first with that time limit. When it (or the guard below) cannot be had in time,
// the save fails with AccessError before change is applied: neither settings nor the process's
// shared memory of the file then holds an unsaved change, which the store would try to write,
// waiting on that lock, whenever a QSettings of the file is next made or destroyed. The caller
// keeps its value in its own memory and writes it with a later save.
//
// Savers of this library also hold an advisory lock on a guard file of their own, kept where
// transient files belong (settingsGuardPath), never beside the settings; the kernel drops it
// when its holder dies. Under it and the store's lock, a save cleans up what a saver of ours
// killed mid-save left: the store's lock file cut off before naming its owner (which the store
// would wait 30 s for), and the store's temporaries ("<file>.XXXXXX") of that interrupted save,
// recognised by the guard's record of it: absent before the save began, made within
// kOrphanWindowMs of its start. No other file beside the settings is ever removed.
VANTA_EXPORT QSettings::Status saveSettings(QSettings& settings,
                                            const std::function<void(QSettings&)>& change);

// The longest saveSettings waits for other savers, in all.
constexpr int kSaveWaitMs = 3000;

// How soon after an interrupted save began a temporary must have been made to count as its own.
constexpr int kOrphanWindowMs = 2000;

// The guard file of the settings file at path: in "$XDG_RUNTIME_DIR/vanta-settings/" when that
// variable names a folder of this user's, else in a folder of this user's alone in the temporary
// folder ("vanta-settings-UID"); empty when neither can be made safely (saves then run without
// it, and without the clean-up).
QString settingsGuardPath(const QString& path);

}  // namespace vanta
