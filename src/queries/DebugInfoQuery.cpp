// fetchDebugInfo: a method's files, digests and sequence points, each field gated by the client's
// protocol version.
#include "plugin/MonoDebuggerHandling.h"
#include "queries/ProtocolVersion.h"

using logfmt::Int;
using logfmt::Ptr;

namespace {
// Written in the place of the method's code size; the same for every method.
constexpr int32_t kFixedCodeSize = 100;
constexpr size_t kDigestSize = 16;
}  // namespace

void MonoDebuggerHandling::QuarnFetchDebugInfo(void* buffer, void* method, int versionKnown,
                                               int majorVersion, int minorVersion) {
    Log(1, "FetchDebugInfo : ", Ptr(buffer), " ", Ptr(method));
    MutexLock lock(mutex);
    MethodCacheEntry* entry;
    QuarnDebugMetadata* item;
    if (!MethodPtrToMethodCacheEntry(method, entry, item)) {
        Log(1, "    Method not valid");
        callbacks->writeInt(buffer, 0);
        callbacks->writeString(buffer, "");
        callbacks->writeInt(buffer, 0);
        return;
    }
    const ProtocolVersion version{versionKnown, majorVersion, minorVersion};
    const MethodDebugInfo& info = item->methods[entry->methodIndex];
    Log(2, "METHOD DEBUG INFO TOKEN : ", Int{static_cast<int32_t>(entry->methodToken)});
    callbacks->writeInt(buffer, kFixedCodeSize);
    WriteDebugInfoFiles(buffer, *item, info, version);
    WriteSequencePoints(buffer, *item, info, version);
}

// The method's files (from 2.13; before, only the one at `firstFile`), each followed by its
// digest from 2.14 (16 zero bytes for a file without one).
void MonoDebuggerHandling::WriteDebugInfoFiles(void* buffer, const QuarnDebugMetadata& item,
                                               const MethodDebugInfo& info,
                                               const ProtocolVersion& version) {
    int32_t files = 1;
    if (version.AtLeast2(13)) {
        callbacks->writeInt(buffer, info.fileCount);
        files = info.fileCount;
    }
    for (int32_t k = 0; k < files; ++k) {
        const int32_t file = item.methodFileIndices[info.firstFile + k];
        const char* name = item.FileName(file);
        callbacks->writeString(buffer, name);
        Log(2, "  FILE: ", name);
        if (!version.AtLeast2(14)) {
            continue;
        }
        const int32_t digest = item.fileMD5Indices[file];
        static constexpr unsigned char kNoDigest[kDigestSize] = {};
        const unsigned char* bytes = kNoDigest;
        if (digest >= 0) {
            bytes = item.md5Hashes[digest].bytes;
            LogMD5Hash(2, "    HASH: ", bytes);
        } else {
            Log(2, "    HASH: Null");
        }
        for (size_t b = 0; b < kDigestSize; ++b) {
            callbacks->writeByte(buffer, bytes[b]);
        }
    }
}

// Each point's IL offset and start line; from 2.13 its file, from 2.19 its start column, from
// 2.32 its end line and column.
void MonoDebuggerHandling::WriteSequencePoints(void* buffer, const QuarnDebugMetadata& item,
                                               const MethodDebugInfo& info,
                                               const ProtocolVersion& version) {
    Log(3, "  Sequence Points: ");
    callbacks->writeInt(buffer, info.sequencePointCount);
    for (int32_t i = 0; i < info.sequencePointCount; ++i) {
        const SequencePoint& point = item.sequencePoints[info.firstSequencePoint + i];
        Log(3, "    IL:", Int{point.ilOffset}, " StartLine:", Int{point.startLine});
        callbacks->writeInt(buffer, point.ilOffset);
        callbacks->writeInt(buffer, point.startLine);
        if (version.AtLeast2(13)) {
            callbacks->writeInt(buffer, point.file);
            Log(3, "    File:", Int{point.file});
        }
        if (version.AtLeast2(19)) {
            callbacks->writeInt(buffer, point.startColumn);
            Log(3, "    StartColumn:", Int{point.startColumn});
        }
        if (version.AtLeast2(32)) {
            callbacks->writeInt(buffer, point.endLine);
            callbacks->writeInt(buffer, point.endColumn);
            Log(3, "    EndLine:", Int{point.endLine}, "  EndColumn:", Int{point.endColumn});
        }
    }
}

void MonoDebuggerHandling::LogMD5Hash(int level, const char* prefix, const unsigned char* digest) {
    if (!Logging()) {
        return;
    }
    Log(level, prefix, logfmt::UpperHex(digest, kDigestSize));
}
