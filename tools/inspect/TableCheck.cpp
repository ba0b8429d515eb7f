#include "TableCheck.h"

#include <cinttypes>
#include <cstdio>
#include <map>

namespace {

std::string Indexed(const char* table, size_t index) {
    return std::string(table) + "[" + std::to_string(index) + "]";
}

std::string MethodField(int32_t method, const char* field) {
    return Indexed("methods", static_cast<size_t>(method)) + "." + field;
}

std::string HexText(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%" PRIX32, value);
    return text;
}

std::string Number(int64_t value) {
    return std::to_string(value);
}

// Collects the problems of one library.
class Checker {
  public:
    std::vector<TableProblem> Run(const DebugTables& tables);

  private:
    void Add(int32_t item, int32_t method, std::string field, std::string message) {
        problems.push_back({item, method, std::move(field), std::move(message)});
    }
    void CheckHeader(const DebugTables& tables);
    void CheckItemHashes(const DebugTables& tables);
    bool CheckCounts(const InspectedItem& item);
    void CheckTables(const InspectedItem& item);
    template <class T>
    void CheckTable(const InspectedItem& item, const char* field, const ReadTable<T>& table,
                    DebugQueryField code);
    void CheckFile(const InspectedItem& item, const InspectedFile& file);
    void CheckMethodHashes(const InspectedItem& item);
    void CheckMethod(const InspectedItem& item, const InspectedMethod& method);
    template <class T>
    void CheckMethodSlice(const InspectedItem& item, const InspectedMethod& method,
                          const char* field, DebugQueryField code, int32_t first,
                          const ReadTable<T>& slice, const char* what);
    void CheckMethodFiles(const InspectedItem& item, const InspectedMethod& method);
    void CheckSequencePoints(const InspectedItem& item, const InspectedMethod& method);

    std::vector<TableProblem> problems;
};

std::vector<TableProblem> Checker::Run(const DebugTables& tables) {
    CheckHeader(tables);
    for (const InspectedItem& item : tables.items) {
        if (!CheckCounts(item)) {
            continue;
        }
        CheckTables(item);
        for (const InspectedFile& file : item.files) {
            CheckFile(item, file);
        }
        CheckMethodHashes(item);
        for (const InspectedMethod& method : item.methods) {
            CheckMethod(item, method);
        }
    }
    CheckItemHashes(tables);
    if (tables.truncated) {
        Add(0, -1, "itemCount",
            "the counts ask for more than " + Number(kMaxInspectedBytes >> 20) +
                " MiB of tables: inspection stopped there");
    }
    return std::move(problems);
}

void Checker::CheckHeader(const DebugTables& tables) {
    if (tables.version != kDebugFormatVersion) {
        Add(0, -1, "version",
            "format version " + HexText(tables.version) + ", expected " +
                HexText(kDebugFormatVersion) + ": the plug-in ignores the library");
    }
    if (tables.itemCount < 1) {
        Add(0, -1, "itemCount",
            Number(tables.itemCount) + " items: the plug-in ignores the library");
    } else if (tables.itemCount > kMaxInspectedCount) {
        Add(0, -1, "itemCount",
            Number(tables.itemCount) + " items: only the first " + Number(kMaxInspectedCount) +
                " are inspected");
    }
}

// Returns whether the plug-in keeps the item (and so whether its tables matter).
bool Checker::CheckCounts(const InspectedItem& item) {
    const struct {
        const char* field;
        int32_t value;
        const char* what;
        bool isCount;  // field 2 only has to be non-zero
    } counts[] = {{"methodCount", item.methodCount, "methods", true},
                  {"fileCount", item.fileCount, "files", true},
                  {"auxCount", item.auxCount, "field 2", false}};
    for (const auto& count : counts) {
        if (count.value == 0) {
            Add(item.number, -1, count.field,
                std::string("0 ") + count.what + ": the plug-in skips this item");
        } else if (count.isCount && count.value < 0) {
            Add(item.number, -1, count.field,
                "negative (" + Number(count.value) + "): the plug-in keeps the item but sees no " +
                    count.what + " of it");
        } else if (count.isCount && count.value > kMaxInspectedCount) {
            Add(item.number, -1, count.field,
                Number(count.value) + " " + count.what + ": only the first " +
                    Number(kMaxInspectedCount) + " are inspected");
        }
    }
    return !item.SkippedByPlugin();
}

template <class T>
void Checker::CheckTable(const InspectedItem& item, const char* field, const ReadTable<T>& table,
                         DebugQueryField code) {
    if (table.wanted == 0 || table.Complete()) {
        return;
    }
    if (item.Field(code) == 0) {
        Add(item.number, -1, field,
            "null, but " + Number(static_cast<int64_t>(table.wanted)) + " elements are needed");
    } else {
        Add(item.number, -1, field,
            "only " + Number(static_cast<int64_t>(table.elements.size())) + " of " +
                Number(static_cast<int64_t>(table.wanted)) + " elements are readable memory");
    }
}

void Checker::CheckTables(const InspectedItem& item) {
    if (!item.hash) {
        Add(item.number, -1, "hash",
            item.Field(DebugQueryField::Hash) == 0
                ? "null: the plug-in copies the item's 16-byte hash from it"
                : "not readable memory: the plug-in copies the item's 16-byte hash from it");
    }
    CheckTable(item, "methods", item.methodInfos, DebugQueryField::Methods);
    CheckTable(item, "methodHashes", item.methodHashes, DebugQueryField::MethodHashes);
    CheckTable(item, "fileNameOffsets", item.nameOffsets, DebugQueryField::FileNameOffsets);
    CheckTable(item, "fileMD5Indices", item.md5Indices, DebugQueryField::FileMD5Indices);
    if (item.fileCount > 0 && item.Field(DebugQueryField::StringTable) == 0) {
        Add(item.number, -1, "stringTable", "null: every file name reads as empty");
    }
}

void Checker::CheckFile(const InspectedItem& item, const InspectedFile& file) {
    const auto index = static_cast<size_t>(file.index);
    if (file.nameOffset && *file.nameOffset < 0) {
        Add(item.number, -1, Indexed("fileNameOffsets", index),
            "negative offset " + Number(*file.nameOffset));
    } else if (file.nameOffset && item.Field(DebugQueryField::StringTable) != 0 && !file.name) {
        Add(item.number, -1, Indexed("fileNameOffsets", index),
            "the name at offset " + Number(*file.nameOffset) +
                " is not readable memory or not NUL-terminated within " +
                Number(kMaxFileNameLength) + " bytes");
    }
    if (!file.md5Index || *file.md5Index < 0 || file.md5) {
        return;
    }
    Add(item.number, -1, Indexed("fileMD5Indices", index),
        item.Field(DebugQueryField::MD5Hashes) == 0
            ? "digest " + Number(*file.md5Index) + ", but md5Hashes is null"
            : "digest " + Number(*file.md5Index) + " is not readable memory");
}

void Checker::CheckMethodHashes(const InspectedItem& item) {
    std::map<std::pair<uint64_t, uint64_t>, size_t> firstWithHash;
    const auto& hashes = item.methodHashes.elements;
    for (size_t k = 0; k < hashes.size(); ++k) {
        const auto [first, inserted] =
            firstWithHash.emplace(std::make_pair(hashes[k].word0, hashes[k].word1), k);
        if (!inserted) {
            Add(item.number, static_cast<int32_t>(k), Indexed("methodHashes", k),
                "repeats the hash of method " + Number(static_cast<int64_t>(first->second)) +
                    ": the debugger only sees method " +
                    Number(static_cast<int64_t>(first->second)));
        }
    }
}

void Checker::CheckMethod(const InspectedItem& item, const InspectedMethod& method) {
    const MethodDebugInfo& info = method.info;
    const struct {
        const char* field;
        int32_t value;
    } indices[] = {
        {"sequencePointCount", info.sequencePointCount},
        {"fileCount", info.fileCount},
        {"firstFile", info.firstFile},
        {"firstSequencePoint", info.sequencePointCount > 0 ? info.firstSequencePoint : 0}};
    for (const auto& index : indices) {
        if (index.value < 0) {
            Add(item.number, method.index, MethodField(method.index, index.field),
                "negative (" + Number(index.value) + ")");
        }
    }
    CheckMethodFiles(item, method);
    CheckSequencePoints(item, method);
}

// The method's part of an item-wide table (`what`, from index `first`) that is null or runs
// into unreadable memory.
template <class T>
void Checker::CheckMethodSlice(const InspectedItem& item, const InspectedMethod& method,
                               const char* field, DebugQueryField code, int32_t first,
                               const ReadTable<T>& slice, const char* what) {
    if (first < 0 || slice.Complete()) {
        return;
    }
    const int64_t last = first + static_cast<int64_t>(slice.wanted) - 1;
    Add(item.number, method.index, field,
        item.Field(code) == 0 ? std::string("null, but the method's ") + what + " are listed there"
                              : std::string(what) + " " + Number(first) + ".." + Number(last) +
                                    " are not all readable memory");
}

void Checker::CheckMethodFiles(const InspectedItem& item, const InspectedMethod& method) {
    const ReadTable<int32_t>& numbers = method.fileNumbers;
    CheckMethodSlice(item, method, "methodFileIndices", DebugQueryField::MethodFileIndices,
                     method.info.firstFile, numbers, "file numbers");
    for (size_t k = 0; k < numbers.elements.size(); ++k) {
        const int32_t file = numbers.elements[k];
        if (file < 0 || file >= item.fileCount) {
            Add(item.number, method.index,
                Indexed("methodFileIndices", static_cast<size_t>(method.info.firstFile) + k),
                "file number " + Number(file) + " is outside the item's " + Number(item.fileCount) +
                    " files");
        }
    }
}

void Checker::CheckSequencePoints(const InspectedItem& item, const InspectedMethod& method) {
    const ReadTable<SequencePoint>& points = method.points;
    CheckMethodSlice(item, method, "sequencePoints", DebugQueryField::SequencePoints,
                     method.info.firstSequencePoint, points, "sequence points");
    for (size_t j = 0; j < points.elements.size(); ++j) {
        const int32_t file = points.elements[j].file;
        if (file < 0 || file >= method.info.fileCount) {
            Add(item.number, method.index,
                Indexed("sequencePoints", static_cast<size_t>(method.info.firstSequencePoint) + j) +
                    ".file",
                "file " + Number(file) + " is outside the method's " +
                    Number(method.info.fileCount) + " files");
        }
    }
}

// A later item with the same hash replaces the earlier one when the plug-in loads the library.
void Checker::CheckItemHashes(const DebugTables& tables) {
    std::map<std::pair<uint64_t, uint64_t>, int32_t> itemWithHash;
    for (const InspectedItem& item : tables.items) {
        if (!item.hash) {
            continue;
        }
        const auto [earlier, inserted] =
            itemWithHash.emplace(std::make_pair(item.hash->word0, item.hash->word1), item.number);
        if (!inserted) {
            Add(item.number, -1, "hash",
                "the same as item " + Number(earlier->second) +
                    "'s: the plug-in keeps only the later of the two");
            earlier->second = item.number;
        }
    }
}

}  // namespace

std::vector<TableProblem> CheckDebugTables(const DebugTables& tables) {
    return Checker().Run(tables);
}

std::vector<TableProblem> CheckDebugTables(uint64_t (*query)(uint64_t item, uint64_t field)) {
    return CheckDebugTables(ReadDebugTables(query));
}
