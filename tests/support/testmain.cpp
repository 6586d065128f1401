// Test runner: isolates the environment, makes the Qt application object, runs gtest.
#include "testsupport.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace vantatest {
extern QString gScratchDir;
// Defined true by VANTA_TEST_NEEDS_GUI() in a suite that needs widgets.
extern const bool kNeedsGui __attribute__((weak));
}  // namespace vantatest

namespace {

// Scratch folders live in one folder per user under TMPDIR (else /tmp), one per test process,
// each holding ".owner", on which its process keeps an exclusive flock for its life. The kernel
// drops the flock when the process dies however it dies, so a folder whose owner can be locked
// was left by a killed process and is removed by the next process that starts. A scratch folder
// is made and swept only under "sweep.lock" of the user's folder, so that a new folder is never
// taken for a dead one before its owner locks it.
const char kScratchEnv[] = "VANTA_TEST_SCRATCH";

QByteArray userScratchParent() {
    const char* tmp = std::getenv("TMPDIR");
    const QByteArray root = tmp && tmp[0] == '/' && access(tmp, W_OK | X_OK) == 0 ? tmp : "/tmp";
    const QByteArray parent = root + "/vanta-tests-" + QByteArray::number(geteuid());
    mkdir(parent.constData(), 0700);
    struct stat st;
    if (lstat(parent.constData(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != geteuid() ||
        (st.st_mode & 077) != 0) {
        std::fprintf(stderr, "test scratch: %s is not a private folder of this user\n",
                     parent.constData());
        std::exit(1);
    }
    return parent;
}

void removeScratchOfDeadProcesses(const QByteArray& parent) {
    const QStringList names = QDir(QString::fromLocal8Bit(parent)).entryList(
        QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden);
    for (const QString& name : names) {
        const QByteArray dir = parent + '/' + QFile::encodeName(name);
        const int owner = open(dir + "/.owner", O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
        if (owner < 0)
            continue;  // not a scratch folder of this runner
        if (flock(owner, LOCK_EX | LOCK_NB) == 0)
            QDir(QString::fromLocal8Bit(dir)).removeRecursively();
        close(owner);
    }
}

// Makes this process's scratch folder, owned (locked) until the process ends.
QByteArray makeScratch() {
    const QByteArray parent = userScratchParent();
    const int sweep = open(parent + "/sweep.lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (sweep < 0 || flock(sweep, LOCK_EX) != 0) {
        perror("test scratch: sweep.lock");
        std::exit(1);
    }
    removeScratchOfDeadProcesses(parent);
    QByteArray pattern = parent + "/XXXXXX";
    const char* dir = mkdtemp(pattern.data());
    const int owner = dir ? open(QByteArray(dir) + "/.owner", O_RDWR | O_CREAT | O_CLOEXEC, 0600)
                          : -1;
    if (owner < 0 || flock(owner, LOCK_EX | LOCK_NB) != 0) {
        perror("test scratch");
        std::exit(1);
    }
    close(sweep);  // the owner fd stays open: it is the claim on the folder
    return dir;
}

// Points HOME, XDG_*, TMPDIR at a fresh scratch folder and fixes the time zone and locale, so the
// suites behave the same on every machine and never touch the real home directory. A death-test
// child (this program run again by gtest) inherits its parent's environment and scratch folder;
// it makes none of its own. Returns the folder and whether this process made it.
std::pair<QByteArray, bool> isolateEnvironment() {
    if (const char* inherited = std::getenv(kScratchEnv))
        return {inherited, false};
    const QByteArray root = makeScratch();
    setenv(kScratchEnv, root, 1);
    const char* subdirs[] = {"home", "config", "data", "cache", "state", "runtime", "tmp"};
    for (const char* sub : subdirs)
        QDir().mkpath(QString::fromUtf8(root + "/" + sub));
    QFile::setPermissions(QString::fromUtf8(root + "/runtime"),
                          QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setenv("HOME", root + "/home", 1);
    setenv("XDG_CONFIG_HOME", root + "/config", 1);
    setenv("XDG_DATA_HOME", root + "/data", 1);
    setenv("XDG_CACHE_HOME", root + "/cache", 1);
    setenv("XDG_STATE_HOME", root + "/state", 1);
    setenv("XDG_RUNTIME_DIR", root + "/runtime", 1);
    setenv("TMPDIR", root + "/tmp", 1);
    setenv("TZ", "UTC", 1);
    setenv("LANG", "C.UTF-8", 1);
    unsetenv("LANGUAGE");
    unsetenv("LC_ALL");
    unsetenv("LC_MESSAGES");
    setenv("QT_QPA_PLATFORM", "offscreen", 1);
    tzset();
    return {root, true};
}

}  // namespace

int main(int argc, char** argv) {
    const auto [root, ownScratch] = isolateEnvironment();
    vantatest::gScratchDir = QString::fromUtf8(root);
    ::testing::InitGoogleTest(&argc, argv);
    std::unique_ptr<QCoreApplication> app;
    if (&vantatest::kNeedsGui && vantatest::kNeedsGui)
        app = std::make_unique<QApplication>(argc, argv);
    else
        app = std::make_unique<QCoreApplication>(argc, argv);
    const int result = RUN_ALL_TESTS();
    app.reset();
    if (ownScratch)
        QDir(vantatest::gScratchDir).removeRecursively();
    return result;
}
