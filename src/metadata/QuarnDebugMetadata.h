#pragma once
// The record kept for each accepted item of a compiled library, and the method handle record.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "metadata/Hash128.h"
#include "metadata/WireFormat.h"

struct MethodIndexEntry;
struct FileNameEntry;

// Where one method of an item is held in the method index: its entry, and its position among
// the entry's later holders (kFirstHolder when it is the entry's first holder).
struct MethodIndexRef {
    static constexpr uint32_t kFirstHolder = UINT32_MAX;
    MethodIndexEntry* entry;
    uint32_t position;
};

// One accepted item of a compiled library. The pointers designate the library's own memory,
// valid while it stays loaded; the record is owned by the handling object (lifetime rules in
// RecordLifetimes.h).
struct QuarnDebugMetadata {
    Hash128 hash;  // copied from the 16 bytes behind field code 8
    void* libraryHandle;
    const Hash128* methodHashes;
    const SequencePoint* sequencePoints;
    const MethodDebugInfo* methods;
    const int32_t* fileNameOffsets;
    const int32_t* methodFileIndices;
    const char* stringTable;
    const int32_t* fileMD5Indices;
    const Md5Digest* md5Hashes;
    int32_t fileCount;
    int32_t methodCount;
    int32_t auxCount;

    // Bookkeeping in our own memory, so that dropping the item never reads the library (which
    // the host may already have closed, or whose tables may have changed since).
    std::vector<MethodIndexRef> methodRefs;     // per method k: where the method index holds it
    std::vector<FileNameEntry*> fileEntries;    // per file f: its entry in the name index
    uint64_t registeredInBatch = 0;             // handle batch current at registration
    QuarnDebugMetadata* nextRetired = nullptr;  // link in the retired list

    // Name of file f: stringTable + fileNameOffsets[f], or the empty name without a table.
    const char* FileName(int32_t file) const;
    // Releases the index bookkeeping of an item that left the registry.
    void ForgetIndexEntries() noexcept {
        std::vector<MethodIndexRef>().swap(methodRefs);
        std::vector<FileNameEntry*>().swap(fileEntries);
    }
};

// The record whose address the debugger holds as a method handle.
struct MethodCacheEntry {
    QuarnDebugMetadata* metadata;  // not owned
    uint64_t generation;           // methodCacheGeneration when the entry was made
    int32_t methodIndex;
    uint32_t methodToken;  // 0x06000001 + position in its batch
};
static_assert(sizeof(MethodCacheEntry) == 24);
