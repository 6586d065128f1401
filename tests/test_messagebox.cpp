// Tests of System::AsyncMessageBox: which box appears, on which thread, and that it cleans up.
#include <vanta/qttimermanager.h>
#include <vanta/system.h>
#include <vanta/timer.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QMessageBox>
#include <QPointer>
#include <QTimer>

#include <thread>

VANTA_TEST_NEEDS_GUI();

using namespace vanta;

namespace {

// What the box on screen looked like when the watcher closed it.
struct SeenBox {
    int count = 0;
    QMessageBox::Icon icon = QMessageBox::NoIcon;
    QString title, text;
    bool onUiThread = false;
};

// Runs the event loop until a modal message box shows, notes it and closes it, as a user would
// click its button; gives up after limitMs. The box runs its own nested event loop, so the
// watcher is a timer that fires inside it.
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
        seen.onUiThread = box->thread() == QApplication::instance()->thread();
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

TEST(AsyncMessageBox, TypeChoosesWarningOrInformation) {
    QtTimerManager manager;
    const struct {
        System::MessageType type;
        QMessageBox::Icon icon;
    } rows[] = {
        {System::kMessageWarning, QMessageBox::Warning},
        {System::kMessageInformation, QMessageBox::Information},
        {System::MessageType(7), QMessageBox::Information},
    };
    for (const auto& row : rows) {
        System::AsyncMessageBox(row.type, QStringLiteral("Title %1").arg(row.type),
                                QStringLiteral("Text"));
        EXPECT_EQ(QApplication::activeModalWidget(), nullptr) << "shown later, not at once";
        const SeenBox seen = closeNextBox();
        ASSERT_EQ(seen.count, 1) << "type " << row.type;
        EXPECT_EQ(seen.icon, row.icon) << "type " << row.type;
        EXPECT_EQ(seen.title, QStringLiteral("Title %1").arg(row.type));
        EXPECT_EQ(seen.text, QStringLiteral("Text"));
    }
}

TEST(AsyncMessageBox, FromAWorkerShowsOnTheUiThreadAndDeletesItself) {
    QtTimerManager manager;
    Timer::SyncMethod* slot = nullptr;
    std::thread worker([&] {
        auto* box = new AsyncMessageBox(System::kMessageWarning, QStringLiteral("Worker"),
                                        QStringLiteral("from a thread"));
        box->doneSlot = &slot;
        slot = box;
        Timer::executeAsync(*box);
    });
    worker.join();
    ASSERT_NE(slot, nullptr);
    const SeenBox seen = closeNextBox();
    ASSERT_EQ(seen.count, 1);
    EXPECT_TRUE(seen.onUiThread);
    EXPECT_EQ(seen.title, QStringLiteral("Worker"));
    EXPECT_EQ(slot, nullptr) << "the box deletes itself once closed";
}
