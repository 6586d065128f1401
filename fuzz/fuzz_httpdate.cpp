// Fuzz target: the HTTP date reader. It never throws; a date it accepts has fields in range
// (24:00:00 and a leap second included) and reads back through the ISO reader.
#include <vanta/datetime.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    vanta::DateTime t;
    t.parseHttpDate(text);
    if (int(t.year) == vanta::DateTime::kUnsetYear)
        return 0;
    if (t.month < 1 || t.month > 12 || t.day < 1 || t.day > vanta::maximumDayInMonthFor(int(t.year), t.month) ||
        t.hour > 24 || t.minute > 59 || t.second > 60 || t.zoneHours != 0 || t.zoneMinutes != 0)
        std::abort();
    if (t.hour == 24 && (t.minute != 0 || t.second != 0))  // only 24:00:00, the end of the day
        std::abort();
    vanta::DateTime again;
    try {
        t.toString() >> again;
    } catch (const QString&) {
        std::abort();
    }
    if (!(again == t))
        std::abort();
    return 0;
}
