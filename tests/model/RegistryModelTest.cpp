// Random loads, reloads, unloads, clears, entry point registrations and method lists over
// generated libraries, run on the handling object and on a model of the plain algorithms. After
// every step the registry must hold what the model says, and the incremental caches what a
// rebuild from scratch gives.
#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <tuple>

#include "GeneratedLibrary.h"
#include "ProgrammableLibrary.h"
#include "support/MonoSide.h"
#include "support/ReferenceCaches.h"
#include "support/RegistryModel.h"

namespace {

using generated::GeneratedLibrary;
using testing_support::RegistryModel;

constexpr int kCopies = 3;
void SwitchNothing(void*, int32_t, void*) {}

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

struct ModelComparison {
    ModelComparison(uint64_t seed, bool colliding) : random(seed), colliding(colliding) {
        testing_support::InstallWriters(handling.Callbacks());
    }

    void Run(int steps) {
        std::discrete_distribution<int> pick({30, 20, 14, 3, 20, 13});
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE("step " + std::to_string(step));
            const int copy = std::uniform_int_distribution<int>(0, kCopies - 1)(random);
            void* library = libraries[copy].Handle();
            const int choice = pick(random);
            if (choice < 2) {  // 0: new tables, 1: the same tables again
                if (choice == 0 || served[copy] == nullptr) {
                    generated::LibraryShape shape = colliding ? kColliding : kOrdinary;
                    if (colliding)
                        shape.methodCount = std::uniform_int_distribution<int32_t>(1, 60)(random);
                    shape.seed = random();
                    tables.push_back(std::make_unique<GeneratedLibrary>(shape));
                    libraries[copy].Program(*(served[copy] = tables.back().get()));
                }
                handling.ProcessLibraryMetadata(library);
                model.Load(library, *served[copy]->Description());
            } else if (choice == 2) {
                handling.UnloadLibraryMetadata(library);
                model.Unload(library);
                std::erase_if(entries,
                              [&](const ModelEntry& entry) { return entry.library == library; });
            } else if (choice == 3) {
                handling.ClearLibraryMetadata();
                model.Clear(), entries.clear();
            } else if (choice == 4) {  // mostly a served item's hash, so unloads find some to drop
                Hash128 hash{random(), random()};
                const GeneratedLibrary* source = served[random() % kCopies];
                if (source != nullptr && !source->Items().empty() && random() % 4 != 0) {
                    const quarn_hash128& item =
                        source->Items()[random() % source->Items().size()].hash;
                    hash = Hash128{item.word0, item.word1};
                }
                auto* native = reinterpret_cast<void*>(uintptr_t(random() | 1));
                handling.RegisterEntryPoint(library, hash, native, nullptr,
                                            reinterpret_cast<void*>(SwitchNothing), nullptr);
                entries.push_back({hash, library, native});
            } else {  // also frees dropped records, so later ones may reuse their addresses
                testing_support::ReplyBuffer buffer;
                handling.Callbacks()->fetchMethods(&buffer, nullptr, 0, 0, 0, 0);
                EXPECT_EQ(buffer.Methods().size(), inspect.HashToMetadata().size());
            }
            EXPECT_EQ(model.Difference(inspect), "");
            EXPECT_EQ(testing_support::DifferenceFromRebuild(inspect), "");
            ExpectSameEntryPoints();
        }
    }

    // Entry points per hash, in registration order.
    void ExpectSameEntryPoints() {
        std::unordered_map<Hash128, std::vector<std::pair<void*, void*>>> expected, registered;
        for (const ModelEntry& entry : entries)
            expected[entry.hash].emplace_back(entry.library, entry.native);
        for (const auto& [hash, list] : inspect.EntryPoints())
            for (const EntryPoint& entry : list)
                registered[hash].emplace_back(entry.library, entry.native);
        EXPECT_EQ(registered, expected);
    }

    struct ModelEntry {
        Hash128 hash;
        void* library;
        void* native;
    };
    MonoDebuggerHandling handling{"/tmp/Placeholder.dll"};
    MonoDebuggerHandlingInspector inspect{handling};
    std::mt19937_64 random;
    bool colliding;
    const generated::ProgrammableLibrary libraries[kCopies] = {generated::ProgrammableLibrary(0),
                                                               generated::ProgrammableLibrary(1),
                                                               generated::ProgrammableLibrary(2)};
    // Every table ever served stays alive: older items stay registered until replaced or unloaded.
    std::vector<std::unique_ptr<GeneratedLibrary>> tables;
    const GeneratedLibrary* served[kCopies] = {};  // the tables each copy answers with
    RegistryModel model;
    std::vector<ModelEntry> entries;
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
