// Linux implementation of vanta::System's machine-bound operations.
#include <vanta/system.h>

#include <ctime>
#include <unistd.h>

namespace vanta {

int System::sleep(int ms) {
    timespec request;
    if (ms == -1) {
        request.tv_sec = 2147483647;
        request.tv_nsec = 0;
    } else {
        request.tv_sec = ms / 1000;
        request.tv_nsec = long(ms % 1000) * 1000000L;
    }
    return nanosleep(&request, nullptr);
}

int System::getNumProcessors() {
    // Read once: the count of online processors does not change under a running process here.
    static const int count = [] {
        long n = sysconf(_SC_NPROCESSORS_ONLN);
        return n > 0 ? int(n) : 1;
    }();
    return count;
}

}  // namespace vanta
