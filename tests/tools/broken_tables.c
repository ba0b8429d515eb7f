/* Debug tables that break one rule each: every BROKEN_* macro defaults to the valid value, and
   each library built from this file (tests/tools/CMakeLists.txt) overrides one of them.

   item 1 {src/One.cs, src/Two.cs}: method 0 (points 0..1, files {0}),
                                    method 1 (points 2..3, files {1, 0})
   item 2 {src/Three.cs}:           method 0 (point 0, files {0}) */
#include "quarn_debug_producer.h"

#ifndef BROKEN_VERSION
#define BROKEN_VERSION QUARN_DEBUG_FORMAT_VERSION
#endif
#ifndef BROKEN_ITEM_COUNT
#define BROKEN_ITEM_COUNT 2
#endif
#ifndef BROKEN_METHOD_COUNT
#define BROKEN_METHOD_COUNT 2
#endif
#ifndef BROKEN_FILE_COUNT
#define BROKEN_FILE_COUNT 2
#endif
#ifndef BROKEN_AUX_COUNT
#define BROKEN_AUX_COUNT 1
#endif
#ifndef BROKEN_METHOD_FILE_INDEX_2
#define BROKEN_METHOD_FILE_INDEX_2 0
#endif
#ifndef BROKEN_POINT_3_FILE
#define BROKEN_POINT_3_FILE 1
#endif
#ifndef BROKEN_METHOD_1_FIRST_FILE
#define BROKEN_METHOD_1_FIRST_FILE 1
#endif
#ifndef BROKEN_METHOD_0_POINT_COUNT
#define BROKEN_METHOD_0_POINT_COUNT 2
#endif
#ifndef BROKEN_NAME_OFFSET_1
#define BROKEN_NAME_OFFSET_1 sizeof "src/One.cs"
#endif
#ifndef BROKEN_NAME_OFFSETS
#define BROKEN_NAME_OFFSETS kNameOffsets1
#endif
#ifndef BROKEN_SEQUENCE_POINTS
#define BROKEN_SEQUENCE_POINTS kPoints1
#endif
#ifndef BROKEN_DIGESTS
#define BROKEN_DIGESTS kDigests1
#endif
#ifndef BROKEN_METHOD_HASH_1
#define BROKEN_METHOD_HASH_1 \
    { 0x11, 0x1 }
#endif
#ifndef BROKEN_ITEM_2_HASH
#define BROKEN_ITEM_2_HASH \
    { 0x2, 0xB }
#endif

static const char kStrings1[] = "src/One.cs\0src/Two.cs";
/* Unused where a variant replaces them with null. */
#define MAYBE_UNUSED __attribute__((unused))
static const int32_t kNameOffsets1[] MAYBE_UNUSED = {0, BROKEN_NAME_OFFSET_1};
static const int32_t kMethodFiles1[] = {0, 1, BROKEN_METHOD_FILE_INDEX_2};
static const quarn_method_debug_info kMethods1[] = {
    {BROKEN_METHOD_0_POINT_COUNT, 0, 1, 0},
    {2, 2, 2, BROKEN_METHOD_1_FIRST_FILE},
};
static const quarn_sequence_point kPoints1[] MAYBE_UNUSED = {
    {0, 1, 1, 1, 9, 0},
    {2, 2, 1, 2, 9, 0},
    {0, 3, 1, 3, 9, 0},
    {4, 4, 1, 4, 9, BROKEN_POINT_3_FILE},
};
static const quarn_hash128 kMethodHashes1[] = {{0x10, 0x1}, BROKEN_METHOD_HASH_1};
static const int32_t kDigestIndices1[] = {0, -1};
static const quarn_md5 kDigests1[] MAYBE_UNUSED = {
    {{0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1, 0xD1,
      0xD1}}};

static const char kStrings2[] = "src/Three.cs";
static const int32_t kNameOffsets2[] = {0};
static const int32_t kMethodFiles2[] = {0};
static const quarn_method_debug_info kMethods2[] = {{1, 0, 1, 0}};
static const quarn_sequence_point kPoints2[] = {{0, 5, 1, 5, 9, 0}};
static const quarn_hash128 kMethodHashes2[] = {{0x20, 0x2}};
static const int32_t kDigestIndices2[] = {-1};

static const quarn_debug_item kItems[] = {
    {BROKEN_METHOD_COUNT,
     BROKEN_FILE_COUNT,
     BROKEN_AUX_COUNT,
     kMethodFiles1,
     kMethods1,
     BROKEN_NAME_OFFSETS,
     kStrings1,
     BROKEN_SEQUENCE_POINTS,
     {0x1, 0xB},
     kMethodHashes1,
     kDigestIndices1,
     BROKEN_DIGESTS},
    {1, 1, 1, kMethodFiles2, kMethods2, kNameOffsets2, kStrings2, kPoints2, BROKEN_ITEM_2_HASH,
     kMethodHashes2, kDigestIndices2, 0},
};
static const quarn_debug_library kLibrary = {BROKEN_VERSION, BROKEN_ITEM_COUNT, kItems};
QUARN_DEFINE_DEBUG_QUERY(kLibrary)
