/// \file
/// The low-memory message: the dialog memoryDialog and vanta::MemoryWindow, which shows it and
/// remembers the messages the user chose not to see again.
#pragma once

#include <vanta/export.h>
#include <QDialog>
#include <QString>
#include <QStringList>

class QCheckBox;
class QLabel;
class QPushButton;
class QWidget;

/// A message with a link-styled address button, up to two answer buttons and a "Don't show this
/// message again" box, laid out top to bottom. The pressed button's code lands in resultCode:
/// 0 or 1 for the answer buttons, -1 for cancel (also when the dialog is closed or escaped).
/// Main thread only.
class VANTA_EXPORT memoryDialog : public QDialog {
    Q_OBJECT

public:
    /// Object name "memoryDialog" unless name is given.
    explicit memoryDialog(QWidget* parent = nullptr, const char* name = nullptr, bool modal = false,
                          Qt::WindowFlags flags = Qt::WindowFlags());
    ~memoryDialog() override;

    /// The message text.
    QLabel* memoryDialogTextBox;
    /// The link-styled address button.
    QPushButton* updateURLButton;
    /// The "Don't show this message again" box.
    QCheckBox* checkBox4;
    /// The first answer button (code 0).
    QPushButton* button0Text;
    /// The second answer button (code 1).
    QPushButton* button1Text;

    /// The pressed button's code; -1 until one is pressed.
    int resultCode = -1;

public slots:
    /// Records 0 and accepts.
    virtual void button0Text_clicked();
    /// Records 1 and accepts.
    virtual void button1Text_clicked();
    /// Records -1 and rejects.
    virtual void cancelButton_clicked();
    /// Opens the link button's text in the user's browser.
    virtual void updateURLButton_clicked();
    /// The box was ticked or cleared.
    virtual void checkBox4_toggled(bool on);

protected slots:
    /// Sets the default texts (and an empty caption).
    virtual void languageChange();

private:
    void init();
};

namespace vanta {

/// Shows memoryDialog as a modal message and keeps the list of suppressed message ids in the
/// user application settings ("MessageEntryList"). Main thread only; not reentrant.
class VANTA_EXPORT MemoryWindow {
public:
    /// The dialog being shown, null when none.
    static memoryDialog* MEMDialog;
    /// Suppressed message ids, in the order they were added.
    static QStringList mCurrentEntries;
    /// Kept for client code; not consulted here.
    static bool bInitialized;

    /// Shows the message modally and blocks until it is answered. Returns 0 or 1 for the answer
    /// buttons, -1 for cancel or when the dialog cannot be created, and -2 at once, showing
    /// nothing, when the user earlier ticked "Don't show this message again" for id. An empty id
    /// is never suppressed (its box is hidden); a null button1 or link hides that button. A
    /// "resetMessages" entry in the settings, whatever its value, clears every suppression first.
    static int ShowMemoryMessage(QWidget* parent, QString id, bool checked, QString caption,
                                 QString text, const QString& button0, const QString& link,
                                 const QString& button1);
    /// Forgets every suppressed id, in memory and in the settings.
    static void ResetAllValues();
};

}  // namespace vanta
