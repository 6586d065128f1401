// A memory pool of its own, a heap manager on it, and objects placed with that manager that are
// still deleted with a plain delete.
#include <vanta/memory.h>
#include <vanta/memorypool.h>

#include <cstdio>

namespace {

// Deriving from MemoryObject routes new and delete through the library's managers.
struct Marker : vanta::MemoryObject {
    Marker(double lat, double lng) : latitude(lat), longitude(lng) {}
    double latitude;
    double longitude;
};

}  // namespace

int main() {
    vanta::MemoryPool pool("markers", 1024 * 1024);
    {
        vanta::HeapManager manager(&pool);  // holds a reference on the pool while it lives
        Marker* markers[100];
        for (int i = 0; i < 100; ++i) {
            markers[i] = new (&manager) Marker(i * 0.5, -i * 0.25);
            if (!markers[i]) {  // allocation failure gives null, never an exception
                std::fprintf(stderr, "out of memory\n");
                return 1;
            }
        }
        std::printf("live bytes in the manager: %lu\n", manager.getAllocatedSize());
        std::printf("marker 10 comes from the pool: %s\n",
                    vanta::MemoryPool::isPointerFromPool(markers[10]) ? "yes" : "no");
        for (Marker* marker : markers)
            delete marker;  // the block's header names its manager
        std::printf("after delete: %lu\n", manager.getAllocatedSize());
        if (manager.getAllocatedSize() != 0)
            return 1;
    }
    std::printf("pool regions: %lu bytes\n", pool.getMappedBytes());
    return 0;
}
