/// \file
/// Cache observer: the base of objects whose memory a process-wide cache may reclaim, and the
/// interface that cache offers.
#pragma once

#include <vanta/export.h>
#include <vanta/observer.h>

#include <climits>

namespace vanta {

/// An object holding memory outside the pools that the global cache may reclaim. It reports its
/// unpooled bytes to the cache while it is reclaimable, sits on the cache's observer list while it
/// is reclaimable, and answers the cache's least-recently-used query. A concrete observer brings
/// its unpooled bytes to 0 (or clears reclaimable) before it dies: destruction only detaches.
///
/// Not thread-safe: the cache and its observers belong to the thread that advances the frame.
class VANTA_EXPORT CacheObserver : public Observer {
public:
    /// The query record the cache passes down its observer list.
    struct Event {
        int bestFrame = INT_MAX;  ///< oldest last-used frame found so far
        CacheObserver* bestObserver = nullptr;  ///< the observer that last-used it
        void* cacheData = nullptr;  ///< the cache's own; never read here
        int takeAny = 0;            ///< non-zero: any observer will do, recency is not protected
    };

    /// The process-wide cache, implemented by client code.
    class Cache {
    public:
        /// Adjusts the cache's count of reclaimable bytes by delta.
        virtual void changeReclaimableBytes(int delta) = 0;
        /// The cache's observer list; every entry on it is a CacheObserver.
        virtual ObserverList* getObserverList() = 0;

    protected:
        ~Cache() = default;
    };

    /// The global cache, or null when there is none.
    static Cache* sGlobalCache;

    /// Joins the global cache's list (at its head) when there is a cache. Unpooled bytes 0,
    /// reclaimable, enabled.
    CacheObserver();
    /// Detaches; reports nothing to the cache.
    ~CacheObserver() override;

    /// Considers this observer for the event's least recently used one. Returns the frame of its
    /// last use, or the negative answer of an observer with nothing to offer (which is never
    /// chosen). Without takeAny only objects unused for the current and 4 previous frames
    /// qualify, and the oldest wins (the first found on a tie); with takeAny the last one wins.
    virtual int getLru(Event& event);

    /// Frees what this object holds; for the cache to call on the chosen observer. Not called by
    /// this library.
    virtual void reclaim(Event& event) = 0;
    /// The frame at which the object was last used, or a negative number when it has nothing
    /// to offer.
    virtual int getLastUsedFrame(Event& event) = 0;

    /// Adds delta to the unpooled bytes; reports the same delta to the cache when reclaimable.
    void changeUnpooledBytes(int delta);
    /// Switching off withdraws the unpooled bytes from the cache and leaves its list; switching
    /// on rejoins the list at its head and reports the bytes again. Same value: nothing happens.
    void setIsReclaimable(bool reclaimable);

    /// Bytes this observer holds outside the pools.
    int getUnpooledBytes() const { return mUnpooledBytes; }
    /// True while the cache may reclaim this observer's bytes.
    bool isReclaimable() const { return mReclaimable; }

private:
    int mUnpooledBytes = 0;
    bool mReclaimable = true;
};

}  // namespace vanta
