// Not API. The arena allocator under the memory pools: independent heaps over system regions.
//
// An arena lives in a first region its creator supplies and grows by asking its own callbacks for
// more regions, so every region it uses is visible to its owner. Inside, chunks carry boundary
// tags (size and in-use bits before each chunk, the size repeated after each free chunk), free
// neighbours are coalesced (small ones after a short wait in per-size quick lists), small free
// chunks sit in exact-size lists and large ones in size-ordered trees searched for the best fit.
// Every chunk and payload is 16-byte aligned. Nothing here makes a system call on an ordinary
// malloc or free: regions are obtained only when the arena is full, and returned only by trim,
// destroy, or the trim threshold.
#pragma once

#include <cstddef>
#include <string>

namespace vanta {
namespace arena {

struct ArenaState;
using Arena = ArenaState*;

// Callback results: a region's base, or kMapFailed (all bits set) when the system refused.
// A null base is also taken as failure.
inline void* const kMapFailed = reinterpret_cast<void*>(~std::size_t(0));

// Maps a region of size bytes for one oversized request (larger than the granularity).
using DirectMapFn = void* (*)(std::size_t size, void* user);
// Maps a region of size bytes (a multiple of the granularity) when the arena grows.
using MapFn = void* (*)(std::size_t size, void* user);
// Moves a program break by increment bytes; returns the old break or kMapFailed. Tried before
// MapFn when the arena grows by one granule; each successful result is used as a region of its own.
using BreakFn = void* (*)(int increment, void* user);
// Returns a region to the system; 0 on success. Without one the arena never releases a region:
// regions then belong to whoever supplied them.
using UnmapFn = int (*)(void* base, std::size_t size, void* user);

// The default system calls: anonymous private read-write mappings, and their release.
void* defaultDirectMap(std::size_t size);
void* defaultMap(std::size_t size);
int defaultUnmap(void* base, std::size_t size);

// Process-wide options, read by every arena when it grows or frees.
enum Option {
    // Regions are requested in multiples of this many bytes (a power of two, at least a page).
    kGranularity,
    // When a free leaves more than this many free bytes, wholly free regions other than the
    // first are returned through the unmap callback. All bits set: never.
    kTrimThreshold,
};
// True when the value was accepted.
bool setOption(Option option, std::size_t value);
std::size_t getOption(Option option);

// Creates an arena inside [base, base + capacity). Null when the region is too small to hold the
// arena's own record and one chunk. With locked, every call below takes an internal lock;
// without, the caller serialises all calls. Callbacks may be null (that way of growing is then
// not available).
Arena create(void* base, std::size_t capacity, bool locked, DirectMapFn directMap, MapFn map,
             BreakFn brk, void* user, UnmapFn unmap = nullptr);
// Releases every region but the first through the unmap callback (none without one). Returns
// the bytes released. The arena must not be used afterwards.
std::size_t destroy(Arena arena);

// A block of at least size bytes, 16-byte aligned; size 0 gives the smallest block.
// Null when no region could be obtained.
void* malloc(Arena arena, std::size_t size);
// Returns a block from malloc of this arena; null does nothing. A pointer that is not a block
// of this arena in use stops the process (see badFree).
void free(Arena arena, void* p);
// Why freeing p would damage the heap (what reportBadFree prints), or null when p is a block
// of this arena in use: aligned as blocks are, inside one of the arena's regions, marked in use
// and not freed already, with boundary tags that agree with the chunks on both sides. Reads
// nothing outside the arena's regions. Unlocked: the caller serialises it with every other call.
const char* badFree(Arena arena, const void* p);
// free, for a block that badFree has just passed.
void freeChecked(Arena arena, void* p);
// Writes "free(): <fault>: <p>" to standard error and aborts, as the C library stops on a bad
// free: going on would hand one block to two callers or corrupt the heap for later ones.
[[noreturn, gnu::cold]] void reportBadFree(const char* fault, const void* p);
// The bytes usable in a block from malloc (at least what was asked).
std::size_t usableSize(const void* p);
// Coalesces the chunks waiting in the quick lists, then returns wholly free regions (never the
// first) through the unmap callback, keeping at least pad free bytes. Returns the number of
// regions released.
int trim(Arena arena, std::size_t pad);

// Figures for tests and benchmarks.
struct Stats {
    std::size_t regions;     // regions in use, the first included
    std::size_t footprint;   // bytes of all regions
    std::size_t inUseBytes;  // bytes of chunks handed out (headers included)
    std::size_t freeBytes;   // bytes of free chunks
    std::size_t freeChunks;  // number of free chunks
    std::size_t quickBytes;  // bytes of freed small chunks waiting in the quick lists
};
Stats stats(Arena arena);

// Walks every chunk of every region and verifies sizes, alignment, boundary tags, that no two
// free chunks touch, that every free chunk is in the right bin exactly once and every binned
// chunk is free, the bins' links and tree order, and the counters. True when all hold; otherwise
// false with the first fault described in *why (when given).
bool check(Arena arena, std::string* why = nullptr);

}  // namespace arena
}  // namespace vanta
