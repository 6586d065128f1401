// Reads an XML file into a tree and prints the values at a few paths.
// usage: xml-by-path [FILE]   (default: the settings.xml beside this example)
#include <vanta/xml.h>

#include <cstdio>

int main(int argc, char** argv) {
    const QString path = QString::fromUtf8(argc > 1 ? argv[1] : EXAMPLE_XML);
    vanta::XmlReader reader(path);
    if (reader.getErrorsOccurred()) {
        std::fprintf(stderr, "%s\n", reader.getErrorText().toUtf8().constData());
        return 1;
    }
    // The tree owns the nodes from here on and frees them when it goes out of scope.
    vanta::XmlTree tree(reader.takeRootNode());
    for (const char* key : {"settings/cache", "settings/layer/name", "settings/missing"}) {
        const QString value = tree.getValue(QString::fromLatin1(key));
        std::printf("%s = %s\n", key, value.isNull() ? "(no such node)" : value.toUtf8().constData());
    }
    // Walking the children of one node.
    const vanta::XmlNode* root = tree.getRootNode();
    for (const vanta::XmlNode* child = root->getFirstChild(); child; child = child->getNextSibling())
        std::printf("child <%s>\n", child->getName().toUtf8().constData());
    return 0;
}
