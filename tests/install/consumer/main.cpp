// A consumer of the installed library: includes the umbrella header and uses a lock.
#include <vanta/base.h>

#include <cstdio>

int main() {
    vanta::SpinLock lock;
    if (lock.lock() != 0 || lock.unlock() != 0)
        return 1;
    std::printf("consumer ok: %d processors\n", vanta::System::getNumProcessors());
    return 0;
}
