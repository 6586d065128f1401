// vanta status CODE: the printable form of a status code.
#include "command.h"

#include <vanta/status.h>

namespace {

// CODE is decimal ("3221225483") or hexadecimal with 0x ("0xc000000b"), nothing else: no sign,
// no blanks, and a leading zero does not mean octal.
bool parseCode(const QString& text, unsigned int* code) {
    const bool hex = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive);
    const QString digits = hex ? text.mid(2) : text;
    if (digits.isEmpty())
        return false;
    for (QChar c : digits) {
        const bool ok = hex ? (c.isDigit() || QStringLiteral("abcdefABCDEF").contains(c))
                            : (c >= u'0' && c <= u'9');
        if (!ok || c.unicode() > 0x7f)
            return false;
    }
    bool ok = false;
    *code = digits.toUInt(&ok, hex ? 16 : 10);
    return ok;
}

// The application subsystem's tables are indexed without a check; codes past their last row
// are refused here rather than read.
bool beyondAppTable(unsigned int code) {
    if (((code >> 16) & 0x3fff) != 0)
        return false;
    const unsigned int index = code & 0xffff;
    switch (code >> 30) {
    case 3:
        return index >= vanta::StatusSubsysApp::kErrorCount;
    case 1:
        return index >= vanta::StatusSubsysApp::kInfoCount;
    default:
        return false;
    }
}

int run(const QStringList& args) {
    if (args.size() != 1)
        return vantatool::usage("status CODE");
    unsigned int code = 0;
    if (!parseCode(args[0], &code))
        return vantatool::error(
            QStringLiteral("'%1' is not a 32-bit status code (decimal or 0x-hex)").arg(args[0]));
    if (beyondAppTable(code))
        return vantatool::error(
            QStringLiteral("0x%1 is past the end of the APP message table").arg(code, 0, 16));
    vantatool::out(vanta::StatusGetPrintable(code));
    return vantatool::kOk;
}

void tour() {
    const unsigned int codes[] = {0xc000000b, 0xc0000016, 0x40000001, 0x80000003, 0, 0xc0050002};
    for (unsigned int code : codes)
        vantatool::out(QStringLiteral("vanta status 0x%1  ->  %2")
                           .arg(code, 8, 16, QLatin1Char('0'))
                           .arg(vanta::StatusGetPrintable(code)));
}

vantatool::Registrar command{vantatool::Command{
    "status", "status CODE", "the printable form of a status code (decimal or 0x-hex)", run}};
vantatool::Registrar step{vantatool::TourStep{10, "Status codes", tour}};

}  // namespace
