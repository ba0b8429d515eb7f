// The registry of loaded items: replacement by item hash, the method-hash index, unload and
// clear, and the flush request after a load that added items.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "LibrariesAAndB.h"
#include "LoggedHandling.h"
#include "RecordingLibrary.h"
#include "support/JumpStubs.h"

namespace testing_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using testing_support::PrintTo;

void IgnoreTarget(void*, int32_t, void*) {}

// Registers a callback entry point for `entryHash` of `library`.
void RegisterCallbackEntry(MonoDebuggerHandling& object, void* library, const Hash128& entryHash) {
    object.RegisterEntryPoint(library, entryHash, reinterpret_cast<void*>(&NativeCode), nullptr,
                              reinterpret_cast<void*>(&IgnoreTarget), nullptr);
}

// The item hashes of the list of a method hash, in list order.
std::vector<Hash128> ListedItemHashes(const MonoDebuggerHandlingInspector& inspect,
                                      const Hash128& methodHash) {
    std::vector<Hash128> hashes;
    for (const QuarnDebugMetadata* item : ItemsListedFor(inspect, methodHash)) {
        hashes.push_back(item->hash);
    }
    return hashes;
}

// Every list is non-empty and names only registered items.
void ExpectListsNonEmptyAndRegistered(const MonoDebuggerHandlingInspector& inspect) {
    for (const auto& [methodHash, items] : inspect.HashToMetadataList()) {
        EXPECT_FALSE(items.empty()) << methodHash.ToString();
        for (QuarnDebugMetadata* item : items) {
            EXPECT_TRUE(inspect.MetadataItems().contains(item)) << methodHash.ToString();
        }
    }
}

std::vector<std::string> Concatenated(std::vector<std::string> first,
                                      const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST(Reload, ReplacesEveryItemAndRequestsAFlushEachTime) {
    LoggedHandling handling;
    LoadedLibrary library("fixture_a");
    const auto& inspect = handling.Inspect();
    const std::vector<std::string> loadLines =
        Concatenated({"ProcessLibraryMetadata : " + PointerText(library.Handle())},
                     Concatenated(CacheLines(3, 3, 3, 3), {"RequestFlushClientDebuggerKnowledge"}));

    for (int load = 1; load <= 3; ++load) {
        handling.MarkLog();
        handling.Object().ProcessLibraryMetadata(library.Handle());

        EXPECT_THAT(ItemHashes(inspect), UnorderedElementsAre(kItemA1, kItemA2)) << load;
        QuarnDebugMetadata* a1 = ItemWithHash(inspect, kItemA1);
        EXPECT_THAT(ItemsListedFor(inspect, kMethodShared), ElementsAre(a1)) << load;
        EXPECT_THAT(ItemsListedFor(inspect, kMethodA1Only), ElementsAre(a1)) << load;
        EXPECT_THAT(ItemsListedFor(inspect, kMethodA2Only),
                    ElementsAre(ItemWithHash(inspect, kItemA2)))
            << load;
        EXPECT_EQ(inspect.HashToMetadataList().size(), 3u) << load;
        EXPECT_EQ(handling.LinesSinceMark(), loadLines) << load;
        EXPECT_EQ(FlushCalls(), load);
    }
}

TEST(SameItemHashInTwoLibraries, LastLoadedWinsAndUnloadingTheFirstDropsOnlyItsEntryPoints) {
    LoggedHandling handling;
    auto& object = handling.Object();
    const auto& inspect = handling.Inspect();
    LoadedLibrary original("fixture_a");
    LoadedLibrary rebuilt("fixture_a_rebuilt");
    object.ProcessLibraryMetadata(original.Handle());
    RegisterCallbackEntry(object, original.Handle(), kItemA1);
    RegisterCallbackEntry(object, original.Handle(), kItemA2);

    object.ProcessLibraryMetadata(rebuilt.Handle());
    RegisterCallbackEntry(object, rebuilt.Handle(), kItemA1);

    QuarnDebugMetadata* survivor = ItemWithHash(inspect, kItemA1);
    ASSERT_NE(survivor, nullptr);
    EXPECT_EQ(survivor->libraryHandle, rebuilt.Handle());
    EXPECT_THAT(ItemHashes(inspect), UnorderedElementsAre(kItemA1, kItemA2));
    EXPECT_THAT(ItemsListedFor(inspect, kMethodShared), IsEmpty());
    EXPECT_THAT(ItemsListedFor(inspect, kMethodA1Only), ElementsAre(survivor));
    EXPECT_THAT(ItemsListedFor(inspect, kMethodRebuilt), ElementsAre(survivor));

    handling.MarkLog();
    object.UnloadLibraryMetadata(original.Handle());

    EXPECT_THAT(ItemHashes(inspect), ElementsAre(kItemA1));
    EXPECT_EQ(ItemWithHash(inspect, kItemA1), survivor);
    ASSERT_EQ(inspect.EntryPoints().size(), 1u);
    ASSERT_EQ(inspect.EntryPoints().count(kItemA1), 1u);
    ASSERT_EQ(inspect.EntryPoints().at(kItemA1).size(), 1u);
    EXPECT_EQ(inspect.EntryPoints().at(kItemA1)[0].library, rebuilt.Handle());

    const std::string prefix = "  Unregistering Entry Point : " + PointerText(original.Handle());
    std::vector<std::string> lines = handling.LinesSinceMark();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "UnloadLibraryMetadata : " + PointerText(original.Handle()));
    // The two entry hashes are walked in the map's own order.
    EXPECT_THAT(std::vector<std::string>(lines.begin() + 1, lines.begin() + 3),
                UnorderedElementsAre(prefix + " Hash A2000000000000000000000000000010",
                                     prefix + " Hash A1000000000000000000000000000010"));
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 3, lines.end()), CacheLines(1, 1, 2, 2));
}

struct LoadOrderCase {
    const char* name;
    std::vector<const char*> loads;   // fixture names, in load order
    std::vector<Hash128> sharedList;  // item hashes listed for the shared method
};

class MethodListOrder : public testing::TestWithParam<LoadOrderCase> {};

TEST_P(MethodListOrder, FollowsTheOrderInWhichItemsWereAdded) {
    LoggedHandling handling;
    std::map<std::string, LoadedLibrary> libraries;
    for (const char* name : GetParam().loads) {
        const auto& library = libraries.try_emplace(name, name).first->second;
        handling.Object().ProcessLibraryMetadata(library.Handle());
        ExpectListsNonEmptyAndRegistered(handling.Inspect());
    }
    EXPECT_EQ(ListedItemHashes(handling.Inspect(), kMethodShared), GetParam().sharedList);
}

INSTANTIATE_TEST_SUITE_P(
    Loads, MethodListOrder,
    testing::Values(LoadOrderCase{"AThenB", {"fixture_a", "fixture_b"}, {kItemA1, kItemB1}},
                    LoadOrderCase{"BThenA", {"fixture_b", "fixture_a"}, {kItemB1, kItemA1}},
                    // The replaced item leaves its place; its successor is appended.
                    LoadOrderCase{"AThenBThenAAgain",
                                  {"fixture_a", "fixture_b", "fixture_a"},
                                  {kItemB1, kItemA1}}),
    [](const testing::TestParamInfo<LoadOrderCase>& info) { return std::string(info.param.name); });

class SharedMethodUnload : public LibrariesAAndB, public testing::WithParamInterface<bool> {};

// Shared is method 0 of both A1 and B1: unloading one library leaves the other's item in the
// list and in the method cache; unloading both erases the key.
TEST_P(SharedMethodUnload, LeavesTheOtherItemThenErasesTheKey) {
    LoadBoth();
    ASSERT_EQ(ListedItemHashes(inspect, kMethodShared), (std::vector<Hash128>{kItemA1, kItemB1}));

    const bool aFirst = GetParam();
    object.UnloadLibraryMetadata(aFirst ? a.Handle() : b.Handle());

    QuarnDebugMetadata* remaining = ItemWithHash(inspect, aFirst ? kItemB1 : kItemA1);
    ASSERT_NE(remaining, nullptr);
    EXPECT_THAT(ItemsListedFor(inspect, kMethodShared), ElementsAre(remaining));
    EXPECT_EQ(inspect.HashToMetadata().at(kMethodShared), std::make_pair(remaining, 0));
    ExpectListsNonEmptyAndRegistered(inspect);

    object.UnloadLibraryMetadata(aFirst ? b.Handle() : a.Handle());

    EXPECT_THAT(inspect.MetadataItems(), IsEmpty());
    EXPECT_THAT(inspect.HashToMetadataList(), IsEmpty());
    EXPECT_THAT(inspect.HashToMetadata(), IsEmpty());
    EXPECT_THAT(inspect.FileNames(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Orders, SharedMethodUnload, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& info) {
                             return std::string(info.param ? "AFirst" : "BFirst");
                         });

using Clear = LibrariesAAndB;

TEST_F(Clear, EmptiesEverythingButTheBreakpointsAndRequestsNoFlush) {
    LoadBoth();
    RegisterCallbackEntry(object, a.Handle(), kItemA1);
    RegisterCallbackEntry(object, b.Handle(), kItemB1);
    int breakpoint = 0;
    inspect.AddBreakpointKey(kItemA1, &breakpoint);
    handling.MarkLog();
    ResetCounters();

    object.ClearLibraryMetadata();

    EXPECT_THAT(inspect.MetadataItems(), IsEmpty());
    EXPECT_THAT(inspect.EntryPoints(), IsEmpty());
    EXPECT_THAT(inspect.HashToMetadataList(), IsEmpty());
    EXPECT_THAT(inspect.FileNames(), IsEmpty());
    EXPECT_THAT(inspect.HashToMetadata(), IsEmpty());
    ASSERT_EQ(inspect.BreakpointMap().size(), 1u);
    EXPECT_THAT(inspect.BreakpointMap().at(kItemA1), ElementsAre(&breakpoint));
    Hash128 entryHash = kItemA1;
    EXPECT_EQ(object.TestFetchEntryPointCountForHash(&entryHash), 0u);
    EXPECT_EQ(handling.LinesSinceMark(),
              Concatenated({"ClearLibraryMetadata"}, CacheLines(0, 0, 0, 0)));
    EXPECT_EQ(FlushCalls(), 0);

    // The cleared items are forgotten entirely: loading the same library again starts afresh.
    object.ProcessLibraryMetadata(a.Handle());
    EXPECT_THAT(ItemHashes(inspect), UnorderedElementsAre(kItemA1, kItemA2));
    EXPECT_THAT(ListedItemHashes(inspect, kMethodShared), ElementsAre(kItemA1));
}

TEST(Unload, OfAnUnknownHandleOnlyLogsAndRebuildsTheCaches) {
    LoggedHandling handling;
    LoadedLibrary a("fixture_a");
    handling.Object().ProcessLibraryMetadata(a.Handle());
    const auto itemsBefore = handling.Inspect().MetadataItems();
    handling.MarkLog();
    ResetCounters();

    void* unknown = reinterpret_cast<void*>(uintptr_t{12345});
    handling.Object().UnloadLibraryMetadata(unknown);

    EXPECT_EQ(handling.Inspect().MetadataItems(), itemsBefore);
    EXPECT_EQ(handling.LinesSinceMark(),
              Concatenated({"UnloadLibraryMetadata : 12345"}, CacheLines(3, 3, 3, 3)));
    EXPECT_EQ(FlushCalls(), 0);
}

TEST(Unload, ThenReloadRegistersTheItemsAgain) {
    LoggedHandling handling;
    LoadedLibrary a("fixture_a");
    handling.Object().ProcessLibraryMetadata(a.Handle());
    handling.Object().UnloadLibraryMetadata(a.Handle());
    ASSERT_THAT(handling.Inspect().MetadataItems(), IsEmpty());

    handling.Object().ProcessLibraryMetadata(a.Handle());

    EXPECT_THAT(ItemHashes(handling.Inspect()), UnorderedElementsAre(kItemA1, kItemA2));
    EXPECT_THAT(ListedItemHashes(handling.Inspect(), kMethodA2Only), ElementsAre(kItemA2));
}

using UnloadWithEntryPoints = LibrariesAAndB;

TEST_F(UnloadWithEntryPoints, LeavesThoseOfOtherLibrariesAndDoesNotSwitchBack) {
    object.ProcessLibraryMetadata(a.Handle());
    JumpStubs stubs;
    void* stubOfA = stubs.MakeNative(0);
    void* stubOfB = stubs.MakeNative(1);
    int breakpoint = 0;
    inspect.AddBreakpointKey(kItemA1, &breakpoint);
    object.RegisterEntryPoint(a.Handle(), kItemA1, reinterpret_cast<void*>(&NativeCode), stubOfA,
                              nullptr, nullptr);
    object.RegisterEntryPoint(b.Handle(), kItemA1, reinterpret_cast<void*>(&NativeCode), stubOfB,
                              nullptr, nullptr);
    ASSERT_EQ(JumpStubs::Call(stubOfA), Landing::Managed);

    object.UnloadLibraryMetadata(a.Handle());

    ASSERT_EQ(inspect.EntryPoints().count(kItemA1), 1u);
    ASSERT_EQ(inspect.EntryPoints().at(kItemA1).size(), 1u);
    EXPECT_EQ(inspect.EntryPoints().at(kItemA1)[0].stub, stubOfB);
    EXPECT_EQ(JumpStubs::Call(stubOfA), Landing::Managed);
    EXPECT_EQ(JumpStubs::Call(stubOfB), Landing::Managed);
    EXPECT_EQ(inspect.BreakpointMap().count(kItemA1), 1u);
}

TEST(Load, WithEveryItemSkippedRebuildsTheCachesButRequestsNoFlush) {
    LoggedHandling handling;
    RecordingLibrary library;
    ItemTables tables({0x9, 9}, {"src/Empty.cs"}, {{0x9, 1}});
    LibraryTables description({tables.Item()});
    description.items[0].fileCount = 0;
    library.Describe(description.description);
    handling.MarkLog();

    handling.Object().ProcessLibraryMetadata(library.Handle());

    EXPECT_EQ(handling.LinesSinceMark(),
              Concatenated({"ProcessLibraryMetadata : " + PointerText(library.Handle())},
                           CacheLines(0, 0, 0, 0)));
    EXPECT_EQ(FlushCalls(), 0);
    EXPECT_THAT(handling.Inspect().MetadataItems(), IsEmpty());
}

TEST(Load, WithoutAFlushFunctionStillLogsTheRequest) {
    LoggedHandling handling;
    handling.Object().Callbacks()->flushClientKnowledge = nullptr;
    LoadedLibrary b("fixture_b");
    handling.MarkLog();

    handling.Object().ProcessLibraryMetadata(b.Handle());

    EXPECT_EQ(handling.LinesSinceMarkStartingWith("RequestFlush"),
              std::vector<std::string>{"RequestFlushClientDebuggerKnowledge"});
    EXPECT_EQ(FlushCalls(), 0);
}

}  // namespace
}  // namespace testing_support
