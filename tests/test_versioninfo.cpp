// Tests of the version record: editions, version numbers, settings locations, first-run
// detection and the "Version" settings group.
#include <vanta/system.h>
#include <vanta/versioninfo.h>
#include <vanta/versioninfo_p.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include <gtest/gtest.h>

#include <memory>

using vanta::System;

namespace {

std::unique_ptr<QSettings> user() {
    return std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings());
}
QString userValue(const char* key) { return user()->value(QLatin1String(key)).toString(); }

// Every test starts from the default edition and an empty user settings file (the runner has
// already pointed XDG_CONFIG_HOME into a scratch folder).
class VersionInfoTest : public ::testing::Test {
protected:
    void SetUp() override {
        VersionInfo::shutdown();
        user()->clear();
    }
    void TearDown() override { VersionInfo::shutdown(); }
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
        SCOPED_TRACE(row.text);
        EXPECT_EQ(VersionInfo::parseVersionNumber(QString::fromLatin1(row.text), &ok), row.value);
        EXPECT_EQ(ok, row.ok);
        EXPECT_EQ(VersionInfo::parseVersionNumber(QString::fromLatin1(row.text)), row.value);
    }
}

TEST_F(VersionInfoTest, SettingsFactoriesUseCompanyAndIds) {
    const QString config = vantatest::scratchDir() + QStringLiteral("/config/Orvane/");
    EXPECT_EQ(user()->fileName(), config + QStringLiteral("OrvaneVantaEmber.conf"));
    EXPECT_EQ(std::unique_ptr<QSettings>(VersionInfo::createUserCommonSettings())->fileName(),
              config + QStringLiteral("OVCommonSettings.conf"));
    std::unique_ptr<QSettings> global(VersionInfo::createGlobalAppSettings());
    EXPECT_EQ(global->scope(), QSettings::SystemScope);
    EXPECT_TRUE(global->fileName().endsWith(QStringLiteral("/Orvane/OrvaneVantaEmber.conf")));
    // Another edition's settings live under its own application id.
    VersionInfo::setAppType(VersionInfo::kAppStudio);
    EXPECT_EQ(user()->fileName(), config + QStringLiteral("OrvaneVantaStudio.conf"));
}

TEST_F(VersionInfoTest, FirstRunOfANewVersion) {
    VersionOptions& options = VersionInfo::versionOptions;
    // Nothing recorded yet, an older version, and a corrupt file, which reads as empty.
    const std::pair<const char*, QByteArray> rows[] = {
        {"", {}}, {"3.9.100", {}},
        {"", "[General\n\x01\x02\xff=\"\\\ncurrentVersion\n@Variant(\x7f\n"}};
    for (const auto& [last, corrupt] : rows) {
        SCOPED_TRACE(corrupt.isEmpty() ? last : "corrupt");
        user()->clear();
        if (*last)
            user()->setValue(QStringLiteral("currentVersion"), QString::fromLatin1(last));
        QFile file(user()->fileName());
        ASSERT_TRUE(corrupt.isEmpty() ||
                    (file.open(QIODevice::WriteOnly) && file.write(corrupt) > 0));
        file.close();
        options.firstRunNewVersion.set(false);
        EXPECT_TRUE(VersionInfo::isFirstRunNewVersion());
        EXPECT_TRUE(options.firstRunNewVersion.getValue());
        EXPECT_EQ(options.lastVersion.getValue(), QString::fromLatin1(last));
        EXPECT_EQ(userValue("currentVersion"), QStringLiteral("4.0.2736"));
        EXPECT_FALSE(VersionInfo::isFirstRunNewVersion());
    }
}

TEST_F(VersionInfoTest, FirstRunOnAnotherSystem) {
    const QString current = System::getOSName(System::getOSVersion());
    EXPECT_TRUE(VersionInfo::isFirstRunOnThisOS());
    EXPECT_TRUE(VersionInfo::versionOptions.firstRunOnThisOS.getValue());
    EXPECT_EQ(userValue("osName"), current);
    EXPECT_FALSE(VersionInfo::isFirstRunOnThisOS() ||
                 VersionInfo::versionOptions.firstRunOnThisOS.getValue());

    user()->setValue(QStringLiteral("osName"), QStringLiteral("Mac OS X"));
    EXPECT_TRUE(VersionInfo::isFirstRunOnThisOS());
    EXPECT_EQ(userValue("osName"), current);
}

TEST_F(VersionInfoTest, FirstRunRecordsClearAKilledSavesLockAndKeepUserFiles) {
    // A lock file without an owner, as a save killed midway leaves it (it would stall a plain
    // save for 30 s), beside a user's file shaped like the store's temporaries.
    const std::pair<const char*, bool (*)()> writers[] = {
        {"new version", VersionInfo::isFirstRunNewVersion},
        {"this system", VersionInfo::isFirstRunOnThisOS}};
    for (const auto& [label, writer] : writers) {
        SCOPED_TRACE(label);
        const QString path = user()->fileName();
        user()->clear();
        QDir().mkpath(QFileInfo(path).absolutePath());
        for (const char* suffix : {".lock", ".Ab3dE9"}) {
            QFile file(path + QLatin1String(suffix));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        }
        EXPECT_TRUE(writer());
        EXPECT_FALSE(QFile::exists(path + ".lock"));
        EXPECT_TRUE(QFile::exists(path + ".Ab3dE9"));
    }
}

TEST_F(VersionInfoTest, OptionsGroupPublishesTheMachine) {
    VersionOptions& options = VersionInfo::versionOptions;
    ASSERT_EQ(vanta::SettingGroup::getGroup(QStringLiteral("Version")), &options);
    // Name and type (0 bool, 1 int, 4 string) of each setting, in order.
    QStringList published;
    for (int i = 0; i < options.getSettingCount(); ++i)
        published << options.getSetting(i)->getName() +
                         QString::number(options.getSetting(i)->getType());
    EXPECT_EQ(published.join(' '),
              "appName4 appVersion4 firstRunNewVersion0 currentRunVersion4 lastVersion4 osName4 "
              "osMajor1 osMinor1 osBuild1 osPatch1 firstRunOnThisOS0 osLocale4 ramSize1 "
              "screenWidth1 screenHeight1");

    for (const auto* number : {&options.osMajor, &options.osMinor, &options.osBuild,
                               &options.osPatch, &options.ramSize, &options.screenWidth,
                               &options.screenHeight})
        EXPECT_EQ(number->getDefault(), 0) << number->getName().toStdString();

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
    EXPECT_TRUE(physical > 0 && options.ramSize.getValue() == physical);
    // A console program has no screen to measure.
    EXPECT_EQ(options.screenWidth.getValue(), 0);
    System::setCurrentLocale(QStringLiteral("en_US"));
}

}  // namespace
