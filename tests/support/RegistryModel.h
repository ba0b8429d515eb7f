#pragma once
// A plain model of the registry's rules: a load whose header counts at least one item keeps each
// item with non-zero counts and drops every earlier item with its hash; an unload drops the
// library's items and entry points, a clear all of them; each method is held by the items that
// list it, in registration order; entry points stay in registration order under their hash.

#include <string>
#include <unordered_map>
#include <vector>

#include "quarn_debug_producer.h"
#include "support/Inspector.h"

namespace testing_support {

class RegistryModel {
  public:
    void Load(void* library, const quarn_debug_library& tables) {
        for (int32_t i = 0; i < static_cast<int32_t>(tables.itemCount); ++i) {
            const quarn_debug_item& item = tables.items[i];
            if (item.methodCount != 0 && item.fileCount != 0 && item.auxCount != 0) {
                const Hash128 hash{item.hash.word0, item.hash.word1};
                std::erase_if(items, [&](const Item& kept) { return kept.hash == hash; });
                items.push_back({hash, library, &item});
            }
        }
    }
    void Register(const Hash128& hash, void* library, void* native) {
        entryPoints[hash].emplace_back(library, native);
    }
    void Unload(void* library) {
        std::erase_if(items, [&](const Item& item) { return item.library == library; });
        for (auto it = entryPoints.begin(); it != entryPoints.end();) {
            std::erase_if(it->second, [&](const auto& entry) { return entry.first == library; });
            it = it->second.empty() ? entryPoints.erase(it) : std::next(it);
        }
    }
    void Clear() { items.clear(), entryPoints.clear(); }

    // Empty when the registry holds exactly the model's items, read from the same tables, each
    // method's holders and each hash's entry points in the model's order; otherwise what differs.
    std::string Difference(const MonoDebuggerHandlingInspector& inspect) const {
        std::unordered_map<Hash128, const Item*> byHash;
        std::unordered_map<Hash128, std::vector<const void*>> expected, held;
        for (const Item& item : items) {
            byHash[item.hash] = &item;
            for (int32_t k = 0; k < item.source->methodCount; ++k) {
                const quarn_hash128& method = item.source->methodHashes[k];
                expected[Hash128{method.word0, method.word1}].push_back(&item);
            }
        }
        if (inspect.MetadataItems().size() != items.size())
            return "item count";
        std::unordered_map<const void*, const void*> modelItemOf;
        for (const QuarnDebugMetadata* record : inspect.MetadataItems()) {
            const auto found = byHash.find(record->hash);
            const quarn_debug_item* source =
                found == byHash.end() ? nullptr : found->second->source;
            if (source == nullptr || record->libraryHandle != found->second->library ||
                record->methodCount != source->methodCount ||
                record->fileCount != source->fileCount ||
                static_cast<const void*>(record->methodHashes) != source->methodHashes)
                return "item " + record->hash.ToString();
            modelItemOf[record] = found->second;
        }
        for (const auto& [hash, list] : inspect.HashToMetadataList())
            for (const QuarnDebugMetadata* record : list)
                held[hash].push_back(modelItemOf.contains(record) ? modelItemOf[record] : record);
        if (held != expected)
            return "holders";
        EntryMap registered;
        for (const auto& [hash, list] : inspect.EntryPoints())
            for (const EntryPoint& entry : list)
                registered[hash].emplace_back(entry.library, entry.native);
        return registered == entryPoints ? "" : "entry points";
    }

  private:
    struct Item {
        Hash128 hash;
        void* library;
        const quarn_debug_item* source;  // must outlive the model's use of it
    };
    // (library, native) of each hash's entry points, in registration order.
    using EntryMap = std::unordered_map<Hash128, std::vector<std::pair<void*, void*>>>;

    std::vector<Item> items;  // in registration order
    EntryMap entryPoints;
};

}  // namespace testing_support
