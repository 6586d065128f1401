// Cache observer: byte reporting, list membership and the least-recently-used choice.
#include <vanta/cacheobserver.h>

#include <vanta/system.h>

namespace vanta {

CacheObserver::Cache* CacheObserver::sGlobalCache = nullptr;

CacheObserver::CacheObserver() {
    if (sGlobalCache)
        attach(*sGlobalCache->getObserverList());
}

CacheObserver::~CacheObserver() = default;

int CacheObserver::getLru(Event& event) {
    const int frame = getLastUsedFrame(event);
    if (frame < 0)
        return frame;
    // 64-bit arithmetic: the frame counter minus 4 must not overflow near INT_MIN.
    const bool old = static_cast<long long>(frame) < static_cast<long long>(System::sCurFrame) - 4;
    if (event.takeAny != 0 || (old && frame < event.bestFrame)) {
        event.bestFrame = frame;
        event.bestObserver = this;
    }
    return frame;
}

void CacheObserver::changeUnpooledBytes(int delta) {
    mUnpooledBytes += delta;
    if (mReclaimable && sGlobalCache)
        sGlobalCache->changeReclaimableBytes(delta);
}

void CacheObserver::setIsReclaimable(bool reclaimable) {
    if (reclaimable == mReclaimable)
        return;
    mReclaimable = reclaimable;
    if (!reclaimable) {
        if (sGlobalCache)
            sGlobalCache->changeReclaimableBytes(-mUnpooledBytes);
        remove();
    } else if (sGlobalCache) {
        attach(*sGlobalCache->getObserverList());
        sGlobalCache->changeReclaimableBytes(mUnpooledBytes);
    }
}

}  // namespace vanta
