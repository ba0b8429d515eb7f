// Reading compiled libraries through their debug query function: header checks, the queries
// made per item, skipped items and the fields of the records built.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "LoggedHandling.h"
#include "RecordingLibrary.h"

namespace testing_support {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;
using testing_support::PrintTo;

std::string LoadLine(const void* library) {
    return "ProcessLibraryMetadata : " + PointerText(library);
}

// The queries of one item: its fields 0 to fieldCount - 1, in order.
void AppendItemQueries(std::vector<unsigned>& queries, unsigned item, unsigned fieldCount) {
    for (unsigned field = 0; field < fieldCount; ++field) {
        queries.push_back(Query(item, field));
    }
}

constexpr unsigned kCountFields = 3;  // methods, files, field 2: all a skipped item is asked
constexpr unsigned kAllFields = 12;

// Everything a load can change.
struct RegistrySnapshot {
    explicit RegistrySnapshot(const MonoDebuggerHandlingInspector& inspect)
        : items(inspect.MetadataItems()),
          lists(inspect.HashToMetadataList()),
          files(inspect.FileNames()),
          methods(inspect.HashToMetadata()) {}
    bool operator==(const RegistrySnapshot&) const = default;

    std::unordered_set<QuarnDebugMetadata*> items;
    std::unordered_map<Hash128, std::vector<QuarnDebugMetadata*>> lists;
    std::unordered_set<std::string_view> files;
    std::unordered_map<Hash128, std::pair<QuarnDebugMetadata*, int32_t>> methods;
};

class RejectedLibrary : public testing::TestWithParam<const char*> {};

TEST_P(RejectedLibrary, ChangesNothingAndLogsOnlyTheEntryLine) {
    LoggedHandling handling;
    LoadedLibrary accepted("fixture_a");
    LoadedLibrary rejected(GetParam());
    handling.Object().ProcessLibraryMetadata(accepted.Handle());
    const RegistrySnapshot before(handling.Inspect());
    handling.MarkLog();
    ResetCounters();

    handling.Object().ProcessLibraryMetadata(rejected.Handle());

    EXPECT_TRUE(RegistrySnapshot(handling.Inspect()) == before);
    EXPECT_EQ(handling.LinesSinceMark(), std::vector<std::string>{LoadLine(rejected.Handle())});
    EXPECT_EQ(FlushCalls(), 0);
}

INSTANTIATE_TEST_SUITE_P(Fixtures, RejectedLibrary,
                         testing::Values("fixture_bad_version", "fixture_zero_count",
                                         "fixture_negative_count", "fixture_no_query"),
                         [](const testing::TestParamInfo<const char*>& info) {
                             return std::string(info.param);
                         });

struct HeaderCase {
    const char* name;
    uint64_t version;
    uint64_t count;
    bool accepted;
};

class HeaderCheck : public testing::TestWithParam<HeaderCase> {};

// Both header queries are always made; only their low 32 bits count.
TEST_P(HeaderCheck, ReadsTheItemOnlyForVersion20000AndAPositiveCount) {
    LoggedHandling handling;
    RecordingLibrary library;
    ItemTables tables({0xC0DE, 1}, {"src/Header.cs"}, {{0xC0DE, 2}});
    LibraryTables description({tables.Item()});
    description.description.version = GetParam().version;
    description.description.itemCount = GetParam().count;
    library.Describe(description.description);

    handling.Object().ProcessLibraryMetadata(library.Handle());

    std::vector<unsigned> expectedQueries{Query(0, 0), Query(0, 1)};
    if (GetParam().accepted) {
        AppendItemQueries(expectedQueries, 1, kAllFields);
    }
    EXPECT_EQ(library.Queries(), expectedQueries);
    EXPECT_EQ(handling.Inspect().MetadataItems().size(), GetParam().accepted ? 1u : 0u);
    EXPECT_EQ(FlushCalls(), GetParam().accepted ? 1 : 0);
}

INSTANTIATE_TEST_SUITE_P(
    Values, HeaderCheck,
    testing::Values(HeaderCase{"Valid", 0x20000, 1, true},
                    HeaderCase{"VersionAbove", 0x20001, 1, false},
                    HeaderCase{"VersionOlder", 0x10000, 1, false},
                    HeaderCase{"VersionHighBitsIgnored", 0x500020000ull, 1, true},
                    HeaderCase{"CountZero", 0x20000, 0, false},
                    HeaderCase{"CountMinusOne", 0x20000, 0xFFFFFFFFull, false},
                    HeaderCase{"CountLowHalfMostNegative", 0x20000, 0x180000000ull, false},
                    HeaderCase{"CountHighBitsIgnored", 0x20000, 0x100000001ull, true}),
    [](const testing::TestParamInfo<HeaderCase>& info) { return std::string(info.param.name); });

TEST(SkippedItem, IsAskedOnlyItsCountsAndDoesNotEndTheLoop) {
    LoggedHandling handling;
    LoadedLibrary library("fixture_skip");

    handling.Object().ProcessLibraryMetadata(library.Handle());

    std::vector<unsigned> expected{Query(0, 0), Query(0, 1)};
    AppendItemQueries(expected, 1, kAllFields);
    AppendItemQueries(expected, 2, kCountFields);
    AppendItemQueries(expected, 3, kAllFields);
    EXPECT_EQ(RecordedQueries(*library.Symbol<fixture_query_log>("fixture_queries")), expected);
    EXPECT_THAT(ItemHashes(handling.Inspect()),
                UnorderedElementsAre(ToHash(quarn_hash128 FIXTURE_ITEM_SKIP1),
                                     ToHash(quarn_hash128 FIXTURE_ITEM_SKIP3)));
    EXPECT_EQ(FlushCalls(), 1);
}

const char* const kCountNames[] = {"Methods", "Files", "Field2"};

class ZeroCountItem : public testing::TestWithParam<int> {};

// An item is skipped when any of its three counts is zero, whatever the others hold.
TEST_P(ZeroCountItem, IsSkippedAndTheNextItemIsRead) {
    LoggedHandling handling;
    RecordingLibrary library;
    ItemTables skipped({0x5, 1}, {"src/Skipped.cs"}, {{0x5, 2}});
    ItemTables kept({0x6, 1}, {"src/Kept.cs"}, {{0x6, 2}});
    LibraryTables description({skipped.Item(), kept.Item()});
    quarn_debug_item& first = description.items[0];
    int32_t* counts[] = {&first.methodCount, &first.fileCount, &first.auxCount};
    *counts[GetParam()] = 0;
    library.Describe(description.description);

    handling.Object().ProcessLibraryMetadata(library.Handle());

    std::vector<unsigned> expected{Query(0, 0), Query(0, 1)};
    AppendItemQueries(expected, 1, kCountFields);
    AppendItemQueries(expected, 2, kAllFields);
    EXPECT_EQ(library.Queries(), expected);
    EXPECT_THAT(ItemHashes(handling.Inspect()), ElementsAre(Hash128{0x6, 1}));
}

INSTANTIATE_TEST_SUITE_P(Fields, ZeroCountItem, testing::Values(0, 1, 2),
                         [](const testing::TestParamInfo<int>& info) {
                             return std::string(kCountNames[info.param]);
                         });

TEST(ReadItem, StoresEachFieldInItsMemberAndCopiesTheHash) {
    LoggedHandling handling;
    RecordingLibrary library;
    ItemTables tables({0x1234, 0x5678}, {"src/One.cs", "src/Two.cs"}, {{1, 1}, {2, 2}, {3, 3}});
    LibraryTables description({tables.Item()});
    quarn_debug_item& item = description.items[0];
    item.auxCount = 7;  // three distinct counts show which field code fills which member
    library.Describe(description.description);

    handling.Object().ProcessLibraryMetadata(library.Handle());

    ASSERT_EQ(handling.Inspect().MetadataItems().size(), 1u);
    const QuarnDebugMetadata& record = **handling.Inspect().MetadataItems().begin();
    EXPECT_EQ(record.libraryHandle, library.Handle());
    EXPECT_EQ(record.methodCount, 3);
    EXPECT_EQ(record.fileCount, 2);
    EXPECT_EQ(record.auxCount, 7);
    EXPECT_EQ(static_cast<const void*>(record.methodFileIndices), item.methodFileIndices);
    EXPECT_EQ(static_cast<const void*>(record.methods), item.methods);
    EXPECT_EQ(static_cast<const void*>(record.fileNameOffsets), item.fileNameOffsets);
    EXPECT_EQ(static_cast<const void*>(record.stringTable), item.stringTable);
    EXPECT_EQ(static_cast<const void*>(record.sequencePoints), item.sequencePoints);
    EXPECT_EQ(static_cast<const void*>(record.methodHashes), item.methodHashes);
    EXPECT_EQ(static_cast<const void*>(record.fileMD5Indices), item.fileMD5Indices);
    EXPECT_EQ(static_cast<const void*>(record.md5Hashes), item.md5Hashes);
    EXPECT_EQ(record.hash, (Hash128{0x1234, 0x5678}));

    // The 16 bytes behind field 8 were copied: changing them later leaves the record alone.
    item.hash = {0xDEAD, 0xBEEF};
    EXPECT_EQ(record.hash, (Hash128{0x1234, 0x5678}));
}

TEST(ReadItem, HashOfAFixtureEqualsItsTable) {
    LoggedHandling handling;
    LoadedLibrary library("fixture_b");

    handling.Object().ProcessLibraryMetadata(library.Handle());

    const QuarnDebugMetadata* record = ItemWithHash(handling.Inspect(), kItemB1);
    ASSERT_NE(record, nullptr);
    EXPECT_EQ(record->libraryHandle, library.Handle());
    EXPECT_EQ(record->methodHashes[0], kMethodShared);
    EXPECT_EQ(record->methodHashes[1], kMethodB1Only);
    EXPECT_STREQ(record->FileName(1), FIXTURE_B1_PATH);
}

}  // namespace
}  // namespace testing_support
