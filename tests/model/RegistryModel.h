#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include "entrypoints/EntryPoint.h"
#include "metadata/Hash128.h"
#include "quarn_debug_producer.h"

namespace model {

// An item as the model knows it: where its tables are and which library served them.
struct ModelItem {
    size_t serial;  // unique for the model's life; lists name items by it
    Hash128 hash;
    void* library;
    const quarn_debug_item* source;
};

// The registry changes done the plain way: a new item walks every registered item to replace
// those with its hash, and removing an item from the method lists walks the whole map. The
// handling object's indexed versions must leave the same contents.
class RegistryModel {
  public:
    void Load(void* library, const quarn_debug_library& tables);
    // Returns the entry points removed, in no particular order.
    std::vector<std::pair<Hash128, EntryPoint>> Unload(void* library);
    void Clear();
    void RegisterEntryPoint(const Hash128& entryHash, const EntryPoint& entry);

    const std::vector<ModelItem>& Items() const { return items; }
    const std::unordered_map<Hash128, std::vector<size_t>>& Lists() const { return lists; }
    const std::unordered_map<Hash128, std::vector<EntryPoint>>& EntryPoints() const {
        return entryPoints;
    }

  private:
    void Register(void* library, const quarn_debug_item& source);
    void AddCacheEntry(const ModelItem& item);
    void RemoveCacheEntry(const ModelItem& item);

    std::vector<ModelItem> items;
    std::unordered_map<Hash128, std::vector<size_t>> lists;  // method hash -> item serials
    std::unordered_map<Hash128, std::vector<EntryPoint>> entryPoints;
    size_t nextSerial = 0;
};

// The hash of a table entry as the handling object sees it.
inline Hash128 ToHash(const quarn_hash128& hash) {
    return Hash128{hash.word0, hash.word1};
}

}  // namespace model
