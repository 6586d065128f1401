// Not API. Thin wrappers over the Linux futex calls used by the lock and waiting primitives.
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace vanta::futex {

// The futex word must be exactly a 32-bit integer in memory.
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));

inline uint32_t* address(std::atomic<uint32_t>& word) { return reinterpret_cast<uint32_t*>(&word); }

// An absolute CLOCK_MONOTONIC deadline ms milliseconds from now.
inline timespec deadlineAfter(unsigned long ms) {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    t.tv_sec += time_t(ms / 1000);
    t.tv_nsec += long(ms % 1000) * 1000000L;
    if (t.tv_nsec >= 1000000000L) {
        t.tv_sec += 1;
        t.tv_nsec -= 1000000000L;
    }
    return t;
}

// The monotonic clock in nanoseconds.
inline int64_t nowNs() {
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t(t.tv_sec) * 1000000000 + t.tv_nsec;
}

inline bool passed(const timespec& deadline) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// Sleeps while word == expected, until woken or the absolute monotonic deadline (null: none).
// Returns false only when the deadline passed.
inline bool wait(std::atomic<uint32_t>& word, uint32_t expected, const timespec* deadline) {
    long r = syscall(SYS_futex, address(word), FUTEX_WAIT_BITSET_PRIVATE, expected, deadline,
                     nullptr, FUTEX_BITSET_MATCH_ANY);
    return !(r == -1 && errno == ETIMEDOUT);
}

// Wakes up to count sleepers on word.
inline void wake(std::atomic<uint32_t>& word, int count) {
    syscall(SYS_futex, address(word), FUTEX_WAKE_PRIVATE, count, nullptr, nullptr, 0);
}

// A short pause inside a busy-wait loop.
inline void relax() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

}  // namespace vanta::futex
