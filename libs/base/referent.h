/// \file
/// vanta::Referent: the reference-counted base class of the library's shared values.
#pragma once

#include <vanta/export.h>
#include <vanta/memory.h>

#include <atomic>

namespace vanta {

/// A base for objects shared by counted references. The count starts at 0 and belongs to the
/// object, not to its value: copying or assigning a Referent never copies the count, so a copy
/// starts unshared. Heap instances go through doNew/doDelete (MemoryObject).
class VANTA_EXPORT Referent : public MemoryObject {
public:
    Referent() : mRefCount(0) {}
    Referent(const Referent&) : mRefCount(0) {}  ///< Starts unshared: the count is not copied.
    /// Keeps this object's own count.
    Referent& operator=(const Referent&) { return *this; }
    virtual ~Referent() = default;

    /// Adds one reference. Safe from any thread.
    void ref() const { mRefCount.fetch_add(1, std::memory_order_relaxed); }
    /// Drops one reference and deletes the object (it must be on the heap) when that was the last
    /// one. Returns the count left. Safe from any thread.
    int unref() const {
        const int left = mRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        if (left == 0)
            delete this;
        return left;
    }
    /// The current count; a snapshot when other threads hold references too.
    int getRefCount() const { return mRefCount.load(std::memory_order_relaxed); }

private:
    mutable std::atomic<int> mRefCount;
};

}  // namespace vanta
