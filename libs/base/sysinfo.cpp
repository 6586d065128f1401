// vanta::System's machine description: names, the processor table, identifiers, and the
// graphics-card singleton.
#include <vanta/sysinfo.h>
#include <vanta/system.h>

#include <vanta/sysinfo_p.h>

#include <QUuid>

#include <cstring>

namespace vanta {

namespace {

// Processor families and codes as the Mach kernel reports them.
constexpr int kCpuTypeX86 = 7;
constexpr int kCpuTypePowerPC = 18;
constexpr int kSaturated = 2147483647;

}  // namespace

namespace sysinfo {

void parseKernelRelease(const QByteArray& release, int& major, int& minor, int& build,
                        int& servicePack) {
    major = minor = build = servicePack = 0;
    const int dash = release.indexOf('-');
    const QByteArray version = dash < 0 ? release : release.left(dash);
    // Each component counts by its leading digits, so "44+" or "0rc1" still give 44 and 0.
    auto leadingNumber = [](const QByteArray& text) {
        int n = 0;
        for (char c : text) {
            if (c < '0' || c > '9' || n > 99999999)
                break;
            n = n * 10 + (c - '0');
        }
        return n;
    };
    const QList<QByteArray> parts = version.split('.');
    int* fields[] = {&major, &minor, &build};
    for (int i = 0; i < 3 && i < parts.size(); ++i)
        *fields[i] = leadingNumber(parts[i]);
    if (dash >= 0) {
        const QByteArray rest = release.mid(dash + 1);
        const int end = rest.indexOf('-');
        servicePack = leadingNumber(end < 0 ? rest : rest.left(end));
    }
}

int saturatedMB(long long bytes) {
    if (bytes < 0 || bytes > kSaturated)
        bytes = kSaturated;
    return int(bytes / 1048576);
}

void x86Report(int family, int& cpuType, int& cpuSubtype) {
    if (family < 3) {
        cpuType = cpuSubtype = 0;
        return;
    }
    cpuType = kCpuTypeX86;
    // The Mach subtypes 3, 4, 5 name the 386, 486 and Pentium; 86 is a family 6 processor.
    cpuSubtype = family <= 5 ? family : 86;
}

}  // namespace sysinfo

bool System::GUID::operator==(const GUID& o) const {
    return std::memcmp(bytes, o.bytes, sizeof bytes) == 0;
}

System::OSVersion System::getOSVersion() {
    OSVersion os;
    int major, minor, build, servicePack;
    getOSVersion(os, major, minor, build, servicePack);
    return os;
}

QString System::getOSName(const OSVersion& os) {
    switch (int(os)) {
    case kWin32s: return QStringLiteral("Microsoft Win32s");
    case kWindows95: return QStringLiteral("Microsoft Windows 95");
    case kWindows98: return QStringLiteral("Windows 98");
    case kWindowsME: return QStringLiteral("Windows ME");
    case kWindowsNT: return QStringLiteral("Microsoft Windows NT");
    case kWindows2000: return QStringLiteral("Microsoft Windows 2000");
    case kWindowsXP: return QStringLiteral("Microsoft Windows XP");
    case kWindowsServer: return QStringLiteral("Microsoft Windows Server");
    case kWindowsVista: return QStringLiteral("Microsoft Windows Vista");
    case kMacOSX: return QStringLiteral("Mac OS X");
    case kLinux: return QStringLiteral("Linux");
    default: return QStringLiteral("UNKNOWN");
    }
}

QString System::getOSVersionString() {
    OSVersion os;
    int major, minor, build, servicePack;
    getOSVersion(os, major, minor, build, servicePack);
    const QString name = getOSName(os);
    switch (os) {
    case kMacOSX: return name + QStringLiteral(" (%1.%2.%3)").arg(major).arg(minor).arg(build);
    case kLinux:
        return name +
               QStringLiteral(" (%1.%2.%3.%4)").arg(major).arg(minor).arg(build).arg(servicePack);
    default: return name + QStringLiteral(" (Service Pack %1)").arg(servicePack);
    }
}

int System::processorTypeFor(int cpuType, int cpuSubtype) {
    if (cpuType == kCpuTypePowerPC) {
        switch (cpuSubtype) {
        case 1: return int(0x80000001u);   // 601
        case 3: return int(0x80000003u);   // 603
        case 4: return int(0x80000006u);   // 603e
        case 6: return int(0x80000004u);   // 604
        case 7: return int(0x80000009u);   // 604e
        case 9: return int(0x800002EEu);   // 750
        case 10: return int(0x80001CE8u);  // 7400
        case 100: return int(0x800003CAu); // 970
        default: return int(0x80000001u);
        }
    }
    if (cpuType == kCpuTypeX86) {
        switch (cpuSubtype) {
        case 3: return 3;
        case 4: return 4;
        case 5: return 5;
        case 22: return 5;  // 5, not 6: stored machine descriptions already compare against it
        case 54:
        case 86: return 6;
        default: return 3;
        }
    }
    return 0;
}

bool System::supportsIntelMMX() { return false; }

bool System::supportsIntelSIMD() { return false; }

System::GUID System::getGUID() {
    GUID guid;
    const QByteArray bytes = QUuid::createUuid().toRfc4122();
    std::memcpy(guid.bytes, bytes.constData(), sizeof guid.bytes);
    return guid;
}

bool System::loadProviderStats(void*, unsigned long& size) {
    size = 0;
    return false;
}

bool System::saveProviderStats(const void*, unsigned long) { return false; }

GfxCardInfo::~GfxCardInfo() = default;

GfxCardInfo* GfxCardInfo::getSingleton() {
    if (!GfxCardInfoLinux::sSingleton)
        new GfxCardInfoLinux;  // the constructor records itself in sSingleton
    return GfxCardInfoLinux::sSingleton;
}

}  // namespace vanta
