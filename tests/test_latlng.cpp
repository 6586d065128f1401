// Tests of the coordinate readers: value and pair tables, round trips, bad input, both engines.
#include <vanta/latlng.h>
#include <vanta/latlng_p.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

using namespace vanta;
using latlng::Engine;

namespace {

constexpr double kUntouched = -777.25;  // what a result holds when a parser must not write it

QString u16(const char16_t* text) { return QString::fromUtf16(text); }

enum class Reader { Value, Lat, Lng };

bool read(Reader reader, const QString& text, double* result) {
    switch (reader) {
    case Reader::Value: return LatLngValue::Parse(text, result);
    case Reader::Lat: return LatValue::Parse(text, result);
    case Reader::Lng: return LngValue::Parse(text, result);
    }
    return false;
}

const char* name(Reader reader) {
    return reader == Reader::Value ? "value" : reader == Reader::Lat ? "lat" : "lng";
}

// Every parser test runs once on each matching engine.
class Engines : public ::testing::TestWithParam<Engine> {
protected:
    void SetUp() override { latlng::setEngine(GetParam()); }
    void TearDown() override { latlng::setEngine(Engine::Scanner); }
};

INSTANTIATE_TEST_SUITE_P(LatLng, Engines, ::testing::Values(Engine::Scanner, Engine::Expression),
                         [](const auto& info) {
                             return info.param == Engine::Scanner ? "Scanner" : "Expression";
                         });

struct ValueRow {
    Reader reader;
    const char* input;  // UTF-8
    bool ok;
    double expected;
};

const ValueRow kValueRows[] = {
    {Reader::Value, "12", true, 12},
    {Reader::Value, "12.5°", true, 12.5},
    {Reader::Value, "12.", true, 12},
    {Reader::Value, "12°30'", true, 12.5},
    {Reader::Value, "12°30`", true, 12.5},
    {Reader::Value, "12 30 36", true, 12.51},
    {Reader::Value, "12 30 36''", true, 12.51},
    {Reader::Value, "12 30 36\"", true, 12.51},
    {Reader::Value, "12°30'36.5\"", true, 12 + 30 / 60.0 + 36.5 / 3600},
    {Reader::Value, "12,5", true, 12.5},
    {Reader::Value, "12,5°", true, 12.5},
    {Reader::Value, "12 30,5", true, 12 + 30.5 / 60},
    {Reader::Value, "12 30 36,5''", true, 12 + 30 / 60.0 + 36.5 / 3600},
    {Reader::Value, "123", true, 123},  // a digit run stays whole: never 1 degree 23 minutes
    {Reader::Value, "180", true, 180},
    {Reader::Value, "181", false, 0},
    {Reader::Value, "180,5", true, 180.5},  // the bound applies to the whole degrees
    {Reader::Value, "10 60", true, 11},     // sixty minutes is accepted
    {Reader::Value, "10 61", false, 0},
    {Reader::Value, "10 30 60", true, 10.5 + 60 / 3600.0},
    {Reader::Value, "10 30 60.5", false, 0},
    {Reader::Value, "10 61 0", false, 0},
    {Reader::Value, "0012", true, 12},
    {Reader::Value, "99999999999 0", false, 0},  // too large for a 32-bit integer
    {Reader::Value, " 12", false, 0},
    {Reader::Value, "12 ", false, 0},
    {Reader::Value, "-12", false, 0},
    {Reader::Value, "12,", false, 0},
    {Reader::Value, "12.5.", false, 0},
    {Reader::Value, "12°°", false, 0},
    {Reader::Value, "12\u00a030", true, 12.5},  // a no-break space is a blank
    {Reader::Lat, "-12", true, -12},
    {Reader::Lat, "45N", true, 45},
    {Reader::Lat, "S 45", true, -45},
    {Reader::Lat, "45 s", true, -45},
    {Reader::Lat, "+45", true, 45},
    {Reader::Lat, "- 45 30", true, -45.5},
    {Reader::Lat, "45", true, 45},
    {Reader::Lat, " 45", true, 45},  // the sign form allows blanks after its absent sign
    {Reader::Lat, "45E", false, 0},
    {Reader::Lat, "100N", true, 100},  // no 90-degree bound on a single value
    {Reader::Lat, "45N ", false, 0},
    {Reader::Lat, "N45S", false, 0},
    {Reader::Lat, "+-45", false, 0},
    {Reader::Lat, "45,5N", false, 0},  // no comma-decimal forms
    {Reader::Lng, "122W", true, -122},
    {Reader::Lng, "e 10", true, 10},
    {Reader::Lng, "10,5E", false, 0},
    {Reader::Lng, "122°15'W", true, -122.25},
    {Reader::Lng, "10N", false, 0},
};

TEST_P(Engines, ValueTable) {
    for (const ValueRow& row : kValueRows) {
        SCOPED_TRACE(std::string(name(row.reader)) + " |" + row.input + "|");
        double result = kUntouched;
        ASSERT_EQ(read(row.reader, QString::fromUtf8(row.input), &result), row.ok);
        if (row.ok)
            EXPECT_NEAR(result, row.expected, 1e-12);
        else
            EXPECT_EQ(result, kUntouched);
        EXPECT_EQ(read(row.reader, QString::fromUtf8(row.input), nullptr), row.ok);
    }
}

struct PairRow {
    const char* input;
    bool ok;
    double latitude, longitude;
};

const PairRow kPairRows[] = {
    {"37.5N 122.25W", true, 37.5, -122.25},
    {"122.25W, 37.5N", true, 37.5, -122.25},  // the letters put the longitude first
    {"N37 30 W122 15", true, 37.5, -122.25},
    {"s 10°30' / e 20", true, -10.5, 20},
    {"37.5N 40.1S", false, 0, 0},
    {"10E 20W", false, 0, 0},
    {"37.5, -122.25", true, 37.5, -122.25},
    {"37.5/-122.25", true, 37.5, -122.25},
    {"37.5 -122.25", true, 37.5, -122.25},
    {"+37.5+122.25", true, 37.5, 122.25},
    {"12,5", true, 12, 5},  // the point forms come first and read the comma as the separator
    {"12,5 45,3", true, 12.5, 45.3},
    {"12,5 -45,3", true, 12.5, -45.3},
    {"12,5N 45,3E", true, 12.5, 45.3},
    {"12,5N, 45,3E", true, 12.5, 45.3},
    {"12,5, 45,3", false, 0, 0},  // the comma-decimal sign form has no comma separator
    {"95 10", false, 0, 0},
    {"-90 0", true, -90, 0},
    {"90N 180W", true, 90, -180},
    {"10N 181E", false, 0, 0},
    {"12.5N,,45E", false, 0, 0},
    {" 12 45", true, 12, 45},  // the sign form allows blanks after its absent sign
    {"12 45 ", false, 0, 0},
    // Blank-separated sign forms split leftmost-first: the first value takes degrees alone
    // when the rest can then be read, and a decimal keeps as many digits as it can.
    {"10 30 20 15", true, 10, 30 + 20 / 60.0 + 15 / 3600.0},
    {"10 30 20", true, 10, 30 + 20 / 60.0},
    {"12.53", true, 12.5, 3},
    {"10°30' 20", true, 10.5, 20},
};

TEST_P(Engines, PairTable) {
    for (const PairRow& row : kPairRows) {
        SCOPED_TRACE(std::string("|") + row.input + "|");
        double latitude = kUntouched;
        double longitude = kUntouched;
        ASSERT_EQ(LatLngPair::Parse(QString::fromUtf8(row.input), &latitude, &longitude), row.ok);
        EXPECT_NEAR(latitude, row.ok ? row.latitude : kUntouched, 1e-12);
        EXPECT_NEAR(longitude, row.ok ? row.longitude : kUntouched, 1e-12);
    }
}

TEST_P(Engines, AttemptsAloneNeverWriteTheResult) {
    double result = kUntouched;
    LatLngValue value(&result);
    EXPECT_FALSE(value.TryDF("12 30", false));
    EXPECT_TRUE(value.TryDMF("12 30", false));
    EXPECT_DOUBLE_EQ(value.value(), 12.5);
    EXPECT_FALSE(value.TryDMF("12 30", true));
    EXPECT_DOUBLE_EQ(LatLngValue::ConvertToFraction("25"), 0.25);
    EXPECT_EQ(LatLngValue::ConvertToFraction("2x"), -1.0);

    LatValue lat(&result);
    EXPECT_FALSE(lat.TryDA("S 45"));
    EXPECT_TRUE(lat.TryDB("S 45"));
    EXPECT_DOUBLE_EQ(lat.value(), -45);

    double longitude = kUntouched;
    LatLngPair pair(&result, &longitude);
    EXPECT_TRUE(pair.TryDA("95N 10E", false));  // the latitude bound belongs to ParseFrom
    EXPECT_DOUBLE_EQ(pair.latitude(), 95);
    EXPECT_FALSE(pair.ParseFrom("95N 10E"));
    EXPECT_EQ(result, kUntouched);
    EXPECT_EQ(longitude, kUntouched);
}

// Inputs no reader may accept: each must return false and write nothing.
std::vector<QString> badInputs() {
    std::vector<QString> inputs = {
        QString(), QString(""), QStringLiteral(" "), QString(400, u'9'),
        QString(kMaxCoordinateTextLength - 3, u'0') + "12.5",  // 129 code units: too long
        u16(u"\u0661\u0662"),                                  // Arabic-Indic digits
        u16(u"\U0001D7CF\U0001D7D0"),                         // mathematical digits
        u16(u"12\u4e2d"), QStringLiteral("12.5Z"),
    };
    QString surrogate("12");
    surrogate.append(QChar(0xd800));
    inputs.push_back(surrogate);
    inputs.push_back(QString(QChar(0xdc00)) + "45");
    QString nul("12");
    nul.append(QChar(0));
    nul.append("30");
    inputs.push_back(nul);
    inputs.push_back(nul + "N");
    return inputs;
}

TEST_P(Engines, BadInputIsRejectedAndWritesNothing) {
    for (const QString& text : badInputs()) {
        SCOPED_TRACE(text.toUtf8().toStdString());
        for (Reader reader : {Reader::Value, Reader::Lat, Reader::Lng}) {
            double result = kUntouched;
            EXPECT_FALSE(read(reader, text, &result)) << name(reader);
            EXPECT_EQ(result, kUntouched);
        }
        double latitude = kUntouched;
        double longitude = kUntouched;
        EXPECT_FALSE(LatLngPair::Parse(text, &latitude, &longitude));
        EXPECT_EQ(latitude, kUntouched);
        EXPECT_EQ(longitude, kUntouched);
    }
    // The length limit is the only reason the long form above fails.
    double result = kUntouched;
    EXPECT_TRUE(LatLngValue::Parse(QString(kMaxCoordinateTextLength - 4, u'0') + "12.5", &result));
    EXPECT_EQ(result, 12.5);
}

// Writes positions the ways people type them, for the round-trip and engine comparison tests.
class Writer {
public:
    explicit Writer(unsigned seed) : mRandom(seed) {}

    double uniform(double high) { return std::uniform_real_distribution<double>(0, high)(mRandom); }
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(mRandom); }
    template <size_t N>
    QString pick(const char16_t* const (&options)[N]) { return u16(options[below(int(N))]); }

    // The magnitude m as degrees (form 0), degrees-minutes (1) or degrees-minutes-seconds (2),
    // with marks or blanks, the last quantity with a decimal point or, with comma, a comma.
    QString magnitude(double m, int form, bool comma) {
        static const char16_t* const kDegreeEnd[] = {u"", u"°"};
        static const char16_t* const kAfterDegrees[] = {u" ", u"°", u"° ", u"\t", u"\u00a0"};
        static const char16_t* const kAfterMinutes[] = {u" ", u"'", u"' ", u"`", u"  "};
        static const char16_t* const kMinuteEnd[] = {u"", u"'", u"`"};
        static const char16_t* const kSecondEnd[] = {u"", u"\"", u"''"};
        const int degrees = int(m);
        const double minutes = (m - degrees) * 60;
        QString text;
        if (form == 0) {
            text = QString::asprintf("%.10f", m) + pick(kDegreeEnd);
        } else if (form == 1) {
            text = QString::number(degrees) + pick(kAfterDegrees) +
                   QString::asprintf("%.9f", minutes) + pick(kMinuteEnd);
        } else {
            const int whole = int(minutes);
            text = QString::number(degrees) + pick(kAfterDegrees) + QString::number(whole) +
                   pick(kAfterMinutes) + QString::asprintf("%.8f", (minutes - whole) * 60) +
                   pick(kSecondEnd);
        }
        if (comma)
            text[text.lastIndexOf('.')] = u',';
        return text;
    }

    // A signed value with its mark: a letter after or before (either case), or a sign.
    QString marked(double v, const char* letters, const QString& number) {
        const QChar letter = QChar::fromLatin1(letters[(v < 0 ? 1 : 0) + (below(2) ? 2 : 0)]);
        const QString gap = below(2) ? " " : "";
        switch (below(3)) {
        case 0: return number + gap + letter;
        case 1: return letter + gap + number;
        default: {
            const QString sign = v < 0 ? "-" : below(2) ? "+" : "";
            return sign.isEmpty() ? number : sign + gap + number;
        }
        }
    }

private:
    std::mt19937 mRandom;
};

TEST_P(Engines, RoundTripEveryNotation) {
    Writer writer(20261122);
    for (int i = 0; i < 1500; ++i) {
        const double m = writer.uniform(180);
        const int form = writer.below(3);
        const bool comma = writer.below(2);
        const QString magnitude = writer.magnitude(m, form, comma);
        SCOPED_TRACE(magnitude.toStdString());
        double result = kUntouched;
        ASSERT_TRUE(LatLngValue::Parse(magnitude, &result));
        EXPECT_NEAR(result, m, 1e-9);

        const double v = writer.below(2) ? -m : m;
        const QString lat = writer.marked(v, "NSns", writer.magnitude(m, form, false));
        SCOPED_TRACE(lat.toStdString());
        ASSERT_TRUE(LatValue::Parse(lat, &result));
        EXPECT_NEAR(result, v, 1e-9);
        const QString lng = writer.marked(v, "EWew", writer.magnitude(m, form, false));
        SCOPED_TRACE(lng.toStdString());
        ASSERT_TRUE(LngValue::Parse(lng, &result));
        EXPECT_NEAR(result, v, 1e-9);
    }
}

TEST_P(Engines, RoundTripPairs) {
    Writer writer(7);
    for (int i = 0; i < 1500; ++i) {
        const double lat = writer.uniform(180) - 90;
        const double lng = writer.uniform(360) - 180;
        const bool comma = writer.below(2);
        const bool letters = writer.below(2);
        QString text;
        if (letters) {
            const QString a = writer.magnitude(std::fabs(lat), writer.below(3), comma);
            const QString b = writer.magnitude(std::fabs(lng), writer.below(3), comma);
            const QChar ns = QChar::fromLatin1("NSns"[(lat < 0) + 2 * writer.below(2)]);
            const QChar ew = QChar::fromLatin1("EWew"[(lng < 0) + 2 * writer.below(2)]);
            static const char16_t* const kBetween[] = {u" ", u", ", u",", u"/", u" / "};
            const QString between = writer.pick(kBetween);
            const bool before = writer.below(2);
            const QString first = before ? ns + a : a + ns;
            const QString second = before ? ew + b : b + ew;
            text = writer.below(2) ? first + between + second : second + between + first;
        } else {
            // Signs: a comma or slash, or a sign on the second value, fix where the first value
            // ends; with blanks alone the first value is written in degrees so that the
            // leftmost-first split is the intended one.
            static const char16_t* const kBetween[] = {u",", u", ", u"/", u" /"};
            const bool secondSigned = lng < 0 || writer.below(2);
            const QString between = !comma && writer.below(2) ? writer.pick(kBetween) : " ";
            const bool fixedEnd = secondSigned || between != " ";
            const QString a = writer.magnitude(std::fabs(lat), fixedEnd ? writer.below(3) : 0, comma);
            const QString b = writer.magnitude(std::fabs(lng), writer.below(3), comma);
            text = (lat < 0 ? "-" : "") + a + between +
                   (secondSigned ? (lng < 0 ? "-" : "+") : "") + b;
        }
        SCOPED_TRACE(text.toStdString());
        double latitude = kUntouched;
        double longitude = kUntouched;
        ASSERT_TRUE(LatLngPair::Parse(text, &latitude, &longitude));
        EXPECT_NEAR(latitude, lat, 1e-9);
        EXPECT_NEAR(longitude, lng, 1e-9);
    }
}

// Every reader's verdict on text, in one line.
QString readAll(const QString& text) {
    double v[5] = {kUntouched, kUntouched, kUntouched, kUntouched, kUntouched};
    const bool ok[4] = {LatLngValue::Parse(text, &v[0]), LatValue::Parse(text, &v[1]),
                        LngValue::Parse(text, &v[2]), LatLngPair::Parse(text, &v[3], &v[4])};
    return QString::asprintf("%d%d%d%d %.17g %.17g %.17g %.17g %.17g", ok[0], ok[1], ok[2], ok[3],
                             v[0], v[1], v[2], v[3], v[4]);
}

TEST_P(Engines, ConcurrentParsingAfterFirstUse) {
    std::vector<QString> texts;
    for (const char* input : {"12°30'36\"", "S 45 30", "122W", "37.5N 122.25W", "12,5 45,3",
                              "95 10", "10 30 60.5"})
        texts.push_back(QString::fromUtf8(input));
    std::vector<QString> expected;
    for (const QString& text : texts)
        expected.push_back(readAll(text));  // the first use, on this thread alone
    std::atomic<int> mismatches{0}, finished{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int round = 0; round < 300; ++round) {
                for (size_t i = 0; i < texts.size(); ++i)
                    mismatches += readAll(texts[i]) != expected[i];
            }
            ++finished;
        });
    }
    const bool done = vantatest::waitUntil([&] { return finished == 4; }, std::chrono::seconds(60));
    for (std::thread& thread : threads)
        thread.join();
    ASSERT_TRUE(done);
    EXPECT_EQ(mismatches.load(), 0);
}

// ---- Independent of the engine ----

TEST(LatLng, PredicatesLookAtTheFirstLatin1Character) {
    struct Row {
        QString text;
        bool direction, ns, ew, sign, negative;
    };
    const Row rows[] = {
        {"N", true, true, false, false, false},   {"s", true, true, false, false, true},
        {"E", true, false, true, false, false},   {"west", true, false, true, false, true},
        {"-", false, false, false, true, true},   {"+5", false, false, false, true, false},
        {"", false, false, false, true, false},   {"x", false, false, false, false, false},
        {QString(QChar(0x14e)), false, false, false, false, false},  // 'N' plus 256
        {QString(QChar(0x12d)), false, false, false, false, false},  // '-' plus 256
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text.toStdString());
        EXPECT_EQ(is_valid_direction(row.text), row.direction);
        EXPECT_EQ(is_ns_direction(row.text), row.ns);
        EXPECT_EQ(is_ew_direction(row.text), row.ew);
        EXPECT_EQ(is_valid_sign(row.text), row.sign);
        EXPECT_EQ(is_negative_direction(row.text), row.negative);
    }
}

TEST(LatLng, PublicPatternsFindCoordinatesInFreeText) {
    const char* const value =
        R"re((?:\d+(?!\d)\.?\d*)(?:°)?|(?:\d+(?!\d))(?:°)?\s*(?:\d+(?!\d)\.?\d*)[`']?|)re"
        R"re((?:\d+(?!\d))(?:°)?\s*(?:\d+(?!\d))[`']?\s*(?:\d+(?!\d)\.?\d*)(?:"|'')?)re";
    EXPECT_EQ(LatLngValue::kREPattern, "(" + QString::fromUtf8(value) + ")");
    const QString v = "(?:" + QString::fromUtf8(value) + ")";
    EXPECT_EQ(LatLngPair::kREPattern,
              "(" + v + R"(\s*[NSEWnsew]\s*[,/]?\s*)" + v + R"(\s*[NSEWnsew]|[NSEWnsew]\s*)" + v +
                  R"(\s*[,/]?\s*[NSEWnsew]\s*)" + v + R"(|[-+]?\s*)" + v +
                  R"(\s*[,/]?\s*[-+]?\s*)" + v + ")");

    const QRegularExpression pair(LatLngPair::kREPattern);
    const QRegularExpressionMatch found = pair.match(QString::fromUtf8("seen at (37°30'N 122.25W) today"));
    ASSERT_TRUE(found.hasMatch());
    EXPECT_EQ(found.captured(1), QString::fromUtf8("37°30'N 122.25W"));
}

TEST(LatLng, NumbersConvertAsTheToolkitConvertsThem) {
    std::vector<QString> texts = {"", ".", "12.", ".5", "0.", "1.2.3", "00012.500", " 5", "5 ",
                                  "1e5", "+5", "-5", "inf", "nan", u16(u"\u0661"),
                                  QString(126, u'9'), "0." + QString(124, u'0') + "7",
                                  QString(400, u'9'), "0." + QString(400, u'0') + "1"};
    std::mt19937 random(5);
    const char alphabet[] = "0123456789.";
    for (int i = 0; i < 20000; ++i) {
        QString text;
        for (int n = int(random() % 24); n > 0; --n)
            text += QChar::fromLatin1(alphabet[random() % (sizeof alphabet - 1)]);
        texts.push_back(text);
    }
    for (const QString& text : texts) {
        bool expectedOk = false;
        const double expected = text.toDouble(&expectedOk);
        double converted = kUntouched;
        ASSERT_EQ(latlng::toNumber(text, &converted), expectedOk) << text.toStdString();
        // Bit for bit, so that "nan" compares too.
        if (expectedOk) {
            ASSERT_EQ(std::memcmp(&converted, &expected, sizeof(double)), 0) << text.toStdString();
        }
    }
}

// ---- The two engines, group by group ----

// Compares the scanner with the compiled expressions on one text in every slot of every set.
void expectSameMatches(const QString& text) {
    latlng::Groups scanned, expected;
    auto compare = [&](bool scanOk, const QRegularExpression& expression, const char* set, int slot) {
        const bool expressionOk = latlng::matchExpression(expression, text, expected);
        ASSERT_EQ(scanOk, expressionOk) << set << " slot " << slot;
        for (int group = 0; scanOk && group < latlng::Groups::kMax; ++group) {
            EXPECT_EQ(scanned.start[group], expected.start[group]) << set << slot << " g" << group;
            EXPECT_EQ(scanned.end[group], expected.end[group]) << set << slot << " g" << group;
        }
    };
    for (int slot = 0; slot < LatLngValuePatterns::kSlotCount; ++slot) {
        const auto s = LatLngValuePatterns::Slot(slot);
        compare(latlng::scanValue(s, text, scanned),
                LatLngValuePatterns::getSingleton()->expression(s), "value", slot);
    }
    for (int slot = 0; slot < LatValuePatterns::kSlotCount; ++slot) {
        compare(latlng::scanDirectional(slot, false, text, scanned),
                LatValuePatterns::getSingleton()->expression(LatValuePatterns::Slot(slot)), "lat",
                slot);
        compare(latlng::scanDirectional(slot, true, text, scanned),
                LngValuePatterns::getSingleton()->expression(LngValuePatterns::Slot(slot)), "lng",
                slot);
    }
    for (int slot = 0; slot < LatLngPairPatterns::kSlotCount; ++slot) {
        const auto s = LatLngPairPatterns::Slot(slot);
        compare(latlng::scanPair(s, text, scanned),
                LatLngPairPatterns::getSingleton()->expression(s), "pair", slot);
    }
}

TEST(LatLngEngines, CaptureTheSameGroupsOnWrittenAndMutatedTexts) {
    Writer writer(99);
    const char16_t alphabet[] = u"0123456789.,   °'`\"NSEWnsew-+/\t\u00a0\u2003\u0661\u0085\u180e";
    for (int i = 0; i < 3000; ++i) {
        const double m = writer.uniform(180);
        QString text = writer.magnitude(m, writer.below(3), writer.below(2));
        if (writer.below(2))
            text = writer.marked(writer.below(2) ? m : -m, "NSEW", text);
        if (writer.below(2))
            text += writer.pick({u" ", u", ", u"/", u""}) +
                    writer.marked(m, "EWNS", writer.magnitude(m / 2, writer.below(3), writer.below(2)));
        for (int edits = writer.below(4); edits > 0; --edits) {
            const int at = writer.below(int(text.size()) + 1);
            const QChar c(alphabet[writer.below(int(std::size(alphabet)) - 1)]);
            switch (writer.below(3)) {
            case 0: text.insert(at, c); break;
            case 1: if (at < text.size()) text.remove(at, 1); break;
            default: if (at < text.size()) text[at] = c; break;
            }
        }
        SCOPED_TRACE(text.toStdString());
        expectSameMatches(text);
        if (HasFatalFailure())
            return;
    }
}

TEST(LatLngEngines, TreatEveryCodeUnitAlike) {
    // Blanks, digits and marks are where a hand-written matcher could differ from the Unicode
    // classes of the expressions; try every UTF-16 code unit in the places they matter.
    const QRegularExpression& dmf =
        LatLngValuePatterns::getSingleton()->expression(LatLngValuePatterns::kDMF);
    const QRegularExpression& signBefore =
        LatValuePatterns::getSingleton()->expression(LatValuePatterns::kSB);
    const QRegularExpression& lettersAfter =
        LatLngPairPatterns::getSingleton()->expression(LatLngPairPatterns::kDA);
    latlng::Groups scanned, expected;
    for (char32_t c = 0; c <= 0xffff; ++c) {
        const QString unit{QChar{char16_t(c)}};
        const QString between = "12" + unit + "30", before = unit + "45", pair = "37.5N" + unit + "1W";
        ASSERT_EQ(latlng::scanValue(LatLngValuePatterns::kDMF, between, scanned),
                  latlng::matchExpression(dmf, between, expected)) << "U+" << std::hex << unsigned(c);
        ASSERT_EQ(latlng::scanDirectional(LatValuePatterns::kSB, false, before, scanned),
                  latlng::matchExpression(signBefore, before, expected)) << "U+" << std::hex << unsigned(c);
        ASSERT_EQ(latlng::scanPair(LatLngPairPatterns::kDA, pair, scanned),
                  latlng::matchExpression(lettersAfter, pair, expected)) << "U+" << std::hex << unsigned(c);
    }
    // Digits beyond the BMP come as surrogate pairs; a lone surrogate matches nothing.
    expectSameMatches(u16(u"12 \U0001D7CF0"));
    expectSameMatches(u16(u"\U0001D7CF.5N 3E"));
}

}  // namespace
