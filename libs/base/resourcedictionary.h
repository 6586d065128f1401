/// \file
/// Resource dictionary: resource identifiers mapped to values, saved as lines of bracketed fields.
#pragma once

#include <vanta/export.h>
#include <vanta/memory.h>

#include <QMap>
#include <QString>

namespace vanta {

/// The key of a dictionary entry: the resource's id (never empty in a stored entry) and the id
/// of its owner (may be empty). Ordered by id, then owner id.
struct VANTA_EXPORT ResourceId {
    QString id;  ///< The resource's id.
    QString ownerId;  ///< The owner's id; may be empty.

    ResourceId() = default;
    /// A key from an id and an owner id.
    ResourceId(const QString& id, const QString& ownerId = QString()) : id(id), ownerId(ownerId) {}

    /// By id, then by owner id.
    bool operator<(const ResourceId& other) const {
        return id < other.id || (id == other.id && ownerId < other.ownerId);
    }
    /// Same id and owner id.
    bool operator==(const ResourceId& other) const {
        return id == other.id && ownerId == other.ownerId;
    }
    /// Not the same id or owner id.
    bool operator!=(const ResourceId& other) const { return !(*this == other); }
};

/// Maps resource ids to values and reads and writes them as text, one entry a line:
/// "<id> <value>" or "<id> <value> <owner>", lines ended by "\r\n" when written. Nothing is
/// escaped, so a value holding ">" or a line break does not read back. Copies share the map until
/// one of them changes. Not thread-safe: one thread at a time.
class VANTA_EXPORT ResourceDictionary : public MemoryObject {
public:
    ResourceDictionary() = default;
    /// Shares the map until one side changes.
    ResourceDictionary(const ResourceDictionary&) = default;
    /// Shares the map until one side changes.
    ResourceDictionary& operator=(const ResourceDictionary&) = default;
    virtual ~ResourceDictionary();

    /// Adds the entries of text, one a line (any run of "\r" and "\n" ends a line), replacing
    /// entries with equal keys. Stops at the first line that does not decode: the lines before
    /// it stay inserted, it and the lines after it are skipped, and the result is false. True
    /// when every line was inserted, also for a text without lines.
    bool loadFromString(const QString& text);
    /// Replaces out with every entry's line and "\r\n", in key order; empty dictionary: null.
    void exportToString(QString& out) const;
    /// Decodes one line and inserts (or replaces) its entry. False, changing nothing, when the
    /// line does not decode.
    bool insertEntryFromString(const QString& line);

    /// "<id> <value>", followed by " <owner>" when the owner id is not empty.
    static QString createDictionaryEntryString(const ResourceId& key, const QString& value);
    /// Reads up to three bracketed fields from line into key.id, value and key.ownerId, in that
    /// order; a field that is missing leaves its output unchanged. Blanks after "<" are skipped,
    /// blanks before ">" are kept. True when id and value are both non-empty afterwards.
    static bool decodeDictionaryEntryString(const QString& line, ResourceId& key, QString& value);

    /// The entries, in key order.
    const QMap<ResourceId, QString>& entries() const { return mEntries; }

private:
    QMap<ResourceId, QString> mEntries;
};

}  // namespace vanta
