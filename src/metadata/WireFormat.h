#pragma once

// The debug tables a compiled library hands out through its query function, under the names the
// library's code uses. They are the producer header's own types and constants, so the layout a
// compiler back end writes and the layout read here are one definition, pinned byte for byte
// there.

#include <cstdint>

#include "quarn_debug_producer.h"

// Element k of an item's method array describes method k: sequencePointCount and
// firstSequencePoint (index into the item's sequence points), fileCount and firstFile (index
// into the item's method file index list).
using MethodDebugInfo = quarn_method_debug_info;

// One IL offset mapped to a source range. Its `file` indexes the method's own file list and is
// passed to the debugger unchanged.
using SequencePoint = quarn_sequence_point;

using Md5Digest = quarn_md5;

// Field codes of the debug query function of a compiled library.
enum class DebugQueryField : uint64_t {
    MethodCount = QUARN_FIELD_METHOD_COUNT,
    FileCount = QUARN_FIELD_FILE_COUNT,
    AuxCount = QUARN_FIELD_AUX_COUNT,
    MethodFileIndices = QUARN_FIELD_METHOD_FILE_INDICES,
    Methods = QUARN_FIELD_METHODS,
    FileNameOffsets = QUARN_FIELD_FILE_NAME_OFFSETS,
    StringTable = QUARN_FIELD_STRING_TABLE,
    SequencePoints = QUARN_FIELD_SEQUENCE_POINTS,
    Hash = QUARN_FIELD_HASH,
    MethodHashes = QUARN_FIELD_METHOD_HASHES,
    FileMD5Indices = QUARN_FIELD_FILE_MD5_INDICES,
    MD5Hashes = QUARN_FIELD_MD5_HASHES,
};

inline constexpr uint32_t kDebugFormatVersion = QUARN_DEBUG_FORMAT_VERSION;
