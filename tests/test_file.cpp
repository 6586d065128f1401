// Tests of the install path, standard folders, descriptor wrappers, path clean-up and file helpers.
#include <vanta/file.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace vanta;

namespace {

// A fresh folder for one test, inside the runner's scratch folder.
QString freshDir(const QString& name) {
    const QString dir = vantatest::scratchDir() + QStringLiteral("/file/") + name;
    QDir(dir).removeRecursively();
    QDir().mkpath(dir);
    return dir;
}

void writeFile(const QString& path, const QByteArray& content) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly)) << path.toStdString();
    f.write(content);
}

QByteArray contentOf(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

}  // namespace

TEST(InstallPath, GetsExactlyOneTrailingSlash) {
    const struct {
        const char* given;
        const char* stored;
    } rows[] = {{"/Applications/X", "/Applications/X/"},
                {"/Applications/X/", "/Applications/X/"},
                {"", "/"},
                {"relative", "relative/"}};
    for (const auto& row : rows) {
        System::setInstallPath(QString::fromUtf8(row.given));
        EXPECT_EQ(System::getInstallPath(), QString::fromUtf8(row.stored)) << row.given;
    }
    System::setInstallPath(QString());
}

TEST(CleanupPathname, Examples) {
    const struct {
        const char* name;
        const char* in;
        const char* out;
    } rows[] = {
        {"backslashes", "C:\\a\\..\\b", "C:/b"},
        {"doubled and dot", "a//b/./c", "a/b/c"},
        {"absolute dotdot", "/x/y/../z/", "/x/z"},
        {"separator at zero is local", "://a//b", ":/a/b"},
        {"ftp untouched", "ftp://host/a/../b", "ftp://host/a/../b"},
        {"http path, query kept", "http://host/a/../b?x=../y", "http://host/b?x=../y"},
        {"scheme case ignored", "HTTP://host/a/./b", "HTTP://host/a/b"},
        {"https three into host", "https://abc/a/../b", "https://abc/b"},
        // The segment starts four characters into an http host, so "ww" of www stays.
        {"host start untouched", "http://www.x.com//a", "http://www.x.com/a"},
        {"clean url unchanged", "http://host/a/b?q=1", "http://host/a/b?q=1"},
        {"short url", "http://ab", "http://ab"},
        {"empty", "", ""},
    };
    for (const auto& row : rows) {
        QString path = QString::fromUtf8(row.in);
        file::cleanupPathname(path);
        EXPECT_EQ(path, QString::fromUtf8(row.out)) << row.name;
    }
}

TEST(StandardFolders, FollowTheXdgVariablesAndAreCreated) {
    const QString root = freshDir(QStringLiteral("xdg"));
    vantatest::ScopedEnv data("XDG_DATA_HOME", (root + "/data").toUtf8().constData());
    vantatest::ScopedEnv cache("XDG_CACHE_HOME", (root + "/cache").toUtf8().constData());
    QDir().mkpath(root + "/data");
    QDir().mkpath(root + "/cache");

    EXPECT_EQ(System::getAppDirectory(), root + "/data/Orvane Vanta");
    EXPECT_TRUE(QFileInfo(root + "/data/Orvane Vanta").isDir());
    EXPECT_EQ(System::getCacheDirectory(), root + "/cache/Orvane Vanta");
    EXPECT_TRUE(QFileInfo(root + "/cache/Orvane Vanta").isDir());

    // Creation is one level only and a failure is not reported: the path comes back anyway.
    vantatest::ScopedEnv missing("XDG_CACHE_HOME", (root + "/none/deeper").toUtf8().constData());
    EXPECT_EQ(System::getCacheDirectory(), root + "/none/deeper/Orvane Vanta");
    EXPECT_FALSE(QFileInfo::exists(root + "/none"));
}

TEST(StandardFolders, TempDirectoryEndsWithSlashAndHonoursTmpdir) {
    const QString root = freshDir(QStringLiteral("tmp"));
    vantatest::ScopedEnv tmp("TMPDIR", root.toUtf8().constData());
    EXPECT_EQ(System::getTempDirectory(), root + "/");
}

TEST(MakeTempFilePath, FreshNamesWithOptionalExtension) {
    const QString root = freshDir(QStringLiteral("tempname"));
    vantatest::ScopedEnv tmp("TMPDIR", root.toUtf8().constData());
    const QString xml = System::makeTempFilePath(QStringLiteral("xml"), QStringLiteral("pre"));
    EXPECT_TRUE(xml.startsWith(root + "/pre")) << xml.toStdString();
    EXPECT_TRUE(xml.endsWith(".xml"));
    EXPECT_FALSE(QFileInfo::exists(xml));

    const QString bare = System::makeTempFilePath(QString(), QStringLiteral("pre"));
    EXPECT_FALSE(QFileInfo(bare).fileName().contains('.')) << bare.toStdString();
    EXPECT_NE(bare, System::makeTempFilePath(QString(), QStringLiteral("pre")));
}

TEST(MakeAbsDirPath, CreatesTheChainFromTheRoot) {
    EXPECT_EQ(System::makeAbsDirPath(QString()), 0xC0000001u);

    const QString root = freshDir(QStringLiteral("mkdir"));
    EXPECT_EQ(System::makeAbsDirPath(root + "//a/./b/../c/d"), 0u);
    EXPECT_TRUE(QFileInfo(root + "/a/c/d").isDir());
    EXPECT_FALSE(QFileInfo::exists(root + "/a/b"));
    EXPECT_EQ(System::makeAbsDirPath(root + "/a/c/d"), 0u);  // all there already

    // A relative path counts from "/", never from the current directory.
    const QString cwd = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(root));
    const QString relative = root.mid(1) + "/rel/x";
    EXPECT_EQ(System::makeAbsDirPath(relative), 0u);
    EXPECT_TRUE(QFileInfo(root + "/rel/x").isDir());
    QDir::setCurrent(cwd);

    // A file in the way, or a folder that cannot be written, stops the chain.
    writeFile(root + "/plain", "x");
    EXPECT_EQ(System::makeAbsDirPath(root + "/plain/sub"), 0xC0000008u);
    if (geteuid() != 0) {  // root writes anywhere
        QDir().mkdir(root + "/locked");
        QFile::setPermissions(root + "/locked", QFile::ReadOwner | QFile::ExeOwner);
        EXPECT_EQ(System::makeAbsDirPath(root + "/locked/sub"), 0xC0000008u);
        QFile::setPermissions(root + "/locked", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
}

TEST(Descriptors, Utf8PathsRoundTrip) {
    const QString root = freshDir(QStringLiteral("fd"));
    const QString path = root + QStringLiteral("/d\u00e9j\u00e0 \u6587.bin");
    const int fd = System::open(path, O_CREAT | O_RDWR, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(System::write(fd, "hello world", 11), 11);
    EXPECT_EQ(System::getSize(fd), 11);
    EXPECT_EQ(System::lseek(fd, 6, SEEK_SET), 6);
    char buf[8] = {};
    EXPECT_EQ(System::read(fd, buf, 5), 5);
    EXPECT_STREQ(buf, "world");
    EXPECT_EQ(System::ftruncate(fd, 5), 0);
    EXPECT_EQ(System::getSize(fd), 5);
    EXPECT_EQ(System::close(fd), 0);
    // The file really has the UTF-8 name on disk.
    EXPECT_TRUE(QFileInfo::exists(path));
    EXPECT_EQ(System::access(path, R_OK), 0);

    const QString renamed = root + QStringLiteral("/\u00fc.bin");
    EXPECT_EQ(System::rename(path, renamed), 0);
    struct stat info;
    EXPECT_TRUE(file::wstat(renamed, &info));
    EXPECT_EQ(info.st_size, 5);
    EXPECT_EQ(System::unlink(renamed), 0);
    EXPECT_FALSE(file::wstat(renamed, &info));
}

TEST(Descriptors, FailuresGiveMinusOneAndErrno) {
    const QString root = freshDir(QStringLiteral("fdfail"));
    EXPECT_EQ(System::open(root + "/missing", O_RDONLY, 0), -1);
    EXPECT_EQ(System::getLastError(), ENOENT);
    EXPECT_EQ(System::getSize(-1), -1);
    EXPECT_EQ(System::close(-1), -1);
    EXPECT_EQ(System::getLastError(), EBADF);

    // A NUL inside a path must not silently open the shorter path before it.
    writeFile(root + "/a", "x");
    const QString withNul = root + "/a" + QChar(0) + "b";
    EXPECT_EQ(System::open(withNul, O_RDONLY, 0), -1);
    EXPECT_EQ(System::getLastError(), EINVAL);
    EXPECT_EQ(System::unlink(withNul), -1);
    EXPECT_TRUE(QFileInfo::exists(root + "/a"));
    struct stat info;
    EXPECT_FALSE(file::wstat(withNul, &info));
    EXPECT_FALSE(file::stat((root + "/missing").toUtf8().constData(), &info));

    System::DirectIoInfo direct{7, 9};
    EXPECT_FALSE(System::supportsDirectIo(root));
    EXPECT_FALSE(System::getDirectIoInfo(root, direct));
    EXPECT_EQ(direct.alignment, 7);
}

TEST(ReadFile, WholeFilesEmptyFilesAndFailures) {
    const QString root = freshDir(QStringLiteral("read"));
    QByteArray big(100000, '\0');
    for (int i = 0; i < big.size(); ++i)
        big[i] = char(i * 7);
    writeFile(root + "/big", big);
    int size = -5;
    void* data = file::readFile(root + "/big", size);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(size, big.size());
    EXPECT_EQ(QByteArray(static_cast<char*>(data), size), big);
    std::free(data);

    writeFile(root + "/empty", QByteArray());
    size = -5;
    data = file::readFile(root + "/empty", size);
    EXPECT_EQ(size, 0);
    std::free(data);

    for (const QString& bad : {root + "/missing", root, root + "/big" + QChar(0)}) {
        size = -5;
        EXPECT_EQ(file::readFile(bad, size), nullptr);
        EXPECT_EQ(size, 0);
    }
    EXPECT_TRUE(file::exists(root + "/big"));
    EXPECT_EQ(file::getSize(root + "/big"), 100000);
    EXPECT_FALSE(file::exists(root + "/missing"));
    EXPECT_EQ(file::getSize(root + "/missing"), 0);
}

TEST(CopyAndMove, ReplaceDestinationsAndCrossFolders) {
    const QString root = freshDir(QStringLiteral("copy"));
    QDir().mkpath(root + "/one");
    QDir().mkpath(root + "/two");
    writeFile(root + "/one/src", "new");
    writeFile(root + "/two/dst", "old and longer");

    EXPECT_TRUE(file::copy(root + "/one/src", root + "/two/dst"));
    EXPECT_EQ(contentOf(root + "/two/dst"), "new");
    EXPECT_EQ(contentOf(root + "/one/src"), "new");

    writeFile(root + "/one/src", "moved");
    EXPECT_TRUE(file::move(root + "/one/src", root + "/two/dst"));
    EXPECT_EQ(contentOf(root + "/two/dst"), "moved");
    EXPECT_FALSE(QFileInfo::exists(root + "/one/src"));

    // A missing source changes nothing.
    EXPECT_FALSE(file::copy(root + "/one/src", root + "/two/dst"));
    EXPECT_FALSE(file::move(root + "/one/src", root + "/two/dst"));
    EXPECT_EQ(contentOf(root + "/two/dst"), "moved");

    // Copying or moving onto itself, or a folder into itself, would destroy the source.
    EXPECT_FALSE(file::copy(root + "/two/dst", root + "/two/./dst"));
    EXPECT_FALSE(file::move(root + "/two", root + "/two/inner"));
    EXPECT_EQ(contentOf(root + "/two/dst"), "moved");
}

TEST(CopyAndMove, DirectoryTreesReplaceWhatIsThere) {
    const QString root = freshDir(QStringLiteral("trees"));
    QDir().mkpath(root + "/src/sub");
    writeFile(root + "/src/sub/f", "deep");
    writeFile(root + "/src/.hidden", "h");
    ASSERT_EQ(symlink("..", (root + "/src/sub/up").toUtf8().constData()), 0);
    writeFile(root + "/dst", "a file where the tree goes");

    ASSERT_TRUE(file::copy(root + "/src", root + "/dst"));
    EXPECT_EQ(contentOf(root + "/dst/sub/f"), "deep");
    EXPECT_EQ(contentOf(root + "/dst/.hidden"), "h");
    // The link to the parent is copied as a link, not followed for ever.
    EXPECT_TRUE(QFileInfo(root + "/dst/sub/up").isSymLink());

    ASSERT_TRUE(file::move(root + "/src", root + "/moved"));
    EXPECT_EQ(contentOf(root + "/moved/sub/f"), "deep");
    EXPECT_FALSE(QFileInfo::exists(root + "/src"));
}

TEST(GetCompatName, CreatesOnlyWhenAsked) {
    const QString root = freshDir(QStringLiteral("compat"));
    EXPECT_EQ(file::getCompatName(root + "/a", false), root + "/a");
    EXPECT_FALSE(QFileInfo::exists(root + "/a"));
    EXPECT_EQ(file::getCompatName(root + "/a", true), root + "/a");
    EXPECT_TRUE(QFileInfo::exists(root + "/a"));
    // An existing file keeps its content.
    writeFile(root + "/b", "keep");
    file::getCompatName(root + "/b", true);
    EXPECT_EQ(contentOf(root + "/b"), "keep");
}

TEST(ZipCallbacks, ModesSeeksAndTheTable) {
    const QString root = freshDir(QStringLiteral("zipfuncs"));
    const QByteArray path = (root + "/f").toUtf8();
    EXPECT_EQ(fopen_file_func(nullptr, path.constData(), 1), nullptr);  // read: missing
    EXPECT_EQ(fopen_file_func(nullptr, path.constData(), 2), nullptr);  // write with no how
    EXPECT_EQ(fopen_file_func(nullptr, nullptr, 1), nullptr);

    void* stream = fopen_file_func(nullptr, path.constData(), 2 | 8);  // create
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fwrite_file_func(nullptr, stream, "abcdef", 6), 6ul);
    EXPECT_EQ(ftell_file_func(nullptr, stream), 6);
    EXPECT_EQ(fseek_file_func(nullptr, stream, 2, 0), 0);
    EXPECT_EQ(ftell_file_func(nullptr, stream), 2);
    EXPECT_EQ(fseek_file_func(nullptr, stream, 1, 1), 0);
    EXPECT_EQ(ftell_file_func(nullptr, stream), 3);
    EXPECT_EQ(fseek_file_func(nullptr, stream, 0, 2), 0);
    EXPECT_EQ(ftell_file_func(nullptr, stream), 6);
    EXPECT_EQ(fseek_file_func(nullptr, stream, 0, 3), -1);
    EXPECT_EQ(ftell_file_func(nullptr, stream), 6);  // no seek happened
    EXPECT_EQ(ferror_file_func(nullptr, stream), 0);
    EXPECT_EQ(fclose_file_func(nullptr, stream), 0);

    stream = fopen_file_func(nullptr, path.constData(), 3 | 4);  // existing, read-write
    ASSERT_NE(stream, nullptr);
    char buf[4] = {};
    EXPECT_EQ(fread_file_func(nullptr, stream, buf, 3), 3ul);
    EXPECT_STREQ(buf, "abc");
    fclose_file_func(nullptr, stream);

    populateFilefuncDef_UTF8(nullptr);  // ignored, no crash
}
