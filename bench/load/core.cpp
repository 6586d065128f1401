// A program that links only the core library, as a consumer of locks and parsers does.
#include <vanta/latlng.h>

int main() {
    double latitude = 0;
    return vanta::LatValue::Parse(QStringLiteral("45n"), &latitude) ? 0 : 1;
}
