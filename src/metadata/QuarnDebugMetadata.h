#pragma once

#include <cstddef>
#include <cstdint>

#include "metadata/Hash128.h"
#include "metadata/WireFormat.h"

// One accepted item of a compiled library. The pointers designate the library's own memory,
// valid while it stays loaded; the record is owned by the handling object.
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

    // Name of file f: stringTable + fileNameOffsets[f], or the empty name without a table.
    const char* FileName(int32_t file) const;
};

// The record whose address the debugger holds as a method handle.
struct MethodCacheEntry {
    QuarnDebugMetadata* metadata;  // not owned
    uint64_t generation;           // methodCacheGeneration when the entry was made
    int32_t methodIndex;
    uint32_t methodToken;  // 0x06000001 + position in its batch
};
static_assert(sizeof(MethodCacheEntry) == 24);
