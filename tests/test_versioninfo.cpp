// Tests of the version record: editions, version numbers, settings locations, first-run
// detection and the "Version" settings group.
#include <vanta/system.h>
#include <vanta/versioninfo.h>
#include <vanta/versioninfo_p.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

#include <memory>

using vanta::System;

namespace {

// Every test starts from the default edition and an empty user settings file (the runner has
// already pointed XDG_CONFIG_HOME into a scratch folder).
class VersionInfoTest : public ::testing::Test {
protected:
    void SetUp() override {
        VersionInfo::shutdown();
        clearUserSettings();
    }
    void TearDown() override { VersionInfo::shutdown(); }

    static void clearUserSettings() {
        std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
        s->clear();
    }
    static QString userValue(const QString& key) {
        std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
        return s->value(key).toString();
    }
    static void setUserValue(const QString& key, const QString& value) {
        std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
        s->setValue(key, value);
    }
};

TEST_F(VersionInfoTest, DefaultRecord) {
    EXPECT_EQ(VersionInfoImpl::readAppVersion(), QStringLiteral("4.0.2736"));
    EXPECT_EQ(VersionInfo::getAppType(), VersionInfo::kAppStandard);
    EXPECT_EQ(VersionInfo::getAppCompanyW(), QStringLiteral("Orvane"));
    EXPECT_EQ(VersionInfo::getAppVersionW(), QStringLiteral("4.0.2736"));
    EXPECT_EQ(VersionInfo::getCommonSettingsRegistryPath(),
              QStringLiteral("Software/Orvane/OVCommonSettings"));
    // A fresh record after shutdown forgets what was changed.
    VersionInfo::setAppVersion(QStringLiteral("5.1"));
    VersionInfo::setAppType(VersionInfo::kAppStudio);
    VersionInfo::shutdown();
    EXPECT_EQ(VersionInfo::getAppVersionW(), QStringLiteral("4.0.2736"));
    EXPECT_EQ(VersionInfo::getAppIDW(), QStringLiteral("OrvaneVantaEmber"));
}

TEST_F(VersionInfoTest, EditionRows) {
    const struct {
        int type;
        const char *name, *appID, *productID;
        int group;
    } rows[] = {
        {0, "Orvane Vanta Site", "OrvaneVantaSite", "OrvaneVantaMacStudio", 0},
        {1, "Orvane Vanta Studio", "OrvaneVantaStudio", "OrvaneVantaMacStudio", 1},
        {2, "Orvane Vanta Ember", "OrvaneVantaEmber", "OrvaneVantaMac", 2},
        {3, "Orvane Vanta Ember", "OrvaneVantaEmber", "OrvaneVantaMac", 2},
        {4, "Orvane Vanta Ember", "OrvaneVantaEmber", "vx_nv", 2},
        {5, "Orvane Vanta", "OrvaneVantaEmber", "OrvaneVantaMac", 2},
        {255, "UNKNOWN", "UNKNOWN", "vx_UNKNOWN", 255},
        // Types without a row: empty names, group 255.
        {6, "", "", "", 255},
        {-1, "", "", "", 255},
        {254, "", "", "", 255},
    };
    for (const auto& row : rows) {
        const auto type = VersionInfo::AppType(row.type);
        SCOPED_TRACE(row.type);
        EXPECT_EQ(VersionInfo::getIDFromType(type), QString::fromLatin1(row.productID));
        VersionInfo::setAppType(type);
        EXPECT_EQ(VersionInfo::getAppType(), type);
        EXPECT_EQ(VersionInfo::getAppNameW(), QString::fromLatin1(row.name));
        EXPECT_EQ(VersionInfo::getAppIDW(), QString::fromLatin1(row.appID));
        EXPECT_EQ(VersionInfo::getAppGroup(), row.group);
        EXPECT_EQ(VersionInfo::getAppSettingsRegistryPath(),
                  QStringLiteral("Software/Orvane/") + QString::fromLatin1(row.appID));
    }
    // Looking up a missing type does not add a row for it.
    EXPECT_EQ(VersionInfo::getIDFromType(VersionInfo::AppType(6)), QString());
}

TEST_F(VersionInfoTest, ParseVersionNumber) {
    const struct {
        const char* text;
        int value;
        bool ok;
    } rows[] = {
        {"4.0.2736", 402736, true},
        {"1.0.20000", 120000, true},  // the third part is not bounded...
        {"1.2.0", 120000, true},      // ...so these two collide
        {"4.0", 400000, true},
        {"7", 700000, true},
        {"", 0, true},
        {"..1..2..", 120000, true},  // empty parts are dropped
        {"1.2.3.4", 120003, false},  // a fourth part is ignored but marks not ok
        {"1.x.3", 100003, false},    // a bad part counts as 0
        {"-1.0.0", 0, false},
        {"a.b.c.d.e", 0, false},
        {"0.0.99999", 99999, true},
    };
    for (const auto& row : rows) {
        bool ok = !row.ok;
        EXPECT_EQ(VersionInfo::parseVersionNumber(QString::fromLatin1(row.text), &ok), row.value)
            << row.text;
        EXPECT_EQ(ok, row.ok) << row.text;
        EXPECT_EQ(VersionInfo::parseVersionNumber(QString::fromLatin1(row.text)), row.value);
    }
}

TEST_F(VersionInfoTest, SettingsFactoriesUseCompanyAndIds) {
    const QString config = vantatest::scratchDir() + QStringLiteral("/config/Orvane/");
    std::unique_ptr<QSettings> app(VersionInfo::createUserAppSettings());
    std::unique_ptr<QSettings> common(VersionInfo::createUserCommonSettings());
    EXPECT_EQ(app->fileName(), config + QStringLiteral("OrvaneVantaEmber.conf"));
    EXPECT_EQ(common->fileName(), config + QStringLiteral("OVCommonSettings.conf"));

    std::unique_ptr<QSettings> global(VersionInfo::createGlobalAppSettings());
    EXPECT_EQ(global->scope(), QSettings::SystemScope);
    EXPECT_TRUE(global->fileName().endsWith(QStringLiteral("/Orvane/OrvaneVantaEmber.conf")));

    // Another edition's settings live under its own application id.
    VersionInfo::setAppType(VersionInfo::kAppStudio);
    std::unique_ptr<QSettings> studio(VersionInfo::createUserAppSettings());
    EXPECT_EQ(studio->fileName(), config + QStringLiteral("OrvaneVantaStudio.conf"));
}

TEST_F(VersionInfoTest, FirstRunOfANewVersion) {
    VersionOptions& options = VersionInfo::versionOptions;
    for (const char* last : {"", "3.9.100"}) {  // nothing recorded yet, then an older version
        SCOPED_TRACE(last);
        if (*last)
            setUserValue(QStringLiteral("currentVersion"), QString::fromLatin1(last));
        options.firstRunNewVersion.set(false);
        EXPECT_TRUE(VersionInfo::isFirstRunNewVersion());
        EXPECT_TRUE(options.firstRunNewVersion.getValue());
        EXPECT_EQ(options.lastVersion.getValue(), QString::fromLatin1(last));
        EXPECT_EQ(userValue(QStringLiteral("currentVersion")), QStringLiteral("4.0.2736"));
        EXPECT_FALSE(VersionInfo::isFirstRunNewVersion());
    }
}

TEST_F(VersionInfoTest, FirstRunOnAnotherSystem) {
    const QString current = System::getOSName(System::getOSVersion());
    EXPECT_TRUE(VersionInfo::isFirstRunOnThisOS());
    EXPECT_TRUE(VersionInfo::versionOptions.firstRunOnThisOS.getValue());
    EXPECT_EQ(userValue(QStringLiteral("osName")), current);
    EXPECT_FALSE(VersionInfo::isFirstRunOnThisOS());
    EXPECT_FALSE(VersionInfo::versionOptions.firstRunOnThisOS.getValue());

    setUserValue(QStringLiteral("osName"), QStringLiteral("Mac OS X"));
    EXPECT_TRUE(VersionInfo::isFirstRunOnThisOS());
    EXPECT_EQ(userValue(QStringLiteral("osName")), current);
}

TEST_F(VersionInfoTest, CorruptSettingsFileReadsAsEmpty) {
    std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
    const QString path = s->fileName();
    s.reset();
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(QByteArray("[General\n\x01\x02\xff=\"\\\ncurrentVersion\n@Variant(\x7f\n"));
    file.close();
    EXPECT_TRUE(VersionInfo::isFirstRunNewVersion());
    EXPECT_FALSE(VersionInfo::isFirstRunNewVersion());
}

TEST_F(VersionInfoTest, OptionsGroupPublishesTheMachine) {
    VersionOptions& options = VersionInfo::versionOptions;
    ASSERT_EQ(vanta::SettingGroup::getGroup(QStringLiteral("Version")), &options);
    const char* names[] = {"appName",      "appVersion", "firstRunNewVersion", "currentRunVersion",
                           "lastVersion",  "osName",     "osMajor",            "osMinor",
                           "osBuild",      "osPatch",    "firstRunOnThisOS",   "osLocale",
                           "ramSize",      "screenWidth", "screenHeight"};
    const int types[] = {4, 4, 0, 4, 4, 4, 1, 1, 1, 1, 0, 4, 1, 1, 1};
    ASSERT_EQ(options.getSettingCount(), 15);
    for (int i = 0; i < 15; ++i) {
        EXPECT_EQ(options.getSetting(i)->getName(), QString::fromLatin1(names[i]));
        EXPECT_EQ(options.getSetting(i)->getType(), types[i]) << names[i];
    }

    VersionInfo::storeOsInfo();
    System::OSVersion os;
    int major = -1, minor = -1, build = -1, patch = -1;
    System::getOSVersion(os, major, minor, build, patch);
    EXPECT_EQ(options.osName.getValue(), System::getOSName(os));
    EXPECT_EQ(options.osPatch.getValue(), patch);

    System::setCurrentLocale(QStringLiteral("fr_CA"));
    VersionInfo::storeMachineInfo();
    int physical = 0, virtual_ = 0;
    System::getTotalMemoryMB(physical, virtual_);
    EXPECT_EQ(options.appName.getValue(), QStringLiteral("Orvane Vanta"));
    EXPECT_EQ(options.appVersion.getValue(), QStringLiteral("4.0.2736"));
    EXPECT_EQ(options.osLocale.getValue(), QStringLiteral("fr_CA"));
    EXPECT_EQ(options.ramSize.getValue(), physical);
    EXPECT_GT(physical, 0);
    // A console program has no screen to measure.
    EXPECT_EQ(options.screenWidth.getValue(), 0);
    System::setCurrentLocale(QStringLiteral("en_US"));
}

}  // namespace
