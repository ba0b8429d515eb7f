// The metadata reader and registry fed well-formed tables of random shape through real compiled
// libraries: items with shared and repeated hashes, shared file names, zero and negative counts,
// loaded, reloaded, unloaded and cleared in random order among entry point registrations and
// method lists. After every step the registry must hold what a plain model of its rules says,
// and the caches must equal a recomputation from the registered items. Any difference aborts.
// The suite replays the corpus; its long random inputs stand for the randomized model test.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "FuzzInput.h"
#include "ProgrammableLibrary.h"
#include "RecordingDebugger.h"
#include "plugin/MonoDebuggerHandling.h"
#include "support/Inspector.h"
#include "support/ReferenceCaches.h"
#include "support/RegistryModel.h"

namespace {

constexpr size_t kLibraries = 3;

// Small pools, so that hashes and names repeat within and across items and libraries.
const quarn_hash128 kItemHashes[] = {{0x1, 0x100}, {0x2, 0x100}, {0x3, 0x100}, {0x4, 0x100}};
const quarn_hash128 kMethodHashes[] = {{0x1, 0x200}, {0x2, 0x200}, {0x3, 0x200},
                                       {0x4, 0x200}, {0x5, 0x200}, {0x6, 0x200}};
const char* const kPaths[] = {"a.cs",      "dir/a.cs", "./dir/a.cs", "A.cs", "b.cs",
                              "dir\\b.cs", "",         "./a.cs",     "./",   "x/dir\\a.cs"};
const int32_t kCounts[] = {-2, -1, 0, 1, 1, 2, 2, 3, 4};
const int32_t kAuxCounts[] = {0, 1, 1, 1, 7};
const int32_t kHeaderCounts[] = {-1, 0, 1, 2, 2, 3, 3, 4};

void SwitchNothing(void*, int32_t, void*) {}

void Expect(const std::string& difference) {
    if (!difference.empty()) {
        std::fprintf(stderr, "registry check failed: %s\n", difference.c_str());
        std::abort();
    }
}

// The tables of one item, sized by its counts (a count below 1 has no elements).
struct ItemTables {
    std::vector<quarn_hash128> methodHashes;
    std::vector<quarn_method_debug_info> methods;
    std::vector<int32_t> nameOffsets;
    std::vector<int32_t> digestIndices;
    std::string strings;
};

// One version of a library's tables, as the host would find them after a rebuild.
struct LibraryTables {
    std::vector<ItemTables> tables;
    std::vector<quarn_debug_item> items;
    quarn_debug_library library{};
};

std::unique_ptr<LibraryTables> GenerateTables(FuzzInput& input) {
    auto result = std::make_unique<LibraryTables>();
    const int32_t headerCount = input.Pick(kHeaderCounts);
    const size_t itemCount = static_cast<size_t>(std::max(headerCount, 0));
    result->tables.resize(itemCount);
    for (ItemTables& tables : result->tables) {
        quarn_debug_item& item = result->items.emplace_back();
        item.methodCount = input.Pick(kCounts);
        item.fileCount = input.Pick(kCounts);
        item.auxCount = input.Pick(kAuxCounts);
        item.hash = input.Pick(kItemHashes);
        for (int32_t k = 0; k < item.methodCount; ++k) {
            tables.methodHashes.push_back(input.Pick(kMethodHashes));
            tables.methods.push_back({0, 0, 0, 0});
        }
        for (int32_t f = 0; f < item.fileCount; ++f) {
            tables.nameOffsets.push_back(static_cast<int32_t>(tables.strings.size()));
            tables.strings.append(input.Pick(kPaths)).push_back('\0');
            tables.digestIndices.push_back(-1);
        }
        item.methodHashes = tables.methodHashes.data();
        item.methods = tables.methods.data();
        item.fileNameOffsets = tables.nameOffsets.data();
        item.stringTable = tables.strings.data();
        item.fileMD5Indices = tables.digestIndices.data();
    }
    result->library = {QUARN_DEBUG_FORMAT_VERSION, static_cast<uint64_t>(headerCount),
                       result->items.data()};
    return result;
}

// Paths asked about: the pool's names in other case, with other directories and separators.
const std::vector<std::string> kProbePaths = {
    "a.cs",      "A.CS", "b.cs", "/x/dir/a.cs", "C:\\x\\DIR\\A.cs", "dir/a.cs", "dir\\b.cs",
    "/q/Mya.cs", "",     "dir/", "/x/"};

// Methods are listed once per distinct hash, and each handle names one of them.
std::string MethodListDifference(MonoDebuggerHandling& handling,
                                 const MonoDebuggerHandlingInspector& inspector) {
    debugger_side::ReplyBuffer list;
    handling.QuarnFetchMethods(&list, nullptr, 0, 0, 0, 0);
    const auto methods = inspector.HashToMetadata();
    std::unordered_set<Hash128> listed;
    for (void* method : list.Methods()) {
        Hash128 hash{};
        if (handling.TestFetchMethodHash(method, &hash) != 1 || !methods.contains(hash))
            return "a fresh handle is rejected or names an unknown method";
        listed.insert(hash);
    }
    const bool counted = list.replies.front() == debugger_side::Int(int32_t(methods.size()));
    return counted && listed.size() == methods.size() && list.Methods().size() == methods.size()
               ? ""
               : "method list";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ProgrammableLibrary libraries[kLibraries] = {
        ProgrammableLibrary(0), ProgrammableLibrary(1), ProgrammableLibrary(2)};
    FuzzInput input(data, size);
    // Every version of every library's tables stays alive: records keep pointing into them.
    std::vector<std::unique_ptr<LibraryTables>> versions;
    const LibraryTables* current[kLibraries] = {};
    testing_support::RegistryModel model;
    MonoDebuggerHandling handling("");
    const MonoDebuggerHandlingInspector inspector(handling);
    debugger_side::InstallWriters(handling.Callbacks());

    while (!input.Exhausted()) {
        const uint8_t step = input.Byte();
        const size_t index = input.Below(kLibraries);
        void* library = libraries[index].Handle();
        switch (step % 6) {
            case 0:  // the library was rebuilt: new tables
                versions.push_back(GenerateTables(input));
                current[index] = versions.back().get();
                [[fallthrough]];
            case 1:  // loaded (again)
                if (current[index] != nullptr) {
                    libraries[index].Describe(&current[index]->library);
                    handling.ProcessLibraryMetadata(library);
                    model.Load(library, current[index]->library);
                }
                break;
            case 2:
                handling.UnloadLibraryMetadata(library);
                model.Unload(library);
                break;
            case 3:
                handling.ClearLibraryMetadata();
                model.Clear();
                break;
            case 4: {  // an entry point under an item hash of the pool, loaded or not
                const quarn_hash128& item = input.Pick(kItemHashes);
                void* native = reinterpret_cast<void*>(uintptr_t{input.Byte()} << 4 | 1);
                handling.RegisterEntryPoint(library, Hash128{item.word0, item.word1}, native,
                                            nullptr, reinterpret_cast<void*>(SwitchNothing),
                                            nullptr);
                model.Register(Hash128{item.word0, item.word1}, library, native);
                break;
            }
            default:
                Expect(MethodListDifference(handling, inspector));
                break;
        }
        Expect(model.Difference(inspector));
        Expect(testing_support::DifferenceFromRebuild(inspector));
        Expect(testing_support::MatchDifferenceFromFullWalk(handling, kProbePaths));
    }
    for (const ProgrammableLibrary& library : libraries)
        library.Describe(nullptr);
    return 0;
}
