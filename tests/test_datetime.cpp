// Tests of DateTime (printing, the ISO and HTTP readers, calendar arithmetic) and Referent,
// checked against an independent calendar library where the cases are many.
#include <vanta/datetime.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <date/date.h>
#include <gtest/gtest.h>

#include <QDateTime>
#include <QRegularExpression>
#include <QTextStream>
#include <QTimeZone>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>

using namespace vanta;
using namespace std::chrono;
using date::sys_days;
using date::sys_seconds;

namespace {

struct Fields {
    int year, month, day, hour, minute, second, zoneHours, zoneMinutes;
};

DateTime make(const Fields& f) {
    DateTime t;
    t.set(f.year, f.month, f.day, f.hour, f.minute, f.second);
    t.zoneHours = static_cast<signed char>(f.zoneHours);
    t.zoneMinutes = static_cast<signed char>(f.zoneMinutes);
    return t;
}

Fields fieldsOf(const DateTime& t) {
    return {int(t.year), t.month, t.day, t.hour, t.minute, t.second, t.zoneHours, t.zoneMinutes};
}

bool operator==(const Fields& a, const Fields& b) {
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second && a.zoneHours == b.zoneHours &&
           a.zoneMinutes == b.zoneMinutes;
}

std::ostream& operator<<(std::ostream& os, const Fields& f) {
    char text[96];
    std::snprintf(text, sizeof text, "{%d-%d-%d %d:%d:%d zone %d:%d}", f.year, f.month, f.day,
                  f.hour, f.minute, f.second, f.zoneHours, f.zoneMinutes);
    return os << text;
}

DateTime parse(const QString& text) {
    DateTime t;
    text >> t;
    return t;
}

// The reader's complaint for text, or an empty string when it accepted the text.
QString parseError(const QString& text) {
    try {
        parse(text);
    } catch (const QString& message) {
        return message;
    }
    return QString();
}

// The instant of a UTC time stamp according to the reference calendar.
sys_seconds reference(const DateTime& t) {
    return sys_days{date::year{int(t.year)} / int(t.month) / int(t.day)} + hours{t.hour} +
           minutes{t.minute} + seconds{t.second} - hours{t.zoneHours} - minutes{t.zoneMinutes};
}

Fields fieldsAt(sys_seconds when) {
    const auto dayPoint = date::floor<date::days>(when);
    const date::year_month_day ymd{dayPoint};
    const date::hh_mm_ss<seconds> time{when - dayPoint};
    return {int(ymd.year()), int(unsigned(ymd.month())), int(unsigned(ymd.day())),
            int(time.hours().count()), int(time.minutes().count()), int(time.seconds().count()),
            0, 0};
}

Fields randomUtc(std::mt19937& rng, int firstYear, int lastYear) {
    const int y = std::uniform_int_distribution<int>(firstYear, lastYear)(rng);
    const int m = std::uniform_int_distribution<int>(1, 12)(rng);
    const int d = std::uniform_int_distribution<int>(1, maximumDayInMonthFor(y, m))(rng);
    return {y, m, d, int(rng() % 24), int(rng() % 60), int(rng() % 60), 0, 0};
}

}  // namespace

// ---- Printing ----

TEST(DateTimePrint, ReducedPrecisionAndZones) {
    struct Row {
        const char* name;
        Fields fields;
        const char* text;
    } rows[] = {
        {"default", {314159, 1, 1, 0, 0, 0, 0, 0}, "314159"},
        {"first of month", {2005, 3, 1, 0, 0, 0, 0, 0}, "2005-03"},
        {"new year", {2005, 1, 1, 0, 0, 0, 0, 0}, "2005"},
        {"midnight", {2005, 3, 17, 0, 0, 0, 0, 0}, "2005-03-17"},
        {"day 1 of january", {2005, 1, 17, 0, 0, 0, 0, 0}, "2005-01-17"},
        {"utc", {2005, 3, 17, 8, 30, 0, 0, 0}, "2005-03-17T08:30:00Z"},
        {"one second past new year", {2005, 1, 1, 0, 0, 1, 0, 0}, "2005-01-01T00:00:01Z"},
        {"east", {2005, 3, 17, 8, 30, 0, 5, 30}, "2005-03-17T08:30:00+05:30"},
        {"west", {2005, 3, 17, 8, 30, 0, -5, 0}, "2005-03-17T08:30:00-05:00"},
        {"west with minutes", {2005, 3, 17, 8, 30, 0, -5, -30}, "2005-03-17T08:30:00-05:30"},
        {"zero hours prints minus", {2005, 3, 17, 8, 30, 0, 0, 30}, "2005-03-17T08:30:00-00:30"},
        {"zoned midnight is full", {2005, 1, 1, 0, 0, 0, 1, 0}, "2005-01-01T00:00:00+01:00"},
        {"negative year", {-44, 3, 15, 0, 0, 0, 0, 0}, "-044-03-15"},
        {"short year", {7, 1, 1, 0, 0, 0, 0, 0}, "0007"},
        {"long year", {123456, 7, 1, 0, 0, 0, 0, 0}, "123456-07"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(make(row.fields).toString(), QString::fromLatin1(row.text)) << row.name;
}

TEST(DateTimePrint, MatchesPrintfForAnyFieldValues) {
    // The printer formats digits by hand; printf's %04d and %02d are the reference, including
    // negative years, years wider than four digits and fields out of their usual ranges.
    std::mt19937 rng(7);
    for (int i = 0; i < 20000; ++i) {
        DateTime t;
        const int y = std::uniform_int_distribution<int>(-16777216, 16777216)(rng) >> (rng() % 24);
        t.set(y, int(rng() % 256), int(rng() % 256), int(rng() % 256), int(rng() % 256),
              int(rng() % 256));
        t.zoneHours = static_cast<signed char>(rng() % 256);
        t.zoneMinutes = static_cast<signed char>(rng() % 256);
        if (rng() % 2) {
            t.zoneHours = 0;
            t.zoneMinutes = 0;
        }
        char expect[256];
        if (t.hour == 0 && t.minute == 0 && t.second == 0 && t.zoneHours == 0 &&
            t.zoneMinutes == 0) {
            t.day = 1 + (rng() % 2) * t.day;
            if (t.month == 1 && t.day == 1)
                std::snprintf(expect, sizeof expect, "%04d", y);
            else if (t.day == 1)
                std::snprintf(expect, sizeof expect, "%04d-%02d", y, t.month);
            else
                std::snprintf(expect, sizeof expect, "%04d-%02d-%02d", y, t.month, t.day);
        } else if (t.zoneHours == 0 && t.zoneMinutes == 0) {
            std::snprintf(expect, sizeof expect, "%04d-%02d-%02dT%02d:%02d:%02dZ", y, t.month,
                          t.day, t.hour, t.minute, t.second);
        } else {
            std::snprintf(expect, sizeof expect, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", y,
                          t.month, t.day, t.hour, t.minute, t.second,
                          t.zoneHours > 0 ? '+' : '-', std::abs(t.zoneHours),
                          std::abs(t.zoneMinutes));
        }
        ASSERT_EQ(t.toString(), QString::fromLatin1(expect));
    }
}

// ---- The ISO reader ----

TEST(DateTimeRead, AcceptedForms) {
    struct Row {
        const char* text;
        Fields fields;
    } rows[] = {
        {"2005", {2005, 1, 1, 0, 0, 0, 0, 0}},
        {"2005-03", {2005, 3, 1, 0, 0, 0, 0, 0}},
        {"2005-03-17", {2005, 3, 17, 0, 0, 0, 0, 0}},
        {"2005-03-17T08:30:00Z", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"2005-03-17T08:30:00", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"2005-03-17T08:30:00+05:30", {2005, 3, 17, 8, 30, 0, 5, 30}},
        {"2005-03-17T08:30:00-05:00", {2005, 3, 17, 8, 30, 0, -5, 0}},
        {"2005-03-17T08:30:00-05:30", {2005, 3, 17, 8, 30, 0, -5, -30}},
        {"2005-03-17T08:30:00-00:30", {2005, 3, 17, 8, 30, 0, 0, 30}},
        {"2005-03-17T08:30:00.5", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"2005-03-17T08:30:59.999Z", {2005, 3, 17, 8, 30, 59, 0, 0}},
        {"2005-03-17T08:30:00Z and then anything", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"2005-03-17T08:30:00Zxyz:-", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"-0044", {-44, 1, 1, 0, 0, 0, 0, 0}},
        {"-0044-03-15", {-44, 3, 15, 0, 0, 0, 0, 0}},
        {" 2005 - 03 -\t17 ", {2005, 3, 17, 0, 0, 0, 0, 0}},
        {"2005.7", {2005, 1, 1, 0, 0, 0, 0, 0}},
        {"2004-02-29", {2004, 2, 29, 0, 0, 0, 0, 0}},
        {"314159", {314159, 1, 1, 0, 0, 0, 0, 0}},
        {"12345-06", {12345, 6, 1, 0, 0, 0, 0, 0}},
    };
    for (const Row& row : rows) {
        const QString text = QString::fromLatin1(row.text);
        ASSERT_EQ(parseError(text), QString()) << row.text;
        EXPECT_EQ(fieldsOf(parse(text)), row.fields) << row.text;
    }
}

TEST(DateTimeRead, MalformedTextThrowsTheMessageAndLeavesTheTarget) {
    const char* rejected[] = {
        "",
        "   ",
        "2005-3-17",             // a month of one character before "-"
        "2005-3",                // the month at the end needs two characters
        "2005-03-7",             // likewise the day
        "2005-03-17T08:30",      // ends in the minute state
        "2005-03-17T08",         // ends in the hour state
        "2005-03-17T08:30:00+05",  // ends in the zone-hours state
        "2005-03-17T8:30:00Z",   // the hour needs two characters
        "2005-03-17T08:30:0Z",   // the seconds need two
        "2005-03-17T08:30:00+05:3",
        "2005-03T08:30:00Z",     // T only after a day
        "2005-03-17-08",         // a fourth dash-separated field
        "2005:03",
        "Z",
        "abcd",
        "20x5",
        "1e3",
        "inf",
        "nan",
        "2005-13",               // values beyond their fields
        "2005-00",
        "2005-02-29",
        "2005-04-31",
        "2005-03-17T24:00:00Z",
        "2005-03-17T08:60:00Z",
        "2005-03-17T08:30:60Z",
        "2005-03-17T08:30:00+24:00",
        "2005-03-17T08:30:00+05:60",
        "99999999",              // beyond the years a float holds exactly
        "--5",
        "2005-03-17T08:30:00.5.5Z",
        "2005-03-17t08:30:00Z",
        "\xd9\xa2\xd9\xa0\xd9\xa0\xd9\xa5",  // digits of another script
        "00000000000000000000000000000000000000000000000000000000000000000000000002005",
    };
    for (const char* row : rejected) {
        const QString text = QString::fromUtf8(row);
        EXPECT_EQ(parseError(text), "Could not parse time value " + text) << row;
        DateTime target;
        target.set(1999, 12, 31, 23, 59, 58);
        target.zoneHours = 3;
        try {
            text >> target;
        } catch (const QString&) {
        }
        EXPECT_EQ(fieldsOf(target), (Fields{1999, 12, 31, 23, 59, 58, 3, 0})) << row;
    }
}

TEST(DateTimeRead, FieldsTheTextDoesNotReachKeepTheirValues) {
    DateTime t;
    t.set(1999, 7, 20, 10, 11, 12);
    t.zoneHours = 2;
    QStringLiteral("2005-03") >> t;
    EXPECT_EQ(fieldsOf(t), (Fields{2005, 3, 20, 10, 11, 12, 2, 0}));
    QStringLiteral("2006-04-05T01:02:03Z") >> t;
    EXPECT_EQ(fieldsOf(t), (Fields{2006, 4, 5, 1, 2, 3, 0, 0}));
}

TEST(DateTimeRead, PrintedFormsReadBackAsTheSameStamp) {
    // Every reduced-precision form, both zone forms and both signs of year.
    std::mt19937 rng(11);
    for (int i = 0; i < 20000; ++i) {
        Fields f = randomUtc(rng, -9999, 99999);
        switch (i % 6) {
        case 0: f.month = 1; f.day = 1; [[fallthrough]];
        case 1: f.day = 1; [[fallthrough]];
        case 2: f.hour = f.minute = f.second = 0; break;
        case 3: break;
        case 4: f.zoneHours = int(rng() % 47) - 23; f.zoneMinutes = int(rng() % 60);
                if (f.zoneHours < 0) f.zoneMinutes = -f.zoneMinutes;
                break;
        case 5: f.zoneHours = 0; f.zoneMinutes = int(rng() % 60); break;
        }
        const DateTime t = make(f);
        const QString text = t.toString();
        ASSERT_EQ(parseError(text), QString()) << text.toStdString();
        ASSERT_EQ(fieldsOf(parse(text)), f) << text.toStdString();
    }
}

TEST(DateTimeRead, StreamOperators) {
    QString buffer;
    QTextStream out(&buffer);
    out << make({2005, 3, 17, 8, 30, 0, 5, 30}) << ' ' << DateTime();
    out.flush();
    EXPECT_EQ(buffer, "2005-03-17T08:30:00+05:30 314159");

    QString source = "  2005-03-17\n T08:30:00Z";
    QTextStream in(&source);
    DateTime t;
    in >> t;
    EXPECT_EQ(fieldsOf(t), (Fields{2005, 3, 17, 8, 30, 0, 0, 0}));
    EXPECT_TRUE(in.atEnd()) << "the reader takes all remaining text";
}

// ---- The HTTP reader ----

TEST(DateTimeHttp, Examples) {
    const int unset = DateTime::kUnsetYear;
    struct Row {
        const char* text;
        Fields fields;  // of a default target
    } rows[] = {
        {"Thu, 17 Mar 2005 08:30:00 GMT", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"Sun, 06 Nov 1994 08:49:37 GMT", {1994, 11, 6, 8, 49, 37, 0, 0}},
        {"Mon, 06 Nov 1994 08:49:37 EST", {1994, 11, 6, 8, 49, 37, 0, 0}},  // weekday, zone unread
        {"Date: Thu,17\tMar\n2005  08:30:00", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"x, y, Thu, 17 Mar 2005 8:3:7+0100", {2005, 3, 17, 8, 3, 7, 0, 0}},
        {"Thu, 17 Mar 2005 08:30:00, 18 Apr 2006 09:31:01", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"Thu, 17 Mar2005 08:30:00, 18 Apr 2006 09:31:01", {2006, 4, 18, 9, 31, 1, 0, 0}},
        {"Thu, 0017 Dec 0000 23:59:59", {0, 12, 17, 23, 59, 59, 0, 0}},
        {"Thu, 17 mar 2005 08:30:00 GMT", {unset, 1, 17, 0, 0, 0, 0, 0}},  // case-sensitive
        {"Thu, 17 March 2005 08:30:00 GMT", {unset, 1, 17, 0, 0, 0, 0, 0}},
        {"Thu, 31 Feb 2005 08:30:00 GMT", {unset, 2, 31, 0, 0, 0, 0, 0}},
        {"Thu, 17 Mar 2005 24:30:00 GMT", {unset, 3, 17, 0, 0, 0, 0, 0}},
        {"Thu, 17 Mar 99999999999 08:30:00 GMT", {unset, 3, 17, 0, 0, 0, 0, 0}},
        {"Thu, 99999999999 Mar 2005 08:30:00 GMT", {unset, 1, 1, 0, 0, 0, 0, 0}},
        {"17 Mar 2005 08:30:00 GMT", {unset, 1, 1, 0, 0, 0, 0, 0}},
        {", 17 Mar 2005 08:30:00", {unset, 1, 1, 0, 0, 0, 0, 0}},
        {"Thu, 17 Mar 2005 08:30", {unset, 1, 1, 0, 0, 0, 0, 0}},
        {"", {unset, 1, 1, 0, 0, 0, 0, 0}},
    };
    for (const Row& row : rows) {
        DateTime t;
        t.parseHttpDate(QString::fromLatin1(row.text));
        EXPECT_EQ(fieldsOf(t), row.fields) << row.text;
    }
    DateTime zoned = make({1, 2, 3, 4, 5, 6, 7, 8});
    zoned.parseHttpDate("Thu, 17 Mar 2005 08:30:00 +0200");
    EXPECT_EQ(fieldsOf(zoned), (Fields{2005, 3, 17, 8, 30, 0, 0, 0})) << "the time is taken as UTC";
}

TEST(DateTimeHttp, FindsWhatTheRegularExpressionFinds) {
    // The hand-written search against the pattern run by PCRE2, on texts assembled from the
    // pieces an HTTP date is made of, in random order and number.
    static const QRegularExpression pattern(
        "\\s*([^,]+),\\s*([0-9]+)\\s+(\\w+)\\s+([0-9]+)\\s+([0-9]+):([0-9]+):([0-9]+)");
    static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const char* pieces[] = {",", " ", "  ", "\t", ":", "Thu", "Mar", "Feb", "mar", "_x", "17",
                            "2005", "08", "7", "0", "31", "99999999999", "\xc3\xa4", "-", "GMT"};
    std::mt19937 rng(3);
    int matched = 0;
    for (int i = 0; i < 30000; ++i) {
        QString text;
        if (i % 3 == 0) {
            text = QString::asprintf("%s, %d %s %d %02d:%02d:%02d", "Thu", int(rng() % 40),
                                     months[rng() % 12], int(rng() % 3000), int(rng() % 30),
                                     int(rng() % 70), int(rng() % 70));
            text.insert(int(rng() % (text.size() + 1)), QString::fromUtf8(pieces[rng() % 20]));
        } else {
            const int count = 4 + int(rng() % 14);
            for (int k = 0; k < count; ++k)
                text += QString::fromUtf8(pieces[rng() % 20]);
        }

        DateTime expect;
        const QRegularExpressionMatch m = pattern.match(text);
        bool ok = m.hasMatch();
        if (ok) {
            ++matched;
            // The same conversion rules as the reader: toInt, the month table, field ranges.
            bool good[6];
            const int dayValue = m.captured(2).toInt(&good[0]);
            int monthValue = 0;
            for (int k = 0; k < 12; ++k)
                if (m.captured(3) == QLatin1String(months[k]))
                    monthValue = k + 1;
            const int yearValue = m.captured(4).toInt(&good[1]);
            const int h = m.captured(5).toInt(&good[2]);
            const int mi = m.captured(6).toInt(&good[3]);
            const int s = m.captured(7).toInt(&good[4]);
            ok = good[0] && dayValue >= 1 && dayValue <= 31 && monthValue != 0 && good[1] &&
                 yearValue <= 16777216 && dayValue <= maximumDayInMonthFor(yearValue, monthValue) &&
                 good[2] && h <= 23 && good[3] && mi <= 59 && good[4] && s <= 59;
            if (ok)
                expect = make({yearValue, monthValue, dayValue, h, mi, s, 0, 0});
        }
        DateTime got;
        got.parseHttpDate(text);
        if (!ok) {
            ASSERT_EQ(int(got.year), DateTime::kUnsetYear) << text.toStdString();
        } else {
            ASSERT_EQ(fieldsOf(got), fieldsOf(expect)) << text.toStdString();
        }
    }
    EXPECT_GT(matched, 5000) << "the generator must produce matches to compare";
}

// ---- Calendar arithmetic ----

TEST(DateTimeCalendar, MaximumDayInMonthForAgreesWithTheCalendar) {
    for (int y = 1600; y <= 2400; ++y) {
        for (int m = 1; m <= 12; ++m) {
            const unsigned last = unsigned((date::year{y} / m / date::last).day());
            ASSERT_EQ(maximumDayInMonthFor(y, m), int(last)) << y << "-" << m;
        }
    }
    struct Row {
        int year, month, days;
    } wrapped[] = {{1900, 2, 28}, {2000, 2, 29}, {2005, 13, 31}, {2004, 14, 28},
                   {2005, 0, 31}, {2004, -10, 28}, {2002, -22, 29}, {-4, 2, 29}, {-100, 2, 28}};
    for (const Row& row : wrapped)
        EXPECT_EQ(maximumDayInMonthFor(row.year, row.month), row.days)
            << row.year << "," << row.month;
}

TEST(DateTimeCalendar, AddExamples) {
    struct Row {
        const char* name;
        Fields from;
        int years, months, days, hours, minutes, seconds;
        Fields to;
    } rows[] = {
        {"clamp before days", {2005, 1, 31, 0, 0, 0, 0, 0}, 0, 1, 0, 0, 0, 0, {2005, 2, 28, 0, 0, 0, 0, 0}},
        {"clamp then add", {2005, 1, 31, 0, 0, 0, 0, 0}, 0, 1, 1, 0, 0, 0, {2005, 3, 1, 0, 0, 0, 0, 0}},
        {"leap clamp", {2004, 1, 31, 0, 0, 0, 0, 0}, 0, 1, 0, 0, 0, 0, {2004, 2, 29, 0, 0, 0, 0, 0}},
        {"back a month", {2005, 3, 31, 12, 0, 0, 0, 0}, 0, -1, 0, 0, 0, 0, {2005, 2, 28, 12, 0, 0, 0, 0}},
        {"months carry years", {2005, 11, 15, 0, 0, 0, 0, 0}, 1, 14, 0, 0, 0, 0, {2008, 1, 15, 0, 0, 0, 0, 0}},
        {"seconds carry", {2005, 12, 31, 23, 59, 59, 0, 0}, 0, 0, 0, 0, 0, 1, {2006, 1, 1, 0, 0, 0, 0, 0}},
        {"negative time", {2005, 1, 1, 0, 0, 0, 0, 0}, 0, 0, 0, -1, -1, -1, {2004, 12, 31, 22, 58, 59, 0, 0}},
        {"days across years", {2004, 12, 31, 0, 0, 0, 0, 0}, 0, 0, 366, 0, 0, 0, {2006, 1, 1, 0, 0, 0, 0, 0}},
        {"zone kept", {2005, 3, 17, 8, 0, 0, 5, 30}, 0, 0, 0, 20, 0, 0, {2005, 3, 18, 4, 0, 0, 5, 30}},
        {"day 0 counts as 1", {2005, 3, 0, 0, 0, 0, 0, 0}, 0, 0, 1, 0, 0, 0, {2005, 3, 2, 0, 0, 0, 0, 0}},
        {"huge days", {2000, 1, 1, 0, 0, 0, 0, 0}, 0, 0, 2000000000, 0, 0, 0, {5477814, 1, 6, 0, 0, 0, 0, 0}},
    };
    for (const Row& row : rows) {
        DateTime t = make(row.from);
        t.add(row.years, row.months, row.days, row.hours, row.minutes, row.seconds);
        EXPECT_EQ(fieldsOf(t), row.to) << row.name;
    }
}

TEST(DateTimeCalendar, AddFollowsTheXmlSchemaRule) {
    // The rule, computed with the reference calendar: months (with years) first with the day
    // clamped to the new month, then days and the time of day as a linear count of seconds.
    std::mt19937 rng(5);
    for (int i = 0; i < 100000; ++i) {
        const Fields f = randomUtc(rng, 1, 9999);
        const int years = std::uniform_int_distribution<int>(-5000, 5000)(rng);
        const int months = std::uniform_int_distribution<int>(-60000, 60000)(rng) >> (rng() % 16);
        const int days = std::uniform_int_distribution<int>(-3000000, 3000000)(rng) >> (rng() % 20);
        const int secs = int(rng()) >> (rng() % 31);
        const int hrs = std::uniform_int_distribution<int>(-100000, 100000)(rng) >> (rng() % 17);
        const int mins = std::uniform_int_distribution<int>(-100000, 100000)(rng) >> (rng() % 17);

        const auto ym = date::year{f.year} / f.month + date::months{years * 12 + months};
        const unsigned last = unsigned((ym / date::last).day());
        const auto clamped = ym / std::min(unsigned(f.day), last);
        const sys_seconds expect = sys_days{clamped} + date::days{days} + hours{f.hour + hrs} +
                                   minutes{f.minute + mins} + seconds{f.second} + seconds{secs};

        DateTime t = make(f);
        t.add(years, months, days, hrs, mins, secs);
        ASSERT_EQ(fieldsOf(t), fieldsAt(expect))
            << "from " << make(f).toString().toStdString() << " add " << years << "y " << months
            << "m " << days << "d " << hrs << "h " << mins << "min " << secs << "s";
    }
}

TEST(DateTimeCalendar, AddSecondsOperatorCrossesTheYear) {
    DateTime t = parse("2005-01-01T00:00:00Z");
    t += -1;
    EXPECT_EQ(t.toString(), "2004-12-31T23:59:59Z");
    t += 86401;
    EXPECT_EQ(t.toString(), "2005-01-02");
}

TEST(DateTimeCalendar, ToSecondsDifferencesAreExact) {
    std::mt19937 rng(1);
    for (int i = 0; i < 100000; ++i) {
        const DateTime a = make(randomUtc(rng, 1, 9999));
        const DateTime b = make(randomUtc(rng, 1, 9999));
        ASSERT_EQ(a.toSeconds() - b.toSeconds(), (reference(a) - reference(b)).count())
            << a.toString().toStdString() << " - " << b.toString().toStdString();
    }
}

TEST(DateTimeCalendar, SecondsArithmeticRoundTrips) {
    // += moves by exactly the seconds the reference calendar counts, forwards and back.
    std::mt19937 rng(2);
    for (int i = 0; i < 50000; ++i) {
        const Fields f = randomUtc(rng, 1000, 9000);
        const long long delta = (static_cast<long long>(rng()) << 4) - (1LL << 35);
        DateTime t = make(f);
        t += delta;
        ASSERT_EQ(fieldsOf(t), fieldsAt(reference(make(f)) + seconds{delta}))
            << make(f).toString().toStdString() << " += " << delta;
        t += -delta;
        ASSERT_EQ(fieldsOf(t), f);
    }
}

// ---- Zones and comparison ----

TEST(DateTimeZones, ConversionsKeepTheInstant) {
    DateTime t = parse("2005-03-17T08:30:00+05:30");
    t.normalize();
    EXPECT_EQ(t.toString(), "2005-03-17T03:00:00Z");
    t.convertToZone(-5, 0);
    EXPECT_EQ(t.toString(), "2005-03-16T22:00:00-05:00");
    t.adjustTimeZone(9, 45);
    EXPECT_EQ(t.toString(), "2005-03-17T12:45:00+09:45");
    t.convertToZone(0, 0);
    EXPECT_EQ(t.toString(), "2005-03-17T03:00:00Z");

    std::mt19937 rng(4);
    for (int i = 0; i < 20000; ++i) {
        Fields f = randomUtc(rng, 1, 9999);
        f.zoneHours = int(rng() % 29) - 14;
        f.zoneMinutes = (f.zoneHours < 0 ? -1 : 1) * int(rng() % 4) * 15;
        const DateTime original = make(f);
        const int h = int(rng() % 29) - 14, m = (h < 0 ? -1 : 1) * int(rng() % 60);
        DateTime converted = original, adjusted = original, normal = original;
        converted.convertToZone(char(h), char(m));
        adjusted.adjustTimeZone(h, m);
        normal.normalize();
        ASSERT_EQ(fieldsOf(normal), fieldsAt(reference(original)));
        ASSERT_EQ(fieldsOf(converted), fieldsOf(adjusted));
        ASSERT_TRUE(converted == original);
        ASSERT_EQ(converted.toSeconds(), original.toSeconds());
    }
}

TEST(DateTimeZones, ComparisonUsesTheInstant) {
    struct Row {
        const char* a;
        const char* b;
        bool equal, greater;
    } rows[] = {
        {"2005-03-17T08:30:00+05:30", "2005-03-17T03:00:00Z", true, false},
        {"2005-03-17T08:30:01+05:30", "2005-03-17T03:00:00Z", false, true},
        {"2005-03-17T03:00:00Z", "2005-03-17T08:30:01+05:30", false, false},
        {"2005-01-01T00:30:00+01:00", "2004-12-31T23:29:59Z", false, true},
        {"2005", "2004-12-31T23:59:59Z", false, true},
        {"2005-03", "2005-02-28", false, true},
        {"-0044", "0001", false, false},
    };
    for (const Row& row : rows) {
        const DateTime a = parse(row.a), b = parse(row.b);
        EXPECT_EQ(a == b, row.equal) << row.a << " == " << row.b;
        EXPECT_EQ(a > b, row.greater) << row.a << " > " << row.b;
        EXPECT_EQ(b > a, !row.equal && !row.greater) << row.b << " > " << row.a;
    }
}

// ---- Durations and interpolation ----

TEST(DateTimeDuration, Examples) {
    struct Row {
        const char* to;
        const char* from;
        Fields duration;
    } rows[] = {
        {"2005-03-01", "2005-01-31", {0, 1, 1, 0, 0, 0, 0, 0}},  // Jan 31 + 1 month = Feb 28
        {"2006-03-17T10:31:02Z", "2005-03-17T08:30:00Z", {1, 0, 0, 2, 1, 2, 0, 0}},
        {"2005-03-17T08:30:00+05:30", "2005-03-17T03:00:00Z", {0, 0, 0, 0, 0, 0, 0, 0}},
        {"2005-01-01", "2005-01-02", {-1, 11, 30, 0, 0, 0, 0, 0}},
    };
    for (const Row& row : rows) {
        DateTime d = parse(row.to);
        d -= parse(row.from);
        EXPECT_EQ(fieldsOf(d), row.duration) << row.to << " - " << row.from;
    }
}

TEST(DateTimeDuration, AddingTheDurationGivesTheMinuendBack) {
    std::mt19937 rng(6);
    for (int i = 0; i < 50000; ++i) {
        Fields fa = randomUtc(rng, 1, 9999), fb = randomUtc(rng, 1, 9999);
        if (i % 2)
            fb = randomUtc(rng, fa.year - 1, fa.year + 1);
        fa.zoneHours = int(rng() % 5) - 2;
        const DateTime a = make(fa), b = make(fb);
        DateTime d = a;
        d -= b;
        ASSERT_TRUE(d.month <= 11 && d.day <= 30 && d.hour <= 23 && d.minute <= 59 &&
                    d.second <= 59 && d.zoneHours == 0 && d.zoneMinutes == 0)
            << fieldsOf(d);
        DateTime back = b;
        back.add(int(d.year), d.month, d.day, d.hour, d.minute, d.second);
        ASSERT_TRUE(back == a) << a.toString().toStdString() << " - " << b.toString().toStdString()
                               << " = " << fieldsOf(d);
    }
}

TEST(DateTimeInterpolate, EndsAndMiddle) {
    const DateTime a = parse("2005-03-17T08:30:00+05:30");
    const DateTime b = parse("2007-11-02T23:59:59Z");
    EXPECT_EQ(DateTime::Interpolate(a, b, 0.0f).toString(), "2005-03-17T03:00:00Z");
    EXPECT_EQ(DateTime::Interpolate(a, b, 1.0f).toString(), "2007-11-02T23:59:59Z");
    EXPECT_EQ(DateTime::Interpolate(parse("2005-03-17T00:00:00Z"), parse("2005-03-18T00:00:00Z"), 0.25f)
                  .toString(),
              "2005-03-17T06:00:00Z");
    EXPECT_EQ(DateTime::Interpolate(parse("1999-12-31T23:00:00Z"), parse("2000-01-01T01:00:00Z"), 0.5f)
                  .toString(),
              "2000");

    std::mt19937 rng(8);
    for (int i = 0; i < 10000; ++i) {
        const DateTime x = make(randomUtc(rng, 1, 9999)), y = make(randomUtc(rng, 1, 9999));
        const float t = std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
        const DateTime r = DateTime::Interpolate(x, y, t);
        const long long expect = x.toSeconds() + static_cast<long long>(double(t) * double(y.toSeconds() - x.toSeconds()));
        ASSERT_EQ(r.toSeconds(), expect);
    }
}

// ---- Conversions and the reference count ----

TEST(DateTimeConvert, FromQDateTimeAndToTheRunningClock) {
    DateTime t = make({1, 2, 3, 4, 5, 6, 7, 8});
    t = QDateTime(QDate(2005, 3, 17), QTime(8, 30, 15), QTimeZone(3600));
    EXPECT_EQ(fieldsOf(t), (Fields{2005, 3, 17, 8, 30, 15, 0, 0}));
    t = QDateTime();
    EXPECT_EQ(t.toString(), "314159");

    // The start instant and the running clock agree with the system clock now.
    const time_t now = time(nullptr);
    tm utc;
    gmtime_r(&now, &utc);
    DateTime stamp;
    stamp.set(utc.tm_year + 1900, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
    EXPECT_NEAR(stamp.toCurrentTime(), System::getTime(), 2.0);
}

TEST(Referent, CountIsNeverCopied) {
    struct Tracked : DateTime {
        explicit Tracked(bool* destroyed) : destroyed(destroyed) {}
        ~Tracked() override { *destroyed = true; }
        bool* destroyed;
    };
    DateTime a;
    a.ref();
    a.ref();
    DateTime b(a);
    EXPECT_EQ(b.getRefCount(), 0);
    b.ref();
    b = a;
    EXPECT_EQ(b.getRefCount(), 1);
    EXPECT_EQ(a.getRefCount(), 2);

    bool destroyed = false;
    Tracked* shared = new Tracked(&destroyed);
    shared->ref();
    shared->ref();
    EXPECT_EQ(shared->unref(), 1);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(shared->unref(), 0);
    EXPECT_TRUE(destroyed);
}
