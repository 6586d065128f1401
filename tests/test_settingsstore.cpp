// Tests of saveSettings: a save after a saver was killed at any moment of its save finishes at
// once and leaves nothing behind, and a failed save is reported. Also the low-memory message
// outside a widget application.
#include <vanta/settingsstore_p.h>
#include <vanta/status.h>
#include <vanta/ui/memorywindow.h>

#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSettings>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>

namespace {

// A save stalled by a stale lock takes about 30 s; anything under this bound did not stall.
constexpr qint64 kNoStallMs = 5000;

class SettingsStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = vantatest::scratchDir() + QStringLiteral("/store");
        QDir(dir).removeRecursively();
        ASSERT_TRUE(QDir().mkpath(dir));
        file = dir + QStringLiteral("/app.conf");
    }

    // Saves count under the guard and returns how long it took.
    qint64 timedSave(int count, QSettings::Status* status = nullptr) {
        QSettings settings(file, QSettings::IniFormat);
        settings.setValue(QStringLiteral("count"), count);
        QElapsedTimer timer;
        timer.start();
        const QSettings::Status s = vanta::saveSettings(settings);
        if (status)
            *status = s;
        return timer.elapsed();
    }

    // The folder's entries other than the settings file and its guard.
    QStringList leftovers() const {
        QStringList names = QDir(dir).entryList(QDir::Files | QDir::Hidden);
        names.removeAll(QStringLiteral("app.conf"));
        names.removeAll(QStringLiteral("app.conf.guard"));
        return names;
    }

    // count as another process reads it from the disk.
    QString countOnDisk() const {
        QProcess reader;
        reader.start(QStringLiteral(VANTA_CHILD_PROCESS), {"read", file, "count"});
        if (!reader.waitForFinished(10000) || reader.exitCode() != 0)
            return QStringLiteral("<reader failed>");
        return QString::fromUtf8(reader.readAllStandardOutput()).trimmed();
    }

    QString dir;
    QString file;
};

void plant(const QString& path, const QByteArray& content) {
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
    f.write(content);
}

TEST_F(SettingsStoreTest, RemnantsOfAKilledSaveAreClearedWithoutStalling) {
    const struct {
        const char* name;
        QByteArray content;
        bool remnant;
    } rows[] = {
        {"app.conf.lock", "", true},              // cut off before its owner was written
        {"app.conf.lock", "garbage", true},       // no process id in it
        {"app.conf.Ab3dE9", "[General]\n", true}, // a temporary never renamed
        {"app.conf.zzzzzz", "", true},
        {"app.conf.abcdefg", "", false},          // not the temporaries' shape
        {"app.conf.ab-def", "", false},
        {"other.conf.Ab3dE9", "", false},         // another file's
    };
    int count = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        plant(dir + QLatin1Char('/') + QLatin1String(row.name), row.content);
        QSettings::Status status = QSettings::FormatError;
        EXPECT_LT(timedSave(++count, &status), kNoStallMs);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(countOnDisk(), QString::number(count));
        EXPECT_EQ(leftovers().contains(QLatin1String(row.name)), !row.remnant);
        QFile::remove(dir + QLatin1Char('/') + QLatin1String(row.name));
    }
}

TEST_F(SettingsStoreTest, SaverKilledAtAnyMomentNeverStallsTheNext) {
    // Kills land at different moments: before, inside and between the saver's saves.
    for (int round = 0; round < 24; ++round) {
        SCOPED_TRACE(round);
        QProcess saver;
        saver.start(QStringLiteral(VANTA_CHILD_PROCESS), {"save", file});
        ASSERT_TRUE(saver.waitForStarted(10000));
        if (round % 4 != 0) {  // every fourth is killed while it may still be starting
            ASSERT_TRUE(saver.waitForReadyRead(10000));
        }
        std::this_thread::sleep_for(std::chrono::microseconds(round * 700));
        saver.kill();  // SIGKILL: no handler, no cleanup
        ASSERT_TRUE(saver.waitForFinished(10000));

        QSettings::Status status = QSettings::FormatError;
        EXPECT_LT(timedSave(1000 + round, &status), kNoStallMs);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(leftovers(), QStringList());
    }
    EXPECT_EQ(countOnDisk(), QStringLiteral("1023"));
}

TEST_F(SettingsStoreTest, ALiveSaversGuardIsWaitedForThenSavedWithout) {
    // Another saver holds the guard (a second open file takes its own flock, even in this
    // process): the remnant is cleared only once the guard is ours, and a guard held past the
    // wait is saved without, leaving the remnant alone.
    for (const bool released : {true, false}) {
        SCOPED_TRACE(released ? "released after 300 ms" : "held throughout");
        const QString remnant = dir + QStringLiteral("/app.conf.Ab3dE9");
        plant(remnant, "");
        const int guard = ::open(QFile::encodeName(file + QStringLiteral(".guard")).constData(),
                                 O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(guard, 0);
        ASSERT_EQ(::flock(guard, LOCK_EX), 0);
        std::thread holder([&] {
            if (released) {
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                ::close(guard);
            }
        });
        QSettings::Status status = QSettings::FormatError;
        timedSave(released ? 1 : 2, &status);
        holder.join();
        if (!released)
            ::close(guard);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(countOnDisk(), released ? "1" : "2");
        EXPECT_EQ(QFile::exists(remnant), !released);
        QFile::remove(remnant);
    }
}

TEST_F(SettingsStoreTest, ALockHeldByALiveProcessIsLeftToItsOwner) {
    QProcess owner;
    owner.start(QStringLiteral(VANTA_CHILD_PROCESS), {"holdlock", file});
    ASSERT_TRUE(owner.waitForReadyRead(10000));
    ASSERT_EQ(owner.readLine().trimmed(), QByteArray("locked"));
    QSettings::Status status = QSettings::FormatError;
    EXPECT_LT(timedSave(7, &status), kNoStallMs);  // the store waits for the owner to finish
    ASSERT_TRUE(owner.waitForFinished(10000));
    EXPECT_EQ(owner.readAll().trimmed(), QByteArray("kept"));
    EXPECT_EQ(status, QSettings::NoError);
    EXPECT_EQ(countOnDisk(), "7");
}

TEST_F(SettingsStoreTest, FailedSaveIsReported) {
    // A settings file whose folder is a plain file can be neither created nor written.
    plant(dir + QStringLiteral("/blocked"), "");
    QSettings settings(dir + QStringLiteral("/blocked/app.conf"), QSettings::IniFormat);
    settings.setValue(QStringLiteral("count"), 1);
    FILE* log = std::tmpfile();
    ASSERT_NE(log, nullptr);
    FILE* const oldLog = vanta::LM_ERROR;
    vanta::LM_ERROR = log;
    EXPECT_EQ(vanta::saveSettings(settings), QSettings::AccessError);
    vanta::LM_ERROR = oldLog;
    char line[512] = {};
    std::rewind(log);
    EXPECT_NE(std::fgets(line, sizeof line, log), nullptr);
    std::fclose(log);
    EXPECT_NE(QString::fromUtf8(line).indexOf(QStringLiteral("blocked/app.conf")), -1) << line;
}

TEST(MemoryMessageWithoutWidgets, CannotShowTheDialog) {
    // This suite runs under a QCoreApplication.
    EXPECT_EQ(vanta::MemoryWindow::ShowMemoryMessage(nullptr, QStringLiteral("id"), false,
                                                     QStringLiteral("Caption"),
                                                     QStringLiteral("Text"), QStringLiteral("OK"),
                                                     QString(), QString()),
              -1);
    EXPECT_EQ(vanta::MemoryWindow::MEMDialog, nullptr);
    // And in a program with no application object at all.
    QProcess child;
    child.start(QStringLiteral(VANTA_CHILD_PROCESS), {"message"});
    ASSERT_TRUE(child.waitForFinished(10000));
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(child.exitCode(), 0);
    EXPECT_EQ(child.readAllStandardOutput().trimmed(), QByteArray("-1"));
}

}  // namespace
