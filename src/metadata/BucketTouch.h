#pragma once
// Overlapping the cache misses of a batch of hashed-map lookups.

#include <cstdint>

#include "metadata/Hash128.h"

// Reads, for each of `count` keys, the first element of the key's bucket in `map`, before the
// caller inserts, finds or erases those keys one at a time. The reads do not depend on one
// another, so their cache misses overlap; the operations that follow find the buckets already
// in the cache instead of waiting for each miss in turn. Worth it for a batch of keys spread
// over a map larger than the cache, such as the method hashes of one item.
template <class HashedMap>
void TouchBuckets(const HashedMap& map, const Hash128* keys, int32_t count) {
    uint64_t seen = 0;
    for (int32_t k = 0; k < count; ++k) {
        const size_t bucket = map.bucket(keys[k]);
        if (auto first = map.begin(bucket); first != map.end(bucket)) {
            seen ^= first->first.word0;
        }
    }
    // A use of what was read, so the compiler keeps the reads.
    asm volatile("" : : "r"(seen));
}
