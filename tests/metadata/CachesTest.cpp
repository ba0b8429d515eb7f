// The deduplicated file and method caches, rebuilt after every registry change.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LibrariesAAndB.h"
#include "LoggedHandling.h"
#include "RecordingLibrary.h"

namespace testing_support {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> FileNameTexts(const MonoDebuggerHandlingInspector& inspect) {
    return {inspect.FileNames().begin(), inspect.FileNames().end()};
}

std::vector<Hash128> MethodKeys(const MonoDebuggerHandlingInspector& inspect) {
    std::vector<Hash128> keys;
    for (const auto& [hash, location] : inspect.HashToMetadata()) {
        keys.push_back(hash);
    }
    return keys;
}

// Every method cache value names a registered item and the index of its key in that item.
void ExpectMethodLocationsValid(const MonoDebuggerHandlingInspector& inspect) {
    for (const auto& [hash, location] : inspect.HashToMetadata()) {
        const auto [item, index] = location;
        ASSERT_TRUE(inspect.MetadataItems().contains(item)) << hash.ToString();
        ASSERT_GE(index, 0);
        ASSERT_LT(index, item->methodCount);
        EXPECT_EQ(item->methodHashes[index], hash);
    }
}

// The view kept for `name` in fileNames (fails the test when there is none).
const char* KeptView(const MonoDebuggerHandlingInspector& inspect, std::string_view name) {
    const auto found = inspect.FileNames().find(name);
    EXPECT_NE(found, inspect.FileNames().end()) << name;
    return found == inspect.FileNames().end() ? nullptr : found->data();
}

using Caches = LibrariesAAndB;

TEST_F(Caches, FollowEveryLoadUnloadAndClearWithTheirVsLines) {
    // The cache lines a change writes, in log order.
    auto cacheLinesOf = [&](auto&& change) {
        handling.MarkLog();
        change();
        ExpectMethodLocationsValid(inspect);
        std::vector<std::string> lines = handling.LinesSinceMark();
        std::erase_if(lines, [](const std::string& line) {
            return !line.starts_with("FilesCached : ") && !line.starts_with("MethodsCached : ");
        });
        return lines;
    };

    EXPECT_EQ(cacheLinesOf([&] { object.ProcessLibraryMetadata(a.Handle()); }),
              CacheLines(3, 3, 3, 3));
    EXPECT_THAT(FileNameTexts(inspect),
                UnorderedElementsAre(FIXTURE_SHARED_PATH, FIXTURE_A1_PATH, FIXTURE_A2_PATH));
    EXPECT_THAT(MethodKeys(inspect),
                UnorderedElementsAre(kMethodShared, kMethodA1Only, kMethodA2Only));

    // B1 names the shared file and holds the shared method: each counts twice in the totals.
    EXPECT_EQ(cacheLinesOf([&] { object.ProcessLibraryMetadata(b.Handle()); }),
              CacheLines(5, 4, 5, 4));
    EXPECT_THAT(FileNameTexts(inspect), UnorderedElementsAre(FIXTURE_SHARED_PATH, FIXTURE_A1_PATH,
                                                             FIXTURE_A2_PATH, FIXTURE_B1_PATH));
    EXPECT_THAT(MethodKeys(inspect),
                UnorderedElementsAre(kMethodShared, kMethodA1Only, kMethodA2Only, kMethodB1Only));

    // What only A's items had goes; the shared file and method stay, now B1's.
    EXPECT_EQ(cacheLinesOf([&] { object.UnloadLibraryMetadata(a.Handle()); }),
              CacheLines(2, 2, 2, 2));
    EXPECT_THAT(FileNameTexts(inspect), UnorderedElementsAre(FIXTURE_SHARED_PATH, FIXTURE_B1_PATH));
    EXPECT_THAT(MethodKeys(inspect), UnorderedElementsAre(kMethodShared, kMethodB1Only));
    EXPECT_EQ(inspect.HashToMetadata().at(kMethodShared).first, ItemWithHash(inspect, kItemB1));

    EXPECT_EQ(cacheLinesOf([&] { object.ClearLibraryMetadata(); }), CacheLines(0, 0, 0, 0));
    EXPECT_THAT(inspect.FileNames(), IsEmpty());
    EXPECT_THAT(inspect.HashToMetadata(), IsEmpty());
}

// The base address of the shared object that holds `address`.
const void* ObjectBaseOf(const void* address) {
    Dl_info info{};
    return dladdr(address, &info) != 0 ? info.dli_fbase : nullptr;
}

TEST_F(Caches, FileNamesAreViewsIntoTheLibrariesStringTables) {
    LoadBoth();
    const void* baseOfA = ObjectBaseOf(a.Symbol<void>("quarn.debug_query"));
    const void* baseOfB = ObjectBaseOf(b.Symbol<void>("quarn.debug_query"));
    ASSERT_NE(baseOfA, nullptr);
    ASSERT_NE(baseOfB, nullptr);

    ASSERT_EQ(inspect.FileNames().size(), 4u);
    for (std::string_view name : inspect.FileNames()) {
        EXPECT_THAT(ObjectBaseOf(name.data()), testing::AnyOf(baseOfA, baseOfB)) << name;
    }
    EXPECT_EQ(ObjectBaseOf(KeptView(inspect, FIXTURE_A2_PATH)), baseOfA);
    EXPECT_EQ(ObjectBaseOf(KeptView(inspect, FIXTURE_B1_PATH)), baseOfB);
}

TEST_F(Caches, TheFirstItemInIterationOrderWinsForSharedMethodsAndFiles) {
    LoadBoth();

    // A1 and B1 both hold the shared method (index 0) and the shared file (file 0).
    const QuarnDebugMetadata* first = nullptr;
    for (const QuarnDebugMetadata* item : inspect.MetadataItems()) {
        if (item->hash == kItemA1 || item->hash == kItemB1) {
            first = item;
            break;
        }
    }
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(inspect.HashToMetadata().at(kMethodShared),
              std::make_pair(const_cast<QuarnDebugMetadata*>(first), 0));
    EXPECT_EQ(KeptView(inspect, FIXTURE_SHARED_PATH), first->FileName(0));
}

TEST(CachesOfOneItem, KeepNamesThatDifferOnlyByCaseAndTheFirstOfRepeatedNamesAndHashes) {
    LoggedHandling handling;
    RecordingLibrary library;
    const quarn_hash128 repeated{0xAA, 1};
    const quarn_hash128 single{0xBB, 1};
    ItemTables tables({0xCA5E, 1}, {"src/Case.cs", "src/case.cs", "src/Case.cs", "SRC/CASE.CS"},
                      {repeated, single, repeated});
    LibraryTables description({tables.Item()});
    library.Describe(description.description);
    handling.MarkLog();

    handling.Object().ProcessLibraryMetadata(library.Handle());

    const auto& inspect = handling.Inspect();
    EXPECT_EQ(handling.LinesSinceMarkStartingWith("FilesCached"),
              std::vector<std::string>{"FilesCached : 4 vs 3"});
    EXPECT_EQ(handling.LinesSinceMarkStartingWith("MethodsCached"),
              std::vector<std::string>{"MethodsCached : 3 vs 2"});
    EXPECT_THAT(FileNameTexts(inspect),
                UnorderedElementsAre("src/Case.cs", "src/case.cs", "SRC/CASE.CS"));
    EXPECT_EQ(KeptView(inspect, "src/Case.cs"), tables.Name(0));

    QuarnDebugMetadata* item = *inspect.MetadataItems().begin();
    EXPECT_EQ(inspect.HashToMetadata().at(ToHash(repeated)), std::make_pair(item, 0));
    EXPECT_EQ(inspect.HashToMetadata().at(ToHash(single)), std::make_pair(item, 1));
    // The index lists the item once per occurrence of the hash.
    EXPECT_THAT(ItemsListedFor(inspect, ToHash(repeated)), ElementsAre(item, item));

    handling.Object().UnloadLibraryMetadata(library.Handle());
    EXPECT_THAT(inspect.HashToMetadataList(), IsEmpty());
}

TEST(CachesOfOneItem, AnItemWithoutAStringTableContributesTheEmptyName) {
    LoggedHandling handling;
    RecordingLibrary library;
    ItemTables tables({0x0, 0}, {"ignored.cs", "ignored.cs"}, {{0x1, 0}});
    LibraryTables description({tables.Item()});
    description.items[0].stringTable = nullptr;
    library.Describe(description.description);
    handling.MarkLog();

    handling.Object().ProcessLibraryMetadata(library.Handle());

    EXPECT_THAT(FileNameTexts(handling.Inspect()), ElementsAre(""));
    EXPECT_EQ(handling.LinesSinceMarkStartingWith("FilesCached"),
              std::vector<std::string>{"FilesCached : 2 vs 1"});
}

}  // namespace
}  // namespace testing_support
