// Typed settings: text and numeric views per type, the saved-value stack, the hashed default.
#include <vanta/typedsetting.h>

#include <QDateTime>
#include <QIODevice>
#include <QTextStream>

#include <zlib.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace vanta {

double convertToDouble(const QString&) { return 0.0; }
void convertFromDouble(QString&, double) {}
double convertToDouble(const QDateTime&) { return 0.0; }
void convertFromDouble(QDateTime&, double) {}
double convertToDouble(const std::pair<int, int>&) { return 0.0; }
void convertFromDouble(std::pair<int, int>&, double) {}

namespace {

// Whether the stream's 64-bit accumulator wrapped while reading number, the text it took for
// one integer. It wraps silently, so the digits tell: below 2^63 the stream's result is exact,
// which holds for up to 18 significant decimal or octal digits, 15 hexadecimal or 62 binary
// ones; one digit more is far past the int range in every base.
bool wrapsInStream(QStringView number) {
    int exactDigits = 18;
    if (number.startsWith(u'-') || number.startsWith(u'+')) {
        number = number.mid(1);
    } else if (number.size() > 1 && number[0] == u'0') {
        const QChar prefix = number[1].toLower();
        if (prefix == u'x' || prefix == u'b') {
            exactDigits = prefix == u'x' ? 15 : 62;
            number = number.mid(2);
        }
    }
    while (!number.isEmpty() && number[0].digitValue() == 0)
        number = number.mid(1);
    return number.size() > exactDigits;
}

}  // namespace

// ---- Shared by every type ----

template <class T>
TypedSetting<T>::~TypedSetting() {
    // Observers hear of the deletion while the value is still intact.
    notifyPreDelete();
}

template <class T>
void TypedSetting<T>::pushSetting() {
    mSaved.push_back(mValue);
}

template <class T>
bool TypedSetting<T>::popSetting() {
    if (mSaved.empty())
        return false;
    mValue = std::move(mSaved.back());
    mSaved.pop_back();
    return true;
}

// ---- bool ----

template <>
void TypedSetting<bool>::fromString(const QString& text) {
    const QString word = text.trimmed().toLower();
    set(word == QLatin1String("true") || word == QLatin1String("1"));
}

template <>
QString TypedSetting<bool>::toString() const {
    return QString::number(int(mValue));
}

template <>
double TypedSetting<bool>::getVal() const {
    return mValue ? 1.0 : 0.0;
}

template <>
void TypedSetting<bool>::setVal(double value) {
    set(value != 0.0);  // NaN compares unequal, so it reads as true
}

template <>
int TypedSetting<bool>::getType() const {
    return 0;
}

// ---- int ----

template <>
void TypedSetting<int>::fromString(const QString& text) {
    // The toolkit's stream reading: leading blanks skipped, a sign allowed, "0x", "0b" and a
    // leading 0 choose the base, any Unicode decimal digit counts, reading stops at the first
    // character that is not part of the number, unreadable text gives 0. A number past the int
    // range saturates, as setVal does.
    QString copy = text;
    QTextStream stream(&copy, QIODevice::ReadOnly);
    qlonglong wide = 0;
    stream >> wide;
    if (stream.status() == QTextStream::Ok) {
        const QStringView taken = QStringView(copy).left(qsizetype(stream.pos())).trimmed();
        if (wrapsInStream(taken))
            wide = taken.startsWith(u'-') ? std::numeric_limits<qlonglong>::min()
                                          : std::numeric_limits<qlonglong>::max();
    }
    set(int(std::clamp<qlonglong>(wide, std::numeric_limits<int>::min(),
                                  std::numeric_limits<int>::max())));
}

template <>
QString TypedSetting<int>::toString() const {
    return QString::number(mValue);
}

template <>
double TypedSetting<int>::getVal() const {
    return convertToDouble(double(mValue));
}

template <>
void TypedSetting<int>::setVal(double value) {
    // Truncation toward zero, saturated at the int range; NaN goes to the bottom of it.
    constexpr int kMax = std::numeric_limits<int>::max();
    constexpr int kMin = std::numeric_limits<int>::min();
    const double number = convertFromDouble(double(mValue), value);
    int result;
    if (std::isnan(number) || number <= double(kMin))
        result = kMin;
    else if (number >= double(kMax))
        result = kMax;
    else
        result = int(number);
    set(result);
}

template <>
int TypedSetting<int>::getType() const {
    return 1;
}

// ---- QString ----

template <>
void TypedSetting<QString>::fromString(const QString& text) {
    // One blank-delimited word, as the toolkit's stream reads strings: "hello world" is "hello".
    QString copy = text;
    QTextStream stream(&copy, QIODevice::ReadOnly);
    QString word;
    stream >> word;
    set(word);
}

template <>
QString TypedSetting<QString>::toString() const {
    return mValue;
}

template <>
double TypedSetting<QString>::getVal() const {
    return convertToDouble(mValue);
}

template <>
void TypedSetting<QString>::setVal(double value) {
    // The text does not change, but the call still counts as a set: it stamps the modifier.
    QString copy = mValue;
    convertFromDouble(copy, value);
    set(copy);
}

template <>
int TypedSetting<QString>::getType() const {
    return 4;
}

template class TypedSetting<bool>;
template class TypedSetting<int>;
template class TypedSetting<QString>;

// ---- Named subclasses ----

IntSetting::IntSetting(SettingGroup& group, const QString& name, int defaultValue, bool firstFlag,
                       bool secondFlag)
    : TypedSetting<int>(group, name, defaultValue, firstFlag, secondFlag) {}

// Each concrete class tells the observers itself, so they still see the full object (its own
// type code included); the base's second call finds the list empty.
IntSetting::~IntSetting() { notifyPreDelete(); }

HashedStringSetting::HashedStringSetting(SettingGroup& group, const QString& name,
                                         const QString& defaultValue, bool firstFlag,
                                         bool secondFlag)
    : TypedSetting<QString>(group, name, defaultValue, firstFlag, secondFlag) {
    const QByteArray utf8 = defaultValue.toUtf8();
    mHash = uint32_t(crc32(0L, reinterpret_cast<const Bytef*>(utf8.constData()),
                           uInt(utf8.size())));
}

HashedStringSetting::~HashedStringSetting() { notifyPreDelete(); }

int HashedStringSetting::getType() const { return 8; }

}  // namespace vanta
