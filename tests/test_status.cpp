// Tests of status codes: message tables, severity words, printable forms, registry and log lines.
#include <vanta/status.h>
#include <vanta/system.h>

#include "threadsupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QFile>
#include <QTranslator>

#include <cstdio>
#include <fcntl.h>
#include <utility>

using namespace vanta;

namespace {

constexpr unsigned int code(unsigned int severity, unsigned int subsys, unsigned int index) {
    return (severity << 30) | (subsys << 16) | index;
}

// A subsystem with a table of its own, as an application would define one.
class NetSubsys : public StatusSubsys {
public:
    NetSubsys(unsigned short number, const QString& name) : StatusSubsys(number, name) {}
    const QString& getErrorString(unsigned int c) const override {
        static const QString connectFailed = QStringLiteral("Connect failed"), other = "Other";
        return (c & 0xffff) == 11 ? connectFailed : other;
    }
};

}  // namespace

TEST(StatusApp, MessageTablesAndSeverityWords) {
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

    const char* const words[] = {"No Error", "Info", "Warning", "Error"};
    for (unsigned int severity = 0; severity < 4; ++severity)
        EXPECT_EQ(StatusGetSeverityString(code(severity, 0, 3)), QLatin1String(words[severity]));
    ASSERT_NE(appSubsys, nullptr);
    EXPECT_EQ(getSubsys(0), appSubsys) << "registered when the library was loaded";
    EXPECT_EQ(subsysTable.load()->getBucketCount(), 53u);
}

TEST(StatusPrintable, KeepsTheShiftedArgumentsAndTheAppendedHex) {
    NetSubsys net(5, QStringLiteral("NET"));
    NetSubsys marked(6, QStringLiteral("X%9"));
    NetSubsys zeroLed(7, QStringLiteral("X%09"));  // a two-digit marker may start with 0
    const std::pair<unsigned int, const char*> rows[] = {
        {code(3, 5, 11), "Error|NET|Error code Connect failed (0x   11) b"},
        {code(3, 0, 11), "Error|APP|Error code Connect failed (0x   11) b"},
        {code(1, 0, 1), "Info|APP|Error code Action already queued (0x    1) 1"},
        {code(0, 0, 0), "No Error|APP|Error code  (0x    0) 0"},
        {code(2, 0, 0xabcd), "Warning|APP|Error code  (0x43981) abcd"},
        // A marker brought in by an argument takes the extra argument, as before.
        {code(3, 6, 11), "Error|Xb|Error code Connect failed (0x   11)"},
        {code(3, 7, 11), "Error|Xb|Error code Connect failed (0x   11)"},
        {code(3, 0x3ffe, 2), "Could not decode error 0xfffe0002"},
        {0x00010000, "Could not decode error 0x10000"},
    };
    for (const auto& [c, expected] : rows)
        EXPECT_EQ(StatusGetPrintable(c), QString::fromUtf8(expected)) << std::hex << c;
}

TEST(StatusRegistry, FindsTheNewestOfANumberWhateverTheSeverity) {
    ASSERT_EQ(getSubsys(9), nullptr);
    EXPECT_EQ(StatusGetSubsysName(code(3, 9, 2)), QStringLiteral("Invalid"));
    EXPECT_EQ(StatusGetSeverityString(code(3, 9, 2)), QStringLiteral("Error"));
    EXPECT_TRUE(StatusGetErrorString(code(3, 9, 2)).isNull());

    NetSubsys older(9, QStringLiteral("OLD"));
    {
        NetSubsys newer(9, QStringLiteral("NEW"));
        EXPECT_EQ(getSubsys(9), &newer);
        for (unsigned int severity = 0; severity < 4; ++severity)
            EXPECT_EQ(StatusGetSubsysName(code(severity, 9, 0)), QStringLiteral("NEW"));
    }
    EXPECT_EQ(getSubsys(9), &older);
    EXPECT_EQ(StatusGetSubsysName(code(3, 9, 0)), QStringLiteral("OLD"));

    NetSubsys blank(4243, QStringLiteral(""));  // empty, not null: the name test is isEmpty
    EXPECT_EQ(StatusGetSubsysName(code(3, 4243, 0)), QStringLiteral("Unknown (4243)"));
}

TEST(StatusRegistry, TwoThreadsRegisterAtOnce) {
    // Each thread keeps adding and removing subsystems of its own number; the registry's lock
    // keeps the shared table whole (the thread sanitizer runs this suite too).
    vantatest::runThreads(2, [](int t) {
        const unsigned short number = static_cast<unsigned short>(700 + t);
        for (int n = 0; n < 2000; ++n) {
            NetSubsys subsys(number, QStringLiteral("T"));
            EXPECT_EQ(getSubsys(number), &subsys);
        }
    });
    EXPECT_EQ(getSubsys(700), nullptr);
    EXPECT_EQ(getSubsys(701), nullptr);
}

// A fresh process (the "threadsafe" style re-runs this test alone), so the tables are first read
// after the translator is installed.
TEST(StatusTranslationDeathTest, TablesAndWordsAreTranslatedButNotTheInfoTexts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    struct Marking : QTranslator {
        // The printable form's translation moves the hex code to the front, so the marker left
        // for it sits at the first character.
        QString translate(const char*, const char* text, const char*, int) const override {
            const QString marked = QStringLiteral("<%1>").arg(QString::fromUtf8(text));
            if (!marked.startsWith(u"<%1|"))
                return marked;
            return percentLast ? marked + u'%' : QStringLiteral("%5 ") + marked;
        }
        // Then one that ends in a bare percent sign, leaving no marker for the hex code.
        bool percentLast = false;
        bool isEmpty() const override { return false; }
    };
    const auto mismatches = [] {
        static Marking marking;
        QCoreApplication::installTranslator(&marking);
        const std::pair<QString, const char*> rows[] = {
            {StatusGetErrorString(code(3, 0, 0)), "<Invalid argument>"},
            {StatusGetErrorString(code(3, 0, 22)), "<Attempt to read past end of file>"},
            {StatusGetErrorString(code(1, 0, 0)), "Action in progress"},
            {StatusGetSeverityString(code(2, 0, 0)), "<Warning>"},
            {StatusGetSubsysName(code(3, 9, 0)), "<Invalid>"},
            {StatusGetPrintable(code(3, 0, 6)), "6 <<Error>|APP|Error code <File not found> (0x    6)>"},
            {(marking.percentLast = true, StatusGetPrintable(code(3, 0, 6))),
             "<<Error>|APP|Error code <File not found> (0x    6)>% 6"},
        };
        int wrong = 0;
        for (const auto& [got, expected] : rows) {
            if (got != QString::fromUtf8(expected)) {
                std::fprintf(stderr, "got \"%s\", expected \"%s\"\n", got.toUtf8().constData(),
                             expected);
                ++wrong;
            }
        }
        return wrong;
    };
    EXPECT_EXIT(std::_Exit(mismatches()), ::testing::ExitedWithCode(0), "");
}

TEST(ErrorLog, WritesNarrowUtf8LinesAndClosesASharedFileOnce) {
    const QString path = vantatest::scratchDir() + "/log.txt";
    FILE* file = std::fopen(QFile::encodeName(path).constData(), "w");
    ASSERT_NE(file, nullptr);
    LM_ERROR = LM_NOTICE = file;
    const int savedFrame = System::sCurFrame;
    const std::pair<int, QString> rows[] = {
        {42, QStringLiteral("hello\n")}, {-3, QStringLiteral("Grüße 東京 🌍\n")},
        {7, QStringLiteral("cut") + QChar(0) + QStringLiteral("after\n")}, {0, QString()},
        // Lone surrogates, high and low, at the start, middle and end.
        {1, QChar(0xDC00) + QStringLiteral("a") + QChar(0xD800) + QStringLiteral("b") +
                QChar(0xD83C)}};
    for (const auto& [frame, message] : rows) {
        System::sCurFrame = frame;
        EXPECT_TRUE(ErrorLog(file, message));
    }
    System::sCurFrame = savedFrame;
    std::fprintf(file, "narrow after\n");  // a wide write would have made this vanish
    closeLogStreams();  // closes the one file once (a second fclose is a use after free)
    EXPECT_EQ(LM_ERROR, nullptr);
    EXPECT_EQ(LM_NOTICE, nullptr);
    QFile written(path);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(),
              QStringLiteral("42: hello\n-3: Grüße 東京 🌍\n7: cut0: 1: \uFFFDa\uFFFDb\uFFFD"
                             "narrow after\n")
                  .toUtf8());
    EXPECT_TRUE(ErrorLog(nullptr, QStringLiteral("nowhere\n")));

    // Standard error is never closed, and a missing stream is skipped; both ways round.
    for (const auto& [error, notice] : {std::pair<FILE*, FILE*>{stderr, nullptr}, {nullptr, stderr}}) {
        LM_ERROR = error;
        LM_NOTICE = notice;
        closeLogStreams();
        EXPECT_EQ(LM_ERROR, error);
        EXPECT_EQ(LM_NOTICE, notice);
    }
    EXPECT_NE(fcntl(2, F_GETFD), -1) << "standard error was closed";
    LM_ERROR = LM_NOTICE = stderr;
}
