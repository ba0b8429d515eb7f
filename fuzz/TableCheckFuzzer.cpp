// The inspector's table check on debug tables with inconsistent counts and indices (every
// pointer stays valid). It must never fault, every problem it reports must name an item and
// method that exist, each planted inconsistency must be among its reports, and consistent
// tables must draw none. Any failure aborts.

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FuzzInput.h"
#include "TableCheck.h"
#include "quarn_debug_producer.h"

namespace {

constexpr int32_t kMaxItems = 3;
constexpr int32_t kMaxMethods = 4;
constexpr int32_t kMaxFiles = 4;
constexpr int32_t kSliceStride = 4;  // method j's file numbers and points start at 4 * j
constexpr size_t kSharedTableSize = kMaxMethods * kSliceStride;

// What a planted inconsistency must be reported as: an item (0 for the header) and the field.
using Expected = std::pair<int32_t, std::string>;

// One item's tables, consistent when generated; Plant() spoils one thing in them.
struct ItemTables {
    std::string strings;
    std::vector<int32_t> nameOffsets;
    std::vector<int32_t> digestIndices;
    std::array<quarn_md5, kMaxFiles> digests{};
    std::vector<quarn_hash128> methodHashes;
    std::vector<quarn_method_debug_info> methods;
    std::array<int32_t, kSharedTableSize> methodFiles{};
    std::array<quarn_sequence_point, kSharedTableSize> points{};
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
        item = {methodCount,
                files,
                1,
                methodFiles.data(),
                methods.data(),
                nameOffsets.data(),
                strings.data(),
                points.data(),
                {uint64_t(number), 0xABCD},
                methodHashes.data(),
                digestIndices.data(),
                digests.data()};
    }

    // Spoils one count or index of this item (number `number`); returns what must be reported.
    Expected Plant(FuzzInput& input, int32_t number, const quarn_hash128& firstItemHash) {
        const auto below = [&](int32_t bound) { return int32_t(input.Below(size_t(bound))); };
        const size_t j = input.Below(methods.size());
        quarn_method_debug_info& method = methods[j];
        const std::string methodField = "methods[" + std::to_string(j) + "].";
        const auto at = [&](const char* table, int32_t slot) {
            return Expected{number, table + ("[" + std::to_string(slot) + "]")};
        };
        switch (input.Below(8)) {
            case 0: {
                const int32_t slot = method.firstFile + below(method.fileCount);
                methodFiles[slot] = input.Flag() ? -1 : item.fileCount + below(3);
                return at("methodFileIndices", slot);
            }
            case 1: {
                method.sequencePointCount = std::max(method.sequencePointCount, 1);
                const int32_t slot = method.firstSequencePoint + below(method.sequencePointCount);
                points[slot].file = input.Flag() ? -1 : method.fileCount + below(3);
                return {number, at("sequencePoints", slot).second + ".file"};
            }
            case 2: {
                const int32_t f = below(int32_t(nameOffsets.size()));
                nameOffsets[f] = -1 - below(100);
                return at("fileNameOffsets", f);
            }
            case 3:
                if (methods.size() < 2) {
                    item.methodCount = 0;
                    return {number, "methodCount"};
                }
                methodHashes.back() = methodHashes.front();
                return at("methodHashes", int32_t(methods.size()) - 1);
            case 4:
                method.sequencePointCount = -1 - below(5);
                return {number, methodField + "sequencePointCount"};
            case 5:
                method.firstFile = -1 - below(5);
                return {number, methodField + "firstFile"};
            case 6:
                item.fileCount = input.Flag() ? 0 : -1 - below(5);
                return {number, "fileCount"};
            default:
                if (number == 1) {
                    item.auxCount = 0;
                    return {number, "auxCount"};
                }
                item.hash = firstItemHash;
                return {number, "hash"};
        }
    }
};

const quarn_debug_library* gLibrary = nullptr;

uint64_t Query(uint64_t item, uint64_t field) {
    return quarn_debug_answer(gLibrary, item, field);
}

void Check(bool holds, const std::string& what) {
    if (!holds) {
        std::fprintf(stderr, "table check: %s\n", what.c_str());
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    std::vector<ItemTables> items(1 + input.Below(kMaxItems));
    std::vector<quarn_debug_item> descriptions;
    for (size_t i = 0; i < items.size(); ++i) {
        items[i].Generate(input, static_cast<int32_t>(i + 1));
    }

    std::set<Expected> planted;
    for (size_t i = 0; i < items.size(); ++i) {
        if (input.Flag()) {
            planted.insert(items[i].Plant(input, static_cast<int32_t>(i + 1), items[0].item.hash));
        }
        descriptions.push_back(items[i].item);
    }
    // A skipped item has no hash, so a copy of the first item's hash only repeats a kept one.
    const quarn_debug_item& first = descriptions.front();
    if (first.methodCount == 0 || first.fileCount == 0 || first.auxCount == 0) {
        std::erase_if(planted, [](const Expected& expected) { return expected.second == "hash"; });
    }
    quarn_debug_library library = {QUARN_DEBUG_FORMAT_VERSION, items.size(), descriptions.data()};
    const size_t header = input.Below(8);
    if (header == 6) {
        library.version = input.Flag() ? 0x10000 : 0x20001;
        planted.insert({0, "version"});
    } else if (header == 7) {
        library.itemCount = input.Flag() ? 0 : 0xFFFFFFFFull;  // no items, or -1
        planted = {{0, "itemCount"}};                          // nothing else is read
    }

    gLibrary = &library;
    const std::vector<TableProblem> problems = CheckDebugTables(&Query);
    gLibrary = nullptr;

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
    for (const Expected& expected : planted) {
        Check(reported.contains(expected),
              "not reported: item " + std::to_string(expected.first) + " " + expected.second);
    }
    Check(!planted.empty() || problems.empty(), "consistent tables drew a report");
    return 0;
}
