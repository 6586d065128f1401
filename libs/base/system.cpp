// vanta::System: the process clock, frame timing and random numbers.
#include <vanta/system.h>

namespace vanta {

int System::sCurFrame = 0;

}  // namespace vanta
