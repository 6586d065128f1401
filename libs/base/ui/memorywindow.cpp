// The low-memory message dialog, laid out in code, and the suppression list behind it.
#include <vanta/ui/memorywindow.h>

#include <vanta/locales.h>
#include <vanta/settingsstore_p.h>
#include <vanta/system.h>
#include <vanta/versioninfo.h>

#include <QApplication>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPalette>
#include <QPushButton>
#include <QSettings>
#include <QSpacerItem>
#include <QVBoxLayout>

#include <memory>
#include <new>

namespace {

const QString kEntryListKey = QStringLiteral("MessageEntryList");
const QString kResetKey = QStringLiteral("resetMessages");

}  // namespace

// ---- memoryDialog ----

memoryDialog::memoryDialog(QWidget* parent, const char* name, bool modal, Qt::WindowFlags flags)
    : QDialog(parent, flags) {
    setObjectName(name ? QString::fromUtf8(name) : QStringLiteral("memoryDialog"));
    setModal(modal);

    auto* layout = new QVBoxLayout(this);
    layout->setObjectName(QStringLiteral("memoryDialogLayout"));
    layout->setContentsMargins(11, 11, 11, 11);
    layout->setSpacing(6);
    // The dialog is exactly as big as its contents, whatever text it is given.
    layout->setSizeConstraint(QLayout::SetFixedSize);

    memoryDialogTextBox = new QLabel(this);
    memoryDialogTextBox->setObjectName(QStringLiteral("memoryDialogTextBox"));
    layout->addWidget(memoryDialogTextBox);

    // A flat button that looks and feels like a link in a web page.
    updateURLButton = new QPushButton(this);
    updateURLButton->setObjectName(QStringLiteral("updateURLButton"));
    updateURLButton->setFlat(true);
    QPalette linkPalette = updateURLButton->palette();
    linkPalette.setColor(QPalette::ButtonText, QColor(0, 0, 204));
    linkPalette.setColor(QPalette::WindowText, QColor(0, 0, 204));
    updateURLButton->setPalette(linkPalette);
    QFont linkFont = updateURLButton->font();
    linkFont.setUnderline(true);
    updateURLButton->setFont(linkFont);
    updateURLButton->setCursor(Qt::PointingHandCursor);
    layout->addWidget(updateURLButton);

    auto* row = new QHBoxLayout();
    row->setObjectName(QStringLiteral("memoryDialogButtonRow"));
    row->setSpacing(6);
    checkBox4 = new QCheckBox(this);
    checkBox4->setObjectName(QStringLiteral("checkBox4"));
    row->addWidget(checkBox4);
    row->addItem(new QSpacerItem(20, 20, QSizePolicy::Expanding, QSizePolicy::Minimum));
    button0Text = new QPushButton(this);
    button0Text->setObjectName(QStringLiteral("button0Text"));
    row->addWidget(button0Text);
    button1Text = new QPushButton(this);
    button1Text->setObjectName(QStringLiteral("button1Text"));
    row->addWidget(button1Text);
    layout->addLayout(row);

    languageChange();

    connect(button0Text, &QPushButton::clicked, this, &memoryDialog::button0Text_clicked);
    connect(button1Text, &QPushButton::clicked, this, &memoryDialog::button1Text_clicked);
    connect(updateURLButton, &QPushButton::clicked, this, &memoryDialog::updateURLButton_clicked);
    connect(checkBox4, &QCheckBox::toggled, this, &memoryDialog::checkBox4_toggled);
    init();
}

memoryDialog::~memoryDialog() = default;

void memoryDialog::languageChange() {
    setWindowTitle(QString());
    memoryDialogTextBox->setText(tr("Specify Text Here"));
    updateURLButton->setText(QStringLiteral("http://") + QLatin1String(vanta::kHelpHost) +
                             QLatin1Char('/'));
    checkBox4->setText(tr("Don't show this message again"));
    button0Text->setText(tr("Button 0"));
    button1Text->setText(tr("Button 1"));
}

// accept/reject rather than close(): closing runs reject(), which must not be mistaken for a
// cancel after an answer button was pressed.
void memoryDialog::button0Text_clicked() {
    resultCode = 0;
    accept();
}

void memoryDialog::button1Text_clicked() {
    resultCode = 1;
    accept();
}

void memoryDialog::cancelButton_clicked() {
    resultCode = -1;
    reject();
}

void memoryDialog::updateURLButton_clicked() {
    vanta::System::LaunchExternalBrowser(updateURLButton->text(), true, false);
}

void memoryDialog::checkBox4_toggled(bool) {}

void memoryDialog::init() {}

// ---- vanta::MemoryWindow ----

namespace vanta {

memoryDialog* MemoryWindow::MEMDialog = nullptr;
QStringList MemoryWindow::mCurrentEntries;
bool MemoryWindow::bInitialized = false;

int MemoryWindow::ShowMemoryMessage(QWidget* parent, QString id, bool checked, QString caption,
                                    QString text, const QString& button0, const QString& link,
                                    const QString& button1) {
    // Widgets exist only under a QApplication: creating one under a console application or
    // none would abort the process.
    if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
        return -1;
    if (!MEMDialog) {
        const QByteArray name = caption.toUtf8();
        MEMDialog = new (std::nothrow) memoryDialog(parent, name.constData(), true);
        if (!MEMDialog)
            return -1;
    }

    std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    mCurrentEntries = settings->value(kEntryListKey).toStringList();
    // Any "resetMessages" entry, even false, asks for the reset: writing it is the request.
    if (settings->contains(kResetKey)) {
        saveSettings(*settings, [](QSettings& s) { s.remove(kResetKey); });
        ResetAllValues();
    }

    memoryDialog* dialog = MEMDialog;
    if (id.isEmpty()) {
        dialog->checkBox4->hide();
    } else if (mCurrentEntries.contains(id, Qt::CaseSensitive)) {
        return -2;  // the dialog is kept for the next message
    } else {
        dialog->checkBox4->show();
        dialog->checkBox4->setChecked(checked);
    }

    dialog->memoryDialogTextBox->setText(text);
    dialog->button0Text->setText(button0);
    if (button1.isNull()) {
        dialog->button1Text->hide();
    } else {
        dialog->button1Text->setText(button1);
        dialog->button1Text->show();
    }
    if (link.isNull()) {
        dialog->updateURLButton->hide();
    } else {
        dialog->updateURLButton->setText(link);
        dialog->updateURLButton->show();
    }

    dialog->setObjectName(id);
    dialog->setWindowTitle(caption);
    dialog->exec();

    if (!id.isEmpty() && dialog->checkBox4->isChecked()) {
        mCurrentEntries.append(id);
        saveSettings(*settings,
                     [](QSettings& s) { s.setValue(kEntryListKey, mCurrentEntries); });
    }

    const int result = dialog->resultCode;
    MEMDialog = nullptr;
    delete dialog;
    return result;
}

void MemoryWindow::ResetAllValues() {
    mCurrentEntries.clear();
    std::unique_ptr<QSettings> settings(VersionInfo::createUserAppSettings());
    saveSettings(*settings, [](QSettings& s) { s.remove(kEntryListKey); });
}

}  // namespace vanta
