// Adding and removing one item's file names, and the tail key of the name index.
#include "metadata/FileNameIndex.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "metadata/SwapRemove.h"

namespace {

bool IsSeparator(char c) {
    return c == '/' || c == '\\';
}

// ASCII letters fold to lower case and every byte from 0x80 up folds to one value: a coarse
// fold, so that bytes the current locale's tolower() pairs fold alike in any locale checked by
// FoldAgreesWithLocale.
constexpr std::array<uint8_t, 256> kFold = [] {
    std::array<uint8_t, 256> fold{};
    for (int c = 0; c < 256; ++c) {
        fold[c] = c >= 0x80                ? 0x80
                  : (c >= 'A' && c <= 'Z') ? static_cast<uint8_t>(c - 'A' + 'a')
                                           : static_cast<uint8_t>(c);
    }
    return fold;
}();

// Makes room for one more element, growing geometrically, so that the push_back that follows
// cannot throw.
template <class Vector>
void ReserveOneMore(Vector& vector) {
    if (vector.size() == vector.capacity()) {
        vector.reserve(std::max<size_t>(16, vector.capacity() * 2));
    }
}

}  // namespace

void FileNameIndex::Add(QuarnDebugMetadata& item) {
    const int32_t count = std::max(item.fileCount, 0);
    item.fileEntries.assign(static_cast<size_t>(count), nullptr);
    int32_t added = 0;
    try {
        for (; added < count; ++added) {
            AddName(item.FileName(added), item.fileEntries[added]);
        }
    } catch (...) {
        RemoveFirst(item, added);
        item.fileEntries.clear();
        throw;
    }
    total += static_cast<uint32_t>(item.fileCount);
}

// Counts one more file with this name, creating its entry when the name is new. Changes nothing
// if it throws.
void FileNameIndex::AddName(const char* text, FileNameEntry*& recorded) {
    auto [node, inserted] = names.try_emplace(text);
    FileNameEntry& entry = node->second;
    if (inserted) {
        const std::string& name = node->first;
        entry.name = &name;
        const bool loose = IsLooseRelative(name);
        std::vector<FileNameEntry*>* group = nullptr;
        try {
            ReserveOneMore(listed);
            if (loose) {
                ReserveOneMore(looseRelative);
            }
            group = &byTail[TailKey(name)];
            group->push_back(&entry);
        } catch (...) {
            if (group != nullptr && group->empty()) {
                byTail.erase(TailKey(name));
            }
            names.erase(node);
            throw;
        }
        entry.tailPosition = static_cast<uint32_t>(group->size() - 1);
        entry.listPosition = static_cast<uint32_t>(listed.size());
        listed.push_back({name.c_str(), &entry});  // room reserved above
        if (loose) {
            looseRelative.push_back(&name);
        }
    }
    ++entry.holders;
    recorded = &entry;
}

void FileNameIndex::Remove(QuarnDebugMetadata& item) noexcept {
    RemoveFirst(item, static_cast<int32_t>(item.fileEntries.size()));
    item.fileEntries.clear();
    total -= static_cast<uint32_t>(item.fileCount);
}

void FileNameIndex::RemoveFirst(QuarnDebugMetadata& item, int32_t count) noexcept {
    for (int32_t f = 0; f < count; ++f) {
        RemoveName(*item.fileEntries[f]);
    }
}

void FileNameIndex::RemoveName(FileNameEntry& entry) noexcept {
    if (--entry.holders != 0) {
        return;
    }
    const std::string* name = entry.name;
    const auto group = byTail.find(TailKey(*name));
    SwapRemove(group->second, entry.tailPosition,
               [](FileNameEntry* moved, uint32_t position) { moved->tailPosition = position; });
    if (group->second.empty()) {
        byTail.erase(group);
    }
    SwapRemove(listed, entry.listPosition, [](const ListedName& moved, uint32_t position) {
        moved.entry->listPosition = position;
    });
    if (IsLooseRelative(*name)) {
        std::erase(looseRelative, name);
    }
    names.erase(names.find(*name));
}

void FileNameIndex::Clear() noexcept {
    listed.clear();
    byTail.clear();
    looseRelative.clear();
    names.clear();
    total = 0;
}

// FNV-1a over the folded bytes after the last separator.
uint64_t FileNameIndex::TailKey(std::string_view name) {
    const auto separator = std::find_if(name.rbegin(), name.rend(), IsSeparator);
    uint64_t key = 0xcbf29ce484222325ull;
    for (auto it = separator.base(); it != name.end(); ++it) {
        key = (key ^ kFold[static_cast<uint8_t>(*it)]) * 0x100000001b3ull;
    }
    return key;
}

// "./R" or ".\R" with no separator in R: matched as a suffix of any path with a directory part,
// so its tail says nothing about the paths it matches.
bool FileNameIndex::IsLooseRelative(std::string_view name) {
    return name.size() >= 2 && name[0] == '.' && IsSeparator(name[1]) &&
           std::none_of(name.begin() + 2, name.end(), IsSeparator);
}

// True when tolower() maps every byte to one that folds like it, so that two bytes tolower()
// pairs always fold alike (true in the "C" locale and in the usual single-byte and UTF-8 ones).
bool FileNameIndex::FoldAgreesWithLocale() {
    const auto agrees = [] {
        for (int c = 0; c < 256; ++c) {
            if (kFold[static_cast<uint8_t>(std::tolower(c))] != kFold[c]) {
                return false;
            }
        }
        return true;
    };
#ifdef __GLIBC__
    // The answer depends only on the calling thread's tolower() table, which glibc exposes and
    // never changes for a given locale: it is worked out once per table, not on every query.
    thread_local const int32_t* checkedTable = nullptr;
    thread_local bool checkedAgrees = false;
    const int32_t* table = *__ctype_tolower_loc();
    if (table != checkedTable) {
        checkedAgrees = agrees();
        checkedTable = table;
    }
    return checkedAgrees;
#else
    return agrees();
#endif
}
