// The application's version record: VersionInfo, its private record and the "Version" group.
#include <vanta/versioninfo.h>
#include <vanta/versioninfo_p.h>

#include <vanta/settingsstore_p.h>

#include <vanta/system.h>

#include <QCoreApplication>
#include <QGuiApplication>
#include <QScreen>
#include <QSettings>
#include <QStringList>

#include <atomic>
#include <mutex>

namespace {

// The built-in version, formatted as "%hu.%hu.%04hu"; the numbers come from the project's
// version in CMakeLists.txt.
constexpr unsigned short kVersionMajor = VANTA_VERSION_MAJOR;
constexpr unsigned short kVersionMinor = VANTA_VERSION_MINOR;
constexpr unsigned short kVersionBuild = VANTA_VERSION_PATCH;

const char kRegistryPathFormat[] = "Software/%1/%2";

// The record is built once and read without a lock afterwards; the lock only keeps two first
// callers from building it twice.
std::atomic<VersionInfoImpl*> sRecord{nullptr};
std::mutex sRecordLock;

VersionInfoImpl& record() {
    VersionInfoImpl* r = sRecord.load(std::memory_order_acquire);
    if (!r) {
        VersionInfo::initialize();
        r = sRecord.load(std::memory_order_acquire);
    }
    return *r;
}

// A QSettings whose heap block comes from vanta::doNew: the MemoryObject operators are found
// through the virtual destructor, so a caller's plain `delete` returns the block to doDelete.
class ManagedSettings : public QSettings, public vanta::MemoryObject {
public:
    ManagedSettings(QSettings::Scope scope, const QString& organization, const QString& application)
        : QSettings(QSettings::NativeFormat, scope, organization, application) {}
};

}  // namespace

// ---- VersionOptions ----

VersionOptions VersionInfo::versionOptions;

VersionOptions::VersionOptions()
    : vanta::SettingGroup(QStringLiteral("Version")),
      appName(*this, QStringLiteral("appName"), QString()),
      appVersion(*this, QStringLiteral("appVersion"), QString()),
      firstRunNewVersion(*this, QStringLiteral("firstRunNewVersion"), false),
      currentRunVersion(*this, QStringLiteral("currentRunVersion"), QString()),
      lastVersion(*this, QStringLiteral("lastVersion"), QString()),
      osName(*this, QStringLiteral("osName"), QString()),
      osMajor(*this, QStringLiteral("osMajor"), 0),
      osMinor(*this, QStringLiteral("osMinor"), 0),
      osBuild(*this, QStringLiteral("osBuild"), 0),
      osPatch(*this, QStringLiteral("osPatch"), 0),
      firstRunOnThisOS(*this, QStringLiteral("firstRunOnThisOS"), false),
      osLocale(*this, QStringLiteral("osLocale"), QString()),
      ramSize(*this, QStringLiteral("ramSize"), 0),
      screenWidth(*this, QStringLiteral("screenWidth"), 0),
      screenHeight(*this, QStringLiteral("screenHeight"), 0) {}

VersionOptions::~VersionOptions() = default;

// ---- VersionInfoImpl ----

VersionInfoImpl::VersionInfoImpl() {
    initialized = true;
    fillAppInfoMap();
    company = QStringLiteral("Orvane");
    commonProductID = QStringLiteral("OVCommonSettings");
    commonRegistryPath = QString::fromLatin1(kRegistryPathFormat).arg(company, commonProductID);
    appVersion = readAppVersion();
    // Every program starts as the standard edition; one embedded in another is always it.
    select(VersionInfo::kAppStandard);
}

void VersionInfoImpl::fillAppInfoMap() {
    // Filled in this order on purpose: rows 3 and 4 are copies of row 2 taken after it is set.
    appInfoMap[VersionInfo::kAppSite] = {QStringLiteral("Orvane Vanta Site"),
                                         QStringLiteral("OrvaneVantaSite"),
                                         QStringLiteral("OrvaneVantaMacStudio"), 0};
    appInfoMap[VersionInfo::kAppStudio] = {QStringLiteral("Orvane Vanta Studio"),
                                           QStringLiteral("OrvaneVantaStudio"),
                                           QStringLiteral("OrvaneVantaMacStudio"), 1};
    appInfoMap[VersionInfo::kAppEmber] = {QStringLiteral("Orvane Vanta Ember"),
                                          QStringLiteral("OrvaneVantaEmber"),
                                          QStringLiteral("OrvaneVantaMac"), 2};
    appInfoMap[VersionInfo::kAppStandard] = {QStringLiteral("Orvane Vanta"),
                                             QStringLiteral("OrvaneVantaEmber"),
                                             QStringLiteral("OrvaneVantaMac"), 2};
    appInfoMap[VersionInfo::kAppEmberAlt] = appInfoMap[VersionInfo::kAppEmber];
    appInfoMap[VersionInfo::kAppEmberNv] = appInfoMap[VersionInfo::kAppEmber];
    appInfoMap[VersionInfo::kAppEmberNv].productID = QStringLiteral("vx_nv");
    appInfoMap[VersionInfo::kAppUnknown] = {QStringLiteral("UNKNOWN"), QStringLiteral("UNKNOWN"),
                                            QStringLiteral("vx_UNKNOWN"), 255};
}

QString VersionInfoImpl::readAppVersion() {
    return QString::asprintf("%hu.%hu.%04hu", kVersionMajor, kVersionMinor, kVersionBuild);
}

VersionInfoImpl::AppInfo VersionInfoImpl::rowFor(VersionInfo::AppType type) const {
    return appInfoMap.value(type, AppInfo());
}

void VersionInfoImpl::select(VersionInfo::AppType type) {
    const AppInfo row = rowFor(type);
    currentType = type;
    appName = row.displayName;
    appID = row.appID;
    productID = row.productID;
    appGroup = row.group;
    commonRegistryPath = QString::fromLatin1(kRegistryPathFormat).arg(company, commonProductID);
    appRegistryPath = QString::fromLatin1(kRegistryPathFormat).arg(company, appID);
}

// ---- VersionInfo ----

void VersionInfo::initialize() {
    if (sRecord.load(std::memory_order_acquire))
        return;
    std::lock_guard<std::mutex> guard(sRecordLock);
    if (!sRecord.load(std::memory_order_relaxed))
        sRecord.store(new VersionInfoImpl, std::memory_order_release);
}

void VersionInfo::shutdown() {
    std::lock_guard<std::mutex> guard(sRecordLock);
    delete sRecord.exchange(nullptr, std::memory_order_acq_rel);
}

VersionInfo::AppType VersionInfo::getAppType() { return record().currentType; }
int VersionInfo::getAppGroup() { return record().appGroup; }
void VersionInfo::setAppType(AppType type) { record().select(type); }
QString VersionInfo::getIDFromType(AppType type) { return record().rowFor(type).productID; }

QString VersionInfo::getAppNameW() { return record().appName; }
QString VersionInfo::getAppCompanyW() { return record().company; }
QString VersionInfo::getAppVersionW() { return record().appVersion; }
QString VersionInfo::getAppVersionTagW() { return record().versionTag; }
QString VersionInfo::getAppIDW() { return record().appID; }
void VersionInfo::setAppVersion(const QString& version) { record().appVersion = version; }

void VersionInfo::setControlType(bool control) { record().controlType = control; }
bool VersionInfo::isControlType() { return record().controlType; }

QString VersionInfo::getCommonSettingsRegistryPath() { return record().commonRegistryPath; }
QString VersionInfo::getAppSettingsRegistryPath() { return record().appRegistryPath; }

QSettings* VersionInfo::createUserCommonSettings() {
    const VersionInfoImpl& r = record();
    return new ManagedSettings(QSettings::UserScope, r.company, r.commonProductID);
}

QSettings* VersionInfo::createUserAppSettings() {
    const VersionInfoImpl& r = record();
    return new ManagedSettings(QSettings::UserScope, r.company, r.appID);
}

QSettings* VersionInfo::createGlobalCommonSettings() {
    const VersionInfoImpl& r = record();
    return new ManagedSettings(QSettings::SystemScope, r.company, r.commonProductID);
}

QSettings* VersionInfo::createGlobalAppSettings() {
    const VersionInfoImpl& r = record();
    return new ManagedSettings(QSettings::SystemScope, r.company, r.appID);
}

int VersionInfo::parseVersionNumber(const QString& v, bool* ok) {
    initialize();
    const QStringList parts = v.split(QLatin1Char('.'), Qt::SkipEmptyParts);
    bool allGood = parts.size() <= 3;
    static const unsigned kMultipliers[3] = {100000, 10000, 1};
    // Unsigned arithmetic, as the parts are unsigned: a huge part wraps instead of overflowing.
    unsigned result = 0;
    for (int i = 0; i < parts.size() && i < 3; ++i) {
        bool converted = false;
        const unsigned part = parts[i].toUInt(&converted, 10);
        if (!converted)
            allGood = false;
        result += (converted ? part : 0u) * kMultipliers[i];
    }
    if (ok)
        *ok = allGood;
    return int(result);
}

bool VersionInfo::isFirstRunNewVersion() {
    const QString running = getAppVersionW();
    QSettings* settings = createUserAppSettings();
    const QString last = settings->value(QStringLiteral("currentVersion")).toString();
    const bool isNew = last != running;
    if (isNew)
        versionOptions.firstRunNewVersion.set(true);
    versionOptions.lastVersion.set(last);
    versionOptions.currentRunVersion.set(running);
    vanta::saveSettings(*settings, [&running](QSettings& s) {
        s.setValue(QStringLiteral("currentVersion"), running);
    });
    delete settings;
    return isNew;
}

bool VersionInfo::isFirstRunOnThisOS() {
    const QString current = vanta::System::getOSName(vanta::System::getOSVersion());
    QSettings* settings = createUserAppSettings();
    const bool isNew = settings->value(QStringLiteral("osName")).toString() != current;
    versionOptions.firstRunOnThisOS.set(isNew);
    if (isNew)
        vanta::saveSettings(*settings, [&current](QSettings& s) {
            s.setValue(QStringLiteral("osName"), current);
        });
    delete settings;
    return isNew;
}

void VersionInfo::storeOsInfo() {
    initialize();
    vanta::System::OSVersion os;
    int major = 0, minor = 0, build = 0, patch = 0;
    vanta::System::getOSVersion(os, major, minor, build, patch);
    versionOptions.osName.set(vanta::System::getOSName(os));
    versionOptions.osMajor.set(major);
    versionOptions.osMinor.set(minor);
    versionOptions.osBuild.set(build);
    versionOptions.osPatch.set(patch);
}

void VersionInfo::storeMachineInfo() {
    versionOptions.appName.set(getAppNameW());
    versionOptions.appVersion.set(getAppVersionW());
    versionOptions.osLocale.set(vanta::System::getCurrentLocale());
    int physical = 0, virtual_ = 0;
    vanta::System::getTotalMemoryMB(physical, virtual_);
    versionOptions.ramSize.set(physical);
    // QGuiApplication's screens exist only in a GUI application; a console program has none.
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        if (const QScreen* screen = QGuiApplication::primaryScreen()) {
            versionOptions.screenWidth.set(screen->geometry().width());
            versionOptions.screenHeight.set(screen->geometry().height());
        }
    }
}
