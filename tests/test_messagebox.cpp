// Tests of System::AsyncMessageBox: which box appears, and that it appears later on the UI thread.
#include <vanta/qttimermanager.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QProcess>
#include <QTimer>

#include <dlfcn.h>

#include <cstdlib>
#include <thread>

VANTA_TEST_NEEDS_GUI();

using namespace vanta;

TEST(AsyncMessageBox, TypeChoosesTheBoxShownLaterOnTheUiThread) {
    QtTimerManager manager;
    const struct {
        System::MessageType type;
        bool fromWorker;
        QMessageBox::Icon icon;
    } rows[] = {
        {System::kMessageWarning, false, QMessageBox::Warning},
        {System::kMessageInformation, false, QMessageBox::Information},
        {System::MessageType(7), false, QMessageBox::Information},
        {System::kMessageWarning, true, QMessageBox::Warning},
    };
    for (const auto& row : rows) {
        const QString title = QStringLiteral("Type %1 worker %2").arg(row.type).arg(row.fromWorker);
        auto post = [&] { System::AsyncMessageBox(row.type, title, QStringLiteral("Text")); };
        row.fromWorker ? std::thread(post).join() : post();
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr) << "shown later, not at once";
        // The modal box runs a nested event loop: a timer firing inside it checks the box and
        // closes it as a user's click would.
        int seen = 0;
        QTimer watcher;
        QObject::connect(&watcher, &QTimer::timeout, [&] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box)
                return;
            ++seen;
            EXPECT_EQ(box->icon(), row.icon) << title.toStdString();
            EXPECT_EQ(box->windowTitle(), title);
            EXPECT_EQ(box->text(), QStringLiteral("Text"));
            box->done(0);
        });
        watcher.start(5);
        vantatest::waitUntil([&] { return QCoreApplication::processEvents(), seen > 0; });
        ASSERT_EQ(seen, 1) << title.toStdString();
    }
}

// Shows one box from the core and waits until it appears (closing it) or the events run dry;
// whether a box appeared.
bool showOneBox(const QString& title, const QString& text) {
    QtTimerManager manager;
    System::AsyncMessageBox(System::kMessageWarning, title, text);
    bool seen = false;
    QTimer watcher;
    QObject::connect(&watcher, &QTimer::timeout, [&] {
        if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
            seen = box->text() == text;
            box->done(0);
        }
    });
    watcher.start(5);
    vantatest::waitUntil([&] { return QCoreApplication::processEvents(), seen; },
                         std::chrono::seconds(2));
    return seen;
}

// This suite links only the core library: the box above came from the widgets library, loaded by
// the core from its own folder. Here the core runs from a copy in a folder without it (found
// first through LD_LIBRARY_PATH), in child runs of this suite: with the widgets library elsewhere
// on the loader's path the box still appears; with it nowhere, the log says why and keeps the
// message.
TEST(AsyncMessageBox, TheCoreFindsTheWidgetsLibraryOrLogs) {
    if (const char* expect = std::getenv("VANTA_MESSAGEBOX_CHILD")) {
        EXPECT_EQ(showOneBox(QStringLiteral("Title"), QStringLiteral("Kept in the log")),
                  QByteArray(expect) == "box");
        return;
    }
    Dl_info core{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(&System::AsyncMessageBox), &core), 0);
    const QFileInfo coreFile(QString::fromLocal8Bit(core.dli_fname));
    const QString alone = vantatest::scratchDir() + QStringLiteral("/core-alone");
    ASSERT_TRUE(QDir().mkpath(alone));
    const QString copy = alone + QLatin1Char('/') + coreFile.fileName();
    QFile::remove(copy);
    ASSERT_TRUE(QFile::copy(coreFile.filePath(), copy));

    const struct {
        const char* expect;
        QString libraryPath;
    } rows[] = {
        {"box", alone + QLatin1Char(':') + coreFile.absolutePath()},
        {"log", alone},
    };
    for (const auto& row : rows) {
        QProcess child;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("VANTA_MESSAGEBOX_CHILD"), QLatin1String(row.expect));
        env.insert(QStringLiteral("LD_LIBRARY_PATH"), row.libraryPath);
        child.setProcessEnvironment(env);
        child.start(QCoreApplication::applicationFilePath(),
                    {QStringLiteral("--gtest_filter=AsyncMessageBox.TheCoreFindsTheWidgetsLibraryOrLogs")});
        ASSERT_TRUE(child.waitForFinished(60000));
        const QString log = QString::fromLocal8Bit(child.readAllStandardError());
        const QString out = QString::fromLocal8Bit(child.readAllStandardOutput());
        EXPECT_EQ(child.exitCode(), 0) << row.expect << "\n" << out.toStdString() << log.toStdString();
        const bool logged = log.contains(QStringLiteral("Title: Kept in the log"));
        EXPECT_EQ(logged, QByteArray(row.expect) == "log") << log.toStdString();
        EXPECT_EQ(log.contains(QStringLiteral("cannot load libvantabase-widgets.so.")), logged)
            << log.toStdString();
    }
}

// A program with no Qt application object at all gets the message in the log, and no box.
TEST(AsyncMessageBox, WithoutAnApplicationTheMessageGoesToTheLog) {
    QProcess child;
    child.start(QStringLiteral(VANTA_CHILD_PROCESS), {QStringLiteral("messagebox")});
    ASSERT_TRUE(child.waitForFinished(60000));
    const QString log = QString::fromLocal8Bit(child.readAllStandardError());
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit) << log.toStdString();
    EXPECT_EQ(child.readAllStandardOutput().trimmed(), QByteArray("done"));
    EXPECT_TRUE(log.contains(QStringLiteral("Title: No application"))) << log.toStdString();
    EXPECT_FALSE(log.contains(QStringLiteral("cannot load"))) << log.toStdString();
}
