// Tests of System::AsyncMessageBox: which box appears, and that it appears later on the UI thread.
#include <vanta/qttimermanager.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QTimer>

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
