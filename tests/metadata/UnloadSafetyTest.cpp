// What dropping an item may read, and what a long session keeps. A host may close a library
// before it reports the unload, or its tables may change after the load: dropping the library's
// items must use only what was kept of them. Lists and reloads repeated for hours must not grow
// the memory held for method handles or dropped items.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

#include "GeneratedLibrary.h"
#include "ProgrammableLibrary.h"
#include "metadata/HandleArena.h"
#include "support/Fixtures.h"
#include "support/MonoSide.h"
#include "support/ReferenceCaches.h"

namespace {
using namespace testing_support;

void SwitchNothing(void*, int32_t, void*) {}

std::vector<void*> ListMethods(MonoDebuggerHandling& handling) {
    ReplyBuffer list;
    handling.QuarnFetchMethods(&list, nullptr, 0, 0, 0, 0);
    return list.Methods();
}

TEST(UnloadSafety, AClosedLibraryIsUnloadedWithoutBeingRead) {
    MonoDebuggerHandling handling("");
    MonoDebuggerHandlingInspector inspect(handling);
    LoadedLibrary b("fixture_b");
    const std::string path = CompiledLibraryPath("fixture_a");
    void* a = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(a, nullptr);
    handling.ProcessLibraryMetadata(a);
    handling.ProcessLibraryMetadata(b.Handle());
    handling.RegisterEntryPoint(a, kItemA1, a, nullptr, reinterpret_cast<void*>(SwitchNothing),
                                nullptr);
    ASSERT_EQ(dlclose(a), 0);
    ASSERT_EQ(dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr) << "still mapped";

    handling.UnloadLibraryMetadata(a);
    EXPECT_EQ(DifferenceFromRebuild(inspect), "");
    ASSERT_EQ(inspect.MetadataItems().size(), 1u);
    EXPECT_EQ((*inspect.MetadataItems().begin())->hash, kItemB1);
    // The method fixture_a shared with fixture_b is now answered by fixture_b's item.
    EXPECT_EQ(inspect.HashToMetadata().at(kMethodShared).first->hash, kItemB1);
    EXPECT_TRUE(inspect.EntryPoints().empty());
}

TEST(UnloadSafety, TablesChangedAfterTheLoadDoNotChangeWhatIsDropped) {
    // Two libraries sharing method hashes and file names, served from writable memory.
    const generated::LibraryShape shape{.methodCount = 300,
                                        .sharedMethodShare = 0.5,
                                        .sharedMethodPool = 40,
                                        .sharedFileShare = 0.5,
                                        .sharedFilePool = 8};
    generated::GeneratedLibrary first(shape), second({.methodCount = 300,
                                                      .seed = 2,
                                                      .sharedMethodShare = 0.5,
                                                      .sharedMethodPool = 40,
                                                      .sharedFileShare = 0.5,
                                                      .sharedFilePool = 8});
    generated::ProgrammableLibrary copy0(MDH_COMPILED_DIR, 0), copy1(MDH_COMPILED_DIR, 1);
    copy0.Program(first), copy1.Program(second);
    MonoDebuggerHandling handling("");
    MonoDebuggerHandlingInspector inspect(handling);
    handling.ProcessLibraryMetadata(copy0.Handle());
    handling.ProcessLibraryMetadata(copy1.Handle());

    // The first library's tables change under the plug-in: other hashes, other names.
    for (const quarn_debug_item& item : first.Items()) {
        auto* hashes = const_cast<quarn_hash128*>(item.methodHashes);
        for (int32_t k = 0; k < item.methodCount; ++k)
            hashes[k].word1 ^= 0xFFFF;
        for (int32_t f = 0; f < item.fileCount; ++f)
            const_cast<char*>(item.stringTable)[item.fileNameOffsets[f]] = '#';
    }
    handling.UnloadLibraryMetadata(copy0.Handle());
    EXPECT_EQ(DifferenceFromRebuild(inspect), "");
    EXPECT_EQ(inspect.MetadataItems().size(), second.Items().size());
    handling.ProcessLibraryMetadata(copy1.Handle());  // a reload replaces every item
    EXPECT_EQ(DifferenceFromRebuild(inspect), "");
}

TEST(UnloadSafety, ListsAndReloadsDoNotGrowWhatIsHeldForHandlesAndDroppedItems) {
    MonoDebuggerHandling handling("");
    MonoDebuggerHandlingInspector inspect(handling);
    InstallWriters(handling.Callbacks());
    LoadedLibrary a("fixture_a"), b("fixture_b");
    handling.ProcessLibraryMetadata(a.Handle());
    handling.ProcessLibraryMetadata(b.Handle());
    std::vector<void*> previous = ListMethods(handling);
    const size_t held = HandleArena::Instance().HeldBytes();
    std::set<void*> issued(previous.begin(), previous.end());
    const MethodCacheEntry zeros{};
    for (int round = 0; round < 200; ++round) {
        const std::vector<void*> current = ListMethods(handling);
        EXPECT_EQ(HandleArena::Instance().HeldBytes(), held);
        for (void* handle : previous) {
            Hash128 hash{};
            EXPECT_EQ(handling.TestFetchMethodHash(handle, &hash), 0);
            // Still readable, given back to the system: it reads as zeros.
            EXPECT_EQ(std::memcmp(handle, &zeros, sizeof zeros), 0);
        }
        for (void* handle : current)
            EXPECT_TRUE(issued.insert(handle).second) << "a handle address issued twice";
        previous = current;
    }
    std::vector<Hash128> items(previous.size());
    for (size_t i = 0; i < previous.size(); ++i)
        ASSERT_EQ(handling.TestFetchEntryPointHash(previous[i], &items[i]), 1);
    for (int round = 0; round < 200; ++round) {
        handling.ProcessLibraryMetadata(a.Handle());
        // Only the items the current list may name wait: fixture_a's two as the list had them.
        EXPECT_LE(inspect.RetiredItemCount(), 2u);
    }
    // Handles to fixture_a's replaced items are rejected; those to fixture_b's item still hold.
    for (size_t i = 0; i < previous.size(); ++i) {
        Hash128 hash{};
        EXPECT_EQ(handling.TestFetchEntryPointHash(previous[i], &hash), items[i] == kItemB1);
    }
    ListMethods(handling);
    EXPECT_EQ(inspect.RetiredItemCount(), 0u);
    EXPECT_EQ(HandleArena::Instance().HeldBytes(), held);
}

}  // namespace
