// Tests of the XML reader, the node tree, path lookup and XmlTree.
#include "testsupport.h"

#include <vanta/xml.h>

#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

using namespace vanta;

namespace {

const QString kData = QStringLiteral(VANTA_TEST_DATA "/xml/");

// Writes bytes to a file in the scratch folder (a fresh name unless one is given); its path.
QString writeDocument(const QByteArray& bytes, QString name = QString()) {
    static int counter = 0;
    if (name.isEmpty())
        name = QStringLiteral("doc%1.xml").arg(++counter);
    QFile file(vantatest::scratchDir() + u'/' + name);
    EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
    return file.fileName();
}

std::string errorOf(const XmlReader& reader) { return reader.getErrorText().toStdString(); }

// Checks that every link of the subtree agrees with its neighbours; returns the node count.
long checkLinks(const XmlNode* root) {
    long count = 0;
    std::vector<const XmlNode*> pending{root};  // no recursion: trees may be very deep
    while (!pending.empty()) {
        const XmlNode* node = pending.back();
        pending.pop_back();
        ++count;
        const XmlNode* previous = nullptr;
        for (const XmlNode* child = node->getFirstChild(); child; child = child->getNextSibling()) {
            EXPECT_EQ(child->getParent(), node);
            EXPECT_EQ(child->getPreviousSibling(), previous);
            pending.push_back(previous = child);
        }
        EXPECT_EQ(node->getLastChild(), previous);
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

TEST_F(Xml, LooksUpPaths) {
    // expected "-": no node
    const struct { const char *name, *document, *path, *expected; } cases[] = {
        {"leaf text trimmed", "<s><cache>\n  100 \t\n</cache></s>", "s/cache", "100"},
        {"leading, doubled and trailing slashes", "<s><cache>1</cache></s>", "//s///cache/", "1"},
        {"root alone", "<s> on </s>", "s", "on"},
        {"first name must be the root", "<s><cache><cache>7</cache></cache></s>", "cache/cache",
         "-"},
        {"names are case-sensitive", "<s><cache>1</cache></s>", "S/cache", "-"},
        {"missing child", "<s><cache>1</cache></s>", "s/size", "-"},
        // After "ab" followed "ab", the reader expects "ab" again: "bb" must not pass for it.
        {"a name unlike the one expected only in its first letter",
         "<s><ab>1</ab><ab>2</ab><bb>3</bb></s>", "s/bb", "3"},
        {"no name in path", "<s>1</s>", "///", "-"},
        {"empty path", "<s>1</s>", "", "-"},
        {"first of same-named siblings", "<r><layer>a</layer><layer>b</layer></r>", "r/layer", "a"},
        {"first match only, no search of later siblings",
         "<r><layer>a</layer><layer><name>n</name></layer></r>", "r/layer/name", "-"},
        {"text after the last child is kept", "<r>before<a>1</a>between<b>2</b> after </r>", "r",
         "after"},
        {"text only before children is dropped", "<r>before<a>1</a></r>", "r", ""},
        {"empty element", "<r><a/></r>", "r/a", ""},
        {"CDATA joins the text", "<r> x<![CDATA[ <y> ]]>z </r>", "r", "x <y> z"},
        {"non-ASCII white space trimmed", "<r>\xc2\xa0 v \xe3\x80\x80</r>", "r", "v"},
        {"only non-ASCII white space", "<r>\xc2\xa0\xe2\x80\x83</r>", "r", ""},
        {"non-ASCII text kept", "<r>\xc3\xa9t\xc3\xa9</r>", "r", "\xc3\xa9t\xc3\xa9"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        XmlReader reader(writeDocument(c.document));
        ASSERT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
        const XmlNode* found = XmlPathFinder().find(reader.getRootNode(), c.path);
        EXPECT_EQ(found ? found->getValue() : "-", QString::fromUtf8(c.expected));
        EXPECT_TRUE(!found || !found->getValue().isNull());  // empty text is not "no value"
    }
}

TEST_F(Xml, BuildsChildrenInDocumentOrder) {
    XmlReader reader(writeDocument("<r><a>1</a><b><c/><d/></b><a>2</a></r>"));
    XmlNode* root = reader.getRootNode();
    ASSERT_NE(root, nullptr);
    EXPECT_EQ(root->getParent(), nullptr);
    EXPECT_EQ(checkLinks(root), 6);
    QStringList order;
    for (const XmlNode* child = root->getFirstChild(); child; child = child->getNextSibling())
        order << child->getName() + u'=' + child->getValue();
    EXPECT_EQ(order, QStringList({"a=1", "b=", "a=2"}));
    const XmlNode* b = XmlPathFinder().findChild(root, "b");
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->getFirstChild()->getName(), "c");
    EXPECT_EQ(b->getLastChild()->getName(), "d");
}

// Reads every document under the data folder: declared encodings, well-formed documents and
// malformed ones, whose error text carries expat's message and position.
TEST_F(Xml, ReadsEveryTestDocument) {
    const struct {
        const char* file;
        const char* path;      // null: the document does not parse
        const char* expected;  // the value at path, or the error after "Parse error: "
    } cases[] = {
        {"utf8.xml", "settings/city", "Z\xc3\xbcrich caf\xc3\xa9"},
        {"utf16le-bom.xml", "settings/city", "Z\xc3\xbcrich caf\xc3\xa9"},
        {"utf16be-bom.xml", "settings/city", "Z\xc3\xbcrich caf\xc3\xa9"},
        {"latin1.xml", "settings/city", "Z\xc3\xbcrich caf\xc3\xa9"},
        {"wellformed/prolog-comments-pi.xml", "root/a", "1"},
        {"wellformed/internal-dtd-entities.xml", "root", "hello & <world>"},
        {"wellformed/cdata-and-charrefs.xml", "root", "<not> & markupAB"},
        {"wellformed/attributes-everywhere.xml", "root/child", ""},
        {"wellformed/namespaces.xml", "p:root/p:child", "v"},
        {"wellformed/utf8-bom.xml", "root", "\xc3\xa9"},
        {"wellformed/names-unicode.xml", "\xc3\xa9l\xc3\xa9ment", "\xe4\xb8\xad\xe6\x96\x87"},
        {"malformed/unclosed-root.xml", nullptr, "no element found\nat line: 1, column: 14"},
        {"malformed/two-roots.xml", nullptr, "junk after document element\nat line: 1, column: 4"},
        {"malformed/decl-not-first.xml", nullptr,
         "XML or text declaration not at start of entity\nat line: 2, column: 0"},
        {"malformed/recursive-entity.xml", nullptr,
         "recursive entity reference\nat line: 1, column: 52"},
        {"malformed/nul-byte.xml", nullptr,
         "not well-formed (invalid token)\nat line: 1, column: 6"},
        {"malformed/unknown-encoding.xml", nullptr, "unknown encoding\nat line: 1, column: 30"},
        {"malformed/empty-file.xml", nullptr, "no element found\nat line: 1, column: 0"},
        {"malformed/binary-garbage.xml", nullptr,
         "not well-formed (invalid token)\nat line: 1, column: 0"},
    };
    QStringList seen;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        seen << QString::fromLatin1(c.file);
        XmlReader reader(kData + c.file);
        if (!c.path) {
            EXPECT_EQ(errorOf(reader), std::string("Parse error: ") + c.expected);
            EXPECT_EQ(reader.getRootNode(), nullptr);
            continue;
        }
        ASSERT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
        XmlTree tree(reader.takeRootNode());
        EXPECT_EQ(tree.getValue(QString::fromUtf8(c.path)), QString::fromUtf8(c.expected));
    }
    // Every document in the folder has a row above.
    QStringList files;
    for (QDirIterator it(kData, QDir::Files, QDirIterator::Subdirectories); it.hasNext();)
        files << it.next().mid(kData.size());
    files.sort();
    seen.sort();
    EXPECT_EQ(files.join(u' '), seen.join(u' '));
}

TEST_F(Xml, ReportsFilesThatCannotBeOpened) {
    const QString dir = vantatest::scratchDir();
    for (const QString& path : {dir + "/no such.xml", dir}) {  // a missing file, and a folder
        XmlReader reader(path);
        EXPECT_TRUE(reader.getErrorsOccurred());
        EXPECT_EQ(reader.getErrorText(), "Could not open file \"" + path + "\"");
        EXPECT_EQ(reader.getRootNode(), nullptr);
    }
}

TEST_F(Xml, ReadsFromSourcesWithoutASize) {
    const QString path = vantatest::scratchDir() + "/pipe.xml";
    ASSERT_EQ(mkfifo(QFile::encodeName(path).constData(), 0600), 0);
    QByteArray document = "<r>";  // large enough to take several reads from the pipe
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
    ASSERT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
    EXPECT_EQ(checkLinks(reader.getRootNode()), 20002);
    EXPECT_EQ(XmlTree(reader.takeRootNode()).getValue("r/last"), "end");
}

// A kernel attribute file reports a page as its size but holds a few bytes: the reader parses what
// is there (here not XML) instead of waiting for the rest.
TEST_F(Xml, ReadsAFileShorterThanItsReportedSize) {
    const QString path = QStringLiteral("/sys/devices/system/cpu/online");
    if (QFileInfo(path).size() <= 0)
        GTEST_SKIP() << "no sized kernel attribute file here";
    XmlReader reader(path);
    EXPECT_EQ(errorOf(reader), "Parse error: syntax error\nat line: 1, column: 0");
    EXPECT_EQ(reader.getRootNode(), nullptr);
}

TEST_F(Xml, NeverLoadsExternalEntitiesOrDtds) {
    // The documents sit next to these files, so a relative system id would reach them.
    writeDocument("SECRET", "secret.txt");
    writeDocument("<!ENTITY leak \"SECRET\">", "secret.dtd");
    const QByteArray dir = vantatest::scratchDir().toUtf8();
    for (const QByteArray& document : {
             QByteArray("<!DOCTYPE r [<!ENTITY x SYSTEM \"secret.txt\">]><r>a&x;b</r>"),
             "<!DOCTYPE r [<!ENTITY x SYSTEM \"file://" + dir + "/secret.txt\">]><r>a&x;b</r>",
             QByteArray("<!DOCTYPE r SYSTEM \"secret.dtd\"><r>a&leak;b</r>"),
             QByteArray("<!DOCTYPE r [<!ENTITY % p SYSTEM \"secret.dtd\"> %p;]><r>a&leak;b</r>")}) {
        SCOPED_TRACE(document.constData());
        XmlReader reader(writeDocument(document));
        ASSERT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
        EXPECT_EQ(reader.getRootNode()->getValue(), "ab");
    }
}

// Declares lol0 = "lol" and, for i = 1..levels, lol<i> as fanOut references to lol<i-1>; the
// root holds &lol<levels>;.
QByteArray entityDocument(int levels, int fanOut) {
    QByteArray document = "<?xml version=\"1.0\"?>\n<!DOCTYPE lolz [\n<!ENTITY lol0 \"lol\">\n";
    for (int i = 1; i <= levels; ++i) {
        const QByteArray reference = "&lol" + QByteArray::number(i - 1) + ';';
        document += "<!ENTITY lol" + QByteArray::number(i) + " \"" + reference.repeated(fanOut) +
                    "\">\n";
    }
    return document + "]>\n<lolz>&lol" + QByteArray::number(levels) + ";</lolz>\n";
}

TEST_F(Xml, StopsEntityExpansionAttacks) {
    // errorStart null: the document reads, its value being "lol" `repeats` times.
    const struct { const char* name; QByteArray document; const char* errorStart; int repeats; }
        cases[] = {
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
                << errorOf(reader);
            EXPECT_EQ(reader.getRootNode(), nullptr);
        } else {
            ASSERT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
            EXPECT_EQ(reader.getRootNode()->getValue(), QString("lol").repeated(c.repeats));
        }
    }
}

TEST_F(Xml, ReadsCopiesAndFreesDocumentsAsDeepAsTheLimit) {
    constexpr int kDepth = XmlReader::kMaxDepth;
    XmlReader reader(writeDocument(QByteArray("<a>").repeated(kDepth) + "deep" +
                                   QByteArray("</a>").repeated(kDepth)));
    ASSERT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
    EXPECT_EQ(checkLinks(reader.getRootNode()), kDepth);
    const XmlNode* node = reader.getRootNode();
    while (node->getFirstChild())
        node = node->getFirstChild();
    EXPECT_EQ(node->getValue(), "deep");
    XmlReader copy(reader);  // deep copy, then both trees freed when the readers go
    EXPECT_EQ(checkLinks(copy.getRootNode()), kDepth);

    // Trees built by hand have no limit: copying and freeing never recurse.
    XmlNode* root = new XmlNode("a");
    XmlNode* leaf = root;
    for (int level = 1; level < 200000; ++level) {
        XmlNode* child = new XmlNode("a");
        leaf->addChild(child);
        leaf = child;
    }
    XmlNode* clone = root->cloneHierarchy();
    ASSERT_NE(clone, nullptr);
    EXPECT_EQ(checkLinks(clone), 200000);
    clone->destroySelfAndHierarchy();
    root->destroySelfAndHierarchy();
}

TEST_F(Xml, RefusesDocumentsNestedPastTheLimitAtTheFirstElementTooDeep) {
    // A prolog line, then `depth` elements opened two to a line (column counted from 0), closed,
    // with text inside; the element past the limit is reported, wherever the file ends.
    const auto nested = [](int depth) {
        QByteArray document = "<?xml version=\"1.0\"?>\n";
        for (int level = 0; level < depth; ++level)
            document += level % 2 ? "<bb>\n" : "<a>";
        document += "text";
        for (int level = depth - 1; level >= 0; --level)
            document += level % 2 ? "</bb>" : "</a>";
        return document;
    };
    const int limit = XmlReader::kMaxDepth;
    for (const int depth : {limit + 1, limit + 2, 1000000}) {
        SCOPED_TRACE(depth);
        XmlReader reader(writeDocument(nested(depth)));
        // Element limit + 1 (index limit, even) opens line 2 + limit / 2; its tag ends at 3.
        EXPECT_EQ(errorOf(reader), QStringLiteral("Parse error: parsing aborted\nat line: %1, "
                                                  "column: 3").arg(2 + limit / 2).toStdString());
        EXPECT_EQ(reader.getRootNode(), nullptr);
    }
}

TEST_F(Xml, RefusesDocumentsWithMoreElementsOrNamesThanTheLimits) {
    // The root, then empty elements four to a line after the first line, named by name(i).
    const auto flat = [](int elements, QByteArray (*name)(int)) {
        QByteArray document = "<r>\n";
        for (int i = 1; i < elements; ++i)
            document += "<" + name(i) + "/>" + (i % 4 ? "" : "\n");
        return document + "</r>";
    };
    const auto same = [](int) { return QByteArray("a"); };
    const auto distinct = [](int i) { return "n" + QByteArray::number(i).rightJustified(5, '0'); };
    const struct {
        const char* name;
        int limit;
        QByteArray (*elementName)(int);
        int tagLength;
    } rows[] = {{"elements", XmlReader::kMaxElements, same, 4},
                {"distinct names", XmlReader::kMaxNames, distinct, 9}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        XmlReader atLimit(writeDocument(flat(row.limit, row.elementName)));
        ASSERT_FALSE(atLimit.getErrorsOccurred()) << errorOf(atLimit);
        EXPECT_EQ(checkLinks(atLimit.getRootNode()), row.limit);
        // The one past the limit is child number limit: on line 2 + (limit - 1) / 4, its tag
        // ending after (limit - 1) % 4 + 1 tags.
        XmlReader past(writeDocument(flat(row.limit + 1, row.elementName)));
        EXPECT_EQ(errorOf(past),
                  QStringLiteral("Parse error: parsing aborted\nat line: %1, column: %2")
                      .arg(2 + (row.limit - 1) / 4)
                      .arg(row.tagLength * ((row.limit - 1) % 4 + 1))
                      .toStdString());
        EXPECT_EQ(past.getRootNode(), nullptr);
    }
}

namespace {

// "i" followed by i % cycle letters, for each i below count.
QStringList numberedValues(int count, int cycle) {
    QStringList values;
    for (int i = 0; i < count; ++i)
        values << QString::number(i) + QString(i % cycle, QChar(u'a' + i % 26));
    return values;
}

// The values a reader gives for a document of one element per value (blanks around each, which
// reading trims), read back after the reader and its tree are gone.
QStringList readBack(const QStringList& values) {
    QByteArray document = "<r>";
    for (const QString& value : values)
        document += "<v> " + value.toLatin1() + " </v>";
    XmlReader reader(writeDocument(document + "</r>"));
    EXPECT_FALSE(reader.getErrorsOccurred()) << errorOf(reader);
    QStringList read;
    if (reader.getRootNode()) {
        for (const XmlNode* v = reader.getRootNode()->getFirstChild(); v; v = v->getNextSibling())
            read << v->getValue();
    }
    return read;
}

}  // namespace

TEST_F(Xml, ValuesStayIndependentAndOutliveTheirTree) {
    // Values of every length around the sizes where storage changes, enough to fill several
    // chunks of shared storage.
    const QStringList expected = numberedValues(3000, 300);
    QStringList values = readBack(expected);
    ASSERT_EQ(values, expected);
    for (const QString& value : values)
        ASSERT_EQ(value.utf16()[value.size()], 0) << value.toStdString();
    // Growing a kept value must not spill into its neighbours, alive or (the last one) gone.
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

TEST_F(Xml, ShortValuesShareTheirStorageAcrossManyChunks) {
    // Thousands of short values fill chunk after chunk; each value is in a chunk with the value
    // before or after it (the last may open a chunk of its own), never alone in an allocation.
    const QStringList expected = numberedValues(4000, 40);
    const QStringList values = readBack(expected);
    ASSERT_EQ(values, expected);
    for (qsizetype i = 0; i + 1 < values.size(); ++i) {
        EXPECT_TRUE(values[i].isSharedWith(values[i + 1]) ||
                    (i > 0 && values[i].isSharedWith(values[i - 1])))
            << "value " << i << " has an allocation of its own";
    }
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
    XmlTree tree(XmlReader(writeDocument("<s><cache>100</cache><empty/></s>")).takeRootNode());
    EXPECT_TRUE(tree.setValue("s/cache", "200"));
    EXPECT_EQ(tree.getValue("/s/cache"), "200");
    EXPECT_FALSE(tree.setValue("s/size", "1"));
    EXPECT_TRUE(tree.getValue("s/size").isNull());
    EXPECT_FALSE(tree.getValue("s/empty").isNull());
    EXPECT_EQ(checkLinks(tree.getRootNode()), 3);  // no node was created

    XmlTree empty(nullptr);
    EXPECT_TRUE(empty.getValue("s").isNull());
    EXPECT_FALSE(empty.setValue("s", "x"));
}

TEST_F(Xml, AddChildMovesAndDestroyUnlinks) {
    XmlNode* left = new XmlNode("left");
    XmlNode* right = new XmlNode("right");
    XmlNode* children[3];
    for (int i = 0; i < 3; ++i)
        left->addChild(children[i] = new XmlNode(QString::number(i), QString::number(i * 10)));
    left->addChild(nullptr);
    left->addChild(left);
    right->addChild(children[1]);  // moving the middle child relinks both parents
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
    for (XmlNode* tree : {clone, left, right})
        tree->destroySelfAndHierarchy();
}

}  // namespace
