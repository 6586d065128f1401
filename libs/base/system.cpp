// vanta::System: the process clock, frame timing, random numbers and the one System instance.
#include <vanta/system.h>
#include <vanta/system_p.h>

#include <vanta/datetime.h>
#include <vanta/locks.h>
#include <vanta/status.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <sys/time.h>

namespace vanta {
namespace {

// The instant getTime() counts from; written once by init_clock() during static
// initialisation, before any thread can read it.
timeval startTime = {0, 0};
// The start instant in DateTime::toSeconds() units.
double sStartTime = 0.0;

std::atomic<TimeSource> timeSource{nullptr};

// State of randf(); shared with seed() and unsynchronised by design.
double fseed = 0.0;

// Frame timing: rendering thread only. One record, so a reset is a fresh one.
struct FrameClock {
    double globalDT = 0.0;
    double frameRate = 0.0;  // 0.0: the rate is not fixed
    bool frameTimeSet = false;
    double frameTime = 0.0;
    int lastRender = 0;
};
FrameClock frame;

// getCurrTime's base: the system clock read once, and getTime() at that moment. currTimeInit
// is set (release) after the two are written under GlobalLock, so a reader that sees it set
// (acquire) sees them too.
std::atomic<int> currTimeInit{0};
std::int32_t baseTime = 0;
double baseTick = 0.0;

}  // namespace

void init_clock() { gettimeofday(&startTime, nullptr); }

void setTimeSourceForTesting(TimeSource source) { timeSource.store(source); }

void resetFrameTimingForTesting() { frame = FrameClock{}; }

void resetCurrTimeForTesting() {
    GlobalLock::lock();
    currTimeInit.store(0);
    GlobalLock::unlock();
}

System System::theSystem;
int System::sCurFrame = 0;
double System::sPlanetRadius = 6371000.0;
double System::sInvPlanetRadius = 1.5696123057604772e-07;

System::System() {
    init_clock();
    const time_t now = time(nullptr);
    seed(static_cast<unsigned int>(now));
    tm utc;
    gmtime_r(&now, &utc);
    DateTime start;
    start.set(utc.tm_year + 1900LL, utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min,
              utc.tm_sec);
    start.zoneHours = 0;
    start.zoneMinutes = 0;
    sStartTime = double(start.toSeconds());
}

System::~System() { closeLogStreams(); }

// ---- Random numbers ----

void System::seed(unsigned int s) {
    srand(s == 0 ? 3141592u : s);
    const int a = random(2, 10);
    fseed = 1.0 / a;
    const int b = random(2, 10);
    fseed += 1.0 / b;
}

int System::random(int lo, int hi) {
    if (hi < lo)
        return 0;
    if (hi == lo)
        return lo;  // an empty range has no member; lo is the nearest answer
    // In 64 bits: hi - lo can exceed the int range.
    return int(lo + rand() % (static_cast<long long>(hi) - lo));
}

double System::randf() {
    const double x = fseed + 3.141592653589793;
    const double y = x * x * x * x * x;
    // After seeding x lies in [pi, pi + 1], so y < 1300 and the truncation cannot overflow.
    fseed = y - static_cast<std::int32_t>(y);
    return fseed;
}

// ---- Frame timing ----

double System::getGlobalDT() { return frame.globalDT; }
double System::getFrameRate() { return frame.frameRate; }

void System::updateGlobalDT(bool rendering) {
    if (frame.frameRate != 0.0) {
        frame.globalDT = 1.0 / frame.frameRate;
        return;
    }
    if (!frame.frameTimeSet) {
        frame.frameTime = getTime();
        frame.frameTimeSet = true;
    }
    if (!rendering) {
        frame.lastRender = 0;
        return;
    }
    if (frame.lastRender == 0) {
        // The first rendered frame after a pause: the pause is not frame time.
        frame.lastRender = 1;
        frame.frameTime = getTime();
        return;
    }
    const double t = getTime();
    double d = t - frame.frameTime;
    if (d < 0.0)
        d = 0.0;  // the clock stepped back
    if (frame.frameTime != 0.0)
        frame.globalDT = d;
    frame.frameTime = t;
    if (frame.globalDT > 0.2)
        frame.globalDT = 0.2;  // a stall (debugger, swap) must not throw animations forward
}

void System::setFixedFrameRate(bool fixed, double rate) {
    frame.frameRate = fixed ? rate : 0.0;
    if (fixed)
        updateGlobalDT(false);
}

// ---- Clocks ----

double System::getTime() {
    if (const TimeSource source = timeSource.load(std::memory_order_relaxed))
        return source();
    timeval now;
    gettimeofday(&now, nullptr);
    const std::int32_t seconds = std::int32_t(now.tv_sec - startTime.tv_sec);
    const std::int32_t micros = std::int32_t(now.tv_usec - startTime.tv_usec);
    return seconds + micros / 1000000.0;
}

double System::getStartTime() { return sStartTime; }

int System::getCurrTime() {
    if (currTimeInit.load(std::memory_order_acquire) == 0) {
        GlobalLock::lock();
        if (currTimeInit.load(std::memory_order_relaxed) == 0) {
            baseTime = std::int32_t(time(nullptr));
            baseTick = getTime();
            currTimeInit.store(1, std::memory_order_release);
        }
        GlobalLock::unlock();
    }
    double d = getTime() - baseTick;
    // The elapsed time as an unsigned 32-bit count; out-of-range values (a clock that ran
    // backwards or for over a century) are clamped first so the conversion stays defined.
    if (d < -2147483648.0)
        d = -2147483648.0;
    if (d > 4294967295.0)
        d = 4294967295.0;
    std::uint32_t elapsed;
    if (d >= 2147483648.0)
        elapsed = std::uint32_t(std::int64_t(d - 2147483648.0)) | 0x80000000u;
    else
        elapsed = std::uint32_t(std::int64_t(d));
    return std::int32_t(std::uint32_t(baseTime) + elapsed);
}

unsigned long long System::getSystemTime() {
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<unsigned long long>(now.tv_sec) * 1000ULL +
           static_cast<unsigned long long>(now.tv_usec / 1000);
}

QString System::wasctime(tm* t) {
    char text[128];
    if (t == nullptr || asctime_r(t, text) == nullptr)
        return QString();
    return QString::fromUtf8(text);
}

QString System::wctime(const long* t) {
    static_assert(sizeof(long) == sizeof(time_t), "calendar times are longs here");
    char text[128];
    if (t == nullptr)
        return QString();
    const time_t when = time_t(*t);
    tzset();  // ctime_r alone does not notice a changed TZ
    if (ctime_r(&when, text) == nullptr)
        return QString();
    return QString::fromUtf8(text);
}

}  // namespace vanta
