// A helper program for the suites that need a second process:
//   childprocess save FILE      saves FILE over and over, printing "ready" after the first save
//                                (the suite kills it at some moment of a save)
//   childprocess read FILE KEY  prints KEY's value from FILE as a comma-separated list
//   childprocess holdlock FILE  takes the store's lock on FILE, prints "locked", holds it for
//                                half a second, then prints "kept" if its lock file is still there
//   childprocess lockwait FILE  takes the store's lock on FILE, prints "locked" and holds it until
//                                its standard input ends (the suite stops it meanwhile)
//   childprocess crashsave FILE starts saving FILE, makes a file shaped like the store's
//                                temporary, as the store would, and is killed (SIGKILL) there
//   childprocess fullsave FILE [TAKEN]  saves 64 KiB to FILE with files limited to 16 KiB, as on
//                                a full disk, and prints the status; the first TAKEN hard links
//                                made find their new name already taken
//   childprocess message        shows the low-memory message without any Qt application object
//                                and prints the answer code
//   childprocess pixmap BIN NAME  with install path BIN, extracts the PNG resource NAME under a
//                                console application and prints "null" or "image" and the
//                                number of retained buffers
//   childprocess messagebox     shows a message box through a timer manager that runs calls at
//                                once, without any Qt application object, and prints "done"
#include <vanta/binres.h>
#include <vanta/settingsstore_p.h>
#include <vanta/system.h>
#include <vanta/timer.h>
#include <vanta/ui/memorywindow.h>

#include <QCoreApplication>
#include <QFile>
#include <QLockFile>
#include <QSettings>
#include <QThread>
#include <QString>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

// Runs every call at once on the calling thread: a program with no Qt application object.
class ImmediateManager : public vanta::Timer::Manager {
public:
    vanta::Timer::Peer* createPeer(vanta::Timer*) override { return nullptr; }
    void execute(vanta::Timer::SyncMethod& m, bool) override { m.execute(); }
    void executeAsync(vanta::Timer::SyncMethod& m) override { m.execute(); }
};

int takenLinkNames = 0;

}  // namespace

// Replaces the C library's link() for the library too, so that a clash of names, which random
// names make too rare to meet, can be had on demand.
extern "C" int link(const char* from, const char* to) {
    if (takenLinkNames > 0) {
        --takenLinkNames;
        errno = EEXIST;
        return -1;
    }
    return ::linkat(AT_FDCWD, from, AT_FDCWD, to, 0);
}

int main(int argc, char** argv) {
    // Dies with the suite that started it, even while stopped: a suite killed by a signal
    // (a time-out) must not leave a saver running or stopped for ever.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (argc == 3 && std::strcmp(argv[1], "save") == 0) {
        QSettings settings(QString::fromLocal8Bit(argv[2]), QSettings::IniFormat);
        // Large enough that a save takes a while, so kills often land inside one.
        const QString filler(64 * 1024, QLatin1Char('x'));
        for (int i = 0;; ++i) {
            const auto change = [&](QSettings& s) {
                s.setValue(QStringLiteral("count"), i);
                s.setValue(QStringLiteral("filler"), filler + QString::number(i));
            };
            if (vanta::saveSettings(settings, change) != QSettings::NoError)
                return 1;
            if (i == 0) {
                std::puts("ready");
                std::fflush(stdout);
            }
        }
    }
    if (argc == 4 && std::strcmp(argv[1], "read") == 0) {
        const QSettings settings(QString::fromLocal8Bit(argv[2]), QSettings::IniFormat);
        const QStringList value = settings.value(QString::fromLocal8Bit(argv[3])).toStringList();
        std::printf("%s\n", value.join(QLatin1Char(',')).toUtf8().constData());
        return settings.status() == QSettings::NoError ? 0 : 1;
    }
    if (argc == 3 && std::strcmp(argv[1], "holdlock") == 0) {
        const QString lockPath = QString::fromLocal8Bit(argv[2]) + QStringLiteral(".lock");
        QLockFile lock(lockPath);
        if (!lock.tryLock(10000))
            return 1;
        std::puts("locked");
        std::fflush(stdout);
        QThread::msleep(500);
        std::puts(QFile::exists(lockPath) ? "kept" : "gone");
        return 0;
    }
    if (argc == 3 && std::strcmp(argv[1], "lockwait") == 0) {
        QLockFile lock(QString::fromLocal8Bit(argv[2]) + QStringLiteral(".lock"));
        if (!lock.tryLock(10000))
            return 1;
        std::puts("locked");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
        return 0;
    }
    if (argc == 3 && std::strcmp(argv[1], "crashsave") == 0) {
        const QString path = QString::fromLocal8Bit(argv[2]);
        QSettings settings(path, QSettings::IniFormat);
        vanta::saveSettings(settings, [&path](QSettings&) {
            QFile temporary(path + QStringLiteral(".Qx7Zp2"));
            if (temporary.open(QIODevice::WriteOnly))
                temporary.write("[General]\ncount=");
            temporary.close();
            std::raise(SIGKILL);
        });
        return 1;
    }
    if ((argc == 3 || argc == 4) && std::strcmp(argv[1], "fullsave") == 0) {
        takenLinkNames = argc == 4 ? std::atoi(argv[3]) : 0;
        // Files may grow to 16 KiB only, so the 64 KiB save is cut short as on a full disk.
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{16 * 1024, 16 * 1024};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return 2;
        QSettings settings(QString::fromLocal8Bit(argv[2]), QSettings::IniFormat);
        const QString filler(64 * 1024, QLatin1Char('x'));
        const QSettings::Status status = vanta::saveSettings(settings, [&](QSettings& s) {
            s.setValue(QStringLiteral("count"), 8);
            s.setValue(QStringLiteral("filler"), filler);
        });
        std::printf("%d\n", int(status));
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "message") == 0) {
        const int code = vanta::MemoryWindow::ShowMemoryMessage(
            nullptr, QStringLiteral("id"), false, QStringLiteral("Caption"), QStringLiteral("Text"),
            QStringLiteral("OK"), QString(), QString());
        std::printf("%d\n", code);
        return 0;
    }
    if (argc == 4 && std::strcmp(argv[1], "pixmap") == 0) {
        QCoreApplication app(argc, argv);
        vanta::System::setInstallPath(QString::fromLocal8Bit(argv[2]));
        const QPixmap pixmap = vanta::BinRes::ExtractPixmap("png", QString::fromLocal8Bit(argv[3]));
        std::printf("%s %d\n", pixmap.isNull() ? "null" : "image",
                    vanta::BinRes::retainedBufferCount());
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "messagebox") == 0) {
        ImmediateManager manager;
        vanta::System::AsyncMessageBox(vanta::System::kMessageWarning, QStringLiteral("Title"),
                                       QStringLiteral("No application"));
        std::puts("done");
        return 0;
    }
    std::fprintf(stderr, "usage: childprocess save FILE | read FILE KEY | holdlock FILE"
                         " | lockwait FILE | crashsave FILE | fullsave FILE [TAKEN] | message"
                         " | pixmap BIN NAME | messagebox\n");
    return 2;
}
