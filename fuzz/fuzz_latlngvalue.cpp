// Fuzz target: vanta::LatLngValue::Parse on arbitrary text, on both matching engines, and its
// number conversion against the toolkit's.
#include "latlngfuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString text = latlngfuzz::decode(data, size);
    latlngfuzz::checkBothEngines(text, 1, [](const QString& input, double* value, double*) {
        return vanta::LatLngValue::Parse(input, value);
    });

    bool expectedOk = false;
    const double expected = text.toDouble(&expectedOk);
    double converted = 0;
    if (vanta::latlng::toNumber(text, &converted) != expectedOk ||
        (expectedOk && std::memcmp(&converted, &expected, sizeof(double)) != 0))
        std::abort();  // the fast conversion differs from the toolkit's
    return 0;
}
