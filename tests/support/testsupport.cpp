// Test support: scratch folder, bounded waits and environment guards.
#include "testsupport.h"

#include <QByteArray>

#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <unistd.h>
#include <thread>

namespace vantatest {

QString gScratchDir;

QString scratchDir() { return gScratchDir; }

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool canLimitAddressSpace() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

bool limitAddressSpace(std::size_t headroom) {
    std::size_t pages = 0;
    FILE* statm = std::fopen("/proc/self/statm", "r");
    const bool read = statm && std::fscanf(statm, "%zu", &pages) == 1;
    if (statm)
        std::fclose(statm);
    if (!read || !canLimitAddressSpace())
        return false;
    const rlimit limit{pages * std::size_t(sysconf(_SC_PAGESIZE)) + headroom, RLIM_INFINITY};
    return setrlimit(RLIMIT_AS, &limit) == 0;
}

ScopedEnv::ScopedEnv(const char* name, const char* value)
    : mName(name), mHadOld(std::getenv(name) != nullptr) {
    if (mHadOld)
        mOld = std::getenv(name);
    if (value)
        setenv(name, value, 1);
    else
        unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (mHadOld)
        setenv(mName.constData(), mOld.constData(), 1);
    else
        unsetenv(mName.constData());
}

}  // namespace vantatest
