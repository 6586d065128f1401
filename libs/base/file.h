/// \file
/// File helpers (vanta::file), path clean-up, and zip archives opened by UTF-8 path.
#pragma once

#include <vanta/export.h>
#include <QString>

/// Declared by the system and by minizip; only pointers cross this header.
struct stat;
struct zlib_filefunc_def_s;

namespace vanta {
namespace file {

/// Whether something exists at path (file, directory or a link to one).
VANTA_EXPORT bool exists(const QString& path);
/// The size of the file in bytes, truncated to int; 0 when it does not exist.
VANTA_EXPORT int getSize(const QString& path);
/// Normalises path in place. A local path (no "://", or one at position 0) gets "/" for every
/// backslash, doubled separators collapsed and "." and ".." resolved. An http or https URL has
/// the part from seven characters after "://" up to the first "?" cleaned the same way (so the
/// host's first characters and the query are never touched). Anything else is left alone.
VANTA_EXPORT void cleanupPathname(QString& path);
/// The whole file in a buffer from malloc, which the caller frees with free; size receives the
/// file's size. Null with size 0 when the file cannot be opened; null with the size when the
/// buffer could not be allocated. Blocks while reading.
VANTA_EXPORT void* readFile(const QString& path, int& size);
/// Copies a file or a directory tree to `to`, first removing whatever is there. False when
/// nothing exists at `from` (the destination is then left alone) or the copy failed.
VANTA_EXPORT bool copy(const QString& from, const QString& to);
/// As copy, but moves: a rename, or a copy and removal across file systems.
VANTA_EXPORT bool move(const QString& from, const QString& to);
/// path itself; with create, the file is first created empty when it does not exist.
VANTA_EXPORT QString getCompatName(const QString& path, bool create);
/// True when stat of the path (UTF-8) succeeded; buf receives the result.
VANTA_EXPORT bool wstat(const QString& path, struct ::stat* buf);
VANTA_EXPORT bool stat(const char* path, struct ::stat* buf);  ///< As wstat, for a path already in UTF-8.

}  // namespace file

/// Zip file access through C streams, for archives whose names are UTF-8 paths. The callbacks
/// follow minizip's zlib_filefunc_def; the opaque and stream arguments are the library's own.

/// Opens path: mode bits read (1) give "rb", else existing (4) "r+b", else create (8) "wb".
/// Null for a null path, a mode that matches none of these, or a failed fopen.
VANTA_EXPORT void* fopen_file_func(void* opaque, const char* path, int mode);
/// Reads up to n bytes; the count read.
VANTA_EXPORT unsigned long fread_file_func(void* opaque, void* stream, void* buf, unsigned long n);
/// Writes n bytes; the count written.
VANTA_EXPORT unsigned long fwrite_file_func(void* opaque, void* stream, const void* buf, unsigned long n);
VANTA_EXPORT long ftell_file_func(void* opaque, void* stream);  ///< The stream's position, -1 on error.
/// origin 0, 1, 2 are set, current, end; any other origin returns -1 without seeking. Otherwise
/// returns 0, whatever fseek answered.
VANTA_EXPORT long fseek_file_func(void* opaque, void* stream, unsigned long offset, int origin);
VANTA_EXPORT int fclose_file_func(void* opaque, void* stream);  ///< Closes the stream; 0 on success.
VANTA_EXPORT int ferror_file_func(void* opaque, void* stream);  ///< Non-zero when the stream had an error.
/// Fills def with the seven callbacks above and a null opaque pointer; a null def is ignored.
VANTA_EXPORT void populateFilefuncDef_UTF8(zlib_filefunc_def_s* def);
/// unzOpen2 / zipOpen2 with those callbacks. The results are minizip's unzFile and zipFile
/// (close them with unzClose and zipClose); null when the archive cannot be opened.
VANTA_EXPORT void* unzOpen_UTF8(const char* path);
/// Opens for writing; append as minizip's zipOpen takes it. Other tools read an entry's name as
/// UTF-8 when it sets general purpose bit 11 and is marked as made on Unix (version made by
/// (3 << 8) | 20 in zipOpenNewFileInZip4): Info-ZIP's unzip reads the names of entries made
/// by MS-DOS (0) in the DOS code page whatever the flag says.
VANTA_EXPORT void* zipOpen_UTF8(const char* path, int append);

}  // namespace vanta
