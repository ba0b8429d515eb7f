// When item records and method handle records die: the one place that decides it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "metadata/HandleArena.h"
#include "metadata/QuarnDebugMetadata.h"

// The debugger holds method handles: addresses of MethodCacheEntry records, each naming an item
// record. A stale handle (from an older list, or naming a dropped item) must be rejected, and
// the test that rejects it must never be fooled by a recycled address. The rules:
//
// - Handle records. Each method list gets one contiguous batch of fresh addresses from the
//   process-wide HandleArena; membership in the current batch is a range test that never
//   dereferences the handle. Issuing a list releases the previous batch's pages (its addresses
//   stay mapped and read as zeros), so memory follows the current list only; no address is ever
//   issued twice in the life of the process, not even after the handling object is destroyed.
// - Item records. A registered item is owned by the registry (`metadataItems`). When it is
//   dropped (replaced, unloaded or cleared) it comes here. If it was registered after the current
//   batch was issued, no handle of that batch names it, and it is freed at once. Otherwise a
//   current handle may still name it: it is retired, kept allocated (so its address cannot come
//   back as a new item that the stale handle would then pass for) and freed when the next batch
//   is issued, since a new batch only names registered items. So at most the items registered at
//   the last method list wait here, whatever the number of reloads since.
// - Items skipped while loading are abandoned by the reader, never freed (deliberately kept).
//
// Not thread-safe: the handling object calls it with its mutex held.
class RecordLifetimes {
  public:
    RecordLifetimes() = default;
    ~RecordLifetimes();  // frees retired items; releases the current batch's pages
    RecordLifetimes(const RecordLifetimes&) = delete;
    RecordLifetimes& operator=(const RecordLifetimes&) = delete;

    // ---- item records ----
    // Notes the batch that was current when `item` was registered.
    void Registered(QuarnDebugMetadata& item) noexcept { item.registeredInBatch = batchSerial; }
    // Takes an item that has left the registry: frees it or retires it (rules above).
    void Dropped(QuarnDebugMetadata* item) noexcept;
    size_t RetiredItemCount() const { return retiredCount; }

    // ---- method handle records ----
    // Starts a new batch with room for `count` records. Every earlier handle stops being
    // current, the previous batch's pages are released and retired items are freed. Throws
    // std::bad_alloc (changing nothing) when no address space is left.
    void RenewHandles(size_t count);
    // Appends a record to the current batch; at most `count` per batch. Inline: the fields go
    // straight into the batch instead of through a temporary.
    MethodCacheEntry* AddHandle(const MethodCacheEntry& value) {
        MethodCacheEntry* entry = batchStart + batchUsed++;
        *entry = value;
        return entry;
    }
    // True when `handle` is the address of a record of the current batch (never dereferenced).
    bool IsCurrentHandle(const void* handle) const;
    size_t HandleCount() const { return batchUsed; }

  private:
    void FreeRetiredItems() noexcept;

    HandleArena::Range batch;  // pages of the current batch
    MethodCacheEntry* batchStart = nullptr;
    size_t batchUsed = 0;
    uint64_t batchSerial = 0;               // number of batches issued so far
    QuarnDebugMetadata* retired = nullptr;  // linked through `nextRetired`
    size_t retiredCount = 0;
};
