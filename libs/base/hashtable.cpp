// HashTable: the prime list, bucket and node ownership, insertion and removal by identity.
#include <vanta/hashtable.h>

#include <vanta/memory.h>

#include <algorithm>
#include <iterator>

namespace vanta {

namespace {

// Bucket counts: primes roughly doubling, each far from a power of two.
constexpr unsigned int kPrimes[28] = {
    53u,        97u,        193u,       389u,       769u,        1543u,       3079u,
    6151u,      12289u,     24593u,     49157u,     98317u,      196613u,     393241u,
    786433u,    1572869u,   3145739u,   6291469u,   12582917u,   25165843u,   50331653u,
    100663319u, 201326611u, 402653189u, 805306457u, 1610612741u, 3221225473u, 4294967291u,
};

}  // namespace

unsigned int HashCalcNextPrime(unsigned int n) {
    const unsigned int* found = std::lower_bound(std::begin(kPrimes), std::end(kPrimes), n);
    return found == std::end(kPrimes) ? n : *found;
}

HashTableBase::HashTableBase(unsigned int requestedBuckets)
    : mBuckets(nullptr),
      mBucketCount(HashCalcNextPrime(requestedBuckets)),
      mCount(0),
      mLookups(0),
      mHits(0),
      mProbes(0) {
    const unsigned long bytes = static_cast<unsigned long>(mBucketCount) * sizeof(Node*);
    mBuckets = static_cast<Node**>(doNew(bytes ? bytes : 1));
    if (mBuckets)
        std::fill_n(mBuckets, mBucketCount, nullptr);
}

HashTableBase::~HashTableBase() {
    clear();
    if (mBuckets)
        doDelete(mBuckets);
}

void HashTableBase::clear() {
    if (!mBuckets)
        return;
    for (unsigned int i = 0; i < mBucketCount; ++i) {
        while (Node* node = mBuckets[i]) {
            mBuckets[i] = node->next;
            MemoryObject::operator delete(node);
        }
    }
    mCount = 0;
}

HashTableBase::Node* HashTableBase::allocNode() const {
    return static_cast<Node*>(MemoryObject::operator new(sizeof(Node)));
}

HashTableBase::Node** HashTableBase::findNode(unsigned int bucketIndex, void* element) const {
    if (!mBuckets)
        return nullptr;
    for (Node** link = &mBuckets[bucketIndex]; *link; link = &(*link)->next) {
        if ((*link)->element == element)
            return link;
    }
    return nullptr;
}

bool HashTableBase::insertElem(unsigned int hash, void* element) {
    if (!mBuckets)
        return false;
    const unsigned int i = hash % mBucketCount;
    if (findNode(i, element))
        return false;
    Node* node = allocNode();
    if (!node)
        return false;
    node->element = element;
    node->next = mBuckets[i];
    mBuckets[i] = node;
    ++mCount;
    return true;
}

bool HashTableBase::removeElem(unsigned int hash, void* element) {
    if (!mBuckets)
        return false;
    Node** link = findNode(hash % mBucketCount, element);
    if (!link)
        return false;
    Node* node = *link;
    *link = node->next;
    MemoryObject::operator delete(node);
    --mCount;
    return true;
}

}  // namespace vanta
