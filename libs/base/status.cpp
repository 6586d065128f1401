// Status codes: the subsystem registry, message tables, printable forms and log lines.
#include <vanta/status.h>

#include <vanta/locks.h>
#include <vanta/system.h>

#include <QObject>

namespace vanta {

std::atomic<StatusSubsysTable*> subsysTable{nullptr};
StatusSubsysApp* appSubsys = nullptr;
FILE* LM_ERROR = stderr;
FILE* LM_NOTICE = stderr;

namespace {

inline unsigned short subsysNumber(unsigned int code) { return (code >> 16) & 0x3fff; }

// True when arg() would find a place marker: '%', an optional 'L', then a digit.
bool hasArgMarker(const QString& s) {
    for (qsizetype i = s.indexOf(u'%'); i >= 0; i = s.indexOf(u'%', i + 1)) {
        qsizetype j = i + 1;
        if (j < s.size() && s[j] == u'L')
            ++j;
        if (j < s.size() && s[j].digitValue() >= 0)
            return true;
    }
    return false;
}

// QString::arg as the printable form was first written against: with no marker left, the
// argument is appended after one blank (the current toolkit would leave the string as it is
// and warn).
QString argOrAppend(const QString& s, const QString& argument) {
    return hasArgMarker(s) ? s.arg(argument) : s + u' ' + argument;
}

// Runs the library's load and unload steps. Built before the library's other static objects, so
// it is destroyed after them: the process-wide locks go last, once nothing can take them again.
struct Lifecycle {
    Lifecycle() { appSubsys = new StatusSubsysApp; }
    ~Lifecycle() {
        delete appSubsys;
        appSubsys = nullptr;
        BlockMainLock::shutdown();
        GlobalLock::shutdown();
    }
};

Lifecycle gLifecycle __attribute__((init_priority(101)));

}  // namespace

// ---- The registry ----

StatusSubsys* getSubsys(unsigned short number) {
    if (!subsysTable.load(std::memory_order_acquire))
        return nullptr;
    GlobalLock::lock();
    StatusSubsys* found = subsysTable.load(std::memory_order_relaxed)->find(number);
    GlobalLock::unlock();
    return found;
}

void registerSubsys(StatusSubsys* subsys) {
    GlobalLock::lock();
    StatusSubsysTable* table = subsysTable.load(std::memory_order_relaxed);
    if (!table) {
        table = new StatusSubsysTable(15);
        subsysTable.store(table, std::memory_order_release);
    }
    table->insertElem(table->hash(subsys->id), subsys);
    GlobalLock::unlock();
}

void unregisterSubsys(StatusSubsys* subsys) {
    // A subsystem that outlives the library's unload finds the lock gone; by then the process is
    // down to one thread, so it leaves the registry without it.
    const bool locked = GlobalLock::gGlobalLock() != nullptr;
    if (locked)
        GlobalLock::lock();
    if (StatusSubsysTable* table = subsysTable.load(std::memory_order_relaxed))
        table->removeElem(table->hash(subsys->id), subsys);
    if (locked)
        GlobalLock::unlock();
}

// ---- Subsystems ----

namespace {

QString nameOrUnknown(unsigned short number, const QString& name) {
    return name.isEmpty() ? QStringLiteral("Unknown (%1)").arg(number) : name;
}

}  // namespace

StatusSubsys::StatusSubsys(unsigned short number, const QString& name)
    : id(number), name(nameOrUnknown(number, name)) {
    registerSubsys(this);
}

StatusSubsys::~StatusSubsys() { unregisterSubsys(this); }

QString StatusSubsys::gString(unsigned int code) {
    // Five arguments for four markers: the message lands after "Error code", the padded decimal
    // code after "0x", and the hex code is appended at the end.
    const QString text = QObject::tr("%1|%2|Error code %3 (0x%4)")
                             .arg(getSeverityString(code))
                             .arg(name)
                             .arg(getErrorString(code))
                             .arg(code & 0xffff, 5);
    return argOrAppend(text, QString::number(code & 0xffff, 16));
}

const QString& StatusSubsys::getSeverityString(unsigned int code) const {
    return vanta::getSeverityString(code);
}

StatusSubsysApp::StatusSubsysApp() : StatusSubsys(0, QStringLiteral("APP")) {}

StatusSubsysApp::~StatusSubsysApp() = default;

const QString& StatusSubsysApp::getErrorString(unsigned int code) const {
    static const QString null;
    switch (code >> 30) {
    case 3: {
        static const QString errors[kErrorCount] = {
            QObject::tr("Invalid argument"),
            QObject::tr("Object already active"),
            QObject::tr("Cache node not valid"),
            QObject::tr("No reference held"),
            QObject::tr("Decode failed"),
            QObject::tr("No more memory"),
            QObject::tr("File not found"),
            QObject::tr("File open failed"),
            QObject::tr("I/O failed"),
            QObject::tr("No sockets available"),
            QObject::tr("Hostname not valid"),
            QObject::tr("Connect failed"),
            QObject::tr("Socket not connected"),
            QObject::tr("Socket receive timed out"),
            QObject::tr("Received invalid response"),
            QObject::tr("Texture already defined"),
            QObject::tr("Object already exists"),
            QObject::tr("Entry is defunct"),
            QObject::tr("Not implemented"),
            QObject::tr("Requested URL not found"),
            QObject::tr("Requested URL not valid"),
            QString(),  // 21: reserved
            QObject::tr("Attempt to read past end of file"),
        };
        return errors[code & 0xffff];
    }
    case 1: {
        // Never offered for translation.
        static const QString infos[kInfoCount] = {
            QStringLiteral("Action in progress"),
            QStringLiteral("Action already queued"),
        };
        return infos[code & 0xffff];
    }
    default:
        return null;
    }
}

// ---- Lookups by code ----

const QString& getSeverityString(unsigned int code) {
    static const QString words[4] = {
        QObject::tr("No Error"),
        QObject::tr("Info"),
        QObject::tr("Warning"),
        QObject::tr("Error"),
    };
    return words[code >> 30];
}

QString StatusGetPrintable(unsigned int code) {
    if (StatusSubsys* subsys = getSubsys(subsysNumber(code)))
        return subsys->gString(code);
    return QStringLiteral("Could not decode error 0x%1").arg(code, 0, 16);
}

const QString& StatusGetSubsysName(unsigned int code) {
    if (StatusSubsys* subsys = getSubsys(subsysNumber(code)))
        return subsys->name;
    static const QString invalid = QObject::tr("Invalid");
    return invalid;
}

const QString& StatusGetSeverityString(unsigned int code) {
    if (StatusSubsys* subsys = getSubsys(subsysNumber(code)))
        return subsys->getSeverityString(code);
    return getSeverityString(code);
}

const QString& StatusGetErrorString(unsigned int code) {
    if (StatusSubsys* subsys = getSubsys(subsysNumber(code)))
        return subsys->getErrorString(code);
    static const QString null;
    return null;
}

// ---- Log streams ----

namespace {

// UTF-8 of message with every lone surrogate as U+FFFD, the character a reader expects for it
// (toUtf8 alone writes '?'). The message is copied only when it holds one.
QByteArray logBytes(const QString& message) {
    QString text = message;
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (!text.at(i).isSurrogate())
            continue;
        if (text.at(i).isHighSurrogate() && i + 1 < text.size() && text.at(i + 1).isLowSurrogate())
            ++i;  // a whole pair
        else
            text[i] = QChar::ReplacementCharacter;
    }
    return text.toUtf8();
}

}  // namespace

bool ErrorLog(FILE* stream, const QString& message) {
    if (!stream)
        return true;
    // Narrow bytes only: one wide write would turn the stream wide for good, and every narrow
    // writer after it (standard error is shared) would lose its output. "%s" stops at the first
    // zero character, as the message's C string would.
    std::fprintf(stream, "%d: %s", System::sCurFrame, logBytes(message).constData());
    std::fflush(stream);
    return true;
}

void closeLogStreams() {
    FILE* const error = LM_ERROR;
    FILE* const notice = LM_NOTICE;
    if (error && error != stderr)
        std::fclose(error);
    if (notice && notice != stderr && notice != error)
        std::fclose(notice);
    if (error != stderr)
        LM_ERROR = nullptr;
    if (notice != stderr)
        LM_NOTICE = nullptr;
}

}  // namespace vanta
