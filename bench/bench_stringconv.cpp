// String conversions against Qt's own on 1 KB mixed-script texts.
#include <vanta/stringconv.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>

#include <string>

using namespace vanta;

namespace {

// About 1 KB of UTF-16: Latin with accents, Cyrillic, Greek, CJK and a few characters beyond the
// first plane, the mix a globe's place names and labels bring.
QString mixedText() {
    const QString piece = QStringLiteral(
        "Zürich, Genève; Москва — Санкт-Петербург; Αθήνα; 東京都 大阪市; 서울; 🌍 مصر 🚀 ");
    QString text;
    while (text.size() * 2 < 1024)
        text += piece;
    return text;
}

const QString& text() {
    static const QString t = mixedText();
    return t;
}

const std::wstring& wideText() {
    static const std::wstring w = text().toStdWString();
    return w;
}

void toWStringOurs(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(toWString(text()));
}
BENCHMARK(toWStringOurs)->Name("to_wstring/ours");

void toWStringQt(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(text().toStdWString());
}
BENCHMARK(toWStringQt)->Name("to_wstring/qt");

void toQStringOurs(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(toQString(wideText()));
}
BENCHMARK(toQStringOurs)->Name("to_qstring/ours");

void toQStringQt(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(QString::fromStdWString(wideText()));
}
BENCHMARK(toQStringQt)->Name("to_qstring/qt");

// A fresh stream per text, as toUtf8 makes a fresh array per call.
void utf8Ours(benchmark::State& state) {
    for (auto _ : state) {
        Utf8OStream stream(0);
        stream << text();
        benchmark::DoNotOptimize(stream.data());
    }
}
BENCHMARK(utf8Ours)->Name("utf8/ours");

void utf8Qt(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(text().toUtf8());
}
BENCHMARK(utf8Qt)->Name("utf8/qt");

VANTA_BENCH_TARGET("to_wstring", "qt", 1.0);
VANTA_BENCH_TARGET("to_qstring", "qt", 1.0);
VANTA_BENCH_TARGET("utf8", "qt", 1.0);

}  // namespace
