/// \file
/// Coordinates typed by people: single latitude and longitude values, and latitude-longitude pairs.
#pragma once

#include <vanta/export.h>
#include <QRegularExpression>
#include <QString>
#include <QStringView>

namespace vanta {

/// Hemisphere letter and sign tests. Each looks only at the first character of text, taken as
/// Latin-1 when its code is below 256 and as no character otherwise.

/// True when text starts with one of E N S W e n s w.
VANTA_EXPORT bool is_valid_direction(const QString& text);
/// True when text starts with N S n s.
VANTA_EXPORT bool is_ns_direction(const QString& text);
/// True when text starts with E W e w.
VANTA_EXPORT bool is_ew_direction(const QString& text);
/// True when text is empty (an absent sign is valid) or starts with + or -.
VANTA_EXPORT bool is_valid_sign(const QString& text);
/// True when text starts with S W s w or -: the value it marks is negated.
VANTA_EXPORT bool is_negative_direction(const QString& text);

/// Texts longer than this many UTF-16 code units are rejected by every parser below before any
/// matching. No typed coordinate comes near it, and it keeps the backtracking that the patterns
/// need bounded on pasted junk.
constexpr int kMaxCoordinateTextLength = 128;

/// The compiled expressions of the unsigned magnitude reader, in the order its slots are named.
/// Created on the first getSingleton() call (once, even when two threads race to it) and never
/// destroyed. Matching never changes the expressions, so they may be shared by any thread.
class VANTA_EXPORT LatLngValuePatterns {
public:
    /// The number forms, one expression each.
    enum Slot {
        kDF,          ///< degrees, point-decimal
        kDMF,         ///< degrees and minutes, point-decimal
        kDMSF,        ///< degrees, minutes and seconds, point-decimal
        kDFComma,     ///< degrees, comma-decimal
        kDMFComma,    ///< degrees and minutes, comma-decimal
        kDMSFComma,   ///< degrees, minutes and seconds, comma-decimal
        kSlotCount
    };

    /// The process-wide patterns; never null, owned by the library.
    static LatLngValuePatterns* getSingleton();
    /// The expression of one slot, anchored to the whole text.
    const QRegularExpression& expression(Slot slot) const { return mExpressions[slot]; }

private:
    LatLngValuePatterns();
    QRegularExpression mExpressions[kSlotCount];
};

/// The compiled expressions of the latitude reader: a value with an N/S letter after it, before
/// it, or an optional sign before it. Created and shared like LatLngValuePatterns.
class VANTA_EXPORT LatValuePatterns {
public:
    /// Where the letter or sign stands: after, before, sign before.
    enum Slot { kDA, kDB, kSB, kSlotCount };  ///< direction after, direction before, sign before

    /// The process-wide patterns; never null, owned by the library.
    static LatValuePatterns* getSingleton();
    /// The expression of one slot, anchored to the whole text.
    const QRegularExpression& expression(Slot slot) const { return mExpressions[slot]; }

private:
    LatValuePatterns();
    QRegularExpression mExpressions[kSlotCount];
};

/// As LatValuePatterns with E/W letters; the sign-before expression is the same text.
class VANTA_EXPORT LngValuePatterns {
public:
    /// Where the letter or sign stands: after, before, sign before.
    enum Slot { kDA, kDB, kSB, kSlotCount };

    /// The process-wide patterns; never null, owned by the library.
    static LngValuePatterns* getSingleton();
    /// The expression of one slot, anchored to the whole text.
    const QRegularExpression& expression(Slot slot) const { return mExpressions[slot]; }

private:
    LngValuePatterns();
    QRegularExpression mExpressions[kSlotCount];
};

/// Reads an unsigned magnitude in decimal degrees: degrees, degrees and minutes, or degrees,
/// minutes and seconds, with optional marks (degree sign, ` or ' for minutes, " or '' for
/// seconds) and a decimal point, or a decimal comma on the last quantity. No letter, no sign;
/// the whole text must match, so blanks at either end fail. Degrees 0..180, minutes and seconds
/// 0..60 inclusive. A plain value object for one parse; nothing is thrown, nothing blocks.
class VANTA_EXPORT LatLngValue {
public:
    /// One capturing group around the three point-decimal number forms, for callers that search
    /// free text for a coordinate; the parsers themselves do not use it.
    static const QString kREPattern;

    /// result: where a successful ParseFrom stores the value; may be null.
    explicit LatLngValue(double* result = nullptr);

    /// Tries degrees-minutes-seconds, degrees-minutes, degrees with a decimal point, then the same
    /// three with a decimal comma; the first that reads the text wins. On success stores the
    /// value into *result (when not null) and returns true; on failure *result is untouched.
    bool ParseFrom(const QString& text);
    /// The single attempts; comma chooses the comma-decimal form. They set value() on success
    /// and never touch *result.
    bool TryDF(const QString& text, bool comma);
    bool TryDMF(const QString& text, bool comma);  ///< Degrees and minutes.
    bool TryDMSF(const QString& text, bool comma);  ///< Degrees, minutes and seconds.
    /// The number "0.digits", or -1.0 when that does not convert.
    static double ConvertToFraction(const QString& digits);

    /// LatLngValue(result).ParseFrom(text).
    static bool Parse(const QString& text, double* result);
    /// The same on a view, without copying the text.
    static bool Parse(QStringView text, double* result);

    /// The value found by the last successful attempt (0 before any).
    double value() const { return mValue; }

private:
    bool parseFrom(QStringView text);
    bool tryDF(QStringView text, bool comma);
    bool tryDMF(QStringView text, bool comma);
    bool tryDMSF(QStringView text, bool comma);

    double* mResult;
    double mValue;
    LatLngValuePatterns* mPatterns;
};

/// Reads a latitude: a magnitude as LatLngValue reads it with a decimal point only, marked by an
/// N/S letter after or before it (S negates) or by an optional + or - sign before it. Blanks may
/// separate the mark from the number. Up to 180 degrees is accepted: callers that need 90 check
/// it themselves.
class VANTA_EXPORT LatValue {
public:
    /// result: where a successful ParseFrom stores the value; may be null.
    explicit LatValue(double* result = nullptr);

    /// Tries TryDA, TryDB, TrySB in that order. On success stores into *result (when not null)
    /// and returns true; on failure *result is untouched.
    bool ParseFrom(const QString& text);
    /// The single attempts (letter after, letter before, sign before); they set value() only.
    bool TryDA(const QString& text);
    bool TryDB(const QString& text);  ///< Letter before the value.
    bool TrySB(const QString& text);  ///< Optional sign before the value.

    /// LatValue(result).ParseFrom(text).
    static bool Parse(const QString& text, double* result);

    /// The value found by the last successful attempt (0 before any).
    double value() const { return mValue; }

private:
    double* mResult;
    double mValue;
    LatValuePatterns* mPatterns;
};

/// Reads a longitude as LatValue reads a latitude, with E/W letters (W negates).
class VANTA_EXPORT LngValue {
public:
    /// result: where a successful ParseFrom stores the value; may be null.
    explicit LngValue(double* result = nullptr);

    /// Tries TryDA, TryDB, TrySB in that order, as LatValue::ParseFrom.
    bool ParseFrom(const QString& text);
    bool TryDA(const QString& text);  ///< Letter after the value.
    bool TryDB(const QString& text);  ///< Letter before the value.
    bool TrySB(const QString& text);  ///< Optional sign before the value.

    /// LngValue(result).ParseFrom(text).
    static bool Parse(const QString& text, double* result);

    /// The value found by the last successful attempt (0 before any).
    double value() const { return mValue; }

private:
    double* mResult;
    double mValue;
    LngValuePatterns* mPatterns;
};

/// The compiled expressions of the pair reader, created and shared like LatLngValuePatterns.
class VANTA_EXPORT LatLngPairPatterns {
public:
    /// The pair forms, one expression each.
    enum Slot {
        kDA,        ///< letters after the values
        kDB,        ///< letters before the values
        kSB,        ///< optional signs before the values
        kDAComma,   ///< as kDA with decimal commas
        kDBComma,   ///< as kDB with decimal commas
        kSBComma,   ///< as kSB with decimal commas, and no comma or slash between the values
        kSlotCount
    };

    /// The process-wide patterns; never null, owned by the library.
    static LatLngPairPatterns* getSingleton();
    /// The expression of one slot, anchored to the whole text.
    const QRegularExpression& expression(Slot slot) const { return mExpressions[slot]; }

private:
    LatLngPairPatterns();
    QRegularExpression mExpressions[kSlotCount];
};

/// Reads "latitude longitude" typed on one line. Each value is a magnitude as LatLngValue reads
/// it, marked by hemisphere letters after or before it, or by optional signs. With letters the
/// values may come in either order (the letters say which is which); with signs the latitude
/// comes first. Between the values: blanks and at most one comma or slash. The latitude must lie
/// in -90..90. Nothing is thrown, nothing blocks.
class VANTA_EXPORT LatLngPair {
public:
    /// One capturing group around the point-decimal pair forms, for callers that search free
    /// text for a position; the parser itself does not use it.
    static const QString kREPattern;

    /// Where a successful ParseFrom stores the latitude and the longitude; either may be null.
    explicit LatLngPair(double* latitudeResult = nullptr, double* longitudeResult = nullptr);

    /// Tries letters after, letters before, signs, then the same three with decimal commas; the
    /// first that reads the text decides. Returns false, writing nothing, when none does or when
    /// the latitude found lies outside -90..90; otherwise writes both results and returns true.
    bool ParseFrom(const QString& text);
    /// The single attempts; comma chooses the decimal-comma form. They set latitude() and
    /// longitude() on success and never touch the results.
    bool TryDA(const QString& text, bool comma);
    bool TryDB(const QString& text, bool comma);  ///< Letters before the values.
    bool TrySB(const QString& text, bool comma);  ///< Optional signs before the values.

    /// LatLngPair(latitudeResult, longitudeResult).ParseFrom(text).
    static bool Parse(const QString& text, double* latitudeResult, double* longitudeResult);

    /// The latitude found by the last successful attempt.
    double latitude() const { return mLatitude; }
    /// The longitude found by the last successful attempt.
    double longitude() const { return mLongitude; }

private:
    /// TryDA and TryDB: the slot says where the letters are.
    bool tryLetters(int slot, QStringView text);

    double* mLatitudeResult;
    double* mLongitudeResult;
    double mLatitude;
    double mLongitude;
    LatLngPairPatterns* mPatterns;
};

}  // namespace vanta
