// Tests of CacheObserver against a small cache that records the bytes reported to it.
#include <vanta/cacheobserver.h>
#include <vanta/system.h>

#include <gtest/gtest.h>

#include <memory>
#include <vector>

using namespace vanta;

namespace {

// Sums the reported bytes and picks a victim by walking its list, as the global cache does.
struct ReferenceCache : CacheObserver::Cache {
    void changeReclaimableBytes(int delta) override {
        reclaimable += delta;
        deltas.push_back(delta);
    }
    ObserverList* getObserverList() override { return &observers; }
    CacheObserver* findVictim(bool takeAny) {
        CacheObserver::Event event;
        event.takeAny = takeAny ? 1 : 0;
        for (Observer* o = observers.first(); o; o = o->next())
            static_cast<CacheObserver*>(o)->getLru(event);
        return event.bestObserver;
    }
    long reclaimable = 0;
    std::vector<int> deltas;
    ObserverList observers;
};

// A cached object last used at a given frame, which gives its bytes back when it goes.
struct Tile : CacheObserver {
    Tile(int bytes, int lastUsed) : lastUsed(lastUsed) { changeUnpooledBytes(bytes); }
    ~Tile() override { changeUnpooledBytes(-getUnpooledBytes()); }
    void reclaim(Event&) override { changeUnpooledBytes(-getUnpooledBytes()); }
    int getLastUsedFrame(Event&) override { return lastUsed; }
    int lastUsed;
};

class CacheObserverTest : public ::testing::Test {
protected:
    void SetUp() override {
        System::sCurFrame = 100;
        CacheObserver::sGlobalCache = &cache;
    }
    void TearDown() override {
        CacheObserver::sGlobalCache = nullptr;
        System::sCurFrame = 0;
    }
    ReferenceCache cache;
};

}  // namespace

TEST(CacheObserverWithoutCache, OnlyItsOwnFieldsChange) {
    Tile t(300, 0);
    t.setIsReclaimable(false);
    t.changeUnpooledBytes(-100);
    t.setIsReclaimable(true);
    EXPECT_EQ(t.list(), nullptr);
    EXPECT_EQ(t.getUnpooledBytes(), 200);
}

TEST_F(CacheObserverTest, AgeingProtectsTheLastFiveFrames) {
    // Frame 100: last used at 96 or later is protected; the oldest of the rest wins, and the
    // first visited (the newest attached) wins a tie. With takeAny the last visited wins.
    struct Row { const char* name; std::vector<int> frames; int expected, expectedTakeAny; };
    const Row rows[] = {
        {"current minus 4 is protected", {96}, -1, 0},
        {"current minus 5 qualifies", {95}, 0, 0},
        {"frame 0 is a frame like any other", {0}, 0, 0},
        {"oldest wins", {90, 50, 95}, 1, 0},
        {"tie goes to the newest attached", {50, 50}, 1, 0},
        {"negative answers are never chosen", {-1, 97}, -1, 1},
        {"future frames are protected", {500}, -1, 0},
    };
    for (const Row& row : rows) {
        std::vector<std::unique_ptr<Tile>> tiles;
        for (int f : row.frames)
            tiles.push_back(std::make_unique<Tile>(1, f));
        auto pick = [&](int i) { return i < 0 ? nullptr : tiles[size_t(i)].get(); };
        EXPECT_EQ(cache.findVictim(false), pick(row.expected)) << row.name;
        EXPECT_EQ(cache.findVictim(true), pick(row.expectedTakeAny)) << row.name;
    }
}

TEST_F(CacheObserverTest, ReclaimableSwitchReportsExactBytesAndMovesToTheHead) {
    Tile a(1000, 0), b(10, 50);
    ASSERT_EQ(cache.observers.first(), &b);
    cache.deltas.clear();
    a.setIsReclaimable(false);
    a.setIsReclaimable(false);  // no change: nothing reported
    EXPECT_EQ(a.list(), nullptr);
    EXPECT_EQ(cache.findVictim(false), &b) << "a tile off the list is never chosen";
    a.changeUnpooledBytes(24);  // not reported while not reclaimable
    a.setIsReclaimable(true);
    EXPECT_EQ(cache.deltas, (std::vector<int>{-1000, 1024}));
    EXPECT_EQ(cache.observers.first(), &a);
    EXPECT_EQ(cache.reclaimable, 1034);
    CacheObserver::Event event;
    a.reclaim(event);  // bytes given back while reclaimable are reported
    EXPECT_EQ(cache.deltas.back(), -1024);
    EXPECT_EQ(cache.reclaimable, 10);
}
