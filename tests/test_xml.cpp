// Tests of the XML reader, the node tree, path lookup and XmlTree.
#include "testsupport.h"

#include <vanta/xml.h>

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include <sys/stat.h>

using vanta::XmlNode;
using vanta::XmlPathFinder;
using vanta::XmlReader;
using vanta::XmlTree;

namespace {

const QString kData = QStringLiteral(VANTA_TEST_DATA "/xml/");

// Writes bytes to a fresh file in the scratch folder and returns its path.
QString writeDocument(const QByteArray& bytes) {
    static int counter = 0;
    const QString path = vantatest::scratchDir() + QStringLiteral("/doc%1.xml").arg(++counter);
    QFile file(path);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    return path;
}

// Checks that every link of the subtree agrees with its neighbours; returns the node count.
long checkLinks(const XmlNode* root) {
    long count = 0;
    const XmlNode* node = root;
    while (node) {
        ++count;
        const XmlNode* previous = nullptr;
        for (const XmlNode* child = node->getFirstChild(); child; child = child->getNextSibling()) {
            EXPECT_EQ(child->getParent(), node);
            EXPECT_EQ(child->getPreviousSibling(), previous);
            previous = child;
        }
        EXPECT_EQ(node->getLastChild(), previous);
        if (node->getFirstChild()) {
            node = node->getFirstChild();
            continue;
        }
        while (node != root && !node->getNextSibling())
            node = node->getParent();
        node = node == root ? nullptr : node->getNextSibling();
    }
    return count;
}

// Every test checks that no node outlives it.
class Xml : public ::testing::Test {
protected:
    void SetUp() override { mLiveBefore = XmlNode::liveNodeCount(); }
    void TearDown() override { EXPECT_EQ(XmlNode::liveNodeCount(), mLiveBefore); }
    long mLiveBefore = 0;
};

struct LookupCase {
    const char* name;
    const char* document;
    const char* path;
    const char* expected;  // null: no node
};

const LookupCase kLookups[] = {
    {"leaf text trimmed", "<settings><cache>\n  100 \t\n</cache></settings>", "settings/cache",
     "100"},
    {"leading and trailing slash", "<settings><cache> 100 </cache></settings>",
     "/settings/cache/", "100"},
    {"doubled slashes", "<settings><cache>100</cache></settings>", "//settings///cache", "100"},
    {"root alone", "<settings> on </settings>", "settings", "on"},
    {"first name must be the root", "<settings><cache><cache>7</cache></cache></settings>",
     "cache/cache", nullptr},
    {"names are case-sensitive", "<settings><cache>1</cache></settings>", "Settings/cache",
     nullptr},
    {"missing child", "<settings><cache>1</cache></settings>", "settings/size", nullptr},
    {"path below a leaf", "<settings><cache>1</cache></settings>", "settings/cache/x", nullptr},
    {"no name in path", "<settings>1</settings>", "///", nullptr},
    {"empty path", "<settings>1</settings>", "", nullptr},
    {"first of same-named siblings", "<r><layer>a</layer><layer>b</layer></r>", "r/layer", "a"},
    {"first match only, no search of later siblings",
     "<r><layer>a</layer><layer><name>n</name></layer></r>", "r/layer/name", nullptr},
    {"text after the last child is kept", "<r>before<a>1</a>between<b>2</b> after </r>", "r",
     "after"},
    {"text only before children is dropped", "<r>before<a>1</a></r>", "r", ""},
    {"empty element", "<r><a/></r>", "r/a", ""},
    {"entities and character references", "<r>a &amp; b &#x3C;&#62;</r>", "r", "a & b <>"},
    {"CDATA joins the text", "<r> x<![CDATA[ <y> ]]>z </r>", "r", "x <y> z"},
    {"line ends normalized", "<r>a\r\nb</r>", "r", "a\nb"},
    {"non-ASCII white space trimmed", "<r>\xc2\xa0 v \xe3\x80\x80</r>", "r", "v"},
    {"only non-ASCII white space", "<r>\xc2\xa0\xe2\x80\x83</r>", "r", ""},
    {"non-ASCII text kept", "<r>\xc3\xa9t\xc3\xa9</r>", "r", "\xc3\xa9t\xc3\xa9"},
    {"attributes ignored", "<r a='1'><c b='2'>v</c></r>", "r/c", "v"},
};

TEST_F(Xml, LooksUpPaths) {
    for (const LookupCase& c : kLookups) {
        SCOPED_TRACE(c.name);
        XmlReader reader(writeDocument(c.document));
        ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
        XmlNode* found = XmlPathFinder().find(reader.getRootNode(), QString::fromUtf8(c.path));
        if (!c.expected) {
            EXPECT_EQ(found, nullptr);
            continue;
        }
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->getValue(), QString::fromUtf8(c.expected));
        EXPECT_FALSE(found->getValue().isNull());
    }
}

TEST_F(Xml, BuildsChildrenInDocumentOrder) {
    XmlReader reader(writeDocument("<r><a>1</a><b><c/><d/></b><a>2</a></r>"));
    const XmlNode* root = reader.getRootNode();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getParent(), nullptr);
    EXPECT_EQ(checkLinks(root), 6);
    QStringList order;
    for (const XmlNode* child = root->getFirstChild(); child; child = child->getNextSibling())
        order << child->getName() + u'=' + child->getValue();
    EXPECT_EQ(order, QStringList({"a=1", "b=", "a=2"}));
    const XmlNode* b = XmlPathFinder().findChild(const_cast<XmlNode*>(root), "b");
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->getFirstChild()->getName(), "c");
    EXPECT_EQ(b->getLastChild()->getName(), "d");
}

TEST_F(Xml, ReadsEveryEncodingItsDeclarationNames) {
    for (const char* name : {"utf8.xml", "utf16le-bom.xml", "utf16be-bom.xml", "latin1.xml"}) {
        SCOPED_TRACE(name);
        XmlReader reader(kData + QString::fromLatin1(name));
        ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
        XmlTree tree(reader.takeRootNode());
        EXPECT_EQ(tree.getValue("settings/city"), QString::fromUtf8("Z\xc3\xbcrich caf\xc3\xa9"));
    }
}

TEST_F(Xml, ReadsWellFormedDocuments) {
    const struct {
        const char* file;
        const char* path;
        const char* value;
    } cases[] = {
        {"prolog-comments-pi.xml", "root/a", "1"},
        {"internal-dtd-entities.xml", "root", "hello & <world>"},
        {"cdata-and-charrefs.xml", "root", "<not> & markupAB"},
        {"attributes-everywhere.xml", "root/child", ""},
        {"standalone-yes.xml", "root", ""},
        {"namespaces.xml", "p:root/p:child", "v"},
        {"whitespace-in-tags.xml", "root/a", ""},
        {"xml11-decl.xml", "root", ""},
        {"utf8-bom.xml", "root", "\xc3\xa9"},
        {"names-unicode.xml", "\xc3\xa9l\xc3\xa9ment", "\xe4\xb8\xad\xe6\x96\x87"},
    };
    QStringList seen;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        seen << QString::fromLatin1(c.file);
        XmlReader reader(kData + "wellformed/" + c.file);
        ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
        XmlTree tree(reader.takeRootNode());
        EXPECT_EQ(tree.getValue(QString::fromUtf8(c.path)), QString::fromUtf8(c.value));
    }
    // Every document in the folder is covered by a row above.
    seen.sort();
    EXPECT_EQ(QDir(kData + "wellformed").entryList(QDir::Files, QDir::Name).join(u' '),
              seen.join(u' '));
}

TEST_F(Xml, ReportsParseErrorsWithExpatsPosition) {
    const struct {
        const char* file;
        const char* error;
    } cases[] = {
        {"unclosed-root.xml", "no element found\nat line: 1, column: 14"},
        {"mismatched-tag.xml", "mismatched tag\nat line: 1, column: 8"},
        {"two-roots.xml", "junk after document element\nat line: 1, column: 4"},
        {"text-before-root.xml", "not well-formed (invalid token)\nat line: 1, column: 4"},
        {"undefined-entity.xml", "undefined entity\nat line: 1, column: 6"},
        {"duplicate-attribute.xml", "duplicate attribute\nat line: 1, column: 12"},
        {"lt-in-attribute.xml", "not well-formed (invalid token)\nat line: 1, column: 9"},
        {"unquoted-attribute.xml", "not well-formed (invalid token)\nat line: 1, column: 8"},
        {"bad-name-start.xml", "not well-formed (invalid token)\nat line: 1, column: 1"},
        {"ampersand-alone.xml", "not well-formed (invalid token)\nat line: 1, column: 9"},
        {"cdata-unterminated.xml", "unclosed CDATA section\nat line: 1, column: 23"},
        {"comment-double-dash.xml", "not well-formed (invalid token)\nat line: 1, column: 15"},
        {"decl-not-first.xml",
         "XML or text declaration not at start of entity\nat line: 2, column: 0"},
        {"recursive-entity.xml", "recursive entity reference\nat line: 1, column: 52"},
        {"nul-byte.xml", "not well-formed (invalid token)\nat line: 1, column: 6"},
        {"unknown-encoding.xml", "unknown encoding\nat line: 1, column: 30"},
        {"truncated-tag.xml", "unclosed token\nat line: 1, column: 6"},
        {"only-declaration.xml", "no element found\nat line: 1, column: 21"},
        {"empty-file.xml", "no element found\nat line: 1, column: 0"},
        {"binary-garbage.xml", "not well-formed (invalid token)\nat line: 1, column: 0"},
    };
    QStringList seen;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        seen << QString::fromLatin1(c.file);
        XmlReader reader(kData + "malformed/" + c.file);
        EXPECT_TRUE(reader.getErrorsOccurred());
        EXPECT_EQ(reader.getErrorText().toStdString(), std::string("Parse error: ") + c.error);
        EXPECT_EQ(reader.getRootNode(), nullptr);
    }
    seen.sort();
    EXPECT_EQ(QDir(kData + "malformed").entryList(QDir::Files, QDir::Name).join(u' '),
              seen.join(u' '));
}

TEST_F(Xml, ReportsFilesThatCannotBeOpened) {
    const QString missing = vantatest::scratchDir() + "/no such file.xml";
    const QString directory = vantatest::scratchDir();
    for (const QString& path : {missing, directory}) {
        XmlReader reader(path);
        EXPECT_TRUE(reader.getErrorsOccurred());
        EXPECT_EQ(reader.getErrorText(), "Could not open file \"" + path + "\"");
        EXPECT_EQ(reader.getRootNode(), nullptr);
    }
}

TEST_F(Xml, ReadsFromSourcesWithoutASize) {
    const QString path = vantatest::scratchDir() + "/pipe.xml";
    ASSERT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    // Large enough to take several reads from the pipe.
    QByteArray document = "<r>";
    for (int i = 0; i < 20000; ++i)
        document += "<item>" + QByteArray::number(i) + "</item>";
    document += "<last>end</last></r>";
    std::thread writer([&] {
        QFile pipe(path);
        if (pipe.open(QIODevice::WriteOnly))
            pipe.write(document);
    });
    XmlReader reader(path);
    writer.join();
    ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
    EXPECT_EQ(checkLinks(reader.getRootNode()), 20002);
    EXPECT_EQ(XmlPathFinder().find(reader.getRootNode(), "r/last")->getValue(), "end");
}

TEST_F(Xml, NeverLoadsExternalEntitiesOrDtds) {
    const QString dir = vantatest::scratchDir();
    QFile secret(dir + "/secret.txt");
    ASSERT_TRUE(secret.open(QIODevice::WriteOnly));
    secret.write("SECRET");
    secret.close();
    QFile dtd(dir + "/secret.dtd");
    ASSERT_TRUE(dtd.open(QIODevice::WriteOnly));
    dtd.write("<!ENTITY leak \"SECRET\">");
    dtd.close();
    const QByteArray documents[] = {
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"secret.txt\">]><r>a&x;b</r>",
        "<!DOCTYPE r [<!ENTITY x SYSTEM \"file://" + dir.toUtf8() + "/secret.txt\">]><r>a&x;b</r>",
        "<!DOCTYPE r SYSTEM \"secret.dtd\"><r>a&leak;b</r>",
        "<!DOCTYPE r [<!ENTITY % p SYSTEM \"secret.dtd\"> %p;]><r>a&leak;b</r>",
    };
    // The documents sit next to the secret files, so a relative system id would reach them.
    for (const QByteArray& document : documents) {
        SCOPED_TRACE(document.constData());
        const QString path = dir + "/external.xml";
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(document);
        file.close();
        XmlReader reader(path);
        ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
        EXPECT_EQ(reader.getRootNode()->getValue(), "ab");
    }
}

// A document that declares entity lol0 = "lol" and then, for i = 1..levels, entity lol<i>
// made of `fanOut` references to lol<i-1>; the root holds &lol<levels>;.
QByteArray entityDocument(int levels, int fanOut) {
    QByteArray document = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY lol0 \"lol\">\n";
    for (int i = 1; i <= levels; ++i) {
        document += "<!ENTITY lol" + QByteArray::number(i) + " \"";
        for (int j = 0; j < fanOut; ++j)
            document += "&lol" + QByteArray::number(i - 1) + ';';
        document += "\">\n";
    }
    return document + "]>\n<lolz>&lol" + QByteArray::number(levels) + ";</lolz>\n";
}

TEST_F(Xml, StopsEntityExpansionAttacks) {
    const struct {
        const char* name;
        QByteArray document;
        const char* errorStart;  // null: reads, the value being "lol" `repeats` times
        int repeats;
    } cases[] = {
        {"billion laughs", entityDocument(10, 10),
         "Parse error: limit on input amplification factor (from DTD and entities) breached", 0},
        {"chain too long to expand without deep recursion", entityDocument(100000, 1),
         "Parse error: parsing aborted\nat line: ", 0},
        {"short chain", entityDocument(200, 1), nullptr, 1},
        {"small fan-out", entityDocument(3, 4), nullptr, 64},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XmlReader reader(writeDocument(c.document));
        if (c.errorStart) {
            EXPECT_TRUE(reader.getErrorText().startsWith(QString::fromLatin1(c.errorStart)))
                << reader.getErrorText().toStdString();
            EXPECT_EQ(reader.getRootNode(), nullptr);
        } else {
            ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
            EXPECT_EQ(reader.getRootNode()->getValue(), QString("lol").repeated(c.repeats));
        }
    }
}

TEST_F(Xml, ReadsCopiesAndFreesVeryDeepDocuments) {
    constexpr int kDepth = 100000;
    QByteArray document;
    for (int i = 0; i < kDepth; ++i)
        document += "<a>";
    document += "deep";
    for (int i = 0; i < kDepth; ++i)
        document += "</a>";
    XmlReader reader(writeDocument(document));
    ASSERT_FALSE(reader.getErrorsOccurred()) << reader.getErrorText().toStdString();
    const XmlNode* node = reader.getRootNode();
    int depth = 1;
    while (node->getFirstChild()) {
        node = node->getFirstChild();
        ++depth;
    }
    EXPECT_EQ(depth, kDepth);
    EXPECT_EQ(node->getValue(), "deep");
    XmlReader copy(reader);  // deep copy, then both trees freed when the readers go
    EXPECT_EQ(checkLinks(copy.getRootNode()), kDepth);
}

TEST_F(Xml, ValuesStayIndependentAndOutliveTheirTree) {
    // Values of every length around the sizes where storage changes, enough of them to fill
    // several chunks of shared storage.
    QStringList expected;
    QByteArray document = "<r>";
    for (int i = 0; i < 3000; ++i) {
        const QString value = QString::number(i) + QString(i % 300, QChar(u'a' + i % 26));
        expected << value;
        document += "<v> " + value.toLatin1() + " </v>";
    }
    document += "</r>";
    QStringList values;
    {
        XmlReader reader(writeDocument(document));
        ASSERT_FALSE(reader.getErrorsOccurred());
        for (const XmlNode* v = reader.getRootNode()->getFirstChild(); v; v = v->getNextSibling())
            values << v->getValue();
        // Changing one node's value leaves its neighbours alone.
        XmlNode* second = reader.getRootNode()->getFirstChild()->getNextSibling();
        second->setValue(second->getValue() + "!");
        EXPECT_EQ(second->getPreviousSibling()->getValue(), expected[0]);
        EXPECT_EQ(second->getNextSibling()->getValue(), expected[2]);
    }
    ASSERT_EQ(values, expected);
    for (const QString& value : values)
        ASSERT_EQ(value.utf16()[value.size()], 0) << value.toStdString();
    // Growing a kept value must not spill into its neighbours, whether they are still alive
    // or (for the last ones kept) gone.
    values[0].append(QString(40, u'x'));
    values[1].append(u'y');
    EXPECT_EQ(values[0], expected[0] + QString(40, u'x'));
    EXPECT_EQ(values[1], expected[1] + u'y');
    EXPECT_EQ(values[2], expected[2]);
    QString last = values.takeLast();
    values.clear();
    last.append(QString(500, u'z'));
    EXPECT_EQ(last, expected.last() + QString(500, u'z'));
}

TEST_F(Xml, CopiedReadersOwnIndependentTrees) {
    XmlReader original(writeDocument("<r><a>1</a><b><c>2</c></b></r>"));
    XmlReader copy(original);
    ASSERT_NE(copy.getRootNode(), original.getRootNode());
    EXPECT_EQ(checkLinks(copy.getRootNode()), 4);
    XmlPathFinder finder;
    finder.find(copy.getRootNode(), "r/b/c")->setValue("changed");
    EXPECT_EQ(finder.find(original.getRootNode(), "r/b/c")->getValue(), "2");

    XmlReader failed(vantatest::scratchDir() + "/missing.xml");
    copy = failed;  // frees the copied tree, takes the error
    EXPECT_EQ(copy.getRootNode(), nullptr);
    EXPECT_EQ(copy.getErrorText(), failed.getErrorText());
    copy = original;
    EXPECT_FALSE(copy.getErrorsOccurred());
    EXPECT_EQ(finder.find(copy.getRootNode(), "r/b/c")->getValue(), "2");

    XmlTree taken(original.takeRootNode());
    EXPECT_EQ(original.getRootNode(), nullptr);
    EXPECT_EQ(taken.getValue("r/a"), "1");
}

TEST_F(Xml, TreeGetsAndSetsValuesOfExistingNodes) {
    XmlReader reader(writeDocument("<settings><cache>100</cache><empty/></settings>"));
    XmlTree tree(reader.takeRootNode());
    EXPECT_TRUE(tree.setValue("settings/cache", "200"));
    EXPECT_EQ(tree.getValue("/settings/cache"), "200");
    EXPECT_FALSE(tree.setValue("settings/size", "1"));
    EXPECT_TRUE(tree.getValue("settings/size").isNull());
    EXPECT_FALSE(tree.getValue("settings/empty").isNull());
    EXPECT_EQ(checkLinks(tree.getRootNode()), 3);

    XmlTree empty(nullptr);
    EXPECT_TRUE(empty.getValue("settings").isNull());
    EXPECT_FALSE(empty.setValue("settings", "x"));
}

TEST_F(Xml, AddChildMovesAndDestroyUnlinks) {
    XmlNode* left = new XmlNode("left");
    XmlNode* right = new XmlNode("right");
    XmlNode* children[3];
    for (int i = 0; i < 3; ++i) {
        children[i] = new XmlNode(QString::number(i), QString::number(i * 10));
        left->addChild(children[i]);
    }
    left->addChild(nullptr);
    left->addChild(left);
    // Moving the middle child relinks both parents.
    right->addChild(children[1]);
    EXPECT_EQ(children[0]->getNextSibling(), children[2]);
    EXPECT_EQ(children[2]->getPreviousSibling(), children[0]);
    EXPECT_EQ(children[1]->getParent(), right);
    EXPECT_EQ(checkLinks(left), 3);
    EXPECT_EQ(checkLinks(right), 2);
    // Destroying a first child, then a last child, leaves the parent consistent.
    children[0]->destroySelfAndHierarchy();
    EXPECT_EQ(left->getFirstChild(), children[2]);
    children[2]->destroySelfAndHierarchy();
    EXPECT_EQ(left->getFirstChild(), nullptr);
    EXPECT_EQ(left->getLastChild(), nullptr);

    XmlNode* clone = right->cloneHierarchy();
    EXPECT_EQ(checkLinks(clone), 2);
    EXPECT_EQ(clone->getFirstChild()->getValue(), "10");
    clone->destroySelfAndHierarchy();
    left->destroySelfAndHierarchy();
    right->destroySelfAndHierarchy();
}

}  // namespace
