// vanta sysinfo and vanta cleanpath: the machine, locales, folders, version record and path clean-up.
#include "command.h"

#include <vanta/binres.h>
#include <vanta/file.h>
#include <vanta/locales.h>
#include <vanta/sysinfo.h>
#include <vanta/system.h>
#include <vanta/versioninfo.h>

#include <QSettings>

#include <memory>

namespace {

using namespace vantatool;
using vanta::System;

QString hex(const unsigned char* bytes, int n) {
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char*>(bytes), n).toHex());
}

void printMachine() {
    out(QStringLiteral("os: ") + System::getOSVersionString());
    out(QStringLiteral("processor type: 0x") +
        QString::number(unsigned(System::getProcessorType()), 16));
    out(QStringLiteral("processors: ") + QString::number(System::getNumProcessors()));
    out(QStringLiteral("clock speed (Hz): ") + number(System::getProcessorClockSpeed()));
    int physical = 0, virtual_ = 0;
    System::getTotalMemoryMB(physical, virtual_);
    out(QStringLiteral("total memory (MB): %1 physical, %2 virtual").arg(physical).arg(virtual_));
    System::getAvailableMemoryMB(physical, virtual_);
    out(QStringLiteral("available memory (MB): %1 physical, %2 virtual")
            .arg(physical)
            .arg(virtual_));
    System::getUsedMemoryMB(physical, virtual_);
    out(QStringLiteral("used memory (MB): %1 physical, %2 virtual").arg(physical).arg(virtual_));

    vanta::GfxCardInfo* card = vanta::GfxCardInfo::getSingleton();
    int cardMB = 0;
    out(QStringLiteral("graphics memory (MB): ") +
        (card->getGraphicsCardMemoryInMB(cardMB) ? QString::number(cardMB)
                                                 : QStringLiteral("unknown")));
    QString text;
    card->getDisplayDeviceID(text);
    out(QStringLiteral("graphics device: ") + text);
    card->getGraphicsCardVendor(text);
    out(QStringLiteral("graphics vendor: ") + text);
    card->getGraphicsCardChipset(text);
    out(QStringLiteral("graphics chipset: ") + text);
    card->getGraphicsCardDriver(text);
    out(QStringLiteral("graphics driver: ") + text);
}

// The application's version record and where its settings and resources live.
void printVersionRecord() {
    out(QStringLiteral("application: ") + VersionInfo::getAppNameW());
    out(QStringLiteral("company: ") + VersionInfo::getAppCompanyW());
    const int number = VersionInfo::parseVersionNumber(VersionInfo::getAppVersionW());
    out(QStringLiteral("version: %1 (number %2)").arg(VersionInfo::getAppVersionW()).arg(number));
    out(QStringLiteral("edition: type %1, group %2, application id %3, product id %4")
            .arg(int(VersionInfo::getAppType()))
            .arg(VersionInfo::getAppGroup())
            .arg(VersionInfo::getAppIDW(), VersionInfo::getIDFromType(VersionInfo::getAppType())));
    out(QStringLiteral("application settings: ") + VersionInfo::getAppSettingsRegistryPath());
    out(QStringLiteral("common settings: ") + VersionInfo::getCommonSettingsRegistryPath());
    const std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    out(QStringLiteral("settings file: ") + settings->fileName());
    out(QStringLiteral("last version run: ") +
        settings->value(QStringLiteral("currentVersion")).toString());
    out(QStringLiteral("last system run on: ") +
        settings->value(QStringLiteral("osName")).toString());
    out(QStringLiteral("resource folder: ") + vanta::GetResourceFolder());
    out(QStringLiteral("welcome banner for these locales: ") +
        vanta::BinRes::GetResourcePathWithRegionEmphasis(QStringLiteral("png"),
                                                         QStringLiteral("welcome")));
}

int runSysinfo(const QStringList& args) {
    if (!args.isEmpty())
        return usage("sysinfo");
    printMachine();
    const System::GUID guid = System::getGUID();
    out(QStringLiteral("guid: ") + hex(guid.bytes, 16));
    out(QStringLiteral("locale: ") + System::getCurrentLocale());
    out(QStringLiteral("platform locales: ") +
        System::getPlatformPreferredLocaleList().join(QLatin1Char(' ')));
    out(QStringLiteral("preferred locales: ") +
        System::getPreferredLocaleListWithRegionEmphasis().join(QLatin1Char(' ')));
    out(QStringLiteral("support: ") + vanta::getSupportCenterBin());
    out(QStringLiteral("install path: ") + System::getInstallPath());
    out(QStringLiteral("application folder: ") + System::getAppDirectory());
    out(QStringLiteral("cache folder: ") + System::getCacheDirectory());
    out(QStringLiteral("documents folder: ") + System::getMyDocumentsDirectory());
    out(QStringLiteral("temporary folder: ") + System::getTempDirectory());
    printVersionRecord();
    return kOk;
}

int runCleanpath(const QStringList& args) {
    if (args.size() != 1)
        return usage("cleanpath PATH");
    QString path = args.first();
    vanta::file::cleanupPathname(path);
    out(path);
    return kOk;
}

void tourMachine() {
    printMachine();
    for (const char* example : {"C:\\a\\..\\b", "a//b/./c", "http://host/a/../b?x=../y"}) {
        QString path = QString::fromUtf8(example);
        vanta::file::cleanupPathname(path);
        out(QStringLiteral("cleanpath %1 -> %2").arg(QString::fromUtf8(example), path));
    }
}

Registrar sysinfo{Command{"sysinfo", "sysinfo",
                          "describe this machine, its locales and the application's folders",
                          runSysinfo}};
Registrar cleanpath{Command{"cleanpath", "cleanpath PATH",
                            "normalise a path or http address as the library stores it",
                            runCleanpath}};
Registrar tour{TourStep{900, "This machine", tourMachine}};

}  // namespace
