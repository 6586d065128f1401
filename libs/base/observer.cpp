// Intrusive observers: attaching, detaching and clearing observer lists.
#include <vanta/observer.h>

namespace vanta {

Observer::~Observer() { remove(); }

void Observer::attach(ObserverList& list) {
    remove();
    mList = &list;
    mNext = list.mHead;
    if (mNext)
        mNext->mPrev = this;
    list.mHead = this;
}

void Observer::remove() {
    if (!mList)
        return;
    if (mPrev)
        mPrev->mNext = mNext;
    else
        mList->mHead = mNext;
    if (mNext)
        mNext->mPrev = mPrev;
    mList = nullptr;
    mNext = nullptr;
    mPrev = nullptr;
}

int ObserverList::count() const {
    int n = 0;
    for (const Observer* o = mHead; o; o = o->mNext)
        ++n;
    return n;
}

void ObserverList::detachAll() {
    while (mHead)
        mHead->remove();
}

}  // namespace vanta
