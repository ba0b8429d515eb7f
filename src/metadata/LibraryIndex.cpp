// Per-library bookkeeping of items and entry hashes (invariants in LibraryIndex.h).
#include "metadata/LibraryIndex.h"

void LibraryIndex::AddItem(QuarnDebugMetadata* item) {
    AddTo(item->libraryHandle, [&](Contents& contents) { contents.items.insert(item); });
}

void LibraryIndex::AddEntryHash(void* library, const Hash128& entryHash) {
    AddTo(library, [&](Contents& contents) { contents.entryHashes.insert(entryHash); });
}

void LibraryIndex::RemoveItem(QuarnDebugMetadata* item) noexcept {
    if (Contents* contents = Find(item->libraryHandle); contents != nullptr) {
        contents->items.erase(item);
        EraseIfEmpty(item->libraryHandle);
    }
}

LibraryIndex::Contents* LibraryIndex::Find(void* library) {
    const auto found = libraries.find(library);
    return found == libraries.end() ? nullptr : &found->second;
}

template <class Insert>
void LibraryIndex::AddTo(void* library, Insert insert) {
    Contents& contents = libraries.try_emplace(library).first->second;
    try {
        insert(contents);
    } catch (...) {
        EraseIfEmpty(library);
        throw;
    }
}

void LibraryIndex::EraseIfEmpty(void* library) noexcept {
    const auto found = libraries.find(library);
    if (found != libraries.end() && found->second.items.empty() &&
        found->second.entryHashes.empty()) {
        libraries.erase(found);
    }
}
