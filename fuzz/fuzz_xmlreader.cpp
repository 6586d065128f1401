// Fuzz target: arbitrary bytes as an XML file, read into a tree, walked, copied and freed.
#include <vanta/xml.h>

#include <QString>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

// Walks the tree in document order, checking that every link agrees with its neighbours.
long walk(const vanta::XmlNode* root) {
    long count = 0;
    const vanta::XmlNode* node = root;
    while (node) {
        ++count;
        const vanta::XmlNode* previous = nullptr;
        for (const vanta::XmlNode* child = node->getFirstChild(); child;
             child = child->getNextSibling()) {
            check(child->getParent() == node && child->getPreviousSibling() == previous);
            previous = child;
        }
        check(node->getLastChild() == previous);
        check(!node->getValue().isNull());
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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    static const std::string path = "/tmp/fuzz_xmlreader-" + std::to_string(getpid()) + ".xml";
    // A fresh file each time: truncating one that holds data makes some file systems flush it.
    unlink(path.c_str());
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return 0;
    std::fwrite(data, 1, size, file);
    std::fclose(file);

    const long liveBefore = vanta::XmlNode::liveNodeCount();
    {
        vanta::XmlReader reader(QString::fromStdString(path));
        vanta::XmlNode* root = reader.getRootNode();
        check(reader.getErrorsOccurred() == (root == nullptr));
        if (root) {
            const long count = walk(root);
            vanta::XmlPathFinder finder;
            check(finder.find(root, "/" + root->getName() + "/") == root);
            if (vanta::XmlNode* first = root->getFirstChild())
                check(finder.find(root, root->getName() + "//" + first->getName()) == first);
            vanta::XmlReader copy(reader);
            check(walk(copy.getRootNode()) == count);
        } else {
            const QString& error = reader.getErrorText();
            check(error.startsWith(QLatin1String("Parse error: ")) ||
                  error.startsWith(QLatin1String("Could not open file")));
        }
    }
    check(vanta::XmlNode::liveNodeCount() == liveBefore);
    return 0;
}
