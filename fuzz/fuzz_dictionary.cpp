// Fuzz target: arbitrary text loaded into a resource dictionary, exported and loaded again.
#include <vanta/resourcedictionary.h>

#include <QRegularExpression>
#include <QString>

#include <cstdlib>

namespace {

void check(bool condition) {
    if (!condition)
        std::abort();
}

// The entry line decoded with the regular expression the format is defined by: up to three
// matches, each searched from the end of the one before.
bool decodeByPattern(const QString& line, vanta::ResourceId& key, QString& value) {
    static const QRegularExpression field(QStringLiteral("(?:\\s*<\\s*)([^>]+)(?:>)"),
                                          QRegularExpression::UseUnicodePropertiesOption);
    QString* outputs[] = {&key.id, &value, &key.ownerId};
    qsizetype position = 0;
    for (QString* output : outputs) {
        const QRegularExpressionMatch match = field.match(line, position);
        if (!match.hasMatch())
            break;
        *output = match.captured(1);
        position = match.capturedEnd(0);
    }
    return !key.id.isEmpty() && !value.isEmpty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size) {
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data),
                                           static_cast<qsizetype>(size));
    vanta::ResourceDictionary dictionary;
    dictionary.loadFromString(text);

    // Whatever loaded exports to a text that loads back to the same entries.
    QString exported;
    dictionary.exportToString(exported);
    vanta::ResourceDictionary reloaded;
    check(reloaded.loadFromString(exported));
    check(reloaded.entries() == dictionary.entries());

    // The hand-written decoder agrees with the regular expression on the whole input as one
    // line. U+180E is left out: PCRE2's tables still count it as white space, QChar does not.
    QString line = text;
    line.remove(QChar(u'\n')).remove(QChar(u'\r'));
    if (!line.contains(QChar(0x180E))) {
        vanta::ResourceId key, expectedKey;
        QString value, expectedValue;
        const bool ok = vanta::ResourceDictionary::decodeDictionaryEntryString(line, key, value);
        check(ok == decodeByPattern(line, expectedKey, expectedValue));
        check(key == expectedKey && value == expectedValue);
        // Inserting the line adds exactly that entry, or changes nothing when it does not decode.
        vanta::ResourceDictionary single;
        check(single.insertEntryFromString(line) == ok);
        check(single.entries().size() == (ok ? 1 : 0));
        check(!ok || single.entries().value(key) == value);
    }
    return 0;
}
