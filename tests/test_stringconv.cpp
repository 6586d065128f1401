// Tests of the string conversions: surrogates both ways, percent escapes, wcsicmp, Utf8OStream.
#include <vanta/stringconv.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vanta;

namespace {

QString fromUnits(std::initializer_list<char16_t> units) {
    return QString(reinterpret_cast<const QChar*>(std::data(units)), qsizetype(units.size()));
}

std::vector<unsigned> codes(const std::wstring& s) {
    return std::vector<unsigned>(s.begin(), s.end());
}

std::vector<unsigned> units(const QString& s) {
    std::vector<unsigned> out;
    for (QChar c : s)
        out.push_back(c.unicode());
    return out;
}

}  // namespace

TEST(ToWString, SurrogatesCombineOnlyWhenPaired) {
    struct Row {
        const char* name;
        QString in;
        std::vector<unsigned> out;
    };
    const std::vector<Row> rows = {
        {"empty", QString(), {}},
        {"ascii", QStringLiteral("abc"), {'a', 'b', 'c'}},
        {"pair keeps length", fromUnits({0xD83D, 0xDE00}), {0x1F600, 0}},
        {"lowest and highest pairs", fromUnits({0xD800, 0xDC00, 0xDBFF, 0xDFFF}),
         {0x10000, 0x10FFFF, 0, 0}},
        {"lone low", fromUnits({0xDC00}), {0xDC00}},
        {"lone high at end", fromUnits({'x', 0xD83D}), {'x', 0xD83D}},
        {"high then ascii", fromUnits({0xD83D, 'a'}), {0xD83D, 'a'}},
        {"low then high", fromUnits({0xDE00, 0xD83D}), {0xDE00, 0xD83D}},
        {"two pairs", fromUnits({0xD83D, 0xDE00, 'z', 0xD83D, 0xDE01}), {0x1F600, 'z', 0x1F601, 0, 0}},
        // Long enough to cross the block fast path with a pair straddling a block edge.
        {"pair across block", fromUnits({'0', '1', '2', '3', '4', '5', '6', 0xD83D, 0xDE00, '9'}),
         {'0', '1', '2', '3', '4', '5', '6', 0x1F600, '9', 0}},
    };
    for (const Row& row : rows)
        EXPECT_EQ(codes(toWString(row.in)), row.out) << row.name;
}

TEST(ToWString, UnitArrayStopsAtZeroWithoutCombining) {
    const unsigned short text[] = {'h', 0xD83D, 0xDE00, 'i', 0, 'x'};
    EXPECT_EQ(codes(toWString(text)), (std::vector<unsigned>{'h', 0xD83D, 0xDE00, 'i'}));
    EXPECT_TRUE(toWString(static_cast<const unsigned short*>(nullptr)).empty());
}

TEST(ToQString, SplitsBeyondFirstPlaneAndKeepsLength) {
    struct Row {
        const char* name;
        std::wstring in;
        std::vector<unsigned> out;
    };
    const std::vector<Row> rows = {
        {"emoji", std::wstring{wchar_t(0x1F600)}, {0xD83D, 0xDE00}},
        {"first and last", std::wstring{wchar_t(0x10000), wchar_t(0x10FFFF)},
         {0xD800, 0xDC00, 0xDBFF, 0xDFFF}},
        {"bmp", L"a\u00e9\u4e2d", {'a', 0xE9, 0x4E2D}},
        {"lone surrogate passes", std::wstring{wchar_t(0xDC00)}, {0xDC00}},
        {"zero inside", std::wstring(L"a\0b", 3), {'a', 0, 'b'}},
        {"long mixed", std::wstring(L"0123456789") + wchar_t(0x1F600) + L"abcdefgh",
         {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 0xD83D, 0xDE00,
          'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'}},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(units(toQString(row.in)), row.out) << row.name;
        EXPECT_EQ(units(toQString(row.in.data(), int(row.in.size()))), row.out) << row.name;
    }
}

TEST(ToQString, NullEmptyAndLengthForms) {
    EXPECT_TRUE(toQString(static_cast<const wchar_t*>(nullptr)).isNull());
    EXPECT_TRUE(toQString(nullptr, 5).isNull());
    const QString empty = toQString(L"");
    EXPECT_TRUE(empty.isEmpty());
    EXPECT_FALSE(empty.isNull());
    EXPECT_EQ(toQString(L"abcdef", 3), QStringLiteral("abc"));
    EXPECT_TRUE(toQString(L"abc", -4).isEmpty());
    EXPECT_EQ(toQString(L"abc\0def"), QStringLiteral("abc")) << "the pointer form stops at zero";
}

TEST(HexEncode, EveryByteHasItsEscape) {
    EXPECT_STREQ(hexEncode('A'), "%41");
    EXPECT_STREQ(hexEncode('\xff'), "%ff");
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(QString::fromLatin1(hexEncode(char(i))),
                  QStringLiteral("%") + QStringLiteral("%1").arg(i, 2, 16, QLatin1Char('0')))
            << i;
}

TEST(Wcsicmp, OrdersCaseInsensitively) {
    struct Row {
        const wchar_t* a;
        const wchar_t* b;
        int expected;
    };
    const Row rows[] = {
        {L"abc", L"ABC", 0},   {L"ab", L"abc", -1},  {L"abc", L"ab", 1},   {L"", L"", 0},
        {L"", L"a", -1},       {L"a", L"", 1},       {L"ABD", L"abc", 1},  {L"a", L"B", -1},
        {L"\u0416", L"\u0436", -1},  // beyond the byte range: compared as they are
        {nullptr, L"", 0},     {L"x", nullptr, 1},
    };
    for (const Row& row : rows)
        EXPECT_EQ(wcsicmp(row.a, row.b), row.expected)
            << QString::fromWCharArray(row.a ? row.a : L"(null)").toStdString() << " vs "
            << QString::fromWCharArray(row.b ? row.b : L"(null)").toStdString();
}

TEST(Utf8OStream, EncodesEachUnitOnItsOwn) {
    struct Row {
        const char* name;
        QString in;
        QByteArray out;
    };
    const std::vector<Row> rows = {
        {"ascii", QStringLiteral("abc"), "abc"},
        {"two bytes", QStringLiteral("\u00e9\u07ff"), "\xc3\xa9\xdf\xbf"},
        {"three bytes", QStringLiteral("\u0800\u4e2d\uffff"), "\xe0\xa0\x80\xe4\xb8\xad\xef\xbf\xbf"},
        {"surrogate halves", fromUnits({0xD83D, 0xDE00}), "\xed\xa0\xbd\xed\xb8\x80"},
        {"stops at zero", fromUnits({'a', 'b', 0, 'c'}), "ab"},
        {"leading zero", fromUnits({0, 'c'}), ""},
        {"empty", QString(), ""},
        // Long enough for the block-wise count and encode, with the zero past the first block.
        {"zero after blocks", QStringLiteral("0123456789\u00e9\u4e2dabcd") + QChar(0) + "tail",
         "0123456789\xc3\xa9\xe4\xb8\xad" "abcd"},
    };
    for (const Row& row : rows) {
        Utf8OStream stream;
        stream << row.in;
        EXPECT_EQ(QByteArray(stream.data(), stream.length()), row.out) << row.name;
    }
}

TEST(Utf8OStream, GrowsByDoublingFromAnyCapacity) {
    struct Row {
        int initial;
        int pieces;
        int expectedCapacity;
    };
    // Each piece is 10 bytes ("0123456789"); a zero start begins at 64 bytes.
    const Row rows[] = {{0, 1, 64}, {0, 7, 128}, {1, 3, 32}, {10, 1, 10}, {10, 2, 20}, {3, 50, 768}};
    for (const Row& row : rows) {
        Utf8OStream stream(row.initial);
        QByteArray expected;
        for (int i = 0; i < row.pieces; ++i) {
            stream << QStringLiteral("0123456789");
            expected += "0123456789";
        }
        EXPECT_EQ(stream.length(), expected.size()) << row.initial << "/" << row.pieces;
        EXPECT_EQ(stream.capacity(), row.expectedCapacity) << row.initial << "/" << row.pieces;
        EXPECT_EQ(QByteArray(stream.data(), stream.length()), expected);
    }
}

TEST(Utf8OStream, AppendsAfterEarlierTextAndMatchesQtForValidText) {
    Utf8OStream stream(0);
    const QString text = QStringLiteral("Grüße, 世界! Привет. ");  // no surrogates: as toUtf8
    QByteArray expected;
    for (int i = 0; i < 40; ++i) {
        stream << text;
        expected += text.toUtf8();
    }
    EXPECT_EQ(QByteArray(stream.data(), stream.length()), expected);
    stream.clear();
    stream << QStringLiteral("x");
    EXPECT_EQ(QByteArray(stream.data(), stream.length()), "x");
}
