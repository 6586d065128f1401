// The same program linking the widgets library too, as every consumer did when the dialog was
// part of the one library.
#include <vanta/latlng.h>
#include <vanta/ui/memorywindow.h>

int main() {
    double latitude = 0;
    return vanta::LatValue::Parse(QStringLiteral("45n"), &latitude) && !vanta::MemoryWindow::MEMDialog
               ? 0 : 1;
}
