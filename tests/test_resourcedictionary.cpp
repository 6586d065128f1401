// Tests of the resource dictionary: entry lines, loading, exporting and key order.
#include "testsupport.h"

#include <vanta/resourcedictionary.h>

#include <QRegularExpression>

#include <gtest/gtest.h>

using vanta::ResourceDictionary;
using vanta::ResourceId;

namespace {

QString exported(const ResourceDictionary& dictionary) {
    QString text;
    dictionary.exportToString(text);
    return text;
}

TEST(ResourceDictionary, WritesEntryLines) {
    const struct {
        ResourceId key;
        const char* value;
        const char* line;
    } cases[] = {
        {{"17"}, "42", "<17> <42>"},
        {{"17", "9"}, "42", "<17> <42> <9>"},
        {{"a%1", "%2"}, "%1", "<a%1> <%1> <%2>"},  // written as they are, markers included
        {{"id", ""}, "v a l", "<id> <v a l>"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(ResourceDictionary::createDictionaryEntryString(c.key, c.value), c.line);
    }
}

struct DecodeCase {
    const char* line;
    bool ok;
    const char* id;
    const char* value;
    const char* owner;
};

// ok is the result from empty outputs (as insertEntryFromString decodes); the fields are what
// outputs that start as "ID?", "VALUE?" and "OWNER?" hold after, so a field without a match
// shows as such.
const DecodeCase kDecodes[] = {
    {"<17> <42>", true, "17", "42", "OWNER?"},
    {"<17><42>", true, "17", "42", "OWNER?"},
    {"  <17>   <42>  ", true, "17", "42", "OWNER?"},
    {"<17> <42> <9>", true, "17", "42", "9"},
    {"<17> <42> <9> <5>", true, "17", "42", "9"},
    {"<17>", false, "17", "VALUE?", "OWNER?"},
    {"< 17 > <42>", true, "17 ", "42", "OWNER?"},
    {"<\t 17> <42>", true, "17", "42", "OWNER?"},
    {"x<17>y<42>z<9>w", true, "17", "42", "9"},
    {"<<17> <42>", true, "<17", "42", "OWNER?"},
    {"<> <17> <42>", true, "17", "42", "OWNER?"},
    {"<   > <42>", true, " ", "42", "OWNER?"},  // "[^>]+" takes back the last blank
    {"<17> <42", false, "17", "VALUE?", "OWNER?"},
    {"17 42", false, "ID?", "VALUE?", "OWNER?"},
    {"", false, "ID?", "VALUE?", "OWNER?"},
    {"<\xc2\xa0" "17> <42>", true, "17", "42", "OWNER?"},  // non-ASCII blank skipped
};

TEST(ResourceDictionary, DecodesEntryLines) {
    for (const DecodeCase& c : kDecodes) {
        SCOPED_TRACE(c.line);
        const QString line = QString::fromUtf8(c.line);
        ResourceId fresh;
        QString freshValue;
        EXPECT_EQ(ResourceDictionary::decodeDictionaryEntryString(line, fresh, freshValue), c.ok);
        ResourceId key("ID?", "OWNER?");
        QString value = "VALUE?";
        ResourceDictionary::decodeDictionaryEntryString(line, key, value);
        EXPECT_EQ(key.id, QString::fromUtf8(c.id));
        EXPECT_EQ(value, QString::fromUtf8(c.value));
        EXPECT_EQ(key.ownerId, QString::fromUtf8(c.owner));
    }
}

// The same decoding through the regular expression the format is defined by, searched the way
// the dictionary searches: up to three matches, each from the end of the previous one.
bool decodeByPattern(const QString& line, ResourceId& key, QString& value) {
    static const QRegularExpression field("(?:\\s*<\\s*)([^>]+)(?:>)",
                                          QRegularExpression::UseUnicodePropertiesOption);
    QString* outputs[] = {&key.id, &value, &key.ownerId};
    qsizetype position = 0;
    for (QString* output : outputs) {
        const QRegularExpressionMatch match = field.match(line, position);
        if (!match.hasMatch())
            break;
        *output = match.captured(1);
        position = match.capturedEnd(0);
    }
    return !key.id.isEmpty() && !value.isEmpty();
}

TEST(ResourceDictionary, DecodesLikeTheRegularExpression) {
    QStringList lines;
    for (const DecodeCase& c : kDecodes)
        lines << QString::fromUtf8(c.line);
    // Every arrangement of three of these pieces.
    const QStringList pieces = {"<", ">", " ", "a", "<>", "< >", "\t<b >", "\xe3\x80\x80"};
    for (const QString& a : pieces)
        for (const QString& b : pieces)
            for (const QString& c : pieces)
                lines << a + b + c + "<x>" + a + c + b;
    for (const QString& line : lines) {
        SCOPED_TRACE(line.toStdString());
        ResourceId key("ID?", "OWNER?"), expectedKey("ID?", "OWNER?");
        QString value = "VALUE?", expectedValue = "VALUE?";
        EXPECT_EQ(ResourceDictionary::decodeDictionaryEntryString(line, key, value),
                  decodeByPattern(line, expectedKey, expectedValue));
        EXPECT_EQ(key, expectedKey);
        EXPECT_EQ(value, expectedValue);
    }
}

TEST(ResourceDictionary, LoadsUpToTheFirstBadLine) {
    const struct {
        const char* name;
        const char* text;
        bool ok;
        const char* exported;
    } cases[] = {
        {"empty text", "", true, ""},
        {"only line breaks", "\r\n\n\r", true, ""},
        {"any run of CR and LF ends a line", "<1> <a>\r\n\r\n<2> <b>\n<3> <c>\r", true,
         "<1> <a>\r\n<2> <b>\r\n<3> <c>\r\n"},
        {"bad second line", "<1> <a>\r\n<2>\r\n<3> <c>\r\n", false, "<1> <a>\r\n"},
        {"bad first line", "no brackets\n<1> <a>", false, ""},
        {"bad last line", "<1> <a>\n<2> <b>\n<3> <", false, "<1> <a>\r\n<2> <b>\r\n"},
        {"later line replaces", "<1> <a>\n<1> <b>", true, "<1> <b>\r\n"},
        {"owners make different keys", "<1> <a>\n<1> <b> <o>", true, "<1> <a>\r\n<1> <b> <o>\r\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ResourceDictionary dictionary;
        EXPECT_EQ(dictionary.loadFromString(QString::fromUtf8(c.text)), c.ok);
        EXPECT_EQ(exported(dictionary), QString::fromUtf8(c.exported));
    }
}

TEST(ResourceDictionary, LoadingAddsToWhatIsThere) {
    ResourceDictionary dictionary;
    ASSERT_TRUE(dictionary.loadFromString("<1> <a>\n<2> <b>"));
    EXPECT_FALSE(dictionary.loadFromString("<2> <B>\n<3>\n<4> <d>"));
    EXPECT_EQ(exported(dictionary), "<1> <a>\r\n<2> <B>\r\n");
    EXPECT_TRUE(dictionary.loadFromString(""));
    EXPECT_EQ(dictionary.entries().size(), 2);
}

TEST(ResourceDictionary, ExportsInKeyOrder) {
    ResourceDictionary dictionary;
    // Ids order as strings ("10" before "9"); equal ids order by owner, the empty owner first.
    ASSERT_TRUE(dictionary.loadFromString("<9> <x>\n<17> <b> <2>\n<17> <c> <10>\n<17> <a>\n"
                                          "<10> <y>"));
    EXPECT_EQ(exported(dictionary),
              "<10> <y>\r\n<17> <a>\r\n<17> <c> <10>\r\n<17> <b> <2>\r\n<9> <x>\r\n");

    QString out = "old text";
    ResourceDictionary().exportToString(out);
    EXPECT_TRUE(out.isNull());
}

TEST(ResourceDictionary, RoundTripsItsExport) {
    ResourceDictionary original;
    ASSERT_TRUE(original.loadFromString("<  a b > <c:\\path\\x.png> <owner 1>\n<\xc3\xa9> <<v>\n"
                                        "< > <%1 %2>\n<k> <v> <>\n"));
    ResourceDictionary copy;
    EXPECT_TRUE(copy.loadFromString(exported(original)));
    EXPECT_EQ(copy.entries(), original.entries());
    EXPECT_EQ(exported(copy), exported(original));
}

}  // namespace
