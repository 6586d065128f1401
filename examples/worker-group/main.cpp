// A group of worker threads that run one handler in rounds: each ready() asks every worker for one
// more call. The handler splits the work with an atomic counter.
#include <vanta/locks.h>
#include <vanta/system.h>
#include <vanta/thread.h>

#include <cstdio>

namespace {

constexpr long kItems = 1000;

class SumSquares : public vanta::AsyncThreadHandler {
public:
    // Every worker runs this at once; each takes the next item until none is left.
    void handleAsync() override {
        for (;;) {
            const long item = vanta::TestThenAdd(&next, 1);
            if (item >= kItems)
                return;
            vanta::TestThenAdd(&sum, item * item);
        }
    }
    long volatile next = 0;
    long volatile sum = 0;
};

}  // namespace

int main() {
    SumSquares work;  // must outlive the group's threads
    vanta::AsyncThread group(&work, 4);
    if (group.startThreads() != 0)
        return 1;
    group.ready();  // one round

    // Wait (bounded) until the round has taken every item.
    for (int i = 0; i < 10000 && vanta::TestThenAdd(&work.next, 0) < kItems + 4; ++i)
        vanta::System::sleep(1);
    group.exitThreads();  // stops the workers and joins them

    const long expected = (kItems - 1) * kItems * (2 * kItems - 1) / 6;
    std::printf("sum of squares below %ld: %ld (expected %ld)\n", kItems, work.sum, expected);
    return work.sum == expected ? 0 : 1;
}
