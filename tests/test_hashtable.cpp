// Tests of the fixed-size hash table: primes, chains, duplicates, removal and lookup counters.
#include <vanta/hashtable.h>

#include <gtest/gtest.h>

#include <climits>

using namespace vanta;

namespace {

struct Item {
    unsigned int key;
};

// Hashes a key to itself, so keys 53 apart share a bucket of the 53-bucket table.
class ItemTable final : public HashTable<Item, unsigned int> {
public:
    explicit ItemTable(unsigned int requested = 15) : HashTable(requested) {}
    unsigned int hash(unsigned int key) const override { return key; }
    unsigned int getKey(const Item* item) const override { return item->key; }
    bool match(unsigned int a, unsigned int b) const override { return a == b; }

    bool insert(Item& item) { return insertElem(hash(item.key), &item); }
    bool remove(Item& item) { return removeElem(hash(item.key), &item); }
};

}  // namespace

TEST(HashCalcNextPrime, PicksTheFirstPrimeAtOrAbove) {
    const struct {
        unsigned int n, expected;
    } rows[] = {
        {0, 53}, {53, 53}, {54, 97}, {1544, 3079}, {3221225474u, 4294967291u},
        {4294967291u, 4294967291u}, {4294967292u, 4294967292u}, {UINT_MAX, UINT_MAX},
    };
    for (const auto& row : rows)
        EXPECT_EQ(HashCalcNextPrime(row.n), row.expected) << row.n;
}

TEST(HashTable, HoldsEachPointerOnceButEqualKeysTwice) {
    ItemTable table;
    ASSERT_EQ(table.getBucketCount(), 53u);
    Item first{7}, second{7};
    EXPECT_TRUE(table.insert(first));
    EXPECT_FALSE(table.insert(first)) << "the same object twice";
    EXPECT_EQ(table.getCount(), 1u);

    EXPECT_TRUE(table.insert(second)) << "a different object with an equal key";
    EXPECT_EQ(table.getCount(), 2u);
    EXPECT_EQ(table.find(7), &second) << "the newest of equal keys wins";
    EXPECT_TRUE(table.remove(second));
    EXPECT_EQ(table.find(7), &first) << "then the older one shows again";
    EXPECT_TRUE(table.remove(first));
    EXPECT_EQ(table.find(7), nullptr);
    EXPECT_EQ(table.getCount(), 0u);
}

TEST(HashTable, RemovalIsByIdentityAndLeavesTheRestOfTheChain) {
    ItemTable table;
    Item a{1}, b{54}, c{107}, stranger{54};
    for (Item* item : {&a, &b, &c})
        ASSERT_TRUE(table.insert(*item));

    EXPECT_FALSE(table.remove(stranger)) << "equal key, never inserted";
    EXPECT_EQ(table.getCount(), 3u);

    EXPECT_TRUE(table.remove(b)) << "from the middle of the chain";
    EXPECT_FALSE(table.remove(b));
    EXPECT_EQ(table.find(1), &a);
    EXPECT_EQ(table.find(107), &c);
    EXPECT_EQ(table.find(54), nullptr);
    EXPECT_EQ(table.getCount(), 2u);
}

TEST(HashTable, CountersAddTheNodesPassed) {
    ItemTable table;
    // Bucket 1 holds, head first: 107, 54, 1. Bucket 2 is empty.
    Item a{1}, b{54}, c{107};
    for (Item* item : {&a, &b, &c})
        ASSERT_TRUE(table.insert(*item));

    const struct {
        const char* name;
        unsigned int key;
        const Item* found;
        unsigned int probes;  // added by this find
    } rows[] = {
        {"hit at the head", 107, &c, 0},   {"hit second", 54, &b, 1},
        {"hit third", 1, &a, 2},           {"miss on the chain", 160, nullptr, 3},
        {"miss on an empty bucket", 2, nullptr, 0},
    };
    unsigned int lookups = 0, hits = 0, probes = 0;
    for (const auto& row : rows) {
        EXPECT_EQ(table.find(row.key), row.found) << row.name;
        ++lookups;
        hits += row.found ? 1 : 0;
        probes += row.probes;
        const HashTableBase::LookupStats stats = table.getLookupStats();
        EXPECT_EQ(stats.lookups, lookups) << row.name;
        EXPECT_EQ(stats.hits, hits) << row.name;
        EXPECT_EQ(stats.probes, probes) << row.name;
    }

    table.clear();
    EXPECT_EQ(table.getCount(), 0u);
    EXPECT_EQ(table.find(107), nullptr);
    const HashTableBase::LookupStats after = table.getLookupStats();
    EXPECT_EQ(after.lookups, lookups + 1) << "clear keeps the counters";
    EXPECT_EQ(after.hits, hits);
    EXPECT_EQ(after.probes, probes);
}
