#include <algorithm>

#include "metadata/BucketTouch.h"
#include "metadata/DebugQuery.h"
#include "plugin/MonoDebuggerHandling.h"

using logfmt::Ptr;

namespace {

// Bounds on how far the method lists grow ahead of what they hold while a library loads: at
// most this factor, or this many keys (8 MB of buckets) if that is more.
constexpr size_t kGrowthFactorAhead = 8;
constexpr size_t kKeysAhead = size_t{1} << 20;

// When the method lists must grow to take `item`, grows them once to what the items left in
// this library are expected to add (half as many methods again as this one each, as items
// differ in size), so a large library is not rehashed again and again as it loads. A reload
// finds its keys already there and seldom gets here; the bounds keep an absurd item count
// from making the lists reserve much more than they fill.
template <class MethodLists>
void GrowForRestOfLibrary(MethodLists& lists, const QuarnDebugMetadata& item, int64_t itemsLeft) {
    if (item.methodCount <= 0) {
        return;
    }
    const auto methods = static_cast<size_t>(item.methodCount);
    const size_t needed = lists.size() + methods;
    const auto capacity =
        static_cast<size_t>(static_cast<float>(lists.bucket_count()) * lists.max_load_factor());
    if (needed > capacity) {
        const size_t expected = lists.size() + methods * static_cast<size_t>(itemsLeft) * 3 / 2;
        const size_t bound = std::max(needed * kGrowthFactorAhead, needed + kKeysAhead);
        lists.reserve(std::min(expected, bound));
    }
}

}  // namespace

void MonoDebuggerHandling::ProcessLibraryMetadata(void* libraryHandle) {
    Log(1, "ProcessLibraryMetadata : ", Ptr(libraryHandle));
    DebugQueryReader reader;
    if (!reader.Open(libraryHandle)) {
        return;
    }
    bool added = false;
    for (int64_t item = 1; item <= reader.ItemCount(); ++item) {
        QuarnDebugMetadata* record = reader.ReadItem(static_cast<int32_t>(item));
        if (record == nullptr) {
            continue;
        }
        // Locked once per item, so debugger queries can run between items.
        std::lock_guard<std::mutex> lock(mutex);
        GrowForRestOfLibrary(hashToMetadataList, *record, reader.ItemCount() - item + 1);
        RegisterItem(record);
        added = true;
    }
    {
        std::lock_guard<std::mutex> lock(mutex);
        RebuildCaches();
    }
    if (added) {
        RequestFlushClientDebuggerKnowledge();
    }
}

void MonoDebuggerHandling::UnloadLibraryMetadata(void* libraryHandle) {
    Log(1, "UnloadLibraryMetadata : ", Ptr(libraryHandle));
    std::lock_guard<std::mutex> lock(mutex);
    for (auto it = metadataItems.begin(); it != metadataItems.end();) {
        QuarnDebugMetadata* item = *it;
        if (item->libraryHandle != libraryHandle) {
            ++it;
            continue;
        }
        it = metadataItems.erase(it);
        DropItem(item);
    }
    RemoveEntryPointsOfLibrary(libraryHandle);
    RebuildCaches();
}

void MonoDebuggerHandling::ClearLibraryMetadata() {
    Log(1, "ClearLibraryMetadata");
    std::lock_guard<std::mutex> lock(mutex);
    // Retired rather than abandoned: freed once no handle of the current list can reach them.
    retiredItems.insert(retiredItems.end(), metadataItems.begin(), metadataItems.end());
    metadataItems.clear();
    itemByHash.clear();
    entryPoints.clear();
    hashToMetadataList.clear();
    RebuildCaches();
}

// Replaces every registered item with the same hash (from whatever library), then adds the
// new one. At most one item per hash is ever registered, so the index finds it directly.
void MonoDebuggerHandling::RegisterItem(QuarnDebugMetadata* item) {
    auto [slot, inserted] = itemByHash.try_emplace(item->hash, item);
    if (inserted) {
        metadataItems.insert(item);
        AddCacheEntry(item);
        return;
    }
    QuarnDebugMetadata* replaced = std::exchange(slot->second, item);
    metadataItems.erase(replaced);
    metadataItems.insert(item);
    ReplaceCacheEntry(replaced, item);
    retiredItems.push_back(replaced);  // not freed yet: see DropItem
}

// Forgets an item already erased from `metadataItems`. Its record is retired, not freed:
// a method handle of the current list may still point at it (and is rejected, since the
// item is no longer registered), so the address must not be recycled yet.
void MonoDebuggerHandling::DropItem(QuarnDebugMetadata* item) {
    RemoveCacheEntry(item);
    if (auto found = itemByHash.find(item->hash);
        found != itemByHash.end() && found->second == item) {
        itemByHash.erase(found);
    }
    retiredItems.push_back(item);
}

// Frees the items retired before the last cache rebuild. Called when a new method list has
// made every earlier handle stale; items retired since the rebuild may still be in the caches
// (a list issued between two items of one load hands out handles to them), so they wait for
// the next rebuild and the list after it.
void MonoDebuggerHandling::FreeReleasableItems() {
    for (QuarnDebugMetadata* item : releasableItems) {
        delete item;
    }
    releasableItems.clear();
}

// Frees every dropped item; for the destructor, when no handle can be used any more.
void MonoDebuggerHandling::FreeRetiredItems() {
    releasableItems.insert(releasableItems.end(), retiredItems.begin(), retiredItems.end());
    retiredItems.clear();
    FreeReleasableItems();
}

void MonoDebuggerHandling::AddCacheEntry(const QuarnDebugMetadata* item) {
    auto* mutableItem = const_cast<QuarnDebugMetadata*>(item);
    TouchBuckets(hashToMetadataList, item->methodHashes, item->methodCount);
    for (int32_t k = 0; k < item->methodCount; ++k) {
        // A hash repeated within one item is appended once per repetition.
        hashToMetadataList[item->methodHashes[k]].push_back(mutableItem);
    }
}

// RemoveCacheEntry(replaced) then AddCacheEntry(added), without erasing and re-creating the
// keys the two items share (all of them when a library is loaded again): a list the removal
// empties is erased only if the new item does not refill it. The lists end up the same.
void MonoDebuggerHandling::ReplaceCacheEntry(const QuarnDebugMetadata* replaced,
                                             const QuarnDebugMetadata* added) {
    // Pointers to map values survive insertions and rehashing.
    std::vector<std::pair<Hash128, const ItemList*>> emptied;
    TouchBuckets(hashToMetadataList, replaced->methodHashes, replaced->methodCount);
    for (int32_t k = 0; k < replaced->methodCount; ++k) {
        auto entry = hashToMetadataList.find(replaced->methodHashes[k]);
        if (entry != hashToMetadataList.end() && std::erase(entry->second, replaced) != 0 &&
            entry->second.empty()) {
            emptied.emplace_back(entry->first, &entry->second);
        }
    }
    AddCacheEntry(added);
    for (const auto& [key, list] : emptied) {
        if (list->empty()) {
            hashToMetadataList.erase(key);
        }
    }
}

// Removes the item from the list of each of its method hashes, erasing emptied keys. Only
// those keys can hold it, so this equals a walk over the whole map, at the cost of the item.
void MonoDebuggerHandling::RemoveCacheEntry(const QuarnDebugMetadata* item) {
    TouchBuckets(hashToMetadataList, item->methodHashes, item->methodCount);
    for (int32_t k = 0; k < item->methodCount; ++k) {
        auto entry = hashToMetadataList.find(item->methodHashes[k]);
        if (entry == hashToMetadataList.end()) {
            continue;  // an earlier repetition of the hash already emptied it
        }
        std::erase(entry->second, item);
        if (entry->second.empty()) {
            hashToMetadataList.erase(entry);
        }
    }
}
