// The file name cache, kept up to date item by item, with an index by base name so that a path
// is compared with the few names it could match instead of every name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "metadata/QuarnDebugMetadata.h"

// One distinct file name, copied into our own memory (so removal never reads a library).
struct FileNameEntry {
    const std::string* name = nullptr;  // the map's own key
    uint32_t holders = 0;               // files of registered items with this name
    uint32_t tailPosition = 0;          // position in its group of `byTail`
    uint32_t listPosition = 0;          // position in `listed`
};

// Invariants, after every Add and Remove:
// - one entry per distinct name (exact bytes) over the files of the registered items, whose
//   `holders` counts those files; item.fileEntries[f] is the entry of the item's file f;
// - `listed` holds each entry once, at the entry's `listPosition`;
// - every name is listed under the hash of its folded tail (see Candidates), and a relative name
//   "./R" whose R has no separator is also in `looseRelative`;
// - Total() is the 32-bit wrapping sum of the registered items' file counts.
// Not thread-safe: the handling object calls it with its mutex held.
class FileNameIndex {
  public:
    // Adds every file of `item`: all of them or, if an allocation fails, none.
    void Add(QuarnDebugMetadata& item);
    // Removes every file of `item`, from the entries recorded by Add.
    void Remove(QuarnDebugMetadata& item) noexcept;
    void Clear() noexcept;

    size_t size() const { return names.size(); }
    int32_t Total() const { return static_cast<int32_t>(total); }

    // Calls `visit(name)` for each distinct name (NUL-terminated), from one contiguous list.
    template <class Visit>
    void ForEach(Visit visit) const {
        for (const ListedName& name : listed) {
            visit(name.text);
        }
    }

    // Calls `visit(name)` for a set of names that includes every name the file matcher can pair
    // with `path` (and usually few others); stops when `visit` returns true, and returns whether
    // it did. A name can only match when its tail (what follows its last '/' or '\') equals the
    // path's tail up to letter case, or when it is "./R" with no separator in R (matched as a
    // loose suffix). Letter case is folded so that any two bytes tolower() pairs fold alike; in a
    // locale where that cannot be promised, every name is a candidate.
    template <class Visit>
    bool Candidates(std::string_view path, bool ignoreCase, Visit visit) const;

  private:
    struct ListedName {
        const char* text;
        FileNameEntry* entry;
    };

    void AddName(const char* text, FileNameEntry*& recorded);
    void RemoveName(FileNameEntry& entry) noexcept;
    void RemoveFirst(QuarnDebugMetadata& item, int32_t count) noexcept;
    static uint64_t TailKey(std::string_view name);
    static bool IsLooseRelative(std::string_view name);
    static bool FoldAgreesWithLocale();

    std::unordered_map<std::string, FileNameEntry> names;
    // Folded tail hash -> the names with that tail; many names can share one ("Source0.cs" in
    // every folder), so each entry knows its position and leaves its group in O(1).
    std::unordered_map<uint64_t, std::vector<FileNameEntry*>> byTail;
    std::vector<const std::string*> looseRelative;
    std::vector<ListedName> listed;  // every name once, for the file list and the dump
    uint32_t total = 0;
};

template <class Visit>
bool FileNameIndex::Candidates(std::string_view path, bool ignoreCase, Visit visit) const {
    if (ignoreCase && !FoldAgreesWithLocale()) {
        for (const ListedName& name : listed) {
            if (visit(std::string_view(name.text))) {
                return true;
            }
        }
        return false;
    }
    if (const auto group = byTail.find(TailKey(path)); group != byTail.end()) {
        for (const FileNameEntry* entry : group->second) {
            if (visit(*entry->name)) {
                return true;
            }
        }
    }
    if (path.find_first_of("/\\") == std::string_view::npos) {
        return false;  // a loose relative name only matches a path with a directory part
    }
    for (const std::string* name : looseRelative) {
        if (visit(*name)) {
            return true;
        }
    }
    return false;
}
