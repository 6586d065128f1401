// Test support: scratch folder, bounded waits and environment guards.
#include "testsupport.h"

#include <QByteArray>

#include <cstdlib>
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
