/// \file
/// String conversions between QString (UTF-16), wide strings (UTF-32), 16-bit arrays and UTF-8.
#pragma once

#include <vanta/export.h>
#include <QString>

#include <string>

namespace vanta {

/// UTF-16 to UTF-32. A high surrogate followed by a low one becomes one character; every other
/// unit, unpaired surrogates included, is widened as it is. The result keeps the source's length, so
/// each combined pair leaves one zero character at the end: stop at the first zero for the text.
VANTA_EXPORT std::wstring toWString(const QString& s);

/// Widens 16-bit units one by one up to the first zero unit, without combining surrogates.
/// A null pointer gives an empty string.
VANTA_EXPORT std::wstring toWString(const unsigned short* s);

/// UTF-32 to UTF-16 of exactly length characters (zeros included); characters above 0xFFFF become
/// surrogate pairs, others are truncated to one 16-bit unit. A null s gives a null QString;
/// a negative length counts as 0.
VANTA_EXPORT QString toQString(const wchar_t* s, int length);

/// As toQString(s, wcslen(s)); a null pointer gives a null QString.
VANTA_EXPORT QString toQString(const wchar_t* s);

/// As toQString(s.data(), s.size()).
VANTA_EXPORT QString toQString(const std::wstring& s);

/// The percent escape of one byte, "%" and two lower-case hex digits ("%41", "%ff", "%00").
/// Points at constant storage that lives as long as the program; never free it.
VANTA_EXPORT const char* hexEncode(char c);

/// A growable UTF-8 byte buffer. Each 16-bit unit is encoded on its own (a surrogate half becomes a
/// three-byte sequence), and appending stops at the first zero unit. The buffer doubles when full
/// and is not NUL-terminated. Not thread-safe.
class VANTA_EXPORT Utf8OStream {
public:
    /// capacity: bytes allocated up front (0 allocates on the first append).
    explicit Utf8OStream(int capacity = 256);
    ~Utf8OStream();
    Utf8OStream(const Utf8OStream&) = delete;
    Utf8OStream& operator=(const Utf8OStream&) = delete;

    /// Appends the UTF-8 form of s. When memory cannot be had, or the buffer would pass 2 GB,
    /// nothing is appended and the stream stays as it was.
    Utf8OStream& operator<<(const QString& s);

    /// The bytes written so far (null until something was allocated); owned by the stream.
    const char* data() const { return mData; }
    /// Bytes used.
    int length() const { return mLength; }
    /// Bytes allocated.
    int capacity() const { return mCapacity; }
    /// Forgets the bytes written, keeping the allocation.
    void clear() { mLength = 0; }

private:
    char* mData;     ///< from vanta::Malloc, freed with vanta::Free
    int mLength;
    int mCapacity;
};

}  // namespace vanta

/// Case-insensitive comparison of two wide strings: -1, 0 or 1. Characters in the byte range fold
/// through the C library's tolower (current locale); others compare as they are. A shorter string
/// that is a prefix of the other sorts first. A null pointer counts as the empty string.
VANTA_EXPORT int wcsicmp(const wchar_t* a, const wchar_t* b);
