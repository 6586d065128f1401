// Tests of the coordinate readers: value and pair tables, round trips, bad input, both engines.
#include <vanta/latlng.h>
#include <vanta/latlng_p.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QRegularExpression>

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <random>
#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

using namespace vanta;
using latlng::Engine;

namespace {

constexpr double kUntouched = -777.25;  // what a result holds when a parser must not write it

QString u16(const char16_t* text) { return QString::fromUtf16(text); }

enum Reader { kValue, kLat, kLng, kPair };

bool read(Reader reader, const QString& text, double* result, double* longitude = nullptr) {
    return reader == kValue ? LatLngValue::Parse(text, result)
           : reader == kLat ? LatValue::Parse(text, result)
           : reader == kLng ? LngValue::Parse(text, result)
                            : LatLngPair::Parse(text, result, longitude);
}

// Every reader's verdict on text and what each wrote, in one line.
std::string readAll(const QString& text) {
    double v[5] = {kUntouched, kUntouched, kUntouched, kUntouched, kUntouched};
    const bool ok[4] = {read(kValue, text, &v[0]), read(kLat, text, &v[1]),
                        read(kLng, text, &v[2]), read(kPair, text, &v[3], &v[4])};
    return QString::asprintf("%d%d%d%d %.17g %.17g %.17g %.17g %.17g", ok[0], ok[1], ok[2], ok[3],
                             v[0], v[1], v[2], v[3], v[4]).toStdString();
}

// Every parser test runs once on each matching engine.
class Engines : public ::testing::TestWithParam<Engine> {
protected:
    void SetUp() override { latlng::setEngine(GetParam()); }
    void TearDown() override { latlng::setEngine(Engine::Scanner); }
};

INSTANTIATE_TEST_SUITE_P(LatLng, Engines, ::testing::Values(Engine::Scanner, Engine::Expression),
                         [](const auto& info) { return info.index ? "Expression" : "Scanner"; });

// The everyday notations are covered by the round trips below; these rows hold the bounds,
// the forms those do not write and the texts that must fail. A pair row gives both values.
const struct Row { Reader reader; const char* input; bool ok; double expected = 0, longitude = 0; }
kRows[] = {
    {kValue, "12", true, 12}, {kValue, "12.", true, 12}, {kValue, "0012", true, 12},
    {kValue, "123", true, 123},  // a digit run stays whole: never 1 degree 23 minutes
    {kValue, "180", true, 180}, {kValue, "181", false},
    {kValue, "180,5", true, 180.5},  // the bound applies to the whole degrees
    {kValue, "10 60", true, 11},     // sixty minutes is accepted
    {kValue, "10 61", false}, {kValue, "10 30 60", true, 10.5 + 60 / 3600.0},
    {kValue, "10 30 60.5", false}, {kValue, "10 61 0", false},
    {kValue, "99999999999 0", false},  // too large for a 32-bit integer
    {kValue, " 12", false}, {kValue, "12 ", false}, {kValue, "-12", false}, {kValue, "12,", false},
    {kValue, "12.5.", false}, {kValue, "12°°", false},
    {kLat, " 45", true, 45},    // the sign form allows blanks after its absent sign
    {kLat, "100N", true, 100},  // no 90-degree bound on a single value
    {kLat, "45E", false}, {kLat, "45N ", false}, {kLat, "N45S", false}, {kLat, "+-45", false},
    {kLat, "45,5N", false},  // no comma-decimal forms
    {kLng, "10,5E", false}, {kLng, "10N", false},
    {kPair, "37.5N 40.1S", false}, {kPair, "10E 20W", false}, {kPair, "95 10", false},
    {kPair, "+37.5+122.25", true, 37.5, 122.25},
    {kPair, "12,5", true, 12, 5},  // the point forms come first and read the comma as separator
    {kPair, "12,5, 45,3", false},  // the comma-decimal sign form has no comma separator
    {kPair, "-90 0", true, -90, 0}, {kPair, "90N 180W", true, 90, -180},
    {kPair, "10N 181E", false}, {kPair, "12.5N,,45E", false}, {kPair, "12 45 ", false},
    {kPair, " 12 45", true, 12, 45},  // the sign form allows blanks after its absent sign
    // Blank-separated sign forms split leftmost-first: the first value takes degrees alone
    // when the rest can then be read, and a decimal keeps as many digits as it can.
    {kPair, "10 30 20 15", true, 10, 30 + 20 / 60.0 + 15 / 3600.0},
    {kPair, "10 30 20", true, 10, 30 + 20 / 60.0}, {kPair, "12.53", true, 12.5, 3},
    {kPair, "10°30' 20", true, 10.5, 20},
};

TEST_P(Engines, ReadersTable) {
    for (const Row& row : kRows) {
        SCOPED_TRACE(std::to_string(row.reader) + " |" + row.input + "|");
        double result = kUntouched, longitude = kUntouched;
        ASSERT_EQ(read(row.reader, QString::fromUtf8(row.input), &result, &longitude), row.ok);
        EXPECT_NEAR(result, row.ok ? row.expected : kUntouched, 1e-12);
        EXPECT_NEAR(longitude, row.ok && row.reader == kPair ? row.longitude : kUntouched, 1e-12);
        EXPECT_EQ(read(row.reader, QString::fromUtf8(row.input), nullptr), row.ok);
    }
}

TEST_P(Engines, AttemptsAloneNeverWriteTheResult) {
    EXPECT_EQ(LatLngValue().value(), 0.0);  // before any attempt
    EXPECT_EQ(LatValue().value(), 0.0);
    EXPECT_EQ(LngValue().value(), 0.0);
    EXPECT_EQ(LatLngPair().latitude(), 0.0);
    EXPECT_EQ(LatLngPair().longitude(), 0.0);
    double result = kUntouched, longitude = kUntouched;
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
    LatLngPair pair(&result, &longitude);
    EXPECT_TRUE(pair.TryDA("95N 10E", false));  // the latitude bound belongs to ParseFrom
    EXPECT_DOUBLE_EQ(pair.latitude(), 95);
    EXPECT_FALSE(pair.ParseFrom("95N 10E"));
    EXPECT_EQ(result, kUntouched);
    EXPECT_EQ(longitude, kUntouched);
}

TEST_P(Engines, ViewsAreReadWithinTheirBounds) {
    // Each text ends flush against an inaccessible page, so a read past the view faults.
    const long page = sysconf(_SC_PAGESIZE);
    void* const map = mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(map, MAP_FAILED);
    ASSERT_EQ(mprotect(static_cast<char*>(map) + page, page, PROT_NONE), 0);
    const QString texts[] = {"12", "12.5", "12.", "12,5", "12\u00b0", "12\u00b030'", "12\u00b030'36\"",
                             "12 30 36''", u16(u"12\xd835"), u16(u"1\U0001d7ce")};
    for (const QString& text : texts) {
        char16_t* const at = reinterpret_cast<char16_t*>(static_cast<char*>(map) + page) - text.size();
        std::memcpy(at, text.utf16(), text.size() * sizeof(char16_t));
        double expected = kUntouched, got = kUntouched;
        EXPECT_EQ(LatLngValue::Parse(QStringView(at, text.size()), &got), LatLngValue::Parse(text, &expected))
            << text.toStdString();
        EXPECT_EQ(got, expected) << text.toStdString();
    }
    munmap(map, 2 * page);
}

TEST_P(Engines, BadInputIsRejectedAndWritesNothing) {
    const QString nul = QString("12") + QChar(0) + "30";
    const QString inputs[] = {
        QString(), "", " ", QString(400, u'9'),
        QString(kMaxCoordinateTextLength - 3, u'0') + "12.5",  // 129 code units: too long
        u16(u"\u0661\u0662"), u16(u"\U0001D7CF\U0001D7D0"),   // digits other than 0-9
        u16(u"12\u4e2d"), "12.5Z", QString("12") + QChar(0xd800), QChar(0xdc00) + u16(u"45"),
        nul, nul + "N",
    };
    const std::string nothing = ("0000" + QString(" %1").arg(kUntouched).repeated(5)).toStdString();
    for (const QString& text : inputs)
        EXPECT_EQ(readAll(text), nothing) << text.toStdString();
    // The length limit is the only reason the long form above fails.
    double result = kUntouched;
    EXPECT_TRUE(LatLngValue::Parse(QString(kMaxCoordinateTextLength - 4, u'0') + "12.5", &result));
    EXPECT_EQ(result, 12.5);
}

// Writes positions the ways people type them, for the round-trip and engine comparison tests.
struct Writer {
    std::mt19937 random;

    double uniform(double high) { return std::uniform_real_distribution<double>(0, high)(random); }
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); }
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
        const int degrees = int(m), minutes = int((m - degrees) * 60);
        QString text = form == 0 ? QString::asprintf("%.10f", m) + pick(kDegreeEnd)
                                 : QString::number(degrees) + pick(kAfterDegrees);
        if (form == 1)
            text += QString::asprintf("%.9f", (m - degrees) * 60) + pick(kMinuteEnd);
        if (form == 2)
            text += QString::number(minutes) + pick(kAfterMinutes) +
                    QString::asprintf("%.8f", ((m - degrees) * 60 - minutes) * 60) + pick(kSecondEnd);
        if (comma)
            text[text.lastIndexOf('.')] = u',';
        return text;
    }

    // A signed value with its mark: a letter after (mark 0) or before (1) in either case, or a
    // sign (2); a blank or none between mark and number.
    QString marked(double v, const char* letters, const QString& number, int mark) {
        const QChar letter = QChar::fromLatin1(letters[(v < 0 ? 1 : 0) + (below(2) ? 2 : 0)]);
        const QString gap = below(2) ? " " : "";
        const QString sign = v < 0 ? "-" : below(2) ? "+" : "";
        return mark == 0   ? number + gap + letter
               : mark == 1 ? letter + gap + number
                           : (sign.isEmpty() ? number : sign + gap + number);
    }
};

TEST_P(Engines, RoundTripEveryNotation) {
    Writer writer{std::mt19937(7)};
    static const char16_t* const kBetween[] = {u" ", u", ", u",", u"/", u" / "};
    for (int i = 0; i < 2500; ++i) {
        const double lat = writer.uniform(180) - 90, lng = writer.uniform(360) - 180;
        const bool comma = writer.below(2);
        const int mark = writer.below(3);
        // With signs and decimal commas only blanks may separate the values.
        const QString between = mark == 2 && comma ? QString(" ") : writer.pick(kBetween);
        const QString lngMagnitude = writer.magnitude(std::fabs(lng), writer.below(3), comma);
        const QString b = writer.marked(lng, "EWew", lngMagnitude, mark);
        // Signs and blanks alone before an unsigned second value leave the split to the reader,
        // which gives the first value degrees only: write it so.
        const bool open = mark == 2 && between == " " && b[0].isDigit();
        const QString a = writer.marked(
            lat, "NSns", writer.magnitude(std::fabs(lat), open ? 0 : writer.below(3), comma), mark);
        const QString text = mark < 2 && writer.below(2) ? b + between + a : a + between + b;
        SCOPED_TRACE(text.toStdString());
        double result[4] = {kUntouched, kUntouched, kUntouched, kUntouched};
        ASSERT_TRUE(read(kPair, text, &result[0], &result[1]));
        EXPECT_NEAR(result[0], lat, 1e-9);
        EXPECT_NEAR(result[1], lng, 1e-9);
        ASSERT_TRUE(read(kValue, lngMagnitude, &result[2]));
        EXPECT_NEAR(result[2], std::fabs(lng), 1e-9);
        // The single-value readers have no decimal commas.
        ASSERT_EQ(read(kLat, a, &result[2]) && read(kLng, b, &result[3]), !comma);
        if (!comma) {
            EXPECT_NEAR(result[2], lat, 1e-9);
            EXPECT_NEAR(result[3], lng, 1e-9);
        }
    }
}

TEST_P(Engines, ConcurrentParsingAfterFirstUse) {
    std::vector<QString> texts;
    std::vector<std::string> expected;
    for (const char* input : {"12°30'36\"", "S 45 30", "122W", "37.5N 122.25W", "12,5 45,3",
                              "95 10", "10 30 60.5"}) {
        texts.push_back(QString::fromUtf8(input));
        expected.push_back(readAll(texts.back()));  // the first use, on this thread alone
    }
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
    // Expected verdicts, in order: direction, north-south, east-west, sign, negative.
    const std::pair<QString, const char*> rows[] = {
        {"N", "11000"}, {"s", "11001"}, {"E", "10100"}, {"west", "10101"}, {"-", "00011"},
        {"+5", "00010"}, {"", "00010"}, {"x", "00000"},
        {QString(QChar(0x14e)), "00000"},  // 'N' plus 256
        {QString(QChar(0x12d)), "00000"},  // '-' plus 256
    };
    for (const auto& [text, expected] : rows) {
        std::string verdicts;
        for (bool verdict : {is_valid_direction(text), is_ns_direction(text), is_ew_direction(text),
                             is_valid_sign(text), is_negative_direction(text)})
            verdicts += verdict ? '1' : '0';
        EXPECT_EQ(verdicts, expected) << text.toStdString();
    }
}

TEST(LatLng, PublicPatternsHoldOneGroupAroundThePointForms) {
    const QRegularExpression value(QRegularExpression::anchoredPattern(LatLngValue::kREPattern));
    EXPECT_EQ(value.captureCount(), 1);
    for (const char* text : {"12.5°", "12°30.5'", "12°30'36.5\"", "12,5"})
        EXPECT_EQ(value.match(QString::fromUtf8(text)).hasMatch(), text[2] != ',') << text;
    const QRegularExpression pair(LatLngPair::kREPattern);
    EXPECT_EQ(pair.captureCount(), 1);
    // Each alternative of the pair pattern, found in free text: what group 1 holds (empty: no match).
    const std::pair<const char*, const char*> rows[] = {
        {"seen at (37°30'N 122.25W) today", "37°30'N 122.25W"},   // letters after
        {"seen at (N37°30' W122.25) today", "N37°30' W122.25"},   // letters before
        {"seen at (s 12.5 / e 7) today", "s 12.5 / e 7"},
        {"moved to -37.5, +122.25 today", "-37.5, +122.25"},      // signs before
        {"moved to - 37.5/122 today", "- 37.5/122"},
        {"moved to 37.5 122.25 today", " 37.5 122.25"},           // signs are optional
        {"moved to 37,5 122,25 today", " 37,5"},                  // a comma separates the values
        {"moved to (x) today", ""},
    };
    for (const auto& [text, captured] : rows) {
        const QRegularExpressionMatch found = pair.match(QString::fromUtf8(text));
        EXPECT_EQ(found.captured(1), QString::fromUtf8(captured)) << text;
    }
}

TEST(LatLng, NumbersConvertAsTheToolkitConvertsThem) {
    std::vector<QString> texts = {"", ".", "12.", ".5", "0.", "1.2.3", "00012.500", " 5", "5 ",
                                  "1e5", "+5", "-5", "inf", "nan", u16(u"\u0661"),
                                  u16(u"\u0131\u0132"),  // each 256 past a digit
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
        ASSERT_TRUE(!expectedOk || std::memcmp(&converted, &expected, sizeof(double)) == 0)
            << text.toStdString();
    }
}

// ---- The two engines, group by group ----

// How text matches one slot on one engine: "none", or the span of every group.
template <class Patterns>
std::string groupsOn(Engine engine, int slot, const QString& text) {
    latlng::setEngine(engine);
    latlng::Groups g;
    const bool ok = latlng::match(*Patterns::getSingleton(), typename Patterns::Slot(slot), text, g);
    latlng::setEngine(Engine::Scanner);
    std::string spans = ok ? "match" : "none";
    for (int i = 0; ok && i < latlng::Groups::kMax; ++i)
        spans += " " + std::to_string(g.start[i]) + "-" + std::to_string(g.end[i]);
    return spans;
}

template <class Patterns>
void expectSame(int slot, const QString& text) {
    ASSERT_EQ(groupsOn<Patterns>(Engine::Scanner, slot, text),
              groupsOn<Patterns>(Engine::Expression, slot, text))
        << typeid(Patterns).name() << " slot " << slot;
}

// Compares the scanner with the compiled expressions on one text in every slot of every set.
void expectSameMatches(const QString& text) {
    for (int slot = 0; slot < LatLngValuePatterns::kSlotCount; ++slot)
        expectSame<LatLngValuePatterns>(slot, text);
    for (int slot = 0; slot < LatValuePatterns::kSlotCount; ++slot) {
        expectSame<LatValuePatterns>(slot, text);
        expectSame<LngValuePatterns>(slot, text);
    }
    for (int slot = 0; slot < LatLngPairPatterns::kSlotCount; ++slot)
        expectSame<LatLngPairPatterns>(slot, text);
}

TEST(LatLngEngines, CaptureTheSameGroupsOnWrittenAndMutatedTexts) {
    Writer writer{std::mt19937(99)};
    const char16_t alphabet[] = u"0123456789.,   °'`\"NSEWnsew-+/\t\u00a0\u2003\u0661\u0085\u180e";
    for (int i = 0; i < 3000; ++i) {
        const double m = writer.uniform(180);
        QString text = writer.magnitude(m, writer.below(3), writer.below(2));
        if (writer.below(2))
            text = writer.marked(writer.below(2) ? m : -m, "NSEW", text, writer.below(3));
        if (writer.below(2))
            text += writer.pick({u" ", u", ", u"/", u""}) +
                    writer.marked(m, "EWNS", writer.magnitude(m / 2, writer.below(3), writer.below(2)),
                                  writer.below(3));
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

TEST(LatLngEngines, ExpressionKeepsOnlyTheGroupsTheRecordHolds) {
    // An expression with more groups than Groups has room for fills the first kMax and leaves
    // the rest uncaptured, never writing past the record.
    const QRegularExpression seven(QStringLiteral("(a)(b)(c)(d)(e)(f)(g)"));
    latlng::Groups g;
    ASSERT_TRUE(latlng::matchExpression(seven, u"abcdefg", g));
    EXPECT_EQ(g[0], u"abcdefg");
    for (int i = 1; i < latlng::Groups::kMax; ++i)
        EXPECT_EQ(g[i], QString(QChar(u'a' + i - 1))) << i;
}

TEST(LatLngEngines, ScannerRefusesASlotOutsideItsSet) {
    latlng::Groups g;
    EXPECT_FALSE(latlng::scanValue(LatLngValuePatterns::kSlotCount, u"12", g));
    EXPECT_FALSE(latlng::scanDirectional(LatValuePatterns::kSlotCount, false, u"12", g));
    EXPECT_FALSE(latlng::scanPair(LatLngPairPatterns::kSlotCount, u"12 45", g));
}

TEST(LatLngEngines, TreatEveryCodeUnitAlike) {
    // Blanks, digits and marks are where a hand-written matcher could differ from the Unicode
    // classes of the expressions; try every UTF-16 code unit in the places they matter.
    for (char32_t c = 0; c <= 0xffff; ++c) {
        const QString unit{QChar{char16_t(c)}};
        expectSame<LatLngValuePatterns>(LatLngValuePatterns::kDMF, "12" + unit + "30");
        expectSame<LatValuePatterns>(LatValuePatterns::kSB, unit + "45");
        expectSame<LatLngPairPatterns>(LatLngPairPatterns::kDA, "37.5N" + unit + "1W");
        if (HasFatalFailure())
            FAIL() << "at U+" << std::hex << unsigned(c);
    }
    // Digits beyond the BMP come as surrogate pairs; a lone surrogate matches nothing.
    expectSameMatches(u16(u"12 \U0001D7CF0"));
    expectSameMatches(u16(u"\U0001D7CF.5N 3E"));
}

}  // namespace
