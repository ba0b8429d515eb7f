// Random sequences of loads, reloads, unloads, clears, entry point registrations and method
// lists, run on the handling object and on a model of the plain algorithms. After every step
// the registry's containers and its cache log lines must be what the model says.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <unordered_set>

#include "GeneratedLibrary.h"
#include "ProgrammableLibrary.h"
#include "RegistryModel.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using generated::GeneratedLibrary;
using generated::LibraryShape;
using model::ModelItem;
using model::RegistryModel;
using model::ToHash;

constexpr int kLibraryCopies = 3;

void SwitchNothing(void*, int32_t, void*) {}

std::string PointerText(const void* pointer) {
    return std::to_string(reinterpret_cast<intptr_t>(pointer));
}

// Tiny libraries that collide a lot: item hashes from a pool of ten (so items replace one
// another within one library and across libraries), method hashes mostly from a pool of
// thirty (shared between items and repeated within one), few file names, skipped items.
LibraryShape CollidingShape(std::mt19937_64& random) {
    return LibraryShape{.methodCount = std::uniform_int_distribution<int32_t>(1, 60)(random),
                        .seed = random(),
                        .methodsPerItem = {1, 12},
                        .filesPerItem = {1, 4},
                        .sequencePointsPerMethod = 1,
                        .sharedMethodShare = 0.6,
                        .sharedMethodPool = 30,
                        .sharedFileShare = 0.5,
                        .sharedFilePool = 6,
                        .itemHashPool = 10,
                        .skippedItemShare = 0.15};
}

// Libraries of the ordinary shape: every item hash their own, a tenth of the methods shared.
LibraryShape OrdinaryShape(std::mt19937_64& random) {
    return LibraryShape{.methodCount = 1500, .seed = random()};
}

enum class Step { LoadNew, Reload, Unload, Clear, RegisterEntryPoint, FetchMethods };

class ModelComparison {
  public:
    using ShapeMaker = std::function<LibraryShape(std::mt19937_64&)>;

    ModelComparison(uint64_t seed, ShapeMaker makeShape)
        : random(seed), makeShape(std::move(makeShape)) {
        testing_support::InstallWriters(handling.Callbacks());
        for (int copy = 0; copy < kLibraryCopies; ++copy) {
            libraries.push_back(
                std::make_unique<generated::ProgrammableLibrary>(MDH_GENERATED_COMPILED_DIR, copy));
        }
        served.resize(kLibraryCopies, nullptr);
    }

    void Run(int steps) {
        std::discrete_distribution<int> pick({30, 20, 14, 3, 20, 13});
        for (int step = 0; step < steps; ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            Perform(static_cast<Step>(pick(random)));
            ExpectSameRegistry();
            if (testing::Test::HasFailure()) {
                return;
            }
        }
    }

  private:
    void Perform(Step step) {
        const int copy = std::uniform_int_distribution<int>(0, kLibraryCopies - 1)(random);
        switch (step) {
            case Step::LoadNew:
                return LoadNew(copy);
            case Step::Reload:
                return served[copy] ? Load(copy) : LoadNew(copy);
            case Step::Unload:
                return Unload(copy);
            case Step::Clear:
                return Clear();
            case Step::RegisterEntryPoint:
                return RegisterEntryPoint(copy);
            case Step::FetchMethods:
                return FetchMethods();
        }
    }

    void LoadNew(int copy) {
        tables.push_back(std::make_unique<GeneratedLibrary>(makeShape(random)));
        served[copy] = tables.back().get();
        libraries[copy]->Program(*served[copy]);
        Load(copy);
    }

    void Load(int copy) {
        void* library = libraries[copy]->Handle();
        handling.ProcessLibraryMetadata(library);
        expected.Load(library, *served[copy]->Description());
        ExpectCacheLines(TakeNewLogLines());
    }

    void Unload(int copy) {
        void* library = libraries[copy]->Handle();
        handling.UnloadLibraryMetadata(library);
        std::vector<std::string> expectedLines;
        for (const auto& [entryHash, entry] : expected.Unload(library)) {
            expectedLines.push_back("  Unregistering Entry Point : " + PointerText(library) +
                                    " Hash " + entryHash.ToString());
        }
        const std::vector<std::string> lines = TakeNewLogLines();
        // The entry point map's order is the hashed map's own: compare as multisets.
        std::vector<std::string> unregistered = Starting(lines, "  Unregistering Entry Point");
        std::sort(unregistered.begin(), unregistered.end());
        std::sort(expectedLines.begin(), expectedLines.end());
        EXPECT_EQ(unregistered, expectedLines);
        ExpectCacheLines(lines);
    }

    void Clear() {
        handling.ClearLibraryMetadata();
        expected.Clear();
        ExpectCacheLines(TakeNewLogLines());
    }

    // Mostly the hash of an item some library serves, so unloads find entry points to drop.
    void RegisterEntryPoint(int copy) {
        Hash128 entryHash{random(), random()};
        const GeneratedLibrary* source = served[random() % kLibraryCopies];
        if (source != nullptr && !source->Items().empty() && random() % 4 != 0) {
            entryHash = ToHash(source->Items()[random() % source->Items().size()].hash);
        }
        void* library = libraries[copy]->Handle();
        auto* native = reinterpret_cast<void*>(static_cast<uintptr_t>(random() | 1));
        handling.RegisterEntryPoint(library, entryHash, native, nullptr,
                                    reinterpret_cast<void*>(SwitchNothing), nullptr);
        expected.RegisterEntryPoint(entryHash,
                                    EntryPoint{library, nullptr, SwitchNothing, native, nullptr});
        TakeNewLogLines();
    }

    // Issues a method list, which also frees the records dropped since the last one, so that
    // later records may reuse their addresses.
    void FetchMethods() {
        testing_support::ReplyBuffer buffer;
        handling.Callbacks()->fetchMethods(&buffer, nullptr, 0, 0, 0, 0);
        ASSERT_FALSE(buffer.replies.empty());
        EXPECT_EQ(buffer.replies.front(),
                  testing_support::Int(static_cast<int32_t>(expected.Lists().size())));
        EXPECT_EQ(buffer.Methods().size(), expected.Lists().size());
        TakeNewLogLines();
    }

    std::vector<std::string> TakeNewLogLines() {
        std::vector<std::string> lines = directory.LogLines();
        lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(logMark));
        logMark += lines.size();
        return lines;
    }

    static std::vector<std::string> Starting(const std::vector<std::string>& lines,
                                             const std::string& prefix) {
        std::vector<std::string> kept;
        std::copy_if(lines.begin(), lines.end(), std::back_inserter(kept),
                     [&](const std::string& line) { return line.starts_with(prefix); });
        return kept;
    }

    // The totals and distinct counts of the rebuilt caches, from the model's items.
    void ExpectCacheLines(const std::vector<std::string>& lines) {
        int32_t fileTotal = 0;
        int32_t methodTotal = 0;
        std::unordered_set<std::string_view> names;
        std::unordered_set<Hash128> methods;
        for (const ModelItem& item : expected.Items()) {
            fileTotal += item.source->fileCount;
            methodTotal += item.source->methodCount;
            for (int32_t f = 0; f < item.source->fileCount; ++f) {
                names.insert(item.source->stringTable + item.source->fileNameOffsets[f]);
            }
            for (int32_t k = 0; k < item.source->methodCount; ++k) {
                methods.insert(ToHash(item.source->methodHashes[k]));
            }
        }
        const std::vector<std::string> cacheLines = {
            "FilesCached : " + std::to_string(fileTotal) + " vs " + std::to_string(names.size()),
            "MethodsCached : " + std::to_string(methodTotal) + " vs " +
                std::to_string(methods.size())};
        std::vector<std::string> logged = Starting(lines, "FilesCached");
        const std::vector<std::string> methodLines = Starting(lines, "MethodsCached");
        logged.insert(logged.end(), methodLines.begin(), methodLines.end());
        EXPECT_EQ(logged, cacheLines);
    }

    void ExpectSameRegistry() {
        const auto serials = MatchItems();
        ExpectSameLists(serials);
        ExpectCachesFollowItemOrder();
        ExpectSameEntryPoints();
    }

    // The model item of every registered record, matched by item hash: both sides hold at
    // most one item per hash.
    std::unordered_map<const QuarnDebugMetadata*, size_t> MatchItems() {
        std::unordered_map<Hash128, const ModelItem*> modelByHash;
        for (const ModelItem& item : expected.Items()) {
            EXPECT_TRUE(modelByHash.emplace(item.hash, &item).second) << item.hash.ToString();
        }
        std::unordered_map<const QuarnDebugMetadata*, size_t> serials;
        EXPECT_EQ(inspect.MetadataItems().size(), expected.Items().size());
        for (const QuarnDebugMetadata* record : inspect.MetadataItems()) {
            const auto found = modelByHash.find(record->hash);
            if (found == modelByHash.end()) {
                ADD_FAILURE() << "unexpected item " << record->hash.ToString();
                continue;
            }
            const ModelItem& item = *found->second;
            EXPECT_EQ(record->libraryHandle, item.library) << item.hash.ToString();
            EXPECT_EQ(static_cast<const void*>(record->methodHashes),
                      static_cast<const void*>(item.source->methodHashes))
                << item.hash.ToString();
            EXPECT_EQ(record->methodCount, item.source->methodCount) << item.hash.ToString();
            EXPECT_EQ(record->fileCount, item.source->fileCount) << item.hash.ToString();
            serials.emplace(record, item.serial);
        }
        return serials;
    }

    void ExpectSameLists(const std::unordered_map<const QuarnDebugMetadata*, size_t>& serials) {
        const auto& lists = inspect.HashToMetadataList();
        EXPECT_EQ(lists.size(), expected.Lists().size());
        for (const auto& [methodHash, list] : lists) {
            std::vector<size_t> listed;
            for (const QuarnDebugMetadata* record : list) {
                const auto found = serials.find(record);
                listed.push_back(found == serials.end() ? SIZE_MAX : found->second);
            }
            const auto modelList = expected.Lists().find(methodHash);
            ASSERT_NE(modelList, expected.Lists().end()) << methodHash.ToString();
            EXPECT_EQ(listed, modelList->second) << methodHash.ToString();
        }
    }

    // The caches are what the plain rebuild over the registered items, in the set's iteration
    // order, gives: the first item and its lowest index win, the first equal name is kept.
    void ExpectCachesFollowItemOrder() {
        std::unordered_map<Hash128, std::pair<QuarnDebugMetadata*, int32_t>> methods;
        std::unordered_map<std::string_view, const char*> names;
        for (QuarnDebugMetadata* record : inspect.MetadataItems()) {
            for (int32_t k = 0; k < record->methodCount; ++k) {
                methods.try_emplace(record->methodHashes[k], record, k);
            }
            for (int32_t f = 0; f < record->fileCount; ++f) {
                const std::string_view name = record->FileName(f);
                names.try_emplace(name, name.data());
            }
        }
        EXPECT_EQ(inspect.HashToMetadata().size(), methods.size());
        for (const auto& [methodHash, location] : inspect.HashToMetadata()) {
            const auto found = methods.find(methodHash);
            ASSERT_NE(found, methods.end()) << methodHash.ToString();
            EXPECT_EQ(location, found->second) << methodHash.ToString();
        }
        EXPECT_EQ(inspect.FileNames().size(), names.size());
        for (std::string_view name : inspect.FileNames()) {
            const auto found = names.find(name);
            ASSERT_NE(found, names.end()) << name;
            EXPECT_EQ(static_cast<const void*>(name.data()), found->second) << name;
        }
    }

    void ExpectSameEntryPoints() {
        const auto& entryPoints = inspect.EntryPoints();
        EXPECT_EQ(entryPoints.size(), expected.EntryPoints().size());
        for (const auto& [entryHash, list] : entryPoints) {
            const auto found = expected.EntryPoints().find(entryHash);
            ASSERT_NE(found, expected.EntryPoints().end()) << entryHash.ToString();
            ASSERT_EQ(list.size(), found->second.size()) << entryHash.ToString();
            for (size_t i = 0; i < list.size(); ++i) {
                EXPECT_EQ(list[i].library, found->second[i].library) << entryHash.ToString();
                EXPECT_EQ(list[i].native, found->second[i].native) << entryHash.ToString();
            }
        }
    }

    testing_support::TempWorkingDirectory directory;
    testing_support::ScopedEnvironment logLevel{"ORVEL_QUARN_DEBUG", "1"};
    MonoDebuggerHandling handling{"/tmp/Placeholder.dll"};
    MonoDebuggerHandlingInspector inspect{handling};
    size_t logMark = 0;

    std::mt19937_64 random;
    ShapeMaker makeShape;
    std::vector<std::unique_ptr<generated::ProgrammableLibrary>> libraries;
    // Every table ever served stays alive: a library given new tables keeps its older items
    // registered until they are replaced or unloaded, and they point into the older tables.
    std::vector<std::unique_ptr<GeneratedLibrary>> tables;
    std::vector<const GeneratedLibrary*> served;  // per copy, the tables it answers with
    RegistryModel expected;
};

// Runs one random sequence per seed, stopping at the first that fails.
void RunSequences(uint64_t seeds, int steps, const ModelComparison::ShapeMaker& makeShape) {
    for (uint64_t seed = 1; seed <= seeds && !testing::Test::HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        ModelComparison(seed, makeShape).Run(steps);
    }
}

TEST(RegistryModelComparison, CollidingLibrariesMatchThePlainAlgorithms) {
    RunSequences(8, 150, CollidingShape);
}

TEST(RegistryModelComparison, OrdinaryLibrariesMatchThePlainAlgorithms) {
    RunSequences(2, 20, OrdinaryShape);
}

}  // namespace
