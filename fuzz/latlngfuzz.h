// Shared by the coordinate fuzz targets: decoding the input and reading it with both engines.
#pragma once

#include <vanta/latlng.h>
#include <vanta/latlng_p.h>

#include <QString>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace latlngfuzz {

// A leading NUL byte means the rest is raw UTF-16 code units, which reaches lone surrogates and
// NULs; anything else is read as UTF-8, as the vanta tool reads its arguments.
inline QString decode(const uint8_t* data, size_t size) {
    if (size > 0 && data[0] == 0) {
        QString text;
        for (size_t i = 1; i + 1 < size; i += 2)
            text.append(QChar(char16_t(data[i] | data[i + 1] << 8)));
        return text;
    }
    return QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(size));
}

constexpr double kUntouched = -999.5;

// Every accepted form stays within 180 degrees and sixty minutes and seconds of it.
inline bool plausible(double degrees) { return std::isfinite(degrees) && std::fabs(degrees) < 182; }

struct Reading {
    bool ok;
    double first, second;
};

// Reads text with read(text, &first, &second) on each engine; outputs says how many of the two
// a successful read writes. A failed read must leave both untouched; the two engines must agree
// to the bit.
template <class Read>
void checkBothEngines(const QString& text, int outputs, Read read) {
    Reading readings[2];
    const vanta::latlng::Engine engines[2] = {vanta::latlng::Engine::Scanner,
                                              vanta::latlng::Engine::Expression};
    for (int i = 0; i < 2; ++i) {
        vanta::latlng::setEngine(engines[i]);
        Reading& r = readings[i];
        r.first = r.second = kUntouched;
        r.ok = read(text, &r.first, &r.second);
        if (!r.ok && (r.first != kUntouched || r.second != kUntouched))
            std::abort();  // a failed read wrote its output
        if (r.ok && (!plausible(r.first) || (outputs == 2 ? !plausible(r.second)
                                                           : r.second != kUntouched)))
            std::abort();  // no accepted form reaches beyond 180 degrees and a bit
    }
    vanta::latlng::setEngine(vanta::latlng::Engine::Scanner);
    if (readings[0].ok != readings[1].ok ||
        std::memcmp(&readings[0].first, &readings[1].first, sizeof(double)) != 0 ||
        std::memcmp(&readings[0].second, &readings[1].second, sizeof(double)) != 0)
        std::abort();  // the scanner and the expressions disagree
}

}  // namespace latlngfuzz
