#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "quarn_debug_producer.h"

namespace generated {

struct IntRange {
    int32_t min;
    int32_t max;  // inclusive
};

// The shape of a generated compiled library. The defaults follow what the compiler produces
// for ordinary code: items of 50 to 100 methods over 5 to 10 source files, a tenth of the
// methods shared with other items (generic instantiations, inlined helpers) and a third of
// the file names shared (common headers and partial classes).
struct LibraryShape {
    int32_t methodCount = 100000;  // exact total over all items
    uint64_t seed = 1;             // drives every random choice and the unique hashes
    IntRange methodsPerItem{50, 100};
    IntRange filesPerItem{5, 10};
    IntRange filesPerMethod{1, 2};
    int32_t sequencePointsPerMethod = 3;
    // Share of methods whose hash is drawn from a pool common to every generated library, and
    // the size of that pool (0: a twentieth of `methodCount`).
    double sharedMethodShare = 0.1;
    int32_t sharedMethodPool = 0;
    // Share of files named from a pool of common names, and the pool's size.
    double sharedFileShare = 0.3;
    int32_t sharedFilePool = 64;
};

// The debug tables of one compiled library, built in memory in the producer's layout.
class GeneratedLibrary {
  public:
    explicit GeneratedLibrary(const LibraryShape& shape);
    ~GeneratedLibrary();
    GeneratedLibrary(const GeneratedLibrary&) = delete;
    GeneratedLibrary& operator=(const GeneratedLibrary&) = delete;

    const quarn_debug_library* Description() const { return &library; }
    const std::vector<quarn_debug_item>& Items() const { return items; }
    int32_t MethodCount() const { return methodCount; }
    // Every item's method hashes, in item and method order.
    std::vector<quarn_hash128> AllMethodHashes() const;

  private:
    struct ItemTables;
    void AddItem(class ShapeSampler& sampler, int32_t methods);

    std::vector<std::unique_ptr<ItemTables>> tables;
    std::vector<quarn_debug_item> items;
    quarn_debug_library library{};
    int32_t methodCount = 0;
};

}  // namespace generated
