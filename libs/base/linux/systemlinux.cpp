// Linux implementation of vanta::System's machine-bound operations.
#include <vanta/system.h>
#include <vanta/system_p.h>

#include <ctime>
#include <sys/time.h>
#include <unistd.h>

namespace vanta {

int System::sleep(int ms) {
    timespec request;
    if (ms == -1) {
        request.tv_sec = 2147483647;
        request.tv_nsec = 0;
    } else {
        request.tv_sec = ms / 1000;
        request.tv_nsec = long(ms % 1000) * 1000000L;
    }
    return nanosleep(&request, nullptr);
}

int System::getNumProcessors() {
    // Read once: the count of online processors does not change under a running process here.
    static const int count = [] {
        long n = sysconf(_SC_NPROCESSORS_ONLN);
        return n > 0 ? int(n) : 1;
    }();
    return count;
}

// Linux fills no time-zone record in gettimeofday, so the record is rebuilt from localtime_r:
// minutes west of the standard-time offset (tm_gmtoff less the hour of daylight saving time
// while it is in effect) and the daylight-saving flag.
int localTimeZoneAt(long t, int& hours, int& minutes) {
    tzset();  // localtime_r alone does not notice a changed TZ
    const time_t when = time_t(t);
    tm local;
    if (localtime_r(&when, &local) == nullptr)
        return -1;
    const int dst = local.tm_isdst > 0 ? 1 : 0;
    const int minutesWest = -int(local.tm_gmtoff / 60) + 60 * dst;
    const int east = -minutesWest;
    hours = east / 60;
    minutes = east - hours * 60;
    if (dst)
        hours += 1;
    return 0;
}

int System::getLocalTimeZone(int& hours, int& minutes) {
    timeval now;
    const int result = gettimeofday(&now, nullptr);
    if (result != 0)
        return result;
    return localTimeZoneAt(long(now.tv_sec), hours, minutes);
}

}  // namespace vanta
