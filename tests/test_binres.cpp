// Tests of packaged resources: the id table, the localized search on real folders, and reading
// and decoding the shipped images.
#include <vanta/binres.h>
#include <vanta/system.h>
#include <vanta/versioninfo.h>

#include "testsupport.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QSettings>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <set>
#include <string>

VANTA_TEST_NEEDS_GUI();

using namespace vanta;

namespace {

// Makes <scratch>/prefix/bin the install path, with share/vanta/Resources linking to the
// repository's resources folder (the images and localized welcome banners we ship).
void installShipped() {
    const QString root = vantatest::scratchDir() + "/prefix";
    QDir().mkpath(root + "/bin");
    QDir().mkpath(root + "/share/vanta");
    QFile::remove(root + "/share/vanta/Resources");
    ASSERT_TRUE(QFile::link(QDir::cleanPath(VANTA_TEST_DATA "/../../resources"),
                            root + "/share/vanta/Resources"));
    System::setInstallPath(root + "/bin");
}

void touch(const QString& path, const QByteArray& bytes = QByteArray("x")) {
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

QStringList list(const char* spaced) {
    return QString::fromLatin1(spaced).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

}  // namespace

TEST(BinRes, IdTable) {
    ASSERT_EQ(resIDNameMapSize, 43);
    const struct {
        int id;
        const char* name;
    } rows[] = {{211, "dglogo"}, {252, "cursor_hand_open"}, {521, "cursor_hand_open"},
                {550, "clear"}, {0, nullptr}, {-1, nullptr}};
    for (const auto& row : rows)
        EXPECT_STREQ(FindResName(row.id), row.name) << row.id;
    // Every id is unique; every name but the shared one appears once.
    std::set<int> ids;
    std::set<std::string> names;
    for (int i = 0; i < resIDNameMapSize; ++i) {
        ids.insert(resIDNameMap[i].id);
        names.insert(resIDNameMap[i].name);
    }
    EXPECT_EQ(int(ids.size()), 43);
    EXPECT_EQ(int(names.size()), 42);
}

TEST(BinRes, SearchOrderOnScratchFolders) {
    const struct {
        const char* label;
        const char* files;     // folders (relative to dir) holding pic.png; "." is dir itself
        const char* locales;
        const char* expected;  // folder of the answer, "" for none
    } rows[] = {
        {"language fallback before the next locale", "fr.lproj de.lproj", "fr_CA de", "fr.lproj"},
        {"exact locale before its language", "fr.lproj fr_CA.lproj", "fr_CA", "fr_CA.lproj"},
        {"unlocalized file wins", ". fr_CA.lproj", "fr_CA", "."},
        {"second locale when the first has nothing", "de.lproj", "fr_CA de", "de.lproj"},
        {"second locale's region", "de_AT.lproj de.lproj", "ja de_AT", "de_AT.lproj"},
        {"a bare language never looks at regions", "fr_CA.lproj", "fr", ""},
        {"nothing anywhere", "", "fr_CA de", ""},
        {"no locales", "fr.lproj", "", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        const QString dir = vantatest::scratchDir() + "/search-" + QString::number(quintptr(&row));
        for (const QString& folder : list(row.files))
            touch(dir + '/' + folder + "/pic.png");
        const QString found = BinRes::SearchLocaleDirsForResource(
            "png", "pic", dir, "lproj", list(row.locales));
        EXPECT_EQ(QDir::cleanPath(found),
                  *row.expected ? QDir::cleanPath(dir + '/' + row.expected + "/pic.png")
                                : QString());
    }
}

TEST(BinRes, RegionEmphasisUsesSavedLocaleAndLowerCase) {
    installShipped();
    vantatest::ScopedEnv language("LANGUAGE", "de");
    auto found = [](const char* locale, const char* type, const char* name) {
        std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings())
            ->setValue("locale", locale);
        return BinRes::GetResourcePathWithRegionEmphasis(type, name);
    };
    EXPECT_EQ(found("fr_CA", "PNG", "Welcome"), GetResourceFolder() + "/fr.lproj/welcome.png");
    EXPECT_EQ(found("de_AT", "png", "welcome"), GetResourceFolder() + "/de_AT.lproj/welcome.png");
    // The saved choice is the current edition's own: another edition has its own settings.
    VersionInfo::setAppType(VersionInfo::kAppStudio);
    EXPECT_EQ(found("fr_CA", "png", "welcome"), GetResourceFolder() + "/fr.lproj/welcome.png");
    VersionInfo::setAppType(VersionInfo::kAppStandard);
    // An unlocalized image is found whatever the locales.
    EXPECT_EQ(found("de_AT", "PNG", "DGLogo"), GetResourceFolder() + "/dglogo.png");
}

// A language nothing is translated to, or the untranslated "C", still finds the English
// resources that ship, through the development language at the end of every list.
TEST(BinRes, UntranslatedLanguagesFallBackToEnglish) {
    installShipped();
    std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings())->remove("locale");
    for (const char* lang : {"it_IT.UTF-8", "C", "POSIX"}) {
        vantatest::ScopedEnv setting("LANG", lang);
        EXPECT_EQ(BinRes::GetResourcePathWithRegionEmphasis("png", "welcome"),
                  GetResourceFolder() + "/en.lproj/welcome.png") << lang;
    }
}

TEST(BinRes, ResourceFolderDefaultsToBesideTheExecutable) {
    System::installPath.clear();
    EXPECT_EQ(GetResourceFolder(),
              QDir::cleanPath(QCoreApplication::applicationDirPath() + "/../share/vanta/Resources"));
}

TEST(BinRes, EveryShippedImageDecodes) {
    installShipped();
    for (int i = 0; i < resIDNameMapSize; ++i) {
        const int id = resIDNameMap[i].id;
        const QString name = QString::fromLatin1(resIDNameMap[i].name);
        SCOPED_TRACE(resIDNameMap[i].name);
        const QString path = MakeBinResourcePath(id, "PNG");
        EXPECT_EQ(path, GetResourceFolder() + '/' + name + ".png");
        EXPECT_EQ(BinRes::ExtractToDisk("png", id, "/ignored"), path);
        int size = -1;
        void* bytes = BinRes::ExtractBinResource("png", id, size);
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(size, QFile(path).size());
        EXPECT_EQ(std::memcmp(bytes, "\x89PNG", 4), 0);
        std::free(bytes);
        const QPixmap byId = BinRes::ExtractPixmap("png", id);
        EXPECT_FALSE(byId.isNull());
        EXPECT_EQ(byId.toImage(), BinRes::ExtractPixmap("png", name).toImage());
    }
    EXPECT_EQ(BinRes::retainedBufferCount(), 2 * resIDNameMapSize);
}

TEST(BinRes, MissingAndBrokenResources) {
    const QString root = vantatest::scratchDir() + "/broken";
    touch(root + "/share/vanta/Resources/corrupt.png", QByteArray("\x89PNG\r\n\x1a\nnot really"));
    touch(root + "/share/vanta/Resources/empty.png", QByteArray());
    QDir().mkpath(root + "/share/vanta/Resources/folder.png");
    QDir().mkpath(root + "/bin");
    System::setInstallPath(root + "/bin/");
    for (const int id : {0, 211}) {  // no such id; an id whose file is not here
        int size = -1;
        EXPECT_EQ(BinRes::ExtractBinResource("png", id, size), nullptr) << id;
        EXPECT_EQ(size, 0) << id;
    }
    EXPECT_TRUE(BinRes::ExtractToDisk("png", 0, QString()).isEmpty());
    for (const char* name : {"missing", "corrupt", "empty", "folder", ""})
        EXPECT_TRUE(BinRes::ExtractPixmap("png", QString::fromLatin1(name)).isNull()) << name;
    EXPECT_TRUE(BinRes::ExtractPixmap("png", 0).isNull());
    EXPECT_TRUE(BinRes::GetResourcePath("png", "folder").isEmpty());
    EXPECT_FALSE(BinRes::GetResourcePath("PNG", "corrupt").isEmpty());
}

// A console application has no GUI platform to decode onto: the bytes are read and kept, and the
// pixmap stays null instead of the process stopping.
TEST(BinRes, ConsoleApplicationGetsANullPixmap) {
    installShipped();
    QProcess child;
    child.start(QStringLiteral(VANTA_CHILD_PROCESS), {"pixmap", System::getInstallPath(), "clear"});
    ASSERT_TRUE(child.waitForFinished(10000));
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(child.readAllStandardOutput(), "null 1\n");
}
