// Tests of setting groups, observers, typed settings, their text and numeric views and the save
// frames.
#include <vanta/settings.h>
#include <vanta/typedsetting.h>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
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
    void onSettingChanged(const Event&) override {
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

// Logs "Group/setting" for changes and "Group deleted" for the group's pre-delete event.
class GroupRecorder : public SettingGroupObserver {
public:
    GroupRecorder(SettingGroup& g, std::vector<std::string>& log)
        : SettingGroupObserver(g), mLog(log) {}
    void onSettingChanged(const Event& e) override {
        mLog.push_back((e.group->getName() + "/" + e.setting->getName()).toStdString());
    }
    void onGroupPreDelete(const Event& e) override {
        EXPECT_EQ(e.setting, nullptr);
        mLog.push_back(e.group->getName().toStdString() + " deleted");
    }

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

// ---- Observers ----

TEST(SettingObservers, NewestFirstThenGroupAndDisabledOnesOnlyDetached) {
    std::vector<std::string> log;
    SettingGroup g("Order");
    GroupRecorder onGroup(g, log);
    auto* s = new IntSetting(g, "s", 0);
    Recorder a(*s, log, "A");
    Recorder quiet(*s, log, "quiet");
    Recorder b(*s, log, "B");
    quiet.setEnabled(false);
    s->set(1);
    EXPECT_EQ(log, (std::vector<std::string>{"B", "A", "Order/s"}));

    log.clear();
    delete s;
    EXPECT_EQ(log, (std::vector<std::string>{"B:deleted", "A:deleted"}))
        << "the disabled observer and the group's observers are not told";
    EXPECT_EQ(quiet.list(), nullptr);
    EXPECT_EQ(a.list(), nullptr);
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
    EXPECT_EQ(log, (std::vector<std::string>{"Doomed deleted"}));
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
    EXPECT_FALSE(Setting::popAllSettings());
    EXPECT_FALSE(number.popSetting());
    Setting::pushAllSettings();
    Setting::sCurrentModifier = 7;
    number.set(3);
    EXPECT_EQ(number.getModifier(), 7);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(Setting::sRestoreList.frontFrameSize(), 0);
    EXPECT_EQ(number.getSavedCount(), 0);
    EXPECT_TRUE(Setting::popAllSettings());
    EXPECT_EQ(number.getValue(), 3);
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

// ---- Text and numeric views ----

TEST(TypedSetting, TextForms) {
    SettingGroup g("Text");
    struct BoolRow { const char* text; bool expected; };
    for (const BoolRow& row : {BoolRow{" TRUE ", true}, {"\t1\n", true}, {"True", true},
                               {"yes", false}, {"0", false}, {"", false}, {"true1", false},
                               {"t rue", false}}) {
        TypedSetting<bool> s(g, "b", !row.expected);
        s.fromString(row.text);
        EXPECT_EQ(s.getValue(), row.expected) << '"' << row.text << '"';
        EXPECT_EQ(s.toString(), row.expected ? "1" : "0");
    }
    struct IntRow { const char* text; int expected; };
    for (const IntRow& row : {IntRow{"42", 42}, {"  -17 apples", -17}, {"+8", 8}, {"12.9", 12},
                              {"abc", 0}, {"", 0}, {"0x1f", 31}, {"017", 15}}) {
        IntSetting s(g, "i", -99);
        s.fromString(row.text);
        EXPECT_EQ(s.getValue(), row.expected) << '"' << row.text << '"';
        EXPECT_EQ(s.toString(), QString::number(row.expected));
    }
    struct TextRow { const char* text; const char* expected; };
    for (const TextRow& row : {TextRow{"hello world", "hello"}, {"  padded\tword", "padded"},
                               {"single", "single"}, {"   ", ""}}) {
        TypedSetting<QString> s(g, "s", "old");
        s.fromString(row.text);
        EXPECT_EQ(s.getValue(), QString(row.expected)) << '"' << row.text << '"';
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
    // Text has no number: it reads as 0 and ignores writes, which still count as a set.
    TypedSetting<QString> text(g, "s", "text");
    std::vector<std::string> log;
    Recorder watcher(text, log, "s");
    Setting::sCurrentModifier = 5;
    text.setVal(42.0);
    Setting::sCurrentModifier = 1;
    EXPECT_EQ(text.getValue(), "text");
    EXPECT_EQ(text.getVal(), 0.0);
    EXPECT_EQ(text.getModifier(), 5);
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
        EXPECT_EQ(h.getType(), 8);
    }
    EXPECT_EQ(referenceCrc32("123456789"), 0xCBF43926u) << "the oracle's published check value";
}
