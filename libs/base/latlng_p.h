// Coordinate parsing internals (not API): the two matching engines behind the coordinate parsers.
#pragma once

#include <vanta/latlng.h>

#include <QStringView>

namespace vanta {
namespace latlng {

// The capturing groups of one match: group i is text[start[i], end[i]), or unset (start -1).
struct Groups {
    static constexpr int kMax = 5;  // group 0 (the whole match) and up to four groups

    QStringView text;
    qsizetype start[kMax];
    qsizetype end[kMax];

    void reset(QStringView subject);
    void set(int group, qsizetype from, qsizetype to) {
        start[group] = from;
        end[group] = to;
    }
    void unset(int group) { start[group] = end[group] = -1; }
    bool isSet(int group) const { return start[group] >= 0; }
    // The captured text; empty (and null) when the group is unset.
    QStringView operator[](int group) const {
        return isSet(group) ? text.mid(start[group], end[group] - start[group]) : QStringView();
    }
};

// How the parsers match their patterns. Both accept the same language and capture the same
// groups; the scanner is the fast one and the default, the compiled expressions are the
// reference it is tested against.
enum class Engine { Scanner, Expression };

// Chooses the engine for every parser in the process (for tests and benchmarks). Relaxed and
// lock-free: switch it while no parse is running.
void setEngine(Engine engine);
Engine engine();

// A captured number as QString::toDouble reads it, with its success flag; faster on the digits
// and point that the patterns capture.
bool toNumber(QStringView text, double* out);

// Matches text against the whole of one slot's pattern with the current engine, filling groups.
// False (groups undefined) when it does not match or text is longer than
// kMaxCoordinateTextLength.
bool match(const LatLngValuePatterns& patterns, LatLngValuePatterns::Slot slot, QStringView text,
           Groups& groups);
bool match(const LatValuePatterns& patterns, LatValuePatterns::Slot slot, QStringView text,
           Groups& groups);
bool match(const LngValuePatterns& patterns, LngValuePatterns::Slot slot, QStringView text,
           Groups& groups);
bool match(const LatLngPairPatterns& patterns, LatLngPairPatterns::Slot slot, QStringView text,
           Groups& groups);

// The hand-written matcher alone (latlngscanner.cpp), same contract without the length limit.
bool scanValue(LatLngValuePatterns::Slot slot, QStringView text, Groups& groups);
// slot is a LatValuePatterns or LngValuePatterns slot; eastWest chooses the E/W letters.
bool scanDirectional(int slot, bool eastWest, QStringView text, Groups& groups);
bool scanPair(LatLngPairPatterns::Slot slot, QStringView text, Groups& groups);

// The expression engine alone, same contract without the length limit.
bool matchExpression(const QRegularExpression& expression, QStringView text, Groups& groups);

}  // namespace latlng
}  // namespace vanta
