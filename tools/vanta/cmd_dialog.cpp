// vanta dialog: shows the low-memory message, or renders it offscreen to a PNG.
#include "command.h"

#include <vanta/ui/memorywindow.h>

#include <QApplication>
#include <QTimer>

namespace {

using namespace vantatool;

const char kSynopsis[] = "dialog [--screenshot FILE]";

int runDialog(const QStringList& args) {
    QString screenshot;
    if (args.size() == 2 && args[0] == QLatin1String("--screenshot"))
        screenshot = args[1];
    else if (!args.isEmpty())
        return usage(kSynopsis);

    if (!screenshot.isEmpty()) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    } else if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") &&
               qEnvironmentVariableIsEmpty("DISPLAY") &&
               qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        return error(QStringLiteral("no display to show the dialog on; try --screenshot FILE"));
    }
    QApplication app(processArgc(), processArgv());

    bool saved = false;
    bool shown = false;
    if (!screenshot.isEmpty()) {
        // Once the dialog is up: render it, then dismiss it as a cancel.
        QTimer::singleShot(0, &app, [&] {
            memoryDialog* dialog = vanta::MemoryWindow::MEMDialog;
            if (!dialog)
                return;
            shown = true;
            saved = dialog->grab().save(screenshot, "PNG");
            dialog->cancelButton_clicked();
        });
    }
    const int code = vanta::MemoryWindow::ShowMemoryMessage(
        nullptr, QStringLiteral("vanta.dialog.sample"), false, QStringLiteral("Low memory"),
        QStringLiteral("The globe is running short of memory.\n"
                       "Close other programs or lower the cache size."),
        QStringLiteral("Continue"), QStringLiteral("http://vanta.orvane.com/support/"),
        QStringLiteral("Quit"));
    out(QString::number(code));
    if (!screenshot.isEmpty()) {
        if (!shown)
            return error(QStringLiteral("the message is suppressed; nothing to render"));
        if (!saved)
            return error(QStringLiteral("cannot write ") + screenshot);
    }
    return kOk;
}

void tourDialog() {
    out(QStringLiteral("vanta dialog shows the low-memory message and prints the pressed button:"));
    out(QStringLiteral("  0 or 1 for the answers, -1 for cancel, -2 when the user chose not to "
                       "see it again."));
    out(QStringLiteral("vanta dialog --screenshot FILE renders it offscreen to a PNG instead."));
}

Registrar dialog{Command{"dialog", kSynopsis,
                         "show the low-memory message and print the pressed button's code",
                         runDialog}};
Registrar tour{TourStep{950, "The low-memory message", tourDialog}};

}  // namespace
