#include "DebugTables.h"

#include <algorithm>

#include "MemoryProbe.h"

namespace {

size_t Capped(int32_t count) {
    return static_cast<size_t>(std::clamp(count, 0, kMaxInspectedCount));
}

template <class T>
std::optional<T> ElementOf(const ReadTable<T>& table, size_t index) {
    return index < table.elements.size() ? std::optional<T>(table.elements[index]) : std::nullopt;
}

// Reads through probed memory, within a budget of kMaxInspectedBytes for the whole library.
class TableReader {
  public:
    explicit TableReader(DebugQueryFunction query) : query(query) {}
    DebugTables Read();

  private:
    InspectedItem ReadItem(int32_t number);
    InspectedFile ReadFile(const InspectedItem& item, int32_t index);
    InspectedMethod ReadMethod(const InspectedItem& item, int32_t index);
    template <class T>
    ReadTable<T> ReadArray(uint64_t base, int32_t first, size_t count);
    bool Spend(size_t bytes);

    DebugQueryFunction query;
    size_t budget = kMaxInspectedBytes;
    bool truncated = false;
};

bool TableReader::Spend(size_t bytes) {
    if (bytes > budget) {
        truncated = true;
        budget = 0;
        return false;
    }
    budget -= bytes;
    return true;
}

// `count` elements of T from index `first` of the array at `base`; nothing when `first` is
// negative, the array is null or the budget is spent.
template <class T>
ReadTable<T> TableReader::ReadArray(uint64_t base, int32_t first, size_t count) {
    ReadTable<T> table;
    table.wanted = count;
    if (base == 0 || first < 0 || !Spend(count * sizeof(T))) {
        return table;
    }
    table.address = base + static_cast<uint64_t>(first) * sizeof(T);
    table.elements.resize(count);
    const size_t copied = CopyReadable(table.address, table.elements.data(), count * sizeof(T));
    table.elements.resize(copied / sizeof(T));
    return table;
}

InspectedFile TableReader::ReadFile(const InspectedItem& item, int32_t index) {
    InspectedFile file;
    file.index = index;
    file.nameOffset = ElementOf(item.nameOffsets, static_cast<size_t>(index));
    const uint64_t strings = item.Field(DebugQueryField::StringTable);
    if (file.nameOffset && *file.nameOffset >= 0 && strings != 0) {
        file.name = ReadTerminatedString(strings + static_cast<uint64_t>(*file.nameOffset),
                                         kMaxFileNameLength);
        if (file.name && !Spend(file.name->size() + 1)) {
            file.name.reset();
        }
    }
    file.md5Index = ElementOf(item.md5Indices, static_cast<size_t>(index));
    const uint64_t digests = item.Field(DebugQueryField::MD5Hashes);
    if (file.md5Index && *file.md5Index >= 0 && digests != 0) {
        file.md5 = ReadValue<Md5Digest>(digests +
                                        static_cast<uint64_t>(*file.md5Index) * sizeof(Md5Digest));
    }
    return file;
}

InspectedMethod TableReader::ReadMethod(const InspectedItem& item, int32_t index) {
    InspectedMethod method;
    method.index = index;
    method.info = item.methodInfos.elements[static_cast<size_t>(index)];
    method.hash = ElementOf(item.methodHashes, static_cast<size_t>(index));
    method.fileNumbers =
        ReadArray<int32_t>(item.Field(DebugQueryField::MethodFileIndices), method.info.firstFile,
                           std::max<size_t>(Capped(method.info.fileCount), 1));
    method.points = ReadArray<SequencePoint>(item.Field(DebugQueryField::SequencePoints),
                                             method.info.firstSequencePoint,
                                             Capped(method.info.sequencePointCount));
    return method;
}

InspectedItem TableReader::ReadItem(int32_t number) {
    InspectedItem item;
    item.number = number;
    const auto ask = [&](DebugQueryField field) {
        return query(static_cast<uint64_t>(number), static_cast<uint64_t>(field));
    };
    item.methodCount = static_cast<int32_t>(ask(DebugQueryField::MethodCount));
    item.fileCount = static_cast<int32_t>(ask(DebugQueryField::FileCount));
    item.auxCount = static_cast<int32_t>(ask(DebugQueryField::AuxCount));
    if (item.SkippedByPlugin()) {
        return item;
    }
    for (auto field = static_cast<size_t>(DebugQueryField::MethodFileIndices);
         field <= static_cast<size_t>(DebugQueryField::MD5Hashes); ++field) {
        item.fields[field] = ask(static_cast<DebugQueryField>(field));
    }
    item.hash = ReadValue<Hash128>(item.Field(DebugQueryField::Hash));
    const size_t methods = Capped(item.methodCount);
    const size_t files = Capped(item.fileCount);
    item.methodInfos = ReadArray<MethodDebugInfo>(item.Field(DebugQueryField::Methods), 0, methods);
    item.methodHashes = ReadArray<Hash128>(item.Field(DebugQueryField::MethodHashes), 0, methods);
    item.nameOffsets = ReadArray<int32_t>(item.Field(DebugQueryField::FileNameOffsets), 0, files);
    item.md5Indices = ReadArray<int32_t>(item.Field(DebugQueryField::FileMD5Indices), 0, files);
    // The records made here count against the budget too, so absurd counts end the reading.
    for (size_t f = 0; f < files && Spend(sizeof(InspectedFile)); ++f) {
        item.files.push_back(ReadFile(item, static_cast<int32_t>(f)));
    }
    for (size_t k = 0; k < item.methodInfos.elements.size() && Spend(sizeof(InspectedMethod));
         ++k) {
        item.methods.push_back(ReadMethod(item, static_cast<int32_t>(k)));
    }
    return item;
}

DebugTables TableReader::Read() {
    DebugTables tables;
    tables.version = static_cast<uint32_t>(query(0, 0));
    tables.itemCount = static_cast<int32_t>(query(0, 1));
    const int32_t inspected = std::clamp(tables.itemCount, 0, kMaxInspectedCount);
    for (int32_t number = 1; number <= inspected && Spend(sizeof(InspectedItem)); ++number) {
        tables.items.push_back(ReadItem(number));
    }
    tables.truncated = truncated;
    return tables;
}

}  // namespace

DebugTables ReadDebugTables(DebugQueryFunction query) {
    return TableReader(query).Read();
}
