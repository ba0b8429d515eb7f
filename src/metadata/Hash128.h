#pragma once
// The 128-bit identifier of items, methods and entry points, and its hash.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "mono_debugger_handling.h"
#include "quarn_debug_producer.h"

// 128-bit identifier of compiled items, methods and entry points. Its 16 bytes (word0 first,
// little-endian) are read in place from compiled libraries, copied out of the test hooks and
// passed by value to register_entry as two 64-bit arguments.
struct Hash128 {
    uint64_t word0;  // bytes 0 to 7
    uint64_t word1;  // bytes 8 to 15

    friend bool operator==(const Hash128& a, const Hash128& b) {
        return a.word0 == b.word0 && a.word1 == b.word1;
    }

    // 32 upper-case hexadecimal digits, one pair per byte in memory order (byte 0 of word0
    // first), so word0 = 1 prints as "01" followed by thirty zeros.
    std::string ToString() const;
};

// The same 16 bytes are quarn_hash128 in compiled libraries and mdh_hash128 at the exports and
// the test hooks, which are read or copied as a Hash128: the three layouts must agree.
static_assert(sizeof(Hash128) == sizeof(quarn_hash128) && sizeof(Hash128) == sizeof(mdh_hash128));
static_assert(offsetof(Hash128, word0) == offsetof(quarn_hash128, word0) &&
              offsetof(Hash128, word0) == offsetof(mdh_hash128, word0));
static_assert(offsetof(Hash128, word1) == offsetof(quarn_hash128, word1) &&
              offsetof(Hash128, word1) == offsetof(mdh_hash128, word1));

// The one hash of every Hash128-keyed container: word0 * 397 XOR word1, wrapping. Kept to a
// single multiply and XOR since it runs on every lookup made under the handling object's lock.
template <>
struct std::hash<Hash128> {
    size_t operator()(const Hash128& h) const noexcept { return (h.word0 * 397u) ^ h.word1; }
};
