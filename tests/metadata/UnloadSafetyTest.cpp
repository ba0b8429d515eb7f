// What dropping an item may read, and what a long session keeps. A host may close a library
// before it reports the unload: dropping the library's items must use only what was kept of
// them, never the library's memory. Lists and reloads repeated for hours must not grow
// the memory held for method handles or dropped items.
#include <gtest/gtest.h>

#include <cstring>
#include <set>

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

// Each round a host drops fixture_a's items and registers new records with the same hashes
// (load again, unload first, clear first, or take item A1 from another library first), maybe
// several times. Handles of the list before to the replaced items are rejected from then on and
// the records they name are neither freed nor reused until the next list; those to fixture_b's
// item still hold. Lists repeated for hours hold no more memory and never reissue an address.
TEST(UnloadSafety, OldHandlesAreRejectedAndListsAndReloadsDoNotGrowWhatIsHeld) {
    MonoDebuggerHandling handling("");
    MonoDebuggerHandlingInspector inspect(handling);
    InstallWriters(handling.Callbacks());
    LoadedLibrary a("fixture_a"), b("fixture_b"), rebuilt("fixture_a_rebuilt");
    handling.ProcessLibraryMetadata(a.Handle());
    handling.ProcessLibraryMetadata(b.Handle());
    const auto accepted = [&](void* handle) {
        Hash128 hash{};
        return handling.TestFetchEntryPointHash(handle, &hash) +
               handling.TestFetchMethodHash(handle, &hash);
    };
    std::vector<void*> handles = ListMethods(handling);
    const size_t held = HandleArena::Instance().HeldBytes();
    std::set<void*> issued(handles.begin(), handles.end());
    const MethodCacheEntry zeros{};
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const int way = round % 4;
        std::set<const void*> named;
        for (void* handle : handles)
            named.insert(static_cast<MethodCacheEntry*>(handle)->metadata);
        for (int reload = 0; reload <= round % 3; ++reload) {
            if (way == 1)
                handling.UnloadLibraryMetadata(a.Handle());
            if (way == 2)
                handling.ClearLibraryMetadata(), handling.ProcessLibraryMetadata(b.Handle());
            if (way == 3)
                handling.ProcessLibraryMetadata(rebuilt.Handle());
            handling.ProcessLibraryMetadata(a.Handle());
            EXPECT_EQ(inspect.RetiredItemCount(), way == 2 ? 3u : 2u);
        }
        for (void* handle : handles) {
            const bool ofB = static_cast<MethodCacheEntry*>(handle)->metadata->hash == kItemB1;
            EXPECT_EQ(accepted(handle), ofB && way != 2 ? 2 : 0);
        }
        for (const QuarnDebugMetadata* item : inspect.MetadataItems())
            EXPECT_TRUE(!named.contains(item) || (item->hash == kItemB1 && way != 2));

        const std::vector<void*> previous = std::exchange(handles, ListMethods(handling));
        EXPECT_EQ(inspect.RetiredItemCount(), 0u);
        EXPECT_EQ(HandleArena::Instance().HeldBytes(), held);
        for (void* handle : previous) {
            EXPECT_EQ(accepted(handle), 0);
            // Still readable, given back to the system: it reads as zeros.
            EXPECT_EQ(std::memcmp(handle, &zeros, sizeof zeros), 0);
        }
        for (void* handle : handles) {
            EXPECT_EQ(accepted(handle), 2);
            EXPECT_TRUE(issued.insert(handle).second) << "a handle address issued twice";
        }
    }
}

}  // namespace
