/* Two items (hashes 0x100 and 0x200) of three methods each. Before answering the first query
   of item 2, the query function runs a hook once: tests use it to act as the debugger between
   two items of one load. */
#include "quarn_debug_producer.h"

static const int32_t kMethodFiles[] = {0};
static const quarn_method_debug_info kMethods[] = {{1, 0, 1, 0}, {1, 0, 1, 0}, {1, 0, 1, 0}};
static const int32_t kOffsets[] = {0};
static const char kStringsOne[] = "/midload/One.cs";
static const char kStringsTwo[] = "/midload/Two.cs";
static const quarn_sequence_point kPoints[] = {{0, 1, 1, 1, 2, 0}};
static const int32_t kDigestIndices[] = {-1};
static const quarn_hash128 kHashesOne[] = {{0x1A, 0}, {0x1B, 0}, {0x1C, 0}};
static const quarn_hash128 kHashesTwo[] = {{0x2A, 0}, {0x2B, 0}, {0x2C, 0}};

static const quarn_debug_item kItems[] = {
    {3,
     1,
     1,
     kMethodFiles,
     kMethods,
     kOffsets,
     kStringsOne,
     kPoints,
     {0x100, 0},
     kHashesOne,
     kDigestIndices,
     0},
    {3,
     1,
     1,
     kMethodFiles,
     kMethods,
     kOffsets,
     kStringsTwo,
     kPoints,
     {0x200, 0},
     kHashesTwo,
     kDigestIndices,
     0},
};
static const quarn_debug_library kLibrary = QUARN_DEBUG_LIBRARY(kItems);

static void (*gHook)(void*);
static void* gHookArgument;

__attribute__((visibility("default"))) void midload_set_hook(void (*hook)(void*), void* argument) {
    gHook = hook;
    gHookArgument = argument;
}

QUARN_DECLARE_DEBUG_QUERY(midload_query);
uint64_t midload_query(uint64_t item, uint64_t field) {
    if (item == 2 && field == QUARN_FIELD_METHOD_COUNT && gHook != 0) {
        void (*hook)(void*) = gHook;
        gHook = 0;
        hook(gHookArgument);
    }
    return quarn_debug_answer(&kLibrary, item, field);
}
