// Test support shared by every suite: a scratch home, bounded waits and small helpers.
#pragma once

#include <QString>

#include <chrono>
#include <cstddef>
#include <functional>

namespace vantatest {

// The scratch folder the runner made for this process; HOME, XDG_*, TMPDIR point inside it.
QString scratchDir();

// Polls condition every millisecond until it holds or the limit passes; true when it held.
// Every wait in a test goes through a limit like this, so a deadlock fails instead of hanging.
bool waitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds limit = std::chrono::seconds(10));

// Caps this process's address space at what it maps now plus headroom bytes, so that large
// allocations fail as on a full machine. For death-test children only: the cap stays. False
// when it could not be set, and always under a sanitizer, whose shadow memory needs the room.
bool limitAddressSpace(std::size_t headroom);
// Whether limitAddressSpace can work in this build (checked before starting a child).
bool canLimitAddressSpace();

// Sets an environment variable for the life of the object, restoring the old value after.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value);  // null value: unset
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    QByteArray mName;
    QByteArray mOld;
    bool mHadOld;
};

}  // namespace vantatest

// A suite that needs widgets defines this once at file scope: VANTA_TEST_NEEDS_GUI();
// the runner then makes a QApplication (offscreen) instead of a QCoreApplication.
#define VANTA_TEST_NEEDS_GUI() \
    namespace vantatest { extern const bool kNeedsGui = true; }
