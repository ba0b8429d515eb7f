/* One item whose method and file counts are below zero. The reader skips only zero counts, so
   the item is kept; no table behind it is ever read. */
#include "quarn_debug_producer.h"

static const quarn_debug_item kItems[] = {
    {-2, -3, 1, 0, 0, 0, 0, 0, {0x00000000000000EEull, 0x5000000000000000ull}, 0, 0, 0},
};
static const quarn_debug_library kLibrary = QUARN_DEBUG_LIBRARY(kItems);
QUARN_DEFINE_DEBUG_QUERY(kLibrary)
