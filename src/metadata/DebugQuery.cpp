// The debug query reader: header check and one record per item.
#include "metadata/DebugQuery.h"

#include <dlfcn.h>

#include <cstring>

#include "plugin/Constants.h"

const char* QuarnDebugMetadata::FileName(int32_t file) const {
    return stringTable == nullptr ? "" : stringTable + fileNameOffsets[file];
}

bool DebugQueryReader::Open(void* library) {
    libraryHandle = library;
    query = reinterpret_cast<DebugQueryFunction>(dlsym(library, Constants::DebugQueryName.c_str()));
    if (query == nullptr) {
        return false;
    }
    const auto version = static_cast<uint32_t>(query(0, 0));
    itemCount = static_cast<int32_t>(query(0, 1));
    return version == kDebugFormatVersion && itemCount >= 1;
}

uint64_t DebugQueryReader::Query(int32_t item, DebugQueryField field) const {
    return query(static_cast<uint64_t>(item), static_cast<uint64_t>(field));
}

namespace {

// A skipped item's record is abandoned, never freed: a deliberate, bounded leak (one small record
// per skipped item) kept from the reader's defined behaviour. Allocated here rather than with the
// kept records so leak reports can tell the two apart; returned so the allocation cannot be
// optimised away.
[[gnu::noinline]] QuarnDebugMetadata* AbandonSkippedRecord(const QuarnDebugMetadata& counts) {
    return new QuarnDebugMetadata(counts);
}

}  // namespace

QuarnDebugMetadata* DebugQueryReader::ReadItem(int32_t item) const {
    QuarnDebugMetadata counts{};
    counts.libraryHandle = libraryHandle;
    counts.methodCount = static_cast<int32_t>(Query(item, DebugQueryField::MethodCount));
    counts.fileCount = static_cast<int32_t>(Query(item, DebugQueryField::FileCount));
    counts.auxCount = static_cast<int32_t>(Query(item, DebugQueryField::AuxCount));
    if (counts.fileCount == 0 || counts.auxCount == 0 || counts.methodCount == 0) {
        AbandonSkippedRecord(counts);
        return nullptr;
    }
    auto* record = new QuarnDebugMetadata(counts);
    auto pointer = [&](DebugQueryField field) {
        return reinterpret_cast<const void*>(static_cast<uintptr_t>(Query(item, field)));
    };
    record->methodFileIndices =
        static_cast<const int32_t*>(pointer(DebugQueryField::MethodFileIndices));
    record->methods = static_cast<const MethodDebugInfo*>(pointer(DebugQueryField::Methods));
    record->fileNameOffsets =
        static_cast<const int32_t*>(pointer(DebugQueryField::FileNameOffsets));
    record->stringTable = static_cast<const char*>(pointer(DebugQueryField::StringTable));
    record->sequencePoints =
        static_cast<const SequencePoint*>(pointer(DebugQueryField::SequencePoints));
    std::memcpy(&record->hash, pointer(DebugQueryField::Hash), sizeof(Hash128));
    record->methodHashes = static_cast<const Hash128*>(pointer(DebugQueryField::MethodHashes));
    record->fileMD5Indices = static_cast<const int32_t*>(pointer(DebugQueryField::FileMD5Indices));
    record->md5Hashes = static_cast<const Md5Digest*>(pointer(DebugQueryField::MD5Hashes));
    return record;
}
