// Tests of System's clock, frame timing, random numbers and local time zone, with a controlled
// clock where time must pass.
#include <vanta/datetime.h>
#include <vanta/system.h>
#include <vanta/system_p.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <set>
#include <thread>
#include <vector>

using namespace vanta;

namespace {

// The controlled clock: System::getTime() reads fakeNow while a FakeClock exists.
std::atomic<double> fakeNow{0.0};

class FakeClock {
public:
    explicit FakeClock(double start) {
        fakeNow = start;
        setTimeSourceForTesting([] { return fakeNow.load(); });
        resetFrameTimingForTesting();
    }
    ~FakeClock() {
        setTimeSourceForTesting(nullptr);
        resetFrameTimingForTesting();
    }
    void advance(double seconds) { fakeNow = fakeNow + seconds; }
};

// After seed(s): 50 integers of random(0, 1000), then 200 values of randf, with calls to rand()
// between them when disturb is set.
std::vector<double> draw(unsigned int s, bool disturb = false) {
    System::seed(s);
    std::vector<double> values;
    for (int i = 0; i < 50; ++i)
        values.push_back(System::random(0, 1000));
    for (int i = 0; i < 200; ++i) {
        if (disturb)
            rand();
        values.push_back(System::randf());
    }
    return values;
}

}  // namespace

TEST(Random, SeedingSequencesAndRanges) {
    EXPECT_EQ(draw(42), draw(42));
    EXPECT_EQ(draw(42, true), draw(42)) << "randf is independent of rand()";
    EXPECT_EQ(draw(0), draw(3141592));
    EXPECT_NE(draw(42), draw(43));

    System::seed(977);
    std::set<double> distinct;
    for (int i = 0; i < 1000; ++i) {
        const double value = System::randf();
        ASSERT_TRUE(value >= 0.0 && value < 1.0) << value;
        distinct.insert(value);
    }
    EXPECT_GT(distinct.size(), 990u) << "the generator must not settle into a short cycle";

    std::set<int> seen;
    for (int i = 0; i < 10000; ++i)
        seen.insert(System::random(2, 10));
    EXPECT_EQ(seen, (std::set<int>{2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(System::random(5, 4), 0);
    EXPECT_EQ(System::random(3, 3), 3);
    for (int i = 0; i < 1000; ++i)
        ASSERT_LT(System::random(-2147483647 - 1, 2147483647), 2147483647);
}

TEST(FrameTiming, MeasuresRenderedFramesClampsSkipsPausesAndObeysAFixedRate) {
    FakeClock clock(100.0);
    enum Call { kRender, kPause, kFix30, kUnfix };
    const struct {
        const char* what;
        double advance;  // seconds the clock moves before the call
        Call call;
        double globalDT;  // after the call
    } steps[] = {
        {"a fixed rate before any frame", 0.0, kFix30, 1.0 / 30},
        {"unfixed, it stays", 0.0, kUnfix, 1.0 / 30},
        {"the first rendered frame only starts the timer", 0.5, kRender, 1.0 / 30},
        {"a normal frame", 0.016, kRender, 0.016},
        {"another", 0.020, kRender, 0.020},
        {"a 3 s stall is clamped", 3.0, kRender, 0.2},
        {"the clock steps back", -1.0, kRender, 0.0},
        {"measures again after the step", 0.010, kRender, 0.010},
        {"a pause keeps the last frame time", 5.0, kPause, 0.010},
        {"still paused", 5.0, kPause, 0.010},
        {"first frame after the pause restarts", 7.0, kRender, 0.010},
        {"then frames are measured from there", 0.030, kRender, 0.030},
        {"a fixed rate applies at once", 0.0, kFix30, 1.0 / 30},
        {"and overrides rendered frames", 1.0, kRender, 1.0 / 30},
        {"and pauses", 1.0, kPause, 1.0 / 30},
        {"unfixing keeps it until a frame is measured", 0.0, kUnfix, 1.0 / 30},
        {"the fixed period did not move the frame timer", 0.05, kRender, 0.2},
        {"then frames are measured again", 0.05, kRender, 0.05},
    };
    bool fixed = false;
    for (const auto& step : steps) {
        clock.advance(step.advance);
        if (step.call == kFix30 || step.call == kUnfix) {
            fixed = step.call == kFix30;
            System::setFixedFrameRate(fixed, fixed ? 30.0 : 60.0);
        } else {
            System::updateGlobalDT(step.call == kRender);
        }
        ASSERT_NEAR(System::getGlobalDT(), step.globalDT, 1e-9) << step.what;
        ASSERT_EQ(System::getFrameRate(), fixed ? 30.0 : 0.0) << step.what;
    }
}

TEST(Clock, ProcessClockStartsAtLoadAndAdvances) {
    const double t0 = System::getTime();
    EXPECT_TRUE(t0 >= 0.0 && t0 < 600.0) << t0 << " s: counted from library load";
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    const double elapsed = System::getTime() - t0;
    EXPECT_TRUE(elapsed >= 0.025 && elapsed < 10.0) << elapsed;
    EXPECT_NEAR(double(System::getSystemTime()), double(time(nullptr)) * 1000.0, 2000.0);
    DateTime epoch;
    epoch.set(1970, 1, 1, 0, 0, 0);
    EXPECT_NEAR(System::getStartTime() - double(epoch.toSeconds()),
                double(time(nullptr)) - System::getTime(), 2.0)
        << "the start instant is the load time, in UTC";
}

TEST(Clock, WallClockIsReadOnceThenAdvancedByTheProcessClock) {
    FakeClock clock(1000.0);
    resetCurrTimeForTesting();
    std::atomic<int> ready{0};
    std::vector<int> results(8, 0);
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&, i] {
            ++ready;  // start together, so the threads race to take the base
            vantatest::waitUntil([&] { return ready.load() == 8; });
            results[i] = System::getCurrTime();
        });
    for (std::thread& t : threads)
        t.join();
    EXPECT_EQ(std::set<int>(results.begin(), results.end()).size(), 1u) << "one base for all threads";
    const int base = results[0];
    EXPECT_NEAR(double(base), double(time(nullptr)), 2.0);
    clock.advance(100.75);
    EXPECT_EQ(System::getCurrTime(), base + 100);
    clock.advance(-200.0);
    EXPECT_EQ(System::getCurrTime(), base - 99);
    clock.advance(3000000000.0);
    EXPECT_EQ(unsigned(System::getCurrTime()), unsigned(base) + 2999999900u) << "past 2^31 s";
    resetCurrTimeForTesting();
}

// TZ changes without a tzset() from the test: the library must notice them itself.
TEST(Clock, LocalTimeZoneFollowsTz) {
    const long january = 1105920000;  // 2005-01-17 00:00 UTC
    const long july = 1121558400;     // 2005-07-17 00:00 UTC
    const struct {
        const char* tz;
        long when;  // 0: now, through getLocalTimeZone
        int hours, minutes;
    } rows[] = {
        {"UTC0", 0, 0, 0},
        {"IST-5:30", 0, 5, 30},
        {"NST+5:30", 0, -5, -30},                // UTC-05:30
        {"XST-0:30", 0, 0, 30},                  // less than an hour east: no hour to carry
        {"XST+0:30", 0, 0, -30},
        {"XST-5:00", 0, 5, 0},
        {"XST-1XDT,J1/0,J365/25", 0, 2, 0},      // UTC+01:00 with daylight saving all year
        {"CET-1CEST,M3.5.0,M10.5.0/3", january, 1, 0},
        {"CET-1CEST,M3.5.0,M10.5.0/3", july, 2, 0},
        {"NST3:30NDT,M3.2.0,M11.1.0", january, -3, -30},
        {"NST3:30NDT,M3.2.0,M11.1.0", july, -2, -30},
    };
    for (const auto& row : rows) {
        vantatest::ScopedEnv tz("TZ", row.tz);
        int hours = 99, minutes = 99;
        const int result = row.when ? localTimeZoneAt(row.when, hours, minutes)
                                    : System::getLocalTimeZone(hours, minutes);
        ASSERT_EQ(result, 0) << row.tz;
        EXPECT_EQ(hours, row.hours) << row.tz << " at " << row.when;
        EXPECT_EQ(minutes, row.minutes) << row.tz << " at " << row.when;
    }
}

TEST(Clock, CTimeTexts) {
    tm t = {};
    t.tm_year = 105, t.tm_mon = 2, t.tm_mday = 17, t.tm_hour = 8, t.tm_min = 30, t.tm_wday = 4;
    EXPECT_EQ(System::wasctime(&t), "Thu Mar 17 08:30:00 2005\n");
    t.tm_year = 2147483647;
    EXPECT_TRUE(System::wasctime(&t).isNull()) << "a year asctime cannot print";

    const long epoch = 0, farFuture = 0x7fffffffffffffffL;
    for (const auto& [tz, text] : {std::pair{"UTC0", "Thu Jan  1 00:00:00 1970\n"},
                                   std::pair{"IST-5:30", "Thu Jan  1 05:30:00 1970\n"}}) {
        vantatest::ScopedEnv zone("TZ", tz);
        EXPECT_EQ(System::wctime(&epoch), text);
    }
    EXPECT_TRUE(System::wctime(&farFuture).isNull());
}
