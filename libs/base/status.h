/// \file
/// Status codes: subsystems with message tables, their registry, printable forms and the log
/// streams.
#pragma once

#include <vanta/export.h>
#include <vanta/hashtable.h>

#include <QString>

#include <atomic>
#include <cstdio>

namespace vanta {

/// A status code is an unsigned 32-bit value:
///   bits 31-30  severity: 0 no error, 1 info, 2 warning, 3 error
///   bits 29-16  subsystem number, looked up as (code >> 16) & 0x3fff
///   bits 15-0   code within the subsystem, the index into its message table
/// 0 is success. Only the severity decides whether a code is a failure.

/// A subsystem: a number, a display name and a message table. Constructing one registers it under
/// its number; destroying it unregisters it. Of two subsystems with one number, the one
/// registered last is found until it is destroyed.
class VANTA_EXPORT StatusSubsys {
public:
    /// An empty name is replaced by "Unknown (<number>)". Registers the object under the global
    /// lock, before a subclass's own constructor runs.
    StatusSubsys(unsigned short number, const QString& name);
    /// Unregisters the object.
    virtual ~StatusSubsys();
    StatusSubsys(const StatusSubsys&) = delete;
    StatusSubsys& operator=(const StatusSubsys&) = delete;

    /// The one-line printable form, "<severity>|<name>|Error code <message> (0x<code, width 5>)
    /// <code in hex>": the template has one marker fewer than there are arguments, and the last
    /// argument is appended after a blank. Logs are read in this form, so it stays as it is.
    virtual QString gString(unsigned int code);
    /// The severity word of code; this class takes it from the common table.
    virtual const QString& getSeverityString(unsigned int code) const;
    /// The message for code; a null string where there is none.
    virtual const QString& getErrorString(unsigned int code) const = 0;

    const unsigned short id;  ///< the subsystem number
    const QString name;       ///< the display name
};

/// The application subsystem, number 0, "APP": the general error table (severity 3, codes 0-22,
/// offered for translation) and two info texts (severity 1, codes 0-1, never translated).
class VANTA_EXPORT StatusSubsysApp : public StatusSubsys {
public:
    static constexpr unsigned int kErrorCount = 23;  ///< rows of the error table
    static constexpr unsigned int kInfoCount = 2;    ///< rows of the info table

    StatusSubsysApp();
    ~StatusSubsysApp() override;

    /// Severity 3 and 1 index their table with code & 0xffff, unchecked: a code beyond the last
    /// row (kErrorCount, kInfoCount) is the caller's error. Severities 0 and 2 give a null string.
    const QString& getErrorString(unsigned int code) const override;
};

/// The registry: subsystems by number, borrowed, never deleted by the table.
class VANTA_EXPORT StatusSubsysTable final : public HashTable<StatusSubsys, unsigned short> {
public:
    /// A registry of requestedBuckets buckets (rounded up to a prime).
    explicit StatusSubsysTable(unsigned int requestedBuckets) : HashTable(requestedBuckets) {}
    /// The subsystem number is its own hash.
    unsigned int hash(unsigned short number) const override { return number; }
    /// The subsystem's number.
    unsigned short getKey(const StatusSubsys* subsys) const override { return subsys->id; }
    /// Equal numbers.
    bool match(unsigned short a, unsigned short b) const override { return a == b; }
};

/// The process-wide registry, created by the first registration (15 buckets asked, 53 given) and
/// never freed; null before that. Guarded by GlobalLock; the null test alone may run unlocked.
VANTA_EXPORT extern std::atomic<StatusSubsysTable*> subsysTable;

/// The application subsystem, created when the library is loaded and deleted when it is unloaded.
VANTA_EXPORT extern StatusSubsysApp* appSubsys;

/// The registered subsystem with this number, or null. Takes GlobalLock unless nothing was ever
/// registered.
VANTA_EXPORT StatusSubsys* getSubsys(unsigned short number);
/// Add or remove a subsystem under GlobalLock; called by StatusSubsys itself.
VANTA_EXPORT void registerSubsys(StatusSubsys* subsys);
VANTA_EXPORT void unregisterSubsys(StatusSubsys* subsys);  ///< Removes subsys from the registry.

/// "No Error", "Info", "Warning" or "Error" (translated once) for code >> 30.
VANTA_EXPORT const QString& getSeverityString(unsigned int code);

/// The subsystem's printable form (StatusSubsys::gString), or "Could not decode error 0x<code>"
/// when the subsystem is not registered.
VANTA_EXPORT QString StatusGetPrintable(unsigned int code);
/// The subsystem's name, or the translation of "Invalid" when it is not registered.
VANTA_EXPORT const QString& StatusGetSubsysName(unsigned int code);
/// The subsystem's severity word, or the common one when it is not registered.
VANTA_EXPORT const QString& StatusGetSeverityString(unsigned int code);
/// The subsystem's message, or a null string when it is not registered.
VANTA_EXPORT const QString& StatusGetErrorString(unsigned int code);

/// The two log streams; both start as standard error. An application may point either at a file of
/// its own; closeLogStreams() closes them when the process ends.
VANTA_EXPORT extern FILE* LM_ERROR;
VANTA_EXPORT extern FILE* LM_NOTICE;  ///< The notice stream.

/// Writes "<frame>: <message>" as UTF-8 and flushes; the message ends at its first zero character
/// and brings its own line end. A null stream writes nothing. Always returns true: output errors
/// are ignored. Writes narrow bytes, so other narrow writers to the same stream keep working.
VANTA_EXPORT bool ErrorLog(FILE* stream, const QString& message);

/// Closes LM_ERROR and LM_NOTICE unless null or standard error (once, if both name one file) and
/// sets both to null. Called when the System object is destroyed.
VANTA_EXPORT void closeLogStreams();

}  // namespace vanta
