// Fuzz target: vanta::LatLngPair::Parse on arbitrary text, on both matching engines.
#include "latlngfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    latlngfuzz::checkBothEngines(latlngfuzz::decode(data, size), 2,
                                 [](const QString& text, double* latitude, double* longitude) {
                                     return vanta::LatLngPair::Parse(text, latitude, longitude);
                                 });
    return 0;
}
