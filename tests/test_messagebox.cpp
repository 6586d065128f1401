// Tests of System::AsyncMessageBox: which box appears, and on which thread.
#include <vanta/qttimermanager.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QThread>
#include <QTimer>

#include <thread>

VANTA_TEST_NEEDS_GUI();

using namespace vanta;

namespace {

struct SeenBox {
    int count = 0;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString title, text;
    bool onUiThread = false;
};

// Runs the event loop until a modal message box shows, notes it and closes it as a user's click
// would; gives up after limitMs. The box runs a nested event loop, so the watcher is a timer that
// fires inside it.
SeenBox closeNextBox(int limitMs = 10000) {
    SeenBox seen;
    QTimer watcher;
    QObject::connect(&watcher, &QTimer::timeout, [&] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        if (!box)
            return;
        ++seen.count;
        seen.icon = box->icon();
        seen.title = box->windowTitle();
        seen.text = box->text();
        seen.onUiThread = QThread::currentThread() == QApplication::instance()->thread();
        box->done(0);
    });
    watcher.start(5);
    QElapsedTimer clock;
    clock.start();
    while (seen.count == 0 && clock.elapsed() < limitMs)
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    return seen;
}

}  // namespace

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
        if (row.fromWorker)
            std::thread(post).join();
        else
            post();
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr) << "shown later, not at once";
        const SeenBox seen = closeNextBox();
        ASSERT_EQ(seen.count, 1) << title.toStdString();
        EXPECT_EQ(seen.icon, row.icon) << title.toStdString();
        EXPECT_EQ(seen.title, title);
        EXPECT_EQ(seen.text, QStringLiteral("Text"));
        EXPECT_TRUE(seen.onUiThread);
    }
}
