// Timers: observer lists, the timer/peer pairing, the current manager and message boxes.
#include <vanta/timer.h>

#include <vanta/status.h>

#include <QCoreApplication>

#include <dlfcn.h>

#include <algorithm>
#include <mutex>

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

namespace {

using ShowMessageBox = void (*)(bool warning, const QString& title, const QString& text);

// The box itself lives in the widgets library, so that the core loads no Qt Widgets. A program
// that links only the core gets that library loaded here, from the core's own folder first, the
// first time a box is shown; a failure is logged once and every box then goes to the error log.
ShowMessageBox widgetsMessageBox() {
    static ShowMessageBox show = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        QString error;
        void* library = nullptr;
        Dl_info self{};
        if (dladdr(reinterpret_cast<void*>(&widgetsMessageBox), &self) && self.dli_fname) {
            const QByteArray beside = QByteArray(self.dli_fname).left(
                                          QByteArray(self.dli_fname).lastIndexOf('/') + 1) +
                                      VANTA_WIDGETS_LIBRARY;
            library = dlopen(beside.constData(), RTLD_NOW | RTLD_LOCAL);
        }
        if (!library)
            library = dlopen(VANTA_WIDGETS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (!library)
            error = QString::fromLocal8Bit(dlerror());
        else if (!(show = reinterpret_cast<ShowMessageBox>(dlsym(library, "vantaWidgetsMessageBox"))))
            error = QString::fromLocal8Bit(dlerror());
        if (!show)
            ErrorLog(LM_ERROR, QStringLiteral("message boxes go to this log: cannot load %1 (%2)\n")
                                   .arg(QLatin1String(VANTA_WIDGETS_LIBRARY), error));
    });
    return show;
}

}  // namespace

void AsyncMessageBox::execute() {
    // A box needs a widget application; a console or GUI-only program gets the message logged.
    QCoreApplication* app = QCoreApplication::instance();
    const ShowMessageBox show = app && app->inherits("QApplication") ? widgetsMessageBox() : nullptr;
    if (show)
        show(type == System::kMessageWarning, title, text);
    else
        ErrorLog(LM_ERROR, title + QStringLiteral(": ") + text + u'\n');
    delete this;
}

void System::AsyncMessageBox(MessageType type, const QString& title, const QString& text) {
    Timer::Manager* manager = sManager.load(std::memory_order_acquire);
    if (!manager)
        return;
    manager->executeAsync(*new vanta::AsyncMessageBox(type, title, text));
}

}  // namespace vanta
