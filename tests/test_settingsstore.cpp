// Tests of saveSettings: no saver, stopped or killed, stalls the next save for long; a killed
// save leaves nothing behind; nothing else beside the settings is ever removed; a failed save
// is reported and its value kept. Also the low-memory message outside a widget application.
#include <vanta/settingsstore_p.h>
#include <vanta/status.h>
#include <vanta/system.h>
#include <vanta/ui/memorywindow.h>
#include <vanta/versioninfo.h>

#include "testsupport.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSettings>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

namespace {

// A save stalled by a stale lock takes about 30 s; anything under this bound did not stall.
constexpr qint64 kNoStallMs = 5000;
// A save that gives up on a stopped saver does so after kSaveWaitMs, and not much later.
constexpr qint64 kGiveUpMs = vanta::kSaveWaitMs + 1000;

class SettingsStoreTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir = vantatest::scratchDir() + QStringLiteral("/store");
        QDir(dir).removeRecursively();
        ASSERT_TRUE(QDir().mkpath(dir));
        file = dir + QStringLiteral("/app.conf");
    }

    // Saves key = value and returns how long it took.
    qint64 timedSave(int value, QSettings::Status* status = nullptr,
                     const QString& key = QStringLiteral("count")) {
        QSettings settings(file, QSettings::IniFormat);
        QElapsedTimer timer;
        timer.start();
        const QSettings::Status s =
            vanta::saveSettings(settings, [&](QSettings& to) { to.setValue(key, value); });
        if (status)
            *status = s;
        return timer.elapsed();
    }

    // The folder's entries other than the settings file.
    QStringList leftovers() const {
        QStringList names = QDir(dir).entryList(QDir::Files | QDir::Hidden | QDir::System);
        names.removeAll(QStringLiteral("app.conf"));
        return names;
    }

    // key as another process reads it from the disk.
    QString onDisk(const char* key = "count") const {
        QProcess reader;
        reader.start(QStringLiteral(VANTA_CHILD_PROCESS), {"read", file, key});
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

QByteArray contentOf(const QString& path) {
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<missing>");
}

// Files a user keeps beside the settings, some shaped like the store's temporaries.
const char* const kUserFiles[] = {"app.conf.backup", "app.conf.bak123", "app.conf.orig",
                                  "app.conf.abcdef", "app.conf.Ab3dE9", "other.conf.Zq81xY"};

TEST_F(SettingsStoreTest, RemnantLocksAreClearedAndUserFilesKept) {
    const struct {
        const char* name;
        QByteArray content;
        bool remnant;
    } rows[] = {
        {"app.conf.lock", "", true},         // cut off before its owner was written
        {"app.conf.lock", "garbage", true},  // no process id in it
        {"app.conf.Ab3dE9", "[General]\n", false},  // no save of ours made it
        {"app.conf.backup", "[General]\ncount=1\n", false},
        {"app.conf.bak123", "", false},
        {"app.conf.orig", "x", false},
        {"app.conf.zzzzzz", "", false},
    };
    int count = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const QString path = dir + QLatin1Char('/') + QLatin1String(row.name);
        plant(path, row.content);
        QSettings::Status status = QSettings::FormatError;
        EXPECT_LT(timedSave(++count, &status), kNoStallMs);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(onDisk(), QString::number(count));
        EXPECT_EQ(QFile::exists(path), !row.remnant);
        if (!row.remnant) {
            EXPECT_EQ(contentOf(path), row.content);
        }
        QFile::remove(path);
    }
}

TEST_F(SettingsStoreTest, SaverKilledAtAnyMomentNeverStallsTheNextNorTouchesUserFiles) {
    for (const char* name : kUserFiles)
        plant(dir + QLatin1Char('/') + QLatin1String(name), name);
    QStringList userFiles;
    for (const char* name : kUserFiles)
        userFiles << QString::fromLatin1(name);
    userFiles.sort();
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
        QStringList left = leftovers();
        left.sort();
        EXPECT_EQ(left, userFiles);
    }
    EXPECT_EQ(onDisk(), QStringLiteral("1023"));
    for (const char* name : kUserFiles)
        EXPECT_EQ(contentOf(dir + QLatin1Char('/') + QLatin1String(name)), QByteArray(name));
}

TEST_F(SettingsStoreTest, OnlyTheTemporaryOfAnInterruptedSaveIsRemoved) {
    plant(dir + QStringLiteral("/app.conf.bak123"), "before");
    QProcess saver;
    saver.start(QStringLiteral(VANTA_CHILD_PROCESS), {"crashsave", file});
    ASSERT_TRUE(saver.waitForFinished(10000));
    ASSERT_EQ(saver.exitStatus(), QProcess::CrashExit);
    const QString orphan = dir + QStringLiteral("/app.conf.Qx7Zp2");
    ASSERT_TRUE(QFile::exists(orphan));
    // A user's file made after the interrupted save, as one might after a crash.
    std::this_thread::sleep_for(std::chrono::milliseconds(vanta::kOrphanWindowMs + 300));
    plant(dir + QStringLiteral("/app.conf.new123"), "after");

    QSettings::Status status = QSettings::FormatError;
    EXPECT_LT(timedSave(5, &status), kNoStallMs);
    EXPECT_EQ(status, QSettings::NoError);
    EXPECT_FALSE(QFile::exists(orphan));
    EXPECT_EQ(contentOf(dir + QStringLiteral("/app.conf.bak123")), "before");
    EXPECT_EQ(contentOf(dir + QStringLiteral("/app.conf.new123")), "after");
    EXPECT_EQ(onDisk(), "5");
}

TEST_F(SettingsStoreTest, AnOrphanIsATemporaryMadeWithinTheWindowOfTheInterruptedSave) {
    // The guard's record of a save that never finished names only when it began.
    const QString guardPath = vanta::settingsGuardPath(file);
    ASSERT_FALSE(guardPath.isEmpty());
    const QString temporary = dir + QStringLiteral("/app.conf.Qx7Zp2");
    const struct {
        qint64 madeAfterBeginMs;  // by its status-change time
        bool removed;
    } rows[] = {
        {0, true},
        {vanta::kOrphanWindowMs, true},
        {vanta::kOrphanWindowMs + 1, false},
        {-1000, true},  // file times come from a coarser clock: a second of slack before
        {-1001, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.madeAfterBeginMs);
        plant(temporary, "partial");
        struct stat st;
        ASSERT_EQ(::lstat(QFile::encodeName(temporary).constData(), &st), 0);
        const qint64 made = qint64(st.st_ctim.tv_sec) * 1000 + st.st_ctim.tv_nsec / 1000000;
        plant(guardPath, QByteArray::number(made - row.madeAfterBeginMs));
        QSettings::Status status = QSettings::FormatError;
        timedSave(1, &status);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(QFile::exists(temporary), !row.removed);
        QFile::remove(temporary);
    }
}

TEST_F(SettingsStoreTest, AStoppedLockHolderFailsSavesInTimeAndTheValueStaysInMemory) {
    // The holder locks the application's own settings, which the first-run check saves to.
    const QString appFile = std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings())
                                ->fileName();
    const QString version = VersionInfo::getAppVersionW();
    const auto onDiskVersion = [&] {
        return QSettings(appFile, QSettings::IniFormat).value("currentVersion").toString();
    };
    QFile::remove(appFile);
    ASSERT_TRUE(QDir().mkpath(QFileInfo(appFile).absolutePath()));
    QProcess holder;
    holder.start(QStringLiteral(VANTA_CHILD_PROCESS), {"lockwait", appFile});
    ASSERT_TRUE(holder.waitForReadyRead(10000));
    ASSERT_EQ(holder.readLine().trimmed(), QByteArray("locked"));
    ASSERT_EQ(::kill(pid_t(holder.processId()), SIGSTOP), 0);  // as a debugger or a suspend would

    QElapsedTimer timer;
    timer.start();
    {
        QSettings settings(appFile, QSettings::IniFormat);
        EXPECT_EQ(vanta::saveSettings(settings, [](QSettings& s) { s.setValue("count", 1); }),
                  QSettings::AccessError);
        EXPECT_GE(timer.elapsed(), vanta::kSaveWaitMs);
        EXPECT_LT(timer.elapsed(), kGiveUpMs);
        EXPECT_FALSE(settings.contains("count"));  // not applied, so nothing is left to flush
    }
    // Neither destroying that object nor making and reading another waits on the lock.
    EXPECT_EQ(onDiskVersion(), QString());
    EXPECT_LT(timer.elapsed(), kGiveUpMs);

    // Through the library's own caller: the answer and the value are in memory at once.
    VersionInfo::versionOptions.currentRunVersion.set(QString());
    timer.restart();
    EXPECT_TRUE(VersionInfo::isFirstRunNewVersion());
    EXPECT_LT(timer.elapsed(), kGiveUpMs);
    EXPECT_EQ(VersionInfo::versionOptions.currentRunVersion.getValue(), version);
    EXPECT_EQ(onDiskVersion(), QString());

    ::kill(pid_t(holder.processId()), SIGCONT);
    holder.closeWriteChannel();
    ASSERT_TRUE(holder.waitForFinished(10000));
    timer.restart();
    EXPECT_TRUE(VersionInfo::isFirstRunNewVersion());  // nothing recorded it yet
    EXPECT_LT(timer.elapsed(), kNoStallMs);
    EXPECT_EQ(onDiskVersion(), version);
    EXPECT_FALSE(VersionInfo::isFirstRunNewVersion());
}

TEST_F(SettingsStoreTest, AStoppedSaverNeverBlocksTheNextForLong) {
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE(round);
        QProcess saver;
        saver.start(QStringLiteral(VANTA_CHILD_PROCESS), {"save", file});
        ASSERT_TRUE(saver.waitForReadyRead(10000));
        ASSERT_EQ(::kill(pid_t(saver.processId()), SIGSTOP), 0);
        QSettings::Status status = QSettings::FormatError;
        EXPECT_LT(timedSave(round, &status), kGiveUpMs);
        EXPECT_TRUE(status == QSettings::NoError || status == QSettings::AccessError) << status;
        saver.kill();  // a stopped process dies of SIGKILL too; the kernel drops its locks
        ASSERT_TRUE(saver.waitForFinished(10000));
        EXPECT_LT(timedSave(100 + round, &status), kNoStallMs);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(leftovers(), QStringList());
    }
    EXPECT_EQ(onDisk(), "101");
}

TEST_F(SettingsStoreTest, ALiveSaversGuardIsWaitedForWithinTheLimit) {
    const QString guardPath = vanta::settingsGuardPath(file);
    ASSERT_FALSE(guardPath.isEmpty());
    const struct {
        bool released;  // after 300 ms, else held throughout
        bool noStandardInput;  // so that the saver's guard is descriptor 0
    } rows[] = {{true, false}, {false, false}, {true, true}, {false, true}};
    int value = 0;
    QString saved;
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << "released " << row.released << ", no standard input "
                                          << row.noStandardInput);
        // A second open file takes its own flock, even in this process.
        const int guard = ::open(QFile::encodeName(guardPath).constData(),
                                 O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        ASSERT_GE(guard, 0);
        ASSERT_EQ(::flock(guard, LOCK_EX), 0);
        const int input = row.noStandardInput ? ::fcntl(0, F_DUPFD_CLOEXEC, 3) : -1;
        if (row.noStandardInput)
            ::close(0);
        std::thread holder([&] {
            if (row.released) {
                std::this_thread::sleep_for(std::chrono::milliseconds(300));
                ::close(guard);
            }
        });
        QSettings::Status status = QSettings::FormatError;
        EXPECT_LT(timedSave(++value, &status), kGiveUpMs);
        holder.join();
        if (!row.released)
            ::close(guard);
        if (row.noStandardInput) {
            EXPECT_EQ(::fcntl(0, F_GETFD), -1) << "the saver keeps its guard open";
            if (input >= 0) {
                ::dup2(input, 0);
                ::close(input);
            }
        }
        EXPECT_EQ(status, row.released ? QSettings::NoError : QSettings::AccessError);
        if (row.released)
            saved = QString::number(value);
        EXPECT_EQ(onDisk(), saved);
    }
}

TEST_F(SettingsStoreTest, TheGuardLivesWithTransientFilesNotBesideTheSettings) {
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString temp = vanta::System::getTempDirectory();
    const QString openToAll = vantatest::scratchDir() + QStringLiteral("/shared-runtime");
    ASSERT_TRUE(QDir().mkpath(openToAll));
    ASSERT_EQ(::chmod(QFile::encodeName(openToAll).constData(), 0777), 0);
    const struct {
        const char* runtimeDir;
        QString expectedFolder;
    } rows[] = {
        {nullptr, runtime + QStringLiteral("/vanta-settings/")},
        {"", temp + QStringLiteral("vanta-settings-%1/").arg(::geteuid())},
        {"relative/runtime", temp + QStringLiteral("vanta-settings-%1/").arg(::geteuid())},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.runtimeDir ? row.runtimeDir : "(as set)");
        std::unique_ptr<vantatest::ScopedEnv> env;
        if (row.runtimeDir)
            env = std::make_unique<vantatest::ScopedEnv>("XDG_RUNTIME_DIR",
                                                         *row.runtimeDir ? row.runtimeDir
                                                                         : nullptr);
        QSettings::Status status = QSettings::FormatError;
        timedSave(1, &status);
        EXPECT_EQ(status, QSettings::NoError);
        EXPECT_EQ(leftovers(), QStringList());
        const QString guard = vanta::settingsGuardPath(file);
        EXPECT_TRUE(guard.startsWith(row.expectedFolder)) << guard.toStdString();
        EXPECT_TRUE(QFileInfo::exists(guard)) << guard.toStdString();
    }
    // A runtime folder whose guard folder others could enter is not used.
    vantatest::ScopedEnv env("XDG_RUNTIME_DIR", QFile::encodeName(openToAll).constData());
    ASSERT_TRUE(QDir().mkpath(openToAll + QStringLiteral("/vanta-settings")));
    ASSERT_EQ(::chmod(QFile::encodeName(openToAll + "/vanta-settings").constData(), 0777), 0);
    EXPECT_TRUE(vanta::settingsGuardPath(file).startsWith(temp));
}

TEST_F(SettingsStoreTest, ALockThatIsNoFileFailsTheSaveAtOnce) {
    // A pipe would block the store's read of its owner for ever, a folder its removal.
    const QString lockPath = file + QStringLiteral(".lock");
    for (const bool pipe : {true, false}) {
        SCOPED_TRACE(pipe ? "pipe" : "folder");
        ASSERT_TRUE(pipe ? ::mkfifo(QFile::encodeName(lockPath).constData(), 0600) == 0
                         : QDir().mkdir(lockPath));
        QSettings::Status status = QSettings::NoError;
        EXPECT_LT(timedSave(1, &status), 1000);
        EXPECT_EQ(status, QSettings::AccessError);
        EXPECT_EQ(onDisk(), "");
        EXPECT_TRUE(pipe ? QFileInfo(lockPath).exists() : QFileInfo(lockPath).isDir());
        if (pipe)
            QFile::remove(lockPath);
        else
            QDir().rmdir(lockPath);
    }
    QSettings::Status status = QSettings::FormatError;
    timedSave(2, &status);
    EXPECT_EQ(status, QSettings::NoError);
}

TEST_F(SettingsStoreTest, AWriteCutShortByAFullDiskLeavesTheFileAsItWas) {
    // The store renames a temporary it could not write whole into place and reports success.
    const struct {
        bool existed;
        int takenNames;  // names the copy of the file as it was tries before one is free
    } rows[] = {{true, 0}, {false, 0}, {true, 3}};
    for (const auto& row : rows) {
        SCOPED_TRACE(::testing::Message() << (row.existed ? "over a file" : "no file before")
                                          << ", names taken " << row.takenNames);
        QFile::remove(file);
        if (row.existed)
            plant(file, "[General]\ncount=7\n");
        QProcess saver;
        saver.start(QStringLiteral(VANTA_CHILD_PROCESS),
                    {"fullsave", file, QString::number(row.takenNames)});
        ASSERT_TRUE(saver.waitForFinished(10000));
        EXPECT_EQ(saver.readAllStandardOutput().trimmed(),
                  QByteArray::number(int(QSettings::AccessError)));
        if (row.existed) {
            EXPECT_EQ(contentOf(file), "[General]\ncount=7\n");
        } else {
            EXPECT_FALSE(QFile::exists(file));
        }
        EXPECT_EQ(leftovers(), QStringList());
    }
}

TEST_F(SettingsStoreTest, FailedSavesAreReportedWithTheirCause) {
    // A settings file whose folder is a plain file can be neither created nor written; one whose
    // section header is never closed cannot be read.
    plant(dir + QStringLiteral("/blocked"), "");
    plant(file, "[General\ncount=1\n");
    const struct {
        QString path;
        QSettings::Status status;
        const char* cause;
    } rows[] = {
        {dir + QStringLiteral("/blocked/app.conf"), QSettings::AccessError, "access error"},
        {file, QSettings::FormatError, "format error"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.cause);
        QSettings settings(row.path, QSettings::IniFormat);
        FILE* log = std::tmpfile();
        ASSERT_NE(log, nullptr);
        FILE* const oldLog = vanta::LM_ERROR;
        vanta::LM_ERROR = log;
        EXPECT_EQ(vanta::saveSettings(settings, [](QSettings& s) { s.setValue("count", 2); }),
                  row.status);
        vanta::LM_ERROR = oldLog;
        char text[512] = {};
        std::rewind(log);
        const size_t length = std::fread(text, 1, sizeof text - 1, log);
        std::fclose(log);
        EXPECT_EQ(std::string(text, length),
                  QStringLiteral("%1: settings not saved to %2 (%3)\n")
                      .arg(vanta::System::sCurFrame)
                      .arg(row.path, QLatin1String(row.cause))
                      .toStdString());
    }
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
