// Adding and removing one item's methods in the method index (invariants in MethodIndex.h).
#include "metadata/MethodIndex.h"

#include <algorithm>

#include "metadata/BucketTouch.h"
#include "metadata/SwapRemove.h"

namespace {

// Bounds on how far the table grows ahead of what it holds while a library loads: at most this
// factor, or this many keys (8 MB of buckets) if that is more, so an absurd item count cannot
// make it reserve much more than it fills.
constexpr size_t kGrowthFactorAhead = 8;
constexpr size_t kKeysAhead = size_t{1} << 20;

}  // namespace

void MethodIndex::ExpectMore(int32_t itemMethods, int32_t itemsLeft) {
    if (itemMethods <= 0) {
        return;
    }
    const auto methods = static_cast<size_t>(itemMethods);
    const size_t needed = entries.size() + methods;
    const auto capacity =
        static_cast<size_t>(static_cast<float>(entries.bucket_count()) * entries.max_load_factor());
    if (needed > capacity) {
        // The items left are expected to add half as many methods again as this one each, as
        // items differ in size. A reload finds its keys already there and seldom gets here.
        // At least doubling, so libraries loaded one at a time do not rehash on every load.
        const size_t expected = std::max(
            entries.size() * 2, entries.size() + methods * static_cast<size_t>(itemsLeft) * 3 / 2);
        const size_t bound = std::max(needed * kGrowthFactorAhead, needed + kKeysAhead);
        entries.reserve(std::min(expected, bound));
    }
}

void MethodIndex::Add(QuarnDebugMetadata& item) {
    const int32_t count = std::max(item.methodCount, 0);
    item.methodRefs.assign(static_cast<size_t>(count), MethodIndexRef{});
    if (listed.capacity() - listed.size() < static_cast<size_t>(count)) {
        // Geometric growth: items arrive one at a time.
        listed.reserve(std::max(listed.size() + static_cast<size_t>(count), listed.capacity() * 2));
    }
    TouchBuckets(entries, item.methodHashes, count);
    int32_t added = 0;
    try {
        for (; added < count; ++added) {
            AddHolder(item.methodHashes[added], {&item, added}, item.methodRefs[added]);
        }
    } catch (...) {
        RemoveFirst(item, added);
        item.methodRefs.clear();
        throw;
    }
    total += static_cast<uint32_t>(item.methodCount);
}

// Appends `holder` to the entry of `hash`, creating the entry (and its listed element) when the
// hash is new. Changes nothing if it throws; `listed` has room for one more.
void MethodIndex::AddHolder(const Hash128& hash, MethodLocation holder, MethodIndexRef& recorded) {
    auto [node, inserted] = entries.try_emplace(hash);
    MethodIndexEntry& entry = node->second;
    if (inserted) {
        entry.key = &node->first;
        entry.first = holder;
        entry.slot = static_cast<uint32_t>(listed.size());
        listed.push_back({holder, &entry});
        recorded = {&entry, MethodIndexRef::kFirstHolder};
        return;
    }
    if (entry.more == nullptr) {
        entry.more = std::make_unique<std::vector<MethodLocation>>();
    }
    entry.more->push_back(holder);
    recorded = {&entry, static_cast<uint32_t>(entry.more->size() - 1)};
}

void MethodIndex::Remove(QuarnDebugMetadata& item) noexcept {
    RemoveFirst(item, static_cast<int32_t>(item.methodRefs.size()));
    item.methodRefs.clear();
    total -= static_cast<uint32_t>(item.methodCount);
}

void MethodIndex::RemoveFirst(QuarnDebugMetadata& item, int32_t count) noexcept {
    for (int32_t k = 0; k < count; ++k) {
        RemoveHolder(item.methodRefs[k]);
    }
}

// Removes one holder. When it was the answering one the next live holder answers; when it was
// the last one the entry goes.
void MethodIndex::RemoveHolder(MethodIndexRef ref) noexcept {
    MethodIndexEntry& entry = *ref.entry;
    if (ref.position == MethodIndexRef::kFirstHolder) {
        PromoteNextHolder(entry);
        return;
    }
    (*entry.more)[ref.position].item = nullptr;
    ++entry.removed;
    CompactLaterHolders(entry);
}

void MethodIndex::PromoteNextHolder(MethodIndexEntry& entry) noexcept {
    std::vector<MethodLocation>* more = entry.more.get();
    const size_t size = more == nullptr ? 0 : more->size();
    while (entry.liveFrom < size && (*more)[entry.liveFrom].item == nullptr) {
        ++entry.liveFrom;
    }
    if (entry.liveFrom == size) {
        EraseEntry(entry);
        return;
    }
    MethodLocation& next = (*more)[entry.liveFrom];
    entry.first = next;
    next.item->methodRefs[next.methodIndex].position = MethodIndexRef::kFirstHolder;
    next.item = nullptr;
    ++entry.removed;
    ++entry.liveFrom;
    listed[entry.slot].location = entry.first;
    CompactLaterHolders(entry);
}

// Once the marked holders are half of `more`, moves the live ones together, in order, and tells
// each item its holder's new position. In place: nothing is allocated.
void MethodIndex::CompactLaterHolders(MethodIndexEntry& entry) noexcept {
    std::vector<MethodLocation>& more = *entry.more;
    if (entry.removed * 2 < more.size()) {
        return;
    }
    size_t kept = 0;
    for (const MethodLocation& holder : more) {
        if (holder.item != nullptr) {
            holder.item->methodRefs[holder.methodIndex].position = static_cast<uint32_t>(kept);
            more[kept++] = holder;
        }
    }
    more.resize(kept);
    entry.removed = 0;
    entry.liveFrom = 0;
}

// Moves the last listed element into the entry's slot, then erases the entry.
void MethodIndex::EraseEntry(MethodIndexEntry& entry) noexcept {
    SwapRemove(listed, entry.slot,
               [](const Listed& moved, uint32_t slot) { moved.entry->slot = slot; });
    const Hash128 key = *entry.key;  // a copy: the key goes with the entry
    entries.erase(key);
}

void MethodIndex::Clear() noexcept {
    entries.clear();
    listed.clear();
    total = 0;
}

const MethodIndexEntry* MethodIndex::Find(const Hash128& hash) const {
    const auto found = entries.find(hash);
    return found == entries.end() ? nullptr : &found->second;
}
