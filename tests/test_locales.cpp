// Tests of the locale lists, region emphasis, localized help addresses and the browser launch.
#include <vanta/locales.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QSettings>

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <pthread.h>
#include <unistd.h>

using namespace vanta;
using vantatest::ScopedEnv;

namespace {

// LANGUAGE, LC_ALL, LC_MESSAGES and LANG for one case; null leaves a variable unset.
struct LocaleEnv {
    const char *language, *lcAll, *lcMessages, *lang;
};

struct ScopedLocaleEnv {
    explicit ScopedLocaleEnv(const LocaleEnv& e)
        : language("LANGUAGE", e.language), lcAll("LC_ALL", e.lcAll),
          lcMessages("LC_MESSAGES", e.lcMessages), lang("LANG", e.lang) {}
    ScopedEnv language, lcAll, lcMessages, lang;
};

// The user's saved locale choice, where the application keeps its per-user settings.
void saveLocaleChoice(const char* value) {
    QSettings settings(QSettings::NativeFormat, QSettings::UserScope, "Orvane",
                       "OrvaneVantaEmber");
    value ? settings.setValue("locale", QString::fromUtf8(value)) : settings.remove("locale");
}

QStringList list(const char* spaced) {
    return QString::fromUtf8(spaced).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

}  // namespace

TEST(Locales, CurrentLocaleStartsAsEnUs) {
    EXPECT_EQ(System::getCurrentLocale(), QStringLiteral("en_US"));
    EXPECT_TRUE(System::doesAppOwnDocumentType());
}

TEST(Locales, PlatformListFromTheEnvironment) {
    const struct {
        LocaleEnv env;
        const char* expected;
    } rows[] = {
        {{"en:de", nullptr, nullptr, "C.UTF-8"}, "en de"},
        {{nullptr, nullptr, nullptr, "de_CH.UTF-8@euro"}, "de_CH en"},
        {{"pt-br:fr_FR.ISO-8859-1", nullptr, "fr_FR.UTF-8", "C"}, "pt_BR fr_FR en"},
        {{nullptr, "ja_JP.UTF-8", nullptr, "en_US.UTF-8"}, "ja_JP en"},  // LC_ALL hides LANG
        {{"de:fr", "C", nullptr, "de_DE.UTF-8"}, "en"},  // and "C" hides LANGUAGE too
        {{"C", "POSIX", "C.UTF-8", "POSIX"}, "en"},
        {{nullptr, nullptr, nullptr, "C"}, "en"},
        {{nullptr, nullptr, nullptr, nullptr}, "en"},
        {{"de:fr", nullptr, nullptr, nullptr}, "en"},  // nothing set is "C"
        {{"", "", "", "it_IT.UTF-8"}, "it_IT en"},  // empty is unset
        {{"fr:en:de", nullptr, nullptr, "de.UTF-8"}, "fr en de"},  // no name twice
        {{"::bad locale!:sr_latn_rs@latin:e", nullptr, nullptr, "C.UTF-8"}, "sr_Latn_RS en"},
    };
    for (const auto& row : rows) {
        ScopedLocaleEnv env(row.env);
        EXPECT_EQ(System::getPlatformPreferredLocaleList(), list(row.expected)) << row.expected;
    }
}

TEST(Locales, SavedChoiceGoesInFront) {
    ScopedLocaleEnv env({"en:de", nullptr, nullptr, "C.UTF-8"});
    // No default is inserted, and a duplicate is kept.
    const char* rows[][2] = {{nullptr, "en de"}, {"fr", "fr en de"}, {"de", "de en de"}};
    for (const auto& row : rows) {
        saveLocaleChoice(row[0]);
        EXPECT_EQ(System::getPreferredLocaleList(), list(row[1])) << row[1];
    }
    saveLocaleChoice(nullptr);
}

TEST(Locales, RegionEmphasis) {
    const struct {  // LC_ALL, LANG, list, emphasised list
        const char *lcAll, *lang, *in, *out;
    } rows[] = {
        {nullptr, "en_AU.UTF-8", "en_GB fr", "en_GB fr"},  // the head names a region already
        {nullptr, "en_AU.UTF-8", "en de", "en_AU en de"},
        {nullptr, "fr_FR.UTF-8", "en de", "en de"},
        {nullptr, "en_AU.UTF-8", "", ""},
        {nullptr, "C.UTF-8", "en", "en"},
        {"de_AT.UTF-8", "en_AU.UTF-8", "de", "de_AT de"},
        {nullptr, "de.UTF-8", "de en", "de en"},  // a system locale without a region adds none
        {"C", "de_CH.UTF-8", "de", "de"},         // LC_ALL=C hides LANG's region
        {"junk!", "de_CH.UTF-8", "de", "de"},
    };
    for (const auto& row : rows) {
        ScopedLocaleEnv env({nullptr, row.lcAll, nullptr, row.lang});
        EXPECT_EQ(System::adjustLocaleListForRegion(list(row.in)), list(row.out)) << row.in;
    }
    ScopedLocaleEnv env({"de:en", nullptr, nullptr, "de_CH.UTF-8"});
    EXPECT_EQ(System::getPreferredLocaleListWithRegionEmphasis(), list("de_CH de en de_CH"));
}

TEST(Locales, AddressesFollowTheLanguage) {
    const char* rows[][3] = {  // locale, address, localized address
        {"ja_JP", "http://www.orvane.com/x", "http://www.orvane.co.jp/x"},
        {"pt_BR", "http://www.orvane.com/x", "http://www.orvane.com/x"},
        {"de", "http://orvane.com/?u=http://vanta.orvane.com/",
         "http://orvane.de/?u=http://vanta.orvane.de/"},
        {"es_MX", "https://Orvane.COM/", "https://Orvane.es/"},
        {"fr_CA", "http://notorvane.com/ http://orvane.community/x",
         "http://notorvane.com/ http://orvane.community/x"},
    };
    for (const auto& row : rows) {
        System::setCurrentLocale(QString::fromUtf8(row[0]));
        EXPECT_EQ(System::getOrvaneURLLocalizedByLang(QString::fromUtf8(row[1])),
                  QString::fromUtf8(row[2])) << row[0];
    }

    const QString base = "http://" + QLatin1String(kHelpHost) + "/support/";
    System::setCurrentLocale(QStringLiteral("en_US"));
    EXPECT_EQ(System::getLocalizedSupportURL(1234), base + "answer?id=1234");
    EXPECT_EQ(System::getLocalizedSupportTopicURL(-7), base + "topic?id=-7");
    EXPECT_EQ(System::getLocalizedContactSupportURL(), base + "contact");
    System::setCurrentLocale(QStringLiteral("it"));
    EXPECT_EQ(getSupportCenterBin(), QString(base).replace(".com/", ".it/"));
    System::setCurrentLocale(QStringLiteral("en_US"));
}

namespace {

// A fake xdg-open in a folder of its own, which appends the number of its arguments and the first
// to xdg-open.log beside it, and describes itself in xdg-open.report: its process and session
// ids, blocked and ignored signals (hexadecimal masks) and open descriptors. Returns the folder.
QString installFakeOpener() {
    const QString bin = vantatest::scratchDir() + "/fakebin";
    QDir().mkpath(bin);
    QFile script(bin + "/xdg-open");
    if (script.open(QIODevice::WriteOnly))
        script.write("#!/bin/sh\n"
                     "printf '%s|%s\\n' \"$#\" \"$1\" >> \"$0.log\"\n"
                     // Builtins only until the masks are read: while the shell starts a
                     // command it blocks every signal for a moment.
                     "while read -r key value; do case $key in Sig???:) echo \"$key $value\";;\n"
                     "  esac; done < /proc/$$/status > \"$0.$$\"\n"
                     "read -r stat < /proc/$$/stat; set -- $stat\n"
                     "{ echo \"pid $1\"; echo \"sid $6\";\n"
                     "  echo \"fds $(ls /proc/$1/fd | tr '\\n' ' ')\"; } >> \"$0.$1\"\n"
                     "mv \"$0.$1\" \"$0.report\" 2>/dev/null\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    return bin;
}

QByteArray openerLog(const QString& bin) {
    QFile f(bin + "/xdg-open.log");
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

}  // namespace

TEST(Browser, OpensWithSpacesEscapedAndRefusesBadAddresses) {
    const QString bin = installFakeOpener();
    ScopedEnv path("PATH", (bin + ":/usr/bin:/bin").toUtf8().constData());
    auto log = [&] { return openerLog(bin); };

    sLastLaunchSucceded = true;
    EXPECT_FALSE(System::LaunchExternalBrowser(QString()));
    EXPECT_TRUE(sLastLaunchSucceded);  // an empty address is refused before any attempt
    for (const char* bad : {"http://", "https://", "relative/page.html", "http://host/<a>"}) {
        EXPECT_FALSE(System::LaunchExternalBrowser(QString::fromUtf8(bad))) << bad;
        EXPECT_FALSE(sLastLaunchSucceded) << bad;
    }
    EXPECT_TRUE(System::LaunchExternalBrowser(QStringLiteral("http://h/a b/c?q=x y"), true, true));
    EXPECT_TRUE(sLastLaunchSucceded);
    EXPECT_TRUE(vantatest::waitUntil([&] { return log() == "1|http://h/a%20b/c?q=x%20y\n"; }))
        << log().constData();
    // Other schemes need no host.
    EXPECT_TRUE(System::LaunchExternalBrowser(QStringLiteral("file:///tmp/page.html")));
    EXPECT_TRUE(vantatest::waitUntil([&] { return log().endsWith("1|file:///tmp/page.html\n"); }))
        << log().constData();

    ScopedEnv nowhere("PATH", (bin + "/nothing-here").toUtf8().constData());
    EXPECT_FALSE(System::LaunchExternalBrowser(QStringLiteral("http://host/")));
    EXPECT_FALSE(sLastLaunchSucceded);
}

// The opener shares nothing with the caller: it leads a session of its own, and neither a
// signal the calling thread blocks, one the process ignores, nor a descriptor left open
// (here both ends of a pipe) reaches it.
TEST(Browser, OpenerIsDetachedFromTheCaller) {
    const QString bin = installFakeOpener();
    ScopedEnv path("PATH", (bin + ":/usr/bin:/bin").toUtf8().constData());
    QFile::remove(bin + "/xdg-open.report");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(dup2(ends[0], 60) + dup2(ends[1], 61), 60 + 61);
    sigset_t term, old;
    sigemptyset(&term);
    sigaddset(&term, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &term, &old);
    const auto oldUsr2 = std::signal(SIGUSR2, SIG_IGN);
    const bool launched = System::LaunchExternalBrowser(QStringLiteral("http://h/"));
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
    std::signal(SIGUSR2, oldUsr2);
    for (int fd : {ends[0], ends[1], 60, 61})
        close(fd);
    ASSERT_TRUE(launched);
    QFile report(bin + "/xdg-open.report");
    ASSERT_TRUE(vantatest::waitUntil([&] { return report.exists(); }));
    ASSERT_TRUE(report.open(QIODevice::ReadOnly));
    std::map<QByteArray, QByteArray> facts;
    for (QByteArray line : report.readAll().split('\n')) {
        line = line.simplified();  // "SigBlk:\t0000000000004000" -> "SigBlk: 0000000000004000"
        const int space = line.indexOf(' ');
        facts[line.left(space).replace(":", "")] = line.mid(space + 1).trimmed();
    }
    ASSERT_TRUE(facts.count("SigBlk") && facts.count("SigIgn") && facts.count("sid"));
    EXPECT_EQ(facts["sid"], facts["pid"]);
    const qulonglong blocked = facts["SigBlk"].toULongLong(nullptr, 16);
    const qulonglong ignored = facts["SigIgn"].toULongLong(nullptr, 16);
    EXPECT_EQ(blocked & (1ull << (SIGTERM - 1)), 0ull) << facts["SigBlk"].constData();
    EXPECT_EQ(ignored & (1ull << (SIGUSR2 - 1)), 0ull) << facts["SigIgn"].constData();
    const QList<QByteArray> fds = facts["fds"].split(' ');
    EXPECT_TRUE(fds.contains("0") && fds.contains("2")) << facts["fds"].constData();
    for (const QByteArray& fd : {QByteArray::number(ends[0]), QByteArray::number(ends[1]),
                                 QByteArray("60"), QByteArray("61")})
        EXPECT_FALSE(fds.contains(fd)) << fd.constData() << " in " << facts["fds"].constData();
}

// With SIGCHLD ignored the system reaps the opener itself; the thread that would have reaped it
// must still end.
TEST(BrowserDeathTest, TheReaperEndsWhenTheSystemReapedTheOpener) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        const QString bin = installFakeOpener();
        ScopedEnv path("PATH", (bin + ":/usr/bin:/bin").toUtf8().constData());
        std::signal(SIGCHLD, SIG_IGN);
        const auto threads = [] { return QDir("/proc/self/task").count(); };
        const auto before = threads();
        if (!System::LaunchExternalBrowser(QStringLiteral("http://h/")))
            return 1;
        const bool opened = vantatest::waitUntil([&] { return openerLog(bin) == "1|http://h/\n"; });
        return opened && vantatest::waitUntil([&] { return threads() == before; }) ? 0 : 2;
    };
    EXPECT_EXIT(std::_Exit(run()), ::testing::ExitedWithCode(0), "");
}
