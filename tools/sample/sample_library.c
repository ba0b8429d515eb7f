/* The sample compiled library of the session demo, written as a compiler back end would emit it
   with the producer helper. Lines and columns are those of the C# files in Assets/Scripts
   beside this file; the digests are the MD5 sums of those files. */
#include "SampleTables.h"
#include "quarn_debug_producer.h"

#define PLAYER_MD5                                                                              \
    {                                                                                           \
        {                                                                                       \
            0xed, 0xe1, 0xb8, 0x7f, 0x54, 0x56, 0x89, 0x79, 0xf5, 0xa1, 0x5a, 0xa0, 0x7c, 0x1c, \
                0xcf, 0xc8                                                                      \
        }                                                                                       \
    }
#define INVENTORY_MD5                                                                           \
    {                                                                                           \
        {                                                                                       \
            0xc2, 0xbe, 0x9e, 0x1e, 0xb2, 0xf7, 0x63, 0xa7, 0xd1, 0xa7, 0x09, 0xb5, 0x96, 0xd7, \
                0xd8, 0xf5                                                                      \
        }                                                                                       \
    }
#define MATHUTIL_MD5                                                                            \
    {                                                                                           \
        {                                                                                       \
            0xca, 0xb5, 0xe6, 0xf9, 0x75, 0xcc, 0x46, 0xad, 0x23, 0x21, 0x47, 0x6c, 0xbb, 0x00, \
                0x5c, 0x00                                                                      \
        }                                                                                       \
    }

/* Sequence points: {ilOffset, startLine, startColumn, endLine, endColumn, file}. */
#define PLAYER_UPDATE_POINTS                                                \
    {0, 12, 9, 12, 10, 0}, {1, 13, 13, 13, 62, 0}, {24, 14, 13, 14, 36, 0}, \
        {38, 15, 17, 15, 30, 0}, {                                          \
        44, 16, 9, 16, 10, 0                                                \
    }
#define INVENTORY_COUNT_POINTS                       \
    {0, 11, 9, 11, 10, 0}, {1, 12, 13, 12, 30, 0}, { \
        12, 13, 9, 13, 10, 0                         \
    }
#define INVENTORY_SORT_POINTS                                               \
    {0, 16, 9, 16, 10, 0}, {1, 17, 13, 17, 24, 0}, {12, 18, 13, 18, 48, 0}, \
        {20, 19, 17, 19, 58, 0}, {                                          \
        48, 20, 9, 20, 10, 0                                                \
    }
#define MATHUTIL_CLAMP_POINTS                                                                     \
    {0, 9, 9, 9, 10, 0}, {1, 10, 13, 10, 29, 0}, {6, 11, 17, 11, 28, 0}, {10, 12, 13, 12, 46, 0}, \
    {                                                                                             \
        22, 13, 9, 13, 10, 0                                                                      \
    }
/* MathUtil.Lerp inlined at Player.cs:20: its point lies in the method's second file. */
#define PLAYER_SPAWN_POINTS                                                \
    {0, 19, 9, 19, 10, 0}, {1, 20, 13, 20, 53, 0}, {3, 17, 13, 17, 43, 1}, \
        {18, 21, 13, 21, 31, 0}, {                                         \
        30, 22, 9, 22, 10, 0                                               \
    }

/* Entry point PlayerUpdate: files Player.cs, Inventory.cs, MathUtil.cs. */
static const char kUpdateStrings[] =
    SAMPLE_PLAYER_PATH "\0" SAMPLE_INVENTORY_PATH "\0" SAMPLE_MATHUTIL_PATH;
static const int32_t kUpdateNameOffsets[] = {
    0, sizeof SAMPLE_PLAYER_PATH, sizeof SAMPLE_PLAYER_PATH + sizeof SAMPLE_INVENTORY_PATH};
static const int32_t kUpdateDigestIndices[] = {0, 1, 2};
static const quarn_md5 kUpdateDigests[3] = {PLAYER_MD5, INVENTORY_MD5, MATHUTIL_MD5};
static const int32_t kUpdateMethodFiles[] = {0, 1, 2};
static const quarn_method_debug_info kUpdateMethods[] = {
    {5, 0, 1, 0}, /* Player.Update: points 0..4, file 0 */
    {3, 5, 1, 1}, /* Inventory.Count: points 5..7, file 1 */
    {5, 8, 1, 2}, /* MathUtil.Clamp: points 8..12, file 2 */
};
static const quarn_sequence_point kUpdatePoints[] = {PLAYER_UPDATE_POINTS, INVENTORY_COUNT_POINTS,
                                                     MATHUTIL_CLAMP_POINTS};
static const quarn_hash128 kUpdateMethodHashes[] = {
    SAMPLE_METHOD_PLAYER_UPDATE, SAMPLE_METHOD_INVENTORY_COUNT, SAMPLE_METHOD_MATHUTIL_CLAMP};

/* Entry point InventorySort: files Inventory.cs, MathUtil.cs. */
static const char kSortStrings[] = SAMPLE_INVENTORY_PATH "\0" SAMPLE_MATHUTIL_PATH;
static const int32_t kSortNameOffsets[] = {0, sizeof SAMPLE_INVENTORY_PATH};
static const int32_t kSortDigestIndices[] = {0, 1};
static const quarn_md5 kSortDigests[2] = {INVENTORY_MD5, MATHUTIL_MD5};
static const int32_t kSortMethodFiles[] = {0, 1};
static const quarn_method_debug_info kSortMethods[] = {
    {5, 0, 1, 0}, /* Inventory.Sort: points 0..4, file 0 */
    {5, 5, 1, 1}, /* MathUtil.Clamp: points 5..9, file 1 */
};
static const quarn_sequence_point kSortPoints[] = {INVENTORY_SORT_POINTS, MATHUTIL_CLAMP_POINTS};
static const quarn_hash128 kSortMethodHashes[] = {SAMPLE_METHOD_INVENTORY_SORT,
                                                  SAMPLE_METHOD_MATHUTIL_CLAMP};

/* Entry point PlayerSpawn: files Player.cs, MathUtil.cs. */
static const char kSpawnStrings[] = SAMPLE_PLAYER_PATH "\0" SAMPLE_MATHUTIL_PATH;
static const int32_t kSpawnNameOffsets[] = {0, sizeof SAMPLE_PLAYER_PATH};
static const int32_t kSpawnDigestIndices[] = {0, 1};
static const quarn_md5 kSpawnDigests[2] = {PLAYER_MD5, MATHUTIL_MD5};
static const int32_t kSpawnMethodFiles[] = {0, 1};
static const quarn_method_debug_info kSpawnMethods[] = {
    {5, 0, 2, 0}, /* Player.Spawn: points 0..4, files 0 and 1 */
};
static const quarn_sequence_point kSpawnPoints[] = {PLAYER_SPAWN_POINTS};
static const quarn_hash128 kSpawnMethodHashes[] = {SAMPLE_METHOD_PLAYER_SPAWN};

static const quarn_debug_item kItems[] = {
    {3, 3, 1, kUpdateMethodFiles, kUpdateMethods, kUpdateNameOffsets, kUpdateStrings, kUpdatePoints,
     SAMPLE_ENTRY_PLAYER_UPDATE, kUpdateMethodHashes, kUpdateDigestIndices, kUpdateDigests},
    {2, 2, 1, kSortMethodFiles, kSortMethods, kSortNameOffsets, kSortStrings, kSortPoints,
     SAMPLE_ENTRY_INVENTORY_SORT, kSortMethodHashes, kSortDigestIndices, kSortDigests},
    {1, 2, 1, kSpawnMethodFiles, kSpawnMethods, kSpawnNameOffsets, kSpawnStrings, kSpawnPoints,
     SAMPLE_ENTRY_PLAYER_SPAWN, kSpawnMethodHashes, kSpawnDigestIndices, kSpawnDigests},
};
static const quarn_debug_library kLibrary = QUARN_DEBUG_LIBRARY(kItems);
QUARN_DEFINE_DEBUG_QUERY(kLibrary)
