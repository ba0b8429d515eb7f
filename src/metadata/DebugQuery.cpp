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

QuarnDebugMetadata* DebugQueryReader::ReadItem(int32_t item) const {
    auto* record = new QuarnDebugMetadata{};
    record->libraryHandle = libraryHandle;
    record->methodCount = static_cast<int32_t>(Query(item, DebugQueryField::MethodCount));
    record->fileCount = static_cast<int32_t>(Query(item, DebugQueryField::FileCount));
    record->auxCount = static_cast<int32_t>(Query(item, DebugQueryField::AuxCount));
    if (record->fileCount == 0 || record->auxCount == 0 || record->methodCount == 0) {
        return nullptr;  // the record is abandoned, as the loader always did
    }
    auto pointer = [&](DebugQueryField field) {
        return reinterpret_cast<const void*>(static_cast<uintptr_t>(Query(item, field)));
    };
    record->methodFileIndices =
        static_cast<const int32_t*>(pointer(DebugQueryField::MethodFileIndices));
    record->methods = static_cast<const MethodDebugInfo*>(pointer(DebugQueryField::Methods));
    record->fileNameOffsets = static_cast<const int32_t*>(pointer(DebugQueryField::FileNameOffsets));
    record->stringTable = static_cast<const char*>(pointer(DebugQueryField::StringTable));
    record->sequencePoints =
        static_cast<const SequencePoint*>(pointer(DebugQueryField::SequencePoints));
    std::memcpy(&record->hash, pointer(DebugQueryField::Hash), sizeof(Hash128));
    record->methodHashes = static_cast<const Hash128*>(pointer(DebugQueryField::MethodHashes));
    record->fileMD5Indices = static_cast<const int32_t*>(pointer(DebugQueryField::FileMD5Indices));
    record->md5Hashes = static_cast<const Md5Digest*>(pointer(DebugQueryField::MD5Hashes));
    return record;
}
