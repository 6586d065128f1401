// Linux implementation of vanta::System's machine-bound operations.
#include <vanta/system.h>
#include <vanta/system_p.h>

#include <vanta/sysinfo_p.h>
#include <vanta/linux/platform_p.h>

#include <algorithm>
#include <ctime>
#include <sys/utsname.h>
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
    // Asked afresh each time: processors go on and off line under a running process.
    return sysinfo::processorCount(sysconf(_SC_NPROCESSORS_ONLN));
}

// ---- Machine description ----

void System::getOSVersion(OSVersion& os, int& major, int& minor, int& build, int& servicePack) {
    os = kLinux;
    utsname names;
    sysinfo::parseKernelRelease(::uname(&names) == 0 ? QByteArray(names.release) : QByteArray(),
                                major, minor, build, servicePack);
}

int System::getProcessorType() {
    int cpuType = 0, cpuSubtype = 0;
#if defined(__i386__) || defined(__x86_64__)
    const QByteArray cpuinfo = linuxio::readSmallFile("/proc/cpuinfo");
    const long long family = linuxio::keyedNumber(cpuinfo, "cpu family");
    sysinfo::x86Report(family < 0 ? 0 : int(family), cpuType, cpuSubtype);
#endif
    return processorTypeFor(cpuType, cpuSubtype);
}

float System::getProcessorClockSpeed() {
    return sysinfo::clockSpeedHz(
        linuxio::readFirstLine("/sys/devices/system/cpu/cpu0/cpufreq/cpuinfo_max_freq"),
        linuxio::readSmallFile("/proc/cpuinfo"));
}

void System::getAvailableMemoryMB(int& physical, int& virtual_) {
    const sysinfo::MemoryMB mb = sysinfo::availableMemoryMB(linuxio::readSmallFile("/proc/meminfo"));
    physical = mb.physical;
    virtual_ = mb.virtual_;
}

void System::getUsedMemoryMB(int& physical, int& virtual_) {
    const sysinfo::MemoryMB mb = sysinfo::usedMemoryMB(linuxio::readSmallFile("/proc/meminfo"),
                                                       linuxio::readSmallFile("/proc/vmstat"),
                                                       sysconf(_SC_PAGESIZE));
    physical = mb.physical;
    virtual_ = mb.virtual_;
}

void System::getTotalMemoryMB(int& physical, int& virtual_) {
    const sysinfo::MemoryMB mb = sysinfo::totalMemoryMB(linuxio::readSmallFile("/proc/meminfo"));
    physical = mb.physical;
    virtual_ = mb.virtual_;
}

namespace sysinfo {

int processorCount(long online) { return online > 0 ? int(online) : 1; }

float clockSpeedHz(const QByteArray& maxFreqKHz, const QByteArray& cpuinfo) {
    bool ok = false;
    const unsigned long long kHz = maxFreqKHz.toULongLong(&ok);
    if (ok && kHz > 0)
        return float(kHz * 1000ULL);
    // Virtual machines often have no cpufreq; the nominal rate in cpuinfo is the next best.
    const double rate = linuxio::keyedValue(cpuinfo, "cpu MHz").toDouble(&ok);
    return ok && rate > 0 ? float(rate * 1e6) : 0.0f;
}

namespace {

// A /proc/meminfo figure in bytes; -1 when absent.
long long meminfoBytes(const QByteArray& meminfo, const char* key) {
    const long long kB = linuxio::keyedNumber(meminfo, key);
    return kB < 0 ? -1 : kB * 1024;
}

}  // namespace

MemoryMB availableMemoryMB(const QByteArray& meminfo) {
    return {saturatedMB(meminfoBytes(meminfo, "MemAvailable")), saturatedMB(2147483647)};
}

MemoryMB usedMemoryMB(const QByteArray& meminfo, const QByteArray& vmstat, long long pageSize) {
    const long long total = meminfoBytes(meminfo, "MemTotal");
    const long long available = meminfoBytes(meminfo, "MemAvailable");
    const long long pagesOut = linuxio::keyedNumber(vmstat, "pswpout");
    // Saturate before multiplying: a long-lived machine's page-out count times the page size
    // could pass what 64 bits hold.
    return {total < 0 || available < 0 ? 0 : saturatedMB(total - available),
            pagesOut <= 0 || pageSize <= 0         ? 0
            : pagesOut > 2147483647LL / pageSize ? saturatedMB(2147483647)
                                                 : saturatedMB(pagesOut * pageSize)};
}

MemoryMB totalMemoryMB(const QByteArray& meminfo) {
    const long long total = meminfoBytes(meminfo, "MemTotal");
    const long long mb = total < 0 ? 0 : total >> 20;
    // Kept within int: four times the memory of a very large machine would not fit.
    const int physical = int(std::min<long long>(mb, 2147483647LL / 4));
    return {physical, physical * 4};
}

}  // namespace sysinfo

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
