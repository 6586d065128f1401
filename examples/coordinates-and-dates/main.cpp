// Reads a position and a date-time as a person would type them, and prints them normalised.
// usage: coordinates-and-dates ["POSITION" ["DATE"]]
#include <vanta/datetime.h>
#include <vanta/latlng.h>

#include <QString>

#include <cstdio>

int main(int argc, char** argv) {
    const QString position = QString::fromUtf8(argc > 1 ? argv[1] : "37°46'30\"N 122°25'10\"W");
    const QString date = QString::fromUtf8(argc > 2 ? argv[2] : "2005-03-17T08:30:00+05:30");

    double latitude = 0;
    double longitude = 0;
    if (!vanta::LatLngPair::Parse(position, &latitude, &longitude)) {
        std::fprintf(stderr, "not a position: %s\n", position.toUtf8().constData());
        return 1;
    }
    std::printf("position: %.6f %.6f\n", latitude, longitude);

    // The ISO 8601 reader throws the error text as a QString; nothing else in the library throws.
    vanta::DateTime when;
    try {
        date >> when;
    } catch (const QString& message) {
        std::fprintf(stderr, "not a date: %s\n", message.toUtf8().constData());
        return 1;
    }
    std::printf("date: %s\n", when.toString().toUtf8().constData());
    when.normalize();  // to UTC
    std::printf("in UTC: %s\n", when.toString().toUtf8().constData());
    return 0;
}
