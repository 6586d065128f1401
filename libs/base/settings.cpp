// Settings registry: group registration, orphan adoption, observers and the save frames.
#include <vanta/settings.h>

#include <algorithm>
#include <stdexcept>

namespace vanta {

namespace {

// The registry is plain zero-initialised data, valid before any constructor of any translation
// unit runs, so groups and settings may be built in whatever order the loader chooses.
SettingGroup* sSettingGroups = nullptr;  // live groups, newest first
int sNumSettingGroups = 0;
Setting* sOrphanedSettings = nullptr;  // settings whose group is not built yet, newest first

}  // namespace

int Setting::sCurrentModifier = 1;
Setting::RestoreList Setting::sRestoreList;

// ---- Observers ----

SettingObserver::SettingObserver(Setting* s) {
    if (s)
        attach(s->mObservers);
}

SettingObserver::SettingObserver(Setting& s) : SettingObserver(&s) {}

SettingObserver::~SettingObserver() = default;

SettingGroupObserver::SettingGroupObserver(SettingGroup* g) {
    if (g)
        attach(g->mObservers);
}

SettingGroupObserver::SettingGroupObserver(SettingGroup& g) : SettingGroupObserver(&g) {}

SettingGroupObserver::~SettingGroupObserver() = default;

// ---- Groups ----

SettingGroup::SettingGroup(const QString& name) : mName(name) {
    mNextGroup = sSettingGroups;
    if (mNextGroup)
        mNextGroup->mPrevGroup = this;
    sSettingGroups = this;
    ++sNumSettingGroups;
    adoptOrphans();
}

void SettingGroup::adoptOrphans() {
    // Newest orphan first: adopted settings end up in the reverse of their construction order.
    Setting* s = sOrphanedSettings;
    while (s) {
        Setting* const next = s->mNextOrphan;
        if (s->mGroup == this) {
            mSettings.push_back(s);  // first, so an allocation failure leaves s an orphan
            if (s->mPrevOrphan)
                s->mPrevOrphan->mNextOrphan = next;
            else
                sOrphanedSettings = next;
            if (next)
                next->mPrevOrphan = s->mPrevOrphan;
            s->mNextOrphan = nullptr;
            s->mPrevOrphan = nullptr;
        }
        s = next;
    }
}

SettingGroup::~SettingGroup() {
    mObservers.notify(&SettingGroupObserver::onGroupPreDelete,
                      SettingGroupObserver::Event{this, nullptr}, false);
    if (mPrevGroup)
        mPrevGroup->mNextGroup = mNextGroup;
    else
        sSettingGroups = mNextGroup;
    if (mNextGroup)
        mNextGroup->mPrevGroup = mPrevGroup;
    --sNumSettingGroups;
    for (Setting* s : mSettings)
        s->mGroup = nullptr;
    // The members go next: the array, the name, and last the observer list, which detaches
    // whatever observers remain.
}

const QString& SettingGroup::getName() const { return mName; }

int SettingGroup::getSettingCount() const { return int(mSettings.size()); }

Setting* SettingGroup::getSetting(int i) const {
    if (unsigned(i) >= unsigned(mSettings.size()))
        throw std::out_of_range("vector [] access out of range");
    return mSettings[size_t(i)];
}

Setting* SettingGroup::getSetting(const QString& name) const {
    // Through the virtual index lookup, so a subclass that lists its settings differently is
    // searched the same way.
    const int count = getSettingCount();
    for (int i = 0; i < count; ++i) {
        Setting* s = getSetting(i);
        if (s->getName() == name)
            return s;
    }
    return nullptr;
}

SettingGroup* SettingGroup::getGroup(const QString& name) {
    for (SettingGroup* g = sSettingGroups; g; g = g->mNextGroup) {
        if (g->mName == name)
            return g;
    }
    return nullptr;
}

SettingGroup* SettingGroup::getGroup(int i) {
    SettingGroup* g = sSettingGroups;
    for (int k = 1; k <= i && g; ++k)
        g = g->mNextGroup;
    return g;
}

int SettingGroup::getGroupCount() { return sNumSettingGroups; }

// ---- Settings ----

Setting::Setting(SettingGroup& group, const QString& name, bool firstFlag, bool secondFlag)
    : mName(name), mGroup(&group), mFirstFlag(firstFlag), mSecondFlag(secondFlag) {
    // The group is matched by address: an unbuilt group's name is not readable yet.
    for (SettingGroup* g = sSettingGroups; g; g = g->mNextGroup) {
        if (g == &group) {
            group.mSettings.push_back(this);
            return;
        }
    }
    mNextOrphan = sOrphanedSettings;
    if (mNextOrphan)
        mNextOrphan->mPrevOrphan = this;
    sOrphanedSettings = this;
}

Setting::~Setting() {
    if (isOrphan()) {
        // Not expected for static settings, but a stale entry would be walked by the next group.
        if (mPrevOrphan)
            mPrevOrphan->mNextOrphan = mNextOrphan;
        else
            sOrphanedSettings = mNextOrphan;
        if (mNextOrphan)
            mNextOrphan->mPrevOrphan = mPrevOrphan;
    } else if (mGroup) {
        std::vector<Setting*>& list = mGroup->mSettings;
        const auto it = std::find(list.begin(), list.end(), this);
        if (it != list.end())
            list.erase(it);
    }
}

bool Setting::isOrphan() const { return mPrevOrphan || sOrphanedSettings == this; }

void Setting::notifyObservers() {
    mObservers.notify(&SettingObserver::onSettingChanged, SettingObserver::Event{this}, false);
    // Read the group only now: an observer may have destroyed it.
    if (mGroup)
        mGroup->mObservers.notify(&SettingGroupObserver::onSettingChanged,
                                  SettingGroupObserver::Event{mGroup, this}, false);
}

void Setting::notifyPreDelete() {
    mObservers.notify(&SettingObserver::onSettingPreDelete, SettingObserver::Event{this}, true);
}

// ---- Save frames ----

// Every frame's entries in one array, oldest frame first; within a frame the newest change is
// last. frameStarts holds the index where each open frame begins. Both keep their capacity
// across frames, so a steady push/change/pop cycle stops allocating.
struct Setting::RestoreList::Storage : MemoryObject {
    std::vector<Setting*> entries;
    std::vector<size_t> frameStarts;
};

int Setting::RestoreList::frontFrameSize() const {
    return mFrameCount ? int(mStorage->entries.size() - mStorage->frameStarts.back()) : 0;
}

void Setting::RestoreList::pushFrame() {
    if (!mStorage)
        mStorage = new Storage;
    mStorage->frameStarts.push_back(mStorage->entries.size());
    ++mFrameCount;
}

bool Setting::RestoreList::popFrame() {
    if (mFrameCount == 0)
        return false;
    std::vector<Setting*>& entries = mStorage->entries;
    const size_t start = mStorage->frameStarts.back();
    for (size_t i = entries.size(); i > start; --i)
        entries[i - 1]->popSetting();
    entries.resize(start);
    mStorage->frameStarts.pop_back();
    --mFrameCount;
    return true;
}

void Setting::RestoreList::record(Setting* s) { mStorage->entries.push_back(s); }

void Setting::pushAllSettings() { sRestoreList.pushFrame(); }

bool Setting::popAllSettings() { return sRestoreList.popFrame(); }

}  // namespace vanta
