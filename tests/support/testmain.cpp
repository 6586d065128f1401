// Test runner: isolates the environment, makes the Qt application object, runs gtest.
#include "testsupport.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <unistd.h>

namespace vantatest {
extern QString gScratchDir;
// Defined true by VANTA_TEST_NEEDS_GUI() in a suite that needs widgets.
extern const bool kNeedsGui __attribute__((weak));
}  // namespace vantatest

namespace {

// Points HOME, XDG_*, TMPDIR at a fresh scratch folder and fixes the time zone and locale, so the
// suites behave the same on every machine and never touch the real home directory.
QByteArray isolateEnvironment() {
    char pattern[] = "/tmp/vanta-test-XXXXXX";
    const char* dir = mkdtemp(pattern);
    if (!dir) {
        perror("mkdtemp");
        std::exit(1);
    }
    const QByteArray root(dir);
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
    return root;
}

}  // namespace

int main(int argc, char** argv) {
    const QByteArray root = isolateEnvironment();
    vantatest::gScratchDir = QString::fromUtf8(root);
    ::testing::InitGoogleTest(&argc, argv);
    std::unique_ptr<QCoreApplication> app;
    if (&vantatest::kNeedsGui && vantatest::kNeedsGui)
        app = std::make_unique<QApplication>(argc, argv);
    else
        app = std::make_unique<QCoreApplication>(argc, argv);
    const int result = RUN_ALL_TESTS();
    app.reset();
    QDir(vantatest::gScratchDir).removeRecursively();
    return result;
}
