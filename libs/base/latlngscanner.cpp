// The hand-written matcher for the coordinate patterns: each pattern spelled with small combinators.
//
// Every combinator mirrors one piece of the regular expressions in latlng.cpp and tries its
// choices in the order a backtracking engine does (greedy first, alternatives left to right),
// handing each candidate end to the rest of the pattern as a continuation. So the first
// complete match found, and the groups it captures, are those of the compiled expressions; the
// only work saved is the allocation and bookkeeping a general engine needs. The two are tested
// against each other on every form and fuzzed against each other.
#include <vanta/latlng_p.h>

#include <QChar>

#include <tuple>
#include <utility>

namespace vanta {
namespace latlng {
namespace {

using Pos = qsizetype;

struct Subject {
    const char16_t* s;
    Pos n;
    Groups& groups;
};

// \d with Unicode properties: the code units taken by the decimal digit at p, 0 when none.
// Only 0-9 ever convert to a number, but the others must match where the expressions match them.
int digitAt(const Subject& t, Pos p) {
    if (p >= t.n)
        return 0;
    const char16_t c = t.s[p];
    if (c < 0x80)
        return c >= '0' && c <= '9' ? 1 : 0;
    if (QChar::isHighSurrogate(c)) {
        if (p + 1 < t.n && QChar::isLowSurrogate(t.s[p + 1]))
            return QChar::isDigit(QChar::surrogateToUcs4(c, t.s[p + 1])) ? 2 : 0;
        return 0;
    }
    return QChar::isDigit(char32_t(c)) ? 1 : 0;
}

Pos digitRunEnd(const Subject& t, Pos p) {
    while (const int width = digitAt(t, p))
        p += width;
    return p;
}

// \s with Unicode properties: the ASCII blanks, the Unicode separators, NEL and U+180E.
bool isBlank(char16_t c) {
    if (c < 0x80)
        return c == ' ' || (c >= 0x09 && c <= 0x0d);
    switch (c) {
    case 0x85: case 0xa0: case 0x1680: case 0x180e: case 0x2028: case 0x2029: case 0x202f:
    case 0x205f: case 0x3000:
        return true;
    default:
        return c >= 0x2000 && c <= 0x200a;
    }
}

// \d+(?!\d): a whole run of digits. The lookahead leaves one choice, the run to its end.
struct Digits {
    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        const Pos end = digitRunEnd(t, p);
        return end > p && k(end);
    }
};

// \d+(?!\d)\.?\d* with point '.' (',' in the decimal-comma forms): the run, then the point and
// as many fraction digits as the rest allows, giving them back one at a time, then no point.
struct Number {
    char16_t point;

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        const Pos whole = digitRunEnd(t, p);
        if (whole == p)
            return false;
        if (whole < t.n && t.s[whole] == point) {
            const Pos first = whole + 1;
            for (Pos q = digitRunEnd(t, first);; q -= QChar::isLowSurrogate(t.s[q - 1]) ? 2 : 1) {
                if (k(q))
                    return true;
                if (q == first)
                    break;
            }
        }
        return k(whole);
    }
};

// One given character.
struct Char {
    char16_t c;

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        return p < t.n && t.s[p] == c && k(p + 1);
    }
};

// A character class such as [NSns]: one character of the set.
struct OneOf {
    const char16_t* set;

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        if (p >= t.n)
            return false;
        for (const char16_t* c = set; *c; ++c) {
            if (t.s[p] == *c)
                return k(p + 1);
        }
        return false;
    }
};

// \s*, taking every blank and never giving one back. That is the same as greedy backtracking
// here: what follows a \s* in these patterns never starts with a blank, except a skipped
// optional piece before a second \s* ("\s*[,/]?\s*", "\s*([-+])?\s*"), and handing blanks from
// the first \s* to the second reaches the same position with the optional piece skipped, which
// the greedy choice has already tried. Giving back would only repeat failures.
struct Blanks {
    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        while (p < t.n && isBlank(t.s[p]))
            ++p;
        return k(p);
    }
};

// (?:e)?: e first, then without it.
template <class E>
struct Opt {
    E e;
    constexpr explicit Opt(E inner) : e(inner) {}

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        return e.match(t, p, k) || k(p);
    }
};

// (e): records where e matched before going on; unset again when every way through failed, as
// a backtracking engine restores a group it backs out of.
template <class E>
struct Cap {
    int group;
    E e;
    constexpr Cap(int index, E inner) : group(index), e(inner) {}

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        const bool matched = e.match(t, p, [&](Pos q) {
            t.groups.set(group, p, q);
            return k(q);
        });
        if (!matched)
            t.groups.unset(group);
        return matched;
    }
};

// e1 e2 ... en: each piece's continuation is the rest of the sequence.
template <class... E>
struct Seq {
    std::tuple<E...> items;
    constexpr explicit Seq(E... pieces) : items(pieces...) {}

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        return from<0>(t, p, k);
    }

    template <std::size_t I, class K>
    bool from(const Subject& t, Pos p, const K& k) const {
        if constexpr (I == sizeof...(E))
            return k(p);
        else
            return std::get<I>(items).match(t, p, [&](Pos q) { return from<I + 1>(t, q, k); });
    }
};

// e1|e2|...: the alternatives left to right.
template <class... E>
struct Alt {
    std::tuple<E...> items;
    constexpr explicit Alt(E... alternatives) : items(alternatives...) {}

    template <class K>
    bool match(const Subject& t, Pos p, const K& k) const {
        return any(t, p, k, std::index_sequence_for<E...>{});
    }

    template <class K, std::size_t... I>
    bool any(const Subject& t, Pos p, const K& k, std::index_sequence<I...>) const {
        return (std::get<I>(items).match(t, p, k) || ...);
    }
};

// Runs a pattern against the whole text.
template <class Pattern>
bool run(const Pattern& pattern, QStringView text, Groups& groups) {
    groups.reset(text);
    const Subject t{text.utf16(), text.size(), groups};
    return pattern.match(t, 0, [&](Pos end) {
        if (end != t.n)
            return false;
        groups.set(0, 0, end);
        return true;
    });
}

// The pieces, named after the expression text they stand for.
constexpr Opt<Char> kDegreeMark{Char{u'\u00b0'}};                              // (?:°)?
constexpr Opt<OneOf> kMinuteMark{OneOf{u"`'"}};                                // [`']?
constexpr Opt<Alt<Char, Seq<Char, Char>>> kSecondMark{
    Alt<Char, Seq<Char, Char>>{Char{u'"'}, Seq<Char, Char>{Char{u'\''}, Char{u'\''}}}};  // (?:"|'')?
constexpr Digits kWhole{};                                                     // \d+(?!\d)
constexpr Number kDecimal{u'.'};                                               // \d+(?!\d)\.?\d*
constexpr Number kCommaDecimal{u','};                                          // \d+(?!\d)\,?\d*
constexpr Blanks kBlanks{};                                                    // \s*
constexpr Char kComma{u','};                                                   // ,
constexpr OneOf kSign{u"-+"};                                                  // [-+]
constexpr Opt<OneOf> kBetween{OneOf{u",/"}};                                   // [,/]?
constexpr OneOf kPairLetter{u"NSEWnsew"};                                      // [NSEWnsew]

// The value alternation: degrees | degrees minutes | degrees minutes seconds, with number as
// the decimal number of the last quantity.
constexpr auto valueOf(Number number) {
    return Alt(Seq(number, kDegreeMark),
               Seq(kWhole, kDegreeMark, kBlanks, number, kMinuteMark),
               Seq(kWhole, kDegreeMark, kBlanks, kWhole, kMinuteMark, kBlanks, number,
                   kSecondMark));
}

}  // namespace

bool scanValue(LatLngValuePatterns::Slot slot, QStringView text, Groups& groups) {
    switch (slot) {
    case LatLngValuePatterns::kDF:
        return run(Seq(Cap(1, kDecimal), kDegreeMark), text, groups);
    case LatLngValuePatterns::kDMF:
        return run(Seq(Cap(1, kWhole), kDegreeMark, kBlanks, Cap(2, kDecimal), kMinuteMark), text,
                   groups);
    case LatLngValuePatterns::kDMSF:
        return run(Seq(Cap(1, kWhole), kDegreeMark, kBlanks, Cap(2, kWhole), kMinuteMark,
                       kBlanks, Cap(3, kDecimal), kSecondMark),
                   text, groups);
    case LatLngValuePatterns::kDFComma:
        return run(Seq(Cap(1, kWhole), kComma, Cap(2, kWhole), kDegreeMark), text, groups);
    case LatLngValuePatterns::kDMFComma:
        return run(Seq(Cap(1, kWhole), kDegreeMark, kBlanks, Cap(2, kWhole), kComma,
                       Cap(3, kWhole), kMinuteMark),
                   text, groups);
    case LatLngValuePatterns::kDMSFComma:
        return run(Seq(Cap(1, kWhole), kDegreeMark, kBlanks, Cap(2, kWhole), kMinuteMark,
                       kBlanks, Cap(3, kWhole), kComma, Cap(4, kWhole), kSecondMark),
                   text, groups);
    case LatLngValuePatterns::kSlotCount:
        break;
    }
    return false;
}

bool scanDirectional(int slot, bool eastWest, QStringView text, Groups& groups) {
    const OneOf letter{eastWest ? u"EWew" : u"NSns"};
    const auto value = valueOf(kDecimal);
    switch (slot) {
    case LatValuePatterns::kDA:
        return run(Seq(Cap(1, value), kBlanks, Cap(2, letter)), text, groups);
    case LatValuePatterns::kDB:
        return run(Seq(Cap(1, letter), kBlanks, Cap(2, value)), text, groups);
    case LatValuePatterns::kSB:
        return run(Seq(Opt(Cap(1, kSign)), kBlanks, Cap(2, value)), text, groups);
    default:
        return false;
    }
}

bool scanPair(LatLngPairPatterns::Slot slot, QStringView text, Groups& groups) {
    const bool comma = slot >= LatLngPairPatterns::kDAComma;
    const auto value = valueOf(comma ? kCommaDecimal : kDecimal);
    switch (slot) {
    case LatLngPairPatterns::kDA:
    case LatLngPairPatterns::kDAComma:
        return run(Seq(Cap(1, value), kBlanks, Cap(2, kPairLetter), kBlanks, kBetween, kBlanks,
                       Cap(3, value), kBlanks, Cap(4, kPairLetter)),
                   text, groups);
    case LatLngPairPatterns::kDB:
    case LatLngPairPatterns::kDBComma:
        return run(Seq(Cap(1, kPairLetter), kBlanks, Cap(2, value), kBlanks, kBetween, kBlanks,
                       Cap(3, kPairLetter), kBlanks, Cap(4, value)),
                   text, groups);
    case LatLngPairPatterns::kSB:
        return run(Seq(Opt(Cap(1, kSign)), kBlanks, Cap(2, value), kBlanks, kBetween, kBlanks,
                       Opt(Cap(3, kSign)), kBlanks, Cap(4, value)),
                   text, groups);
    case LatLngPairPatterns::kSBComma:
        // No comma or slash between the values in this form.
        return run(Seq(Opt(Cap(1, kSign)), kBlanks, Cap(2, value), kBlanks, Opt(Cap(3, kSign)),
                       kBlanks, Cap(4, value)),
                   text, groups);
    case LatLngPairPatterns::kSlotCount:
        break;
    }
    return false;
}

}  // namespace latlng
}  // namespace vanta
