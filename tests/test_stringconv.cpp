// Tests of the string conversions: surrogates both ways, percent escapes, wcsicmp, Utf8OStream.
#include <vanta/stringconv.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>

using namespace vanta;

namespace {

QString fromUnits(const std::u16string& units) {
    return QString::fromUtf16(units.data(), qsizetype(units.size()));
}

// The first n units of units, borrowed rather than copied (no zero after them).
QString borrowedString(const char16_t* units, qsizetype n) {
    return QString::fromRawData(reinterpret_cast<const QChar*>(units), n);
}

QByteArray written(const Utf8OStream& stream) { return QByteArray(stream.data(), stream.length()); }

}  // namespace

// Each row converts both ways: UTF-16 to UTF-32 pads the result with one zero per combined pair.
TEST(StringConv, SurrogatesCombineOnlyWhenPaired) {
    struct Row { const char* name; std::u16string utf16; std::wstring utf32; };
    const Row rows[] = {
        {"empty", {}, {}},
        {"bmp", u"a\u00e9\u4e2d", L"a\u00e9\u4e2d"},
        {"lowest and highest pairs", {0xD800, 0xDC00, 0xDBFF, 0xDFFF}, {0x10000, 0x10FFFF}},
        {"lone low", {0xDC00}, {0xDC00}},
        {"lone high at end", {'x', 0xD83D}, {'x', 0xD83D}},
        {"high then ascii", {0xD83D, 'a'}, {0xD83D, 'a'}},
        {"low then high", {0xDE00, 0xD83D}, {0xDE00, 0xD83D}},
        {"zero inside", {'a', 0, 'b'}, {'a', 0, 'b'}},
        // Long enough for the block fast paths, with a pair straddling a block edge.
        {"pair across block", u"0123456\U0001F600" u"9abcdefgh", L"0123456\U0001F600" L"9abcdefgh"},
        // U+FFFF is the last unit that stands alone; U+10000 the first that needs a pair.
        {"first plane's end", {0xFFFF, 0xD800, 0xDC00}, {0xFFFF, 0x10000}},
        {"first plane's end in a block", u"0123456\uFFFF" u"abcdefgh", L"0123456\uFFFF" L"abcdefgh"},
    };
    for (const Row& row : rows) {
        std::wstring padded = row.utf32;
        padded.resize(row.utf16.size(), L'\0');
        const QString utf16 = fromUnits(row.utf16);
        EXPECT_EQ(toWString(utf16), padded) << row.name;
        EXPECT_EQ(toQString(row.utf32), utf16) << row.name;
        EXPECT_EQ(toQString(row.utf32.data(), int(row.utf32.size())), utf16) << row.name;
    }
}

TEST(StringConv, PointerFormsStopAtZeroAndTakeNull) {
    const unsigned short units[] = {'h', 0xD83D, 0xDE00, 'i', 0, 'x'};
    EXPECT_EQ(toWString(units), (std::wstring{'h', 0xD83D, 0xDE00, 'i'})) << "never combined";
    EXPECT_TRUE(toWString(static_cast<const unsigned short*>(nullptr)).empty());
    EXPECT_TRUE(toQString(static_cast<const wchar_t*>(nullptr)).isNull());
    EXPECT_TRUE(toQString(nullptr, 5).isNull());
    EXPECT_FALSE(toQString(L"").isNull());
    EXPECT_EQ(toQString(L"abcdef", 3), QStringLiteral("abc"));
    EXPECT_TRUE(toQString(L"abc", -4).isEmpty());
    EXPECT_EQ(toQString(L"abc\0def"), QStringLiteral("abc"));
    // Borrowed units without a zero after them: the result is the source's length and ends in a
    // zero, so its c_str() can be handed on.
    static const char16_t borrowed[] = u"abZ";
    const std::wstring wide = toWString(borrowedString(borrowed, 2));
    EXPECT_EQ(wide, L"ab");
    EXPECT_EQ(wide.c_str()[2], L'\0');
}

TEST(StringConv, HexEncodeHasAnEscapeForEveryByte) {
    for (int i = 0; i < 256; ++i) {
        char expected[4];
        std::snprintf(expected, sizeof expected, "%%%02x", i);
        EXPECT_STREQ(hexEncode(char(i)), expected);
    }
}

TEST(StringConv, WcsicmpOrdersCaseInsensitively) {
    const struct { const wchar_t *a, *b; int expected; } rows[] = {
        {L"abc", L"ABC", 0},  {L"ab", L"abc", -1}, {L"abc", L"ab", 1}, {L"", L"a", -1},
        {L"ABD", L"abc", 1},  {L"a", L"B", -1},
        {L"\u0416", L"\u0436", -1},  // beyond the byte range: compared as they are
        {nullptr, L"", 0},    {L"x", nullptr, 1},
    };
    for (const auto& row : rows)
        EXPECT_EQ(wcsicmp(row.a, row.b), row.expected) << &row - rows;
}

TEST(Utf8OStream, EncodesEachUnitOnItsOwn) {
    const std::pair<std::u16string, QByteArray> rows[] = {
        {u"abc", "abc"},
        {u"\u00e9\u07ff", "\xc3\xa9\xdf\xbf"},
        {u"\u0800\u4e2d\uffff", "\xe0\xa0\x80\xe4\xb8\xad\xef\xbf\xbf"},
        {{0xD83D, 0xDE00}, "\xed\xa0\xbd\xed\xb8\x80"},  // surrogate halves apart
        {{'a', 'b', 0, 'c'}, "ab"},
        {{0, 'c'}, ""},
        {{}, ""},
        // Long enough for the block-wise count and encode, with the zero past the first block.
        {std::u16string(u"0123456789\u00e9\u4e2dabcd") + u'\0' + u"tail",
         "0123456789\xc3\xa9\xe4\xb8\xad" "abcd"},
        // Past the point where the block-wise byte count must fold its counters.
        {std::u16string(140000, u'\u4e2d'), QByteArray("\xe4\xb8\xad").repeated(140000)},
    };
    for (size_t i = 0; i < std::size(rows); ++i) {
        Utf8OStream stream;
        stream << fromUnits(rows[i].first);
        EXPECT_EQ(written(stream), rows[i].second) << "row " << i;
    }
    // A string over borrowed units has no zero after its end: only its own units are read.
    static const char16_t borrowed[] = u"abX";
    Utf8OStream stream;
    stream << borrowedString(borrowed, 2);
    EXPECT_EQ(written(stream), "ab");
}

TEST(Utf8OStream, GrowsByDoublingAndAppends) {
    // Each piece is 10 bytes; a zero start begins at 64 bytes.
    const struct { int initial, pieces, expectedCapacity; } rows[] = {
        {0, 1, 64}, {0, 7, 128}, {1, 3, 32}, {10, 1, 10}, {10, 2, 20}, {3, 50, 768}};
    for (const auto& row : rows) {
        Utf8OStream stream(row.initial);
        for (int i = 0; i < row.pieces; ++i)
            stream << QStringLiteral("0123456789");
        SCOPED_TRACE(std::to_string(row.initial) + "/" + std::to_string(row.pieces));
        EXPECT_EQ(written(stream), QByteArray("0123456789").repeated(row.pieces));
        EXPECT_EQ(stream.capacity(), row.expectedCapacity);
    }
    Utf8OStream stream(0);
    const QString text = QStringLiteral("Grüße, 世界! Привет. ");  // no surrogates: as toUtf8
    for (int i = 0; i < 40; ++i)
        stream << text;
    EXPECT_EQ(written(stream), text.toUtf8().repeated(40));
    stream.clear();
    stream << QStringLiteral("x");
    EXPECT_EQ(written(stream), "x");
}
