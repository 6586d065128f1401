// VersionInfoImpl: the private record behind VersionInfo (not API).
#pragma once

#include <vanta/memory.h>
#include <vanta/versioninfo.h>

#include <QMap>
#include <QString>

// The record VersionInfo answers from; one instance, built by VersionInfo::initialize.
class VersionInfoImpl : public vanta::MemoryObject {
public:
    // One edition's names.
    struct AppInfo {
        QString displayName;
        QString appID;
        QString productID;
        int group = 255;
    };

    // Fills the edition map, the company, common key, version and registry paths, and chooses
    // the starting edition (kAppStandard).
    VersionInfoImpl();

    // The built-in version, "4.0.2736".
    static QString readAppVersion();

    // type's row, or an empty record with group 255 when it has none (the map is not extended).
    AppInfo rowFor(VersionInfo::AppType type) const;
    // Makes type current: names, ids and group from its row, registry paths rebuilt.
    void select(VersionInfo::AppType type);

    QMap<int, AppInfo> appInfoMap;
    QString appName;
    QString company;
    QString appVersion;
    QString versionTag;
    QString commonProductID;
    QString commonRegistryPath;
    QString appID;
    QString appRegistryPath;
    QString productID;
    bool initialized = false;
    bool controlType = false;
    VersionInfo::AppType currentType = VersionInfo::kAppStandard;
    int appGroup = 255;

private:
    void fillAppInfoMap();
};
