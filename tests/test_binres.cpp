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

// The repository's resources folder, with the images and localized welcome banners we ship.
QString sourceResources() {
    return QDir::cleanPath(QStringLiteral(VANTA_TEST_DATA "/../../resources"));
}

// Makes root/bin/ the install path with root/Resources as a link to `resources`.
void installAt(const QString& root, const QString& resources) {
    QDir().mkpath(root + QStringLiteral("/bin"));
    QFile::remove(root + QStringLiteral("/Resources"));
    ASSERT_TRUE(QFile::link(resources, root + QStringLiteral("/Resources")));
    System::setInstallPath(root + QStringLiteral("/bin"));
}

void touch(const QString& path, const QByteArray& bytes = QByteArray("x")) {
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(bytes);
}

void saveLocaleChoice(const QString& locale) {
    std::unique_ptr<QSettings> s(VersionInfo::createUserAppSettings());
    s->setValue(QStringLiteral("locale"), locale);
}

QStringList list(const char* spaced) {
    return QString::fromLatin1(spaced).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

}  // namespace

TEST(BinRes, IdTable) {
    ASSERT_EQ(resIDNameMapSize, 43);
    EXPECT_STREQ(FindResName(211), "dglogo");
    EXPECT_STREQ(FindResName(252), "cursor_hand_open");
    EXPECT_STREQ(FindResName(521), "cursor_hand_open");
    EXPECT_STREQ(FindResName(550), "clear");
    EXPECT_EQ(FindResName(0), nullptr);
    EXPECT_EQ(FindResName(-1), nullptr);
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
        const char* files;    // folders (relative to dir) holding pic.png; "." is dir itself
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
        const QString dir = vantatest::scratchDir() + QStringLiteral("/search-") +
                            QString::number(quintptr(&row));
        for (const QString& folder : list(row.files))
            touch(dir + QLatin1Char('/') + folder + QStringLiteral("/pic.png"));
        const QString found = BinRes::SearchLocaleDirsForResource(
            QStringLiteral("png"), QStringLiteral("pic"), dir, QStringLiteral("lproj"),
            list(row.locales));
        const QString expected = *row.expected ? dir + QLatin1Char('/') +
                                                     QLatin1String(row.expected) +
                                                     QStringLiteral("/pic.png")
                                               : QString();
        EXPECT_EQ(QDir::cleanPath(found), QDir::cleanPath(expected));
    }
}

TEST(BinRes, RegionEmphasisUsesSavedLocaleAndLowerCase) {
    installAt(vantatest::scratchDir() + QStringLiteral("/prefix"), sourceResources());
    vantatest::ScopedEnv language("LANGUAGE", "de");
    saveLocaleChoice(QStringLiteral("fr_CA"));
    EXPECT_EQ(BinRes::GetResourcePathWithRegionEmphasis(QStringLiteral("PNG"),
                                                        QStringLiteral("Welcome")),
              GetResourceFolder() + QStringLiteral("/fr.lproj/welcome.png"));
    saveLocaleChoice(QStringLiteral("de_AT"));
    EXPECT_TRUE(BinRes::GetResourcePathWithRegionEmphasis(QStringLiteral("png"),
                                                          QStringLiteral("welcome"))
                    .endsWith(QStringLiteral("/Resources/de_AT.lproj/welcome.png")));
    // The saved choice is the current edition's own: another edition has its own settings.
    VersionInfo::setAppType(VersionInfo::kAppStudio);
    saveLocaleChoice(QStringLiteral("fr_CA"));
    EXPECT_TRUE(BinRes::GetResourcePathWithRegionEmphasis(QStringLiteral("png"),
                                                          QStringLiteral("welcome"))
                    .endsWith(QStringLiteral("/fr.lproj/welcome.png")));
    VersionInfo::setAppType(VersionInfo::kAppStandard);
    // An unlocalized image is found whatever the locales.
    EXPECT_EQ(BinRes::GetResourcePathWithRegionEmphasis(QStringLiteral("PNG"),
                                                        QStringLiteral("DGLogo")),
              GetResourceFolder() + QStringLiteral("/dglogo.png"));
}

TEST(BinRes, ResourceFolderDefaultsToBesideTheExecutable) {
    // No install path set: the folder is ../Resources from this test program's folder.
    System::installPath.clear();
    EXPECT_EQ(GetResourceFolder(),
              QDir::cleanPath(QCoreApplication::applicationDirPath() + QStringLiteral("/../Resources")));
}

TEST(BinRes, EveryShippedImageDecodes) {
    installAt(vantatest::scratchDir() + QStringLiteral("/prefix"), sourceResources());
    for (int i = 0; i < resIDNameMapSize; ++i) {
        const int id = resIDNameMap[i].id;
        SCOPED_TRACE(resIDNameMap[i].name);
        const QString path = MakeBinResourcePath(id, QStringLiteral("PNG"));
        EXPECT_EQ(path, GetResourceFolder() + QLatin1Char('/') +
                            QLatin1String(resIDNameMap[i].name) + QStringLiteral(".png"));
        EXPECT_EQ(BinRes::ExtractToDisk(QStringLiteral("png"), id, QStringLiteral("/ignored")), path);

        int size = -1;
        void* bytes = BinRes::ExtractBinResource(QStringLiteral("png"), id, size);
        ASSERT_NE(bytes, nullptr);
        EXPECT_EQ(size, QFile(path).size());
        EXPECT_EQ(std::memcmp(bytes, "\x89PNG", 4), 0);
        std::free(bytes);

        const QPixmap byId = BinRes::ExtractPixmap(QStringLiteral("png"), id);
        const QPixmap byName =
            BinRes::ExtractPixmap(QStringLiteral("png"), QString::fromLatin1(resIDNameMap[i].name));
        EXPECT_FALSE(byId.isNull());
        EXPECT_EQ(byId.toImage(), byName.toImage());
    }
    EXPECT_EQ(BinRes::retainedBufferCount(), 2 * resIDNameMapSize);
}

TEST(BinRes, MissingAndBrokenResources) {
    const QString root = vantatest::scratchDir() + QStringLiteral("/broken");
    touch(root + QStringLiteral("/Resources/corrupt.png"), QByteArray("\x89PNG\r\n\x1a\nnot really"));
    touch(root + QStringLiteral("/Resources/empty.png"), QByteArray());
    QDir().mkpath(root + QStringLiteral("/Resources/folder.png"));
    QDir().mkpath(root + QStringLiteral("/bin"));
    System::setInstallPath(root + QStringLiteral("/bin/"));

    int size = -1;
    EXPECT_EQ(BinRes::ExtractBinResource(QStringLiteral("png"), 0, size), nullptr);
    EXPECT_EQ(size, 0);
    size = -1;
    EXPECT_EQ(BinRes::ExtractBinResource(QStringLiteral("png"), 211, size), nullptr);  // not here
    EXPECT_EQ(size, 0);
    EXPECT_TRUE(BinRes::ExtractToDisk(QStringLiteral("png"), 0, QString()).isEmpty());

    for (const char* name : {"missing", "corrupt", "empty", "folder", ""}) {
        EXPECT_TRUE(BinRes::ExtractPixmap(QStringLiteral("png"), QString::fromLatin1(name)).isNull())
            << name;
    }
    EXPECT_TRUE(BinRes::ExtractPixmap(QStringLiteral("png"), 0).isNull());
    EXPECT_TRUE(BinRes::GetResourcePath(QStringLiteral("png"), QStringLiteral("folder")).isEmpty());
    EXPECT_FALSE(BinRes::GetResourcePath(QStringLiteral("PNG"), QStringLiteral("corrupt")).isEmpty());
}
