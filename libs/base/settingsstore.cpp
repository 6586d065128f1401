// saveSettings: a settings save with a bounded wait that cleans up after a saver killed mid-save.
#include <vanta/settingsstore_p.h>

#include <vanta/status.h>
#include <vanta/system.h>

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vanta {

namespace {

// A folder of this user's alone, made when missing; refused when it is a link, someone else's or
// open to others, since a guard there could be taken or replaced by them.
bool isPrivateFolder(const QString& dir) {
    const QByteArray native = QFile::encodeName(dir);
    ::mkdir(native.constData(), 0700);
    struct stat st;
    return ::lstat(native.constData(), &st) == 0 && S_ISDIR(st.st_mode) &&
           st.st_uid == ::geteuid() && (st.st_mode & 077) == 0;
}

QString guardFolder() {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (runtime.startsWith(u'/')) {
        const QString dir = runtime + QStringLiteral("/vanta-settings");
        if (isPrivateFolder(dir))
            return dir;
    }
    const QString dir = System::getTempDirectory() +
                        QStringLiteral("vanta-settings-%1").arg(::geteuid());
    return isPrivateFolder(dir) ? dir : QString();
}

// The advisory lock one saver of ours holds for a settings file, and the record it keeps there
// of the save in progress: when the save began and which temporary-shaped names were already
// beside the file. A record left behind names a save that never finished.
class Guard {
public:
    explicit Guard(const QString& settingsPath) {
        const QString path = settingsGuardPath(settingsPath);
        if (!path.isEmpty())
            mFd = ::open(QFile::encodeName(path).constData(),
                         O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    }
    ~Guard() {
        if (mFd >= 0)
            ::close(mFd);  // also releases the lock
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    bool isOpen() const { return mFd >= 0; }

    // Polls, so that a holder stopped for good cannot keep us past the deadline. False when
    // another saver holds it, and also when the file system has no such locks, which closes
    // the guard (isOpen turns false).
    bool take(const QElapsedTimer& clock) {
        for (;;) {
            if (::flock(mFd, LOCK_EX | LOCK_NB) == 0)
                return true;
            if (errno != EWOULDBLOCK && errno != EINTR) {  // no locks there: save without
                ::close(mFd);
                mFd = -1;
                return false;
            }
            if (clock.hasExpired(kSaveWaitMs))
                return false;
            ::usleep(10 * 1000);
        }
    }

    QByteArray record() const {
        QByteArray bytes;
        char chunk[4096];
        for (off_t at = 0;;) {
            const ssize_t n = ::pread(mFd, chunk, sizeof chunk, at);
            if (n <= 0)
                return bytes;
            bytes.append(chunk, n);
            at += n;
        }
    }

    // A record that cannot be written whole is dropped: a partial one would misname files.
    void setRecord(const QByteArray& bytes) {
        if (::ftruncate(mFd, 0) != 0)
            return;
        if (::pwrite(mFd, bytes.constData(), size_t(bytes.size()), 0) != bytes.size())
            (void)::ftruncate(mFd, 0);
    }

private:
    int mFd = -1;
};

// The names the store gives its temporaries: the file's name, a dot and six letters or digits.
QStringList temporaryShapedNames(const QFileInfo& file) {
    const QRegularExpression shape(QStringLiteral("^%1\\.[A-Za-z0-9]{6}$")
                                       .arg(QRegularExpression::escape(file.fileName())));
    QStringList names = file.absoluteDir().entryList(
        {file.fileName() + QStringLiteral(".??????")}, QDir::Files | QDir::Hidden | QDir::System);
    names.erase(std::remove_if(names.begin(), names.end(),
                               [&](const QString& name) { return !shape.match(name).hasMatch(); }),
                names.end());
    return names;
}

// Removes the temporaries of the interrupted save that record describes: regular files of the
// temporaries' shape that were not there when it began and were made within kOrphanWindowMs of
// its start (the status-change time, which copying or renaming a file into place always sets
// to the present). Anything else beside the file is left alone.
void removeOrphanedTemporaries(const QFileInfo& file, const QByteArray& record) {
    QList<QByteArray> lines = record.split('\n');
    bool ok = false;
    const qint64 began = lines.takeFirst().toLongLong(&ok);
    if (!ok)
        return;
    for (const QString& name : temporaryShapedNames(file)) {
        if (lines.contains(QFile::encodeName(name)))
            continue;
        const QString path = file.absoluteDir().filePath(name);
        struct stat st;
        if (::lstat(QFile::encodeName(path).constData(), &st) != 0 || !S_ISREG(st.st_mode))
            continue;
        const qint64 made = qint64(st.st_ctim.tv_sec) * 1000 + st.st_ctim.tv_nsec / 1000000;
        // A second of slack before: file times come from a coarser clock than ours.
        if (made >= began - 1000 && made <= began + kOrphanWindowMs)
            QFile::remove(path);
    }
}

// Removes the store's lock file when it names no owner and nobody holds it: the store locks the
// file the moment it makes it, before writing the owner, so such a file was cut off by a kill.
// The store would otherwise wait 30 s for it to age.
void removeOwnerlessLock(const QString& lockPath) {
    qint64 pid = 0;
    QString host, app;
    if (!QFileInfo::exists(lockPath) || QLockFile(lockPath).getLockInfo(&pid, &host, &app))
        return;
    const int fd = ::open(QFile::encodeName(lockPath).constData(),
                          O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0)
        return;
    if (::flock(fd, LOCK_EX | LOCK_NB) == 0 && !QLockFile(lockPath).getLockInfo(&pid, &host, &app))
        QFile::remove(lockPath);
    ::close(fd);
}

// Takes the store's lock within what is left of the wait. False only when another saver holds
// it; a lock that cannot be made at all (no folder yet, a read-only one) is left to the save,
// which then fails or creates the folder without waiting.
bool waitForStoreLock(QLockFile& lock, const QElapsedTimer& clock) {
    while (!lock.tryLock(0)) {
        if (lock.error() != QLockFile::LockFailedError)
            return true;
        if (clock.hasExpired(kSaveWaitMs))
            return false;
        ::usleep(10 * 1000);
    }
    lock.unlock();
    return true;
}

// A second name beside the file for the file as it is before a write ("<file>.XXXXXX", so that
// the record removes it should this saver be killed before it does). The store does not notice
// a write that a full disk cut short and renames the truncated file into place; the save then
// puts this one back. Empty when the file does not exist or cannot be linked.
QString linkPrevious(const QString& path) {
    const QByteArray target = QFile::encodeName(path);
    static const char kLetters[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
    for (int attempt = 0; attempt < 16; ++attempt) {
        QByteArray name = target + '.';
        for (int i = 0; i < 6; ++i)
            name += kLetters[QRandomGenerator::global()->bounded(int(sizeof kLetters - 1))];
        if (::link(target.constData(), name.constData()) == 0)
            return QFile::decodeName(name);
        if (errno != EEXIST)
            break;
    }
    return QString();
}

// Whether the file holds the whole of what the store wrote: each entry ends its line, so a
// file cut short ends within a line or lacks keys, which a reader of its own (on a copy in
// folder, under a name never used before, since the store keeps what it read of each file name
// for the life of the process) finds missing.
bool writtenWhole(QSettings& settings, const QString& folder) {
    static std::atomic<int> counter{0};
    const QString copy = QStringLiteral("%1/check.%2.%3.conf")
                             .arg(folder)
                             .arg(QCoreApplication::applicationPid())
                             .arg(counter++);
    QFile::remove(copy);
    if (!QFile::copy(settings.fileName(), copy))
        return true;  // no room to check in: nothing is known to be wrong
    QFile written(copy);
    bool whole = written.open(QIODevice::ReadOnly) &&
                 (written.size() == 0 || (written.seek(written.size() - 1) &&
                                          written.read(1) == QByteArray("\n")));
    written.close();
    if (whole) {
        const QSettings disk(copy, QSettings::IniFormat);
        const bool fallbacks = settings.fallbacksEnabled();
        const QString group = settings.group();
        settings.setFallbacksEnabled(false);
        while (!settings.group().isEmpty())
            settings.endGroup();
        QStringList expected = settings.allKeys(), found = disk.allKeys();
        expected.sort();
        found.sort();
        whole = expected == found;
        if (!group.isEmpty())
            settings.beginGroup(group);
        settings.setFallbacksEnabled(fallbacks);
    }
    QFile::remove(copy);
    return whole;
}

void logFailure(const QString& path, const QString& reason) {
    ErrorLog(LM_ERROR, QStringLiteral("settings not saved to %1 (%2)\n").arg(path, reason));
}

}  // namespace

QString settingsGuardPath(const QString& path) {
    const QString folder = guardFolder();
    if (folder.isEmpty() || path.isEmpty())
        return QString();
    const QFileInfo file(path);
    const QByteArray key = QCryptographicHash::hash(file.absoluteFilePath().toUtf8(),
                                                    QCryptographicHash::Sha1)
                               .toHex()
                               .left(16);
    return folder + u'/' + file.fileName() + u'.' + QString::fromLatin1(key) +
           QStringLiteral(".guard");
}

QSettings::Status saveSettings(QSettings& settings,
                               const std::function<void(QSettings&)>& change) {
    const QString path = settings.fileName();
    if (path.isEmpty()) {  // nothing on disk to guard
        change(settings);
        settings.sync();
        return settings.status();
    }
    QElapsedTimer clock;
    clock.start();
    const QFileInfo file(path);
    const QString lockPath = path + QStringLiteral(".lock");

    // The store reads a lock file's owner and would wait for ever on a pipe put there, and for
    // good on a folder; only a regular file can be its lock.
    struct stat lockInfo;
    if (::lstat(QFile::encodeName(lockPath).constData(), &lockInfo) == 0 &&
        !S_ISREG(lockInfo.st_mode)) {
        logFailure(path, lockPath + QStringLiteral(" is not a regular file"));
        return QSettings::AccessError;
    }
    Guard guard(path);
    const bool guarded = guard.isOpen() && guard.take(clock);
    if (guard.isOpen() && !guarded) {
        logFailure(path, QStringLiteral("another saver of this file did not finish"));
        return QSettings::AccessError;
    }
    if (guarded)
        removeOwnerlessLock(lockPath);
    QLockFile lock(lockPath);
    if (!waitForStoreLock(lock, clock)) {
        logFailure(path, QStringLiteral("locked by another process"));
        return QSettings::AccessError;
    }
    if (guarded) {
        // Under both locks no save of this file is under way, so the record is the last word.
        removeOrphanedTemporaries(file, guard.record());
        QByteArray record = QByteArray::number(QDateTime::currentMSecsSinceEpoch());
        for (const QString& name : temporaryShapedNames(file))
            record += '\n' + QFile::encodeName(name);
        guard.setRecord(record);
    }

    const bool existed = QFileInfo::exists(path);
    const QString previous = guarded ? linkPrevious(path) : QString();
    change(settings);
    settings.sync();
    QSettings::Status status = settings.status();
    if (status != QSettings::NoError) {
        logFailure(path, status == QSettings::AccessError ? QStringLiteral("access error")
                                                          : QStringLiteral("format error"));
    } else if (guarded && (existed == !previous.isEmpty()) &&
               !writtenWhole(settings, QFileInfo(settingsGuardPath(path)).absolutePath())) {
        // The file as it was (or none) is better than a part of the new one.
        if (existed)
            ::rename(QFile::encodeName(previous).constData(), QFile::encodeName(path).constData());
        else
            QFile::remove(path);
        logFailure(path, QStringLiteral("written incompletely, is the disk full? The file is "
                                        "left as it was"));
        status = QSettings::AccessError;
    }
    if (!previous.isEmpty())
        QFile::remove(previous);
    if (guarded)
        guard.setRecord(QByteArray());
    return status;
}

}  // namespace vanta
