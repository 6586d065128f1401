// The Qt timer manager: QTimer peers and a queue of deferred calls run by the event loop.
#include <vanta/qttimermanager.h>

#include <QThread>

#include <algorithm>
#include <climits>

namespace vanta {

// ---- QtTimerManager ----

QtTimerManager::QtTimerManager(QObject* parent) : QObject(parent) {}

QtTimerManager::~QtTimerManager() = default;

Timer::Peer* QtTimerManager::createPeer(Timer* timer) { return new QtTimerPeer(timer); }

void QtTimerManager::execute(Timer::SyncMethod& m, bool wait) {
    if (QThread::currentThread() == thread()) {
        m.execute();
        std::lock_guard<std::mutex> lock(mMutex);
        ++mExecuted;
        return;
    }
    if (!wait) {
        executeAsync(m);
        return;
    }
    bool done = false;
    if (enqueue({&m, &done}))
        QMetaObject::invokeMethod(this, "runQueued", Qt::QueuedConnection);
    std::unique_lock<std::mutex> lock(mMutex);
    mRan.wait(lock, [&] { return done; });
}

void QtTimerManager::executeAsync(Timer::SyncMethod& m) {
    if (enqueue({&m, nullptr}))
        QMetaObject::invokeMethod(this, "runQueued", Qt::QueuedConnection);
}

unsigned long QtTimerManager::getExecutedCount() const {
    std::lock_guard<std::mutex> lock(mMutex);
    return mExecuted;
}

// Queues pending; true when the caller must post a runQueued call (none is on its way yet).
// The method travels through the mutex rather than inside the posted event, so the hand-over
// between threads is visible to the thread sanitizer as well as correct.
bool QtTimerManager::enqueue(const Pending& pending) {
    std::lock_guard<std::mutex> lock(mMutex);
    mQueue.push_back(pending);
    if (mWakePosted)
        return false;
    mWakePosted = true;
    return true;
}

void QtTimerManager::runQueued() {
    std::unique_lock<std::mutex> lock(mMutex);
    // Methods queued from here on post a new call: a method may run a nested event loop (a modal
    // message box), which then runs them without waiting for this one to return.
    mWakePosted = false;
    while (!mQueue.empty()) {
        const Pending pending = mQueue.front();
        mQueue.pop_front();
        lock.unlock();
        pending.method->execute();  // may delete the method: not touched after this
        lock.lock();
        ++mExecuted;
        if (pending.done) {
            *pending.done = true;
            mRan.notify_all();
        }
    }
}

// ---- QtTimerPeer ----

QtTimerPeer::QtTimerPeer(Timer* timer) : Timer::Peer(timer) {
    connect(&mTimer, &QTimer::timeout, this, [this] {
        if (this->timer)
            this->timer->fire();
    });
}

QtTimerPeer::~QtTimerPeer() = default;

void QtTimerPeer::start(unsigned int intervalMs, bool mode) {
    mTimer.setSingleShot(mode);
    mTimer.start(int(std::min<unsigned int>(intervalMs, INT_MAX)));
}

void QtTimerPeer::stop() { mTimer.stop(); }

bool QtTimerPeer::isActive() const { return mTimer.isActive(); }

}  // namespace vanta
