// Coordinate readers against GeographicLib's DMS decoder, on one fixed corpus of typed positions.
#include "benchmain.h"

#include <vanta/latlng.h>
#include <vanta/latlng_p.h>

#include <GeographicLib/DMS.hpp>
#include <benchmark/benchmark.h>

#include <QString>

#include <cstdint>
#include <string>
#include <vector>

namespace {

using vanta::latlng::Engine;

constexpr int kCorpusSize = 10000;

// The same 10,000 inputs on every run and machine: a fixed seed through splitmix64.
class Dice {
public:
    int below(int n) { return int(next() % uint64_t(n)); }
    double uniform(double high) { return double(next() >> 11) / double(1ull << 53) * high; }

private:
    uint64_t next() {
        uint64_t z = (mState += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    uint64_t mState = 20261122;
};

// A magnitude as people type it: degrees, degrees-minutes or degrees-minutes-seconds, with marks
// or blanks, a few decimals on the last quantity.
std::string magnitude(Dice& dice, double m) {
    const int degrees = int(m);
    const double minutes = (m - degrees) * 60;
    const int wholeMinutes = int(minutes);
    char text[64];
    switch (dice.below(5)) {
    case 0:
        std::snprintf(text, sizeof text, "%.*f", 1 + dice.below(6), m);
        break;
    case 1:
        std::snprintf(text, sizeof text, "%.4f\u00b0", m);
        break;
    case 2:
        std::snprintf(text, sizeof text, "%d\u00b0%.3f'", degrees, minutes);
        break;
    case 3:
        std::snprintf(text, sizeof text, "%d\u00b0%d'%.2f\"", degrees, wholeMinutes,
                      (minutes - wholeMinutes) * 60);
        break;
    default:
        std::snprintf(text, sizeof text, "%d %d %.1f", degrees, wholeMinutes,
                      (minutes - wholeMinutes) * 60);
        break;
    }
    return text;
}

// A signed value marked by a letter after or before it, or by a sign.
std::string marked(Dice& dice, double v, const char* letters, const std::string& number) {
    const char letter = letters[v < 0 ? 1 : 0];
    switch (dice.below(3)) {
    case 0: return number + letter;
    case 1: return std::string(1, letter) + number;
    default: return (v < 0 ? "-" : "") + number;
    }
}

struct Input {
    enum Kind { Magnitude, Latitude, Pair } kind;
    std::string text;         // the whole input, UTF-8
    std::string first, second;  // a pair's two halves, for the peer that reads them apart
};

std::vector<Input> makeCorpus() {
    Dice dice;
    std::vector<Input> corpus;
    for (int i = 0; i < kCorpusSize; ++i) {
        switch (i % 3) {
        case 0:
            corpus.push_back({Input::Magnitude, magnitude(dice, dice.uniform(180)), {}, {}});
            break;
        case 1: {
            const double v = dice.uniform(180) - 90;
            corpus.push_back({Input::Latitude, marked(dice, v, "NS", magnitude(dice, v < 0 ? -v : v)), {}, {}});
            break;
        }
        default: {
            const double lat = dice.uniform(180) - 90, lng = dice.uniform(360) - 180;
            const bool letters = dice.below(2);
            const std::string a = letters ? magnitude(dice, lat < 0 ? -lat : lat) + (lat < 0 ? "S" : "N")
                                          : (lat < 0 ? "-" : "") + magnitude(dice, lat < 0 ? -lat : lat);
            const std::string b = letters ? magnitude(dice, lng < 0 ? -lng : lng) + (lng < 0 ? "W" : "E")
                                          : (lng < 0 ? "-" : "") + magnitude(dice, lng < 0 ? -lng : lng);
            const char* const between[] = {" ", ", ", "/"};
            corpus.push_back({Input::Pair, a + between[dice.below(3)] + b, a, b});
            break;
        }
        }
    }
    return corpus;
}

bool peerReadsValue(const std::string& text) {
    try {
        GeographicLib::DMS::flag indicator;
        GeographicLib::DMS::Decode(text, indicator);
        return true;
    } catch (const GeographicLib::GeographicErr&) {
        return false;
    }
}

bool peerReadsPair(const Input& input) {
    try {
        double lat = 0, lng = 0;
        GeographicLib::DMS::DecodeLatLon(input.first, input.second, lat, lng);
        return true;
    } catch (const GeographicLib::GeographicErr&) {
        return false;
    }
}

// The inputs of one kind that both readers accept, in both encodings.
struct Accepted {
    std::vector<QString> ours;
    std::vector<std::string> text, first, second;
};

struct Corpus {
    Accepted magnitudes, latitudes, pairs;
    int counts[3] = {};  // inputs of each kind before filtering
};

const Corpus& corpus() {
    static const Corpus sCorpus = [] {
        Corpus c;
        for (const Input& input : makeCorpus()) {
            const QString text = QString::fromStdString(input.text);
            double a = 0, b = 0;
            ++c.counts[input.kind];
            bool both = false;
            Accepted* into = nullptr;
            switch (input.kind) {
            case Input::Magnitude:
                both = vanta::LatLngValue::Parse(text, &a) && peerReadsValue(input.text);
                into = &c.magnitudes;
                break;
            case Input::Latitude:
                both = vanta::LatValue::Parse(text, &a) && peerReadsValue(input.text);
                into = &c.latitudes;
                break;
            case Input::Pair:
                both = vanta::LatLngPair::Parse(text, &a, &b) && peerReadsPair(input);
                into = &c.pairs;
                break;
            }
            if (!both)
                continue;
            into->ours.push_back(text);
            into->text.push_back(input.text);
            into->first.push_back(input.first);
            into->second.push_back(input.second);
        }
        vantabench::note("Corpus: " + std::to_string(kCorpusSize) + " inputs; both readers accept " +
                         std::to_string(c.magnitudes.ours.size()) + " of " +
                         std::to_string(c.counts[0]) + " magnitudes, " +
                         std::to_string(c.latitudes.ours.size()) + " of " +
                         std::to_string(c.counts[1]) + " marked values, " +
                         std::to_string(c.pairs.ours.size()) + " of " + std::to_string(c.counts[2]) +
                         " pairs. \"regex\" rows are our readers on the compiled expressions "
                         "instead of the scanner.");
        return c;
    }();
    return sCorpus;
}

template <class Read>
void runOurs(benchmark::State& state, const std::vector<QString>& inputs, Engine engine, Read read) {
    vanta::latlng::setEngine(engine);
    size_t i = 0;
    for (auto _ : state) {
        double a = 0, b = 0;
        benchmark::DoNotOptimize(read(inputs[i], &a, &b));
        benchmark::DoNotOptimize(a);
        if (++i == inputs.size())
            i = 0;
    }
    vanta::latlng::setEngine(Engine::Scanner);
}

bool readMagnitude(const QString& text, double* value, double*) {
    return vanta::LatLngValue::Parse(text, value);
}
bool readLatitude(const QString& text, double* value, double*) {
    return vanta::LatValue::Parse(text, value);
}
bool readPair(const QString& text, double* lat, double* lng) {
    return vanta::LatLngPair::Parse(text, lat, lng);
}

void peerValues(benchmark::State& state, const std::vector<std::string>& inputs) {
    size_t i = 0;
    for (auto _ : state) {
        GeographicLib::DMS::flag indicator;
        benchmark::DoNotOptimize(GeographicLib::DMS::Decode(inputs[i], indicator));
        if (++i == inputs.size())
            i = 0;
    }
}

void BM_ValueOurs(benchmark::State& s) { runOurs(s, corpus().magnitudes.ours, Engine::Scanner, readMagnitude); }
void BM_ValueRegex(benchmark::State& s) { runOurs(s, corpus().magnitudes.ours, Engine::Expression, readMagnitude); }
void BM_ValuePeer(benchmark::State& s) { peerValues(s, corpus().magnitudes.text); }
void BM_LatOurs(benchmark::State& s) { runOurs(s, corpus().latitudes.ours, Engine::Scanner, readLatitude); }
void BM_LatRegex(benchmark::State& s) { runOurs(s, corpus().latitudes.ours, Engine::Expression, readLatitude); }
void BM_LatPeer(benchmark::State& s) { peerValues(s, corpus().latitudes.text); }
void BM_PairOurs(benchmark::State& s) { runOurs(s, corpus().pairs.ours, Engine::Scanner, readPair); }
void BM_PairRegex(benchmark::State& s) { runOurs(s, corpus().pairs.ours, Engine::Expression, readPair); }

void BM_PairPeer(benchmark::State& state) {
    const Accepted& pairs = corpus().pairs;
    size_t i = 0;
    for (auto _ : state) {
        double lat = 0, lng = 0;
        GeographicLib::DMS::DecodeLatLon(pairs.first[i], pairs.second[i], lat, lng);
        benchmark::DoNotOptimize(lat);
        benchmark::DoNotOptimize(lng);
        if (++i == pairs.first.size())
            i = 0;
    }
}

}  // namespace

BENCHMARK(BM_ValueOurs)->Name("latlngvalue/ours");
BENCHMARK(BM_ValuePeer)->Name("latlngvalue/geographiclib");
BENCHMARK(BM_ValueRegex)->Name("latlngvalue/regex");
BENCHMARK(BM_LatOurs)->Name("latvalue/ours");
BENCHMARK(BM_LatPeer)->Name("latvalue/geographiclib");
BENCHMARK(BM_LatRegex)->Name("latvalue/regex");
BENCHMARK(BM_PairOurs)->Name("latlngpair/ours");
BENCHMARK(BM_PairPeer)->Name("latlngpair/geographiclib");
BENCHMARK(BM_PairRegex)->Name("latlngpair/regex");

VANTA_BENCH_TARGET("latlngvalue", "geographiclib", 0.5);
VANTA_BENCH_TARGET("latvalue", "geographiclib", 0.5);
VANTA_BENCH_TARGET("latlngpair", "geographiclib", 0.7);
