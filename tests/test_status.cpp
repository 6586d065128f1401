// Tests of status codes: message tables, severity words, printable forms, registry and log lines.
#include <vanta/status.h>
#include <vanta/system.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <QFile>

#include <cstdio>

using namespace vanta;

namespace {

constexpr unsigned int code(unsigned int severity, unsigned int subsys, unsigned int index) {
    return (severity << 30) | (subsys << 16) | index;
}

// A subsystem with a small table of its own, as an application would define one.
class NetSubsys : public StatusSubsys {
public:
    explicit NetSubsys(unsigned short number = 5, const QString& name = QStringLiteral("NET"))
        : StatusSubsys(number, name) {}
    const QString& getErrorString(unsigned int c) const override {
        static const QString connectFailed = QStringLiteral("Connect failed");
        static const QString other = QStringLiteral("Other");
        return (c & 0xffff) == 11 ? connectFailed : other;
    }
};

// Reads a whole file written through a FILE*.
QByteArray readAll(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<unreadable>");
}

}  // namespace

TEST(StatusApp, MessageTablesByCode) {
    const char* const errors[] = {
        "Invalid argument", "Object already active", "Cache node not valid", "No reference held",
        "Decode failed", "No more memory", "File not found", "File open failed", "I/O failed",
        "No sockets available", "Hostname not valid", "Connect failed", "Socket not connected",
        "Socket receive timed out", "Received invalid response", "Texture already defined",
        "Object already exists", "Entry is defunct", "Not implemented", "Requested URL not found",
        "Requested URL not valid", "", "Attempt to read past end of file",
    };
    static_assert(std::size(errors) == StatusSubsysApp::kErrorCount);
    for (unsigned int i = 0; i < StatusSubsysApp::kErrorCount; ++i)
        EXPECT_EQ(StatusGetErrorString(code(3, 0, i)), QString::fromUtf8(errors[i])) << i;

    EXPECT_EQ(StatusGetErrorString(code(1, 0, 0)), QStringLiteral("Action in progress"));
    EXPECT_EQ(StatusGetErrorString(code(1, 0, 1)), QStringLiteral("Action already queued"));
    for (unsigned int c : {code(0, 0, 0), code(0, 0, 5), code(2, 0, 0), code(2, 0, 11)})
        EXPECT_TRUE(StatusGetErrorString(c).isNull()) << std::hex << c;

    // The library's own returns keep their numbers whatever the row says.
    EXPECT_EQ(StatusGetErrorString(0xc0000002), QStringLiteral("Cache node not valid"));
    EXPECT_EQ(StatusGetErrorString(0xc0000001), QStringLiteral("Object already active"));
    EXPECT_EQ(StatusGetErrorString(0xc0000008), QStringLiteral("I/O failed"));
}

TEST(StatusApp, SeverityWordsAndNames) {
    const char* const words[] = {"No Error", "Info", "Warning", "Error"};
    for (unsigned int severity = 0; severity < 4; ++severity) {
        const unsigned int c = code(severity, 0, 3);
        EXPECT_EQ(getSeverityString(c), QString::fromUtf8(words[severity]));
        EXPECT_EQ(StatusGetSeverityString(c), QString::fromUtf8(words[severity]));
    }
    EXPECT_EQ(StatusGetSubsysName(code(3, 0, 0)), QStringLiteral("APP"));
    ASSERT_NE(appSubsys, nullptr);
    EXPECT_EQ(getSubsys(0), appSubsys) << "registered when the library was loaded";
    EXPECT_EQ(subsysTable.load()->getBucketCount(), 53u);
}

TEST(StatusPrintable, KeepsTheShiftedArgumentsAndTheAppendedHex) {
    NetSubsys net;
    NetSubsys marked(6, QStringLiteral("X%9"));
    const struct {
        unsigned int code;
        const char* expected;
    } rows[] = {
        {code(3, 5, 11), "Error|NET|Error code Connect failed (0x   11) b"},
        {code(3, 0, 11), "Error|APP|Error code Connect failed (0x   11) b"},
        {code(1, 0, 1), "Info|APP|Error code Action already queued (0x    1) 1"},
        {code(0, 0, 0), "No Error|APP|Error code  (0x    0) 0"},
        {code(2, 0, 0xabcd), "Warning|APP|Error code  (0x43981) abcd"},
        // A marker brought in by an argument takes the extra argument, as before.
        {code(3, 6, 11), "Error|Xb|Error code Connect failed (0x   11)"},
        {code(3, 0x3ffe, 2), "Could not decode error 0xfffe0002"},
        {code(3, 0x1234, 2), "Could not decode error 0xd2340002"},
        {0x00010000, "Could not decode error 0x10000"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(StatusGetPrintable(row.code), QString::fromUtf8(row.expected)) << std::hex << row.code;
}

TEST(StatusRegistry, UnregisteredNumbersAreNotErrors) {
    const unsigned int c = 0xc0050002;
    ASSERT_EQ(getSubsys(5), nullptr);
    EXPECT_EQ(StatusGetSubsysName(c), QStringLiteral("Invalid"));
    EXPECT_EQ(StatusGetSeverityString(c), QStringLiteral("Error"));
    EXPECT_TRUE(StatusGetErrorString(c).isNull());
}

TEST(StatusRegistry, SeverityBitsTakeNoPartInTheLookup) {
    NetSubsys seven(7, QStringLiteral("SEVEN"));
    EXPECT_EQ(StatusGetSubsysName(0x40000000 | (7 << 16)), QStringLiteral("SEVEN"));
    EXPECT_EQ(StatusGetSubsysName(0xc0000000 | (7 << 16)), QStringLiteral("SEVEN"));
    EXPECT_EQ(StatusGetSubsysName(7 << 16), QStringLiteral("SEVEN"));
}

TEST(StatusRegistry, NewestOfOneNumberWinsThenTheOlderAgain) {
    NetSubsys older(9, QStringLiteral("OLD"));
    {
        NetSubsys newer(9, QStringLiteral("NEW"));
        EXPECT_EQ(getSubsys(9), &newer);
        EXPECT_EQ(StatusGetSubsysName(code(3, 9, 0)), QStringLiteral("NEW"));
    }
    EXPECT_EQ(getSubsys(9), &older);
    EXPECT_EQ(StatusGetSubsysName(code(3, 9, 0)), QStringLiteral("OLD"));
}

TEST(StatusRegistry, EmptyNamesBecomeUnknown) {
    NetSubsys nameless(4242, QString());
    NetSubsys blank(4243, QStringLiteral(""));
    EXPECT_EQ(nameless.name, QStringLiteral("Unknown (4242)"));
    EXPECT_EQ(StatusGetSubsysName(code(3, 4243, 0)), QStringLiteral("Unknown (4243)"));
}

TEST(ErrorLog, WritesFrameAndUtf8Text) {
    const QString path = vantatest::scratchDir() + "/log.txt";
    FILE* file = std::fopen(QFile::encodeName(path).constData(), "w");
    ASSERT_NE(file, nullptr);
    const int savedFrame = System::sCurFrame;
    const struct {
        int frame;
        QString message;
    } rows[] = {
        {42, QStringLiteral("hello\n")},
        {-3, QStringLiteral("Grüße 東京 🌍\n")},
        {7, QStringLiteral("cut") + QChar(0) + QStringLiteral("after\n")},
        {0, QString()},
    };
    for (const auto& row : rows) {
        System::sCurFrame = row.frame;
        EXPECT_TRUE(ErrorLog(file, row.message));
    }
    System::sCurFrame = savedFrame;
    std::fprintf(file, "narrow after\n");  // a wide write would have made this vanish
    std::fclose(file);
    EXPECT_EQ(readAll(path), QStringLiteral("42: hello\n-3: Grüße 東京 🌍\n7: cut0: narrow after\n")
                                 .toUtf8());
    EXPECT_TRUE(ErrorLog(nullptr, QStringLiteral("nowhere\n")));
}

TEST(ErrorLog, ClosesFileStreamsOnceAndLeavesStandardError) {
    const QString path = vantatest::scratchDir() + "/both.txt";
    FILE* file = std::fopen(QFile::encodeName(path).constData(), "w");
    ASSERT_NE(file, nullptr);
    LM_ERROR = file;
    LM_NOTICE = file;  // one file for both: closed once
    System::sCurFrame = 5;
    ErrorLog(LM_NOTICE, QStringLiteral("notice\n"));
    ErrorLog(LM_ERROR, QStringLiteral("error\n"));
    System::sCurFrame = 0;
    closeLogStreams();
    EXPECT_EQ(LM_ERROR, nullptr);
    EXPECT_EQ(LM_NOTICE, nullptr);
    EXPECT_EQ(readAll(path), QByteArray("5: notice\n5: error\n"));

    LM_ERROR = stderr;
    LM_NOTICE = nullptr;
    closeLogStreams();
    EXPECT_EQ(LM_ERROR, stderr);
    EXPECT_EQ(LM_NOTICE, nullptr);
    LM_NOTICE = stderr;
}
