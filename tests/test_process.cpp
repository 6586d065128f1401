// Tests of vanta::Process with real children.
#include <vanta/library.h>

#include "testsupport.h"

#include <QFile>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <chrono>
#include <future>
#include <unistd.h>

using namespace vanta;

namespace {

Process shell(const char* script) {
    return Process(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), QString::fromUtf8(script)});
}

// The pid a child wrote into a file (it writes "$$" before exec'ing, so it is the pid of the
// program that runs last); 0 when it never appeared.
pid_t pidFrom(const QString& path) {
    QByteArray text;
    vantatest::waitUntil([&] {
        QFile f(path);
        text = f.open(QIODevice::ReadOnly) ? f.readAll().trimmed() : QByteArray();
        return !text.isEmpty();
    });
    return pid_t(text.toInt());
}

bool pidGone(pid_t pid) { return ::kill(pid, 0) != 0 && errno == ESRCH; }

}  // namespace

TEST(Process, ExitStatusesAndArguments) {
    // The last: argv[0] is the program as given.
    const std::pair<const char*, int> rows[] = {
        {"exit 0", 0}, {"exit 3", 3}, {"exit 255", 255}, {"test \"$0\" = /bin/sh", 0}};
    for (const auto& [script, status] : rows) {
        Process child = shell(script);
        child.block();
        EXPECT_FALSE(child.isRunning()) << script;
        EXPECT_EQ(child.status(), status) << script;
    }
    // Arguments arrive one by one, spaces and quotes intact; "sh" is looked up on PATH.
    Process quoting(QStringLiteral("sh"),
                    {QStringLiteral("-c"), QStringLiteral("test \"$1\" = 'a b\"c' && exit 7"),
                     QStringLiteral("sh"), QStringLiteral("a b\"c")});
    quoting.block();
    EXPECT_EQ(quoting.status(), 7);
}

TEST(Process, KillEndsASleepingChild) {
    Process child(QStringLiteral("sleep"), {QStringLiteral("30")});
    EXPECT_TRUE(child.isRunning());
    child.kill();
    // The end is seen by polling alone, without block().
    ASSERT_TRUE(vantatest::waitUntil([&] { return !child.isRunning(); }));
    EXPECT_EQ(child.status(), SIGTERM);
    child.kill();  // after the end: harmless
    child.block();
}

TEST(Process, DestructorEndsAndReapsTheChild) {
    // The second child ignores SIGTERM (an ignored signal stays ignored across exec).
    for (const char* script : {"echo $$ > \"$1\"; exec sleep 30",
                               "trap '' TERM; echo $$ > \"$1\"; exec sleep 30"}) {
        const QString pidFile = vantatest::scratchDir() + "/process.pid";
        QFile::remove(pidFile);
        auto* child = new Process(QStringLiteral("/bin/sh"),
                                  {QStringLiteral("-c"), QString::fromUtf8(script),
                                   QStringLiteral("sh"), pidFile});
        const pid_t pid = pidFrom(pidFile);
        ASSERT_GT(pid, 0) << script;
        auto done = std::async(std::launch::async, [child] { delete child; });
        ASSERT_EQ(done.wait_for(std::chrono::seconds(20)), std::future_status::ready) << script;
        EXPECT_TRUE(pidGone(pid)) << script;  // ended and reaped: not even a zombie is left
    }
}

TEST(Process, ProgramThatCannotStart) {
    testing::internal::CaptureStderr();
    Process child(QStringLiteral("/no/such/program"), {});
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("Failed to start \"/no/such/program\": "), std::string::npos) << said;
    EXPECT_FALSE(child.isRunning());
    child.block();  // returns at once; kill() is checked in a group of its own below
    EXPECT_EQ(child.status(), 127);
}

// With SIGCHLD ignored the system reaps children itself and waiting for one fails: the child
// counts as ended instead of being waited for for ever.
TEST(ProcessDeathTest, AChildTheSystemReapedHasEnded) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        alarm(10);  // a hang fails the test instead of stalling it
        std::signal(SIGCHLD, SIG_IGN);
        Process child(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("exit 3")});
        child.block();
        return child.isRunning() ? 1 : 0;
    };
    EXPECT_EXIT(std::_Exit(run()), ::testing::ExitedWithCode(0), "");
}

// kill() on a program that never started, or after the end, signals nothing: pid 0 there would
// reach the caller's whole process group. The child leads a group of its own to keep it there.
TEST(ProcessDeathTest, KillWithNoChildSignalsNobody) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [] {
        alarm(10);
        setpgid(0, 0);
        std::signal(SIGTERM, SIG_DFL);
        Process never(QStringLiteral("/no/such/program"), {});
        never.kill();
        Process ended(QStringLiteral("sh"), {QStringLiteral("-c"), QStringLiteral("exit 0")});
        ended.block();
        ended.kill();
        return 0;
    };
    EXPECT_EXIT(std::_Exit(run()), ::testing::ExitedWithCode(0), "");
}
