/// \file
/// vanta::DateTime: calendar time stamps, their ISO 8601 and HTTP text forms, and their arithmetic.
#pragma once

#include <vanta/export.h>
#include <vanta/referent.h>

#include <QString>

class QDateTime;
class QTextStream;

namespace vanta {

class Utf8OStream;

/// A proleptic Gregorian date and time of day in whole seconds, with an optional offset from UTC.
///
/// The year is a float on purpose: time stamps are interpolated as numbers. It always holds an
/// integral value. A default time stamp has the year kUnsetYear, which also marks a failed
/// parseHttpDate. A time stamp is in UTC when both zone fields are 0; zoneMinutes carries the
/// sign of zoneHours.
///
/// Every operation touches only its own object and is safe on distinct objects from any thread.
class VANTA_EXPORT DateTime : public Referent {
public:
    /// The year of a time stamp that is unset or failed to parse.
    static constexpr int kUnsetYear = 314159;

    /// Year kUnsetYear, 1 January, 00:00:00, no zone offset.
    DateTime();
    /// Copies the date, time and zone.
    DateTime(const DateTime& other);
    /// Copies the date, time and zone.
    DateTime& operator=(const DateTime& other);
    /// Takes the date and time of day from dt as they stand and sets the zone to 0,0.
    DateTime& operator=(const QDateTime& dt);
    ~DateTime() override;

    /// Stores all six fields; the zone stays as it was.
    void set(long long year, int month, int day, int hour, int minute, int second);

    /// The ISO 8601 form with reduced precision: "2005" (1 January, midnight, UTC), "2005-03"
    /// (the 1st, midnight, UTC), "2005-03-17" (midnight, UTC), "2005-03-17T08:30:00Z" (UTC), or
    /// "2005-03-17T08:30:00+05:30". The offset sign is "+" only when zoneHours > 0.
    QString toString() const;

    /// Reads the date of an HTTP header ("Thu, 17 Mar 2005 08:30:00 GMT"), found anywhere in
    /// text; the time is taken as UTC whatever zone name follows. 24:00:00 (the end of the day)
    /// and second 60 (a leap second) are read and kept as written. Never throws: on failure the
    /// year becomes kUnsetYear and the fields read before the failure keep their new values.
    void parseHttpDate(const QString& text);

    /// Makes the time stamp UTC: moves the clock by the zone offset and clears the zone. A stamp
    /// already in UTC is left as it is (T24:00:00Z stays as written); in a zoned stamp, 24:00:00
    /// and a leap second carry into the next day's midnight and the next minute as the clock
    /// moves.
    void normalize();
    /// The same instant expressed in the zone hours:minutes (both 0 for UTC).
    void convertToZone(char hours, char minutes);
    /// Moves the clock by the change from the current zone to hours:minutes and sets that zone.
    void adjustTimeZone(int hours, int minutes);

    /// Adds a duration by the XML Schema rule: months (with years) first, then the time of day
    /// with carries, then days, with the day clamped to the new month's length before the days
    /// are added (31 January + 1 month = 28 February). Any argument may be negative.
    void add(int years, int months, int days, int hours, int minutes, int seconds);
    /// Adds a number of seconds (negative moves back).
    DateTime& operator+=(long long seconds);

    /// Replaces this time stamp by the calendar duration from other to it, counted from other's
    /// own fields in its zone: afterwards other.add(year, month, day, hour, minute, second) gives
    /// the original instant, whatever other's zone.
    /// month is 0..11, day 0..30 and the time fields are within their ranges; only year is
    /// negative, when the original is earlier than other. The zone becomes 0,0.
    DateTime& operator-=(const DateTime& other);
    /// The duration form of operator-=: sets this to the calendar duration of difference
    /// seconds (a toSeconds() difference) counted forward from other.
    void toDuration(const DateTime& other, long long difference);

    /// Seconds from a fixed origin, of the UTC form of this time stamp. Only differences between
    /// results mean anything; they are exact for years 1 and later.
    long long toSeconds() const;
    /// This instant on the library's running clock (System::getTime() scale).
    double toCurrentTime() const;

    /// The same instant (zones taken into account).
    bool operator==(const DateTime& other) const;
    /// Not the same instant.
    bool operator!=(const DateTime& other) const { return !(*this == other); }
    /// A later instant.
    bool operator>(const DateTime& other) const;

    /// The time stamp a fraction t of the way from a to b, in UTC; t = 0 gives a and t = 1 gives b.
    static DateTime Interpolate(const DateTime& a, const DateTime& b, float t);

    /// The year; kUnsetYear when unset or not parsed.
    float year;
    unsigned char month;   ///< 1..12
    unsigned char day;     ///< 1..31
    unsigned char hour;    ///< 0..23, or 24 in 24:00:00 (the end of the day)
    unsigned char minute;  ///< 0..59
    unsigned char second;  ///< 0..59, or 60 (a leap second)
    /// The zone's offset from UTC, hours part.
    signed char zoneHours;
    /// The zone's offset from UTC, minutes part, with the sign of zoneHours.
    signed char zoneMinutes;
};

/// The number of days in month of year, where months past 12 or below 1 count into the
/// following or previous years (month 13 of 2005 is January 2006).
VANTA_EXPORT int maximumDayInMonthFor(int year, int month);

/// Write dt.toString().
VANTA_EXPORT QTextStream& operator<<(QTextStream& stream, const DateTime& dt);
/// Writes dt.toString() as UTF-8.
VANTA_EXPORT Utf8OStream& operator<<(Utf8OStream& stream, const DateTime& dt);
/// Reads all remaining text of the stream as an ISO 8601 time stamp (see below).
VANTA_EXPORT QTextStream& operator>>(QTextStream& stream, DateTime& dt);
/// Reads an ISO 8601 time stamp of any reduced precision (2005, 2005-03, 2005-03-17,
/// 2005-03-17T08:30:00Z, 2005-03-17T08:30:00, 2005-03-17T08:30:00+05:30; fractional seconds
/// are truncated; white space is ignored; anything after a "Z" is ignored). 24:00:00 (the end of
/// the day) and second 60 (a leap second, whole) are kept as written. Only the fields the
/// text reaches are written, so pass a default time stamp. On malformed text throws the QString
/// "Could not parse time value " + text and leaves dt unchanged. Safe from any thread.
VANTA_EXPORT void operator>>(const QString& text, DateTime& dt);

}  // namespace vanta
