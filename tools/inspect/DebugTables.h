#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "metadata/DebugQuery.h"
#include "metadata/QuarnDebugMetadata.h"

// A compiled library's debug tables as read through its debug query function, with every
// pointer probed before it is followed (MemoryProbe.h). What could not be read is missing:
// a table holds the elements that were readable, of the number wanted.

// Counts above this are inspected only up to it (no real item comes near it).
inline constexpr int32_t kMaxInspectedCount = 65536;
// Bytes of tables one library may make the inspector read: counts that ask for more are
// implausible, and reading stops there.
inline constexpr size_t kMaxInspectedBytes = size_t{64} << 20;
// File names longer than this are treated as unterminated.
inline constexpr size_t kMaxFileNameLength = 4096;

template <class T>
struct ReadTable {
    uint64_t address = 0;     // of the first element wanted
    size_t wanted = 0;        // elements the counts ask for (capped at kMaxInspectedCount)
    std::vector<T> elements;  // the readable prefix

    bool Complete() const { return elements.size() == wanted; }
};

struct InspectedFile {
    int32_t index = 0;
    std::optional<int32_t> nameOffset;  // fileNameOffsets[index], if readable
    std::optional<std::string> name;    // if readable and terminated
    std::optional<int32_t> md5Index;    // fileMD5Indices[index], if readable
    std::optional<Md5Digest> md5;       // the digest, if the index is >= 0 and it is readable
};

struct InspectedMethod {
    int32_t index = 0;
    MethodDebugInfo info{};
    std::optional<Hash128> hash;
    // methodFileIndices from firstFile: fileCount entries, and at least the one at firstFile,
    // which a debugger older than protocol 2.13 is always given.
    ReadTable<int32_t> fileNumbers;
    ReadTable<SequencePoint> points;  // sequencePoints from firstSequencePoint
};

struct InspectedItem {
    int32_t number = 0;  // 1-based, as queried
    int32_t methodCount = 0;
    int32_t fileCount = 0;
    int32_t auxCount = 0;
    // The answers of field codes 3 to 11; all zero for an item the plug-in skips, whose
    // further fields it never queries.
    uint64_t fields[12] = {};
    std::optional<Hash128> hash;
    ReadTable<MethodDebugInfo> methodInfos;
    ReadTable<Hash128> methodHashes;
    ReadTable<int32_t> nameOffsets;
    ReadTable<int32_t> md5Indices;
    std::vector<InspectedFile> files;
    std::vector<InspectedMethod> methods;

    uint64_t Field(DebugQueryField field) const { return fields[static_cast<size_t>(field)]; }
    // The plug-in's reader drops an item with a zero count of methods, files or field 2.
    bool SkippedByPlugin() const { return methodCount == 0 || fileCount == 0 || auxCount == 0; }
};

struct DebugTables {
    uint32_t version = 0;              // low 32 bits of header field 0
    int32_t itemCount = 0;             // header field 1, read as a signed 32-bit number
    std::vector<InspectedItem> items;  // items 1..itemCount, at most kMaxInspectedCount
    bool truncated = false;            // reading stopped at kMaxInspectedBytes
};

// Queries the tables in the plug-in's order (header, then per item codes 0 to 11) and reads
// what the answers point to.
DebugTables ReadDebugTables(DebugQueryFunction query);
