// Managed allocation: memory managers, managed objects and the doNew/doDelete family.
#pragma once

#include <cstddef>

namespace vanta {

class MemoryManager;

// Allocates size bytes: from mm when given, otherwise from the C library's malloc.
// Returns null on failure; never throws.
void* doNew(unsigned long size, MemoryManager* mm = nullptr);
// Frees a block from doNew, whichever heap it came from. Null does nothing. The manager argument
// is ignored: a pool block names its own manager.
void doDelete(void* p, MemoryManager* mm = nullptr);

void* Malloc(unsigned long size, MemoryManager* mm = nullptr);
// Malloc, then zeroes the size bytes.
void* Calloc(unsigned long size, MemoryManager* mm = nullptr);
// For C library blocks only: null p gives doNew(size, null), otherwise realloc.
void* Realloc(void* p, unsigned long size);
void Free(void* p);

// Base class whose class operators route every heap instance through doNew/doDelete.
class MemoryObject {
public:
    static void* operator new(std::size_t size);
    static void* operator new[](std::size_t size);
    static void* operator new(std::size_t size, MemoryManager* mm);
    static void* operator new[](std::size_t size, MemoryManager* mm);
    static void operator delete(void* p);
    static void operator delete[](void* p);
    static void operator delete(void* p, MemoryManager* mm);
    static void operator delete[](void* p, MemoryManager* mm);
};

// An allocator of managed blocks.
class MemoryManager : public MemoryObject {
public:
    virtual ~MemoryManager() = default;
    virtual void* alloc(unsigned long size) = 0;
    virtual void free(void* p) = 0;
};

}  // namespace vanta
