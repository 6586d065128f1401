// vanta xml and vanta dict: read an XML file into a tree, look a path up, load a dictionary.
#include "command.h"

#include <vanta/resourcedictionary.h>
#include <vanta/xml.h>

#include <QFile>
#include <QTemporaryFile>

#include <cstdio>

namespace vantatool {
namespace {

// Prints the tree one node a line, two blanks of indent a level, in document order. Iterative,
// so that a very deep document prints without exhausting the stack.
void printTree(const vanta::XmlNode* root) {
    const vanta::XmlNode* node = root;
    int depth = 0;
    while (node) {
        out(QString(2 * depth, u' ') + node->getName() + QLatin1String(": ") + node->getValue());
        if (node->getFirstChild()) {
            node = node->getFirstChild();
            ++depth;
            continue;
        }
        while (node != root && !node->getNextSibling()) {
            node = node->getParent();
            --depth;
        }
        node = node == root ? nullptr : node->getNextSibling();
    }
}

int runXml(const QStringList& args) {
    if (args.size() != 1 && args.size() != 2)
        return usage("xml FILE [PATH]");
    vanta::XmlReader reader(args[0]);
    if (reader.getErrorsOccurred())
        return error(reader.getErrorText());
    if (args.size() == 1) {
        printTree(reader.getRootNode());
        return kOk;
    }
    const vanta::XmlNode* node = vanta::XmlPathFinder().find(reader.getRootNode(), args[1]);
    if (!node)
        return error(QStringLiteral("no node at ") + args[1]);
    out(node->getValue());
    return kOk;
}

int runDict(const QStringList& args) {
    if (args.size() != 1)
        return usage("dict FILE");
    QFile file;
    const bool opened = args[0] == QLatin1String("-")
                            ? file.open(stdin, QIODevice::ReadOnly)
                            : (file.setFileName(args[0]), file.open(QIODevice::ReadOnly));
    if (!opened)
        return error(QStringLiteral("cannot read ") + args[0] + QLatin1String(": ") +
                     file.errorString());
    vanta::ResourceDictionary dictionary;
    const bool loaded = dictionary.loadFromString(QString::fromUtf8(file.readAll()));
    QString text;
    dictionary.exportToString(text);
    // Written by length: an id or value may hold a NUL byte, which is printed like any other.
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    if (!loaded)
        return error(QStringLiteral("a line could not be read; the lines from it on were skipped"));
    return kOk;
}

// The tour's examples: a small configuration file and a dictionary, built in.
const char kTourXml[] = R"(<?xml version="1.0" encoding="UTF-8"?>
<settings>
  <cache>
    100
  </cache>
  <layer><name>Borders</name><visible>true</visible></layer>
  <layer><name>Roads</name><visible>false</visible></layer>
  <note>kept only after <b>the last child</b> this text</note>
</settings>
)";

const char kTourDictionary[] = "<17> <42>\r\n<17> <43> <9>\n\n< 18 > <roads.png>\r\n";

void tourXml() {
    QTemporaryFile file;
    if (!file.open() || file.write(kTourXml) != qint64(sizeof kTourXml - 1) || !file.flush()) {
        error(QStringLiteral("cannot write the example file"));
        return;
    }
    std::printf("The file:\n%s\nvanta xml FILE\n", kTourXml);
    std::fflush(stdout);
    runXml({file.fileName()});
    vanta::XmlReader reader(file.fileName());
    const char* paths[] = {"settings/cache", "/settings//cache/", "settings/layer/name",
                           "settings/note", "cache"};
    for (const char* path : paths) {
        const vanta::XmlNode* node =
            vanta::XmlPathFinder().find(reader.getRootNode(), QString::fromUtf8(path));
        out(QStringLiteral("vanta xml FILE %1\n  %2")
                .arg(QString::fromUtf8(path),
                     node ? node->getValue() : QStringLiteral("(no node: exit 1)")));
    }
    out(QStringLiteral("vanta xml /no/such/file\n  ") +
        vanta::XmlReader(QStringLiteral("/no/such/file")).getErrorText());
}

void tourDictionary() {
    std::printf("Lines read: <17> <42> | <17> <43> <9> | < 18 > <roads.png>\nExported:\n");
    vanta::ResourceDictionary dictionary;
    dictionary.loadFromString(QString::fromUtf8(kTourDictionary));
    QString text;
    dictionary.exportToString(text);
    for (const QString& line : text.split(QLatin1String("\r\n"), Qt::SkipEmptyParts))
        out(QLatin1String("  ") + line);
    vanta::ResourceId key;
    QString value;
    const bool ok = vanta::ResourceDictionary::decodeDictionaryEntryString(
        QStringLiteral("<17>"), key, value);
    std::printf("The line <17> alone decodes: %s (no value)\n", ok ? "true" : "false");
}

Registrar xmlCommand{Command{"xml", "xml FILE [PATH]",
                             "the value at PATH, or the whole tree, of an XML file", runXml}};
Registrar dictCommand{Command{"dict", "dict FILE", "load a resource dictionary (- for stdin) "
                                                   "and print its export",
                              runDict}};
Registrar xmlStep{TourStep{44, "XML reader and path lookup", tourXml}};
Registrar dictStep{TourStep{45, "Resource dictionary", tourDictionary}};

}  // namespace
}  // namespace vantatool
