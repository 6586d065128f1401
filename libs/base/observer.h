/// \file
/// Intrusive observers: Observer, a doubly linked list member, and ObserverList, its subject's
/// head.
#pragma once

#include <vanta/export.h>
#include <vanta/memory.h>

namespace vanta {

class ObserverList;

/// Base class of every observer. The links live in the observer itself, so attaching and
/// detaching never allocate. An observer belongs to at most one list at a time.
///
/// Not thread-safe: a subject and its observers belong to one thread.
class VANTA_EXPORT Observer : public MemoryObject {
public:
    /// A detached, enabled observer.
    Observer() = default;
    /// Detaches from the list it is on, if any.
    virtual ~Observer();

    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    /// Inserts this observer at the head of list (it is notified before the older ones),
    /// detaching it first from any list it is on.
    void attach(ObserverList& list);
    /// Detaches: relinks the neighbours (or moves the list's head) and clears the links.
    /// A detached observer is left unchanged.
    void remove();

    /// A disabled observer stays attached but is skipped by notifications that honour the flag.
    bool isEnabled() const { return mEnabled; }
    void setEnabled(bool enabled) { mEnabled = enabled; }  ///< Enables or disables this observer.

    /// The list this observer is on, or null while detached.
    ObserverList* list() const { return mList; }
    /// The next (older) observer on the same list, or null at the end.
    Observer* next() const { return mNext; }

private:
    friend class ObserverList;

    ObserverList* mList = nullptr;
    Observer* mNext = nullptr;
    Observer* mPrev = nullptr;
    bool mEnabled = true;
};

/// The head of a subject's observer list: one pointer, null when empty. It is constant-initialised,
/// so a list embedded in a static object is valid before that object's constructor runs.
class VANTA_EXPORT ObserverList {
public:
    constexpr ObserverList() = default;
    /// Detaches every remaining observer, so none is left pointing at a dead subject.
    ~ObserverList() { detachAll(); }

    ObserverList(const ObserverList&) = delete;
    ObserverList& operator=(const ObserverList&) = delete;

    /// The most recently attached observer, or null.
    Observer* first() const { return mHead; }
    bool isEmpty() const { return mHead == nullptr; }  ///< True when no observer is attached.
    /// Number of attached observers (walks the list).
    int count() const;
    /// Detaches every observer, newest first.
    void detachAll();

    /// Calls callback with event on every observer, newest first. Each observer's successor is
    /// read before the call, so an observer may detach or delete itself inside the callback
    /// (detaching a different observer of the same list during the walk is not supported).
    /// With detachFirst every observer, enabled or not, is detached before its turn and the list
    /// is empty afterwards; disabled observers are never called. Every observer on this list must
    /// be an O.
    template <class O, class E>
    void notify(void (O::*callback)(const E&), const E& event, bool detachFirst);

private:
    friend class Observer;

    Observer* mHead = nullptr;
};

template <class O, class E>
void ObserverList::notify(void (O::*callback)(const E&), const E& event, bool detachFirst) {
    Observer* o = mHead;
    while (o) {
        Observer* const next = o->mNext;
        if (detachFirst)
            o->remove();
        if (o->mEnabled)
            (static_cast<O*>(o)->*callback)(event);
        o = next;
    }
}

}  // namespace vanta
