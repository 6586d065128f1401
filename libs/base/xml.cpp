// XML reader on expat, the node tree it builds, and path lookup in that tree.
#include <vanta/xml.h>

#include <vanta/locks.h>

#include <QFile>

#include <expat.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>
#include <new>
#include <string>
#include <unordered_map>
#include <vector>

namespace vanta {
namespace {

// Counts nodes for leak checks. Trees add and remove their nodes in one step each, so the
// per-node cost stays out of the atomic.
std::atomic<long> sLiveNodes{0};

// A block of nodes: this header, then room for `capacity` nodes. It is freed when the last
// node built in it is released, whichever tree that node ended up in.
struct alignas(std::max_align_t) NodeBlock {
    long live;  // nodes built here and not yet released
};

}  // namespace

// Builds the nodes of one tree (a reader's, or a copy) in blocks that grow as the tree does.
class XmlNodeArena {
public:
    XmlNodeArena() = default;
    XmlNodeArena(const XmlNodeArena&) = delete;
    XmlNodeArena& operator=(const XmlNodeArena&) = delete;
    ~XmlNodeArena() { sLiveNodes.fetch_add(mMade, std::memory_order_relaxed); }

    // A new node, or null when memory runs out.
    XmlNode* make(const QString& name, QString value) {
        if (mUsed == mCapacity && !grow())
            return nullptr;
        void* slot = reinterpret_cast<char*>(mBlock + 1) + mUsed++ * sizeof(XmlNode);
        XmlNode* node = ::new (slot) XmlNode(name);
        node->mValue = std::move(value);
        node->mBlock = mBlock;
        ++mBlock->live;
        ++mMade;
        return node;
    }

private:
    // Small documents stay small; large ones get blocks below the C library's mmap threshold.
    static constexpr long kFirstCapacity = 32;
    static constexpr long kMaxCapacity = 1024;

    bool grow() {
        const long capacity = mCapacity ? std::min(2 * mCapacity, kMaxCapacity) : kFirstCapacity;
        void* memory = doNew(sizeof(NodeBlock) + capacity * sizeof(XmlNode));
        if (!memory)
            return false;
        mBlock = ::new (memory) NodeBlock{0};
        mCapacity = capacity;
        mUsed = 0;
        return true;
    }

    NodeBlock* mBlock = nullptr;
    long mCapacity = 0;
    long mUsed = 0;
    long mMade = 0;
};

namespace {

// The value of an element without text: empty but not null, so that XmlTree::getValue can tell
// "no such node" (null) from "a node without text".
const QString& emptyValue() {
    static const QString empty = QStringLiteral("");
    return empty;
}

// Element names live for the life of the process, shared by every tree, so that nodes copy and
// free their names without touching a reference count (a measurable share of reading a
// document). A hostile stream of distinct names cannot grow the pool without limit: past these
// limits a node simply gets an ordinary string of its own.
constexpr size_t kMaxPooledNames = 8192;
constexpr qsizetype kMaxPooledNameLength = 64;

class NamePool {
public:
    static NamePool& instance() {
        static NamePool* pool = new NamePool;  // never destroyed: its names may outlive exit
        return *pool;
    }

    // The shared name for these UTF-8 bytes; an ordinary string once the pool is full. Locks.
    QString name(const std::string& utf8) {
        CSMutex guard(mLock);
        const auto found = mNames.find(utf8);
        if (found != mNames.end())
            return found->second;
        QString converted = QString::fromUtf8(utf8.data(), static_cast<qsizetype>(utf8.size()));
        if (mNames.size() >= kMaxPooledNames || converted.size() > kMaxPooledNameLength)
            return converted;
        const size_t bytes = (static_cast<size_t>(converted.size()) + 1) * sizeof(char16_t);
        auto* storage = static_cast<char16_t*>(doNew(bytes));
        if (!storage)
            return converted;
        std::memcpy(storage, converted.utf16(), bytes);
        const QString pooled =
            QString::fromRawData(reinterpret_cast<const QChar*>(storage), converted.size());
        mNames.emplace(utf8, pooled);
        return pooled;
    }

private:
    SpinLock mLock;
    std::unordered_map<std::string, QString> mNames;  // guarded by mLock
};

QString openFailure(const QString& path) {
    return QStringLiteral("Could not open file \"") + path + u'"';
}

bool isAsciiSpace(unsigned char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// Pipes and character devices have no size; reading one stops here, so a source that never
// ends (such as /dev/zero) cannot exhaust memory.
constexpr qint64 kMaxUnsizedBytes = 256 * 1024 * 1024;

// This version of expat expands entity references recursively, so a document declaring a long
// chain of entities, each naming the next, could exhaust the stack (a few hundred bytes a
// level). The recursion is at most as deep as the number of entities whose values hold a
// reference; documents that declare more of those than this are refused ("parsing aborted").
constexpr int kMaxReferringEntities = 256;

// Leaf values are short and many. Rather than taking one allocation each, they are written one
// after another into shared chunks, each followed by the terminating 0 that QString keeps, and
// every value is an ordinary QString that refers to its slice and holds a reference to the
// chunk. Changing a value copies it first, as with any shared QString; a chunk is freed with the
// last value in it, so a value kept after its tree is gone keeps at most one chunk alive.
class ValueChunks {
public:
    // A QString of the ASCII bytes [begin, begin + length), widened.
    QString ascii(const char* begin, qsizetype length) {
        if (length > kMaxPackedLength || (mUsed + length + 1 > mCapacity && !grow())) {
            QString value(length, Qt::Uninitialized);
            widen(begin, length, reinterpret_cast<char16_t*>(value.data()));
            return value;
        }
        char16_t* slice = mChunk.data() + mUsed;
        widen(begin, length, slice);
        slice[length] = u'\0';
        mUsed += length + 1;
        mChunk.d_ptr()->ref();
        return QString(QString::DataPointer(mChunk.d_ptr(), slice, length));
    }

private:
    static constexpr qsizetype kMaxPackedLength = 256;
    static constexpr qsizetype kFirstCapacity = 512;  // 16-bit units
    static constexpr qsizetype kMaxCapacity = 16384;

    static void widen(const char* in, qsizetype length, char16_t* out) {
        for (qsizetype i = 0; i < length; ++i)
            out[i] = static_cast<char16_t>(in[i]);
    }

    bool grow() {
        const qsizetype capacity =
            mCapacity ? std::min(2 * mCapacity, kMaxCapacity) : kFirstCapacity;
        auto allocation = QTypedArrayData<char16_t>::allocate(capacity);
        if (!allocation.first)
            return false;
        mChunk = QString::DataPointer(allocation, 0);  // drops this object's hold on the last one
        mCapacity = capacity;
        mUsed = 0;
        return true;
    }

    QString::DataPointer mChunk;  // this object's own reference to the chunk being filled
    qsizetype mCapacity = 0;
    qsizetype mUsed = 0;
};

// What the parser callbacks work on while one document is read.
struct TreeBuilder {
    XML_Parser parser = nullptr;
    XmlNodeArena* arena = nullptr;
    int referringEntities = 0;
    int elements = 0;  // started so far
    XmlNode* root = nullptr;
    std::string text;  // UTF-8 text gathered since the last element event
    ValueChunks values;

    // Element names repeat throughout a document, mostly in the same order under the same
    // parent. Each distinct name is converted once and its QString shared by every node of that
    // name; each name also remembers the name that last came first under it and the one that
    // last followed it, so that a regular document rarely needs the hash lookup.
    struct Name {
        QString text;
        const std::string* bytes = nullptr;  // the key in `names`
        Name* firstChild = nullptr;
        Name* next = nullptr;
    };
    std::unordered_map<std::string, Name> names;  // entries never move
    std::string key;  // reused lookup key, so that looking a name up does not allocate

    struct Open {
        XmlNode* node;
        Name* name;
        Name* lastChild;  // the name of the node's last child so far
    };
    std::vector<Open> open;  // open elements, innermost last

    // Names are short: a plain loop beats a library call. It stops at name's terminator,
    // which never equals a byte of a stored name.
    static bool sameName(const char* name, const std::string& bytes) {
        const size_t size = bytes.size();
        for (size_t i = 0; i < size; ++i) {
            if (name[i] != bytes[i])
                return false;
        }
        return name[size] == '\0';
    }

    // Null past the document's limit of distinct names.
    Name* lookup(const char* name) {
        key.assign(name);
        auto found = names.find(key);
        if (found == names.end()) {
            if (names.size() >= size_t(XmlReader::kMaxNames))
                return nullptr;
            found = names.emplace(key, Name()).first;
            found->second.text = NamePool::instance().name(key);
            found->second.bytes = &found->first;
        }
        return &found->second;
    }

    // The name of an element starting now, under the innermost open element; null past the
    // limit of distinct names.
    Name* elementName(const char* name) {
        if (open.empty())
            return lookup(name);
        Open& parent = open.back();
        Name*& expected = parent.lastChild ? parent.lastChild->next : parent.name->firstChild;
        if (!expected || !sameName(name, *expected->bytes))
            expected = lookup(name);
        parent.lastChild = expected;
        return expected;
    }

    // The gathered text with white space stripped at both ends.
    QString trimmedText() {
        const char* begin = text.data();
        const char* end = begin + text.size();
        while (begin < end && isAsciiSpace(*begin))
            ++begin;
        while (end > begin && isAsciiSpace(end[-1]))
            --end;
        if (begin == end)
            return emptyValue();
        for (const char* in = begin; in < end; ++in) {
            if (static_cast<unsigned char>(*in) >= 0x80) {
                QString value = QString::fromUtf8(begin, end - begin);
                // Only a multi-byte character at either end can still be white space (such as
                // U+00A0), so only then is there more to trim.
                if (static_cast<unsigned char>(*begin) >= 0x80 ||
                    static_cast<unsigned char>(end[-1]) >= 0x80)
                    value = std::move(value).trimmed();
                return value;
            }
        }
        return values.ascii(begin, end - begin);
    }

    static void XMLCALL startElement(void* userData, const XML_Char* name, const XML_Char**) {
        auto* self = static_cast<TreeBuilder*>(userData);
        if (self->open.size() >= size_t(XmlReader::kMaxDepth) ||
            ++self->elements > XmlReader::kMaxElements) {
            XML_StopParser(self->parser, XML_FALSE);
            return;
        }
        self->text.clear();
        Name* elementName = self->elementName(name);
        XmlNode* node = elementName ? self->arena->make(elementName->text, QString()) : nullptr;
        if (!node) {
            XML_StopParser(self->parser, XML_FALSE);
            return;
        }
        if (self->open.empty())
            self->root = node;
        else
            self->open.back().node->addChild(node);
        self->open.push_back({node, elementName, nullptr});
    }

    static void XMLCALL endElement(void* userData, const XML_Char*) {
        auto* self = static_cast<TreeBuilder*>(userData);
        if (self->open.empty())
            return;
        self->open.back().node->setValue(self->trimmedText());
        self->open.pop_back();
        self->text.clear();
    }

    static void XMLCALL characters(void* userData, const XML_Char* text, int length) {
        static_cast<TreeBuilder*>(userData)->text.append(text, static_cast<size_t>(length));
    }

    static void XMLCALL entityDeclaration(void* userData, const XML_Char*, int,
                                          const XML_Char* value, int length, const XML_Char*,
                                          const XML_Char*, const XML_Char*, const XML_Char*) {
        auto* self = static_cast<TreeBuilder*>(userData);
        if (!value)
            return;  // an external entity: never loaded
        // Any "&" counts, also one made by a character reference: it is parsed again when the
        // entity is expanded.
        const bool refers = std::memchr(value, '&', static_cast<size_t>(length)) ||
                            std::memchr(value, '%', static_cast<size_t>(length));
        if (refers && ++self->referringEntities > kMaxReferringEntities)
            XML_StopParser(self->parser, XML_FALSE);
    }
};

// Hands the whole file to the parser in one final call. Regular files are read straight into
// the parser's own buffer, so the document is held in memory once. Sets readFailed when the
// file could not be read to its end.
XML_Status parseFile(QFile& file, XML_Parser parser, bool& readFailed) {
    readFailed = false;
    const qint64 size = file.isSequential() ? 0 : file.size();
    if (size > INT_MAX) {
        readFailed = true;
        return XML_STATUS_ERROR;
    }
    if (size > 0) {
        auto* buffer = static_cast<char*>(XML_GetBuffer(parser, static_cast<int>(size)));
        if (!buffer)
            return XML_STATUS_ERROR;  // expat records "out of memory"
        qint64 got = 0;
        while (got < size) {
            const qint64 n = file.read(buffer + got, size - got);
            if (n < 0) {
                readFailed = true;
                return XML_STATUS_ERROR;
            }
            if (n == 0)
                break;  // the file shrank while being read: parse what is there
            got += n;
        }
        return XML_ParseBuffer(parser, static_cast<int>(got), XML_TRUE);
    }
    // No size known (a pipe, or a file whose size reads as 0): read to the end, within a limit.
    QByteArray bytes;
    char chunk[65536];
    for (;;) {
        const qint64 n = file.read(chunk, sizeof chunk);
        if (n < 0 || bytes.size() + n > kMaxUnsizedBytes) {
            readFailed = true;
            return XML_STATUS_ERROR;
        }
        if (n == 0)
            break;
        bytes.append(chunk, n);
    }
    return XML_Parse(parser, bytes.constData(), static_cast<int>(bytes.size()), XML_TRUE);
}

}  // namespace

// ---- XmlNode ----

XmlNode::XmlNode(const QString& name, const QString& value) : mName(name), mValue(value) {}

XmlNode::~XmlNode() = default;

void* XmlNode::operator new(std::size_t size) noexcept {
    void* memory = doNew(size);
    if (memory)
        sLiveNodes.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void XmlNode::operator delete(void* p) {
    sLiveNodes.fetch_sub(1, std::memory_order_relaxed);
    doDelete(p);
}

long XmlNode::liveNodeCount() { return sLiveNodes.load(std::memory_order_relaxed); }

void XmlNode::release(XmlNode* node) {
    auto* block = static_cast<NodeBlock*>(node->mBlock);
    node->~XmlNode();
    if (!block)
        doDelete(node);
    else if (--block->live == 0)
        doDelete(block);
}

void XmlNode::unlink() {
    if (!mParent)
        return;
    (mPrevSibling ? mPrevSibling->mNextSibling : mParent->mFirstChild) = mNextSibling;
    (mNextSibling ? mNextSibling->mPrevSibling : mParent->mLastChild) = mPrevSibling;
    mParent = mPrevSibling = mNextSibling = nullptr;
}

void XmlNode::addChild(XmlNode* child) {
    if (!child || child == this)
        return;
    child->unlink();
    child->mParent = this;
    child->mPrevSibling = mLastChild;
    (mLastChild ? mLastChild->mNextSibling : mFirstChild) = child;
    mLastChild = child;
}

void XmlNode::destroySelfAndHierarchy() {
    unlink();
    // Frees leaves one at a time: go down first children to a leaf, free it (its next sibling
    // becomes its parent's first child), then continue from the parent. Each link is walked
    // down and up once, and the depth of the tree costs no stack.
    long released = 0;
    XmlNode* node = this;
    for (;;) {
        while (node->mFirstChild)
            node = node->mFirstChild;
        XmlNode* parent = node->mParent;
        if (node != this) {
            parent->mFirstChild = node->mNextSibling;
            if (node->mNextSibling)
                node->mNextSibling->mPrevSibling = nullptr;
            else
                parent->mLastChild = nullptr;
        }
        const bool last = node == this;
        release(node);
        ++released;
        if (last)
            break;
        node = parent;
    }
    sLiveNodes.fetch_sub(released, std::memory_order_relaxed);
}

XmlNode* XmlNode::cloneHierarchy() const {
    XmlNodeArena arena;
    XmlNode* copy = arena.make(mName, mValue);
    if (!copy)
        return nullptr;
    // Walks this subtree in document order, mirroring each step in the copy.
    const XmlNode* from = this;
    XmlNode* to = copy;
    for (;;) {
        XmlNode* parentCopy;
        if (from->mFirstChild) {
            from = from->mFirstChild;
            parentCopy = to;
        } else {
            while (from != this && !from->mNextSibling) {
                from = from->mParent;
                to = to->mParent;
            }
            if (from == this)
                return copy;
            from = from->mNextSibling;
            parentCopy = to->mParent;
        }
        to = arena.make(from->mName, from->mValue);
        if (!to) {
            copy->destroySelfAndHierarchy();
            return nullptr;
        }
        parentCopy->addChild(to);
    }
}

// ---- XmlReader ----

XmlReader::XmlReader(const QString& path) { read(path); }

XmlReader::XmlReader(const XmlReader& other)
    : mRoot(other.mRoot ? other.mRoot->cloneHierarchy() : nullptr),
      mErrorText(other.mErrorText) {}

XmlReader& XmlReader::operator=(const XmlReader& other) {
    if (this == &other)
        return *this;
    XmlNode* root = other.mRoot ? other.mRoot->cloneHierarchy() : nullptr;
    if (mRoot)
        mRoot->destroySelfAndHierarchy();
    mRoot = root;
    mErrorText = other.mErrorText;
    return *this;
}

XmlReader::~XmlReader() {
    if (mRoot)
        mRoot->destroySelfAndHierarchy();
}

XmlNode* XmlReader::takeRootNode() {
    XmlNode* root = mRoot;
    mRoot = nullptr;
    return root;
}

void XmlReader::read(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        mErrorText = openFailure(path);
        return;
    }
    // No forced encoding: the document's declaration (or byte order mark) decides.
    XML_Parser parser = XML_ParserCreate(nullptr);
    if (!parser) {
        mErrorText = QStringLiteral("Parse error: ") +
                     QString::fromUtf8(XML_ErrorString(XML_ERROR_NO_MEMORY)) +
                     QStringLiteral("\nat line: 0, column: 0");
        return;
    }
    XmlNodeArena arena;
    TreeBuilder builder;
    builder.parser = parser;
    builder.arena = &arena;
    // Room for a typical configuration file, so that small documents do not grow these step by
    // step.
    builder.names.reserve(32);
    builder.open.reserve(16);
    builder.text.reserve(256);
    XML_SetUserData(parser, &builder);
    XML_SetElementHandler(parser, TreeBuilder::startElement, TreeBuilder::endElement);
    XML_SetCharacterDataHandler(parser, TreeBuilder::characters);
    XML_SetEntityDeclHandler(parser, TreeBuilder::entityDeclaration);
    // External entities and DTDs are never fetched: no handler for them is set, and parameter
    // entities (the way to an external DTD subset) are not parsed.
    XML_SetParamEntityParsing(parser, XML_PARAM_ENTITY_PARSING_NEVER);

    bool readFailed = false;
    if (parseFile(file, parser, readFailed) == XML_STATUS_OK) {
        mRoot = builder.root;
    } else {
        if (readFailed) {
            mErrorText = openFailure(path);
        } else {
            mErrorText = QStringLiteral("Parse error: ");
            if (const XML_LChar* message = XML_ErrorString(XML_GetErrorCode(parser)))
                mErrorText += QString::fromUtf8(message);
            mErrorText += QStringLiteral("\nat line: %1, column: %2")
                              .arg(XML_GetCurrentLineNumber(parser))
                              .arg(XML_GetCurrentColumnNumber(parser));
        }
        if (builder.root)
            builder.root->destroySelfAndHierarchy();
    }
    XML_ParserFree(parser);
}

// ---- XmlPathFinder ----

namespace {

XmlNode* childNamed(XmlNode* parent, QStringView name) {
    for (XmlNode* child = parent ? parent->getFirstChild() : nullptr; child;
         child = child->getNextSibling()) {
        if (child->getName() == name)
            return child;
    }
    return nullptr;
}

}  // namespace

XmlNode* XmlPathFinder::find(XmlNode* start, const QString& path) const {
    XmlNode* current = nullptr;
    for (QStringView name : QStringView(path).tokenize(u'/', Qt::SkipEmptyParts)) {
        if (!current) {
            if (!start || start->getName() != name)
                return nullptr;
            current = start;
        } else if (!(current = childNamed(current, name))) {
            return nullptr;
        }
    }
    return current;
}

XmlNode* XmlPathFinder::findChild(XmlNode* parent, const QString& name) const {
    return childNamed(parent, name);
}

// ---- XmlTree ----

XmlTree::XmlTree(XmlNode* root) : mRoot(root) {}

XmlTree::~XmlTree() {
    if (mRoot)
        mRoot->destroySelfAndHierarchy();
}

QString XmlTree::getValue(const QString& path) const {
    const XmlNode* node = XmlPathFinder().find(mRoot, path);
    return node ? node->getValue() : QString();
}

bool XmlTree::setValue(const QString& path, QString value) {
    XmlNode* node = XmlPathFinder().find(mRoot, path);
    if (!node)
        return false;
    node->setValue(std::move(value));
    return true;
}

}  // namespace vanta
