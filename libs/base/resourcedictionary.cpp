// Resource dictionary: entry lines decoded and written, whole dictionaries loaded and exported.
#include <vanta/resourcedictionary.h>

namespace vanta {
namespace {

// One search for a bracketed field from position from, with exactly the result of the regular
// expression "(?:\s*<\s*)([^>]+)(?:>)" (\s being QChar::isSpace) searched from there: the
// leftmost match, its capture and where it ends. A hand-written scan, because a dictionary of
// thousands of lines decodes several times faster this way than through the regular expression
// engine (see bench_xml).
bool nextField(QStringView line, qsizetype from, QStringView& field, qsizetype& end) {
    const qsizetype size = line.size();
    for (qsizetype open = line.indexOf(u'<', from); open >= 0;
         open = line.indexOf(u'<', open + 1)) {
        qsizetype start = open + 1;
        while (start < size && line[start].isSpace())
            ++start;
        const qsizetype close = line.indexOf(u'>', start);
        if (close < 0)
            return false;  // no ">" after this "<", so none after a later one either
        if (close > start) {
            field = line.mid(start, close - start);
            end = close + 1;
            return true;
        }
        if (start > open + 1) {
            // Only blanks between "<" and ">": the pattern's "[^>]+" takes back the last one.
            field = line.mid(start - 1, 1);
            end = close + 1;
            return true;
        }
        // "<>" matches nowhere; the next "<" may.
    }
    return false;
}

bool decode(QStringView line, ResourceId& key, QString& value) {
    QString* outputs[] = {&key.id, &value, &key.ownerId};
    qsizetype position = 0;
    for (QString* output : outputs) {
        QStringView field;
        if (!nextField(line, position, field, position))
            break;
        *output = field.toString();
    }
    return !key.id.isEmpty() && !value.isEmpty();
}

bool isLineBreak(QChar c) { return c == u'\n' || c == u'\r'; }

}  // namespace

ResourceDictionary::~ResourceDictionary() = default;

QString ResourceDictionary::createDictionaryEntryString(const ResourceId& key,
                                                        const QString& value) {
    // The same text as filling "<%1> <%2>" and " <%1>" in one pass each: ids and values are
    // written as they are, "%" included.
    QString line;
    line.reserve(key.id.size() + value.size() + key.ownerId.size() + 8);
    line += u'<';
    line += key.id;
    line += QLatin1String("> <");
    line += value;
    line += u'>';
    if (!key.ownerId.isEmpty()) {
        line += QLatin1String(" <");
        line += key.ownerId;
        line += u'>';
    }
    return line;
}

bool ResourceDictionary::decodeDictionaryEntryString(const QString& line, ResourceId& key,
                                                     QString& value) {
    return decode(line, key, value);
}

bool ResourceDictionary::insertEntryFromString(const QString& line) {
    ResourceId key;
    QString value;
    if (!decode(line, key, value))
        return false;
    mEntries.insert(key, value);
    return true;
}

bool ResourceDictionary::loadFromString(const QString& text) {
    const QStringView all(text);
    const qsizetype size = all.size();
    qsizetype begin = 0;
    while (begin < size) {
        while (begin < size && isLineBreak(all[begin]))
            ++begin;
        qsizetype end = begin;
        while (end < size && !isLineBreak(all[end]))
            ++end;
        if (end > begin) {
            ResourceId key;
            QString value;
            if (!decode(all.mid(begin, end - begin), key, value))
                return false;  // deliberately no rollback: earlier lines stay inserted
            mEntries.insert(key, value);
        }
        begin = end;
    }
    return true;
}

void ResourceDictionary::exportToString(QString& out) const {
    out = QString();
    for (auto entry = mEntries.cbegin(); entry != mEntries.cend(); ++entry) {
        out += createDictionaryEntryString(entry.key(), entry.value());
        out += QLatin1String("\r\n");
    }
}

}  // namespace vanta
