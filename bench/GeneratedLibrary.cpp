#include "GeneratedLibrary.h"

#include <algorithm>
#include <random>

namespace generated {

namespace {

// splitmix64: spreads a counter over all 64 bits, as real (digest-derived) hashes are.
uint64_t Mix(uint64_t value) {
    value += 0x9E3779B97F4A7C15ull;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9ull;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBull;
    return value ^ (value >> 31);
}

quarn_hash128 HashOf(uint64_t seed, uint64_t index) {
    const uint64_t word0 = Mix(seed ^ Mix(index));
    return quarn_hash128{word0, Mix(word0 ^ seed)};
}

// Salts that keep the kinds of generated hashes apart.
constexpr uint64_t kUniqueMethodSalt = 0x1111;
constexpr uint64_t kSharedMethodSalt = 0x2222;
constexpr uint64_t kItemSalt = 0x3333;
constexpr uint64_t kPoolSeed = 0x5eed;
// One file in this many has no digest.
constexpr int32_t kFilesPerMissingDigest = 8;

}  // namespace

// The random choices of one generation.
class ShapeSampler {
  public:
    explicit ShapeSampler(const LibraryShape& shape)
        : shape(shape),
          random(shape.seed),
          sharedMethodPool(shape.sharedMethodPool > 0
                               ? shape.sharedMethodPool
                               : std::max<int32_t>(1, shape.methodCount / 20)) {}

    int32_t Pick(IntRange range) {
        return std::uniform_int_distribution<int32_t>(range.min, range.max)(random);
    }
    int32_t Below(int32_t bound) { return Pick({0, bound - 1}); }
    bool Chance(double share) { return std::bernoulli_distribution(share)(random); }

    quarn_hash128 MethodHash() {
        if (Chance(shape.sharedMethodShare)) {
            return HashOf(kPoolSeed ^ kSharedMethodSalt, Below(sharedMethodPool));
        }
        return HashOf(shape.seed ^ kUniqueMethodSalt, uniqueMethods++);
    }
    // Fixed by the seed and the position: the same shape generated again replaces every item.
    quarn_hash128 ItemHash(int32_t position) { return HashOf(shape.seed ^ kItemSalt, position); }
    std::string FileName(int32_t item, int32_t file) {
        if (Chance(shape.sharedFileShare)) {
            return "Assets/Scripts/Common/Shared" + std::to_string(Below(shape.sharedFilePool)) +
                   ".cs";
        }
        return "Assets/Scripts/Module" + std::to_string(shape.seed % 1000) + "/Item" +
               std::to_string(item) + "/Source" + std::to_string(file) + ".cs";
    }
    quarn_md5 Digest() {
        quarn_md5 digest;
        for (uint8_t& byte : digest.bytes) {
            byte = static_cast<uint8_t>(random());
        }
        return digest;
    }

    const LibraryShape& shape;

  private:
    std::mt19937_64 random;
    int32_t sharedMethodPool;
    uint64_t uniqueMethods = 0;
};

struct GeneratedLibrary::ItemTables {
    std::vector<quarn_hash128> methodHashes;
    std::vector<quarn_method_debug_info> methods;
    std::vector<int32_t> methodFileIndices;
    std::vector<int32_t> fileNameOffsets;
    std::string stringTable;
    std::vector<quarn_sequence_point> sequencePoints;
    std::vector<int32_t> fileMD5Indices;
    std::vector<quarn_md5> md5Hashes;

    void AddFiles(ShapeSampler& sampler, int32_t item, int32_t count) {
        for (int32_t f = 0; f < count; ++f) {
            fileNameOffsets.push_back(static_cast<int32_t>(stringTable.size()));
            stringTable += sampler.FileName(item, f);
            stringTable.push_back('\0');
            const bool hasDigest = sampler.Below(kFilesPerMissingDigest) != 0;
            fileMD5Indices.push_back(hasDigest ? static_cast<int32_t>(md5Hashes.size()) : -1);
            if (hasDigest) {
                md5Hashes.push_back(sampler.Digest());
            }
        }
    }

    void AddMethod(ShapeSampler& sampler, int32_t files) {
        const LibraryShape& shape = sampler.shape;
        const int32_t methodFiles = std::min(files, sampler.Pick(shape.filesPerMethod));
        methods.push_back({shape.sequencePointsPerMethod,
                           static_cast<int32_t>(sequencePoints.size()), methodFiles,
                           static_cast<int32_t>(methodFileIndices.size())});
        for (int32_t f = 0; f < methodFiles; ++f) {
            methodFileIndices.push_back(sampler.Below(files));
        }
        const int32_t firstLine = sampler.Pick({1, 2000});
        for (int32_t p = 0; p < shape.sequencePointsPerMethod; ++p) {
            const int32_t line = firstLine + 2 * p;
            sequencePoints.push_back({4 * p, line, 9, line, 30, 0});
        }
        methodHashes.push_back(sampler.MethodHash());
    }
};

GeneratedLibrary::GeneratedLibrary(const LibraryShape& shape) {
    ShapeSampler sampler(shape);
    for (int32_t remaining = shape.methodCount; remaining > 0;) {
        const int32_t methods = std::min(remaining, sampler.Pick(shape.methodsPerItem));
        AddItem(sampler, methods);
        remaining -= methods;
    }
    library = quarn_debug_library{QUARN_DEBUG_FORMAT_VERSION, items.size(), items.data()};
}

GeneratedLibrary::~GeneratedLibrary() = default;

void GeneratedLibrary::AddItem(ShapeSampler& sampler, int32_t methods) {
    const auto position = static_cast<int32_t>(items.size());
    auto item = std::make_unique<ItemTables>();
    const int32_t files = sampler.Pick(sampler.shape.filesPerItem);
    item->AddFiles(sampler, position, files);
    for (int32_t k = 0; k < methods; ++k) {
        item->AddMethod(sampler, files);
    }
    items.push_back(quarn_debug_item{methods, files, 1, item->methodFileIndices.data(),
                                     item->methods.data(), item->fileNameOffsets.data(),
                                     item->stringTable.data(), item->sequencePoints.data(),
                                     sampler.ItemHash(position), item->methodHashes.data(),
                                     item->fileMD5Indices.data(), item->md5Hashes.data()});
    tables.push_back(std::move(item));
    methodCount += methods;
}

std::vector<quarn_hash128> GeneratedLibrary::AllMethodHashes() const {
    std::vector<quarn_hash128> hashes;
    hashes.reserve(static_cast<size_t>(methodCount));
    for (const quarn_debug_item& item : items)
        hashes.insert(hashes.end(), item.methodHashes, item.methodHashes + item.methodCount);
    return hashes;
}

}  // namespace generated
