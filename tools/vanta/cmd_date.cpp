// vanta date, httpdate, date-add: the ISO 8601 and HTTP date readers and calendar arithmetic.
#include "command.h"

#include <vanta/datetime.h>

namespace vantatool {
namespace {

constexpr const char* kDateSynopsis = "date [--utc] [--seconds] TEXT";
constexpr const char* kHttpSynopsis = "httpdate TEXT";
constexpr const char* kAddSynopsis = "date-add TEXT Y M D h m s";

// Reads text as ISO 8601 into a default time stamp; false (after reporting) when rejected.
bool readIso(const QString& text, vanta::DateTime& t) {
    try {
        text >> t;
        return true;
    } catch (const QString& message) {
        error(message);
        return false;
    }
}

int runDate(const QStringList& args) {
    bool utc = false, seconds = false;
    int i = 0;
    // Options come only before TEXT; any other argument, "-0044" included, is TEXT.
    for (; i < args.size(); ++i) {
        if (args[i] == "--utc")
            utc = true;
        else if (args[i] == "--seconds")
            seconds = true;
        else
            break;
    }
    if (i + 1 != args.size())
        return usage(kDateSynopsis);
    vanta::DateTime t;
    if (!readIso(args[i], t))
        return kRejected;
    if (utc)
        t.normalize();
    out(seconds ? QString::number(t.toSeconds()) : t.toString());
    return kOk;
}

int runHttpDate(const QStringList& args) {
    if (args.size() != 1)
        return usage(kHttpSynopsis);
    vanta::DateTime t;
    t.parseHttpDate(args[0]);
    if (int(t.year) == vanta::DateTime::kUnsetYear)
        return error("not an HTTP date: " + args[0]);
    out(t.toString());
    return kOk;
}

int runDateAdd(const QStringList& args) {
    if (args.size() != 7)
        return usage(kAddSynopsis);
    int amounts[6];
    for (int k = 0; k < 6; ++k) {
        bool ok = false;
        amounts[k] = args[k + 1].toInt(&ok);
        if (!ok)
            return usage(kAddSynopsis);
    }
    vanta::DateTime t;
    if (!readIso(args[0], t))
        return kRejected;
    t.add(amounts[0], amounts[1], amounts[2], amounts[3], amounts[4], amounts[5]);
    out(t.toString());
    return kOk;
}

void tour() {
    const char* texts[] = {"2005", "2005-03-17", "2005-03-17T08:30:00.5+05:30", "-0044-03-15"};
    for (const char* text : texts) {
        vanta::DateTime t;
        QString::fromLatin1(text) >> t;
        out(QString("read %1 -> %2").arg(QLatin1String(text), t.toString()));
    }
    vanta::DateTime http;
    http.parseHttpDate("Thu, 17 Mar 2005 08:30:00 GMT");
    out("HTTP Thu, 17 Mar 2005 08:30:00 GMT -> " + http.toString());

    vanta::DateTime zoned;
    QStringLiteral("2005-03-17T08:30:00+05:30") >> zoned;
    zoned.convertToZone(-5, 0);
    out("2005-03-17T08:30:00+05:30 in UTC-05:00 -> " + zoned.toString());

    vanta::DateTime monthEnd;
    QStringLiteral("2005-01-31") >> monthEnd;
    monthEnd.add(0, 1, 0, 0, 0, 0);
    out("2005-01-31 plus one month -> " + monthEnd.toString());
}

Registrar date{Command{"date", kDateSynopsis, "read an ISO 8601 date-time and print it", runDate}};
Registrar httpDate{Command{"httpdate", kHttpSynopsis, "read the date of an HTTP header", runHttpDate}};
Registrar dateAdd{Command{"date-add", kAddSynopsis, "add years, months, days, hours, minutes, seconds",
                          runDateAdd}};
Registrar dateTour{TourStep{43, "Dates and times", tour}};

}  // namespace
}  // namespace vantatool
