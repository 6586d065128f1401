// Coordinates typed by people: the pattern sets, the value and pair readers, and the predicates.
#include <vanta/latlng.h>
#include <vanta/latlng_p.h>
#include <vanta/memory.h>

#include <QVarLengthArray>

#include <atomic>
#include <charconv>
#include <new>

namespace vanta {
namespace {

// The value alternation: degrees, degrees-minutes, degrees-minutes-seconds, point-decimal, all
// groups non-capturing. The pieces: "\d+(?!\d)" is a whole run of digits (the lookahead never
// lets a run be split between two quantities), "\d+(?!\d)\.?\d*" a decimal number, and the
// optional marks "(?:°)?", "[`']?" and "(?:"|'')?" for degrees, minutes and seconds.
const char kValue[] =
    R"re((?:\d+(?!\d)\.?\d*)(?:°)?|(?:\d+(?!\d))(?:°)?\s*(?:\d+(?!\d)\.?\d*)[`']?|)re"
    R"re((?:\d+(?!\d))(?:°)?\s*(?:\d+(?!\d))[`']?\s*(?:\d+(?!\d)\.?\d*)(?:"|'')?)re";

// The magnitude reader's forms, one per LatLngValuePatterns slot. In the comma-decimal forms
// the comma and the digits after it are required, and the last quantity is two groups: its
// whole part and its fraction digits.
const char* const kValueSlots[LatLngValuePatterns::kSlotCount] = {
    R"re((\d+(?!\d)\.?\d*)(?:°)?)re",
    R"re((\d+(?!\d))(?:°)?\s*(\d+(?!\d)\.?\d*)[`']?)re",
    R"re((\d+(?!\d))(?:°)?\s*(\d+(?!\d))[`']?\s*(\d+(?!\d)\.?\d*)(?:"|'')?)re",
    R"re((\d+(?!\d)),(\d+(?!\d))(?:°)?)re",
    R"re((\d+(?!\d))(?:°)?\s*(\d+(?!\d)),(\d+(?!\d))[`']?)re",
    R"re((\d+(?!\d))(?:°)?\s*(\d+(?!\d))[`']?\s*(\d+(?!\d)),(\d+(?!\d))(?:"|'')?)re",
};

const char kPairLetter[] = "[NSEWnsew]";

QString utf8(const char* text) { return QString::fromUtf8(text); }

// The value alternation with a decimal comma in place of the point.
QString commaValue() { return utf8(kValue).replace(QLatin1String(R"(\.?)"), QLatin1String(R"(\,?)")); }

// Patterns match the whole text. \s and \d take their Unicode meaning, as typed text may hold
// no-break or other Unicode blanks; a Unicode digit other than 0-9 matches but never converts,
// so it still fails the parse. Compiled now, so that matching never compiles.
QRegularExpression compile(const QString& pattern) {
    QRegularExpression expression(QRegularExpression::anchoredPattern(pattern),
                                  QRegularExpression::UseUnicodePropertiesOption);
    expression.optimize();
    return expression;
}

// The three attempts of the single-value readers, for the letter class given.
void compileDirectional(const char* letters, QRegularExpression* out) {
    const QString value = "(" + utf8(kValue) + ")";
    const QString letter = QStringLiteral("(%1)").arg(QLatin1String(letters));
    out[0] = compile(value + R"(\s*)" + letter);
    out[1] = compile(letter + R"(\s*)" + value);
    out[2] = compile(R"(([-+])?\s*)" + value);
}

// Creates a pattern set for the life of the process, on the library's heap.
template <class Patterns, class Create>
Patterns* createForever(Create create) {
    void* block = doNew(sizeof(Patterns));
    if (!block)
        qFatal("vanta: out of memory creating the coordinate patterns");
    return create(block);
}

std::atomic<latlng::Engine> gEngine{latlng::Engine::Scanner};

// The first character as Latin-1, or 0 ("no character") when absent or not Latin-1.
char16_t firstLatin1(QStringView text) {
    return text.isEmpty() || text.front().unicode() > 0xff ? 0 : text.front().unicode();
}

bool validDirection(QStringView text) {
    switch (firstLatin1(text)) {
    case 'E': case 'N': case 'S': case 'W': case 'e': case 'n': case 's': case 'w':
        return true;
    default:
        return false;
    }
}

bool nsDirection(QStringView text) {
    const char16_t c = firstLatin1(text);
    return c == 'N' || c == 'S' || c == 'n' || c == 's';
}

bool ewDirection(QStringView text) {
    const char16_t c = firstLatin1(text);
    return c == 'E' || c == 'W' || c == 'e' || c == 'w';
}

bool validSign(QStringView text) {
    const char16_t c = firstLatin1(text);
    return text.isEmpty() || c == '+' || c == '-';
}

bool negativeDirection(QStringView text) {
    switch (firstLatin1(text)) {
    case 'S': case 'W': case 's': case 'w': case '-':
        return true;
    default:
        return false;
    }
}

// Whole degrees or minutes: converted as a double, truncated toward zero to a 32-bit integer,
// then range-checked. A run too long for 32 bits fails the range test like any other.
bool toWhole(QStringView digits, int limit, int* out) {
    double number = 0;
    if (!latlng::toNumber(digits, &number) || !(number >= 0 && number < 2147483648.0))
        return false;
    *out = int(number);
    return *out <= limit;
}

// "0." followed by the digits after a decimal comma, converted; -1 when that fails.
double fractionOf(QStringView digits) {
    QVarLengthArray<char16_t, 64> text;
    text.append(u'0');
    text.append(u'.');
    text.append(digits.utf16(), digits.size());
    double fraction = 0;
    return latlng::toNumber(QStringView(text.constData(), text.size()), &fraction) ? fraction : -1.0;
}

bool inRange(double value, double low, double high) { return value >= low && value <= high; }

// One attempt of LatValue or LngValue: a number marked by a letter after or before it, or by an
// optional sign before it. Writes *value on success only.
template <class Patterns>
bool readDirectional(const Patterns& patterns, typename Patterns::Slot slot, QStringView text,
                     double* value) {
    latlng::Groups groups;
    if (!latlng::match(patterns, slot, text, groups))
        return false;
    const int numberGroup = slot == Patterns::kDA ? 1 : 2;
    const QStringView mark = groups[slot == Patterns::kDA ? 2 : 1];
    double number = 0;
    if (!LatLngValue::Parse(groups[numberGroup], &number))
        return false;
    if (slot == Patterns::kSB ? !validSign(mark) : !validDirection(mark))
        return false;
    *value = negativeDirection(mark) ? -number : number;
    return true;
}

}  // namespace

// ---- Predicates ----

bool is_valid_direction(const QString& text) { return validDirection(text); }
bool is_ns_direction(const QString& text) { return nsDirection(text); }
bool is_ew_direction(const QString& text) { return ewDirection(text); }
bool is_valid_sign(const QString& text) { return validSign(text); }
bool is_negative_direction(const QString& text) { return negativeDirection(text); }

// ---- Public pattern strings ----

const QString LatLngValue::kREPattern = "(" + utf8(kValue) + ")";

const QString LatLngPair::kREPattern = [] {
    const QString value = "(?:" + utf8(kValue) + ")";
    const QString letter = QLatin1String(kPairLetter);
    const QString between = QStringLiteral(R"(\s*[,/]?\s*)");
    return "(" + value + R"(\s*)" + letter + between + value + R"(\s*)" + letter + "|" +
           letter + R"(\s*)" + value + between + letter + R"(\s*)" + value + "|" +
           R"([-+]?\s*)" + value + between + R"([-+]?\s*)" + value + ")";
}();

// ---- Pattern sets ----

// Each set is made once, the first time it is asked for: a function-local static is initialised
// once even when threads race to the first call. It is never destroyed, so parsing stays valid
// during static destruction.

LatLngValuePatterns::LatLngValuePatterns() {
    for (int slot = 0; slot < kSlotCount; ++slot)
        mExpressions[slot] = compile(utf8(kValueSlots[slot]));
}

LatLngValuePatterns* LatLngValuePatterns::getSingleton() {
    static LatLngValuePatterns* const sSingleton = createForever<LatLngValuePatterns>(
        [](void* block) { return new (block) LatLngValuePatterns; });
    return sSingleton;
}

LatValuePatterns::LatValuePatterns() { compileDirectional("[NSns]", mExpressions); }

LatValuePatterns* LatValuePatterns::getSingleton() {
    static LatValuePatterns* const sSingleton = createForever<LatValuePatterns>(
        [](void* block) { return new (block) LatValuePatterns; });
    return sSingleton;
}

LngValuePatterns::LngValuePatterns() { compileDirectional("[EWew]", mExpressions); }

LngValuePatterns* LngValuePatterns::getSingleton() {
    static LngValuePatterns* const sSingleton = createForever<LngValuePatterns>(
        [](void* block) { return new (block) LngValuePatterns; });
    return sSingleton;
}

// Slot kSBComma has no comma-or-slash between the values: a decimal comma there would make
// "12,5,3" readable two ways. The values are separated by blanks or a sign only.
//
// Where the sign forms are ambiguous (blanks alone between values of several parts, such as
// "10 30 20 15"), the split is the leftmost-first one of a backtracking engine: the first value
// takes the first alternative that lets the rest match, degrees before degrees-minutes before
// degrees-minutes-seconds, and a decimal number keeps as many fraction digits as it can. So
// "10 30 20 15" reads 10 and 30 20 15, and "12.53" reads 12.5 and 3.
LatLngPairPatterns::LatLngPairPatterns() {
    const QString letter = QStringLiteral("(%1)").arg(QLatin1String(kPairLetter));
    const QString between = QStringLiteral(R"(\s*[,/]?\s*)");
    const QString sign = QStringLiteral(R"(([-+])?\s*)");
    for (bool comma : {false, true}) {
        const QString value = "(" + (comma ? commaValue() : utf8(kValue)) + ")";
        const int base = comma ? kDAComma : kDA;
        mExpressions[base + 0] = compile(value + R"(\s*)" + letter + between + value +
                                         R"(\s*)" + letter);
        mExpressions[base + 1] = compile(letter + R"(\s*)" + value + between + letter +
                                         R"(\s*)" + value);
        mExpressions[base + 2] = compile(sign + value + (comma ? QStringLiteral(R"(\s*)")
                                                               : between) + sign + value);
    }
}

LatLngPairPatterns* LatLngPairPatterns::getSingleton() {
    static LatLngPairPatterns* const sSingleton = createForever<LatLngPairPatterns>(
        [](void* block) { return new (block) LatLngPairPatterns; });
    return sSingleton;
}

// ---- Matching ----

namespace latlng {

bool toNumber(QStringView text, double* out) {
    // The captured numbers are digits with at most one point, for which from_chars gives the
    // same correctly rounded double as the toolkit's conversion at a fraction of its cost.
    // Everything else (other characters, texts too long for the buffer) goes to the toolkit.
    char ascii[kMaxCoordinateTextLength + 4];
    bool plain = text.size() <= qsizetype(sizeof ascii);
    for (qsizetype i = 0; plain && i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        plain = (c >= '0' && c <= '9') || c == '.';
        ascii[i] = char(c);
    }
    if (plain) {
        const char* end = ascii + text.size();
        const std::from_chars_result read = std::from_chars(ascii, end, *out);
        if (read.ec == std::errc() && read.ptr == end)
            return true;
    }
    bool ok = false;
    *out = text.toDouble(&ok);
    return ok;
}

void Groups::reset(QStringView subject) {
    text = subject;
    for (int group = 0; group < kMax; ++group)
        unset(group);
}

void setEngine(Engine engine) { gEngine.store(engine, std::memory_order_relaxed); }
Engine engine() { return gEngine.load(std::memory_order_relaxed); }

bool matchExpression(const QRegularExpression& expression, QStringView text, Groups& groups) {
    // match() is const and reentrant: the shared expression is never changed by matching.
    const QRegularExpressionMatch found = expression.match(text);
    if (!found.hasMatch())
        return false;
    groups.reset(text);
    for (int group = 0; group <= found.lastCapturedIndex() && group < Groups::kMax; ++group) {
        if (found.capturedStart(group) >= 0)
            groups.set(group, found.capturedStart(group), found.capturedEnd(group));
    }
    return true;
}

bool match(const LatLngValuePatterns& patterns, LatLngValuePatterns::Slot slot, QStringView text,
           Groups& groups) {
    if (text.size() > kMaxCoordinateTextLength)
        return false;
    return engine() == Engine::Scanner ? scanValue(slot, text, groups)
                                       : matchExpression(patterns.expression(slot), text, groups);
}

bool match(const LatValuePatterns& patterns, LatValuePatterns::Slot slot, QStringView text,
           Groups& groups) {
    if (text.size() > kMaxCoordinateTextLength)
        return false;
    return engine() == Engine::Scanner ? scanDirectional(slot, false, text, groups)
                                       : matchExpression(patterns.expression(slot), text, groups);
}

bool match(const LngValuePatterns& patterns, LngValuePatterns::Slot slot, QStringView text,
           Groups& groups) {
    if (text.size() > kMaxCoordinateTextLength)
        return false;
    return engine() == Engine::Scanner ? scanDirectional(slot, true, text, groups)
                                       : matchExpression(patterns.expression(slot), text, groups);
}

bool match(const LatLngPairPatterns& patterns, LatLngPairPatterns::Slot slot, QStringView text,
           Groups& groups) {
    if (text.size() > kMaxCoordinateTextLength)
        return false;
    return engine() == Engine::Scanner ? scanPair(slot, text, groups)
                                       : matchExpression(patterns.expression(slot), text, groups);
}

}  // namespace latlng

// ---- LatLngValue ----

LatLngValue::LatLngValue(double* result)
    : mResult(result), mValue(0), mPatterns(LatLngValuePatterns::getSingleton()) {}

bool LatLngValue::ParseFrom(const QString& text) { return parseFrom(text); }
bool LatLngValue::TryDF(const QString& text, bool comma) { return tryDF(text, comma); }
bool LatLngValue::TryDMF(const QString& text, bool comma) { return tryDMF(text, comma); }
bool LatLngValue::TryDMSF(const QString& text, bool comma) { return tryDMSF(text, comma); }
double LatLngValue::ConvertToFraction(const QString& digits) { return fractionOf(digits); }

bool LatLngValue::Parse(const QString& text, double* result) {
    return LatLngValue(result).parseFrom(text);
}

bool LatLngValue::Parse(QStringView text, double* result) {
    return LatLngValue(result).parseFrom(text);
}

bool LatLngValue::parseFrom(QStringView text) {
    const bool found = tryDMSF(text, false) || tryDMF(text, false) || tryDF(text, false) ||
                       tryDMSF(text, true) || tryDMF(text, true) || tryDF(text, true);
    if (found && mResult)
        *mResult = mValue;
    return found;
}

bool LatLngValue::tryDF(QStringView text, bool comma) {
    latlng::Groups groups;
    if (!latlng::match(*mPatterns, comma ? LatLngValuePatterns::kDFComma : LatLngValuePatterns::kDF,
                       text, groups))
        return false;
    double degrees = 0;
    if (!latlng::toNumber(groups[1], &degrees) || !inRange(degrees, 0, 180))
        return false;
    const double fraction = comma ? fractionOf(groups[2]) : 0.0;
    if (!inRange(fraction, 0, 1))
        return false;
    mValue = degrees + fraction;
    return true;
}

bool LatLngValue::tryDMF(QStringView text, bool comma) {
    latlng::Groups groups;
    if (!latlng::match(*mPatterns,
                       comma ? LatLngValuePatterns::kDMFComma : LatLngValuePatterns::kDMF, text,
                       groups))
        return false;
    int degrees = 0;
    double minutes = 0;
    if (!toWhole(groups[1], 180, &degrees) || !latlng::toNumber(groups[2], &minutes) ||
        !inRange(minutes, 0, 60))  // sixty minutes is accepted: "10 60" reads 11
        return false;
    const double fraction = comma ? fractionOf(groups[3]) : 0.0;
    if (!inRange(fraction, 0, 1))
        return false;
    mValue = degrees + (minutes + fraction) / 60;
    return true;
}

bool LatLngValue::tryDMSF(QStringView text, bool comma) {
    latlng::Groups groups;
    if (!latlng::match(*mPatterns,
                       comma ? LatLngValuePatterns::kDMSFComma : LatLngValuePatterns::kDMSF,
                       text, groups))
        return false;
    int degrees = 0;
    int minutes = 0;
    double seconds = 0;
    if (!toWhole(groups[1], 180, &degrees) || !toWhole(groups[2], 60, &minutes) ||
        !latlng::toNumber(groups[3], &seconds) || !inRange(seconds, 0, 60))
        return false;
    const double fraction = comma ? fractionOf(groups[4]) : 0.0;
    if (!inRange(fraction, 0, 1))
        return false;
    mValue = degrees + minutes / 60.0 + (seconds + fraction) / 3600;
    return true;
}

// ---- LatValue and LngValue ----

LatValue::LatValue(double* result)
    : mResult(result), mValue(0), mPatterns(LatValuePatterns::getSingleton()) {}

bool LatValue::ParseFrom(const QString& text) {
    const bool found = TryDA(text) || TryDB(text) || TrySB(text);
    if (found && mResult)
        *mResult = mValue;
    return found;
}

bool LatValue::TryDA(const QString& text) {
    return readDirectional(*mPatterns, LatValuePatterns::kDA, text, &mValue);
}
bool LatValue::TryDB(const QString& text) {
    return readDirectional(*mPatterns, LatValuePatterns::kDB, text, &mValue);
}
bool LatValue::TrySB(const QString& text) {
    return readDirectional(*mPatterns, LatValuePatterns::kSB, text, &mValue);
}

bool LatValue::Parse(const QString& text, double* result) {
    return LatValue(result).ParseFrom(text);
}

LngValue::LngValue(double* result)
    : mResult(result), mValue(0), mPatterns(LngValuePatterns::getSingleton()) {}

bool LngValue::ParseFrom(const QString& text) {
    const bool found = TryDA(text) || TryDB(text) || TrySB(text);
    if (found && mResult)
        *mResult = mValue;
    return found;
}

bool LngValue::TryDA(const QString& text) {
    return readDirectional(*mPatterns, LngValuePatterns::kDA, text, &mValue);
}
bool LngValue::TryDB(const QString& text) {
    return readDirectional(*mPatterns, LngValuePatterns::kDB, text, &mValue);
}
bool LngValue::TrySB(const QString& text) {
    return readDirectional(*mPatterns, LngValuePatterns::kSB, text, &mValue);
}

bool LngValue::Parse(const QString& text, double* result) {
    return LngValue(result).ParseFrom(text);
}

// ---- LatLngPair ----

LatLngPair::LatLngPair(double* latitudeResult, double* longitudeResult)
    : mLatitudeResult(latitudeResult),
      mLongitudeResult(longitudeResult),
      mLatitude(0),
      mLongitude(0),
      mPatterns(LatLngPairPatterns::getSingleton()) {}

bool LatLngPair::ParseFrom(const QString& text) {
    const bool found = TryDA(text, false) || TryDB(text, false) || TrySB(text, false) ||
                       TryDA(text, true) || TryDB(text, true) || TrySB(text, true);
    // The first form that reads the text decides: a latitude out of bounds is not retried with
    // a later form.
    if (!found || !inRange(mLatitude, -90.0, 90.0))
        return false;
    if (mLatitudeResult)
        *mLatitudeResult = mLatitude;
    if (mLongitudeResult)
        *mLongitudeResult = mLongitude;
    return true;
}

bool LatLngPair::TryDA(const QString& text, bool comma) {
    return tryLetters(comma ? LatLngPairPatterns::kDAComma : LatLngPairPatterns::kDA, text);
}

bool LatLngPair::TryDB(const QString& text, bool comma) {
    return tryLetters(comma ? LatLngPairPatterns::kDBComma : LatLngPairPatterns::kDB, text);
}

bool LatLngPair::tryLetters(int slot, QStringView text) {
    latlng::Groups groups;
    if (!latlng::match(*mPatterns, LatLngPairPatterns::Slot(slot), text, groups))
        return false;
    const bool after = slot == LatLngPairPatterns::kDA || slot == LatLngPairPatterns::kDAComma;
    const QStringView firstLetter = groups[after ? 2 : 1];
    const QStringView secondLetter = groups[after ? 4 : 3];
    double first = 0;
    double second = 0;
    if (!LatLngValue::Parse(groups[after ? 1 : 2], &first) ||
        !LatLngValue::Parse(groups[after ? 3 : 4], &second))
        return false;
    if (!validDirection(firstLetter) || !validDirection(secondLetter))
        return false;
    if (negativeDirection(firstLetter))
        first = -first;
    if (negativeDirection(secondLetter))
        second = -second;
    // The letters decide the order, so a longitude may come first; two letters of the same
    // axis fail.
    if (nsDirection(firstLetter) && ewDirection(secondLetter)) {
        mLatitude = first;
        mLongitude = second;
    } else if (ewDirection(firstLetter) && nsDirection(secondLetter)) {
        mLatitude = second;
        mLongitude = first;
    } else {
        return false;
    }
    return true;
}

bool LatLngPair::TrySB(const QString& text, bool comma) {
    latlng::Groups groups;
    if (!latlng::match(*mPatterns, comma ? LatLngPairPatterns::kSBComma : LatLngPairPatterns::kSB,
                       text, groups))
        return false;
    double first = 0;
    double second = 0;
    if (!LatLngValue::Parse(groups[2], &first) || !LatLngValue::Parse(groups[4], &second))
        return false;
    if (!validSign(groups[1]) || !validSign(groups[3]))
        return false;
    mLatitude = negativeDirection(groups[1]) ? -first : first;
    mLongitude = negativeDirection(groups[3]) ? -second : second;
    return true;
}

bool LatLngPair::Parse(const QString& text, double* latitudeResult, double* longitudeResult) {
    return LatLngPair(latitudeResult, longitudeResult).ParseFrom(text);
}

}  // namespace vanta
