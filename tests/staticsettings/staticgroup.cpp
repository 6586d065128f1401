// The group of the static settings in staticmembers.cpp, and a group class with member settings.
#include "staticsettings.h"

vanta::SettingGroup gStaticGroup("Static");
const int gGroupStamp = takeStamp();

OptionsGroup::OptionsGroup()
    : SettingGroup("Options"),
      width(*this, "width", 800),
      title(*this, "title", "untitled"),
      firstRun(*this, "firstRun", true, true, true) {}

OptionsGroup gOptions;
