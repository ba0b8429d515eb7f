#include "RegistryModel.h"

#include <algorithm>

namespace model {

void RegistryModel::Load(void* library, const quarn_debug_library& tables) {
    const auto count = static_cast<int32_t>(tables.itemCount);
    if (static_cast<uint32_t>(tables.version) != QUARN_DEBUG_FORMAT_VERSION || count < 1) {
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        const quarn_debug_item& source = tables.items[i];
        if (source.fileCount != 0 && source.auxCount != 0 && source.methodCount != 0) {
            Register(library, source);
        }
    }
}

void RegistryModel::Register(void* library, const quarn_debug_item& source) {
    const ModelItem added{nextSerial++, ToHash(source.hash), library, &source};
    for (auto it = items.begin(); it != items.end();) {
        if (it->hash == added.hash) {
            RemoveCacheEntry(*it);
            it = items.erase(it);
        } else {
            ++it;
        }
    }
    items.push_back(added);
    AddCacheEntry(added);
}

void RegistryModel::AddCacheEntry(const ModelItem& item) {
    for (int32_t k = 0; k < item.source->methodCount; ++k) {
        lists[ToHash(item.source->methodHashes[k])].push_back(item.serial);
    }
}

void RegistryModel::RemoveCacheEntry(const ModelItem& item) {
    for (auto it = lists.begin(); it != lists.end();) {
        std::erase(it->second, item.serial);
        it = it->second.empty() ? lists.erase(it) : std::next(it);
    }
}

std::vector<std::pair<Hash128, EntryPoint>> RegistryModel::Unload(void* library) {
    for (auto it = items.begin(); it != items.end();) {
        if (it->library == library) {
            RemoveCacheEntry(*it);
            it = items.erase(it);
        } else {
            ++it;
        }
    }
    std::vector<std::pair<Hash128, EntryPoint>> removed;
    for (auto it = entryPoints.begin(); it != entryPoints.end();) {
        std::erase_if(it->second, [&](const EntryPoint& entry) {
            if (entry.library == library) {
                removed.emplace_back(it->first, entry);
                return true;
            }
            return false;
        });
        it = it->second.empty() ? entryPoints.erase(it) : std::next(it);
    }
    return removed;
}

void RegistryModel::Clear() {
    items.clear();
    lists.clear();
    entryPoints.clear();
}

void RegistryModel::RegisterEntryPoint(const Hash128& entryHash, const EntryPoint& entry) {
    entryPoints[entryHash].push_back(entry);
}

}  // namespace model
