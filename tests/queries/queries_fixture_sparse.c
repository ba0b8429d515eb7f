/* One item whose methods lack what the debug-info reply usually carries: NoFiles lists no
   source file (its firstFile still designates a valid entry), NoPoints has no sequence point. */
#include "FixtureTables.h"
#include "SparseFixture.h"

static const char kStrings[] = SPARSE_FILE_PATH;
static const int32_t kFileNameOffsets[] = {0};
static const int32_t kMethodFiles[] = {0};
static const quarn_method_debug_info kMethods[] = {
    {2, 0, 0, 0}, /* NoFiles: points 0 and 1, no file */
    {0, 0, 1, 0}, /* NoPoints: one file, no point */
};
static const quarn_sequence_point kPoints[] = {{0, 5, 1, 5, 9, 0}, {3, 6, 2, 6, 4, 0}};
static const quarn_hash128 kMethodHashes[] = {SPARSE_METHOD_NO_FILES, SPARSE_METHOD_NO_POINTS};
static const int32_t kDigestIndices[] = {-1};

static const quarn_debug_item kItems[] = {
    {2, 1, 1, kMethodFiles, kMethods, kFileNameOffsets, kStrings, kPoints, SPARSE_ITEM,
     kMethodHashes, kDigestIndices, 0},
};
static const quarn_debug_library kLibrary = QUARN_DEBUG_LIBRARY(kItems);
QUARN_DEFINE_DEBUG_QUERY(kLibrary)
