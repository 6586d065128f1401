/// \file
/// HashTable: a fixed-size chained hash set of borrowed pointers with typed lookup by key.
#pragma once

#include <vanta/export.h>

namespace vanta {

/// The first of 28 fixed primes (53, 97, ..., 4294967291) that is >= n; n itself beyond the last.
VANTA_EXPORT unsigned int HashCalcNextPrime(unsigned int n);

/// The type-erased part: owns the bucket array and one two-word node per element. Elements are
/// borrowed and never deleted. The bucket count is fixed at construction; there is no rehashing.
///
/// Not thread-safe, not even find(), which updates the lookup counters: callers hold their own
/// lock around every operation.
class VANTA_EXPORT HashTableBase {
public:
    /// How the lookups went, for tuning and tests; probes / lookups is the mean chain walk.
    struct LookupStats {
        unsigned int lookups;  ///< calls of find
        unsigned int hits;     ///< calls of find that found their key
        unsigned int probes;   ///< chain nodes stepped over by find
    };

    /// bucketCount = HashCalcNextPrime(requestedBuckets). When the bucket array cannot be
    /// allocated the table stays empty and refuses every insertion.
    explicit HashTableBase(unsigned int requestedBuckets);
    /// Frees the nodes and the bucket array, never the elements.
    virtual ~HashTableBase();
    HashTableBase(const HashTableBase&) = delete;
    HashTableBase& operator=(const HashTableBase&) = delete;

    /// Frees every node and sets the count to 0; the lookup counters are kept.
    void clear();
    /// Adds element to the front of bucket hash % bucketCount. False when that very pointer is
    /// already there (another element with an equal key is accepted), or no node could be had.
    bool insertElem(unsigned int hash, void* element);
    /// Removes element (by identity) from bucket hash % bucketCount; false when it is not there.
    bool removeElem(unsigned int hash, void* element);

    unsigned int getCount() const { return mCount; }  ///< Number of elements.
    /// Number of buckets, fixed at construction.
    unsigned int getBucketCount() const { return mBucketCount; }
    /// The lookup counters so far.
    LookupStats getLookupStats() const { return {mLookups, mHits, mProbes}; }

protected:
    /// One element's place in a bucket's chain.
    struct Node {
        Node* next;     ///< next node of the same bucket, null at the end
        void* element;  ///< borrowed
    };

    /// A new, uninitialised node from the managed-object allocator; null when out of memory.
    /// Nodes are always freed with MemoryObject::operator delete.
    virtual Node* allocNode() const;

    /// The link (a chain head or a node's next) that points at the node holding exactly this
    /// element pointer in bucket bucketIndex (already reduced), or null when there is none.
    Node** findNode(unsigned int bucketIndex, void* element) const;

    Node** mBuckets;             ///< owned, mBucketCount chain heads; null if allocation failed
    unsigned int mBucketCount;  ///< Number of buckets, a prime.
    unsigned int mCount;  ///< Number of elements.
    unsigned int mLookups;  ///< Calls of find.
    unsigned int mHits;  ///< Calls of find that found their key.
    unsigned int mProbes;  ///< Chain nodes stepped over by find.
};

/// Typed lookup over HashTableBase. A concrete table supplies the hash of a key, the key of an
/// element and key equality; callers insert and remove with hash(getKey(element)).
template <class T, class K>
class VANTA_EXPORT HashTable : public HashTableBase {
public:
    /// A table of HashCalcNextPrime(requestedBuckets) buckets.
    explicit HashTable(unsigned int requestedBuckets) : HashTableBase(requestedBuckets) {}

    virtual unsigned int hash(K key) const = 0;  ///< The hash of a key.
    virtual K getKey(const T* element) const = 0;  ///< The key of an element.
    virtual bool match(K a, K b) const = 0;  ///< True when the keys are equal.

    /// The element whose key matches, or null. Of several elements with equal keys, the one
    /// inserted last wins. Non-const: it updates the lookup counters.
    T* find(K key) {
        const unsigned int h = hash(key);
        ++mLookups;
        if (!mBuckets)
            return nullptr;
        unsigned int steps = 0;
        for (Node* node = mBuckets[h % mBucketCount]; node; node = node->next, ++steps) {
            T* element = static_cast<T*>(node->element);
            if (match(getKey(element), key)) {
                ++mHits;
                mProbes += steps;
                return element;
            }
        }
        mProbes += steps;
        return nullptr;
    }
};

}  // namespace vanta
