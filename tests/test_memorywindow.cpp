// Tests of the low-memory message: the dialog's layout, the answer codes, and the suppression
// list kept in the user application settings. Runs on the offscreen platform.
#include <vanta/ui/memorywindow.h>
#include <vanta/versioninfo.h>

#include "testsupport.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QPushButton>
#include <QSettings>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

VANTA_TEST_NEEDS_GUI();

using vanta::MemoryWindow;

namespace {

const QString kEntryList = QStringLiteral("MessageEntryList");

std::unique_ptr<QSettings> userSettings() {
    return std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings());
}

// What the dialog looked like while it was up.
struct Seen {
    bool shown = false;
    bool boxVisible = false, boxChecked = false, button1Visible = false, linkVisible = false;
    QStringList texts;  // label, button 0, button 1, link, caption, object name
};

// Shows a message and, once the dialog runs, records what it shows and performs `answer` on
// it. A dialog still up after five seconds is cancelled, so a broken answer fails the test
// instead of hanging it. The timers die with `guard` when the call returns.
int show(const std::function<void(memoryDialog*)>& answer, Seen* seen = nullptr,
         const QString& id = QStringLiteral("low-memory"), bool checked = false,
         const QString& link = QStringLiteral("http://example.org/help"),
         const QString& button1 = QStringLiteral("Quit")) {
    if (seen)
        *seen = Seen();
    QObject guard;
    QTimer::singleShot(0, &guard, [&] {
        memoryDialog* d = MemoryWindow::MEMDialog;
        if (!d)
            return;
        if (seen) {
            seen->shown = d->isVisible();
            seen->boxVisible = d->checkBox4->isVisible();
            seen->boxChecked = d->checkBox4->isChecked();
            seen->button1Visible = d->button1Text->isVisible();
            seen->linkVisible = d->updateURLButton->isVisible();
            seen->texts = QStringList{d->memoryDialogTextBox->text(), d->button0Text->text(),
                                      d->button1Text->text(), d->updateURLButton->text(),
                                      d->windowTitle(), d->objectName()};
        }
        answer(d);
    });
    QTimer::singleShot(5000, &guard, [] {
        if (MemoryWindow::MEMDialog)
            MemoryWindow::MEMDialog->reject();
    });
    return MemoryWindow::ShowMemoryMessage(nullptr, id, checked, QStringLiteral("Caption"),
                                           QStringLiteral("Running low"), QStringLiteral("Go on"),
                                           link, button1);
}

void clickButton0(memoryDialog* d) { d->button0Text->click(); }

class MemoryWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        userSettings()->clear();
        MemoryWindow::mCurrentEntries.clear();
    }
};

TEST_F(MemoryWindowTest, AnswerCodes) {
    const struct {
        const char* label;
        std::function<void(memoryDialog*)> answer;
        int expected;
    } rows[] = {
        {"button 0", clickButton0, 0},
        {"button 1", [](memoryDialog* d) { d->button1Text->click(); }, 1},
        {"cancel", [](memoryDialog* d) { d->cancelButton_clicked(); }, -1},
        {"escape / window closed", [](memoryDialog* d) { d->reject(); }, -1},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(show(row.answer), row.expected) << row.label;
        EXPECT_EQ(MemoryWindow::MEMDialog, nullptr) << row.label;
    }
}

TEST_F(MemoryWindowTest, ShowsTheGivenTextsAndHidesNullOnes) {
    Seen seen;
    EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("msg-7"), true), 0);
    EXPECT_TRUE(seen.shown && seen.boxVisible && seen.button1Visible && seen.linkVisible);
    EXPECT_TRUE(seen.boxChecked);  // the given initial state
    EXPECT_EQ(seen.texts, QStringList({"Running low", "Go on", "Quit", "http://example.org/help",
                                       "Caption", "msg-7"}));

    EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("one"), false, QString(), QString()), 0);
    EXPECT_TRUE(seen.shown);
    EXPECT_FALSE(seen.button1Visible);
    EXPECT_FALSE(seen.linkVisible);
    // Empty but not null texts still show their widgets.
    EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("one"), false, QLatin1String(""),
                   QLatin1String("")),
              0);
    EXPECT_TRUE(seen.button1Visible && seen.linkVisible);
}

TEST_F(MemoryWindowTest, TickedBoxSuppressesTheId) {
    auto tickAndGo = [](memoryDialog* d) {
        d->checkBox4->setChecked(true);
        d->button1Text->click();
    };
    EXPECT_EQ(show(tickAndGo, nullptr, QStringLiteral("A")), 1);
    EXPECT_EQ(userSettings()->value(kEntryList).toStringList(), QStringList{QStringLiteral("A")});

    Seen seen;
    EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("A")), -2);
    EXPECT_FALSE(seen.shown);
    EXPECT_NE(MemoryWindow::MEMDialog, nullptr);  // kept for the next message
    // Ids compare exactly, and other ids are still shown.
    EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("a")), 0);
    EXPECT_TRUE(seen.shown);
    EXPECT_EQ(show(tickAndGo, nullptr, QStringLiteral("B")), 1);
    EXPECT_EQ(userSettings()->value(kEntryList).toStringList(),
              (QStringList{QStringLiteral("A"), QStringLiteral("B")}));

    // The list survives in the settings, not only in memory.
    MemoryWindow::mCurrentEntries.clear();
    EXPECT_EQ(show(clickButton0, nullptr, QStringLiteral("B")), -2);
}

TEST_F(MemoryWindowTest, ResetEntryClearsSuppressionWhateverItsValue) {
    for (const bool value : {false, true}) {
        SCOPED_TRACE(value);
        userSettings()->setValue(kEntryList, QStringList{QStringLiteral("A")});
        ASSERT_EQ(show(clickButton0, nullptr, QStringLiteral("A")), -2);
        userSettings()->setValue(QStringLiteral("resetMessages"), value);

        Seen seen;
        EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("A")), 0);
        EXPECT_TRUE(seen.shown);
        EXPECT_FALSE(userSettings()->contains(QStringLiteral("resetMessages")));
        EXPECT_FALSE(userSettings()->contains(kEntryList));
        EXPECT_TRUE(MemoryWindow::mCurrentEntries.isEmpty());
    }
}

TEST_F(MemoryWindowTest, EmptyIdIsNeverSuppressed) {
    Seen seen;
    auto tickAndGo = [](memoryDialog* d) {
        d->checkBox4->setChecked(true);
        d->button0Text->click();
    };
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(show(tickAndGo, &seen, QString(), true), 0);
        EXPECT_TRUE(seen.shown);
        EXPECT_FALSE(seen.boxVisible);
    }
    EXPECT_FALSE(userSettings()->contains(kEntryList));
}

TEST_F(MemoryWindowTest, CorruptSettingsFileShowsTheMessage) {
    const QString path = userSettings()->fileName();
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write("[General\nMessageEntryList=@Variant(\\0\\0\\xff\nresetMessages\n\x01\x02");
    file.close();
    Seen seen;
    EXPECT_EQ(show(clickButton0, &seen, QStringLiteral("A")), 0);
    EXPECT_TRUE(seen.shown);
}

TEST(MemoryDialog, LayoutAndDefaults) {
    memoryDialog named(nullptr, "custom");
    EXPECT_EQ(named.objectName(), QStringLiteral("custom"));

    memoryDialog d;
    EXPECT_EQ(d.objectName(), QStringLiteral("memoryDialog"));
    EXPECT_EQ(QStringList({d.windowTitle(), d.memoryDialogTextBox->text(), d.checkBox4->text(),
                           d.button0Text->text(), d.button1Text->text()}),
              QStringList({"", "Specify Text Here", "Don't show this message again", "Button 0",
                           "Button 1"}));
    EXPECT_TRUE(d.updateURLButton->text().startsWith(QStringLiteral("http://")));

    QLayout* layout = d.layout();
    ASSERT_NE(layout, nullptr);
    EXPECT_EQ(layout->contentsMargins(), QMargins(11, 11, 11, 11));
    EXPECT_EQ(layout->spacing(), 6);
    EXPECT_EQ(layout->sizeConstraint(), QLayout::SetFixedSize);
    // Top to bottom: text, link, then the row of box, spacer and buttons.
    ASSERT_EQ(layout->count(), 3);
    EXPECT_EQ(layout->itemAt(0)->widget(), d.memoryDialogTextBox);
    EXPECT_EQ(layout->itemAt(1)->widget(), d.updateURLButton);
    QLayout* row = layout->itemAt(2)->layout();
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->spacing(), 6);
    ASSERT_EQ(row->count(), 4);
    EXPECT_EQ(row->itemAt(0)->widget(), d.checkBox4);
    EXPECT_NE(row->itemAt(1)->spacerItem(), nullptr);
    EXPECT_EQ(row->itemAt(2)->widget(), d.button0Text);
    EXPECT_EQ(row->itemAt(3)->widget(), d.button1Text);

    // The link button looks like a link.
    EXPECT_TRUE(d.updateURLButton->isFlat());
    EXPECT_EQ(d.updateURLButton->palette().color(QPalette::ButtonText), QColor(0, 0, 204));
    EXPECT_TRUE(d.updateURLButton->font().underline());
    EXPECT_EQ(d.updateURLButton->cursor().shape(), Qt::PointingHandCursor);
}

TEST_F(MemoryWindowTest, LinkOpensInTheBrowser) {
    // A fake browser opener first on PATH records the address it was given.
    const QString bin = vantatest::scratchDir() + QStringLiteral("/fakebin");
    const QString record = vantatest::scratchDir() + QStringLiteral("/opened.txt");
    QDir().mkpath(bin);
    QFile script(bin + QStringLiteral("/xdg-open"));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(QStringLiteral("#!/bin/sh\nprintf '%s' \"$1\" > '%1.tmp' && mv '%1.tmp' '%1'\n")
                     .arg(record)
                     .toUtf8());
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    const QByteArray path = bin.toUtf8() + ":" + qgetenv("PATH");
    vantatest::ScopedEnv env("PATH", path.constData());

    EXPECT_EQ(show([](memoryDialog* d) {
                  d->updateURLButton->click();
                  d->button0Text->click();
              }),
              0);
    ASSERT_TRUE(vantatest::waitUntil([&] { return QFile::exists(record); }));
    QFile opened(record);
    ASSERT_TRUE(opened.open(QIODevice::ReadOnly));
    EXPECT_EQ(opened.readAll(), QByteArray("http://example.org/help"));
}

TEST_F(MemoryWindowTest, RendersToAPicture) {
    // Left in the build tree so a person can look at the dialog.
    const QString png = QCoreApplication::applicationDirPath() + QStringLiteral("/memorydialog.png");
    QFile::remove(png);
    bool saved = false;
    EXPECT_EQ(show([&](memoryDialog* d) {
                  saved = d->grab().save(png, "PNG");
                  d->button0Text->click();
              }),
              0);
    ASSERT_TRUE(saved);
    const QImage image(png);
    EXPECT_FALSE(image.isNull());
    EXPECT_GT(image.width(), image.height());
}

}  // namespace
