// Tests of CacheObserver against a small reference cache that ages and reclaims its entries.
#include <vanta/cacheobserver.h>
#include <vanta/system.h>

#include <gtest/gtest.h>

#include <climits>
#include <memory>
#include <vector>

using namespace vanta;

namespace {

// A cache with a byte budget: when over it, it asks its observers for the least recently used
// one and reclaims it, until the budget holds or nobody qualifies.
class ReferenceCache : public CacheObserver::Cache {
public:
    explicit ReferenceCache(long budget) : budget(budget) {}

    void changeReclaimableBytes(int delta) override {
        reclaimable += delta;
        deltas.push_back(delta);
    }
    ObserverList* getObserverList() override { return &mObservers; }

    // The observer getLru picks over the whole list, or null.
    CacheObserver* findVictim(bool takeAny) {
        CacheObserver::Event event;
        event.takeAny = takeAny ? 1 : 0;
        for (Observer* o = mObservers.first(); o;) {
            Observer* next = o->next();
            if (o->isEnabled())
                static_cast<CacheObserver*>(o)->getLru(event);
            o = next;
        }
        return event.bestObserver;
    }

    // Reclaims least recently used entries until within budget; the number reclaimed.
    int trim() {
        int count = 0;
        while (reclaimable > budget) {
            CacheObserver* victim = findVictim(false);
            if (!victim)
                break;
            CacheObserver::Event event;
            victim->reclaim(event);
            ++count;
        }
        return count;
    }

    long budget;
    long reclaimable = 0;
    std::vector<int> deltas;

private:
    ObserverList mObservers;
};

// A cached object that remembers when it was last used and frees its bytes when reclaimed.
class Tile : public CacheObserver {
public:
    Tile(int bytes, int lastUsed) : lastUsed(lastUsed) { changeUnpooledBytes(bytes); }
    ~Tile() override { changeUnpooledBytes(-getUnpooledBytes()); }

    void reclaim(Event&) override {
        changeUnpooledBytes(-getUnpooledBytes());
        lastUsed = -1;  // nothing left to offer
    }
    int getLastUsedFrame(Event&) override { return lastUsed; }

    int lastUsed;
};

class CacheObserverTest : public ::testing::Test {
protected:
    void SetUp() override {
        mSavedFrame = System::sCurFrame;
        System::sCurFrame = 100;
        CacheObserver::sGlobalCache = &cache;
    }
    void TearDown() override {
        CacheObserver::sGlobalCache = nullptr;
        System::sCurFrame = mSavedFrame;
    }
    ReferenceCache cache{1000};

private:
    int mSavedFrame = 0;
};

}  // namespace

TEST(CacheObserverWithoutCache, OnlyItsOwnFieldsChange) {
    ASSERT_EQ(CacheObserver::sGlobalCache, nullptr);
    Tile t(300, 0);
    EXPECT_EQ(t.list(), nullptr);
    EXPECT_EQ(t.getUnpooledBytes(), 300);
    t.setIsReclaimable(false);
    t.changeUnpooledBytes(-100);
    t.setIsReclaimable(true);
    EXPECT_EQ(t.list(), nullptr);
    EXPECT_EQ(t.getUnpooledBytes(), 200);
    EXPECT_TRUE(t.isReclaimable());
}

TEST_F(CacheObserverTest, AgeingBoundaryAndTies) {
    // Frame 100: anything used at 96 or later is protected; the oldest of the rest wins and the
    // first found (the newest attached) wins a tie.
    struct Row { const char* name; std::vector<int> frames; int expectedIndex; };
    const Row rows[] = {
        {"current minus 4 is protected", {96}, -1},
        {"current minus 5 qualifies", {95}, 0},
        {"current frame is protected", {100}, -1},
        {"oldest wins", {90, 50, 95}, 1},
        {"tie goes to the first visited (newest attached)", {50, 50}, 1},
        {"negative answers are never chosen", {-1, 97}, -1},
        {"a frame from the future is protected", {500}, -1},
    };
    for (const Row& row : rows) {
        std::vector<std::unique_ptr<Tile>> tiles;
        for (int f : row.frames)
            tiles.push_back(std::make_unique<Tile>(1, f));
        CacheObserver* expected = row.expectedIndex < 0 ? nullptr : tiles[size_t(row.expectedIndex)].get();
        EXPECT_EQ(cache.findVictim(false), expected) << row.name;
    }
}

TEST_F(CacheObserverTest, TakeAnyLetsTheLastVisitedWinAndReturnsTheFrame) {
    Tile oldest(1, 10);
    Tile recent(1, 99);  // newest: visited first
    Tile empty(1, -7);
    EXPECT_EQ(cache.findVictim(true), &oldest) << "the last non-negative observer visited wins";

    CacheObserver::Event event;
    event.takeAny = 1;
    EXPECT_EQ(empty.getLru(event), -7);
    EXPECT_EQ(event.bestObserver, nullptr);
    EXPECT_EQ(recent.getLru(event), 99);
    EXPECT_EQ(event.bestObserver, &recent);
    EXPECT_EQ(event.bestFrame, 99);
}

TEST_F(CacheObserverTest, ReclaimableSwitchReportsExactBytesAndMovesToTheHead) {
    Tile a(1000, 0);
    Tile b(10, 0);
    ASSERT_EQ(cache.getObserverList()->first(), &b);
    cache.deltas.clear();

    a.setIsReclaimable(false);
    a.setIsReclaimable(false);  // already off: nothing reported
    EXPECT_EQ(a.list(), nullptr);
    EXPECT_EQ(cache.getObserverList()->count(), 1);
    a.changeUnpooledBytes(24);  // not reported while not reclaimable
    a.setIsReclaimable(true);
    EXPECT_EQ(cache.deltas, (std::vector<int>{-1000, 1024}));
    EXPECT_EQ(cache.getObserverList()->first(), &a);
    EXPECT_EQ(cache.reclaimable, 1034);
}

TEST_F(CacheObserverTest, ReferenceCacheReclaimsLeastRecentlyUsedUntilWithinBudget) {
    auto fresh = std::make_unique<Tile>(400, 99);
    auto old = std::make_unique<Tile>(400, 20);
    auto older = std::make_unique<Tile>(400, 10);
    auto pinned = std::make_unique<Tile>(400, 5);
    pinned->setIsReclaimable(false);
    EXPECT_EQ(cache.reclaimable, 1200);

    EXPECT_EQ(cache.trim(), 1);
    EXPECT_EQ(older->getUnpooledBytes(), 0);
    EXPECT_EQ(old->getUnpooledBytes(), 400);
    EXPECT_EQ(pinned->getUnpooledBytes(), 400);
    EXPECT_EQ(cache.reclaimable, 800);

    // With no budget left everything that qualifies goes; the recent tile is protected.
    cache.budget = 0;
    EXPECT_EQ(cache.trim(), 1);
    EXPECT_EQ(old->getUnpooledBytes(), 0);
    EXPECT_EQ(fresh->getUnpooledBytes(), 400);
    EXPECT_EQ(cache.reclaimable, 400);
}
