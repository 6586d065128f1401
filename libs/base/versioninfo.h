/// \file
/// The application's version record: editions, names, version, settings locations, first-run
/// detection, and the "Version" settings group that publishes them.
#pragma once

#include <vanta/export.h>
#include <vanta/typedsetting.h>

#include <QString>

class QSettings;

/// The "Version" settings group: who the application is and what it runs on, as observable
/// settings. The one instance is VersionInfo::versionOptions. Main thread only, like every group.
class VANTA_EXPORT VersionOptions : public vanta::SettingGroup {
public:
    VersionOptions();
    ~VersionOptions() override;

    vanta::TypedSetting<QString> appName;  ///< The application's name.
    vanta::TypedSetting<QString> appVersion;  ///< The application's version.
    /// Whether this is the first run of a new version.
    vanta::TypedSetting<bool> firstRunNewVersion;
    vanta::TypedSetting<QString> currentRunVersion;  ///< The version running now.
    vanta::TypedSetting<QString> lastVersion;  ///< The version run before this one.
    vanta::TypedSetting<QString> osName;  ///< The operating system's name.
    vanta::IntSetting osMajor;  ///< Its major version number.
    vanta::IntSetting osMinor;  ///< Its minor version number.
    vanta::IntSetting osBuild;  ///< Its build number.
    vanta::IntSetting osPatch;  ///< Its patch level.
    vanta::TypedSetting<bool> firstRunOnThisOS;  ///< Whether this is the first run on this system.
    vanta::TypedSetting<QString> osLocale;  ///< The current locale.
    vanta::IntSetting ramSize;       ///< physical memory in megabytes
    vanta::IntSetting screenWidth;   ///< primary screen, device-independent pixels
    vanta::IntSetting screenHeight;  ///< primary screen, device-independent pixels
};

/// Who this program is. Every operation first creates the private record (VersionInfoImpl) if it
/// does not exist yet; creation is locked, so the first calls may race. The setters change the
/// record in place and belong to the main thread, before other threads read it.
class VANTA_EXPORT VersionInfo {
public:
    /// The editions; each has a row of names in the record's edition map.
    enum AppType : int {
        kAppSite = 0,
        kAppStudio = 1,
        kAppEmber = 2,
        kAppEmberAlt = 3,   ///< same row as kAppEmber
        kAppEmberNv = 4,    ///< kAppEmber with its own product id
        kAppStandard = 5,   ///< the default edition
        kAppUnknown = 255,
    };

    /// Creates the record on the first call; later calls do nothing.
    static void initialize();
    /// Destroys the record; the next call of any operation builds a fresh one.
    static void shutdown();

    static AppType getAppType();  ///< The current edition.
    static int getAppGroup();  ///< The current edition's group.
    /// Selects another edition: name, application id, product id and group follow its row, and
    /// both registry paths are rebuilt. A type without a row gets empty names and group 255.
    static void setAppType(AppType type);
    /// The product id of type's row, empty for a type without a row.
    static QString getIDFromType(AppType type);

    static QString getAppNameW();  ///< The application's name.
    static QString getAppCompanyW();  ///< The company's name.
    static QString getAppVersionW();  ///< The application's version.
    static QString getAppVersionTagW();  ///< The version tag.
    static QString getAppIDW();  ///< The application id.
    static void setAppVersion(const QString& version);  ///< Sets the application's version.

    /// A flag for programs that run embedded in another one, kept in the record for them.
    static void setControlType(bool control);
    static bool isControlType();  ///< The flag set by setControlType.

    /// "Software/<company>/OVCommonSettings" and "Software/<company>/<application id>".
    static QString getCommonSettingsRegistryPath();
    static QString getAppSettingsRegistryPath();  ///< This application's settings path.

    /// New settings objects for the common product or this application, per user or for all
    /// users. Allocated through vanta::doNew; the caller deletes them with delete. Never null.
    static QSettings* createUserCommonSettings();
    static QSettings* createUserAppSettings();  ///< Per-user settings of this application.
    /// Settings common to the products, for all users.
    static QSettings* createGlobalCommonSettings();
    static QSettings* createGlobalAppSettings();  ///< This application's settings for all users.

    /// "a.b.c" as a*100000 + b*10000 + c, from at most three unsigned decimal parts ("." runs
    /// are skipped). *ok, when given, is false if there were more than three parts or a part did
    /// not convert (it then counts as 0). The third part is not bounded: 1.0.20000 == 1.2.0.
    static int parseVersionNumber(const QString& v, bool* ok = nullptr);

    /// True when the user settings name another version (or none) as the last one run; then
    /// sets versionOptions.firstRunNewVersion. Either way records the running version there,
    /// and puts the previous and the running version into lastVersion and currentRunVersion.
    static bool isFirstRunNewVersion();
    /// True when the user settings name another operating system (or none) as the last one run
    /// on; versionOptions.firstRunOnThisOS receives the answer, and a new name is recorded.
    static bool isFirstRunOnThisOS();
    /// Copies the operating system's name and version numbers into versionOptions.
    static void storeOsInfo();
    /// Copies the application's name and version, the current locale, the physical memory and
    /// the primary screen's size into versionOptions. The screen needs a QGuiApplication; without
    /// one the screen settings keep their values.
    static void storeMachineInfo();

    static VersionOptions versionOptions;  ///< The "Version" group, one instance.
};
