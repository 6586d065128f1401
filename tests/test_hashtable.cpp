// Tests of the fixed-size hash table: primes, chains, duplicates, removal and lookup counters.
#include <vanta/hashtable.h>

#include "testsupport.h"

#include <gtest/gtest.h>

#include <climits>
#include <tuple>
#include <vector>

using namespace vanta;

namespace {

// The elements are their own keys, hashed to themselves: keys 53 apart share a bucket.
using Item = unsigned int;

class ItemTable final : public HashTable<Item, unsigned int> {
public:
    explicit ItemTable(unsigned int buckets = 15) : HashTable(buckets) {}
    unsigned int hash(unsigned int key) const override { return key; }
    unsigned int getKey(const Item* item) const override { return *item; }
    bool match(unsigned int a, unsigned int b) const override { return a == b; }

    bool insert(Item& item) { return insertElem(hash(item), &item); }
    bool remove(Item& item) { return removeElem(hash(item), &item); }
};

std::tuple<unsigned, unsigned, unsigned> stats(const ItemTable& table) {
    const HashTableBase::LookupStats s = table.getLookupStats();
    return {s.lookups, s.hits, s.probes};
}

}  // namespace

TEST(HashCalcNextPrime, PicksTheFirstPrimeAtOrAbove) {
    const unsigned int rows[][2] = {
        {0, 53}, {53, 53}, {54, 97}, {1544, 3079}, {3221225474u, 4294967291u},
        {4294967291u, 4294967291u}, {4294967292u, 4294967292u}, {UINT_MAX, UINT_MAX},
    };
    for (const auto& row : rows)
        EXPECT_EQ(HashCalcNextPrime(row[0]), row[1]) << row[0];
}

TEST(HashTable, ChainsHoldEachPointerOnceAndRemoveByIdentity) {
    ItemTable table;
    ASSERT_EQ(table.getBucketCount(), 53u);
    Item a{1}, b{54}, c{107}, twin{54};  // all in bucket 1; twin has b's key
    for (Item* item : {&a, &b, &c})
        ASSERT_TRUE(table.insert(*item));
    EXPECT_FALSE(table.insert(b)) << "the same object twice";
    EXPECT_FALSE(table.remove(twin)) << "equal key, never inserted";
    EXPECT_EQ(table.getCount(), 3u);

    EXPECT_TRUE(table.insert(twin)) << "a different object with an equal key";
    EXPECT_EQ(table.find(54), &twin) << "the newest of equal keys wins";
    EXPECT_TRUE(table.remove(twin));
    EXPECT_EQ(table.find(54), &b) << "then the older one shows again";
    EXPECT_TRUE(table.remove(b)) << "from the middle of the chain";
    EXPECT_EQ(table.find(1), &a);
    EXPECT_EQ(table.find(107), &c);
    EXPECT_EQ(table.find(54), nullptr);
    EXPECT_EQ(table.getCount(), 2u);
}

TEST(HashTable, CountersAddTheNodesPassed) {
    ItemTable table;
    Item a{1}, b{54}, c{107};  // bucket 1 holds, head first: 107, 54, 1; bucket 2 is empty
    for (Item* item : {&a, &b, &c})
        ASSERT_TRUE(table.insert(*item));
    struct Row { unsigned int key; const Item* found; unsigned int probes; /* by this find */ };
    const Row rows[] = {{107, &c, 0}, {54, &b, 1}, {1, &a, 2}, {160, nullptr, 3}, {2, nullptr, 0}};
    unsigned int lookups = 0, hits = 0, probes = 0;
    for (const auto& row : rows) {
        EXPECT_EQ(table.find(row.key), row.found) << row.key;
        hits += row.found != nullptr;
        probes += row.probes;
        EXPECT_EQ(stats(table), std::make_tuple(++lookups, hits, probes)) << row.key;
    }

    table.clear();
    EXPECT_EQ(table.getCount(), 0u);
    EXPECT_EQ(table.find(107), nullptr);
    EXPECT_EQ(stats(table), std::make_tuple(lookups + 1, hits, probes)) << "clear keeps counters";
}

TEST(HashTableDeathTest, FailedAllocationsLeaveTheTableUsable) {
    if (!vantatest::canLimitAddressSpace())
        GTEST_SKIP() << "a sanitizer needs the address space";
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // In a child with 32 MiB of address space left: a table too large for it has no buckets,
    // and filling a table runs out of nodes. Both refuse, and nothing already held is lost.
    const auto failures = [] {
        std::vector<Item> items(4000000);
        ItemTable table(3000000);
        if (!vantatest::limitAddressSpace(32u << 20))
            return 100;
        int failed = 0;
        ItemTable huge(4294967291u);
        failed += huge.insert(items[0]) || huge.find(0) || huge.remove(items[0]);
        std::size_t n = 0;
        while (n < items.size()) {
            items[n] = Item(n);
            if (!table.insert(items[n]))
                break;
            ++n;
        }
        failed += n == 0 || n == items.size();  // the nodes must run out on the way
        failed += table.getCount() != n;
        failed += table.find(Item(n - 1)) != &items[n - 1] || table.find(Item(n)) != nullptr;
        failed += !table.remove(items[n - 1]) || !table.insert(items[n]);  // a node to reuse
        return failed;
    };
    EXPECT_EXIT(std::_Exit(failures()), ::testing::ExitedWithCode(0), "");
}
