/// \file
/// Timers with observers, and deferred calls on the user-interface thread, through an
/// application-supplied manager.
#pragma once

#include <vanta/export.h>
#include <vanta/memory.h>
#include <vanta/system.h>

#include <QString>

#include <atomic>
#include <vector>

namespace vanta {

/// A timer: observers are told each time it fires.
class VANTA_EXPORT ITimer {
public:
    /// An object told when a timer fires.
    class IObserver {
    public:
        /// What a notification carries: the timer that fired.
        struct Event {
            ITimer* timer;  ///< The timer that fired.
        };
        virtual ~IObserver() = default;
        /// Called on the thread that fires the timer (the user-interface thread with the Qt
        /// manager).
        virtual void onTimer(const Event& event) = 0;
    };

    virtual ~ITimer() = default;
    /// Appends observer; false when it is already there.
    virtual bool addObserver(IObserver& observer) = 0;
    virtual bool remObserver(IObserver& observer) = 0;  ///< Removes observer; false when absent.
    /// True when observer is attached.
    virtual bool hasObserver(const IObserver& observer) const = 0;
    /// Starts the timer: every intervalMs, or once, as mode says.
    virtual void start(unsigned int intervalMs, bool mode) = 0;
    virtual bool isActive() const = 0;  ///< True while the timer runs.
    virtual void stop() = 0;  ///< Stops the timer.
    virtual void fire() = 0;  ///< Tells every observer now.
};

/// A timer whose timing is done by a Peer that the current Manager makes for it. The library has no
/// event loop of its own: the application installs a Manager (QtTimerManager is a ready one) before
/// the first Timer, and the peer calls fire() when the timer expires.
///
/// Not thread-safe: add and remove observers, start, stop and fire on one thread.
class VANTA_EXPORT Timer : public ITimer {
public:
    class Peer;
    class Manager;
    class SyncMethod;

    /// Asks the current manager for a peer; with no manager the timer has none and never runs.
    Timer();
    /// Detaches and deletes the peer; observers are not told.
    ~Timer() override;
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Appends observer; false when it is already there.
    bool addObserver(IObserver& observer) override;
    /// Removes the first occurrence, keeping the order of the rest; false when absent.
    bool remObserver(IObserver& observer) override;
    /// True when observer is attached.
    bool hasObserver(const IObserver& observer) const override;

    /// Forwarded to the peer as they are; without a peer, start and stop do nothing and
    /// isActive is false. The meaning of mode is the peer's (QtTimerPeer: single shot).
    void start(unsigned int intervalMs, bool mode) override;
    bool isActive() const override;  ///< The peer's answer; false without a peer.
    void stop() override;  ///< Forwarded to the peer.

    /// Tells every observer, in the order they were added. An observer added during the walk is
    /// told in the same walk; removing one during the walk may skip the next for this firing.
    void fire() override;

    /// The peer, or null once it was destroyed on its own.
    Peer* getPeer() const { return peer; }

    /// Runs m through the current manager: execute(m, wait) as the manager defines it,
    /// executeAsync(m) later on the user-interface thread without waiting. With no manager they do
    /// nothing.
    static void execute(SyncMethod& m, bool wait);
    /// Queues m for the user-interface thread without waiting.
    static void executeAsync(SyncMethod& m);

private:
    std::vector<IObserver*> observers;  ///< borrowed, in the order they were added
    Peer* peer;                         ///< owned; null once the peer has detached
};

/// The timing half of a Timer, made by the manager. Whichever of timer and peer is destroyed first
/// clears the other's pointer to it.
class Timer::Peer {
public:
    explicit Peer(Timer* timer) : timer(timer) {}  ///< A peer serving timer.
    /// Clears the timer's pointer to this peer, so the timer stops forwarding to it.
    virtual ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Starts timing: every intervalMs, or once, as mode says.
    virtual void start(unsigned int intervalMs, bool mode) = 0;
    virtual void stop() = 0;  ///< Stops timing.
    virtual bool isActive() const = 0;  ///< True while timing.

    /// The timer served, or null once it was destroyed.
    Timer* getTimer() const { return timer; }

protected:
    Timer* timer;  ///< The timer served, or null once it was destroyed.

private:
    friend class Timer;
};

/// The application's timer factory and call marshaller. Constructing one makes it the current
/// manager (replacing any earlier one); destroying any manager leaves none.
class Timer::Manager {
public:
    Manager();
    virtual ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// A new peer for timer, owned by the timer.
    virtual Peer* createPeer(Timer* timer) = 0;
    /// Runs m on the user-interface thread; the flag is the manager's to define.
    virtual void execute(SyncMethod& m, bool wait) = 0;
    /// Queues m to run later on the user-interface thread; callable from any thread, never waits.
    virtual void executeAsync(SyncMethod& m) = 0;
};

/// A unit of deferred work.
class Timer::SyncMethod {
public:
    /// doneSlot: where a tracker keeps a pointer to this method; cleared when the method is
    /// destroyed, so the tracker learns it is gone. Null when nobody tracks it.
    explicit SyncMethod(SyncMethod** doneSlot = nullptr) : doneSlot(doneSlot) {}
    virtual ~SyncMethod();
    SyncMethod(const SyncMethod&) = delete;
    SyncMethod& operator=(const SyncMethod&) = delete;

    virtual void execute() = 0;  ///< The call itself; runs on the manager's thread.

    SyncMethod** doneSlot;  ///< Cleared when this call is destroyed; null when nobody tracks it.
};

/// The current manager, or null. Set and cleared by Manager's constructor and destructor; read by
/// any thread that calls Timer::executeAsync.
VANTA_EXPORT extern std::atomic<Timer::Manager*> sManager;

/// A message box shown on the user-interface thread; see System::AsyncMessageBox.
class VANTA_EXPORT AsyncMessageBox : public Timer::SyncMethod, public MemoryObject {
public:
    /// A box of the given type, title and text.
    AsyncMessageBox(System::MessageType type, const QString& title, const QString& text);

    /// Shows a modal warning box (type kMessageWarning) or information box (any other type) over
    /// the active window, then deletes this object. Blocks until the box is closed.
    void execute() override;

    const System::MessageType type;  ///< Warning or information.
    const QString title;  ///< The box's title.
    const QString text;  ///< The box's text.
};

}  // namespace vanta
