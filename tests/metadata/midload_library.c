/* Two items of three methods each. Before the first query of item 2 a hook runs once, so tests
   can act as the debugger between two items of one load. */
#include "quarn_debug_producer.h"

static const int32_t kZero[] = {0};
static const quarn_method_debug_info kMethods[3] = {{0}}; /* no sequence points */
static const quarn_hash128 kHashesOne[] = {{0x1A, 0}, {0x1B, 0}, {0x1C, 0}};
static const quarn_hash128 kHashesTwo[] = {{0x2A, 0}, {0x2B, 0}, {0x2C, 0}};
#define ITEM(path, hash, hashes) \
    { 3, 1, 1, kZero, kMethods, kZero, path, 0, {hash, 0}, hashes, 0, 0 }
static const quarn_debug_item kItems[] = {ITEM("/midload/One.cs", 0x100, kHashesOne),
                                          ITEM("/midload/Two.cs", 0x200, kHashesTwo)};
static const quarn_debug_library kLibrary = QUARN_DEBUG_LIBRARY(kItems);

static void (*gHook)(void);

__attribute__((visibility("default"))) void midload_set_hook(void (*hook)(void)) {
    gHook = hook;
}

QUARN_DECLARE_DEBUG_QUERY(midload_query);
uint64_t midload_query(uint64_t item, uint64_t field) {
    void (*hook)(void) = gHook;
    if (item == 2 && field == QUARN_FIELD_METHOD_COUNT && hook != 0) {
        gHook = 0;
        hook();
    }
    return quarn_debug_answer(&kLibrary, item, field);
}
