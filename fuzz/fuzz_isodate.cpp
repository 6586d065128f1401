// Fuzz target: the ISO 8601 reader. It may only accept or throw its message; what it accepts
// must print and read back to the same time stamp.
#include <vanta/datetime.h>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    vanta::DateTime t;
    try {
        text >> t;
    } catch (const QString& message) {
        if (message != "Could not parse time value " + text)
            std::abort();
        return 0;
    }
    const QString printed = t.toString();
    vanta::DateTime again;
    try {
        printed >> again;
    } catch (const QString&) {
        std::abort();  // a printed time stamp must always read back
    }
    if (again.toString() != printed || !(again == t))
        std::abort();
    // Arithmetic on any accepted stamp stays within its fields.
    t.add(int(size) - 64, int(size) * 7, -int(size) * 1000, 25, -61, 3601);
    t += static_cast<long long>(size) * 1234567891LL;
    if (t.month < 1 || t.month > 12 || t.day < 1 || t.day > 31 || t.hour > 23 || t.minute > 59 ||
        t.second > 59)
        std::abort();
    return 0;
}
