// Tests of setting groups, observers, typed settings, their text and numeric views and the save
// frames.
#include <vanta/settings.h>
#include <vanta/typedsetting.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

using namespace vanta;

namespace {

// Appends its tag to a shared log on every change; optionally runs an action inside the callback.
class Recorder : public SettingObserver {
public:
    Recorder(Setting& s, std::vector<std::string>& log, std::string tag)
        : SettingObserver(s), mLog(log), mTag(std::move(tag)) {}
    void onSettingChanged(const Event& e) override {
        EXPECT_NE(e.setting, nullptr);
        mLog.push_back(mTag);
        if (onChange)
            onChange();
    }
    void onSettingPreDelete(const Event&) override {
        EXPECT_EQ(list(), nullptr) << "observers are detached before they hear of the deletion";
        mLog.push_back(mTag + ":deleted");
    }
    std::function<void()> onChange;

private:
    std::vector<std::string>& mLog;
    std::string mTag;
};

class GroupRecorder : public SettingGroupObserver {
public:
    GroupRecorder(SettingGroup& g, std::vector<std::string>& log)
        : SettingGroupObserver(g), mLog(log) {}
    void onSettingChanged(const Event& e) override {
        mLog.push_back("group:" + e.setting->getName().toStdString());
        lastGroup = e.group;
    }
    void onGroupPreDelete(const Event& e) override {
        EXPECT_EQ(e.setting, nullptr);
        mLog.push_back("group:deleted");
        lastGroup = e.group;
    }
    SettingGroup* lastGroup = nullptr;

private:
    std::vector<std::string>& mLog;
};

// Bitwise CRC-32 (reflected, polynomial 0xEDB88320): an oracle independent of zlib.
uint32_t referenceCrc32(const QByteArray& bytes) {
    uint32_t crc = 0xFFFFFFFFu;
    for (char c : bytes) {
        crc ^= uint8_t(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

std::vector<std::string> namesOf(const SettingGroup& g) {
    std::vector<std::string> names;
    for (int i = 0; i < g.getSettingCount(); ++i)
        names.push_back(g.getSetting(i)->getName().toStdString());
    return names;
}

}  // namespace

// ---- Registry ----

TEST(SettingGroup, RegistryFindsNewestFirstAndSurvivesRemovalFromTheMiddle) {
    const int before = SettingGroup::getGroupCount();
    auto* a = new SettingGroup("Alpha");
    auto* b = new SettingGroup("Beta");
    auto* c = new SettingGroup("Alpha");
    EXPECT_EQ(SettingGroup::getGroupCount(), before + 3);
    EXPECT_EQ(SettingGroup::getGroup("Alpha"), c);
    EXPECT_EQ(SettingGroup::getGroup("alpha"), nullptr);
    EXPECT_EQ(SettingGroup::getGroup(0), c);
    EXPECT_EQ(SettingGroup::getGroup(-5), c);
    EXPECT_EQ(SettingGroup::getGroup(1), b);
    EXPECT_EQ(SettingGroup::getGroup(2), a);
    EXPECT_EQ(SettingGroup::getGroup(SettingGroup::getGroupCount()), nullptr);

    delete b;
    EXPECT_EQ(SettingGroup::getGroup(1), a);
    delete c;
    EXPECT_EQ(SettingGroup::getGroup("Alpha"), a);
    EXPECT_EQ(SettingGroup::getGroup(0), a);
    delete a;
    EXPECT_EQ(SettingGroup::getGroupCount(), before);
    EXPECT_EQ(SettingGroup::getGroup("Beta"), nullptr);
}

TEST(SettingGroup, SettingLookups) {
    SettingGroup g("Lookups");
    IntSetting x(g, "x", 1);
    auto* y = new TypedSetting<bool>(g, "y", false);
    TypedSetting<QString> z(g, "z", "zed");
    EXPECT_EQ(g.getSetting("z"), &z);
    EXPECT_EQ(g.getSetting(""), nullptr);
    EXPECT_EQ(g.getSetting("X"), nullptr);

    // A destroyed setting leaves the group; the others keep their order.
    delete y;
    EXPECT_EQ(namesOf(g), (std::vector<std::string>{"x", "z"}));

    for (int bad : {-1, 2, 3, INT_MIN, INT_MAX}) {
        try {
            g.getSetting(bad);
            ADD_FAILURE() << "no throw for index " << bad;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "vector [] access out of range") << bad;
        }
    }
}

TEST(SettingGroup, AdoptsSettingsBuiltBeforeItInReverseOrder) {
    // Storage for a group that is built after some of its settings, as happens to static objects
    // in different translation units.
    alignas(SettingGroup) unsigned char storage[sizeof(SettingGroup)] = {};
    alignas(SettingGroup) unsigned char otherStorage[sizeof(SettingGroup)] = {};
    auto& group = *reinterpret_cast<SettingGroup*>(storage);
    auto& other = *reinterpret_cast<SettingGroup*>(otherStorage);

    IntSetting first(group, "first", 1, true, true);
    IntSetting stranger(other, "stranger", 0);
    IntSetting second(group, "second", 2);
    EXPECT_TRUE(first.isOrphan());
    EXPECT_TRUE(second.isOrphan());

    ::new (storage) SettingGroup("Late");
    IntSetting third(group, "third", 3);
    EXPECT_EQ(namesOf(group), (std::vector<std::string>{"second", "first", "third"}));
    EXPECT_FALSE(first.isOrphan());
    EXPECT_FALSE(third.isOrphan());
    EXPECT_TRUE(stranger.isOrphan()) << "an orphan of another group stays parked";
    EXPECT_EQ(first.getGroup(), &group);
    EXPECT_TRUE(first.getFirstFlag() && first.getSecondFlag());
    EXPECT_EQ(first.getClientData(), 1);
    group.~SettingGroup();
    EXPECT_EQ(first.getGroup(), nullptr);
}

// ---- Observers ----

TEST(SettingObservers, SettingObserversNewestFirstThenGroupObservers) {
    std::vector<std::string> log;
    SettingGroup g("Order");
    IntSetting s(g, "s", 0);
    GroupRecorder onGroup(g, log);
    Recorder a(s, log, "A");
    Recorder b(s, log, "B");
    s.set(1);
    EXPECT_EQ(log, (std::vector<std::string>{"B", "A", "group:s"}));
    EXPECT_EQ(onGroup.lastGroup, &g);
}

TEST(SettingObservers, DisabledObserverIsSkippedButStillDetachedOnDelete) {
    std::vector<std::string> log;
    SettingGroup g("Disabled");
    GroupRecorder onGroup(g, log);
    auto* s = new IntSetting(g, "s", 0);
    Recorder quiet(*s, log, "quiet");
    Recorder loud(*s, log, "loud");
    quiet.setEnabled(false);
    s->set(1);
    EXPECT_EQ(log, (std::vector<std::string>{"loud", "group:s"}));

    log.clear();
    delete s;
    EXPECT_EQ(log, (std::vector<std::string>{"loud:deleted"})) << "group observers are not told";
    EXPECT_EQ(quiet.list(), nullptr);
    EXPECT_EQ(loud.list(), nullptr);
}

TEST(SettingObservers, ObserverMayDeleteItselfInsideItsCallback) {
    std::vector<std::string> log;
    SettingGroup g("SelfDelete");
    IntSetting s(g, "s", 0);
    Recorder oldest(s, log, "oldest");
    auto* middle = new Recorder(s, log, "middle");
    middle->onChange = [middle] { delete middle; };
    Recorder newest(s, log, "newest");
    s.set(1);
    EXPECT_EQ(log, (std::vector<std::string>{"newest", "middle", "oldest"}));
    EXPECT_EQ(s.observers().count(), 2);
    log.clear();
    s.set(2);
    EXPECT_EQ(log, (std::vector<std::string>{"newest", "oldest"}));
}

TEST(SettingObservers, DestroyedGroupLeavesItsSettingsUsableAndGroupless) {
    std::vector<std::string> log;
    const int before = SettingGroup::getGroupCount();
    auto* g = new SettingGroup("Doomed");
    TypedSetting<QString> s(*g, "s", "a");
    Recorder onSetting(s, log, "setting");
    GroupRecorder onGroup(*g, log);
    delete g;
    EXPECT_EQ(log, (std::vector<std::string>{"group:deleted"}));
    EXPECT_EQ(onGroup.list(), nullptr);
    EXPECT_EQ(SettingGroup::getGroupCount(), before);
    EXPECT_EQ(s.getGroup(), nullptr);

    log.clear();
    s.set("b");
    EXPECT_EQ(log, (std::vector<std::string>{"setting"}));
    EXPECT_EQ(s.getValue(), "b");
}

// ---- Changes and save frames ----

class SaveFrames : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_TRUE(Setting::sRestoreList.isEmpty()) << "a test left a frame open";
        while (Setting::popAllSettings()) {
        }
        Setting::sCurrentModifier = 1;
    }
    SettingGroup group{"Frames"};
    IntSetting number{group, "number", 3};
    TypedSetting<QString> text{group, "text", "before"};
    TypedSetting<bool> flag{group, "flag", false};
    std::vector<std::string> log;
    Recorder watcher{number, log, "number"};
};

TEST_F(SaveFrames, EqualValueStampsTheModifierAndNothingElse) {
    Setting::pushAllSettings();
    Setting::sCurrentModifier = 7;
    number.set(3);
    EXPECT_EQ(number.getModifier(), 7);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(Setting::sRestoreList.frontFrameSize(), 0);
    EXPECT_EQ(number.getSavedCount(), 0);
    EXPECT_TRUE(Setting::popAllSettings());
}

TEST_F(SaveFrames, PopUndoesEveryChangeOfTheFrameSilently) {
    Setting::pushAllSettings();
    Setting::sCurrentModifier = 9;
    number.set(5);
    number.set(7);
    text.set("after");
    flag.set(true);
    EXPECT_EQ(Setting::sRestoreList.frontFrameSize(), 4) << "one entry per change";
    EXPECT_EQ(number.getSavedCount(), 2);
    log.clear();

    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(number.getValue(), 3);
    EXPECT_EQ(text.getValue(), "before");
    EXPECT_FALSE(flag.getValue());
    EXPECT_EQ(number.getSavedCount(), 0);
    EXPECT_TRUE(log.empty()) << "restores are silent";
    EXPECT_EQ(number.getModifier(), 9) << "restores keep the stamp of the last set";
}

TEST_F(SaveFrames, NestedFramesEachRestoreTheirOwnStart) {
    number.set(4);  // no frame open: never recorded
    Setting::pushAllSettings();
    number.set(5);
    Setting::pushAllSettings();
    number.set(7);
    number.set(8);
    EXPECT_EQ(Setting::sRestoreList.frameCount(), 2);
    EXPECT_EQ(number.getSavedCount(), 3);

    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(number.getValue(), 5);
    EXPECT_EQ(number.getSavedCount(), 1) << "the inner pop leaves the outer frame's value";
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(number.getValue(), 4);
    EXPECT_FALSE(Setting::popAllSettings());
    EXPECT_EQ(number.getValue(), 4);
}

TEST_F(SaveFrames, PoppingWithNothingSavedChangesNothing) {
    EXPECT_FALSE(Setting::popAllSettings());
    EXPECT_FALSE(number.popSetting());
    EXPECT_EQ(number.getValue(), 3);
    number.pushSetting();
    number.set(6);
    EXPECT_TRUE(number.popSetting());
    EXPECT_EQ(number.getValue(), 3);
}

// ---- Text and numeric views ----

TEST(TypedSetting, FromString) {
    SettingGroup g("Text");
    struct BoolRow { const char* text; bool expected; };
    for (const BoolRow& row : {BoolRow{" TRUE ", true}, {"\t1\n", true}, {"True", true},
                               {"yes", false}, {"0", false}, {"", false}, {"true1", false},
                               {"t rue", false}}) {
        TypedSetting<bool> s(g, "b", !row.expected);
        s.fromString(row.text);
        EXPECT_EQ(s.getValue(), row.expected) << '"' << row.text << '"';
    }
    struct IntRow { const char* text; int expected; };
    for (const IntRow& row : {IntRow{"42", 42}, {"  -17 apples", -17}, {"+8", 8}, {"12.9", 12},
                              {"abc", 0}, {"", 0}, {"0x1f", 31}, {"017", 15}}) {
        IntSetting s(g, "i", -99);
        s.fromString(row.text);
        EXPECT_EQ(s.getValue(), row.expected) << '"' << row.text << '"';
    }
    struct TextRow { const char* text; const char* expected; };
    for (const TextRow& row : {TextRow{"hello world", "hello"}, {"  padded\tword", "padded"},
                               {"single", "single"}, {"   ", ""}}) {
        TypedSetting<QString> s(g, "s", "old");
        s.fromString(row.text);
        EXPECT_EQ(s.getValue(), QString(row.expected)) << '"' << row.text << '"';
    }
}

TEST(TypedSetting, ToStringRoundTrips) {
    SettingGroup g("RoundTrip");
    TypedSetting<bool> b(g, "b", true);
    IntSetting i(g, "i", -2147483647 - 1);
    TypedSetting<QString> s(g, "s", "word");
    EXPECT_EQ(b.toString(), "1");
    EXPECT_EQ(i.toString(), "-2147483648");
    EXPECT_EQ(s.toString(), "word");
    b.set(false);
    EXPECT_EQ(b.toString(), "0");
    for (Setting* setting : {static_cast<Setting*>(&b), static_cast<Setting*>(&i)}) {
        const QString before = setting->toString();
        setting->fromString(before);
        EXPECT_EQ(setting->toString(), before);
    }
}

TEST(TypedSetting, SetValTruncatesAndSaturates) {
    SettingGroup g("Numbers");
    const double nan = std::nan("");
    struct IntRow { double in; int expected; };
    for (const IntRow& row : {IntRow{3.9, 3}, {-3.9, -3}, {1e12, INT_MAX}, {-1e12, INT_MIN},
                              {nan, INT_MIN}, {2147483647.0, INT_MAX}, {2147483646.9, 2147483646},
                              {-2147483648.0, INT_MIN}, {INFINITY, INT_MAX}}) {
        IntSetting s(g, "i", 0);
        s.setVal(row.in);
        EXPECT_EQ(s.getValue(), row.expected) << row.in;
        EXPECT_EQ(s.getVal(), double(row.expected));
    }
    struct BoolRow { double in; bool expected; };
    for (const BoolRow& row : {BoolRow{0.0, false}, {-0.0, false}, {0.5, true}, {nan, true}}) {
        TypedSetting<bool> s(g, "b", !row.expected);
        s.setVal(row.in);
        EXPECT_EQ(s.getValue(), row.expected) << row.in;
        EXPECT_EQ(s.getVal(), row.expected ? 1.0 : 0.0);
    }
}

TEST(TypedSetting, StringIgnoresNumbersButCountsAsASet) {
    SettingGroup g("StringNumbers");
    TypedSetting<QString> s(g, "s", "text");
    std::vector<std::string> log;
    Recorder watcher(s, log, "s");
    Setting::sCurrentModifier = 5;
    s.setVal(42.0);
    Setting::sCurrentModifier = 1;
    EXPECT_EQ(s.getValue(), "text");
    EXPECT_EQ(s.getVal(), 0.0);
    EXPECT_EQ(s.getModifier(), 5);
    EXPECT_TRUE(log.empty());
}

TEST(HashedStringSetting, HashesTheDefaultsUtf8Once) {
    SettingGroup g("Hashes");
    for (const QString& text : {QString("123456789"), QString(), QString(""),
                                QString::fromUtf8("Zürich \xe2\x82\xac")}) {
        HashedStringSetting h(g, "h", text);
        EXPECT_EQ(h.getHash(), referenceCrc32(text.toUtf8())) << text.toStdString();
        h.set("changed");
        EXPECT_EQ(h.getHash(), referenceCrc32(text.toUtf8()));
        EXPECT_EQ(h.getDefault(), text);
    }
    EXPECT_EQ(referenceCrc32("123456789"), 0xCBF43926u) << "the oracle's published check value";

    const std::pair<std::unique_ptr<Setting>, int> codes[] = {
        {std::make_unique<TypedSetting<bool>>(g, "b", false), 0},
        {std::make_unique<TypedSetting<int>>(g, "t", 0), 1},
        {std::make_unique<IntSetting>(g, "i", 0), 1},
        {std::make_unique<TypedSetting<QString>>(g, "s", ""), 4},
        {std::make_unique<HashedStringSetting>(g, "h", ""), 8},
    };
    for (const auto& [setting, code] : codes)
        EXPECT_EQ(setting->getType(), code) << setting->getName().toStdString();
}
