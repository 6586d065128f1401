// Tests of the locale lists, region emphasis, localized help addresses and the browser launch.
#include <vanta/locales.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace vanta;

namespace {

// The locale variables one case sets; null leaves a variable unset.
struct LocaleEnv {
    const char* language;
    const char* lcAll;
    const char* lcMessages;
    const char* lang;
};

// Applies a LocaleEnv for the life of the object.
class ScopedLocaleEnv {
public:
    explicit ScopedLocaleEnv(const LocaleEnv& env) {
        mGuards.push_back(std::make_unique<vantatest::ScopedEnv>("LANGUAGE", env.language));
        mGuards.push_back(std::make_unique<vantatest::ScopedEnv>("LC_ALL", env.lcAll));
        mGuards.push_back(std::make_unique<vantatest::ScopedEnv>("LC_MESSAGES", env.lcMessages));
        mGuards.push_back(std::make_unique<vantatest::ScopedEnv>("LANG", env.lang));
    }

private:
    std::vector<std::unique_ptr<vantatest::ScopedEnv>> mGuards;
};

// The user's saved locale choice, where the application keeps its per-user settings.
void saveLocaleChoice(const char* value) {
    QSettings settings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Orvane"),
                       QStringLiteral("OrvaneVantaEmber"));
    if (value)
        settings.setValue(QStringLiteral("locale"), QString::fromUtf8(value));
    else
        settings.remove(QStringLiteral("locale"));
    settings.sync();
}

QStringList list(std::initializer_list<const char*> items) {
    QStringList result;
    for (const char* item : items)
        result << QString::fromUtf8(item);
    return result;
}

// The current locale for one test.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* l) : mOld(System::getCurrentLocale()) {
        System::setCurrentLocale(QString::fromUtf8(l));
    }
    ~ScopedLocale() { System::setCurrentLocale(mOld); }

private:
    QString mOld;
};

}  // namespace

TEST(CurrentLocale, StartsAsEnUsAndTakesAnything) {
    EXPECT_EQ(System::getCurrentLocale(), QStringLiteral("en_US"));
    System::setCurrentLocale(QStringLiteral("not a locale"));
    EXPECT_EQ(System::getCurrentLocale(), QStringLiteral("not a locale"));
    System::setCurrentLocale(QStringLiteral("en_US"));
}

TEST(PlatformLocales, FromTheEnvironment) {
    const struct {
        const char* name;
        LocaleEnv env;
        QStringList expected;
    } rows[] = {
        {"language list", {"en:de", nullptr, nullptr, "C.UTF-8"}, list({"en", "de"})},
        {"codeset and modifier dropped", {nullptr, nullptr, nullptr, "de_CH.UTF-8@euro"},
         list({"de_CH"})},
        {"order and canonical case", {"pt-br:fr_FR.ISO-8859-1", nullptr, "fr_FR.UTF-8", "C"},
         list({"pt_BR", "fr_FR"})},
        {"LC_ALL before LANG", {nullptr, "ja_JP.UTF-8", nullptr, "en_US.UTF-8"},
         list({"ja_JP", "en_US"})},
        {"C and POSIX skipped", {"C", "POSIX", "C.UTF-8", "POSIX"}, QStringList()},
        {"nothing set", {nullptr, nullptr, nullptr, nullptr}, QStringList()},
        {"unusable entries skipped", {"::bad locale!:sr_latn_rs@latin:e", nullptr, nullptr, nullptr},
         list({"sr_Latn_RS"})},
    };
    for (const auto& row : rows) {
        ScopedLocaleEnv env(row.env);
        EXPECT_EQ(System::getPlatformPreferredLocaleList(), row.expected) << row.name;
    }
}

TEST(PreferredLocales, SavedChoiceGoesInFront) {
    ScopedLocaleEnv env({"en:de", nullptr, nullptr, nullptr});
    saveLocaleChoice(nullptr);
    EXPECT_EQ(System::getPreferredLocaleList(), list({"en", "de"}));  // no default inserted
    saveLocaleChoice("fr");
    EXPECT_EQ(System::getPreferredLocaleList(), list({"fr", "en", "de"}));
    saveLocaleChoice("de");
    EXPECT_EQ(System::getPreferredLocaleList(), list({"de", "en", "de"}));  // duplicate kept
    saveLocaleChoice(nullptr);
}

TEST(RegionEmphasis, SystemRegionPrecedesABareLanguage) {
    const struct {
        const char* name;
        const char* lcAll;
        const char* lang;
        QStringList in;
        QStringList out;
    } rows[] = {
        {"head has a region", nullptr, "en_AU.UTF-8", list({"en_GB", "fr"}), list({"en_GB", "fr"})},
        {"same language", nullptr, "en_AU.UTF-8", list({"en", "de"}), list({"en_AU", "en", "de"})},
        {"other language", nullptr, "fr_FR.UTF-8", list({"en", "de"}), list({"en", "de"})},
        {"empty list", nullptr, "en_AU.UTF-8", QStringList(), QStringList()},
        {"no system locale", nullptr, "C.UTF-8", list({"en"}), list({"en"})},
        {"LC_ALL decides", "de_AT.UTF-8", "en_AU.UTF-8", list({"de"}), list({"de_AT", "de"})},
    };
    for (const auto& row : rows) {
        ScopedLocaleEnv env({nullptr, row.lcAll, nullptr, row.lang});
        EXPECT_EQ(System::adjustLocaleListForRegion(row.in), row.out) << row.name;
    }

    saveLocaleChoice(nullptr);
    ScopedLocaleEnv env({"de:en", nullptr, nullptr, "de_CH.UTF-8"});
    EXPECT_EQ(System::getPreferredLocaleListWithRegionEmphasis(),
              list({"de_CH", "de", "en", "de_CH"}));
}

TEST(LocalizedAddresses, MakerDomainFollowsTheLanguage) {
    const struct {
        const char* locale;
        const char* in;
        const char* out;
    } rows[] = {
        {"ja_JP", "http://www.orvane.com/x", "http://www.orvane.co.jp/x"},
        {"pt_BR", "http://www.orvane.com/x", "http://www.orvane.com/x"},
        {"en_US", "http://www.orvane.com/x", "http://www.orvane.com/x"},
        {"de", "http://orvane.com/a?next=http://vanta.orvane.com/", "http://orvane.de/a?next=http://vanta.orvane.de/"},
        {"es_MX", "https://Orvane.COM/", "https://Orvane.es/"},
        {"it_IT", "http://example.com/orvane", "http://example.com/orvane"},
        {"fr_CA", "http://notorvane.com/ http://orvane.community/", "http://notorvane.com/ http://orvane.community/"},
        {"", "http://orvane.com/", "http://orvane.com/"},
    };
    for (const auto& row : rows) {
        ScopedLocale locale(row.locale);
        EXPECT_EQ(System::getOrvaneURLLocalizedByLang(QString::fromUtf8(row.in)),
                  QString::fromUtf8(row.out))
            << row.locale << " " << row.in;
    }
}

TEST(LocalizedAddresses, HelpCentrePages) {
    const QString base = QStringLiteral("http://") + QLatin1String(kHelpHost) + "/support/";
    {
        ScopedLocale locale("en_US");
        EXPECT_EQ(getSupportCenterBin(), base);
        EXPECT_EQ(System::getLocalizedSupportURL(1234), base + "answer?id=1234");
        EXPECT_EQ(System::getLocalizedSupportTopicURL(-7), base + "topic?id=-7");
        EXPECT_EQ(System::getLocalizedContactSupportURL(), base + "contact");
    }
    ScopedLocale locale("fr_FR");
    QString french = base;
    french.replace(".com/", ".fr/");
    EXPECT_EQ(System::getLocalizedSupportURL(1), french + "answer?id=1");
}

class Browser : public testing::Test {
protected:
    // A fake xdg-open first on PATH, appending each address it gets to a log.
    void SetUp() override {
        const QString bin = vantatest::scratchDir() + "/fakebin";
        QDir().mkpath(bin);
        QFile script(bin + "/xdg-open");
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\nprintf '%s|%s\\n' \"$#\" \"$1\" >> \"$0.log\"\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        mLog = bin + "/xdg-open.log";
        QFile::remove(mLog);
        mPath = std::make_unique<vantatest::ScopedEnv>(
            "PATH", (bin + ":/usr/bin:/bin").toUtf8().constData());
    }

    QByteArray log() {
        QFile f(mLog);
        return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
    }

    QString mLog;
    std::unique_ptr<vantatest::ScopedEnv> mPath;
};

TEST_F(Browser, OpensWithSpacesEscapedAndRefusesBadAddresses) {
    sLastLaunchSucceded = true;
    EXPECT_FALSE(System::LaunchExternalBrowser(QString()));
    EXPECT_TRUE(sLastLaunchSucceded);  // an empty address is refused before any attempt

    for (const char* bad : {"http://", "relative/page.html", "http://host/<a>"}) {
        sLastLaunchSucceded = true;
        EXPECT_FALSE(System::LaunchExternalBrowser(QString::fromUtf8(bad))) << bad;
        EXPECT_FALSE(sLastLaunchSucceded) << bad;
    }

    EXPECT_TRUE(System::LaunchExternalBrowser(QStringLiteral("http://host/a b/c d?q=x y"), true, true));
    EXPECT_TRUE(sLastLaunchSucceded);
    const QByteArray expected = "1|http://host/a%20b/c%20d?q=x%20y\n";
    EXPECT_TRUE(vantatest::waitUntil([&] { return log() == expected; })) << log().constData();
}

TEST_F(Browser, MissingOpenerIsAFailedLaunch) {
    vantatest::ScopedEnv path("PATH", (vantatest::scratchDir() + "/nothing-here").toUtf8().constData());
    sLastLaunchSucceded = true;
    EXPECT_FALSE(System::LaunchExternalBrowser(QStringLiteral("http://host/")));
    EXPECT_FALSE(sLastLaunchSucceded);
}
