// Tests of DateTime and Referent; the many-case checks run against an independent calendar library.
#include <vanta/datetime.h>
#include <vanta/stringconv.h>
#include <vanta/system.h>

#include <date/date.h>
#include <gtest/gtest.h>

#include <QDateTime>
#include <QRegularExpression>
#include <QTextStream>
#include <QTimeZone>

#include <random>

using namespace vanta;
using namespace std::chrono;
using date::sys_days;
using date::sys_seconds;

namespace {

struct Fields {
    int year, month, day, hour, minute, second, zoneHours, zoneMinutes;
    auto tie() const { return std::tie(year, month, day, hour, minute, second, zoneHours, zoneMinutes); }
    bool operator==(const Fields& o) const { return tie() == o.tie(); }
};

std::ostream& operator<<(std::ostream& os, const Fields& f) {
    return os << f.year << "-" << f.month << "-" << f.day << " " << f.hour << ":" << f.minute << ":"
              << f.second << " zone " << f.zoneHours << ":" << f.zoneMinutes;
}

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

DateTime parse(const QString& text) {
    DateTime t;
    text >> t;
    return t;
}

// Reads text into t; the reader's complaint, empty when it accepted the text.
QString read(const QString& text, DateTime& t) {
    try {
        text >> t;
    } catch (const QString& message) {
        return message;
    }
    return QString();
}

// The instant of a time stamp by the reference calendar, and back to UTC fields.
sys_seconds reference(const DateTime& t) {
    return sys_days{date::year{int(t.year)} / int(t.month) / int(t.day)} + hours{t.hour - t.zoneHours} +
           minutes{t.minute - t.zoneMinutes} + seconds{t.second};
}

Fields fieldsAt(sys_seconds when) {
    const auto day = date::floor<date::days>(when);
    const date::year_month_day ymd{day};
    const date::hh_mm_ss<seconds> time{when - day};
    return {int(ymd.year()), int(unsigned(ymd.month())), int(unsigned(ymd.day())),
            int(time.hours().count()), int(time.minutes().count()), int(time.seconds().count()), 0, 0};
}

Fields randomUtc(std::mt19937& rng, int firstYear, int lastYear) {
    const int y = std::uniform_int_distribution<int>(firstYear, lastYear)(rng);
    const int m = 1 + int(rng() % 12);
    const int d = std::uniform_int_distribution<int>(1, maximumDayInMonthFor(y, m))(rng);
    return {y, m, d, int(rng() % 24), int(rng() % 60), int(rng() % 60), 0, 0};
}

int uniform(std::mt19937& rng, int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

}  // namespace

TEST(DateTimeText, PrintedAndReadForms) {
    const struct {
        Fields fields;
        const char* text;
        bool printed;  // false: a form only the reader takes
    } rows[] = {
        {{314159, 1, 1, 0, 0, 0, 0, 0}, "314159", true},  // the default
        {{2005, 3, 1, 0, 0, 0, 0, 0}, "2005-03", true},
        {{2005, 1, 1, 0, 0, 0, 0, 0}, "2005", true},
        {{2005, 3, 17, 0, 0, 0, 0, 0}, "2005-03-17", true},
        {{2005, 1, 1, 0, 0, 1, 0, 0}, "2005-01-01T00:00:01Z", true},
        {{2005, 3, 17, 8, 30, 0, 5, 30}, "2005-03-17T08:30:00+05:30", true},
        {{2005, 3, 17, 8, 30, 0, -5, -30}, "2005-03-17T08:30:00-05:30", true},
        {{2005, 3, 17, 8, 30, 0, 0, 30}, "2005-03-17T08:30:00-00:30", true},  // the sign follows the hours
        {{2005, 1, 1, 0, 0, 0, 1, 0}, "2005-01-01T00:00:00+01:00", true},     // zoned midnight is in full
        {{-44, 3, 15, 0, 0, 0, 0, 0}, "-044-03-15", true},                    // the sign takes a digit
        {{-5, 12, 31, 23, 59, 59, -1, 0}, "-005-12-31T23:59:59-01:00", true},
        {{2005, 3, 17, 24, 0, 0, 0, 0}, "2005-03-17T24:00:00Z", true},  // the end of the day
        {{2005, 3, 17, 24, 0, 0, -5, 0}, "2005-03-17T24:00:00-05:00", true},
        {{2005, 12, 31, 23, 59, 60, 0, 0}, "2005-12-31T23:59:60Z", true},  // a leap second
        {{2005, 12, 31, 5, 29, 60, 5, 30}, "2005-12-31T05:29:60+05:30", true},
        {{2005, 6, 30, 23, 59, 60, 0, 0}, "2005-06-30T23:59:60", false},
        {{2005, 3, 17, 8, 30, 0, 0, 0}, "2005-03-17T08:30:00", false},
        {{2005, 3, 17, 8, 30, 59, 0, 0}, "2005-03-17T08:30:59.999", false},
        {{200005, 3, 17, 8, 30, 5, 0, 0}, "200005-03-17T08:30:05.5Z", false},  // shorter than the year
        {{2005, 3, 17, 8, 30, 0, 0, 0}, "2005-03-17T08:30:00Zxyz:-", false},  // nothing after Z is read
        {{-44, 1, 1, 0, 0, 0, 0, 0}, "-0044", false},
        {{2005, 3, 17, 0, 0, 0, 0, 0}, " 2005 - 03 -\t17 ", false},
        {{2004, 2, 29, 0, 0, 0, 0, 0}, "2004-02-29", false},
    };
    for (const auto& row : rows) {
        if (row.printed) {
            EXPECT_EQ(make(row.fields).toString(), QString::fromLatin1(row.text));
        }
        DateTime t;
        ASSERT_EQ(read(row.text, t), QString()) << row.text;
        EXPECT_EQ(fieldsOf(t), row.fields) << row.text;
    }
    // Fields the text does not reach keep their values.
    DateTime t = make({1999, 7, 20, 10, 11, 12, 2, 0});
    QStringLiteral("2005-03") >> t;
    EXPECT_EQ(fieldsOf(t), (Fields{2005, 3, 20, 10, 11, 12, 2, 0}));
}

TEST(DateTimeRead, MalformedTextThrowsTheMessageAndLeavesTheTarget) {
    const char* rejected[] = {
        "", " ", "Z", "abcd", "20x5", "1e3", "inf", "nan", "--5", "2005:03", "99999999",
        "2005-3-17", "2005-3", "2005-03-7", "2005-03-17-08", "2005-03T08:30:00Z",
        "2005-03-17T08:30", "2005-03-17T08", "2005-03-17T08:30:00+05", "2005-03-17T08:30:00+05:3",
        "2005-03-17T8:30:00Z", "2005-03-17T08:30:0Z", "2005-03-17t08:30:00Z", "2005-03-17T08:30:00.5.5Z",
        "2005-13", "2005-00", "2005-1/", "2005-03-1/", "2005-03-17T08:3.:00Z", "2005-02-29", "2005-04-31", "2005-03-17T25:00:00Z",
        "2005-03-17T24:01:00Z", "2005-03-17T24:00:01Z", "2005-03-17T24:00:60Z", "2005-03-17T24:00:00.5Z",
        "2005-03-17T24:00:00.0", "2005-03-17T08:30:60.5Z", "2005-03-17T08:30:60.0-01:00",
        "2005-03-17T08:30:61Z", "2005-03-17T08:60:00Z", "2005-03-17T08:30:00+24:00",
        "2005-03-17T08:30:00+05:60", "\xd9\xa2\xd9\xa0\xd9\xa0\xd9\xa5",  // digits of another script
        "000000000000000000000000000000000000000000000000000000000000000000002005",
    };
    const Fields before{1999, 12, 31, 23, 59, 58, 3, 0};
    for (const char* row : rejected) {
        const QString text = QString::fromUtf8(row);
        DateTime target = make(before);
        EXPECT_EQ(read(text, target), "Could not parse time value " + text) << row;
        EXPECT_EQ(fieldsOf(target), before) << row;
    }
}

TEST(DateTimeRead, EndOfDayAndLeapSecondAreTheFollowingInstant) {
    const std::pair<const char*, const char*> rows[] = {  // as read, the same instant in range
        {"2005-03-17T24:00:00Z", "2005-03-18T00:00:00Z"},
        {"2004-12-31T24:00:00Z", "2005"},
        {"2005-02-28T24:00:00+01:00", "2005-02-28T23:00:00Z"},
        {"2005-12-31T23:59:60Z", "2006"},
        {"2005-06-30T23:59:60-01:30", "2005-07-01T01:30:00Z"},
        {"2005-03-17T08:30:60Z", "2005-03-17T08:31:00Z"},
    };
    for (const auto& [text, same] : rows) {
        const DateTime t = parse(text), u = parse(same);
        EXPECT_EQ(t.toSeconds(), u.toSeconds()) << text;
        EXPECT_TRUE(t == u && !(t > u) && !(u > t)) << text;
        DateTime before = u;
        before += -1;
        EXPECT_TRUE(t > before && !(before > t)) << text;
        // Normalizing moves only a zoned clock: a UTC stamp prints back as it was written.
        DateTime normal = t;
        normal.normalize();
        const bool utc = t.zoneHours == 0 && t.zoneMinutes == 0;
        EXPECT_EQ(normal.toString(), utc ? QString::fromLatin1(text) : u.toString()) << text;
    }
    // Minutes past their range, which only a direct write can store, carry as a zone moves them.
    DateTime t = make({2005, 3, 17, 8, 60, 0, 1, 0});
    t.normalize();
    EXPECT_EQ(t.toString(), "2005-03-17T08:00:00Z");
}

TEST(DateTimeRead, PrintedFormsReadBackAsTheSameStamp) {
    std::mt19937 rng(11);
    for (int i = 0; i < 20000; ++i) {
        Fields f = randomUtc(rng, -9999, 99999);
        switch (i % 6) {  // each reduced precision, UTC, and both zone signs
        case 0: f.month = 1; [[fallthrough]];
        case 1: f.day = 1; [[fallthrough]];
        case 2: f.hour = f.minute = f.second = 0; break;
        case 4: f.zoneHours = -1 - int(rng() % 23); f.zoneMinutes = -int(rng() % 60); break;
        case 5: f.zoneHours = int(rng() % 24); f.zoneMinutes = int(rng() % 60); break;
        }
        const QString text = make(f).toString();
        DateTime t;
        ASSERT_EQ(read(text, t), QString()) << text.toStdString();
        ASSERT_EQ(fieldsOf(t), f) << text.toStdString();
    }
}

TEST(DateTimeRead, StreamOperators) {
    QString buffer;
    QTextStream out(&buffer);
    out << make({2005, 3, 17, 8, 30, 0, 5, 30}) << ' ' << DateTime();
    out.flush();
    EXPECT_EQ(buffer, "2005-03-17T08:30:00+05:30 314159");
    Utf8OStream utf8;
    utf8 << make({2005, 3, 1, 0, 0, 0, 0, 0});
    EXPECT_EQ(QByteArray(utf8.data(), utf8.length()), "2005-03");

    QString source = "  2005-03-17\n T08:30:00Z";
    QTextStream in(&source);
    DateTime t;
    in >> t;
    EXPECT_EQ(fieldsOf(t), (Fields{2005, 3, 17, 8, 30, 0, 0, 0}));
    EXPECT_TRUE(in.atEnd()) << "the reader takes all remaining text";
}

TEST(DateTimeHttp, Examples) {
    const int unset = DateTime::kUnsetYear;
    const std::pair<const char*, Fields> rows[] = {  // each read into {1, 2, 3, 4, 5, 6, zone 7:8}
        {"Thu, 17 Mar 2005 08:30:00 GMT", {2005, 3, 17, 8, 30, 0, 0, 0}},
        {"Mon, 17 Mar 2005 08:30:00 +0200", {2005, 3, 17, 8, 30, 0, 0, 0}},  // weekday, zone unread
        {"Date: Thu,17\tMar\n2005  8:3:7", {2005, 3, 17, 8, 3, 7, 0, 0}},
        {"Wed, 31 Dec 2008 23:59:60 GMT", {2008, 12, 31, 23, 59, 60, 0, 0}},  // a leap second
        {"Wed, 31 Dec 2008 24:00:00 GMT", {2008, 12, 31, 24, 0, 0, 0, 0}},    // the end of the day
        {"Wed, 31 Dec 2008 24:00:01 GMT", {unset, 12, 31, 24, 0, 6, 7, 8}},
        {"Wed, 31 Dec 2008 24:01:00 GMT", {unset, 12, 31, 24, 5, 6, 7, 8}},
        {"Wed, 31 Dec 2008 25:00:00 GMT", {unset, 12, 31, 4, 5, 6, 7, 8}},
        {"Wed, 31 Dec 2008 23:59:61 GMT", {unset, 12, 31, 23, 59, 6, 7, 8}},
        {"Thu, 17 Mar2005 08:30:00, 18 Apr 2006 09:31:01", {2006, 4, 18, 9, 31, 1, 0, 0}},
        {"Thu, 17 mar 2005 08:30:00 GMT", {unset, 2, 17, 4, 5, 6, 7, 8}},  // month names are case-sensitive
        {"Thu, 31 Feb 2005 08:30:00 GMT", {unset, 2, 31, 4, 5, 6, 7, 8}},
        {"Thu, 17 Mar 99999999999 08:30:00", {unset, 3, 17, 4, 5, 6, 7, 8}},
        {"17 Mar 2005 08:30:00 GMT", {unset, 2, 3, 4, 5, 6, 7, 8}},
        {"Thu, 17 Mar 2005 08:30", {unset, 2, 3, 4, 5, 6, 7, 8}},
    };
    for (const auto& [text, fields] : rows) {
        DateTime t = make({1, 2, 3, 4, 5, 6, 7, 8});
        t.parseHttpDate(QString::fromLatin1(text));
        EXPECT_EQ(fieldsOf(t), fields) << text;
    }
}

TEST(DateTimeHttp, FindsWhatTheRegularExpressionFinds) {
    // The hand-written search against the pattern run by PCRE2, on random texts made of the
    // pieces HTTP dates are made of.
    static const QRegularExpression pattern(
        "\\s*([^,]+),\\s*([0-9]+)\\s+(\\w+)\\s+([0-9]+)\\s+([0-9]+):([0-9]+):([0-9]+)");
    const QStringList months = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const char* pieces[] = {",", " ", "\t", ":", "Thu", "Mar", "Feb", "mar", "_x", "17", "2005",
                            "08", "7", "0", "31", "99999999999", "\xc3\xa4", "-"};
    std::mt19937 rng(3);
    int matched = 0;
    for (int i = 0; i < 30000; ++i) {
        QString text;
        if (i % 3 == 0) {
            text = QString::asprintf("Thu, %d %s %d %02d:%02d:%02d", int(rng() % 40),
                                     qPrintable(months[rng() % 12]), int(rng() % 3000), int(rng() % 30),
                                     int(rng() % 70), int(rng() % 70));
            text.insert(int(rng() % (text.size() + 1)), QString::fromUtf8(pieces[rng() % 18]));
        } else {
            for (int k = 4 + int(rng() % 14); k > 0; --k)
                text += QString::fromUtf8(pieces[rng() % 18]);
        }
        // Unset unless the pattern matches and every field converts and is in range.
        Fields expect{DateTime::kUnsetYear, 1, 1, 0, 0, 0, 0, 0};
        const QRegularExpressionMatch m = pattern.match(text);
        matched += m.hasMatch();
        bool ok[5] = {};
        const int d = m.captured(2).toInt(&ok[0]), y = m.captured(4).toInt(&ok[1]);
        const int h = m.captured(5).toInt(&ok[2]), mi = m.captured(6).toInt(&ok[3]);
        const int s = m.captured(7).toInt(&ok[4]), mo = 1 + int(months.indexOf(m.captured(3)));
        if (ok[0] && ok[1] && ok[2] && ok[3] && ok[4] && mo >= 1 && d >= 1 && y <= 16777216 &&
            d <= maximumDayInMonthFor(y, mo) && (h <= 23 || (h == 24 && mi == 0 && s == 0)) &&
            mi <= 59 && s <= 60)
            expect = {y, mo, d, h, mi, s, 0, 0};
        DateTime got;
        got.parseHttpDate(text);
        if (expect.year == DateTime::kUnsetYear)
            ASSERT_EQ(int(got.year), DateTime::kUnsetYear) << text.toStdString();
        else
            ASSERT_EQ(fieldsOf(got), expect) << text.toStdString();
    }
    EXPECT_GT(matched, 5000) << "the generator must produce matches to compare";
}

TEST(DateTimeCalendar, MaximumDayInMonthFor) {
    for (int y = 1600; y <= 2400; ++y)
        for (int m = 1; m <= 12; ++m)
            ASSERT_EQ(maximumDayInMonthFor(y, m), int(unsigned((date::year{y} / m / date::last).day())));
    // Months outside 1..12 count into neighbouring years.
    EXPECT_EQ(maximumDayInMonthFor(2005, 13), 31);
    EXPECT_EQ(maximumDayInMonthFor(2004, 14), 28);
    EXPECT_EQ(maximumDayInMonthFor(2005, 0), 31);
    EXPECT_EQ(maximumDayInMonthFor(2002, -22), 29);
}

TEST(DateTimeCalendar, AddFollowsTheXmlSchemaRule) {
    const struct {
        Fields from;
        int years, months, days, hours, minutes, seconds;
        Fields to;
    } rows[] = {
        {{2005, 3, 17, 8, 0, 0, 5, 30}, 0, 0, 0, 20, 0, 0, {2005, 3, 18, 4, 0, 0, 5, 30}},  // zone kept
        {{2005, 3, 0, 0, 0, 0, 0, 0}, 0, 0, 1, 0, 0, 0, {2005, 3, 2, 0, 0, 0, 0, 0}},  // day 0 counts as 1
        {{2000, 1, 1, 0, 0, 0, 0, 0}, 0, 0, 2000000000, 0, 0, 0, {5477814, 1, 6, 0, 0, 0, 0, 0}},
    };
    for (const auto& row : rows) {
        DateTime t = make(row.from);
        t.add(row.years, row.months, row.days, row.hours, row.minutes, row.seconds);
        EXPECT_EQ(fieldsOf(t), row.to) << row.from;
    }
    // By the reference calendar: months (with years) first, the day clamped to the new month,
    // then days and the time of day as a linear count of seconds.
    std::mt19937 rng(5);
    for (int i = 0; i < 100000; ++i) {
        const Fields f = randomUtc(rng, 1, 9999);
        const int years = uniform(rng, -5000, 5000), months = uniform(rng, -60000, 60000) >> (rng() % 16);
        const int days = uniform(rng, -3000000, 3000000) >> (rng() % 20);
        const int hrs = uniform(rng, -99999, 99999) >> (rng() % 17);
        const int mins = uniform(rng, -99999, 99999) >> (rng() % 17), secs = int(rng()) >> (rng() % 31);
        const auto ym = date::year{f.year} / f.month + date::months{years * 12 + months};
        const auto clamped = ym / std::min(unsigned(f.day), unsigned((ym / date::last).day()));
        const sys_seconds expect = sys_days{clamped} + date::days{days} + hours{f.hour + hrs} +
                                   minutes{f.minute + mins} + seconds{f.second + 0LL + secs};
        DateTime t = make(f);
        t.add(years, months, days, hrs, mins, secs);
        ASSERT_EQ(fieldsOf(t), fieldsAt(expect)) << f << " + " << years << "y " << months << "m " << days
                                                 << "d " << hrs << "h " << mins << "min " << secs << "s";
    }
}

TEST(DateTimeCalendar, Examples) {
    DateTime t = parse("2005-01-01T00:00:00Z");
    t += -1;
    EXPECT_EQ(t.toString(), "2004-12-31T23:59:59Z");
    t = parse("2005-03-17T08:30:00+05:30");
    t.normalize();
    EXPECT_EQ(t.toString(), "2005-03-17T03:00:00Z");
    t.convertToZone(-5, 0);
    EXPECT_EQ(t.toString(), "2005-03-16T22:00:00-05:00");
    t.adjustTimeZone(9, 45);
    EXPECT_EQ(t.toString(), "2005-03-17T12:45:00+09:45");
    EXPECT_FALSE(parse("-0044") > parse("0001"));
    // Months outside 1..12, which only a direct write stores, count into the year.
    EXPECT_EQ(make({2005, 13, 1, 0, 0, 0, 0, 0}).toSeconds(), parse("2006").toSeconds());
    EXPECT_EQ(make({2005, 0, 31, 0, 0, 0, 0, 0}).toSeconds(), parse("2004-12-31").toSeconds());

    const std::tuple<const char*, const char*, Fields> durations[] = {  // to, from, to - from
        {"2005-03-01", "2005-01-31", {0, 1, 1, 0, 0, 0, 0, 0}},  // 31 January + 1 month = 28 February
        {"2006-03-17T10:31:02Z", "2005-03-17T08:30:00Z", {1, 0, 0, 2, 1, 2, 0, 0}},
        {"2005-01-01", "2005-01-02", {-1, 11, 30, 0, 0, 0, 0, 0}},
        // Counted from the zoned stamp's own 30 January, not from 31 January in UTC.
        {"2005-02-28T03:00:00Z", "2005-01-30T22:00:00-05:00", {0, 0, 28, 0, 0, 0, 0, 0}},
        {"2005-03-01T03:00:00Z", "2005-01-30T22:00:00-05:00", {0, 1, 0, 0, 0, 0, 0, 0}},
        // So are 24:00:00 and a leap second: the month clamps day 30, the carry follows.
        {"2005-03-01", "2005-01-30T24:00:00Z", {0, 1, 0, 0, 0, 0, 0, 0}},
        {"2005-03-01", "2005-01-30T23:59:60Z", {0, 1, 0, 0, 0, 0, 0, 0}},
    };
    for (const auto& [to, from, duration] : durations) {
        DateTime d = parse(to);
        d -= parse(from);
        EXPECT_EQ(fieldsOf(d), duration) << to << " - " << from;
        DateTime back = parse(from);
        back.add(int(d.year), d.month, d.day, d.hour, d.minute, d.second);
        EXPECT_TRUE(back == parse(to)) << to << " - " << from << ": " << back.toString().toStdString();
    }

    const DateTime a = parse("2005-03-17T08:30:00+05:30"), b = parse("2007-11-02T23:59:59Z");
    EXPECT_EQ(DateTime::Interpolate(a, b, 0.0f).toString(), "2005-03-17T03:00:00Z");
    EXPECT_EQ(DateTime::Interpolate(a, b, 1.0f).toString(), "2007-11-02T23:59:59Z");
    EXPECT_EQ(DateTime::Interpolate(parse("1999-12-31T23:00:00Z"), parse("2000-01-01T01:00:00Z"), 0.5f)
                  .toString(), "2000");
}

// Random stamps (both zoned, b every other time within a year of a) against the reference
// calendar: second counts, moves by seconds, zone changes, comparisons, durations, interpolation.
TEST(DateTimeCalendar, ArithmeticMatchesTheReferenceCalendar) {
    std::mt19937 rng(1);
    for (int i = 0; i < 100000; ++i) {
        Fields fa = randomUtc(rng, 1, 9999);
        Fields fb = randomUtc(rng, i % 2 ? std::max(1, fa.year - 1) : 1, i % 2 ? fa.year + 1 : 9999);
        for (Fields* f : {&fa, &fb}) {
            f->zoneHours = uniform(rng, -14, 14);
            f->zoneMinutes = (f->zoneHours < 0 ? -1 : 1) * int(rng() % 4) * 15;
        }
        const DateTime a = make(fa), b = make(fb);
        SCOPED_TRACE(testing::Message() << fa << " and " << fb);
        ASSERT_EQ(a.toSeconds() - b.toSeconds(), (reference(a) - reference(b)).count());
        ASSERT_EQ(a > b, reference(a) > reference(b));
        ASSERT_EQ(b > a, reference(b) > reference(a));

        DateTime normal = a, converted = a, adjusted = a;
        normal.normalize();
        ASSERT_EQ(fieldsOf(normal), fieldsAt(reference(a)));
        const int h = uniform(rng, -14, 14), m = (h < 0 ? -1 : 1) * int(rng() % 60);
        converted.convertToZone(char(h), char(m));
        adjusted.adjustTimeZone(h, m);
        ASSERT_EQ(fieldsOf(converted), fieldsOf(adjusted));
        ASSERT_TRUE(converted == a && !(converted > a) && !(a > converted));
        if (fa.year >= 1000 && fa.year <= 9000) {
            const long long delta = (static_cast<long long>(rng()) << 4) - (1LL << 35);  // about +-1000 years
            normal += delta;
            ASSERT_EQ(fieldsOf(normal), fieldsAt(reference(a) + seconds{delta})) << " += " << delta;
        }

        DateTime d = a;
        d -= b;
        ASSERT_TRUE(d.month <= 11 && d.day <= 30 && d.hour <= 23 && d.minute <= 59 && d.second <= 59)
            << fieldsOf(d);
        DateTime back = b;
        back.add(int(d.year), d.month, d.day, d.hour, d.minute, d.second);
        ASSERT_TRUE(back == a) << fieldsOf(d);

        const float t = std::uniform_real_distribution<float>(0.0f, 1.0f)(rng);
        ASSERT_EQ(DateTime::Interpolate(b, a, t).toSeconds(),
                  b.toSeconds() + (long long)(double(t) * double(a.toSeconds() - b.toSeconds())));
    }
}

TEST(DateTimeConvert, FromQDateTimeAndToTheRunningClock) {
    DateTime t = make({1, 2, 3, 4, 5, 6, 7, 8});
    t = QDateTime(QDate(2005, 3, 17), QTime(8, 30, 15), QTimeZone(3600));
    EXPECT_EQ(fieldsOf(t), (Fields{2005, 3, 17, 8, 30, 15, 0, 0}));
    t = QDateTime();
    EXPECT_EQ(t.toString(), "314159");
    t = QDateTime::currentDateTimeUtc();
    EXPECT_NEAR(t.toCurrentTime(), System::getTime(), 2.0);
}

TEST(Referent, CountIsNeverCopiedAndTheLastUnrefDeletes) {
    DateTime a, b;
    a.ref();
    a.ref();
    b.ref();
    const DateTime copy(a);
    b = a;
    EXPECT_EQ(copy.getRefCount(), 0);
    EXPECT_EQ(b.getRefCount(), 1);

    static bool destroyed = false;
    struct Tracked : DateTime {
        ~Tracked() override { destroyed = true; }
    };
    Tracked* shared = new Tracked;
    shared->ref();
    shared->ref();
    EXPECT_EQ(shared->unref(), 1);
    EXPECT_FALSE(destroyed);
    EXPECT_EQ(shared->unref(), 0);
    EXPECT_TRUE(destroyed);
}
