/// \file
/// XML files read into a tree of named nodes, and values looked up by slash-separated paths.
#pragma once

#include <vanta/export.h>
#include <vanta/memory.h>

#include <QString>

#include <cstddef>
#include <utility>

namespace vanta {

/// One element of a tree: its name, its trimmed text and links to its parent, children and
/// siblings (document order). Attributes are not kept. Nodes live on the heap (doNew) and are
/// freed only through destroySelfAndHierarchy, which frees the whole subtree without recursion.
/// Not thread-safe: the nodes read from one document share storage, so they belong to one thread
/// at a time, even after being split into several trees.
class VANTA_EXPORT XmlNode : public MemoryObject {
public:
    /// A node named name with value, not yet in a tree.
    explicit XmlNode(const QString& name, const QString& value = QString());
    XmlNode(const XmlNode&) = delete;
    XmlNode& operator=(const XmlNode&) = delete;

    /// Appends child after the current last child, in constant time. A child that still hangs in
    /// a tree is unlinked from there first. Null and this node itself are ignored; adding one of
    /// this node's ancestors would make a cycle and is the caller's error.
    void addChild(XmlNode* child);
    /// Unlinks this node from its parent, then frees it and every node below it. Iterative, so
    /// a tree of any depth is freed without exhausting the stack. The node is gone afterwards.
    void destroySelfAndHierarchy();

    const QString& getName() const { return mName; }  ///< The element's name.
    /// The element's text after its last child element, white space trimmed at both ends; an
    /// element without text has an empty (not null) value.
    const QString& getValue() const { return mValue; }
    void setValue(QString value) { mValue = std::move(value); }  ///< Replaces the value.

    XmlNode* getParent() const { return mParent; }  ///< The parent, or null for a root.
    XmlNode* getFirstChild() const { return mFirstChild; }  ///< The first child, or null.
    XmlNode* getLastChild() const { return mLastChild; }  ///< The last child, or null.
    /// The previous sibling, or null.
    XmlNode* getPreviousSibling() const { return mPrevSibling; }
    XmlNode* getNextSibling() const { return mNextSibling; }  ///< The next sibling, or null.

    /// A deep copy of this node and its subtree (without parent or siblings), built without
    /// recursion. Returns null when memory runs out; nothing is leaked then.
    XmlNode* cloneHierarchy() const;

    /// Nodes alive in the process, for tests that check nothing leaks.
    static long liveNodeCount();

    /// A node made with new comes from doNew (new gives null when memory runs out); it is freed
    /// by destroySelfAndHierarchy only.
    static void* operator new(std::size_t size) noexcept;
    static void operator delete(void* p);  ///< used only when a constructor throws

private:
    friend class XmlNodeArena;
    ~XmlNode();  ///< only destroySelfAndHierarchy frees nodes
    void unlink();
    static void release(XmlNode* node);

    QString mName;
    QString mValue;
    XmlNode* mParent = nullptr;
    XmlNode* mFirstChild = nullptr;
    XmlNode* mLastChild = nullptr;  ///< keeps addChild constant-time for long child lists
    XmlNode* mPrevSibling = nullptr;
    XmlNode* mNextSibling = nullptr;
    /// The block a reader built this node in (shared with its neighbours in the document, so
    /// that a large tree costs few allocations), or null for a node allocated on its own.
    void* mBlock = nullptr;
};

/// Reads a whole XML file into a tree when constructed. The reader owns the tree until a caller
/// takes the root with takeRootNode (or the reader is destroyed). Documents may be UTF-8,
/// UTF-16 with a byte order mark, ISO-8859-1 or US-ASCII, as their declaration says. External
/// entities and external DTDs are never loaded, and expat's protection against entity expansion
/// attacks stays on. Documents nested deeper than kMaxDepth, or holding more than kMaxElements
/// elements or kMaxNames distinct names, are refused. Reading blocks on file input. Not thread-safe.
class VANTA_EXPORT XmlReader : public MemoryObject {
public:
    /// The deepest nesting a document may have (its root element is level 1); configuration and
    /// layer files stay far below it. A deeper document is refused with "Parse error: parsing
    /// aborted\nat line: L, column: C", where the start tag of the first element past the limit
    /// ends, so that a hostile file costs neither the memory nor the time of an unbounded tree.
    static constexpr int kMaxDepth = 4096;
    /// The most elements, and the most distinct element names, a document may hold; such files
    /// hold thousands of elements and a few dozen names. A document with more is refused the
    /// same way, at the start tag of the first element past the limit. With the depth limit,
    /// this keeps reading any file of up to 20 MB under a second and under 100 MB beyond the
    /// file itself (a node costs about 100 bytes; a 20 MB file of empty elements would build
    /// 500 MB of them, and of distinct names take seconds).
    static constexpr int kMaxElements = 750000;
    static constexpr int kMaxNames = 10000;  ///< \copydoc kMaxElements

    /// Reads and parses the file at path. Failures end in getErrorsOccurred() and getErrorText():
    /// "Could not open file \"PATH\"" or "Parse error: MESSAGE\nat line: L, column: C".
    explicit XmlReader(const QString& path);
    /// Copies the error text and a deep copy of the tree (when it still holds one).
    XmlReader(const XmlReader& other);
    /// Copies the error text and a deep copy of the tree.
    XmlReader& operator=(const XmlReader& other);
    /// Frees the tree unless a caller took it.
    ~XmlReader();

    /// True when reading failed (the error text is not empty).
    bool getErrorsOccurred() const { return !mErrorText.isEmpty(); }
    /// Empty when all went well.
    const QString& getErrorText() const { return mErrorText; }
    /// The root of the tree, still owned by the reader; null after a failure or after
    /// takeRootNode.
    XmlNode* getRootNode() const { return mRoot; }
    /// Hands the tree to the caller, who frees it (destroySelfAndHierarchy, or an XmlTree).
    XmlNode* takeRootNode();

private:
    void read(const QString& path);

    XmlNode* mRoot = nullptr;
    QString mErrorText;
};

/// Finds nodes by paths such as "settings/cache": names separated by "/", where empty pieces
/// (leading, trailing or doubled slashes) do not count. Stateless.
class VANTA_EXPORT XmlPathFinder {
public:
    /// The node the path leads to from start: its first name must be start's own name, each
    /// further name picks the first child of that name. Null when any step fails or the path
    /// has no name.
    XmlNode* find(XmlNode* start, const QString& path) const;
    /// The first child of parent (document order) whose name equals name exactly, or null.
    XmlNode* findChild(XmlNode* parent, const QString& name) const;
};

/// A tree that owns its root and frees it when destroyed.
class VANTA_EXPORT XmlTree : public MemoryObject {
public:
    /// Takes ownership of root (which may be null, giving an empty tree).
    explicit XmlTree(XmlNode* root);
    ~XmlTree();
    XmlTree(const XmlTree&) = delete;
    XmlTree& operator=(const XmlTree&) = delete;

    XmlNode* getRootNode() const { return mRoot; }  ///< The root, or null when the tree is empty.
    /// The value of the node the path leads to from the root, or the null string when there is
    /// no such node.
    QString getValue(const QString& path) const;
    /// Sets the value of the node the path leads to. Returns false, changing nothing, when there
    /// is no such node; nodes are never created.
    bool setValue(const QString& path, QString value);

private:
    XmlNode* mRoot;
};

}  // namespace vanta
