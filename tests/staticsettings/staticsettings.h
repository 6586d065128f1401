// Static settings and their group, defined in separate translation units for the loader to order.
#pragma once

#include <vanta/settings.h>
#include <vanta/typedsetting.h>

// Plain zero-initialised, so it counts correctly whichever unit the loader initialises first.
extern int gStampCounter;
inline int takeStamp() { return ++gStampCounter; }

// staticgroup.cpp
extern vanta::SettingGroup gStaticGroup;
extern const int gGroupStamp;

// A group class whose members are its settings, built in one go.
struct OptionsGroup : vanta::SettingGroup {
    OptionsGroup();
    vanta::IntSetting width;
    vanta::TypedSetting<QString> title;
    vanta::TypedSetting<bool> firstRun;
};
extern OptionsGroup gOptions;

// staticmembers.cpp
extern vanta::IntSetting gAlpha;
extern vanta::TypedSetting<bool> gBeta;
extern vanta::HashedStringSetting gGamma;
extern const bool gMembersBuiltAsOrphans;
extern const int gMembersStamp;
