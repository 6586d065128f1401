// Machine-description internals (not API): pure conversions from the system's raw facts.
#pragma once

#include <QByteArray>
#include <QString>

namespace vanta::sysinfo {

// Splits a kernel release such as "6.1.0-18-amd64" into major 6, minor 1, build 0 and service
// pack 18 (the number after the first "-", 0 when that part is not a number). Missing or
// non-numeric parts are 0.
void parseKernelRelease(const QByteArray& release, int& major, int& minor, int& build,
                        int& servicePack);

// bytes / 1048576, after bytes above 2147483647 (or negative) are taken as 2147483647.
int saturatedMB(long long bytes);

// The processor family and subtype, as the mapping of System::processorTypeFor numbers them,
// for an x86 "cpu family" (3, 4, 5 as they are, 6 and above as 6). Other families give 0, 0.
void x86Report(int family, int& cpuType, int& cpuSubtype);

// Linux: the facts below are read from the texts of /proc and /sys files, so each reading is
// a pure function of those texts.

// The online processor count as sysconf reported it; 1 when it reported none or failed.
int processorCount(long online);

// The processor clock in Hz: the cpufreq maximum (a number of kHz) when it is positive,
// else cpuinfo's "cpu MHz"; 0 when neither gives a positive rate.
float clockSpeedHz(const QByteArray& maxFreqKHz, const QByteArray& cpuinfo);

// Physical and virtual megabytes, as System::getAvailableMemoryMB, getUsedMemoryMB and
// getTotalMemoryMB report them, from /proc/meminfo and /proc/vmstat texts.
struct MemoryMB {
    int physical;
    int virtual_;
};
// Available: MemAvailable, saturated (absent reads as -1, so as the ceiling); virtual is
// always the 2047 MB ceiling.
MemoryMB availableMemoryMB(const QByteArray& meminfo);
// Used: MemTotal - MemAvailable (0 when either is absent); virtual is the swapped-out size,
// pswpout pages of pageSize bytes, saturated at 2047 (0 without a positive page size).
MemoryMB usedMemoryMB(const QByteArray& meminfo, const QByteArray& vmstat, long long pageSize);
// Total: MemTotal, kept at most 2147483647 / 4 so that virtual, four times it, fits an int.
MemoryMB totalMemoryMB(const QByteArray& meminfo);

// What an OpenGL renderer says about itself.
struct GlStrings {
    QString vendor;
    QString renderer;
    QString version;
};

// The strings of the default OpenGL renderer, through a 1x1 off-screen surface (the surfaceless
// platform when there is no window system). Empty where there is no GL stack or no context can
// be made.
GlStrings askGl();

// Software rasterisers answer GL queries too, but they are not a graphics card.
bool isSoftwareRenderer(const QString& renderer);

}  // namespace vanta::sysinfo
