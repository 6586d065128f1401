// Managed allocation: doNew/doDelete and the MemoryObject class operators.
// (Interim: C library blocks only, until the memory pools land.)
#include "memory.h"

#include <cstdlib>
#include <cstring>

namespace vanta {

void* doNew(unsigned long size, MemoryManager* mm) {
    return mm ? mm->alloc(size) : std::malloc(size);
}

void doDelete(void* p, MemoryManager*) { std::free(p); }

void* Malloc(unsigned long size, MemoryManager* mm) { return doNew(size, mm); }

void* Calloc(unsigned long size, MemoryManager* mm) {
    void* p = Malloc(size, mm);
    std::memset(p, 0, size);
    return p;
}

void* Realloc(void* p, unsigned long size) { return p ? std::realloc(p, size) : doNew(size); }

void Free(void* p) { doDelete(p); }

void* MemoryObject::operator new(std::size_t size) { return doNew(size ? size : 1); }
void* MemoryObject::operator new[](std::size_t size) { return doNew(size ? size : 1); }
void* MemoryObject::operator new(std::size_t size, MemoryManager* mm) {
    return doNew(size ? size : 1, mm);
}
void* MemoryObject::operator new[](std::size_t size, MemoryManager* mm) {
    return doNew(size ? size : 1, mm);
}
void MemoryObject::operator delete(void* p) { doDelete(p); }
void MemoryObject::operator delete[](void* p) { doDelete(p); }
void MemoryObject::operator delete(void* p, MemoryManager*) { doDelete(p); }
void MemoryObject::operator delete[](void* p, MemoryManager*) { doDelete(p); }

}  // namespace vanta
