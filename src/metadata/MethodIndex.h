// The method cache, kept up to date item by item: per distinct method hash, the items that hold
// it and the one that answers for it in the method list.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "metadata/Hash128.h"
#include "metadata/QuarnDebugMetadata.h"

// A method of a registered item: the item and the method's index in it.
struct MethodLocation {
    QuarnDebugMetadata* item;
    int32_t methodIndex;
    friend bool operator==(const MethodLocation&, const MethodLocation&) = default;
};

// One distinct method hash. Its holders are every (item, index) whose method has the hash, in
// registration order (a hash repeated within an item is held once per repetition); the first
// holder answers for the method.
struct MethodIndexEntry {
    const Hash128* key = nullptr;                       // the map's own key
    MethodLocation first{};                             // the answering holder
    std::unique_ptr<std::vector<MethodLocation>> more;  // later holders; null while there are none
    uint32_t slot = 0;                                  // position in MethodIndex::Listed()
};

// The method side of the caches, updated by each item added or removed at the cost of that
// item's methods alone. Invariants, after every Add and Remove:
// - there is one entry per distinct method hash over the registered items, holding exactly the
//   (item, index) pairs of those items, in registration order (the per-hash item lists);
// - Listed() holds one element per entry, at the entry's `slot`, whose location is the entry's
//   first holder: the method list and the answer come from a registered item;
// - item.methodEntries[k] is the entry of the item's method k, so removal reads our memory only;
// - Total() is the 32-bit wrapping sum of the registered items' method counts.
// Not thread-safe: the handling object calls it with its mutex held.
class MethodIndex {
  public:
    struct Listed {
        MethodLocation location;
        MethodIndexEntry* entry;
    };

    // Adds every method of `item`: all of them or, if an allocation fails, none.
    void Add(QuarnDebugMetadata& item);
    // Removes every method of `item`, from the entries recorded by Add.
    void Remove(QuarnDebugMetadata& item) noexcept;
    void Clear() noexcept;
    // Before adding an item of `itemMethods` methods with `itemsLeft` items (this one included)
    // still to come in its library: when the table must grow, grows it once for the rest of the
    // library, so a large library is not rehashed again and again as its items arrive.
    void ExpectMore(int32_t itemMethods, int32_t itemsLeft);

    const MethodIndexEntry* Find(const Hash128& hash) const;
    // One element per distinct method, contiguous: the order of the method list.
    const std::vector<Listed>& ListedMethods() const { return listed; }
    size_t size() const { return listed.size(); }
    int32_t Total() const { return static_cast<int32_t>(total); }

    // Calls `visit(location)` for each holder of the entry, in registration order.
    template <class Visit>
    static void ForEachHolder(const MethodIndexEntry& entry, Visit visit) {
        visit(entry.first);
        if (entry.more != nullptr) {
            for (const MethodLocation& location : *entry.more) {
                visit(location);
            }
        }
    }

  private:
    void AddHolder(const Hash128& hash, MethodLocation holder, MethodIndexEntry*& recorded);
    void RemoveHolder(MethodIndexEntry& entry, MethodLocation holder) noexcept;
    void EraseEntry(MethodIndexEntry& entry) noexcept;
    void RemoveFirst(QuarnDebugMetadata& item, int32_t count) noexcept;

    std::unordered_map<Hash128, MethodIndexEntry> entries;
    std::vector<Listed> listed;
    uint32_t total = 0;
};
