#pragma once
// A plain model of the registry's rules: a load whose header counts at least one item keeps each
// item with non-zero counts and drops every earlier item with its hash; an unload drops the
// library's items; each method is held by the items that list it, in registration order.

#include <string>
#include <unordered_map>
#include <vector>

#include "quarn_debug_producer.h"
#include "support/Inspector.h"

namespace testing_support {

class RegistryModel {
  public:
    struct Item {
        Hash128 hash;
        void* library;
        const quarn_debug_item* source;  // must outlive the model's use of it
    };

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
    void Unload(void* library) {
        std::erase_if(items, [&](const Item& item) { return item.library == library; });
    }
    void Clear() { items.clear(); }
    const std::vector<Item>& Items() const { return items; }

    // Empty when the registry holds exactly the model's items, read from the same tables, and
    // each method's holders in the model's order; otherwise what differs first.
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
        if (inspect.MetadataItems().size() != items.size()) {
            return "item count";
        }
        std::unordered_map<const void*, const void*> modelItemOf;
        for (const QuarnDebugMetadata* record : inspect.MetadataItems()) {
            const auto found = byHash.find(record->hash);
            const quarn_debug_item* source =
                found == byHash.end() ? nullptr : found->second->source;
            if (source == nullptr || record->libraryHandle != found->second->library ||
                record->methodCount != source->methodCount ||
                record->fileCount != source->fileCount ||
                static_cast<const void*>(record->methodHashes) != source->methodHashes) {
                return "item " + record->hash.ToString();
            }
            modelItemOf[record] = found->second;
        }
        for (const auto& [hash, list] : inspect.HashToMetadataList()) {
            for (const QuarnDebugMetadata* record : list) {
                held[hash].push_back(modelItemOf.contains(record) ? modelItemOf[record] : record);
            }
        }
        return held == expected ? "" : "holders";
    }

  private:
    std::vector<Item> items;  // in registration order
};

}  // namespace testing_support
