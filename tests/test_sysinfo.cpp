// Tests of the machine description: names, the processor table, memory, GUIDs, graphics card.
#include <vanta/sysinfo.h>
#include <vanta/sysinfo_p.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <QFile>
#include <QLibrary>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <sched.h>
#include <sys/mount.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace vanta;

namespace {

// A number from /proc/meminfo in kilobytes, read here independently of the library.
long long meminfoKB(const char* key) {
    QFile f(QStringLiteral("/proc/meminfo"));
    if (!f.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : f.readAll().split('\n'))
        if (line.startsWith(QByteArray(key) + ':'))
            return line.mid(int(strlen(key)) + 1).trimmed().split(' ').first().toLongLong();
    return -1;
}

QString fakeSysfs(const char* name) { return QStringLiteral(VANTA_TEST_DATA "/sysinfo/") + name; }

// Where distributions put Mesa's DRI drivers.
const char* const kDriDirs[] = {"/usr/lib/x86_64-linux-gnu/dri", "/usr/lib/aarch64-linux-gnu/dri",
                                "/usr/lib64/dri", "/usr/lib/dri"};

}  // namespace

TEST(OSName, EveryValueAndTheUnknown) {
    const char* names[] = {"UNKNOWN", "Microsoft Win32s", "Microsoft Windows 95", "Windows 98",
                           "Windows ME", "Microsoft Windows NT", "Microsoft Windows 2000",
                           "Microsoft Windows XP", "Microsoft Windows Server",
                           "Microsoft Windows Vista", "Mac OS X", "Linux", "UNKNOWN"};
    for (int value = 0; value <= 12; ++value)
        EXPECT_EQ(System::getOSName(System::OSVersion(value)), QString::fromUtf8(names[value]));
}

TEST(OSVersion, KernelReleases) {
    // Release -> major, minor, build, service pack.
    const std::pair<const char*, QList<int>> rows[] = {
        {"6.1.0-18-amd64", {6, 1, 0, 18}}, {"6.18.44-fc-v595", {6, 18, 44, 0}},
        {"5.15.0-1051-azure", {5, 15, 0, 1051}}, {"4.19.0", {4, 19, 0, 0}},
        {"6.5.0rc1+", {6, 5, 0, 0}}, {"", {0, 0, 0, 0}}, {"garbage", {0, 0, 0, 0}},
        {"99999999999999.1.2-3", {999999999, 1, 2, 3}}, {"-7", {0, 0, 0, 7}}};
    for (const auto& [release, expected] : rows) {
        int got[4] = {-1, -1, -1, -1};
        sysinfo::parseKernelRelease(release, got[0], got[1], got[2], got[3]);
        EXPECT_EQ(QList<int>(got, got + 4), expected) << release;
    }
}

TEST(OSVersion, ThisMachineIsLinuxWithItsKernelNumbers) {
    System::OSVersion os = System::kMacOSX;
    int major = -1, minor = -1, build = -1, servicePack = -1;
    System::getOSVersion(os, major, minor, build, servicePack);
    EXPECT_EQ(os, System::kLinux);
    utsname names;
    ASSERT_EQ(uname(&names), 0);
    EXPECT_EQ(QByteArray(names.release).split('.').first().toInt(), major);
    EXPECT_EQ(System::getOSVersionString(),
              QStringLiteral("Linux (%1.%2.%3.%4)")
                  .arg(major).arg(minor).arg(build).arg(servicePack));
}

TEST(ProcessorType, MappingTable) {
    const struct {
        int type, subtype;
        unsigned code;
    } rows[] = {{18, 1, 0x80000001}, {18, 3, 0x80000003},  {18, 4, 0x80000006},
                {18, 6, 0x80000004}, {18, 7, 0x80000009},  {18, 9, 0x800002EE},
                {18, 10, 0x80001CE8}, {18, 100, 0x800003CA}, {18, 2, 0x80000001},
                {7, 3, 3}, {7, 4, 4}, {7, 5, 5}, {7, 22, 5}, {7, 54, 6}, {7, 86, 6}, {7, 6, 3},
                {12, 9, 0}, {0, 0, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(unsigned(System::processorTypeFor(row.type, row.subtype)), row.code)
            << row.type << "/" << row.subtype;
}

TEST(ProcessorType, X86FamiliesFeedTheTable) {
    const std::pair<int, int> rows[] = {
        {0, 0}, {2, 0}, {3, 3}, {4, 4}, {5, 5}, {6, 6}, {15, 6}, {25, 6}};
    for (const auto& [family, code] : rows) {
        int type = -1, subtype = -1;
        sysinfo::x86Report(family, type, subtype);
        EXPECT_EQ(System::processorTypeFor(type, subtype), code) << family;
    }
#if defined(__x86_64__)
    EXPECT_EQ(System::getProcessorType(), 6);  // every x86-64 processor is family 6 or later
#endif
}

TEST(Processor, CountAndClockArePlausible) {
    QFile cpuinfo(QStringLiteral("/proc/cpuinfo"));
    ASSERT_TRUE(cpuinfo.open(QIODevice::ReadOnly));
    EXPECT_EQ(System::getNumProcessors(), ("\n" + cpuinfo.readAll()).count("\nprocessor"));
    const float hz = System::getProcessorClockSpeed();
    EXPECT_TRUE(hz == 0.0f || (hz > 1e8f && hz < 1e11f)) << hz;  // 0: the system does not say
}

// Processors taken off line while the program runs are seen at the next call. The kernel's list
// of online processors is replaced by a fake in a private mount namespace of a child process.
TEST(Processor, CountIsAskedAfreshEachTime) {
    char fake[] = "/tmp/vanta-online-XXXXXX";
    const int fd = mkstemp(fake);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "0-6\n", 4), 4);
    close(fd);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const int before = System::getNumProcessors();
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount(fake, "/sys/devices/system/cpu/online", nullptr, MS_BIND, nullptr) != 0)
            _exit(77);
        _exit(before >= 1 && System::getNumProcessors() == 7 ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    unlink(fake);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "cannot replace the online processor list here (no mount namespace)";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST(Memory, SaturationAtTwoGigabytes) {
    const std::pair<long long, int> rows[] = {{0, 0}, {1048575, 0}, {1048576, 1},
        {2147483647LL, 2047}, {2147483648LL, 2047}, {1LL << 40, 2047}, {-1, 2047}};
    for (const auto& [bytes, mb] : rows)
        EXPECT_EQ(sysinfo::saturatedMB(bytes), mb) << bytes;
}

TEST(Processor, CountAndClockFromWhatTheSystemSays) {
    for (const auto& [online, count] : {std::pair{-1L, 1}, {0L, 1}, {1L, 1}, {2L, 2}, {64L, 64}})
        EXPECT_EQ(sysinfo::processorCount(online), count) << online;
    const struct {
        const char* maxKHz;
        const char* cpuinfo;
        float hz;
    } rows[] = {
        {"3400000", "cpu MHz\t\t: 2400.000\n", 3.4e9f},  // cpufreq first
        {"0", "model\t: 1\ncpu MHz\t\t: 2400.000\n", 2.4e9f},
        {"", "cpu MHz : 2400.5", 2.4005e9f},
        {"fast", "cpu MHz : 1000", 1e9f},
        {"", "cpu MHz : 0", 0.0f},
        {"", "cpu MHz : -5", 0.0f},
        {"", "", 0.0f},
    };
    for (const auto& row : rows)
        EXPECT_EQ(sysinfo::clockSpeedHz(row.maxKHz, row.cpuinfo), row.hz) << row.maxKHz;
}

TEST(Memory, FiguresFromMeminfoAndVmstat) {
    const auto mb = [](sysinfo::MemoryMB m) { return std::pair{m.physical, m.virtual_}; };
    const QByteArray meminfo = "MemTotal:        1048576 kB\nMemFree:  1 kB\n"
                               "MemAvailable:     524288 kB\n";
    const QByteArray noAvailable = "MemTotal:        1048576 kB\n";
    EXPECT_EQ(mb(sysinfo::availableMemoryMB(meminfo)), std::pair(512, 2047));
    EXPECT_EQ(mb(sysinfo::availableMemoryMB(noAvailable)), std::pair(2047, 2047));
    // None available is 0, not a missing figure.
    EXPECT_EQ(mb(sysinfo::availableMemoryMB("MemAvailable:       0 kB\n")), std::pair(0, 2047));

    const struct {
        QByteArray meminfo;
        const char* vmstat;
        long long pageSize;
        std::pair<int, int> used;
    } rows[] = {
        {meminfo, "pgpgout 9\npswpout 256\n", 4096, {512, 1}},
        {meminfo, "pswpout 0\n", 4096, {512, 0}},
        {meminfo, "", 4096, {512, 0}},
        {meminfo, "pswpout 524287\n", 4096, {512, 2047}},  // just under 2 GiB
        {meminfo, "pswpout 524288\n", 4096, {512, 2047}},
        {meminfo, "pswpout 9223372036854775\n", 4096, {512, 2047}},  // past 64 bits in bytes
        {meminfo, "pswpout 1023\n", 1 << 21, {512, 2046}},  // 2 MiB pages: exact below the cap
        {meminfo, "pswpout 10\n", 0, {512, 0}},
        {noAvailable, "pswpout 256\n", 4096, {0, 1}},
        {"MemAvailable: 1 kB\n", "", 4096, {0, 0}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(mb(sysinfo::usedMemoryMB(row.meminfo, row.vmstat, row.pageSize)), row.used)
            << row.vmstat;

    EXPECT_EQ(mb(sysinfo::totalMemoryMB(meminfo)), std::pair(1024, 4096));
    EXPECT_EQ(mb(sysinfo::totalMemoryMB("")), std::pair(0, 0));
    EXPECT_EQ(mb(sysinfo::totalMemoryMB("MemTotal: 2147483644 kB\n")), std::pair(2097151, 8388604));
    // A quarter of the int range at most, so that four times it still fits.
    EXPECT_EQ(mb(sysinfo::totalMemoryMB("MemTotal: 1099511627776 kB\n")),
              std::pair(536870911, 2147483644));
}

TEST(Memory, FiguresAgreeWithProcMeminfo) {
    const long long totalKB = meminfoKB("MemTotal");
    ASSERT_GT(totalKB, 0);
    int physical = -1, virtual_ = -1;
    System::getTotalMemoryMB(physical, virtual_);
    EXPECT_EQ(physical, int((totalKB * 1024) >> 20));
    EXPECT_EQ(virtual_, 4 * physical);
    // Memory moves between the readings; allow a little slack either way.
    const long long availableKB = meminfoKB("MemAvailable");
    System::getAvailableMemoryMB(physical, virtual_);
    EXPECT_EQ(virtual_, 2047);
    EXPECT_NEAR(physical, sysinfo::saturatedMB(availableKB * 1024), 64);
    System::getUsedMemoryMB(physical, virtual_);
    EXPECT_NEAR(physical, sysinfo::saturatedMB((totalKB - availableKB) * 1024), 64);
    EXPECT_TRUE(physical >= 0 && physical <= 2047 && virtual_ >= 0 && virtual_ <= 2047)
        << physical << " " << virtual_;
}

TEST(Processor, NoVectorUnitsOrProviderStatsHere) {
    // Answers for features this platform does not have: callers take the plain paths.
    EXPECT_FALSE(System::supportsIntelMMX());
    EXPECT_FALSE(System::supportsIntelSIMD());
    unsigned long size = 99;
    EXPECT_FALSE(System::loadProviderStats(nullptr, size));
    EXPECT_EQ(size, 0u);
    EXPECT_FALSE(System::saveProviderStats(nullptr, 0));
}

TEST(GUID, FreshRfc4122Values) {
    const System::GUID a = System::getGUID();
    const System::GUID b = System::getGUID();
    EXPECT_NE(a, b);
    const System::GUID copy = a;
    EXPECT_EQ(copy, a);
    // In RFC 4122 byte order the version nibble leads byte 6 and the variant bits lead byte 8.
    EXPECT_EQ(a.bytes[6] >> 4, 4);
    EXPECT_EQ(a.bytes[8] & 0xC0, 0x80);
}

TEST(GfxCardInfo, FakeDrmTrees) {
    const struct {
        const char* tree;
        int mb;  // -1: the memory query answers false
        const char *device, *vendor, *driver;
    } rows[] = {
        // card2 (8 GiB) comes before card10 (1 GiB); card0 has no memory; connectors are skipped.
        {"drm-cards", 8192, "0x1002:0x73bf", "0x1002", "amdgpu"},
        {"drm-novram", -1, "0x8086:0x46a6", "0x8086", "i915"},
        {"no-such-tree", -1, nullptr, nullptr, nullptr},
    };
    for (const auto& row : rows) {
        GfxCardInfoLinux card(fakeSysfs(row.tree), false);
        int mb = -1;
        EXPECT_EQ(card.getGraphicsCardMemoryInMB(mb), row.mb >= 0) << row.tree;
        EXPECT_EQ(mb, row.mb) << row.tree;  // untouched when the answer is false
        auto expect = [&](bool (GfxCardInfo::*getter)(QString&), const char* value) {
            QString text;
            EXPECT_EQ((card.*getter)(text), value != nullptr) << row.tree;
            EXPECT_EQ(text, value ? QString::fromUtf8(value) : QStringLiteral("unimplemented"));
        };
        expect(&GfxCardInfo::getDisplayDeviceID, row.device);
        expect(&GfxCardInfo::getGraphicsCardVendor, row.vendor);
        expect(&GfxCardInfo::getGraphicsCardDriver, row.driver);
        expect(&GfxCardInfo::getGraphicsCardChipset, nullptr);  // only a hardware renderer knows
    }
}

TEST(GfxCardInfo, SoftwareRenderersAreNotACard) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the GL stack's own allocations would read as leaks here";
#endif
    // With a DRM card present the renderer is asked; a software rasteriser (or no GL at all)
    // leaves the card its PCI answers.
    GfxCardInfoLinux card(fakeSysfs("drm-cards"), true);
    QString chipset;
    const bool known = card.getGraphicsCardChipset(chipset);
    EXPECT_TRUE(known ? !chipset.contains(QStringLiteral("llvmpipe"), Qt::CaseInsensitive) &&
                            !chipset.contains(QStringLiteral("softpipe"), Qt::CaseInsensitive)
                      : chipset == QStringLiteral("unimplemented"))
        << chipset.toStdString();
    int mb = 0;
    EXPECT_TRUE(card.getGraphicsCardMemoryInMB(mb));
}

TEST(GfxCardInfo, AsksTheRendererThroughEgl) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the GL stack's own allocations would read as leaks here";
#endif
    // Mesa's software rasteriser answers on any machine that has it, card or not, so the whole
    // conversation runs: display, context, surface, the three strings, and the clean-up.
    const bool softwareDriver =
        std::any_of(std::begin(kDriDirs), std::end(kDriDirs),
                    [](const char* dir) { return QFile::exists(QString(dir) + "/swrast_dri.so"); });
    if (!softwareDriver || !QLibrary(QStringLiteral("EGL"), 1).load())
        GTEST_SKIP() << "no EGL with a software driver here";
    const sysinfo::GlStrings gl = sysinfo::askGl();
    EXPECT_FALSE(gl.vendor.isEmpty());
    EXPECT_FALSE(gl.renderer.isEmpty());
    EXPECT_TRUE(gl.version.contains(QLatin1Char('.'))) << gl.version.toStdString();

    const std::pair<const char*, bool> renderers[] = {
        {"llvmpipe (LLVM 15.0.6, 256 bits)", true}, {"softpipe", true}, {"Mesa swrast", true},
        {"Software Rasterizer", true}, {"AMD Radeon RX 6600 (navi23, LLVM 15.0.6, DRM 3.49)", false},
        {"", false}};
    for (const auto& [renderer, software] : renderers)
        EXPECT_EQ(sysinfo::isSoftwareRenderer(QString::fromLatin1(renderer)), software) << renderer;
}

TEST(GfxCardInfo, SingletonIsRebuiltAfterDelete) {
    GfxCardInfo* first = GfxCardInfo::getSingleton();
    ASSERT_TRUE(first && GfxCardInfo::getSingleton() == first);
    delete first;
    EXPECT_EQ(GfxCardInfoLinux::sSingleton, nullptr);
    GfxCardInfo* second = GfxCardInfo::getSingleton();
    EXPECT_TRUE(second && GfxCardInfoLinux::sSingleton == second);
    delete second;
}
