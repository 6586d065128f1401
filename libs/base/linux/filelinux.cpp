// Linux descriptor calls, copy and move as cp -a and mv make them, and stat.
#include <vanta/file.h>
#include <vanta/system.h>

#include <QFileInfo>

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <algorithm>
#include <map>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>

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

// An entry's path with every folder above it resolved but the entry itself not followed, so
// that a link is judged as the link it is. Empty when the folder above does not exist.
QString entryPath(const QString& path) {
    const QFileInfo info(path);
    const QString name = info.fileName();
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return info.canonicalFilePath();
    QString parent = QFileInfo(info.absolutePath()).canonicalFilePath();
    if (parent.isEmpty())
        return parent;
    if (!parent.endsWith(QLatin1Char('/')))
        parent += QLatin1Char('/');
    return parent + name;
}

// Whether replacing `to` would destroy `from` or recurse into itself: the same entry, a
// destination inside a source folder, or a destination folder that holds the source.
bool overlaps(const QString& from, const QString& to) {
    const QString source = entryPath(from), target = entryPath(to);
    return !target.isEmpty() && (target == source || target.startsWith(source + QLatin1Char('/')) ||
                                 source.startsWith(target + QLatin1Char('/')));
}

// The folder that holds path (path's trailing slashes ignored).
QByteArray parentOf(QByteArray path) {
    while (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    const int slash = path.lastIndexOf('/');
    return slash < 0 ? QByteArray(".") : slash == 0 ? QByteArray("/") : path.left(slash);
}

// Removes whatever is at path (file, link, special file or folder tree) without following
// links. Folders are opened up for their owner first, so a copied read-only folder can go too.
// True when nothing is left there.
bool removeTree(const QByteArray& path) {
    struct ::stat info;
    if (::lstat(path.constData(), &info) != 0)
        return errno == ENOENT;
    if (!S_ISDIR(info.st_mode))
        return ::unlink(path.constData()) == 0;
    if ((info.st_mode & S_IRWXU) != S_IRWXU)
        ::chmod(path.constData(), (info.st_mode & 07777) | S_IRWXU);
    bool emptied = true;
    if (DIR* dir = ::opendir(path.constData())) {
        while (const dirent* entry = ::readdir(dir)) {
            const QByteArray name(entry->d_name);
            if (name != "." && name != "..")
                emptied = removeTree(path + '/' + name) && emptied;
        }
        ::closedir(dir);
    }
    return emptied && ::rmdir(path.constData()) == 0;
}

// rename(2) errors that mean only "something of another kind, or a full folder, is in the way".
bool isInTheWay(int err) {
    return err == EEXIST || err == ENOTEMPTY || err == EISDIR || err == ENOTDIR;
}

// A hidden folder of our own beside `target`, on its file system, so that what is prepared in
// it reaches `target` with one rename. Removed, with whatever it still holds, when destroyed.
class Staging {
public:
    explicit Staging(const QByteArray& target) : mDir(parentOf(target) + "/.vanta-XXXXXX") {
        if (!::mkdtemp(mDir.data()))
            mDir.clear();
    }
    ~Staging() {
        if (!mDir.isEmpty())
            removeTree(mDir);
    }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;

    bool ok() const { return !mDir.isEmpty(); }
    QByteArray path(const char* name) const { return mDir + '/' + name; }

    // Renames `from` (on this file system) to `to`, replacing what is there; on failure both
    // stay as they were. A folder in the way is first set aside here, then removed with us.
    bool putInPlace(const QByteArray& from, const QByteArray& to) const {
        if (::rename(from.constData(), to.constData()) == 0)
            return true;
        if (!isInTheWay(errno))
            return false;
        const QByteArray aside = path("old");
        if (::rename(to.constData(), aside.constData()) != 0)
            return false;
        if (::rename(from.constData(), to.constData()) == 0)
            return true;
        const int err = errno;
        ::rename(aside.constData(), to.constData());
        errno = err;
        return false;
    }

private:
    QByteArray mDir;
};

// Copies as `cp -a` does, into a path where nothing exists: links stay links, named pipes,
// sockets and devices are made anew (never opened), hard links inside the tree stay linked,
// and permission bits, owners (where allowed) and times are kept, folders' too.
class TreeCopy {
public:
    // forMove: also refuse a source folder whose entries could not be removed afterwards.
    explicit TreeCopy(bool forMove) : mForMove(forMove) {}

    bool entry(const QByteArray& from, const QByteArray& to) {
        struct ::stat info;
        if (::lstat(from.constData(), &info) != 0)
            return false;
        switch (info.st_mode & S_IFMT) {
        case S_IFLNK: return link(from, to, info);
        case S_IFREG: return file(from, to, info);
        case S_IFDIR: return folder(from, to, info);
        default:  // named pipe, socket, character or block device
            return ::mknod(to.constData(), info.st_mode & (S_IFMT | 0777), info.st_rdev) == 0 &&
                   keep(to, -1, info);
        }
    }

private:
    // Owner, permission bits and times of `info` onto `to` (or its open descriptor fd). Set-id
    // bits are dropped when the owner cannot be kept, as they would now name someone else.
    static bool keep(const QByteArray& to, int fd, const struct ::stat& info) {
        mode_t mode = info.st_mode & 07777;
        const int owned = fd >= 0 ? ::fchown(fd, info.st_uid, info.st_gid)
                                  : ::lchown(to.constData(), info.st_uid, info.st_gid);
        if (owned != 0)
            mode &= ~mode_t(S_ISUID | S_ISGID);
        const timespec times[2] = {info.st_atim, info.st_mtim};
        if (S_ISLNK(info.st_mode))  // a link has no permission bits of its own
            return ::utimensat(AT_FDCWD, to.constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
        if (fd >= 0)
            return ::fchmod(fd, mode) == 0 && ::futimens(fd, times) == 0;
        return ::chmod(to.constData(), mode) == 0 &&
               ::utimensat(AT_FDCWD, to.constData(), times, AT_SYMLINK_NOFOLLOW) == 0;
    }

    static bool link(const QByteArray& from, const QByteArray& to, const struct ::stat& info) {
        QByteArray target(int(info.st_size) + 1, '\0');
        for (;;) {
            const ssize_t n = ::readlink(from.constData(), target.data(), size_t(target.size()));
            if (n == -1)
                return false;
            if (n < target.size()) {
                target.truncate(int(n));
                break;
            }
            target.resize(target.size() * 2);  // the link changed or its size was not reported
        }
        return ::symlink(target.constData(), to.constData()) == 0 && keep(to, -1, info);
    }

    bool file(const QByteArray& from, const QByteArray& to, const struct ::stat& info) {
        const auto id = std::make_pair(info.st_dev, info.st_ino);
        if (info.st_nlink > 1) {
            const auto known = mHardLinks.find(id);
            if (known != mHardLinks.end())
                return ::link(known->second.constData(), to.constData()) == 0;
        }
        // Non-blocking, so a file swapped for a named pipe since lstat cannot stall the open.
        const int in = ::open(from.constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        if (in < 0)
            return false;
        struct ::stat opened;
        bool ok = ::fstat(in, &opened) == 0 && opened.st_ino == info.st_ino &&
                  opened.st_dev == info.st_dev;
        const int out =
            ok ? ::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600) : -1;
        ok = out >= 0 && copyData(in, out, opened.st_size) && keep(to, out, opened);
        if (out >= 0)
            ok = ::close(out) == 0 && ok;
        ::close(in);
        if (ok && info.st_nlink > 1)
            mHardLinks.emplace(id, to);
        return ok;
    }

    // Copies the first `size` bytes. Only the parts that hold data are copied, so holes stay
    // holes (a sparse disk image stays small), as cp makes them.
    static bool copyData(int in, int out, off_t size) {
        for (off_t at = 0; at < size;) {
            off_t data = ::lseek(in, at, SEEK_DATA);
            if (data == -1 && errno != ENXIO)
                data = at;  // the file system does not say: copy everything
            if (data < 0 || data >= size)
                break;  // only a hole is left
            off_t hole = ::lseek(in, data, SEEK_HOLE);
            if (hole <= data || hole > size)
                hole = size;
            if (!copyRange(in, out, data, hole - data))
                return false;
            at = hole;
        }
        return ::ftruncate(out, size) == 0;
    }

    // Copies length bytes at offset, in the kernel where it can, else through a buffer.
    static bool copyRange(int in, int out, off_t offset, off_t length) {
        loff_t from = offset, to = offset;
        while (length > 0) {
            const ssize_t n = ::copy_file_range(in, &from, out, &to, size_t(length), 0);
            if (n > 0) {
                length -= n;
                continue;
            }
            if (n == 0)
                return false;  // the file shrank under us
            if (errno == EINTR)
                continue;
            if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP)
                return false;
            break;  // no kernel copy between these two file systems
        }
        char buffer[65536];
        while (length > 0) {
            const size_t chunk = size_t(std::min<off_t>(length, off_t(sizeof buffer)));
            const ssize_t n = ::pread(in, buffer, chunk, from);
            if (n <= 0) {
                if (n < 0 && errno == EINTR)
                    continue;
                return false;
            }
            for (ssize_t done = 0; done < n;) {
                const ssize_t w = ::pwrite(out, buffer + done, size_t(n - done), to + done);
                if (w < 0 && errno != EINTR)
                    return false;
                done += w > 0 ? w : 0;
            }
            from += n;
            to += n;
            length -= n;
        }
        return true;
    }

    bool folder(const QByteArray& from, const QByteArray& to, const struct ::stat& info) {
        if (mForMove && ::access(from.constData(), W_OK | X_OK) != 0)
            return false;
        DIR* dir = ::opendir(from.constData());
        if (!dir)
            return false;
        bool ok = ::mkdir(to.constData(), S_IRWXU) == 0;
        while (ok) {
            errno = 0;
            const dirent* child = ::readdir(dir);
            if (!child) {
                ok = errno == 0;
                break;
            }
            const QByteArray name(child->d_name);
            if (name != "." && name != "..")
                ok = entry(from + '/' + name, to + '/' + name);
        }
        ::closedir(dir);
        // Mode and times last: the entries made inside changed the folder's times.
        return ok && keep(to, -1, info);
    }

    const bool mForMove;
    std::map<std::pair<dev_t, ino_t>, QByteArray> mHardLinks;  // first copy of each linked file
};

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

// Both copy and move prepare the result beside the destination and put it in place with one
// rename, so a failure at any point leaves the destination, and the source, as they were.
bool copy(const QString& from, const QString& to) {
    QByteArray source, target;
    if (!nativePath(from, source) || !nativePath(to, target) || !QFileInfo::exists(from) ||
        overlaps(from, to))
        return false;
    const Staging arrival(target);
    const QByteArray copied = arrival.path("new");
    return arrival.ok() && TreeCopy(false).entry(source, copied) &&
           arrival.putInPlace(copied, target);
}

bool move(const QString& from, const QString& to) {
    QByteArray source, target;
    if (!nativePath(from, source) || !nativePath(to, target) || !QFileInfo::exists(from) ||
        overlaps(from, to))
        return false;
    if (::rename(source.constData(), target.constData()) == 0)
        return true;
    if (errno != EXDEV) {
        if (!isInTheWay(errno))
            return false;
        const Staging aside(target);
        return aside.ok() && aside.putInPlace(source, target);
    }
    // Another file system: copy beside the destination, take the source out of sight in its
    // own folder (which fails, changing nothing, when it may not be removed), then put the copy
    // in place. The source goes only once the copy stands at the destination.
    const Staging arrival(target), departure(source);
    const QByteArray copied = arrival.path("new"), original = departure.path("old");
    if (!arrival.ok() || !departure.ok() || !TreeCopy(true).entry(source, copied) ||
        ::rename(source.constData(), original.constData()) != 0)
        return false;
    if (arrival.putInPlace(copied, target))
        return true;
    ::rename(original.constData(), source.constData());
    return false;
}

bool wstat(const QString& path, struct ::stat* buf) {
    QByteArray native;
    return nativePath(path, native) && ::stat(native.constData(), buf) == 0;
}

bool stat(const char* path, struct ::stat* buf) { return ::stat(path, buf) == 0; }

}  // namespace file

}  // namespace vanta
