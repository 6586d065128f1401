// saveSettings: a settings save that recovers from a saver killed in the middle of its save.
#include <vanta/settingsstore_p.h>

#include <vanta/status.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLockFile>
#include <QRegularExpression>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace vanta {

namespace {

// Takes the advisory lock on the open guard fd, polling so that a saver stuck for good (stopped,
// not dead) cannot block us past kGuardWaitMs.
bool takeGuard(int fd) {
    for (int waited = 0;; waited += 10) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (waited >= kGuardWaitMs)
            return false;
        ::usleep(10 * 1000);
    }
}

// Removes what an interrupted save of path left behind. Called only while holding path's guard,
// so no saver of ours is between creating these files and removing or renaming them.
void removeSaveLeftovers(const QString& path) {
    const QString lockPath = path + QStringLiteral(".lock");
    // A lock file with no owner in it was cut off between its creation and the write of the
    // owner's process id. The store would wait for it to age out (30 s); nobody holds it.
    qint64 pid = 0;
    QString host, app;
    if (QFileInfo::exists(lockPath) && !QLockFile(lockPath).getLockInfo(&pid, &host, &app))
        QFile::remove(lockPath);

    // The store writes "<file>.XXXXXX" (six letters or digits) and renames it over the file.
    const QFileInfo info(path);
    const QRegularExpression temporary(QStringLiteral("^%1\\.[A-Za-z0-9]{6}$")
                                           .arg(QRegularExpression::escape(info.fileName())));
    QDir dir = info.absoluteDir();
    const QStringList names = dir.entryList({info.fileName() + QStringLiteral(".??????")},
                                            QDir::Files | QDir::Hidden | QDir::System);
    for (const QString& name : names) {
        if (temporary.match(name).hasMatch())
            dir.remove(name);
    }
}

}  // namespace

QSettings::Status saveSettings(QSettings& settings) {
    const QString path = settings.fileName();
    // A folder that does not exist yet holds no remnants; the store creates it as it saves.
    int fd = -1;
    if (!path.isEmpty())
        fd = ::open(QFile::encodeName(path + QStringLiteral(".guard")).constData(),
                    O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // Without the guard (an unwritable folder, a saver that never finishes) the save still runs
    // and its status tells the caller whether it reached the disk.
    if (fd >= 0 && takeGuard(fd))
        removeSaveLeftovers(path);
    settings.sync();
    if (fd >= 0)
        ::close(fd);  // also releases the guard
    const QSettings::Status status = settings.status();
    if (status != QSettings::NoError)
        ErrorLog(LM_ERROR, QStringLiteral("settings not saved to %1 (%2)\n")
                               .arg(path, status == QSettings::AccessError
                                              ? QStringLiteral("access error")
                                              : QStringLiteral("format error")));
    return status;
}

}  // namespace vanta
