// Linux descriptor calls, whole-file copy and move, and stat (vanta::System, vanta::file).
#include <vanta/file.h>
#include <vanta/system.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vanta {

namespace {

// The UTF-8 form handed to the system. A path with a NUL character would silently name a
// shorter path, so it is refused: false, and errno is EINVAL as the system would set.
bool nativePath(const QString& path, QByteArray& native) {
    if (path.contains(QChar(0))) {
        errno = EINVAL;
        return false;
    }
    native = path.toUtf8();
    return true;
}

// Removes a file, link or directory tree at path; nothing there is fine.
void removeAnything(const QString& path) {
    const QFileInfo info(path);
    if (info.isDir() && !info.isSymLink())
        QDir(path).removeRecursively();
    else
        QFile::remove(path);
}

// Recreates the symbolic link at `from` as `to`, with the same (possibly relative) target.
bool copyLink(const QString& from, const QString& to) {
    char target[4096];
    const ssize_t n = ::readlink(from.toUtf8().constData(), target, sizeof target - 1);
    if (n < 0)
        return false;
    target[n] = 0;
    return ::symlink(target, to.toUtf8().constData()) == 0;
}

// Copies a file, or a directory tree with its files, to a path where nothing exists. Links
// inside a tree are copied as links, so a link to a parent folder cannot make the copy recurse.
bool copyTree(const QString& from, const QString& to) {
    if (!QFileInfo(from).isDir())
        return QFile::copy(from, to);
    if (!QDir().mkdir(to))
        return false;
    const QDir source(from);
    const QFileInfoList entries =
        source.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    for (const QFileInfo& entry : entries) {
        const QString target = to + QLatin1Char('/') + entry.fileName();
        const bool copied = entry.isSymLink() ? copyLink(entry.filePath(), target)
                                              : copyTree(entry.filePath(), target);
        if (!copied)
            return false;
    }
    return true;
}

// Whether replacing `to` would destroy `from` or recurse into itself: the same file, or a
// destination inside a source directory.
bool overlaps(const QString& from, const QString& to) {
    const QString source = QFileInfo(from).canonicalFilePath();
    QString target = QFileInfo(to).absoluteFilePath();
    const QString canonicalTarget = QFileInfo(to).canonicalFilePath();
    if (!canonicalTarget.isEmpty())
        target = canonicalTarget;
    else  // a destination that does not exist yet: judge by its (real) parent folder
        target = QFileInfo(QFileInfo(to).absolutePath()).canonicalFilePath() +
                 QLatin1Char('/') + QFileInfo(to).fileName();
    return target == source || target.startsWith(source + QLatin1Char('/'));
}

}  // namespace

int System::open(const QString& path, int flags, int mode) {
    QByteArray native;
    return nativePath(path, native) ? ::open(native.constData(), flags, mode) : -1;
}

int System::open(const char* path, int flags, int mode) { return ::open(path, flags, mode); }

int System::close(int fd) { return ::close(fd); }

int System::unlink(const QString& path) {
    QByteArray native;
    return nativePath(path, native) ? ::unlink(native.constData()) : -1;
}

int System::rename(const QString& from, const QString& to) {
    QByteArray a, b;
    return nativePath(from, a) && nativePath(to, b) ? ::rename(a.constData(), b.constData()) : -1;
}

long long System::lseek(int fd, long long offset, int whence) {
    return ::lseek(fd, off_t(offset), whence);
}

int System::read(int fd, void* buf, unsigned long n) { return int(::read(fd, buf, n)); }

int System::write(int fd, const void* buf, unsigned long n) { return int(::write(fd, buf, n)); }

int System::getSize(int fd) {
    struct ::stat info;
    if (::fstat(fd, &info) != 0)
        return -1;
    return int(info.st_size);
}

int System::ftruncate(int fd, long long length) { return ::ftruncate(fd, off_t(length)); }

int System::access(const QString& path, int mode) {
    QByteArray native;
    return nativePath(path, native) ? ::access(native.constData(), mode) : -1;
}

int System::getLastError() { return errno; }

bool System::supportsDirectIo(const QString&) { return false; }

bool System::getDirectIoInfo(const QString&, DirectIoInfo&) { return false; }

namespace file {

bool copy(const QString& from, const QString& to) {
    if (!QFileInfo::exists(from) || overlaps(from, to))
        return false;
    removeAnything(to);
    return copyTree(from, to);
}

bool move(const QString& from, const QString& to) {
    if (!QFileInfo::exists(from) || overlaps(from, to))
        return false;
    removeAnything(to);
    QByteArray a, b;
    if (!nativePath(from, a) || !nativePath(to, b))
        return false;
    if (::rename(a.constData(), b.constData()) == 0)
        return true;
    if (errno != EXDEV)
        return false;
    // Another file system: copy, and remove the source only once the copy is complete.
    if (!copyTree(from, to)) {
        removeAnything(to);
        return false;
    }
    removeAnything(from);
    return true;
}

bool wstat(const QString& path, struct ::stat* buf) {
    QByteArray native;
    return nativePath(path, native) && ::stat(native.constData(), buf) == 0;
}

bool stat(const char* path, struct ::stat* buf) { return ::stat(path, buf) == 0; }

}  // namespace file

}  // namespace vanta
