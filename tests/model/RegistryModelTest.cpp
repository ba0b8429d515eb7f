// Random loads, reloads, unloads, clears, entry point registrations and method lists, run on the
// handling object and on a model of the plain algorithms: a load drops every item with a new
// item's hash, an unload drops a library's items and entry points, and each method's list holds
// the surviving items in registration order. After every step the registry's containers and its
// cache log lines must be what the model says, and the incremental caches what a rebuild from
// scratch gives.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <unordered_map>

#include "GeneratedLibrary.h"
#include "ProgrammableLibrary.h"
#include "support/Inspector.h"
#include "support/ReferenceCaches.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using generated::GeneratedLibrary;
using Lines = std::vector<std::string>;

constexpr int kCopies = 3;
void SwitchNothing(void*, int32_t, void*) {}
Hash128 ToHash(const quarn_hash128& hash) {
    return Hash128{hash.word0, hash.word1};
}
std::string Count(size_t n) {
    return std::to_string(n);
}

// Colliding libraries: item hashes from a pool of ten (items replace one another within and
// across libraries), shared methods and file names, skipped items.
const generated::LibraryShape kColliding{.methodsPerItem = {1, 12},
                                         .filesPerItem = {1, 4},
                                         .sequencePointsPerMethod = 1,
                                         .sharedMethodShare = 0.6,
                                         .sharedMethodPool = 30,
                                         .sharedFileShare = 0.5,
                                         .sharedFilePool = 6,
                                         .itemHashPool = 10,
                                         .skippedItemShare = 0.15};
const generated::LibraryShape kOrdinary{.methodCount = 1500};

struct ModelItem {
    size_t serial;
    Hash128 hash;
    void* library;
    const quarn_debug_item* source;
};
struct ModelEntry {
    Hash128 hash;
    void* library;
    void* native;
};

struct ModelComparison {
    ModelComparison(uint64_t seed, bool colliding) : random(seed), colliding(colliding) {
        testing_support::InstallWriters(handling.Callbacks());
        for (int copy = 0; copy < kCopies; ++copy)
            libraries.push_back(
                std::make_unique<generated::ProgrammableLibrary>(MDH_GENERATED_COMPILED_DIR, copy));
    }

    void Run(int steps) {
        std::discrete_distribution<int> pick({30, 20, 14, 3, 20, 13});
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            const int copy = std::uniform_int_distribution<int>(0, kCopies - 1)(random);
            void* library = libraries[copy]->Handle();
            const int choice = pick(random);
            if (choice < 2) {  // 0: new tables, 1: the same tables again
                if (choice == 0 || served[copy] == nullptr) {
                    generated::LibraryShape shape = colliding ? kColliding : kOrdinary;
                    if (colliding)
                        shape.methodCount = std::uniform_int_distribution<int32_t>(1, 60)(random);
                    shape.seed = random();
                    tables.push_back(std::make_unique<GeneratedLibrary>(shape));
                    libraries[copy]->Program(*(served[copy] = tables.back().get()));
                }
                handling.ProcessLibraryMetadata(library);
                for (const quarn_debug_item& source : served[copy]->Items()) {
                    if (source.fileCount == 0 || source.auxCount == 0 || source.methodCount == 0)
                        continue;
                    std::erase_if(items,
                                  [&](auto& item) { return item.hash == ToHash(source.hash); });
                    items.push_back({nextSerial++, ToHash(source.hash), library, &source});
                }
                ExpectCacheLines(NewLogLines());
            } else if (choice == 2) {
                handling.UnloadLibraryMetadata(library);
                std::erase_if(items,
                              [&](const ModelItem& item) { return item.library == library; });
                Lines expected;
                std::erase_if(entries, [&](const ModelEntry& entry) {
                    if (entry.library == library)
                        expected.push_back(
                            "  Unregistering Entry Point : " + std::to_string(intptr_t(library)) +
                            " Hash " + entry.hash.ToString());
                    return entry.library == library;
                });
                const Lines lines = NewLogLines();
                // The entry point map's order is the hashed map's own: compare as multisets.
                Lines unregistered = Starting(lines, "  Unregistering Entry Point");
                std::ranges::sort(unregistered), std::ranges::sort(expected);
                EXPECT_EQ(unregistered, expected);
                ExpectCacheLines(lines);
            } else if (choice == 3) {
                handling.ClearLibraryMetadata();
                items.clear(), entries.clear();
                ExpectCacheLines(NewLogLines());
            } else if (choice == 4) {  // mostly a served item's hash, so unloads find some to drop
                Hash128 hash{random(), random()};
                const GeneratedLibrary* source = served[random() % kCopies];
                if (source != nullptr && !source->Items().empty() && random() % 4 != 0)
                    hash = ToHash(source->Items()[random() % source->Items().size()].hash);
                auto* native = reinterpret_cast<void*>(uintptr_t(random() | 1));
                handling.RegisterEntryPoint(library, hash, native, nullptr,
                                            reinterpret_cast<void*>(SwitchNothing), nullptr);
                entries.push_back({hash, library, native});
                NewLogLines();
            } else {  // also frees dropped records, so later ones may reuse their addresses
                testing_support::ReplyBuffer buffer;
                handling.Callbacks()->fetchMethods(&buffer, nullptr, 0, 0, 0, 0);
                const size_t methods = ExpectedLists().size();
                EXPECT_EQ(buffer.replies.at(0), testing_support::Int(int32_t(methods)));
                EXPECT_EQ(buffer.Methods().size(), methods);
                NewLogLines();
            }
            ExpectSameRegistry();
        }
    }

    std::unordered_map<Hash128, std::vector<size_t>> ExpectedLists() const {
        std::unordered_map<Hash128, std::vector<size_t>> lists;
        for (const ModelItem& item : items)
            for (int32_t k = 0; k < item.source->methodCount; ++k)
                lists[ToHash(item.source->methodHashes[k])].push_back(item.serial);
        return lists;
    }

    Lines NewLogLines() {
        Lines lines = directory.LogLines();
        lines.erase(lines.begin(), lines.begin() + std::ptrdiff_t(logMark));
        logMark += lines.size();
        return lines;
    }
    static Lines Starting(const Lines& lines, const std::string& prefix) {
        Lines kept;
        std::ranges::copy_if(lines, std::back_inserter(kept),
                             [&](auto& l) { return l.starts_with(prefix); });
        return kept;
    }

    // Totals from the model's items; the distinct counts are the caches' sizes, which
    // ExpectSameRegistry holds to the plain rebuild.
    void ExpectCacheLines(const Lines& lines) {
        int32_t files = 0, methods = 0;
        for (const ModelItem& item : items)
            files += item.source->fileCount, methods += item.source->methodCount;
        Lines logged = Starting(lines, "FilesCached");
        std::ranges::copy(Starting(lines, "MethodsCached"), std::back_inserter(logged));
        EXPECT_EQ(logged, (Lines{"FilesCached : " + Count(files) + " vs " +
                                     Count(inspect.FileNames().size()),
                                 "MethodsCached : " + Count(methods) + " vs " +
                                     Count(inspect.HashToMetadata().size())}));
    }

    void ExpectSameRegistry() {
        // Records matched to model items by item hash: both sides hold at most one per hash.
        std::unordered_map<Hash128, const ModelItem*> byHash;
        for (const ModelItem& item : items)
            EXPECT_TRUE(byHash.emplace(item.hash, &item).second);
        std::unordered_map<const QuarnDebugMetadata*, size_t> serials;
        ASSERT_EQ(inspect.MetadataItems().size(), items.size());
        for (const QuarnDebugMetadata* record : inspect.MetadataItems()) {
            ASSERT_TRUE(byHash.contains(record->hash)) << record->hash.ToString();
            const ModelItem& item = *byHash.at(record->hash);
            EXPECT_EQ(record->libraryHandle, item.library);
            EXPECT_EQ((const void*)record->methodHashes, (const void*)item.source->methodHashes);
            EXPECT_EQ(record->methodCount, item.source->methodCount);
            EXPECT_EQ(record->fileCount, item.source->fileCount);
            serials.emplace(record, item.serial);
        }
        std::unordered_map<Hash128, std::vector<size_t>> lists;
        for (const auto& [hash, list] : inspect.HashToMetadataList())
            for (const QuarnDebugMetadata* record : list)
                lists[hash].push_back(serials.at(record));
        EXPECT_EQ(lists, ExpectedLists());
        // The incremental caches hold exactly what a rebuild over the registered items would.
        EXPECT_EQ(testing_support::DifferenceFromRebuild(inspect), "");
        // Entry points per hash, in registration order.
        std::unordered_map<Hash128, std::vector<std::pair<void*, void*>>> expected, registered;
        for (const ModelEntry& entry : entries)
            expected[entry.hash].emplace_back(entry.library, entry.native);
        for (const auto& [hash, list] : inspect.EntryPoints())
            for (const EntryPoint& entry : list)
                registered[hash].emplace_back(entry.library, entry.native);
        EXPECT_EQ(registered, expected);
    }

    testing_support::TempWorkingDirectory directory;
    testing_support::ScopedEnvironment logLevel{"ORVEL_QUARN_DEBUG", "1"};
    MonoDebuggerHandling handling{"/tmp/Placeholder.dll"};
    MonoDebuggerHandlingInspector inspect{handling};
    size_t logMark = 0;
    std::mt19937_64 random;
    bool colliding;
    std::vector<std::unique_ptr<generated::ProgrammableLibrary>> libraries;
    // Every table ever served stays alive: older items stay registered until replaced or unloaded.
    std::vector<std::unique_ptr<GeneratedLibrary>> tables;
    const GeneratedLibrary* served[kCopies] = {};  // the tables each copy answers with
    std::vector<ModelItem> items;                  // in registration order
    std::vector<ModelEntry> entries;
    size_t nextSerial = 0;
};

TEST(RegistryModelComparison, CollidingAndOrdinaryLibrariesMatchThePlainAlgorithms) {
    for (const auto& [colliding, seeds, steps] :
         {std::tuple{true, 8, 150}, std::tuple{false, 2, 20}}) {
        for (int seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
            SCOPED_TRACE(testing::Message()
                         << "seed " << seed << (colliding ? " colliding" : " ordinary"));
            ModelComparison(seed, colliding).Run(steps);
        }
    }
}

}  // namespace
