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

// "id|value|owner" after decoding line into outputs that start as given.
QString decoded(const QString& line, ResourceId key = {"ID?", "OWNER?"}, QString value = "VALUE?") {
    ResourceDictionary::decodeDictionaryEntryString(line, key, value);
    return key.id + u'|' + value + u'|' + key.ownerId;
}

// The decoding the format is defined by: up to three searches for this pattern, each from the
// end of the previous match.
bool decodeByPattern(const QString& line, ResourceId& key, QString& value) {
    static const QRegularExpression field("(?:\\s*<\\s*)([^>]+)(?:>)",
                                          QRegularExpression::UseUnicodePropertiesOption);
    qsizetype position = 0;
    for (QString* output : {&key.id, &value, &key.ownerId}) {
        const QRegularExpressionMatch match = field.match(line, position);
        if (!match.hasMatch())
            break;
        *output = match.captured(1);
        position = match.capturedEnd(0);
    }
    return !key.id.isEmpty() && !value.isEmpty();
}

TEST(ResourceDictionary, DecodesEntryLinesAsThePatternDoes) {
    // What outputs starting as ID?, VALUE?, OWNER? hold after, so a field without a match
    // shows as such.
    const struct { const char *line, *fields; } cases[] = {
        {"<17> <42>", "17|42|OWNER?"},
        {"<17> <42> <9> <5>", "17|42|9"},
        {"<17>", "17|VALUE?|OWNER?"},
        {"< 17 > <42>", "17 |42|OWNER?"},
        {"<   > <42>", " |42|OWNER?"},  // "[^>]+" takes back the last blank
        {"<\xc2\xa0" "17> <42>", "17|42|OWNER?"},  // non-ASCII blank skipped
        {"17 42", "ID?|VALUE?|OWNER?"},
    };
    QStringList lines = {"<17><42>", "  <17>   <42>  ", "<\t 17> <42>", "x<17>y<42>z<9>w",
                         "<<17> <42>", "<> <17> <42>", "<17> <42", ""};
    for (const auto& c : cases) {
        lines << QString::fromUtf8(c.line);
        EXPECT_EQ(decoded(lines.last()), QString::fromUtf8(c.fields)) << c.line;
    }
    // Those lines and every arrangement of three of these pieces decode as the pattern does,
    // results included, into empty and into filled outputs.
    const QStringList pieces = {"<", ">", " ", "a", "<>", "< >", "\t<b >", "\xe3\x80\x80"};
    for (const QString& a : pieces)
        for (const QString& b : pieces)
            for (const QString& c : pieces)
                lines << a + b + c + "<x>" + a + c + b;
    for (const QString& line : lines) {
        for (const bool filled : {false, true}) {
            ResourceId key = filled ? ResourceId("ID?", "OWNER?") : ResourceId(), expectedKey = key;
            QString value = filled ? "VALUE?" : "", expectedValue = value;
            EXPECT_EQ(ResourceDictionary::decodeDictionaryEntryString(line, key, value),
                      decodeByPattern(line, expectedKey, expectedValue))
                << line.toStdString();
            EXPECT_EQ(key, expectedKey) << line.toStdString();
            EXPECT_EQ(value, expectedValue) << line.toStdString();
        }
    }
}

TEST(ResourceDictionary, LoadsUpToTheFirstBadLine) {
    const struct { const char *name, *text; bool ok; const char* exported; } cases[] = {
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
        ResourceDictionary dictionary;
        EXPECT_EQ(dictionary.loadFromString(QString::fromUtf8(c.text)), c.ok) << c.name;
        EXPECT_EQ(exported(dictionary), QString::fromUtf8(c.exported)) << c.name;
    }
    // Loading adds to what is there.
    ResourceDictionary dictionary;
    ASSERT_TRUE(dictionary.loadFromString("<1> <a>\n<2> <b>"));
    EXPECT_FALSE(dictionary.loadFromString("<2> <B>\n<3>\n<4> <d>"));
    EXPECT_EQ(exported(dictionary), "<1> <a>\r\n<2> <B>\r\n");
    EXPECT_TRUE(dictionary.loadFromString(""));
    EXPECT_EQ(dictionary.entries().size(), 2);
}

TEST(ResourceDictionary, InsertsOneEntryLine) {
    // One dictionary through the rows in turn: the result, then the whole export.
    const struct { const char *line; bool ok; const char* exported; } rows[] = {
        {"<1> <a> <o>", true, "<1> <a> <o>\r\n"},
        {"<1> <a>", true, "<1> <a>\r\n<1> <a> <o>\r\n"},      // another owner, another key
        {" <1>  < b > ", true, "<1> <b >\r\n<1> <a> <o>\r\n"},  // replaces
        {"<2>", false, "<1> <b >\r\n<1> <a> <o>\r\n"},         // no value: nothing changes
        {"", false, "<1> <b >\r\n<1> <a> <o>\r\n"},
        {"<2> <c>\n<3> <d>", true, "<1> <b >\r\n<1> <a> <o>\r\n<2> <c> <3>\r\n"},  // one line only
    };
    ResourceDictionary dictionary;
    for (const auto& row : rows) {
        EXPECT_EQ(dictionary.insertEntryFromString(QString::fromUtf8(row.line)), row.ok) << row.line;
        EXPECT_EQ(exported(dictionary), QString::fromUtf8(row.exported)) << row.line;
    }
}

TEST(ResourceDictionary, ExportsInKeyOrderAndReadsItBack) {
    ResourceDictionary dictionary;
    // Ids order as strings ("10" before "9"); equal ids order by owner, the empty owner first.
    ASSERT_TRUE(dictionary.loadFromString("<9> <x>\n<17> <b> <2>\n<17> <c> <10>\n<17> <a>\n"
                                          "<10> <y>"));
    EXPECT_EQ(exported(dictionary),
              "<10> <y>\r\n<17> <a>\r\n<17> <c> <10>\r\n<17> <b> <2>\r\n<9> <x>\r\n");
    EXPECT_EQ(ResourceDictionary::createDictionaryEntryString({"a%1", "%2"}, "%1"),
              "<a%1> <%1> <%2>");  // written as they are, markers included
    QString out = "old text";
    ResourceDictionary().exportToString(out);
    EXPECT_TRUE(out.isNull());

    ResourceDictionary original;
    ASSERT_TRUE(original.loadFromString("<  a b > <c:\\path\\x.png> <owner 1>\n<\xc3\xa9> <<v>\n"
                                        "< > <%1 %2>\n<k> <v> <>\n"));
    ResourceDictionary copy;
    EXPECT_TRUE(copy.loadFromString(exported(original)));
    EXPECT_EQ(copy.entries(), original.entries());
    EXPECT_EQ(exported(copy), exported(original));
}

}  // namespace
