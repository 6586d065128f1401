// String conversions: surrogate-aware UTF-16/UTF-32 moves, percent escapes, the UTF-8 stream.
#include <vanta/stringconv.h>

#include <vanta/memory.h>

#include <cctype>
#include <algorithm>
#include <climits>
#include <cstring>
#include <cwchar>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace vanta {

namespace {

constexpr bool isSurrogate(char16_t u) { return (u & 0xF800) == 0xD800; }
constexpr bool isHighSurrogate(char16_t u) { return (u & 0xFC00) == 0xD800; }
constexpr bool isLowSurrogate(char16_t u) { return (u & 0xFC00) == 0xDC00; }

// Texts are mostly free of surrogates, of characters beyond the first plane and of zero units, so
// the loops below look at a block of kBlock units at once and handle a plain block in one go.
// With SSE2 (every x86-64) the block tests and the widening are vector instructions.
constexpr qsizetype kBlock = 8;

#if defined(__SSE2__)
inline __m128i load8(const char16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }

// One bit pair per unit that is a surrogate half.
inline unsigned surrogateMask(__m128i v) {
    const __m128i top = _mm_and_si128(v, _mm_set1_epi16(short(0xF800)));
    return unsigned(_mm_movemask_epi8(_mm_cmpeq_epi16(top, _mm_set1_epi16(short(0xD800)))));
}
#endif

// Widens units [0, n) that hold no surrogate.
inline void widenPlain(const char16_t* in, wchar_t* out, qsizetype n) {
    for (qsizetype k = 0; k < n; ++k)
        out[k] = wchar_t(in[k]);
}

// Widens a whole block that holds no surrogate.
inline void widenBlock(const char16_t* in, wchar_t* out) {
#if defined(__SSE2__)
    const __m128i v = load8(in);
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out), _mm_unpacklo_epi16(v, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + 4), _mm_unpackhi_epi16(v, zero));
#else
    widenPlain(in, out, kBlock);
#endif
}

// Counts the units before the first zero unit (at most n) and the UTF-8 bytes they encode to,
// one byte below 0x80, two below 0x800, three otherwise.
inline qsizetype countUtf8(const char16_t* in, qsizetype n, qint64* bytes) {
    qsizetype i = 0;
    qint64 total = 0;
#if defined(__SSE2__)
    // Each lane of extra counts down by one for every unit of 0x80 and up and once more for
    // every unit of 0x800 and up; lanes are summed before they could wrap (2 * 8192 < 32768).
    const __m128i zero = _mm_setzero_si128();
    while (i + kBlock <= n) {
        __m128i extra = zero;
        const qsizetype stop = std::min(n, i + 8192 * kBlock);
        for (; i + kBlock <= stop; i += kBlock) {
            const __m128i v = load8(in + i);
            if (_mm_movemask_epi8(_mm_cmpeq_epi16(v, zero)))
                break;
            const __m128i at80 = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(short(0xFF80))), zero);
            const __m128i at800 = _mm_cmpeq_epi16(_mm_and_si128(v, _mm_set1_epi16(short(0xF800))), zero);
            extra = _mm_sub_epi16(extra, _mm_add_epi16(_mm_set1_epi16(2), _mm_add_epi16(at80, at800)));
            total += kBlock;
        }
        alignas(16) int16_t lanes[8];
        _mm_store_si128(reinterpret_cast<__m128i*>(lanes), extra);
        for (int16_t lane : lanes)
            total -= lane;
        if (i + kBlock <= stop)
            break;  // stopped at a block holding a zero unit
    }
#endif
    for (; i < n && in[i]; ++i)
        total += 1 + (in[i] >= 0x80) + (in[i] >= 0x800);
    *bytes = total;
    return i;
}

inline unsigned char* encodeUnit(char16_t u, unsigned char* out) {
    if (u < 0x80) {
        *out++ = static_cast<unsigned char>(u);
    } else if (u < 0x800) {
        *out++ = static_cast<unsigned char>(0xC0 | (u >> 6));
        *out++ = static_cast<unsigned char>(0x80 | (u & 0x3F));
    } else {
        *out++ = static_cast<unsigned char>(0xE0 | (u >> 12));
        *out++ = static_cast<unsigned char>(0x80 | ((u >> 6) & 0x3F));
        *out++ = static_cast<unsigned char>(0x80 | (u & 0x3F));
    }
    return out;
}

// Encodes n units (no zero among them), each on its own. Runs of ASCII go eight at a time; other
// blocks unit by unit, with branches: real texts keep to one script for a while, and the branch
// predictor does better on them than any branch-free form tried.
inline void encodeUtf8(const char16_t* in, qsizetype n, unsigned char* out) {
    qsizetype i = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    for (; i + kBlock <= n; i += kBlock) {
        const __m128i v = load8(in + i);
        const __m128i high = _mm_and_si128(v, _mm_set1_epi16(short(0xFF80)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(high, zero)) == 0xFFFF) {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(v, zero));
            out += kBlock;
        } else {
            for (qsizetype k = 0; k < kBlock; ++k)
                out = encodeUnit(in[i + k], out);
        }
    }
#endif
    for (; i < n; ++i)
        out = encodeUnit(in[i], out);
}

// How many of the kBlock units at in come before the first surrogate half (kBlock when none).
inline qsizetype plainPrefix(const char16_t* in) {
#if defined(__SSE2__)
    const unsigned mask = surrogateMask(load8(in));
    return mask ? qsizetype(__builtin_ctz(mask) / 2) : kBlock;
#else
    qsizetype k = 0;
    while (k < kBlock && !isSurrogate(in[k]))
        ++k;
    return k;
#endif
}

// "%00" ... "%ff", built at compile time.
struct PercentTable {
    char entry[256][4];
    constexpr PercentTable() : entry() {
        const char digits[] = "0123456789abcdef";
        for (int i = 0; i < 256; ++i) {
            entry[i][0] = '%';
            entry[i][1] = digits[i >> 4];
            entry[i][2] = digits[i & 15];
            entry[i][3] = '\0';
        }
    }
};
constexpr PercentTable kPercent;

}  // namespace

std::wstring toWString(const QString& s) {
    const qsizetype n = s.size();
    std::wstring result(size_t(n), L'\0');
    const char16_t* in = reinterpret_cast<const char16_t*>(s.constData());
    wchar_t* out = result.data();
    qsizetype i = 0;
    while (i < n) {
        if (i + kBlock <= n) {
            const qsizetype plain = plainPrefix(in + i);
            if (plain == kBlock) {
                widenBlock(in + i, out);
                out += kBlock;
                i += kBlock;
                continue;
            }
            widenPlain(in + i, out, plain);
            out += plain;
            i += plain;
        }
        const char16_t u = in[i++];
        if (isHighSurrogate(u) && i < n && isLowSurrogate(in[i]))
            *out++ = wchar_t((char32_t(u) << 10) + in[i++] - 0x35FDC00);
        else
            *out++ = wchar_t(u);
    }
    // Combined pairs leave zero characters at the end: the length stays that of the source.
    return result;
}

std::wstring toWString(const unsigned short* s) {
    std::wstring result;
    if (!s)
        return result;
    size_t n = 0;
    while (s[n])
        ++n;
    result.resize(n);
    for (size_t i = 0; i < n; ++i)
        result[i] = wchar_t(s[i]);
    return result;
}

QString toQString(const wchar_t* s, int length) {
    if (!s)
        return QString();
    const qsizetype n = length > 0 ? length : 0;
    QString result(2 * n, Qt::Uninitialized);
    char16_t* out = reinterpret_cast<char16_t*>(result.data());
    char16_t* const begin = out;
    qsizetype i = 0;
    while (i < n) {
        if (i + kBlock <= n) {
            bool plain = true;
            for (qsizetype k = 0; k < kBlock; ++k)
                plain &= char32_t(s[i + k]) <= 0xFFFF;
            if (plain) {
                for (qsizetype k = 0; k < kBlock; ++k)
                    out[k] = char16_t(s[i + k]);
                out += kBlock;
                i += kBlock;
                continue;
            }
        }
        const char32_t c = char32_t(s[i++]);
        if (c > 0xFFFF) {
            *out++ = char16_t(0xD800 + ((c - 0x10000) >> 10));
            *out++ = char16_t(0xDC00 | ((c - 0x10000) & 0x3FF));
        } else {
            *out++ = char16_t(c);
        }
    }
    result.truncate(out - begin);
    return result;
}

QString toQString(const wchar_t* s) { return s ? toQString(s, int(std::wcslen(s))) : QString(); }

QString toQString(const std::wstring& s) { return toQString(s.data(), int(s.size())); }

const char* hexEncode(char c) { return kPercent.entry[static_cast<unsigned char>(c)]; }

Utf8OStream::Utf8OStream(int capacity)
    : mData(nullptr), mLength(0), mCapacity(capacity > 0 ? capacity : 0) {
    if (mCapacity > 0) {
        mData = static_cast<char*>(Malloc(static_cast<unsigned long>(mCapacity)));
        if (!mData)
            mCapacity = 0;
    }
}

Utf8OStream::~Utf8OStream() { Free(mData); }

Utf8OStream& Utf8OStream::operator<<(const QString& s) {
    if (s.isEmpty())
        return *this;
    const char16_t* in = reinterpret_cast<const char16_t*>(s.constData());
    // Everything from the first zero unit on is dropped. The exact byte count comes first, so
    // the buffer grows by the same doubling as it would for the encoded bytes themselves.
    qint64 bytes = 0;
    const qsizetype units = countUtf8(in, s.size(), &bytes);
    const qint64 needed = qint64(mLength) + bytes;
    if (needed > INT_MAX)
        return *this;
    if (needed > mCapacity) {
        // A stream made with capacity 0 starts from 64 bytes, so doubling always ends.
        qint64 grown = mCapacity > 0 ? mCapacity : 64;
        while (grown < needed)
            grown *= 2;
        if (grown > INT_MAX)
            grown = INT_MAX;
        char* bigger = static_cast<char*>(Malloc(static_cast<unsigned long>(grown)));
        if (!bigger)
            return *this;
        if (mLength > 0)
            std::memcpy(bigger, mData, size_t(mLength));
        Free(mData);
        mData = bigger;
        mCapacity = int(grown);
    }

    encodeUtf8(in, units, reinterpret_cast<unsigned char*>(mData + mLength));
    mLength = int(needed);
    return *this;
}

}  // namespace vanta

int wcsicmp(const wchar_t* a, const wchar_t* b) {
    static const wchar_t kEmpty[] = L"";
    if (!a)
        a = kEmpty;
    if (!b)
        b = kEmpty;
    // The narrow tolower is only defined for byte values; wider characters compare unchanged.
    auto fold = [](wchar_t c) { return c >= 0 && c <= 0xFF ? wchar_t(std::tolower(int(c))) : c; };
    for (;; ++a, ++b) {
        if (*a == 0)
            return *b == 0 ? 0 : -1;
        if (*b == 0)
            return 1;
        const wchar_t x = fold(*a), y = fold(*b);
        if (x != y)
            return x < y ? -1 : 1;
    }
}
