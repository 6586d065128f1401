// Static settings and their group, defined in separate translation units for the loader to order.
#pragma once

#include <vanta/settings.h>
#include <vanta/typedsetting.h>

// Plain zero-initialised, so it counts correctly whichever unit the loader initialises first.
extern int gStampCounter;
inline int takeStamp() { return ++gStampCounter; }

// A group class whose members are its settings, built in one go.
struct OptionsGroup : vanta::SettingGroup {
    OptionsGroup();
    vanta::IntSetting width;
    vanta::TypedSetting<QString> title;
    vanta::TypedSetting<bool> firstRun;
};

extern vanta::SettingGroup gStaticGroup;  // staticgroup.cpp
extern OptionsGroup gOptions;
extern const int gGroupStamp;
extern vanta::IntSetting gAlpha;  // staticmembers.cpp
extern vanta::TypedSetting<bool> gBeta;
extern vanta::HashedStringSetting gGamma;
extern const bool gMembersBuiltAsOrphans;  // whether the group was not built yet
extern const int gMembersStamp;
