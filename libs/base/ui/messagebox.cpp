// The message box behind System::AsyncMessageBox. The core library finds this entry point with
// dlsym, so that a program which never shows a box never loads Qt Widgets.
#include <vanta/export.h>

#include <QApplication>
#include <QMessageBox>

extern "C" VANTA_EXPORT void vantaWidgetsMessageBox(bool warning, const QString& title,
                                                    const QString& text) {
    QWidget* parent = QApplication::activeWindow();
    if (warning)
        QMessageBox::warning(parent, title, text);
    else
        QMessageBox::information(parent, title, text);
}
