// vanta::DateTime: printing, the ISO 8601 and HTTP readers, and the XML Schema calendar arithmetic.
#include <vanta/datetime.h>

#include <vanta/stringconv.h>
#include <vanta/system.h>

#include <QDateTime>
#include <QTextStream>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace vanta {
namespace {

constexpr int kDaysBeforeMonth[13] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};
constexpr char kMonthNames[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr long long kDaysPer400Years = 146097;
// Years the readers accept: every integer of this magnitude is exact in the float year field.
constexpr long long kMaxReadYear = 16777216;
// toSeconds() saturates its day count here, so that neither a result nor the difference of two
// results can overflow.
constexpr long long kMaxDays = 50000000000000LL;

// Float or double to a 64-bit integer, truncating toward zero; NaN gives 0 and values beyond the
// range saturate, so corrupt inputs (interpolation by infinity, years grown by huge additions)
// never reach an undefined conversion.
long long truncToLong(double v) {
    if (!(v == v))
        return 0;
    if (v >= 9.2e18)
        return 9200000000000000000LL;
    if (v <= -9.2e18)
        return -9200000000000000000LL;
    return static_cast<long long>(v);
}

int truncToInt(double v) {
    const long long n = truncToLong(v);
    if (n > std::numeric_limits<int>::max())
        return std::numeric_limits<int>::max();
    if (n < std::numeric_limits<int>::min())
        return std::numeric_limits<int>::min();
    return int(n);
}

bool isLeap(long long y) { return (y % 4 == 0 && y % 100 != 0) || y % 400 == 0; }

// The XML Schema fQuotient and modulo: floor(a / b) and a - floor(a / b) * b for b > 0.
// The quotient is taken in single precision as the rule is written; for large operands the
// float rounding can land on the wrong integer, which would leave the remainder outside [0, b)
// and a field out of its range, so then the exact integer floor is used instead.
struct Division {
    long long quotient;
    long long remainder;
};

Division divide(long long a, long long b) {
    long long q = static_cast<long long>(std::floor(float(a) / float(b)));
    long long r = a - q * b;
    if (r < 0 || r >= b) {
        q = a / b - ((a % b) < 0 ? 1 : 0);
        r = a - q * b;
    }
    return {q, r};
}

int daysInMonth(long long year, long long month) {
    const Division d = divide(month - 1, 12);
    const long long m = d.remainder + 1;
    const long long y = year + d.quotient;
    switch (m) {
    case 4: case 6: case 9: case 11:
        return 30;
    case 2:
        return isLeap(y) ? 29 : 28;
    default:
        return 31;
    }
}

// The whole year of a time stamp, for the integer calendar rules. Limited to a quadrillion years
// (far past the years a float holds exactly) so that the arithmetic on it can never overflow.
long long wholeYear(float year) {
    constexpr long long kLimit = 1000000000000000LL;
    return std::clamp(truncToLong(year), -kLimit, kLimit);
}

// The XML Schema rule for adding a duration. Days may reach the 64-bit range divided by a day's
// seconds; months may reach the month count of the year limit; the other arguments stay within
// a few times the int range.
void addDuration(DateTime& t, long long years, long long months, long long days, long long hours,
                 long long minutes, long long seconds) {
    Division step = divide(t.month + months - 1, 12);
    t.month = static_cast<unsigned char>(step.remainder + 1);
    long long year = wholeYear(t.year) + years + step.quotient;

    step = divide(t.second + seconds, 60);
    t.second = static_cast<unsigned char>(step.remainder);
    step = divide(t.minute + minutes + step.quotient, 60);
    t.minute = static_cast<unsigned char>(step.remainder);
    step = divide(t.hour + hours + step.quotient, 24);
    t.hour = static_cast<unsigned char>(step.remainder);

    long long month = t.month;
    const int max = daysInMonth(year, month);
    const long long startDay = t.day > max ? max : (t.day == 0 ? 1 : t.day);
    long long d = startDay + days + step.quotient;

    // Every run of 4800 consecutive months holds exactly 146097 days, so whole 400-year cycles
    // can be skipped at once; the month walk below then takes at most 4800 steps.
    if (d > kDaysPer400Years) {
        const long long cycles = (d - 1) / kDaysPer400Years;
        d -= cycles * kDaysPer400Years;
        year += 400 * cycles;
    } else if (d <= -kDaysPer400Years) {
        const long long cycles = -d / kDaysPer400Years;
        d += cycles * kDaysPer400Years;
        year -= 400 * cycles;
    }
    for (;;) {
        if (d < 1) {
            d += daysInMonth(year, month - 1);
            if (--month < 1) {
                month = 12;
                --year;
            }
        } else if (d > daysInMonth(year, month)) {
            d -= daysInMonth(year, month);
            if (++month > 12) {
                month = 1;
                ++year;
            }
        } else {
            break;
        }
    }
    t.month = static_cast<unsigned char>(month);
    t.day = static_cast<unsigned char>(d);
    t.year = float(year);
}

// Appends value as printf's "%0<width>d" would: the sign counts toward the width.
char* putPadded(char* p, long long value, int width) {
    char digits[24];
    int n = 0;
    unsigned long long u = value < 0 ? 0ULL - static_cast<unsigned long long>(value)
                                     : static_cast<unsigned long long>(value);
    do {
        digits[n++] = char('0' + u % 10);
        u /= 10;
    } while (u != 0);
    if (value < 0) {
        *p++ = '-';
        --width;
    }
    for (int i = n; i < width; ++i)
        *p++ = '0';
    while (n > 0)
        *p++ = digits[--n];
    return p;
}

// ---- The ISO 8601 reader ----

// The characters of the field being read. Fields are short; a longer one cannot be a number
// of any field, so overflowing the buffer fails the read.
class FieldBuffer {
public:
    bool empty() const { return mLength == 0; }
    int length() const { return mLength; }
    void clear() { mLength = 0; }
    bool push(char16_t c) {
        if (mLength == kCapacity)
            return false;
        // Only ASCII can belong to a number; anything else is kept as a character no number has.
        mText[mLength++] = c < 0x80 ? char(c) : '\x7f';
        return true;
    }

    // An optionally signed run of decimal digits, the whole buffer. Values saturate at a
    // billion, which is out of range for every field.
    bool readInt(int& value) const {
        int i = mLength > 0 && (mText[0] == '-' || mText[0] == '+') ? 1 : 0;
        if (i == mLength)
            return false;
        long long v = 0;
        for (; i < mLength; ++i) {
            if (mText[i] < '0' || mText[i] > '9')
                return false;
            v = std::min(v * 10 + (mText[i] - '0'), 1000000000LL);
        }
        value = int(mText[0] == '-' ? -v : v);
        return true;
    }

    // A decimal number with an optional sign and fraction (at least one digit), the whole
    // buffer, truncated toward zero. Exponents and the words inf and nan are not accepted.
    bool readTruncated(long long& value) const {
        int i = mLength > 0 && (mText[0] == '-' || mText[0] == '+') ? 1 : 0;
        long long v = 0;
        int digits = 0;
        for (; i < mLength && mText[i] >= '0' && mText[i] <= '9'; ++i, ++digits) {
            v = std::min(v * 10 + (mText[i] - '0'), 1000000000000LL);
        }
        if (i < mLength && mText[i] == '.') {
            for (++i; i < mLength && mText[i] >= '0' && mText[i] <= '9'; ++i)
                ++digits;
        }
        if (i != mLength || digits == 0)
            return false;
        value = mText[0] == '-' ? -v : v;
        return true;
    }

private:
    static constexpr int kCapacity = 64;
    char mText[kCapacity];
    int mLength = 0;
};

enum ReadState { kYear, kMonth, kDay, kHour, kMinute, kSecond, kZoneHours, kZoneMinutes };

bool readYear(const FieldBuffer& b, DateTime& t) {
    long long y;
    if (!b.readTruncated(y) || y > kMaxReadYear || y < -kMaxReadYear)
        return false;
    t.year = float(y);
    return true;
}

bool readIntField(const FieldBuffer& b, int lo, int hi, unsigned char& field) {
    int v;
    if (!b.readInt(v) || v < lo || v > hi)
        return false;
    field = static_cast<unsigned char>(v);
    return true;
}

bool readDay(const FieldBuffer& b, DateTime& t) {
    int v;
    if (!b.readInt(v) || v < 1 || v > daysInMonth(wholeYear(t.year), t.month))
        return false;
    t.day = static_cast<unsigned char>(v);
    return true;
}

// Seconds with an optional fraction. A leap second (60) and the end of the day (24:00:00) are
// taken only as whole seconds: 60.5 or 24:00:00.5 name no instant.
bool readSeconds(const FieldBuffer& b, DateTime& t) {
    long long s;
    if (b.length() < 2 || !b.readTruncated(s) || s < 0 || s > 60)
        return false;
    if (s == 60 && b.length() != 2)
        return false;
    if (t.hour == 24 && (s != 0 || b.length() != 2))
        return false;
    t.second = static_cast<unsigned char>(s);
    return true;
}

bool readZoneHours(const FieldBuffer& b, DateTime& t) {
    int v;
    if (!b.readInt(v) || v < -23 || v > 23)
        return false;
    t.zoneHours = static_cast<signed char>(v);
    return true;
}

bool readZoneMinutes(const FieldBuffer& b, DateTime& t) {
    int v;
    if (b.length() != 2 || !b.readInt(v) || v < 0 || v > 59)
        return false;
    t.zoneMinutes = static_cast<signed char>(t.zoneHours < 0 ? -v : v);
    return true;
}

// Reads text into t field by field; false on malformed text (t is then partly written).
bool readIso(const QString& text, DateTime& t) {
    FieldBuffer b;
    int state = kYear;
    for (const QChar qc : text) {
        const char16_t c = qc.unicode();
        if (qc.isSpace())
            continue;
        switch (c) {
        case '-':
            if (b.empty())
                break;  // the sign of the next number
            if (state == kYear) {
                if (!readYear(b, t))
                    return false;
                state = kMonth;
            } else if (state == kMonth && b.length() >= 2) {
                if (!readIntField(b, 1, 12, t.month))
                    return false;
                state = kDay;
            } else if (state == kSecond && b.length() >= 2) {
                if (!readSeconds(b, t))
                    return false;
                state = kZoneHours;
                b.clear();
                b.push('-');  // the zone hours read negative
                continue;
            } else {
                return false;
            }
            b.clear();
            continue;
        case '+':
            if (b.empty())
                break;
            if (state != kSecond || !readSeconds(b, t))
                return false;
            state = kZoneHours;
            b.clear();
            continue;
        case ':':
            if (state == kHour && b.length() == 2) {
                if (!readIntField(b, 0, 24, t.hour))
                    return false;
                state = kMinute;
            } else if (state == kMinute && b.length() == 2) {
                // Hour 24 is the end of the day, 24:00:00, and nothing later.
                if (!readIntField(b, 0, t.hour == 24 ? 0 : 59, t.minute))
                    return false;
                state = kSecond;
            } else if (state == kZoneHours) {
                if (!readZoneHours(b, t))
                    return false;
                state = kZoneMinutes;
            } else {
                return false;
            }
            b.clear();
            continue;
        case 'T':
            if (state != kDay || b.length() != 2 || !readDay(b, t))
                return false;
            state = kHour;
            b.clear();
            continue;
        case 'Z':
            // A UTC time stamp ends here; whatever follows is not read.
            if (state != kSecond || !readSeconds(b, t))
                return false;
            t.zoneHours = 0;
            t.zoneMinutes = 0;
            return true;
        default:
            break;
        }
        if (!b.push(c))
            return false;
    }
    switch (state) {
    case kYear:
        return readYear(b, t);
    case kMonth:
        return b.length() == 2 && readIntField(b, 1, 12, t.month);
    case kDay:
        return b.length() == 2 && readDay(b, t);
    case kSecond:
        if (!readSeconds(b, t))
            return false;
        t.zoneHours = 0;
        t.zoneMinutes = 0;
        return true;
    case kZoneMinutes:
        return readZoneMinutes(b, t);
    default:
        return false;
    }
}

// ---- The HTTP date reader ----
//
// A hand-written search for the pattern
//   \s*([^,]+),\s*([0-9]+)\s+(\w+)\s+([0-9]+)\s+([0-9]+):([0-9]+):([0-9]+)
// with the classes taken as ASCII, as a regular-expression engine without Unicode properties
// does. The pattern is deterministic after its comma: each greedy run is followed by a
// character its class excludes, so no backtracking can change a group. Before the comma,
// [^,]+ reaches exactly to the next comma, so the leftmost match starts in the first
// comma-terminated, non-empty segment whose tail matches. The weekday is not checked.

bool isAsciiSpace(char16_t c) { return c == ' ' || (c >= 9 && c <= 13); }
bool isDigit(char16_t c) { return c >= '0' && c <= '9'; }
bool isWordChar(char16_t c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

struct Span {
    qsizetype begin;
    qsizetype end;
};

// Advances i over a run of characters of a class; returns the run (empty if none).
template <class Pred>
Span run(const QChar* s, qsizetype n, qsizetype& i, Pred inClass) {
    const qsizetype begin = i;
    while (i < n && inClass(s[i].unicode()))
        ++i;
    return {begin, i};
}

bool empty(Span span) { return span.begin == span.end; }

struct HttpGroups {
    Span day, month, year, hour, minute, second;
};

bool matchTail(const QChar* s, qsizetype n, qsizetype i, HttpGroups& g) {
    run(s, n, i, isAsciiSpace);
    g.day = run(s, n, i, isDigit);
    if (empty(g.day) || empty(run(s, n, i, isAsciiSpace)))
        return false;
    g.month = run(s, n, i, isWordChar);
    if (empty(g.month) || empty(run(s, n, i, isAsciiSpace)))
        return false;
    g.year = run(s, n, i, isDigit);
    if (empty(g.year) || empty(run(s, n, i, isAsciiSpace)))
        return false;
    g.hour = run(s, n, i, isDigit);
    if (empty(g.hour) || i == n || s[i] != u':')
        return false;
    ++i;
    g.minute = run(s, n, i, isDigit);
    if (empty(g.minute) || i == n || s[i] != u':')
        return false;
    ++i;
    g.second = run(s, n, i, isDigit);
    return !empty(g.second);
}

bool findHttpDate(const QString& text, HttpGroups& g) {
    const QChar* s = text.constData();
    const qsizetype n = text.size();
    qsizetype segment = 0;
    for (qsizetype i = 0; i < n; ++i) {
        if (s[i] != u',')
            continue;
        if (i > segment && matchTail(s, n, i + 1, g))
            return true;
        segment = i + 1;
    }
    return false;
}

// A run of digits as QString::toInt reads it in base 10: false when beyond the int range.
bool digitsToInt(const QChar* s, Span span, int& value) {
    long long v = 0;
    for (qsizetype i = span.begin; i < span.end; ++i) {
        v = v * 10 + (s[i].unicode() - '0');
        if (v > std::numeric_limits<int>::max())
            return false;
    }
    value = int(v);
    return true;
}

bool readHttpFields(const QString& text, DateTime& t) {
    HttpGroups g;
    if (!findHttpDate(text, g))
        return false;
    const QChar* s = text.constData();
    int v;
    if (!digitsToInt(s, g.day, v) || v < 1 || v > 31)
        return false;
    t.day = static_cast<unsigned char>(v);
    int month = 0;
    if (g.month.end - g.month.begin == 3) {
        for (int m = 0; m < 12 && month == 0; ++m) {
            if (s[g.month.begin] == QLatin1Char(kMonthNames[m][0]) &&
                s[g.month.begin + 1] == QLatin1Char(kMonthNames[m][1]) &&
                s[g.month.begin + 2] == QLatin1Char(kMonthNames[m][2]))
                month = m + 1;
        }
    }
    if (month == 0)
        return false;
    t.month = static_cast<unsigned char>(month);
    if (!digitsToInt(s, g.year, v) || v > kMaxReadYear)
        return false;
    t.year = float(v);
    if (t.day > daysInMonth(v, month))
        return false;
    // As the ISO reader: 24:00:00 ends the day, second 60 is a leap second.
    if (!digitsToInt(s, g.hour, v) || v > 24)
        return false;
    t.hour = static_cast<unsigned char>(v);
    if (!digitsToInt(s, g.minute, v) || v > (t.hour == 24 ? 0 : 59))
        return false;
    t.minute = static_cast<unsigned char>(v);
    if (!digitsToInt(s, g.second, v) || v > (t.hour == 24 ? 0 : 60))
        return false;
    t.second = static_cast<unsigned char>(v);
    return true;
}

}  // namespace

// ---- DateTime ----

DateTime::DateTime()
    : year(float(kUnsetYear)), month(1), day(1), hour(0), minute(0), second(0), zoneHours(0),
      zoneMinutes(0) {}

DateTime::DateTime(const DateTime& other)
    : Referent(), year(other.year), month(other.month), day(other.day), hour(other.hour),
      minute(other.minute), second(other.second), zoneHours(other.zoneHours),
      zoneMinutes(other.zoneMinutes) {}

DateTime& DateTime::operator=(const DateTime& other) {
    if (this != &other) {
        year = other.year;
        month = other.month;
        day = other.day;
        hour = other.hour;
        minute = other.minute;
        second = other.second;
        zoneHours = other.zoneHours;
        zoneMinutes = other.zoneMinutes;
    }
    return *this;
}

DateTime& DateTime::operator=(const QDateTime& dt) {
    if (!dt.isValid())
        return *this = DateTime();
    const QDate date = dt.date();
    const QTime time = dt.time();
    set(date.year(), date.month(), date.day(), time.hour(), time.minute(), time.second());
    zoneHours = 0;
    zoneMinutes = 0;
    return *this;
}

DateTime::~DateTime() = default;

void DateTime::set(long long y, int mo, int d, int h, int mi, int s) {
    year = float(y);
    month = static_cast<unsigned char>(mo);
    day = static_cast<unsigned char>(d);
    hour = static_cast<unsigned char>(h);
    minute = static_cast<unsigned char>(mi);
    second = static_cast<unsigned char>(s);
}

QString DateTime::toString() const {
    char text[64];
    char* p = putPadded(text, truncToInt(year), 4);
    const bool midnight = hour == 0 && minute == 0 && second == 0;
    const bool utc = zoneHours == 0 && zoneMinutes == 0;
    if (midnight && utc) {
        // Reduced precision: the reader fills missing parts with month 1 and day 1.
        if (month == 1 && day == 1)
            return QString::fromLatin1(text, p - text);
        *p++ = '-';
        p = putPadded(p, month, 2);
        if (day != 1) {
            *p++ = '-';
            p = putPadded(p, day, 2);
        }
        return QString::fromLatin1(text, p - text);
    }
    *p++ = '-';
    p = putPadded(p, month, 2);
    *p++ = '-';
    p = putPadded(p, day, 2);
    *p++ = 'T';
    p = putPadded(p, hour, 2);
    *p++ = ':';
    p = putPadded(p, minute, 2);
    *p++ = ':';
    p = putPadded(p, second, 2);
    if (utc) {
        *p++ = 'Z';
    } else {
        // Zero hours with minutes print as "-": the sign follows the hours alone.
        *p++ = zoneHours > 0 ? '+' : '-';
        p = putPadded(p, std::abs(zoneHours), 2);
        *p++ = ':';
        p = putPadded(p, std::abs(zoneMinutes), 2);
    }
    return QString::fromLatin1(text, p - text);
}

void DateTime::parseHttpDate(const QString& text) {
    if (readHttpFields(text, *this)) {
        zoneHours = 0;
        zoneMinutes = 0;
    } else {
        year = float(kUnsetYear);
    }
}

namespace {

// The instant a stamp names, in UTC with every field in its range: the zone is taken out, and
// 24:00:00 and a leap second carry into the next day and minute, so that counting and comparing
// see the instant rather than the way it was written.
DateTime instantOf(const DateTime& t) {
    DateTime u(t);
    if (u.zoneHours == 0 && u.zoneMinutes == 0 && u.hour < 24 && u.minute < 60 && u.second < 60)
        return u;
    addDuration(u, 0, 0, 0, -u.zoneHours, -u.zoneMinutes, 0);
    u.zoneHours = 0;
    u.zoneMinutes = 0;
    return u;
}

}  // namespace

void DateTime::normalize() {
    // Only a zone moves the clock: a UTC stamp keeps its fields as written.
    if (zoneHours == 0 && zoneMinutes == 0)
        return;
    addDuration(*this, 0, 0, 0, -zoneHours, -zoneMinutes, 0);
    zoneHours = 0;
    zoneMinutes = 0;
}

void DateTime::convertToZone(char hours, char minutes) {
    normalize();
    if (hours == 0 && minutes == 0)
        return;
    const signed char h = static_cast<signed char>(hours);
    const signed char m = static_cast<signed char>(minutes);
    addDuration(*this, 0, 0, 0, h, m, 0);
    zoneHours = h;
    zoneMinutes = m;
}

void DateTime::adjustTimeZone(int hours, int minutes) {
    if (zoneHours == hours && zoneMinutes == minutes)
        return;
    addDuration(*this, 0, 0, 0, (long long)hours - zoneHours, (long long)minutes - zoneMinutes, 0);
    zoneHours = static_cast<signed char>(hours);
    zoneMinutes = static_cast<signed char>(minutes);
}

void DateTime::add(int years, int months, int days, int hours, int minutes, int seconds) {
    addDuration(*this, years, months, days, hours, minutes, seconds);
}

DateTime& DateTime::operator+=(long long seconds) {
    const long long wholeDays = seconds / 86400;
    addDuration(*this, 0, 0, wholeDays, 0, 0, seconds - 86400 * wholeDays);
    return *this;
}

DateTime& DateTime::operator-=(const DateTime& other) {
    toDuration(other, toSeconds() - other.toSeconds());
    return *this;
}

void DateTime::toDuration(const DateTime& other, long long difference) {
    // Counted from other's own fields, in its zone: other.add(duration) clamps the day of the
    // month other's fields name, which in UTC can be another day (30 January 22:00 at -05:00 is
    // 31 January in UTC, and a month on clamps differently).
    const DateTime from(other);
    DateTime to(from);
    to += difference;

    // The most whole months k with from + k months not after to, then the rest in seconds.
    // The first guess is off by at most one either way (the day clamp of short months).
    long long k = (wholeYear(to.year) - wholeYear(from.year)) * 12 + (to.month - from.month);
    auto monthsOn = [&from](long long months) {
        DateTime t(from);
        addDuration(t, 0, months, 0, 0, 0, 0);
        return t;
    };
    DateTime base = monthsOn(k);
    for (int guard = 0; guard < 4 && base > to; ++guard)
        base = monthsOn(--k);
    for (int guard = 0; guard < 4; ++guard) {
        const DateTime next = monthsOn(k + 1);
        if (next > to)
            break;
        base = next;
        ++k;
    }
    long long rest = to.toSeconds() - base.toSeconds();
    if (rest < 0)
        rest = 0;  // only where negative years make toSeconds inexact

    const Division years = divide(k, 12);
    year = float(years.quotient);
    month = static_cast<unsigned char>(years.remainder);
    day = static_cast<unsigned char>(std::min<long long>(rest / 86400, 255));
    rest %= 86400;
    hour = static_cast<unsigned char>(rest / 3600);
    minute = static_cast<unsigned char>(rest / 60 % 60);
    second = static_cast<unsigned char>(rest % 60);
    zoneHours = 0;
    zoneMinutes = 0;
}

long long DateTime::toSeconds() const {
    const DateTime u = instantOf(*this);
    long long y = wholeYear(u.year);
    long long m = u.month;
    if (m < 1 || m > 12) {
        // Only a caller's direct write puts a month out of range; count it into the year.
        const Division d = divide(m - 1, 12);
        y += d.quotient;
        m = d.remainder + 1;
    }

    long long days;
    if (y >= 0) {
        // Leap years before y (year 0 counts as one), less the century years that are not.
        long long leaps = truncToLong((double(y) - 1) * 0.25) + 1;
        const long long centuries = (y + 99) / 100;  // 0, 100, 200, ... below y
        const long long quadCenturies = (y + 399) / 400;
        leaps -= centuries - quadCenturies;
        days = truncToLong(float(y - 1 - leaps) * 365.0f + float(leaps) * 366.0f);
    } else {
        days = truncToLong(float(y) * 365.2425f);
    }
    if (days > kMaxDays)
        days = kMaxDays;
    if (days < -kMaxDays)
        days = -kMaxDays;
    const int extra = isLeap(y) && m >= 3 ? 1 : 0;
    days += u.day + kDaysBeforeMonth[m - 1] + extra;
    return ((days * 24 + u.hour) * 60 + u.minute) * 60 + u.second;
}

double DateTime::toCurrentTime() const { return double(toSeconds()) - System::getStartTime(); }

bool DateTime::operator==(const DateTime& other) const {
    const DateTime a = instantOf(*this), b = instantOf(other);
    return a.year == b.year && a.month == b.month && a.day == b.day && a.hour == b.hour &&
           a.minute == b.minute && a.second == b.second;
}

bool DateTime::operator>(const DateTime& other) const {
    const DateTime a = instantOf(*this), b = instantOf(other);
    if (a.year != b.year)
        return a.year > b.year;
    if (a.month != b.month)
        return a.month > b.month;
    if (a.day != b.day)
        return a.day > b.day;
    if (a.hour != b.hour)
        return a.hour > b.hour;
    if (a.minute != b.minute)
        return a.minute > b.minute;
    return a.second > b.second;
}

DateTime DateTime::Interpolate(const DateTime& a, const DateTime& b, float t) {
    DateTime r;
    r.year = float(truncToLong(a.year + (b.year - a.year) * t));
    const long long sa = a.toSeconds();
    const long long sb = b.toSeconds();
    const long long sr = r.toSeconds();
    // sa - sr and sb - sa fit (toSeconds saturates); only an extrapolating t can overflow the sum.
    long long shift;
    if (__builtin_add_overflow(sa - sr, truncToLong(double(t) * double(sb - sa)), &shift))
        shift = sa - sr > 0 ? std::numeric_limits<long long>::max()
                            : std::numeric_limits<long long>::min();
    r += shift;
    return r;
}

int maximumDayInMonthFor(int year, int month) { return daysInMonth(year, month); }

QTextStream& operator<<(QTextStream& stream, const DateTime& dt) {
    stream << dt.toString();
    return stream;
}

Utf8OStream& operator<<(Utf8OStream& stream, const DateTime& dt) { return stream << dt.toString(); }

QTextStream& operator>>(QTextStream& stream, DateTime& dt) {
    stream.readAll() >> dt;
    return stream;
}

void operator>>(const QString& text, DateTime& dt) {
    DateTime read(dt);
    if (!readIso(text, read))
        throw QStringLiteral("Could not parse time value ") + text;
    dt = read;
}

}  // namespace vanta
