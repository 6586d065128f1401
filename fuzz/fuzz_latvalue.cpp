// Fuzz target: vanta::LatValue::Parse on arbitrary text, on both matching engines.
#include "latlngfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    latlngfuzz::checkBothEngines(latlngfuzz::decode(data, size), 1,
                                 [](const QString& text, double* value, double*) {
                                     return vanta::LatValue::Parse(text, value);
                                 });
    return 0;
}
