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
// registration order (a hash repeated within an item is held once per repetition): `first`, then
// the live elements of `more`. The first holder answers for the method. A holder removed from
// `more` is only marked (null item) so that no other holder moves; the marks are compacted away
// once they are half of `more`, which keeps every removal O(1) amortized however many items share
// the hash.
struct MethodIndexEntry {
    const Hash128* key = nullptr;                       // the map's own key
    MethodLocation first{};                             // the answering holder
    std::unique_ptr<std::vector<MethodLocation>> more;  // later holders; null while there are none
    uint32_t slot = 0;                                  // position in MethodIndex::ListedMethods()
    uint32_t removed = 0;                               // marked holders in `more`
    uint32_t liveFrom = 0;  // no live holder in `more` before this position
};

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
                if (location.item != nullptr) {
                    visit(location);
                }
            }
        }
    }

  private:
    void AddHolder(const Hash128& hash, MethodLocation holder, MethodIndexRef& recorded);
    void RemoveHolder(MethodIndexRef ref) noexcept;
    void PromoteNextHolder(MethodIndexEntry& entry) noexcept;
    static void CompactLaterHolders(MethodIndexEntry& entry) noexcept;
    void EraseEntry(MethodIndexEntry& entry) noexcept;
    void RemoveFirst(QuarnDebugMetadata& item, int32_t count) noexcept;

    std::unordered_map<Hash128, MethodIndexEntry> entries;
    std::vector<Listed> listed;
    uint32_t total = 0;
};
