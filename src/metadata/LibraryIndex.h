// What each library handle brought: its registered items and the entry hashes it registered
// entry points under, so an unload touches that library's records only.
#pragma once

#include <unordered_map>
#include <unordered_set>

#include "metadata/Hash128.h"
#include "metadata/QuarnDebugMetadata.h"

// Invariants: `items` of a handle are exactly the registered items whose libraryHandle it is;
// `entryHashes` of a handle include every entry hash under which an entry point of that library
// is registered (possibly more, after a registration that failed half-way). A handle with
// neither is not kept. Not thread-safe: used with the handling object's mutex held.
class LibraryIndex {
  public:
    struct Contents {
        std::unordered_set<QuarnDebugMetadata*> items;
        std::unordered_set<Hash128> entryHashes;
    };

    void AddItem(QuarnDebugMetadata* item);  // changes nothing if it throws
    void RemoveItem(QuarnDebugMetadata* item) noexcept;
    void AddEntryHash(void* library, const Hash128& entryHash);  // changes nothing if it throws
    Contents* Find(void* library);
    void Erase(void* library) noexcept { libraries.erase(library); }
    void Clear() noexcept { libraries.clear(); }

  private:
    template <class Insert>
    void AddTo(void* library, Insert insert);
    void EraseIfEmpty(void* library) noexcept;

    std::unordered_map<void*, Contents> libraries;
};
