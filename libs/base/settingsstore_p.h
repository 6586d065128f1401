// Saving a settings file so that a writer killed mid-save does not stall or litter the next one.
#pragma once

#include <vanta/export.h>

#include <QSettings>

namespace vanta {

// Writes the pending changes of settings to its file and returns the resulting status
// (NoError, AccessError or FormatError); a failure is also written to LM_ERROR, so it is never
// lost. Every settings write of the library goes through here.
//
// A save killed at the wrong moment leaves an empty "<file>.lock", which makes the next plain
// save wait about 30 seconds before it considers the lock stale, and may leave "<file>.XXXXXX"
// temporaries that nothing removes. Savers therefore first take an advisory lock on
// "<file>.guard" (the kernel drops it when its holder dies, so a killed saver never blocks the
// next one). While holding it no other saver of ours is writing, so a "<file>.lock" that names no
// process is a remnant and is removed, and so are temporaries of that file. A lock naming a
// process is left to the store, which clears it at once when that process is gone.
// Waits at most kGuardWaitMs for a live saver to finish; past that it saves without the guard.
VANTA_EXPORT QSettings::Status saveSettings(QSettings& settings);

// How long saveSettings waits for another saver's guard.
constexpr int kGuardWaitMs = 5000;

}  // namespace vanta
