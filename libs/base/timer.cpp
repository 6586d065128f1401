// Timers: observer lists, the timer/peer pairing, the current manager and message boxes.
#include <vanta/timer.h>

#include <vanta/status.h>

#include <QApplication>
#include <QMessageBox>

#include <algorithm>

namespace vanta {

std::atomic<Timer::Manager*> sManager{nullptr};

// ---- Timer ----

Timer::Timer() : peer(nullptr) {
    if (Manager* manager = sManager.load(std::memory_order_acquire))
        peer = manager->createPeer(this);
}

Timer::~Timer() {
    if (peer) {
        peer->timer = nullptr;  // so the peer's destructor leaves this timer alone
        delete peer;
    }
}

bool Timer::addObserver(IObserver& observer) {
    if (hasObserver(observer))
        return false;
    observers.push_back(&observer);
    return true;
}

bool Timer::remObserver(IObserver& observer) {
    const auto found = std::find(observers.begin(), observers.end(), &observer);
    if (found == observers.end())
        return false;
    observers.erase(found);
    return true;
}

bool Timer::hasObserver(const IObserver& observer) const {
    return std::find(observers.begin(), observers.end(), &observer) != observers.end();
}

void Timer::start(unsigned int intervalMs, bool mode) {
    if (peer)
        peer->start(intervalMs, mode);
}

bool Timer::isActive() const { return peer && peer->isActive(); }

void Timer::stop() {
    if (peer)
        peer->stop();
}

void Timer::fire() {
    const IObserver::Event event{this};
    // Index and size are read afresh each step: observers may add or remove during the walk.
    for (size_t i = 0; i < observers.size(); ++i)
        observers[i]->onTimer(event);
}

void Timer::execute(SyncMethod& m, bool wait) {
    if (Manager* manager = sManager.load(std::memory_order_acquire))
        manager->execute(m, wait);
}

void Timer::executeAsync(SyncMethod& m) {
    if (Manager* manager = sManager.load(std::memory_order_acquire))
        manager->executeAsync(m);
}

// ---- Peer, Manager, SyncMethod ----

Timer::Peer::~Peer() {
    if (timer)
        timer->peer = nullptr;
}

Timer::Manager::Manager() { sManager.store(this, std::memory_order_release); }

Timer::Manager::~Manager() { sManager.store(nullptr, std::memory_order_release); }

Timer::SyncMethod::~SyncMethod() {
    if (doneSlot)
        *doneSlot = nullptr;
}

// ---- Message boxes ----

AsyncMessageBox::AsyncMessageBox(System::MessageType type, const QString& title,
                                 const QString& text)
    : type(type), title(title), text(text) {}

void AsyncMessageBox::execute() {
    if (qobject_cast<QApplication*>(QCoreApplication::instance())) {
        QWidget* parent = QApplication::activeWindow();
        if (type == System::kMessageWarning)
            QMessageBox::warning(parent, title, text);
        else
            QMessageBox::information(parent, title, text);
    } else {
        // Without widgets there is no box to show; the message goes to the error log instead.
        ErrorLog(LM_ERROR, title + QStringLiteral(": ") + text + u'\n');
    }
    delete this;
}

void System::AsyncMessageBox(MessageType type, const QString& title, const QString& text) {
    Timer::Manager* manager = sManager.load(std::memory_order_acquire);
    if (!manager)
        return;
    manager->executeAsync(*new vanta::AsyncMessageBox(type, title, text));
}

}  // namespace vanta
