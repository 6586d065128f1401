// Machine-description internals (not API): pure conversions from the system's raw facts.
#pragma once

#include <QByteArray>

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

}  // namespace vanta::sysinfo
