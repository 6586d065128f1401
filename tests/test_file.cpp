// Tests of the install path, standard folders, descriptor wrappers, path clean-up and file helpers.
#include <vanta/file.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <cerrno>
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

TEST(Paths, InstallPathGetsExactlyOneTrailingSlash) {
    const char* rows[][2] = {
        {"/Applications/X", "/Applications/X/"}, {"/Applications/X/", "/Applications/X/"},
        {"", "/"}};
    for (const auto& row : rows) {
        System::setInstallPath(QString::fromUtf8(row[0]));
        EXPECT_EQ(System::getInstallPath(), QString::fromUtf8(row[1])) << row[0];
    }
    System::setInstallPath(QString());
}

TEST(Paths, CleanupLocalPathsAndHttpAddresses) {
    const char* rows[][2] = {
        {"C:\\a\\..\\b", "C:/b"},
        {"a//b/./c", "a/b/c"},
        {"://a//b", ":/a/b"},  // "://" at position 0 is a local path
        {"a://b//c", "a://b//c"},  // from position 1 on it is a scheme (not http: left alone)
        {"ftp://host/a/../b", "ftp://host/a/../b"},
        {"http://host/a/../b?x=../y", "http://host/b?x=../y"},  // the query is never cleaned
        {"HTTPS://abc/a/./b", "HTTPS://abc/a/b"},
        {"http://www.x.com//a", "http://www.x.com/a"},  // cleaning starts four into the host
        {"http://ab", "http://ab"},
        {"", ""},
    };
    for (const auto& row : rows) {
        QString path = QString::fromUtf8(row[0]);
        file::cleanupPathname(path);
        EXPECT_EQ(path, QString::fromUtf8(row[1])) << row[0];
    }
}

TEST(StandardFolders, FollowTheEnvironment) {
    const QString root = freshDir(QStringLiteral("xdg"));
    vantatest::ScopedEnv data("XDG_DATA_HOME", (root + "/data").toUtf8().constData());
    vantatest::ScopedEnv tmp("TMPDIR", root.toUtf8().constData());
    // A fresh account has neither folder: the whole chain is created.
    vantatest::ScopedEnv cache("XDG_CACHE_HOME", (root + "/none/deeper").toUtf8().constData());
    EXPECT_EQ(System::getAppDirectory(), root + "/data/Orvane Vanta");
    EXPECT_TRUE(QFileInfo(root + "/data/Orvane Vanta").isDir());
    EXPECT_EQ(System::getTempDirectory(), root + "/");
    EXPECT_EQ(System::getCacheDirectory(), root + "/none/deeper/Orvane Vanta");
    EXPECT_TRUE(QFileInfo(root + "/none/deeper/Orvane Vanta").isDir());
    const QString xml = System::makeTempFilePath("xml", "pre");
    EXPECT_TRUE(xml.startsWith(root + "/pre") && xml.endsWith(".xml") && !QFileInfo::exists(xml))
        << xml.toStdString();
    EXPECT_FALSE(QFileInfo(System::makeTempFilePath(QString(), "pre")).fileName().contains('.'));
}

TEST(StandardFolders, UnusableTmpdirFallsBackToTmp) {
    const QString root = freshDir(QStringLiteral("tmpdir"));
    writeFile(root + "/plain", "x");
    const QString rows[][2] = {  // TMPDIR, temporary folder
        {root + "//", root + "/"},
        {root + "/missing", "/tmp/"},
        {root + "/plain", "/tmp/"},
        {"relative/dir", "/tmp/"},
        {".", "/tmp/"},
        {"/", "/tmp/"},
        {"", "/tmp/"},
    };
    for (const auto& row : rows) {
        vantatest::ScopedEnv tmp("TMPDIR", row[0].toUtf8().constData());
        EXPECT_EQ(System::getTempDirectory(), row[1]) << row[0].toStdString();
        EXPECT_EQ(QFileInfo(System::makeTempFilePath("xml", "pre")).path() + '/', row[1]);
    }
}

TEST(MakeAbsDirPath, CreatesTheChainFromTheRoot) {
    EXPECT_EQ(System::makeAbsDirPath(QString()), 0xC0000001u);
    const QString root = freshDir(QStringLiteral("mkdir"));
    EXPECT_EQ(System::makeAbsDirPath(root + "//a/./b/../c/d"), 0u);
    EXPECT_TRUE(QFileInfo(root + "/a/c/d").isDir() && !QFileInfo::exists(root + "/a/b"));

    // A relative path counts from "/", never from the current directory.
    const QString cwd = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(root));
    EXPECT_EQ(System::makeAbsDirPath(root.mid(1) + "/rel/x"), 0u);
    QDir::setCurrent(cwd);
    EXPECT_TRUE(QFileInfo(root + "/rel/x").isDir());

    writeFile(root + "/plain", "x");
    EXPECT_EQ(System::makeAbsDirPath(root + "/plain/sub"), 0xC0000008u);
}

TEST(Descriptors, Utf8PathsAndFailures) {
    const QString root = freshDir(QStringLiteral("fd"));
    const QString path = root + QStringLiteral("/d\u00e9j\u00e0 \u6587.bin");
    const int fd = System::open(path, O_CREAT | O_RDWR, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(System::write(fd, "hello", 5), 5);
    EXPECT_EQ(System::getSize(fd), 5);
    EXPECT_EQ(System::close(fd), 0);
    const QString renamed = root + QStringLiteral("/\u00fc.bin");
    EXPECT_EQ(System::rename(path, renamed), 0);
    struct stat info;
    ASSERT_TRUE(file::wstat(renamed, &info));
    EXPECT_EQ(info.st_size, 5);
    EXPECT_TRUE(file::stat(QFile::encodeName(renamed).constData(), &info));
    EXPECT_FALSE(file::stat(QFile::encodeName(root + "/missing").constData(), &info));
    EXPECT_FALSE(System::supportsDirectIo(renamed));
    EXPECT_EQ(System::unlink(renamed), 0);
    EXPECT_EQ(System::access(renamed, F_OK), -1);
    EXPECT_EQ(System::getLastError(), ENOENT);
    EXPECT_EQ(System::getSize(-1), -1);

    // A NUL inside a path must not silently reach the shorter path before it.
    writeFile(root + "/a", "x");
    const QString withNul = root + "/a" + QChar(0) + "b";
    EXPECT_EQ(System::open(withNul, O_RDONLY, 0), -1);
    EXPECT_EQ(System::getLastError(), EINVAL);
    EXPECT_EQ(System::unlink(withNul), -1);
    EXPECT_FALSE(file::wstat(withNul, &info));
    EXPECT_TRUE(QFileInfo::exists(root + "/a"));
}

TEST(ReadFile, WholeFilesEmptyFilesAndFailures) {
    const QString root = freshDir(QStringLiteral("read"));
    QByteArray big(100000, '\0');
    for (int i = 0; i < big.size(); ++i)
        big[i] = char(i * 7);
    writeFile(root + "/big", big);
    writeFile(root + "/empty", QByteArray());
    writeFile(root + "/one", "x");
    for (const QByteArray& content : {big, QByteArray(), QByteArray("x")}) {
        int size = -5;
        const char* name = content.isEmpty() ? "/empty" : content.size() == 1 ? "/one" : "/big";
        void* data = file::readFile(root + name, size);
        ASSERT_TRUE(data || content.isEmpty());
        EXPECT_EQ(QByteArray(static_cast<char*>(data), size), content);
        std::free(data);
    }

    for (const QString& bad : {root + "/missing", root, root + "/big" + QChar(0)}) {
        int size = -5;
        EXPECT_EQ(file::readFile(bad, size), nullptr);
        EXPECT_EQ(size, 0);
    }

    // A program started with stdin closed gets descriptor 0 for its first open: a valid file.
    const int savedStdin = ::dup(0);
    ASSERT_GE(savedStdin, 0);
    ::close(0);
    int size = -5;
    void* data = file::readFile(root + "/one", size);
    ::dup2(savedStdin, 0);
    ::close(savedStdin);
    EXPECT_EQ(QByteArray(static_cast<char*>(data), size), "x");
    std::free(data);
}

// A kernel attribute file reports a page as its size but holds a few bytes: the tail past what
// could be read comes back zeroed, never as stale heap bytes.
TEST(ReadFile, FileShorterThanItsReportedSize) {
    const QString path = QStringLiteral("/sys/devices/system/cpu/online");
    QFile probe(path);
    if (!probe.open(QIODevice::ReadOnly) || probe.size() <= 0)
        GTEST_SKIP() << "no sized kernel attribute file here";
    const QByteArray text = probe.readAll();
    int size = -5;
    char* data = static_cast<char*>(file::readFile(path, size));
    ASSERT_NE(data, nullptr);
    ASSERT_GT(size, text.size());
    EXPECT_EQ(QByteArray(data, text.size()), text);
    EXPECT_EQ(QByteArray(data + text.size(), size - text.size()),
              QByteArray(size - text.size(), '\0'));
    std::free(data);
}

TEST(CopyAndMove, ReplaceDestinationsAcrossFolders) {
    const QString root = freshDir(QStringLiteral("copy"));
    const QString src = root + "/one/src", dst = root + "/two/dst";
    QDir().mkpath(root + "/one");
    QDir().mkpath(root + "/two");
    writeFile(src, "new");
    writeFile(dst, "old and longer");
    EXPECT_TRUE(file::copy(src, dst));
    EXPECT_EQ(contentOf(src) + contentOf(dst), "newnew");
    writeFile(src, "moved");
    EXPECT_TRUE(file::move(src, dst));
    EXPECT_EQ(contentOf(dst), "moved");
    EXPECT_FALSE(QFileInfo::exists(src));

    // A missing source, the source itself or a folder into itself: refused, nothing lost.
    EXPECT_FALSE(file::copy(src, dst));
    EXPECT_FALSE(file::move(src, dst));
    EXPECT_FALSE(file::copy(dst, root + "/two/./dst"));
    EXPECT_FALSE(file::move(root + "/two", root + "/two/inner"));
    EXPECT_EQ(contentOf(dst), "moved");
}

TEST(CopyAndMove, MovesAcrossFileSystems) {
    // rename() cannot cross file systems; the move copies, then removes the source.
    const QString root = freshDir(QStringLiteral("xfs"));
    const QString other = QStringLiteral("/dev/shm/vanta-move-%1").arg(getpid());
    struct stat here, there;
    if (::stat(QFile::encodeName(root).constData(), &here) != 0 ||
        ::stat("/dev/shm", &there) != 0 || here.st_dev == there.st_dev)
        GTEST_SKIP() << "no second file system at /dev/shm";
    writeFile(root + "/f", "across");
    EXPECT_TRUE(file::move(root + "/f", other));
    EXPECT_EQ(contentOf(other), "across");
    EXPECT_FALSE(QFileInfo::exists(root + "/f"));
    QFile::remove(other);
}

TEST(CopyAndMove, DirectoryTrees) {
    const QString root = freshDir(QStringLiteral("trees"));
    QDir().mkpath(root + "/src/sub");
    writeFile(root + "/src/sub/f", "deep");
    writeFile(root + "/src/.hidden", "h");
    ASSERT_EQ(symlink("..", (root + "/src/sub/up").toUtf8().constData()), 0);
    writeFile(root + "/dst", "a file where the tree goes");

    ASSERT_TRUE(file::copy(root + "/src", root + "/dst"));
    EXPECT_EQ(contentOf(root + "/dst/sub/f") + contentOf(root + "/dst/.hidden"), "deeph");
    EXPECT_TRUE(QFileInfo(root + "/dst/sub/up").isSymLink());  // copied, not followed for ever

    ASSERT_TRUE(file::move(root + "/src", root + "/moved"));
    EXPECT_EQ(contentOf(root + "/moved/sub/f"), "deep");
    EXPECT_FALSE(QFileInfo::exists(root + "/src"));
}

TEST(ZipCallbacks, OpenModesAndSeekOrigins) {
    const QByteArray path = (freshDir(QStringLiteral("zipfuncs")) + "/f").toUtf8();
    // Read a missing file, write without saying how, no path: all refused.
    const std::pair<const char*, int> refused[] = {
        {path.constData(), 1}, {path.constData(), 2}, {nullptr, 8}};
    for (const auto& [name, mode] : refused)
        EXPECT_EQ(fopen_file_func(nullptr, name, mode), nullptr) << mode;
    void* stream = fopen_file_func(nullptr, path.constData(), 2 | 8);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fwrite_file_func(nullptr, stream, "abcdef", 6), 6ul);
    const struct {
        unsigned long offset;
        int origin;
        long result, position;
    } seeks[] = {{2, 0, 0, 2}, {1, 1, 0, 3}, {0, 2, 0, 6}, {0, 3, -1, 6}};
    for (const auto& seek : seeks) {
        EXPECT_EQ(fseek_file_func(nullptr, stream, seek.offset, seek.origin), seek.result);
        EXPECT_EQ(ftell_file_func(nullptr, stream), seek.position) << seek.origin;
    }
    EXPECT_EQ(fclose_file_func(nullptr, stream), 0);
    stream = fopen_file_func(nullptr, path.constData(), 3 | 4);  // existing, read-write
    ASSERT_NE(stream, nullptr);
    char buf[4] = {};
    EXPECT_EQ(fread_file_func(nullptr, stream, buf, 3), 3ul);
    EXPECT_STREQ(buf, "abc");
    fclose_file_func(nullptr, stream);
}
