// The inspector's table check on debug tables with inconsistent counts and indices (every
// pointer stays valid). It must never fault, every problem it reports must name an item and
// method that exist, each planted inconsistency must be among its reports, and consistent
// tables must draw none. Any failure aborts.

#include <array>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "TableCheck.h"
#include "quarn_debug_producer.h"

namespace {

constexpr int32_t kMaxItems = 3, kMaxMethods = 4, kMaxFiles = 4;
constexpr int32_t kSliceStride = 4;  // method j's file numbers and points start at 4 * j

// What a planted inconsistency must be reported as: an item (0 for the header) and the field.
using Expected = std::pair<int32_t, std::string>;

// One item's tables, consistent when generated; Plant() spoils one thing in them.
struct ItemTables {
    std::string strings;
    std::vector<int32_t> nameOffsets, digestIndices;
    std::array<quarn_md5, kMaxFiles> digests{};
    std::vector<quarn_hash128> methodHashes;
    std::vector<quarn_method_debug_info> methods;
    std::array<int32_t, kMaxMethods * kSliceStride> methodFiles{};
    std::array<quarn_sequence_point, kMaxMethods * kSliceStride> points{};
    quarn_debug_item item{};

    void Generate(FuzzInput& input, int32_t number) {
        const auto below = [&](int32_t bound) { return int32_t(input.Below(size_t(bound))); };
        const int32_t files = 1 + below(kMaxFiles);
        for (int32_t f = 0; f < files; ++f) {
            nameOffsets.push_back(int32_t(strings.size()));
            strings.append("src/F" + std::to_string(f) + ".cs").push_back('\0');
            digestIndices.push_back(input.Flag() ? -1 : below(kMaxFiles));
        }
        const int32_t methodCount = 1 + below(kMaxMethods);
        for (int32_t j = 0; j < methodCount; ++j) {
            methodHashes.push_back({uint64_t(number), uint64_t(j)});
            quarn_method_debug_info& method = methods.emplace_back();
            method.fileCount = 1 + below(files);
            method.firstFile = method.firstSequencePoint = j * kSliceStride;
            method.sequencePointCount = below(kSliceStride + 1);
            for (int32_t s = 0; s < method.fileCount; ++s)
                methodFiles[method.firstFile + s] = below(files);
            for (int32_t s = 0; s < method.sequencePointCount; ++s)
                points[method.firstSequencePoint + s].file = below(method.fileCount);
        }
        item.methodCount = methodCount, item.fileCount = files, item.auxCount = 1;
        item.methodFileIndices = methodFiles.data(), item.methods = methods.data();
        item.fileNameOffsets = nameOffsets.data(), item.stringTable = strings.data();
        item.sequencePoints = points.data(), item.hash = {uint64_t(number), 0xABCD};
        item.methodHashes = methodHashes.data(), item.fileMD5Indices = digestIndices.data();
        item.md5Hashes = digests.data();
    }

    // Spoils one count or index of this item (number `number`); returns what must be reported.
    Expected Plant(FuzzInput& input, int32_t number) {
        const auto below = [&](int32_t bound) { return int32_t(input.Below(size_t(bound))); };
        const size_t j = input.Below(methods.size());
        quarn_method_debug_info& method = methods[j];
        const auto at = [&](const char* table, size_t slot, const char* field = "") {
            return Expected{number, table + ("[" + std::to_string(slot) + "]") + field};
        };
        switch (input.Below(5)) {
            case 0: {
                const int32_t slot = method.firstFile + below(method.fileCount);
                methodFiles[slot] = input.Flag() ? -1 : item.fileCount + below(3);
                return at("methodFileIndices", slot);
            }
            case 1: {
                method.sequencePointCount = std::max(method.sequencePointCount, 1);
                const int32_t slot = method.firstSequencePoint + below(method.sequencePointCount);
                points[slot].file = input.Flag() ? -1 : method.fileCount + below(3);
                return at("sequencePoints", slot, ".file");
            }
            case 2: {
                const int32_t f = below(int32_t(nameOffsets.size()));
                return nameOffsets[f] = -1 - below(100), at("fileNameOffsets", f);
            }
            case 3:
                if (input.Flag())
                    return method.firstFile = -1 - below(5), at("methods", j, ".firstFile");
                method.sequencePointCount = -1 - below(5);
                return at("methods", j, ".sequencePointCount");
            default:
                item.fileCount = input.Flag() ? 0 : -1 - below(5);
                return {number, "fileCount"};
        }
    }
};

const quarn_debug_library* gLibrary = nullptr;

void Check(bool holds, const std::string& what) {
    if (!holds)
        std::fprintf(stderr, "table check: %s\n", what.c_str()), std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    std::vector<ItemTables> items(1 + input.Below(kMaxItems));
    std::vector<quarn_debug_item> descriptions;
    std::set<Expected> planted;
    for (int32_t number = 1; ItemTables & tables : items) {
        tables.Generate(input, number);
        if (input.Flag())
            planted.insert(tables.Plant(input, number));
        descriptions.push_back(tables.item), ++number;
    }
    quarn_debug_library library = {QUARN_DEBUG_FORMAT_VERSION, items.size(), descriptions.data()};
    if (const size_t header = input.Below(8); header == 6) {
        library.version = input.Flag() ? 0x10000 : 0x20001, planted.insert({0, "version"});
    } else if (header == 7) {
        library.itemCount = input.Flag() ? 0 : 0xFFFFFFFFull;  // no items, or -1
        planted = {{0, "itemCount"}};                          // nothing else is read
    }

    gLibrary = &library;
    const std::vector<TableProblem> problems = CheckDebugTables(
        [](uint64_t item, uint64_t field) { return quarn_debug_answer(gLibrary, item, field); });

    std::set<Expected> reported;
    const int32_t inspectedItems =
        library.itemCount == items.size() ? static_cast<int32_t>(items.size()) : 0;
    for (const TableProblem& problem : problems) {
        Check(problem.item >= 0 && problem.item <= inspectedItems && !problem.field.empty() &&
                  !problem.message.empty(),
              "a problem names no existing item: " + problem.field);
        Check(problem.method < 0 || (problem.item != 0 &&
                                     problem.method < descriptions[problem.item - 1].methodCount),
              "a problem names no existing method: " + problem.field);
        reported.insert({problem.item, problem.field});
    }
    for (const auto& [item, field] : planted)
        Check(reported.contains({item, field}),
              "not reported: item " + std::to_string(item) + " " + field);
    Check(!planted.empty() || problems.empty(), "consistent tables drew a report");
    return 0;
}
