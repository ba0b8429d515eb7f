#pragma once

#include <cstddef>
#include <cstdint>

#include "metadata/QuarnDebugMetadata.h"

// The current batch of method handles (`methodCache`). Each method list gets one contiguous
// block of records, so membership is a range test on the address that never dereferences it,
// and a whole list costs one allocation. Blocks are never freed or reused (deliberately): an
// address once issued as a handle never denotes another record, and a stale handle stays
// readable.
class MethodHandleBatch {
  public:
    // Forgets the current batch (its records stay allocated) and makes room for `count` new ones.
    void Renew(size_t count);
    // Appends a record; at most the `count` given to Renew. Inline, so the record's fields are
    // stored straight into the block rather than copied through a temporary.
    MethodCacheEntry* Add(const MethodCacheEntry& value) {
        MethodCacheEntry* entry = records + used++;
        *entry = value;
        return entry;
    }
    // True when `handle` is the address of a record of the current batch.
    bool Contains(const void* handle) const;
    size_t size() const { return used; }

  private:
    MethodCacheEntry* records = nullptr;
    size_t used = 0;
};
