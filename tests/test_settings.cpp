// Tests of setting groups, observers, typed settings, their text and numeric views and the save
// frames.
#include <vanta/settings.h>
#include <vanta/typedsetting.h>

#include <QIODevice>
#include <QTextStream>

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

using namespace vanta;
using Log = std::vector<std::string>;

namespace {

// Logs its tag on every change and "tag:deleted" on deletion; onChange runs inside the callback.
struct Recorder : SettingObserver {
    Recorder(Setting& s, Log& log, std::string tag)
        : SettingObserver(s), log(log), tag(std::move(tag)) {}
    void onSettingChanged(const Event&) override {
        log.push_back(tag);
        if (onChange)
            onChange();
    }
    void onSettingPreDelete(const Event&) override {
        EXPECT_EQ(list(), nullptr) << "observers are detached before they hear of the deletion";
        log.push_back(tag + ":deleted");
    }
    Log& log;
    std::string tag;
    std::function<void()> onChange;
};

// Logs "Group/setting" for changes and "Group deleted" for the group's pre-delete event.
struct GroupRecorder : SettingGroupObserver {
    GroupRecorder(SettingGroup& g, Log& log) : SettingGroupObserver(g), log(log) {}
    void onSettingChanged(const Event& e) override {
        log.push_back((e.group->getName() + "/" + e.setting->getName()).toStdString());
    }
    void onGroupPreDelete(const Event& e) override {
        EXPECT_EQ(e.setting, nullptr);
        log.push_back(e.group->getName().toStdString() + " deleted");
    }
    Log& log;
};

Log namesOf(const SettingGroup& g) {
    Log names;
    for (int i = 0; i < g.getSettingCount(); ++i)
        names.push_back(g.getSetting(i)->getName().toStdString());
    return names;
}

}  // namespace

TEST(SettingGroup, RegistryFindsNewestFirstAndSurvivesRemovalFromTheMiddle) {
    const int before = SettingGroup::getGroupCount();
    auto* a = new SettingGroup("Alpha");
    auto* b = new SettingGroup("Beta");
    auto* c = new SettingGroup("Alpha");
    EXPECT_EQ(SettingGroup::getGroupCount(), before + 3);
    EXPECT_EQ(SettingGroup::getGroup("Alpha"), c);
    EXPECT_EQ(SettingGroup::getGroup("alpha"), nullptr);
    for (const auto& [i, group] : {std::pair{0, c}, {-5, c}, {1, b}, {2, a}, {before + 3, nullptr}})
        EXPECT_EQ(SettingGroup::getGroup(i), group) << i;
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
    EXPECT_EQ(g.getSetting("x"), &x);  // the first one too
    EXPECT_EQ(g.getSetting("z"), &z);
    EXPECT_EQ(g.getSetting(""), nullptr);
    EXPECT_EQ(g.getSetting("X"), nullptr);
    delete y;  // leaves the group; the others keep their order
    EXPECT_EQ(namesOf(g), (Log{"x", "z"}));
    for (int bad : {-1, 2, 3, INT_MIN, INT_MAX}) {
        try {
            g.getSetting(bad);
            ADD_FAILURE() << "no throw for index " << bad;
        } catch (const std::out_of_range& e) {
            EXPECT_STREQ(e.what(), "vector [] access out of range") << bad;
        }
    }
}

TEST(SettingObservers, NewestFirstThenGroupAndDisabledOnesOnlyDetached) {
    Log log;
    SettingGroup g("Order");
    GroupRecorder onGroup(g, log);
    auto* s = new IntSetting(g, "s", 0);
    Recorder a(*s, log, "A"), quiet(*s, log, "quiet"), b(*s, log, "B");
    quiet.setEnabled(false);
    s->set(1);
    EXPECT_EQ(log, (Log{"B", "A", "Order/s"}));
    log.clear();
    delete s;
    EXPECT_EQ(log, (Log{"B:deleted", "A:deleted"})) << "not the disabled one, not the group's";
    EXPECT_EQ(quiet.list(), nullptr);
}

TEST(SettingObservers, ObserverMayDeleteItselfInsideItsCallback) {
    Log log;
    SettingGroup g("SelfDelete");
    IntSetting s(g, "s", 0);
    Recorder oldest(s, log, "oldest");
    auto* middle = new Recorder(s, log, "middle");
    middle->onChange = [middle] { delete middle; };
    Recorder newest(s, log, "newest");
    s.set(1);
    EXPECT_EQ(log, (Log{"newest", "middle", "oldest"}));
    EXPECT_EQ(s.observers().count(), 2);
    log.clear();
    s.set(2);
    EXPECT_EQ(log, (Log{"newest", "oldest"}));
}

TEST(SettingObservers, DestroyedGroupLeavesItsSettingsUsableAndGroupless) {
    Log log;
    const int before = SettingGroup::getGroupCount();
    auto* g = new SettingGroup("Doomed");
    TypedSetting<QString> s(*g, "s", "a");
    Recorder onSetting(s, log, "setting");
    GroupRecorder onGroup(*g, log);
    delete g;
    EXPECT_EQ(log, (Log{"Doomed deleted"}));
    EXPECT_EQ(onGroup.list(), nullptr);
    EXPECT_EQ(SettingGroup::getGroupCount(), before);
    EXPECT_EQ(s.getGroup(), nullptr);
    log.clear();
    s.set("b");
    EXPECT_EQ(log, (Log{"setting"}));
    EXPECT_EQ(s.getValue(), "b");
}

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
    Log log;
    Recorder watcher{number, log, "number"};
};

TEST_F(SaveFrames, PopUndoesEveryRealChangeOfTheFrameSilently) {
    EXPECT_FALSE(number.popSetting());
    number.pushSetting();
    EXPECT_TRUE(number.popSetting()) << "a saved value is there to restore";
    Setting::pushAllSettings();
    Setting::sCurrentModifier = 7;
    number.set(3);  // an equal value stamps the modifier and nothing else
    EXPECT_EQ(number.getModifier(), 7);
    EXPECT_TRUE(log.empty());
    EXPECT_EQ(Setting::sRestoreList.frontFrameSize(), 0);
    EXPECT_EQ(number.getSavedCount(), 0);
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

TEST(TypedSetting, TextFormsAndTypeCodes) {
    SettingGroup g("Text");
    for (const auto& [text, expected] :
         {std::pair{" TRUE ", true}, {"\t1\n", true}, {"True", true}, {"yes", false},
          {"0", false}, {"", false}, {"true1", false}, {"t rue", false}}) {
        TypedSetting<bool> s(g, "b", !expected);
        s.fromString(text);
        EXPECT_EQ(s.getValue(), expected) << '"' << text << '"';
        EXPECT_EQ(s.toString(), expected ? "1" : "0");
        EXPECT_EQ(static_cast<Setting&>(s).getType(), 0);
    }
    for (const auto& [text, expected] : {std::pair{"42", 42}, {"-17", -17}}) {
        IntSetting s(g, "i", -99);
        s.fromString(text);
        EXPECT_EQ(s.getValue(), expected);
        EXPECT_EQ(s.toString(), QString::number(expected));
        EXPECT_EQ(static_cast<Setting&>(s).getType(), 1);
    }
    for (const auto& [text, expected] : {std::pair{"hello world", "hello"},
                                         {"  padded\tword", "padded"}, {"   ", ""}}) {
        TypedSetting<QString> s(g, "s", "old");
        s.fromString(text);
        EXPECT_EQ(s.getValue(), QString(expected)) << '"' << text << '"';
        EXPECT_EQ(static_cast<Setting&>(s).getType(), 4);
    }
}

// The integer the toolkit's text stream reads from text, held to the int range.
int streamReads(const QString& text) {
    QString copy = text;
    QTextStream stream(&copy, QIODevice::ReadOnly);
    qlonglong value = 0;
    stream >> value;
    return int(std::clamp<qlonglong>(value, INT_MIN, INT_MAX));
}

TEST(TypedSetting, IntegerTextIsReadAsTheTextStreamReadsIt) {
    SettingGroup g("Stream");
    const char16_t* rows[] = {
        u"42", u"  -17 apples", u"+8", u"12.9", u"abc", u"", u"-", u"+", u"0", u"-0",
        u"08", u"09", u"0089", u"017", u"-017", u"0x1f", u"0X1F", u"0x", u"-0x10", u"0b101",
        u"0B2", u"0b", u"\u0661\u0662", u"\uff11\uff12", u"\u0660\u0668", u"\u0967\u0968x",
        u"99999999999", u"-99999999999", u"2147483647", u"2147483648", u"-2147483648",
        u"-2147483649", u"0x7fffffff", u"0x80000000", u"0b1111111111111111111111111111111",
        u"9223372036854775807", u"-9223372036854775808", u"000000000000000000000000012",
        u"0x0000000000000000000000001f", u"-000000000000000000000000012",
        u"+000000000000000000000000012"};
    for (const char16_t* row : rows) {
        const QString text = QString::fromUtf16(row);
        IntSetting s(g, "i", -99);
        s.fromString(text);
        EXPECT_EQ(s.getValue(), streamReads(text)) << text.toStdString();
    }
    // Past 64 bits the stream wraps silently; the setting saturates by the sign instead.
    const std::pair<const char16_t*, int> wrapped[] = {
        {u"18446744073709551616", INT_MAX}, {u"-18446744073709551616", INT_MIN},
        {u"18446744073709551621", INT_MAX}, {u" -18446744073709551621x", INT_MIN},
        {u"0xffffffffffffffff", INT_MAX}, {u"01777777777777777777777", INT_MAX},
        {u"0b1111111111111111111111111111111111111111111111111111111111111111", INT_MAX},
        {u"\uff11\uff18\uff14\uff14\uff16\uff17\uff14\uff14\uff10\uff17\uff13\uff17\uff10"
         u"\uff19\uff15\uff15\uff11\uff16\uff11\uff16", INT_MAX}};
    for (const auto& [row, expected] : wrapped) {
        const QString text = QString::fromUtf16(row);
        ASSERT_NE(streamReads(text), expected) << text.toStdString() << " does not wrap";
        IntSetting s(g, "i", -99);
        s.fromString(text);
        EXPECT_EQ(s.getValue(), expected) << text.toStdString();
    }
}

TEST(TypedSetting, SetValTruncatesAndSaturates) {
    SettingGroup g("Numbers");
    const double nan = std::nan("");
    for (const auto& [in, expected] :
         {std::pair{3.9, 3}, {-3.9, -3}, {1e12, INT_MAX}, {-1e12, INT_MIN}, {nan, INT_MIN},
          {2147483647.0, INT_MAX}, {2147483646.9, 2147483646}, {-2147483648.0, INT_MIN},
          {INFINITY, INT_MAX}}) {
        IntSetting s(g, "i", 0);
        s.setVal(in);
        EXPECT_EQ(s.getValue(), expected) << in;
        EXPECT_EQ(s.getVal(), double(expected));
    }
    for (const auto& [in, expected] :
         {std::pair{0.0, false}, {-0.0, false}, {0.5, true}, {nan, true}}) {
        TypedSetting<bool> s(g, "b", !expected);
        s.setVal(in);
        EXPECT_EQ(s.getValue(), expected) << in;
        EXPECT_EQ(s.getVal(), expected ? 1.0 : 0.0);
    }
    // Text has no number: it reads as 0 and ignores writes, which still count as a set.
    TypedSetting<QString> text(g, "s", "text");
    Log log;
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
    // CRC-32 of the UTF-8 bytes; the first is the algorithm's published check value.
    for (const auto& [text, crc] :
         {std::pair{QString("123456789"), 0xCBF43926u}, {QString(), 0u}, {QString(""), 0u},
          {QString::fromUtf8("Z\xc3\xbcrich \xe2\x82\xac"), 0xC7B6D23Eu}}) {
        HashedStringSetting h(g, "h", text);
        EXPECT_EQ(h.getHash(), crc) << text.toStdString();
        h.set("changed");
        EXPECT_EQ(h.getHash(), crc);
        EXPECT_EQ(h.getDefault(), text);
        EXPECT_EQ(h.getType(), 8);
    }
}
