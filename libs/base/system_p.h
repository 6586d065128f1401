// Internals of vanta::System's clock and frame timing shared with the tests; not installed API.
#pragma once

namespace vanta {

// A replacement for the clock behind System::getTime(), in seconds.
using TimeSource = double (*)();

// Makes System::getTime() (and so frame timing and getCurrTime) read source instead of the
// system clock; null restores the system clock. For tests that must not sleep.
void setTimeSourceForTesting(TimeSource source);
// Returns frame timing to its state at load: no fixed rate, no frame measured yet.
void resetFrameTimingForTesting();
// Makes the next getCurrTime() read the system clock again and take a new base.
void resetCurrTimeForTesting();

// What System::getLocalTimeZone reports at the instant t (seconds since 1970-01-01 UTC):
// 0 and the outputs written, or -1 when t cannot be broken down as local time.
int localTimeZoneAt(long t, int& hours, int& minutes);

}  // namespace vanta
