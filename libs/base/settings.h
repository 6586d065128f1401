/// \file
/// Settings registry: named groups of settings, the abstract Setting, their observers and the
/// process-wide save/restore stack.
#pragma once

#include <vanta/export.h>
#include <vanta/memory.h>
#include <vanta/observer.h>

#include <QString>

#include <vector>

namespace vanta {

class Setting;
class SettingGroup;

/// Hears of changes to one setting and of its deletion. Attached at construction, detached at
/// destruction (or by the setting's pre-delete notification, whichever comes first).
class VANTA_EXPORT SettingObserver : public Observer {
public:
    /// What a notification carries.
    struct Event {
        /// The setting that changed or is being deleted.
        Setting* setting;
    };

    /// Attaches to s when s is non-null; otherwise stays detached.
    explicit SettingObserver(Setting* s);
    /// Attaches to s.
    explicit SettingObserver(Setting& s);
    ~SettingObserver() override;

    /// The setting's value really changed (not called for equal values or for restores).
    virtual void onSettingChanged(const Event& event) = 0;
    /// The setting is being destroyed; this observer has already been detached.
    virtual void onSettingPreDelete(const Event& event) = 0;
};

/// Hears of changes to any setting of one group and of the group's deletion.
class VANTA_EXPORT SettingGroupObserver : public Observer {
public:
    /// What a notification carries.
    struct Event {
        /// The group.
        SettingGroup* group;
        Setting* setting;  ///< null for onGroupPreDelete
    };

    /// Attaches to g when g is non-null; otherwise stays detached.
    explicit SettingGroupObserver(SettingGroup* g);
    /// Attaches to g.
    explicit SettingGroupObserver(SettingGroup& g);
    ~SettingGroupObserver() override;

    /// A setting of the group really changed; called after the setting's own observers.
    virtual void onSettingChanged(const Event& event) = 0;
    /// The group is being destroyed; the observer is still attached while this runs.
    virtual void onGroupPreDelete(const Event& event) = 0;
};

/// A named group of settings, registered process-wide while it lives.
///
/// Groups and their settings are usually static objects built during static initialisation in an
/// order nobody controls: a setting built before its group waits as an orphan and is adopted when
/// the group is built. The group does not own its settings; destroying it leaves them usable and
/// groupless. Not thread-safe: groups and settings belong to the main thread.
class VANTA_EXPORT SettingGroup : public MemoryObject {
public:
    /// Registers the group at the head of the registry, then adopts the settings already built
    /// for it (newest first, so they are listed in the reverse of their construction order).
    explicit SettingGroup(const QString& name);
    /// Tells the observers, unregisters, and leaves every setting of the group without a group.
    virtual ~SettingGroup();

    SettingGroup(const SettingGroup&) = delete;
    SettingGroup& operator=(const SettingGroup&) = delete;

    /// The group's name.
    virtual const QString& getName() const;
    /// Number of settings in the group.
    virtual int getSettingCount() const;
    /// The i-th setting in insertion order. Throws std::out_of_range ("vector [] access out of
    /// range") when i is outside 0..count-1, negatives included.
    virtual Setting* getSetting(int i) const;
    /// The first setting whose name equals name exactly (case-sensitive), or null.
    virtual Setting* getSetting(const QString& name) const;

    /// The most recently built live group with this name, or null.
    static SettingGroup* getGroup(const QString& name);
    /// The group i links from the registry's head (the newest group); i below 1 gives the head.
    /// Null when the walk runs off the end or no group exists.
    static SettingGroup* getGroup(int i);
    /// Number of live groups.
    static int getGroupCount();

    /// The group's observers, for inspection.
    const ObserverList& observers() const { return mObservers; }

private:
    friend class Setting;
    friend class SettingGroupObserver;

    void adoptOrphans();

    ObserverList mObservers;
    std::vector<Setting*> mSettings;  ///< not owned; insertion order
    QString mName;
    SettingGroup* mNextGroup = nullptr;
    SettingGroup* mPrevGroup = nullptr;
};

/// A named value of some type, member of one group. Concrete types are in typedsetting.h.
///
/// Changes are stamped with Setting::sCurrentModifier and reported to the setting's observers,
/// then to its group's. Not thread-safe: settings belong to the main thread.
class VANTA_EXPORT Setting : public MemoryObject {
public:
    /// The process-wide stack of save frames, innermost first. Its one field pair is constant-
    /// initialised, so it is valid before any constructor runs.
    class RestoreList {
    public:
        constexpr RestoreList() = default;

        /// Number of open frames.
        int frameCount() const { return mFrameCount; }
        /// True when no frame is open.
        bool isEmpty() const { return mFrameCount == 0; }
        /// Entries in the innermost frame (a setting changed k times in it counts k times).
        int frontFrameSize() const;

    private:
        friend class Setting;
        struct Storage;

        void pushFrame();
        bool popFrame();
        void record(Setting* s);

        Storage* mStorage = nullptr;  ///< created on the first pushFrame, kept for reuse
        int mFrameCount = 0;
    };

    /// Stamped into a setting's modifier on every set. Starts at 1; the library never changes it.
    static int sCurrentModifier;
    /// The save frames of every setting.
    static RestoreList sRestoreList;

    /// Enrols in group: appended to its settings when the group is live, otherwise parked as an
    /// orphan until the group is built. The two flags are stored for client code, unused here.
    Setting(SettingGroup& group, const QString& name, bool firstFlag, bool secondFlag);
    /// Leaves the group's list (or the orphan list) and detaches the remaining observers.
    virtual ~Setting();

    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    /// Sets the value from its text form (the change goes through the typed set).
    virtual void fromString(const QString& text) = 0;
    /// The value in text form.
    virtual QString toString() const = 0;
    /// The value as a number, for generic client code.
    virtual double getVal() const = 0;
    /// Sets the value from a number (the change goes through the typed set).
    virtual void setVal(double value) = 0;
    /// Type code: 0 bool, 1 int, 4 string, 8 hashed string.
    virtual int getType() const = 0;
    /// Saves the current value on the setting's own stack.
    virtual void pushSetting() = 0;
    /// Restores the most recently saved value silently (no observers, modifier untouched).
    /// False, with nothing changed, when nothing is saved.
    virtual bool popSetting() = 0;

    /// Opens a save frame: every real change from now on is recorded in it.
    static void pushAllSettings();
    /// Rolls back every change recorded in the innermost frame, newest first, and closes it.
    /// Restores are silent. False, with nothing changed, when no frame is open.
    static bool popAllSettings();

    /// The setting's name within its group.
    const QString& getName() const { return mName; }
    /// The owning group; null once that group has been destroyed.
    SettingGroup* getGroup() const { return mGroup; }
    /// The sCurrentModifier of the last set call.
    int getModifier() const { return mModifier; }
    /// The first client flag, as constructed.
    bool getFirstFlag() const { return mFirstFlag; }
    /// The second client flag, as constructed.
    bool getSecondFlag() const { return mSecondFlag; }
    /// An integer kept for client code, 1 at construction.
    int getClientData() const { return mClientData; }
    /// Sets the client integer.
    void setClientData(int value) { mClientData = value; }
    /// True while the setting waits for its group to be built.
    bool isOrphan() const;
    /// The setting's observers, for inspection.
    const ObserverList& observers() const { return mObservers; }

protected:
    /// Tells the setting's enabled observers, then its group's, of a real change. Inline up to
    /// the common case of nobody listening, which then costs two loads and no call.
    void notifyChanged() {
        if (!mObservers.isEmpty() || (mGroup && !mGroup->mObservers.isEmpty()))
            notifyObservers();
    }
    /// Detaches every observer and tells the enabled ones; the first thing a concrete
    /// setting's destructor does. The group's observers are not told.
    void notifyPreDelete();
    /// The part of a change shared by every type: stamps the modifier.
    void stampModifier() { mModifier = sCurrentModifier; }
    /// Records this setting in the innermost open frame and saves its current value; does
    /// nothing (and allocates nothing) when no frame is open.
    void saveForRestore() {
        if (!sRestoreList.isEmpty()) {
            sRestoreList.record(this);
            pushSetting();
        }
    }

private:
    friend class SettingGroup;
    friend class SettingObserver;

    void notifyObservers();

    int mModifier = 0;
    ObserverList mObservers;
    int mClientData = 1;
    QString mName;
    SettingGroup* mGroup;
    Setting* mNextOrphan = nullptr;
    Setting* mPrevOrphan = nullptr;
    bool mFirstFlag;
    bool mSecondFlag;
};

}  // namespace vanta
