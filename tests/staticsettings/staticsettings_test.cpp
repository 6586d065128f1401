// Tests of settings and groups built by the loader during static initialisation, in either order.
#include "staticsettings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace vanta;
using Names = std::vector<std::string>;

int gStampCounter;

// One suite name per executable, so the two sets of results stay apart.
#if VANTA_GROUP_BUILT_FIRST
#define STATIC_SUITE StaticSettingsGroupFirst
#else
#define STATIC_SUITE StaticSettingsSettingsFirst
#endif

namespace {

Names namesOf(const SettingGroup& g) {
    Names names;
    for (int i = 0; i < g.getSettingCount(); ++i)
        names.push_back(g.getSetting(i)->getName().toStdString());
    return names;
}

}  // namespace

TEST(STATIC_SUITE, GroupListsItsSettingsWhicheverCameFirst) {
    // If the linker ever reorders the units, this executable no longer tests what it claims to.
    ASSERT_EQ(gGroupStamp < gMembersStamp, bool(VANTA_GROUP_BUILT_FIRST));
    EXPECT_EQ(gMembersBuiltAsOrphans, !VANTA_GROUP_BUILT_FIRST);
    // Orphans are adopted newest first; settings built after their group are appended.
    EXPECT_EQ(namesOf(gStaticGroup), (VANTA_GROUP_BUILT_FIRST ? Names{"alpha", "beta", "gamma"}
                                                              : Names{"gamma", "beta", "alpha"}));
    for (Setting* s : {static_cast<Setting*>(&gAlpha), static_cast<Setting*>(&gBeta),
                       static_cast<Setting*>(&gGamma)}) {
        EXPECT_FALSE(s->isOrphan());
        EXPECT_EQ(s->getGroup(), &gStaticGroup);
    }
    EXPECT_EQ(SettingGroup::getGroup("Static"), &gStaticGroup);
}

TEST(STATIC_SUITE, GroupClassMembersAreListedInDeclarationOrder) {
    EXPECT_EQ(namesOf(gOptions), (Names{"width", "title", "firstRun"}));
    EXPECT_EQ(SettingGroup::getGroup("Options"), &gOptions);
    EXPECT_TRUE(gOptions.firstRun.getSecondFlag());
    EXPECT_FALSE(gOptions.width.getSecondFlag());
}
