/*
 * Producer helper for compiler back ends: describe the debug tables of a compiled library in
 * static arrays and let QUARN_DEFINE_DEBUG_QUERY export the "quarn.debug_query" function that
 * libMonoDebuggerHandling reads them through. Header-only; compiles as C11 and as C++ (GNU
 * asm labels give the symbol its dotted name).
 *
 *   static const quarn_debug_item kItems[] = {{ ... }};
 *   static const quarn_debug_library kLibrary = QUARN_DEBUG_LIBRARY(kItems);
 *   QUARN_DEFINE_DEBUG_QUERY(kLibrary)
 *
 * Query protocol: item 0 is the header (field 0 the format version, field 1 the item count);
 * items 1..count answer the field codes below. Every table stays in the library's memory and
 * is read in place for as long as the library is loaded.
 */
#ifndef QUARN_DEBUG_PRODUCER_H
#define QUARN_DEBUG_PRODUCER_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define QUARN_DEBUG_QUERY_SYMBOL "quarn.debug_query"
#define QUARN_DEBUG_FORMAT_VERSION 0x20000u

/* Field codes of an item. */
enum quarn_debug_field {
    QUARN_FIELD_METHOD_COUNT = 0,
    QUARN_FIELD_FILE_COUNT = 1,
    QUARN_FIELD_AUX_COUNT = 2,
    QUARN_FIELD_METHOD_FILE_INDICES = 3,
    QUARN_FIELD_METHODS = 4,
    QUARN_FIELD_FILE_NAME_OFFSETS = 5,
    QUARN_FIELD_STRING_TABLE = 6,
    QUARN_FIELD_SEQUENCE_POINTS = 7,
    QUARN_FIELD_HASH = 8,
    QUARN_FIELD_METHOD_HASHES = 9,
    QUARN_FIELD_FILE_MD5_INDICES = 10,
    QUARN_FIELD_MD5_HASHES = 11
};

/* 16-byte identifier: word0 is bytes 0 to 7 (little-endian), word1 bytes 8 to 15. */
typedef struct quarn_hash128 {
    uint64_t word0;
    uint64_t word1;
} quarn_hash128;

/* Element k describes method k (16 bytes). */
typedef struct quarn_method_debug_info {
    int32_t sequencePointCount;
    int32_t firstSequencePoint; /* index into the sequence point array */
    int32_t fileCount;
    int32_t firstFile; /* index into the method file index list */
} quarn_method_debug_info;

/* One IL offset mapped to a source range (24 bytes). */
typedef struct quarn_sequence_point {
    int32_t ilOffset;
    int32_t startLine;
    int32_t startColumn;
    int32_t endLine;
    int32_t endColumn;
    int32_t file; /* index into the method's own list of files */
} quarn_sequence_point;

/* 16-byte MD5 digest of a source file. */
typedef struct quarn_md5 {
    uint8_t bytes[16];
} quarn_md5;

/* One compiled item (one entry point's debug tables). */
typedef struct quarn_debug_item {
    int32_t methodCount;                        /* field 0; 0 makes the reader skip the item */
    int32_t fileCount;                          /* field 1; 0 makes the reader skip the item */
    int32_t auxCount;                           /* field 2; must be non-zero */
    const int32_t* methodFileIndices;           /* field 3: file numbers of each method */
    const quarn_method_debug_info* methods;     /* field 4: methodCount elements */
    const int32_t* fileNameOffsets;             /* field 5: fileCount offsets into strings */
    const char* stringTable;                    /* field 6: NUL-terminated paths */
    const quarn_sequence_point* sequencePoints; /* field 7 */
    quarn_hash128 hash;                         /* field 8 (answered with its address) */
    const quarn_hash128* methodHashes;          /* field 9: methodCount hashes */
    const int32_t* fileMD5Indices;              /* field 10: digest index per file, <0: none */
    const quarn_md5* md5Hashes;                 /* field 11 */
} quarn_debug_item;

/* What the header answers, and the items behind it. */
typedef struct quarn_debug_library {
    uint64_t version;   /* header field 0; QUARN_DEBUG_FORMAT_VERSION */
    uint64_t itemCount; /* header field 1; read as a signed 32-bit number */
    const quarn_debug_item* items;
} quarn_debug_library;

#define QUARN_DEBUG_LIBRARY(itemsArray) \
    { QUARN_DEBUG_FORMAT_VERSION, sizeof(itemsArray) / sizeof((itemsArray)[0]), (itemsArray) }

/* Answers one query against a library description; unknown items and fields answer 0. */
static inline uint64_t quarn_debug_answer(const quarn_debug_library* library, uint64_t item,
                                          uint64_t field) {
    if (item == 0) {
        return field == 0 ? library->version : field == 1 ? library->itemCount : 0;
    }
    if (item > (uint64_t)(uint32_t)library->itemCount) {
        return 0;
    }
    const quarn_debug_item* it = &library->items[item - 1];
    switch (field) {
        case QUARN_FIELD_METHOD_COUNT:
            return (uint32_t)it->methodCount;
        case QUARN_FIELD_FILE_COUNT:
            return (uint32_t)it->fileCount;
        case QUARN_FIELD_AUX_COUNT:
            return (uint32_t)it->auxCount;
        case QUARN_FIELD_METHOD_FILE_INDICES:
            return (uintptr_t)it->methodFileIndices;
        case QUARN_FIELD_METHODS:
            return (uintptr_t)it->methods;
        case QUARN_FIELD_FILE_NAME_OFFSETS:
            return (uintptr_t)it->fileNameOffsets;
        case QUARN_FIELD_STRING_TABLE:
            return (uintptr_t)it->stringTable;
        case QUARN_FIELD_SEQUENCE_POINTS:
            return (uintptr_t)it->sequencePoints;
        case QUARN_FIELD_HASH:
            return (uintptr_t)&it->hash;
        case QUARN_FIELD_METHOD_HASHES:
            return (uintptr_t)it->methodHashes;
        case QUARN_FIELD_FILE_MD5_INDICES:
            return (uintptr_t)it->fileMD5Indices;
        case QUARN_FIELD_MD5_HASHES:
            return (uintptr_t)it->md5Hashes;
        default:
            return 0;
    }
}

/* Declares a function under the exported symbol name "quarn.debug_query". */
#define QUARN_DECLARE_DEBUG_QUERY(functionName)                         \
    __attribute__((visibility("default"), used)) uint64_t functionName( \
        uint64_t item, uint64_t field) __asm__(QUARN_DEBUG_QUERY_SYMBOL)

/* Defines the exported query function of this shared object for one library description. */
#define QUARN_DEFINE_DEBUG_QUERY(library)                             \
    QUARN_DECLARE_DEBUG_QUERY(quarn_debug_query_entry);               \
    uint64_t quarn_debug_query_entry(uint64_t item, uint64_t field) { \
        return quarn_debug_answer(&(library), item, field);           \
    }

#ifdef __cplusplus
}
#endif

/* The plug-in reads these layouts in place, under its own names for the same types: pinned
   here, byte for byte. */
#ifdef __cplusplus
#define QUARN_STATIC_ASSERT static_assert
#else
#define QUARN_STATIC_ASSERT _Static_assert
#endif
QUARN_STATIC_ASSERT(sizeof(quarn_hash128) == 16, "a hash is 16 bytes");
QUARN_STATIC_ASSERT(offsetof(quarn_hash128, word1) == 8, "hash word1 at byte 8");
QUARN_STATIC_ASSERT(sizeof(quarn_method_debug_info) == 16, "method info is 16 bytes");
QUARN_STATIC_ASSERT(offsetof(quarn_method_debug_info, firstSequencePoint) == 4, "byte 4");
QUARN_STATIC_ASSERT(offsetof(quarn_method_debug_info, fileCount) == 8, "byte 8");
QUARN_STATIC_ASSERT(offsetof(quarn_method_debug_info, firstFile) == 12, "byte 12");
QUARN_STATIC_ASSERT(sizeof(quarn_sequence_point) == 24, "sequence point is 24 bytes");
QUARN_STATIC_ASSERT(offsetof(quarn_sequence_point, startLine) == 4, "byte 4");
QUARN_STATIC_ASSERT(offsetof(quarn_sequence_point, startColumn) == 8, "byte 8");
QUARN_STATIC_ASSERT(offsetof(quarn_sequence_point, endLine) == 12, "byte 12");
QUARN_STATIC_ASSERT(offsetof(quarn_sequence_point, endColumn) == 16, "byte 16");
QUARN_STATIC_ASSERT(offsetof(quarn_sequence_point, file) == 20, "byte 20");
QUARN_STATIC_ASSERT(sizeof(quarn_md5) == 16, "a digest is 16 bytes");

#endif /* QUARN_DEBUG_PRODUCER_H */
