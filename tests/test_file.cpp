// Tests of the install path, standard folders, descriptor wrappers, path clean-up and file helpers.
#include <vanta/file.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <grp.h>
#include <map>
#include <sched.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <sys/wait.h>
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
    EXPECT_EQ(QFileInfo(xml).fileName().size(), 3 + 8 + 4);  // "pre", eight letters, ".xml"
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
    EXPECT_FALSE(file::copy(dst, root + "/two"));  // the folder that holds the source
    EXPECT_FALSE(file::move(dst, root));
    // A file named as a folder cannot be moved, and the destination set aside comes back.
    writeFile(src, "file");
    EXPECT_FALSE(file::move(src + "/", dst));
    EXPECT_EQ(contentOf(src) + contentOf(dst), "filemoved");
    QDir().mkpath(root + "/folder/inner");
    EXPECT_FALSE(file::move(src, root + "/folder/"));
    EXPECT_TRUE(QFileInfo(root + "/folder/inner").isDir());
    EXPECT_EQ(contentOf(src), "file");
    EXPECT_EQ(contentOf(dst), "moved");
}

namespace {

// Runs body in a child process and returns its result: -1 when it had not finished within
// `seconds` (a copy that opened a named pipe would wait there for ever) or ended by a signal.
// With unprivileged, a child of root first becomes the user nobody, so permissions bite.
int inChild(const std::function<int()>& body, bool unprivileged = false, int seconds = 10) {
    const pid_t child = fork();
    if (child == 0) {
        if (unprivileged && geteuid() == 0 &&
            (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0))
            _exit(98);
        _exit(body());
    }
    int status = 0;
    for (int waited = 0; waited < seconds * 100; ++waited) {
        if (waitpid(child, &status, WNOHANG) == child)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        usleep(10000);
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    return -1;
}

// A fresh folder that the user nobody may enter and write in, under base; removed by the test.
QString openFolder(const QString& base) {
    QByteArray path = QFile::encodeName(base) + "/vanta-test-file-XXXXXX";
    if (!mkdtemp(path.data()))
        return QString();
    chmod(path.constData(), 0777);
    return QFile::decodeName(path);
}

// A fresh folder on a file system other than the scratch folder's, or empty with the reason.
QString secondFileSystem(QString& reason) {
    struct stat here, there;
    if (stat(QFile::encodeName(vantatest::scratchDir()).constData(), &here) != 0) {
        reason = "cannot stat the scratch folder";
        return QString();
    }
    for (const char* candidate : {"/dev/shm", "/run/shm"}) {
        const QString dir = openFolder(QString::fromLatin1(candidate));
        if (dir.isEmpty())
            continue;
        if (stat(QFile::encodeName(dir).constData(), &there) == 0 && there.st_dev != here.st_dev)
            return dir;
        QDir(dir).removeRecursively();
    }
    reason = "no writable second file system (tried /dev/shm and /run/shm)";
    return QString();
}

// Every entry under root (root itself as "."), each with what cp -a keeps: type, permission
// bits, owner, modification time, and the content, link target or device number. With
// rootTime false the root's own time is left out (trying an operation in a folder touches it).
using Snapshot = std::map<std::string, std::string>;
Snapshot snapshot(const QByteArray& root, bool rootTime = true, const QByteArray& rel = ".") {
    Snapshot entries;
    const QByteArray path = rel == "." ? root : root + '/' + rel;
    struct stat st;
    if (lstat(path.constData(), &st) != 0)
        return entries;
    QByteArray what = QByteArray::number(st.st_mode, 8) + ' ' + QByteArray::number(st.st_uid) +
                      ':' + QByteArray::number(st.st_gid) + ' ';
    if (rootTime || rel != ".")
        what += 't' + QByteArray::number(qlonglong(st.st_mtim.tv_sec)) + '.' +
                QByteArray::number(qlonglong(st.st_mtim.tv_nsec)) + ' ';
    if (S_ISLNK(st.st_mode)) {
        char target[4096];
        const ssize_t n = readlink(path.constData(), target, sizeof target);
        what += "-> " + QByteArray(target, n > 0 ? int(n) : 0);
    } else if (S_ISREG(st.st_mode)) {
        QFile f(QFile::decodeName(path));
        what += f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
    } else if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) {
        what += "dev " + QByteArray::number(qulonglong(st.st_rdev));
    }
    entries[rel.toStdString()] = what.toStdString();
    if (S_ISDIR(st.st_mode)) {
        QDir dir(QFile::decodeName(path));
        for (const QString& name : dir.entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                                                 QDir::NoDotAndDotDot)) {
            const QByteArray child = rel == "." ? QFile::encodeName(name)
                                                : rel + '/' + QFile::encodeName(name);
            entries.merge(snapshot(root, true, child));
        }
    }
    return entries;
}

void setTimes(const QByteArray& path, long seconds, long nanoseconds) {
    const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
    utimensat(AT_FDCWD, path.constData(), times, AT_SYMLINK_NOFOLLOW);
}

// A tree of every kind of entry: a file, a hard link to it, a read-only folder, a private
// root folder, a named pipe, a socket, links (relative, to a folder, dangling) and, for root,
// a character device, a hidden file. Every entry has a modification time of its own, to the nanosecond.
void makeTree(const QByteArray& root) {
    mkdir(root.constData(), 0755);
    mkdir(root + "/sub", 0755);
    writeFile(QFile::decodeName(root + "/file"), "content");
    writeFile(QFile::decodeName(root + "/sub/deep"), "deep");
    chmod(root + "/file", 0640);
    link(root + "/file", root + "/hard");
    mkfifo(root + "/fifo", 0620);
    const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, root + "/sock", sizeof address.sun_path);
    bind(sock, reinterpret_cast<sockaddr*>(&address), sizeof address);
    close(sock);
    symlink("file", root + "/link");
    symlink("sub", root + "/dirlink");
    symlink("nowhere", root + "/dangling");
    symlink("..", root + "/sub/up");  // copied as a link, so the copy never recurses
    symlink(".", root + "/sub/self");  // a target of one character
    writeFile(QFile::decodeName(root + "/.hidden"), "h");
    if (geteuid() == 0)
        mknod(root + "/null", S_IFCHR | 0666, makedev(1, 3));
    long t = 981173106;  // 2001-02-03
    for (const char* name : {"/file", "/sub/deep", "/fifo", "/sock", "/link", "/dirlink",
                             "/dangling", "/null", "/sub"})
        setTimes(root + name, t += 1000, 123456789);
    chmod(root + "/sub", 0555);
    chmod(root.constData(), 0700);
    setTimes(root, 1000000000, 5);
}

// The parent folder's entries: a failed copy or move must leave no prepared copy behind.
QStringList listing(const QString& dir) {
    return QDir(dir).entryList(QDir::AllEntries | QDir::Hidden | QDir::System |
                               QDir::NoDotAndDotDot);
}

}  // namespace

// Named pipes, sockets and devices are made anew (a pipe is never opened, which would wait
// for a writer for ever); links stay links; modes, owners and times are kept, folders' too.
TEST(CopyAndMove, CopiesEveryKindOfEntryAsCpArchiveDoes) {
    const QByteArray root = QFile::encodeName(freshDir(QStringLiteral("kinds")));
    makeTree(root + "/src");
    const auto before = snapshot(root + "/src");
    ASSERT_GE(before.size(), 10u);
    writeFile(QFile::decodeName(root + "/dst"), "replaced");
    EXPECT_EQ(inChild([&] {
        return file::copy(QFile::decodeName(root + "/src"), QFile::decodeName(root + "/dst"))
                   ? 0 : 1;
    }), 0);
    EXPECT_EQ(snapshot(root + "/dst"), before);
    EXPECT_EQ(snapshot(root + "/src"), before);
    struct stat a, b;
    ASSERT_EQ(lstat(root + "/dst/file", &a) + lstat(root + "/dst/hard", &b), 0);
    EXPECT_EQ(a.st_ino, b.st_ino);  // a hard link inside the tree stays one

    // A hole stays a hole: 8 MiB of nothing and a tail take a few blocks, not 8 MiB.
    const QByteArray sparse = root + "/sparse";
    writeFile(QFile::decodeName(sparse), QByteArray());
    ASSERT_EQ(truncate(sparse.constData(), 8 << 20), 0);
    QFile tail(QFile::decodeName(sparse));
    ASSERT_TRUE(tail.open(QIODevice::Append));
    tail.write("tail");
    tail.close();
    ASSERT_TRUE(file::copy(QFile::decodeName(sparse), QFile::decodeName(root + "/sparse2")));
    EXPECT_EQ(snapshot(root + "/sparse2"), snapshot(sparse));
    ASSERT_EQ(lstat(root + "/sparse2", &b), 0);
    EXPECT_LT(b.st_blocks * 512, 1 << 20);
    unlink(sparse.constData());
    unlink(root + "/sparse2");

    // Single entries, the pipe and the links included, are copied as what they are.
    for (const char* name : {"/fifo", "/sock", "/link", "/dirlink", "/dangling", "/file"}) {
        const QByteArray to = root + "/one";
        EXPECT_EQ(inChild([&] {
            return file::copy(QFile::decodeName(root + "/src" + name), QFile::decodeName(to))
                       ? 0 : 1;
        }), QByteArray(name) == "/dangling" ? 1 : 0) << name;  // a link to nothing: no source
        if (QByteArray(name) != "/dangling") {
            EXPECT_EQ(snapshot(to)["."], snapshot(root + "/src" + name)["."]) << name;
        }
        unlink(to.constData());
    }
    EXPECT_EQ(listing(QFile::decodeName(root)), QStringList({"dst", "src"}));
}

TEST(CopyAndMove, MovesAcrossFileSystemsKeepLinksModesAndTimes) {
    QString reason;
    const QString other = secondFileSystem(reason);
    if (other.isEmpty())
        GTEST_SKIP() << reason.toStdString();
    const QByteArray here = QFile::encodeName(freshDir(QStringLiteral("xfs")));
    const QByteArray there = QFile::encodeName(other);
    makeTree(here + "/tree");
    const auto tree = snapshot(here + "/tree");
    writeFile(QFile::decodeName(here + "/target"), "text");
    symlink("target", here + "/link");
    symlink("tree", here + "/treelink");
    setTimes(here + "/target", 1234567890, 42);
    const auto target = snapshot(here + "/target"), link = snapshot(here + "/link"),
               treeLink = snapshot(here + "/treelink");

    // A link moves as a link (to a file or to a folder), never as a copy of what it names.
    for (const char* name : {"/link", "/treelink", "/target"}) {
        EXPECT_EQ(inChild([&] {
            return file::move(QFile::decodeName(here + name), QFile::decodeName(there + name))
                       ? 0 : 1;
        }), 0) << name;
    }
    EXPECT_EQ(snapshot(there + "/link"), link);
    EXPECT_EQ(snapshot(there + "/treelink"), treeLink);
    EXPECT_EQ(snapshot(there + "/target"), target);
    EXPECT_EQ(inChild([&] {
        return file::move(QFile::decodeName(here + "/tree"), QFile::decodeName(there + "/tree"))
                   ? 0 : 1;
    }), 0);
    EXPECT_EQ(snapshot(there + "/tree"), tree);
    EXPECT_TRUE(listing(QFile::decodeName(here)).isEmpty()) << listing(QFile::decodeName(here))
                                                                   .join(' ').toStdString();
    QDir(other).removeRecursively();
}

// A user replacing a tree of their own that holds a read-only folder: the old tree goes
// entirely, leaving nothing beside the destination.
TEST(CopyAndMove, ReplacesTreesWithReadOnlyFoldersAsTheirOwner) {
    const QString here = openFolder(QStringLiteral("/tmp"));
    ASSERT_FALSE(here.isEmpty());
    const QByteArray h = QFile::encodeName(here);
    EXPECT_EQ(inChild([&] {
        mkdir(h + "/src", 0755);
        mkdir(h + "/dst", 0755);
        mkdir(h + "/dst/ro", 0755);
        const int fd = open(h + "/dst/ro/f", O_CREAT | O_WRONLY, 0644);
        close(fd);
        chmod(h + "/dst/ro", 0555);
        return file::copy(here + "/src", here + "/dst") ? 0 : 1;
    }, true), 0);
    EXPECT_EQ(listing(here), QStringList({"dst", "src"}));
    EXPECT_TRUE(listing(here + "/dst").isEmpty());
    QDir(here).removeRecursively();
}

// A full disk: the copy fails and leaves nothing on it; the move leaves its source. The full
// file system is a 64 KiB tmpfs mounted in a private mount namespace of a child.
TEST(CopyAndMove, FullDiskLeavesNothingBehind) {
    const QString root = freshDir(QStringLiteral("full"));
    const QByteArray small = QFile::encodeName(root + "/small");
    mkdir(small.constData(), 0755);
    writeFile(root + "/big", QByteArray(1 << 20, 'x'));
    const int result = inChild([&] {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", small.constData(), "tmpfs", 0, "size=64k") != 0)
            return 77;
        const bool copied = file::copy(root + "/big", root + "/small/big");
        const bool moved = file::move(root + "/big", root + "/small/big");
        return !copied && !moved && listing(root + "/small").isEmpty() ? 0 : 1;
    });
    if (result == 77)
        GTEST_SKIP() << "cannot mount a small file system here (no mount namespace)";
    EXPECT_EQ(result, 0);
    EXPECT_EQ(contentOf(root + "/big"), QByteArray(1 << 20, 'x'));
}

// What the caller may not do changes nothing: no copy half made, no destination lost, no
// source left twice.
TEST(CopyAndMove, RefusedMovesAndCopiesChangeNothing) {
    QString reason;
    const QString other = secondFileSystem(reason);
    if (other.isEmpty())
        GTEST_SKIP() << reason.toStdString();
    const QString here = openFolder(QStringLiteral("/tmp"));
    ASSERT_FALSE(here.isEmpty());
    const QByteArray h = QFile::encodeName(here), t = QFile::encodeName(other);
    // A read-only folder with a file and a tree; a tree with a folder nobody may read.
    mkdir(h + "/ro", 0777);
    writeFile(here + "/ro/f", "stays");
    mkdir(h + "/ro/tree", 0777);
    writeFile(here + "/ro/tree/g", "also");
    chmod(h + "/ro", 0555);
    mkdir(h + "/locked", 0777);
    writeFile(here + "/locked/ok", "fine");
    mkdir(h + "/locked/closed", 0700);
    writeFile(here + "/locked/closed/secret", "s");
    // Destinations that already exist, here and on the other file system.
    for (const QString& dir : {here, other}) {
        writeFile(dir + "/old", "old content");
        mkdir(QFile::encodeName(dir + "/oldtree").constData(), 0777);
        writeFile(dir + "/oldtree/x", "old tree");
    }
    const auto hereBefore = snapshot(h, false), thereBefore = snapshot(t, false);
    const struct {
        bool move;
        QString from, to;
    } rows[] = {
        {true, here + "/ro/f", other + "/old"},          // source cannot leave: other file system
        {true, here + "/ro/tree", other + "/oldtree"},
        {true, here + "/ro/f", here + "/old"},           // the same, on one file system
        {true, here + "/ro/tree", here + "/oldtree"},
        {true, here + "/locked", other + "/oldtree"},    // a folder inside cannot be read
        {false, here + "/locked", other + "/oldtree"},
        {false, here + "/locked", here + "/oldtree"},
        {false, here + "/missing", here + "/old"},
        {false, here + "/ro/f", here + "/ro/new"},        // the destination folder is read-only
        {true, here + "/old", here + "/ro/new"},
        {true, here + "/old", other + "/no/such/folder"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(inChild([&] { return (row.move ? file::move : file::copy)(row.from, row.to); },
                          true), 0)
            << row.from.toStdString() << " -> " << row.to.toStdString();
        EXPECT_EQ(snapshot(h, false), hereBefore) << row.from.toStdString();
        EXPECT_EQ(snapshot(t, false), thereBefore) << row.to.toStdString();
    }
    chmod(h + "/ro", 0755);
    QDir(here).removeRecursively();
    QDir(other).removeRecursively();
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
