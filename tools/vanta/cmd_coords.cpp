// vanta value / lat / lng / latlng: read coordinates typed by people.
#include "command.h"

#include <vanta/latlng.h>

#include <cstdio>

namespace vantatool {
namespace {

// Every argument is TEXT, even one that starts with "-": these commands take no options.
int readOne(const QStringList& args, const char* synopsis, const char* what,
            bool (*parse)(const QString&, double*)) {
    if (args.size() != 1)
        return usage(synopsis);
    double value = 0;
    if (!parse(args[0], &value))
        return error(QStringLiteral("cannot read \"%1\" as %2").arg(args[0], QLatin1String(what)));
    out(number(value));
    return kOk;
}

int runValue(const QStringList& args) {
    return readOne(args, "value TEXT", "a magnitude", &vanta::LatLngValue::Parse);
}

int runLat(const QStringList& args) {
    return readOne(args, "lat TEXT", "a latitude", &vanta::LatValue::Parse);
}

int runLng(const QStringList& args) {
    return readOne(args, "lng TEXT", "a longitude", &vanta::LngValue::Parse);
}

int runLatLng(const QStringList& args) {
    if (args.size() != 1)
        return usage("latlng TEXT");
    double latitude = 0;
    double longitude = 0;
    if (!vanta::LatLngPair::Parse(args[0], &latitude, &longitude))
        return error(QStringLiteral("cannot read \"%1\" as a latitude and longitude").arg(args[0]));
    out(number(latitude) + ' ' + number(longitude));
    return kOk;
}

void tour() {
    const char* const values[] = {"12°30'36\"", "12,5"};
    for (const char* text : values) {
        double value = 0;
        const QString input = QString::fromUtf8(text);
        std::printf("  vanta value %-24s -> %s\n", text,
                    vanta::LatLngValue::Parse(input, &value) ? number(value).toUtf8().constData()
                                                              : "rejected");
    }
    const char* const latitudes[] = {"S 33 52 8", "45n", "-12.5"};
    for (const char* text : latitudes) {
        double value = 0;
        const QString input = QString::fromUtf8(text);
        std::printf("  vanta lat %-26s -> %s\n", text,
                    vanta::LatValue::Parse(input, &value) ? number(value).toUtf8().constData()
                                                           : "rejected");
    }
    const char* const pairs[] = {"37.7749N 122.4194W", "122°25'10\"W, 37°46'30\"N",
                                 "-33.8688/151.2093", "12,5N 45,3E",
                                 "95 10" /* latitude beyond 90 */};
    for (const char* text : pairs) {
        double latitude = 0;
        double longitude = 0;
        const QString input = QString::fromUtf8(text);
        const QString shown = vanta::LatLngPair::Parse(input, &latitude, &longitude)
                                  ? number(latitude) + ' ' + number(longitude)
                                  : QStringLiteral("rejected");
        std::printf("  vanta latlng %-23s -> %s\n", text, shown.toUtf8().constData());
    }
}

Registrar gValue{Command{"value", "value TEXT", "read an unsigned magnitude in degrees", runValue}};
Registrar gLat{Command{"lat", "lat TEXT", "read a latitude (N/S letter or sign)", runLat}};
Registrar gLng{Command{"lng", "lng TEXT", "read a longitude (E/W letter or sign)", runLng}};
Registrar gLatLng{Command{"latlng", "latlng TEXT", "read a latitude and longitude on one line",
                          runLatLng}};
Registrar gTour{TourStep{40, "Coordinates typed by people", tour}};

}  // namespace
}  // namespace vantatool
