/* A compiled library whose tables are given at run time (recording_set_library) and which
   records every query it answers in recorded_queries, as (item << 8 | field), so tests can see
   what the reader asked of a header they choose. */
#include "FixtureTables.h"

static const quarn_debug_library* gLibrary;

__attribute__((visibility("default"))) fixture_query_log recorded_queries;

__attribute__((visibility("default"))) void recording_set_library(
    const quarn_debug_library* library) {
    gLibrary = library;
    recorded_queries.count = 0;
}

QUARN_DECLARE_DEBUG_QUERY(recording_library_query);
uint64_t recording_library_query(uint64_t item, uint64_t field) {
    if (recorded_queries.count < FIXTURE_QUERY_LOG_CAPACITY) {
        recorded_queries.queries[recorded_queries.count++] = (unsigned)(item << 8 | field);
    }
    return quarn_debug_answer(gLibrary, item, field);
}
