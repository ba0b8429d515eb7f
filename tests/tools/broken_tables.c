/* Valid debug tables; each library built from this file breaks one rule by running its statement
   BREAK (CMakeLists.txt) as it is loaded. Item 1: method 0 (points 0..1, files {0}) and method 1
   (points 2..3, files {1, 0}) over src/One.cs and src/Two.cs; item 2: method 0 over src/Three.cs.
 */
#include "quarn_debug_producer.h"

static const char names1[] = "src/One.cs\0src/Two.cs";
static int32_t offsets1[] = {0, sizeof "src/One.cs"}, files1[] = {0, 1, 0};
static quarn_method_debug_info methods1[] = {{2, 0, 1, 0}, {2, 2, 2, 1}};
static quarn_sequence_point points1[] = {
    {0, 1, 1, 1, 9, 0}, {2, 2, 1, 2, 9, 0}, {0, 3, 1, 3, 9, 0}, {4, 4, 1, 4, 9, 1}};
static quarn_hash128 hashes1[] = {{0x10, 0x1}, {0x11, 0x1}};
static const int32_t md5Index1[] = {0, -1}, zero[] = {0}, none[] = {-1};
static const quarn_md5 md5s1[] = {{{0xD1}}};
static const quarn_method_debug_info methods2[] = {{1, 0, 1, 0}};
static quarn_debug_item items[] = {
    {2, 2, 1, files1, methods1, offsets1, names1, points1, {1, 0xB}, hashes1, md5Index1, md5s1},
    {1, 1, 1, zero, methods2, zero, "src/Three.cs", points1, {2, 0xB}, hashes1, none, NULL}};
static quarn_debug_library library = QUARN_DEBUG_LIBRARY(items);
QUARN_DEFINE_DEBUG_QUERY(library)

__attribute__((constructor)) static void Break(void) {
    BREAK;
}
