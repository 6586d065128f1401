// Benchmarks of DateTime: ISO 8601 reading and printing against the date library and QDateTime,
// and the HTTP date reader against curl_getdate.
#include <vanta/datetime.h>

#include "benchmain.h"

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <date/date.h>

#include <QDateTime>
#include <QTimeZone>

#include <chrono>
#include <random>
#include <sstream>
#include <string>
#include <vector>

VANTA_BENCH_TARGET("iso-read", "hhdate", 1.0);
VANTA_BENCH_TARGET("iso-read", "qdatetime", 1.0);
VANTA_BENCH_TARGET("iso-print", "qdatetime", 0.5);
VANTA_BENCH_TARGET("http-read", "curl", 1.0);

namespace {

constexpr int kTexts = 10000;

// The forms every reader under test accepts, each with the date library's format for it.
enum Form { kDate, kUtc, kLocal, kOffset, kFraction, kForms };
const char* const kFormats[kForms] = {"%F", "%FT%TZ", "%FT%T", "%FT%T%Ez", "%FT%TZ"};

struct IsoInputs {
    std::vector<QString> texts;
    std::vector<std::string> utf8;
    std::vector<int> forms;
};

const IsoInputs& isoInputs() {
    static const IsoInputs inputs = [] {
        IsoInputs in;
        std::mt19937 rng(12);
        for (int i = 0; i < kTexts; ++i) {
            const int form = i % kForms;
            const int y = 1900 + int(rng() % 200), mo = 1 + int(rng() % 12), d = 1 + int(rng() % 28);
            const int h = int(rng() % 24), mi = int(rng() % 60), s = int(rng() % 60);
            char text[64];
            switch (form) {
            case kDate: std::snprintf(text, sizeof text, "%04d-%02d-%02d", y, mo, d); break;
            case kUtc: std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", y, mo, d, h, mi, s); break;
            case kLocal: std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", y, mo, d, h, mi, s); break;
            case kOffset: std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d%c%02d:%02d", y, mo, d, h, mi, s,
                                        rng() % 2 ? '+' : '-', int(rng() % 13), int(rng() % 4) * 15); break;
            default: std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", y, mo, d, h, mi, s, int(rng() % 1000)); break;
            }
            in.texts.push_back(QString::fromLatin1(text));
            in.utf8.push_back(text);
            in.forms.push_back(form);
        }
        return in;
    }();
    return inputs;
}

void isoReadOurs(benchmark::State& state) {
    const IsoInputs& in = isoInputs();
    for (auto _ : state) {
        for (const QString& text : in.texts) {
            vanta::DateTime t;
            text >> t;
            benchmark::DoNotOptimize(t.second);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

void isoReadHhdate(benchmark::State& state) {
    const IsoInputs& in = isoInputs();
    for (auto _ : state) {
        for (int i = 0; i < kTexts; ++i) {
            std::istringstream stream(in.utf8[i]);
            date::sys_time<std::chrono::milliseconds> when;
            stream >> date::parse(kFormats[in.forms[i]], when);
            benchmark::DoNotOptimize(when);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

void isoReadQDateTime(benchmark::State& state) {
    const IsoInputs& in = isoInputs();
    for (auto _ : state) {
        for (const QString& text : in.texts) {
            QDateTime t = QDateTime::fromString(text, Qt::ISODate);
            benchmark::DoNotOptimize(t);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

// The same instants for every printer: the texts read by each, so zones match.
void isoPrintOurs(benchmark::State& state) {
    std::vector<vanta::DateTime> stamps(kTexts);
    for (int i = 0; i < kTexts; ++i)
        isoInputs().texts[i] >> stamps[i];
    for (auto _ : state) {
        for (const vanta::DateTime& t : stamps) {
            QString text = t.toString();
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

void isoPrintQDateTime(benchmark::State& state) {
    std::vector<QDateTime> stamps;
    for (const QString& text : isoInputs().texts)
        stamps.push_back(QDateTime::fromString(text, Qt::ISODate));
    for (auto _ : state) {
        for (const QDateTime& t : stamps) {
            QString text = t.toString(Qt::ISODate);
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

void isoPrintHhdate(benchmark::State& state) {
    const IsoInputs& in = isoInputs();
    std::vector<date::sys_seconds> stamps;
    for (int i = 0; i < kTexts; ++i) {
        std::istringstream stream(in.utf8[i]);
        date::sys_time<std::chrono::milliseconds> when;
        stream >> date::parse(kFormats[in.forms[i]], when);
        stamps.push_back(date::floor<std::chrono::seconds>(when));
    }
    for (auto _ : state) {
        for (const date::sys_seconds& t : stamps) {
            std::string text = date::format("%FT%TZ", t);
            benchmark::DoNotOptimize(text);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

struct HttpInputs {
    std::vector<QString> texts;
    std::vector<std::string> utf8;
};

const HttpInputs& httpInputs() {
    static const HttpInputs inputs = [] {
        static const char* const days[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};
        static const char* const months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        HttpInputs in;
        std::mt19937 rng(13);
        for (int i = 0; i < kTexts; ++i) {
            char text[64];
            std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", days[rng() % 7],
                          1 + int(rng() % 28), months[rng() % 12], 1980 + int(rng() % 50),
                          int(rng() % 24), int(rng() % 60), int(rng() % 60));
            in.texts.push_back(QString::fromLatin1(text));
            in.utf8.push_back(text);
        }
        return in;
    }();
    return inputs;
}

void httpReadOurs(benchmark::State& state) {
    for (auto _ : state) {
        for (const QString& text : httpInputs().texts) {
            vanta::DateTime t;
            t.parseHttpDate(text);
            benchmark::DoNotOptimize(t.second);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

void httpReadCurl(benchmark::State& state) {
    for (auto _ : state) {
        for (const std::string& text : httpInputs().utf8) {
            time_t t = curl_getdate(text.c_str(), nullptr);
            benchmark::DoNotOptimize(t);
        }
    }
    state.SetItemsProcessed(state.iterations() * kTexts);
}

}  // namespace

BENCHMARK(isoReadOurs)->Name("iso-read/ours");
BENCHMARK(isoReadHhdate)->Name("iso-read/hhdate");
BENCHMARK(isoReadQDateTime)->Name("iso-read/qdatetime");
BENCHMARK(isoPrintOurs)->Name("iso-print/ours");
BENCHMARK(isoPrintQDateTime)->Name("iso-print/qdatetime");
BENCHMARK(isoPrintHhdate)->Name("iso-print/hhdate");
BENCHMARK(httpReadOurs)->Name("http-read/ours");
BENCHMARK(httpReadCurl)->Name("http-read/curl");
