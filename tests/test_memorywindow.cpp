// Tests of the low-memory message: the dialog's layout, the answer codes, and the suppression
// list kept in the user application settings. Runs on the offscreen platform.
#include <vanta/ui/memorywindow.h>
#include <vanta/versioninfo.h>

#include "testsupport.h"

#include <QCheckBox>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QLabel>
#include <QLayout>
#include <QProcess>
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
using Answer = std::function<void(memoryDialog*)>;

std::unique_ptr<QSettings> userSettings() {
    return std::unique_ptr<QSettings>(VersionInfo::createUserAppSettings());
}

// The settings file's path, taken before a test runs: making a QSettings later would flush
// whatever another one left pending.
QString gSettingsFile;

// The suppression list as a new process reads it from the settings file: what survives a
// restart, out of reach of this process's settings cache.
QStringList entriesAfterRestart() {
    QProcess reader;
    reader.start(QStringLiteral(VANTA_CHILD_PROCESS),
                 {QStringLiteral("read"), gSettingsFile, kEntryList});
    if (!reader.waitForFinished(10000) || reader.exitCode() != 0)
        return {QStringLiteral("<reader failed>")};
    const QString out = QString::fromUtf8(reader.readAllStandardOutput()).trimmed();
    return out.isEmpty() ? QStringList() : out.split(QLatin1Char(','));
}

// What the dialog showed while it was up: which of "shown box checked button1 link" held, then
// the label, button 0, button 1, link, caption and object name. Empty if it never ran.
using Seen = QStringList;

// Shows a message, records what the running dialog shows and performs `answer` on it. A dialog
// still up after five seconds is cancelled, so a broken answer fails instead of hanging.
int show(const Answer& answer, Seen* seen = nullptr,
         const QString& id = QStringLiteral("low-memory"), bool checked = false,
         const QString& link = QStringLiteral("http://example.org/help"),
         const QString& button1 = QStringLiteral("Quit")) {
    if (seen)
        *seen = Seen();
    QObject guard;  // the timers die with it when the call returns
    QTimer::singleShot(0, &guard, [&] {
        memoryDialog* d = MemoryWindow::MEMDialog;
        if (!d)
            return;
        const std::pair<bool, const char*> flags[] = {
            {d->isVisible(), "shown"}, {d->checkBox4->isVisible(), "box"},
            {d->checkBox4->isChecked(), "checked"}, {d->button1Text->isVisible(), "button1"},
            {d->updateURLButton->isVisible(), "link"}};
        QStringList on;
        for (const auto& [set, name] : flags)
            on << (set ? name : "");
        if (seen)
            *seen = {on.join(' ').simplified(), d->memoryDialogTextBox->text(),
                     d->button0Text->text(), d->button1Text->text(), d->updateURLButton->text(),
                     d->windowTitle(), d->objectName()};
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
void tickAndClick1(memoryDialog* d) {
    d->checkBox4->setChecked(true);
    d->button1Text->click();
}

class MemoryWindowTest : public ::testing::Test {
protected:
    void SetUp() override {
        gSettingsFile = userSettings()->fileName();
        userSettings()->clear();
        MemoryWindow::mCurrentEntries.clear();
    }
};

TEST_F(MemoryWindowTest, AnswerCodes) {
    const struct {
        const char* label;
        Answer answer;
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
    EXPECT_EQ(show(clickButton0, &seen, "msg-7", true), 0);
    EXPECT_EQ(seen, QStringList({"shown box checked button1 link", "Running low", "Go on", "Quit",
                                 "http://example.org/help", "Caption", "msg-7"}));
    // Null texts hide their widgets; empty but not null ones still show them.
    EXPECT_EQ(show(clickButton0, &seen, "one", false, QString(), QString()), 0);
    EXPECT_EQ(seen.value(0), "shown box");
    EXPECT_EQ(show(clickButton0, &seen, "one", false, QLatin1String(""), QLatin1String("")), 0);
    EXPECT_EQ(seen.value(0), "shown box button1 link");
}

TEST_F(MemoryWindowTest, TickedBoxSuppressesTheId) {
    EXPECT_EQ(show(tickAndClick1, nullptr, "A"), 1);
    EXPECT_EQ(entriesAfterRestart(), QStringList{"A"});
    Seen seen;
    EXPECT_EQ(show(clickButton0, &seen, "A"), -2);
    EXPECT_EQ(seen.value(0), "");
    EXPECT_NE(MemoryWindow::MEMDialog, nullptr);  // kept for the next message
    // Ids compare exactly, and other ids are still shown.
    EXPECT_EQ(show(clickButton0, &seen, "a"), 0);
    EXPECT_EQ(seen.value(0), "shown box button1 link");
    EXPECT_EQ(show(tickAndClick1, nullptr, "B"), 1);
    EXPECT_EQ(entriesAfterRestart(), (QStringList{"A", "B"}));
    // The list survives in the settings, not only in memory.
    MemoryWindow::mCurrentEntries.clear();
    EXPECT_EQ(show(clickButton0, nullptr, "B"), -2);
    // An empty id is never suppressed: its box is hidden and ticking it records nothing.
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(show(tickAndClick1, &seen, QString()), 1);
        EXPECT_EQ(seen.value(0), "shown button1 link");
    }
    EXPECT_EQ(userSettings()->value(kEntryList).toStringList(), (QStringList{"A", "B"}));
}

TEST_F(MemoryWindowTest, ResetEntryClearsSuppressionWhateverItsValue) {
    for (const bool value : {false, true}) {
        SCOPED_TRACE(value);
        userSettings()->setValue(kEntryList, QStringList{"A"});
        ASSERT_EQ(show(clickButton0, nullptr, "A"), -2);
        userSettings()->setValue(QStringLiteral("resetMessages"), value);
        Seen seen;
        EXPECT_EQ(show(clickButton0, &seen, "A"), 0);
        EXPECT_EQ(seen.value(0), "shown box button1 link");
        EXPECT_FALSE(userSettings()->contains(QStringLiteral("resetMessages")));
        EXPECT_FALSE(userSettings()->contains(kEntryList));
        EXPECT_EQ(entriesAfterRestart(), QStringList());
        EXPECT_TRUE(MemoryWindow::mCurrentEntries.isEmpty());
    }
}

TEST_F(MemoryWindowTest, EveryWriteClearsAKilledSavesLockAndKeepsUserFiles) {
    // A lock file without an owner, as a save killed midway leaves it (it would stall a plain
    // save for 30 s), beside a user's file shaped like the store's temporaries.
    const auto plant = [] {
        QDir().mkpath(QFileInfo(gSettingsFile).absolutePath());
        for (const char* suffix : {".lock", ".Ab3dE9"}) {
            QFile file(gSettingsFile + QLatin1String(suffix));
            if (!file.open(QIODevice::WriteOnly))
                return false;
        }
        return true;
    };
    const auto cleared = [] {
        return !QFile::exists(gSettingsFile + ".lock") && QFile::exists(gSettingsFile + ".Ab3dE9");
    };
    ASSERT_TRUE(plant());
    EXPECT_EQ(show(tickAndClick1, nullptr, "A"), 1);
    EXPECT_TRUE(cleared()) << "suppressing";
    userSettings()->setValue(QStringLiteral("resetMessages"), true);
    ASSERT_TRUE(plant());
    MemoryWindow::mCurrentEntries.clear();
    EXPECT_EQ(show(clickButton0, nullptr, "A"), 0);
    EXPECT_TRUE(cleared()) << "reset on request";
    userSettings()->setValue(kEntryList, QStringList{"A"});
    ASSERT_TRUE(plant());
    MemoryWindow::ResetAllValues();
    EXPECT_TRUE(cleared()) << "reset";
    EXPECT_EQ(entriesAfterRestart(), QStringList());
}

TEST_F(MemoryWindowTest, CorruptSettingsFileShowsTheMessage) {
    const QString path = userSettings()->fileName();
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write("[General\nMessageEntryList=@Variant(\\0\\0\\xff\nresetMessages\n\x01\x02");
    file.close();
    Seen seen;
    EXPECT_EQ(show(clickButton0, &seen, "A"), 0);
    EXPECT_EQ(seen.value(0), "shown box button1 link");
}

TEST(MemoryDialog, LayoutAndDefaults) {
    EXPECT_EQ(memoryDialog(nullptr, "custom").objectName(), QStringLiteral("custom"));
    memoryDialog d;
    EXPECT_EQ(QStringList({d.objectName(), d.windowTitle(), d.memoryDialogTextBox->text(),
                           d.checkBox4->text(), d.button0Text->text(), d.button1Text->text()}),
              QStringList({"memoryDialog", "", "Specify Text Here", "Don't show this message again",
                           "Button 0", "Button 1"}));
    EXPECT_TRUE(d.updateURLButton->text().startsWith(QStringLiteral("http://")));
    // Top to bottom: text, link, then the row of box, spacer and buttons.
    QLayout* layout = d.layout();
    ASSERT_TRUE(layout && layout->count() == 3 && layout->itemAt(2)->layout());
    QLayout* row = layout->itemAt(2)->layout();
    ASSERT_EQ(row->count(), 4);
    EXPECT_EQ(layout->contentsMargins(), QMargins(11, 11, 11, 11));
    EXPECT_EQ(QList<int>({layout->spacing(), row->spacing()}), QList<int>({6, 6}));
    EXPECT_EQ(layout->sizeConstraint(), QLayout::SetFixedSize);
    EXPECT_NE(row->itemAt(1)->spacerItem(), nullptr);
    EXPECT_EQ(QList<QWidget*>({layout->itemAt(0)->widget(), layout->itemAt(1)->widget(),
                               row->itemAt(0)->widget(), row->itemAt(2)->widget(),
                               row->itemAt(3)->widget()}),
              QList<QWidget*>({d.memoryDialogTextBox, d.updateURLButton, d.checkBox4,
                               d.button0Text, d.button1Text}));
    // The link button looks like a link.
    EXPECT_TRUE(d.updateURLButton->isFlat());
    for (const QPalette::ColorRole role : {QPalette::ButtonText, QPalette::WindowText})
        EXPECT_EQ(d.updateURLButton->palette().color(role), QColor(0, 0, 204)) << role;
    EXPECT_TRUE(d.updateURLButton->font().underline());
    EXPECT_EQ(d.updateURLButton->cursor().shape(), Qt::PointingHandCursor);
}

TEST_F(MemoryWindowTest, LinkOpensInTheBrowserAndRenders) {
    // A fake opener first on PATH records the address it was given.
    const QString bin = vantatest::scratchDir() + QStringLiteral("/fakebin");
    const QString record = vantatest::scratchDir() + QStringLiteral("/opened.txt");
    QDir().mkpath(bin);
    QFile script(bin + QStringLiteral("/xdg-open"));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(QStringLiteral("#!/bin/sh\nprintf '%s' \"$1\" > '%1.tmp' && mv '%1.tmp' '%1'\n")
                     .arg(record).toUtf8());
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    vantatest::ScopedEnv env("PATH", (bin.toUtf8() + ":" + qgetenv("PATH")).constData());
    // The picture is left in the build tree so a person can look at the dialog.
    const QString png = QCoreApplication::applicationDirPath() + "/memorydialog.png";
    QFile::remove(png);
    bool saved = false;
    EXPECT_EQ(show([&](memoryDialog* d) {
                  saved = d->grab().save(png, "PNG");
                  d->updateURLButton->click();
                  d->button0Text->click();
              }), 0);
    ASSERT_TRUE(vantatest::waitUntil([&] { return QFile::exists(record); }));
    QFile opened(record);
    ASSERT_TRUE(opened.open(QIODevice::ReadOnly));
    EXPECT_EQ(opened.readAll(), QByteArray("http://example.org/help"));
    ASSERT_TRUE(saved);
    const QImage image(png);
    EXPECT_TRUE(!image.isNull() && image.width() > image.height());
}

}  // namespace
