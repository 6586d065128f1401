// Static settings of the group defined in staticgroup.cpp.
#include "staticsettings.h"

vanta::IntSetting gAlpha(gStaticGroup, "alpha", 1);
vanta::TypedSetting<bool> gBeta(gStaticGroup, "beta", true);
vanta::HashedStringSetting gGamma(gStaticGroup, "gamma", "g");
// Read while the loader is still initialising: whether the group existed yet.
const bool gMembersBuiltAsOrphans = gAlpha.isOrphan() && gBeta.isOrphan() && gGamma.isOrphan();
const int gMembersStamp = takeStamp();
