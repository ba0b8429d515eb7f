// Hashes, reading compiled libraries, the registry of their items and the caches over it.
#include <gmock/gmock.h>

#include <algorithm>

#include "support/JumpStubs.h"
#include "support/LoggedHandling.h"

namespace {
using namespace testing_support;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

TEST(Hash128, PrintsItsBytesInMemoryOrderAndHashesAsWord0Times397XorWord1) {
    // 2^63 * 397 wraps to 2^63 (397 is odd); 2^64 - 1 times 397 wraps to -397.
    const std::tuple<Hash128, const char*, size_t> rows[] = {
        {{1, 0}, "01000000000000000000000000000000", 397},
        {{0, 0xAB00000000000000ull}, "000000000000000000000000000000AB", 0xAB00000000000000ull},
        {{0x8000000000000000ull, 0}, "00000000000000800000000000000000", 0x8000000000000000ull},
        {{0xFFFFFFFFFFFFFFFFull, 1}, "FFFFFFFFFFFFFFFF0100000000000000", (0ull - 397) ^ 1}};
    for (const auto& [hash, text, hashed] : rows) {
        EXPECT_EQ(hash.ToString(), text);
        EXPECT_EQ(std::hash<Hash128>{}(hash), hashed) << text;
    }
}

class Metadata : public testing::Test, public LoggedHandling {
  protected:
    Metadata() {
        ResetCounters();
        InstallShutdownAndFlush(object.Callbacks());
    }
    std::vector<Hash128> Items() {
        std::vector<Hash128> hashes;
        for (const QuarnDebugMetadata* item : inspect.MetadataItems())
            hashes.push_back(item->hash);
        return hashes;
    }

    LoadedLibrary a{"fixture_a"};  // items A1 {Shared.cs, A1.cs} and A2
    LoadedLibrary b{"fixture_b"};  // item B1 {Shared.cs, B1.cs}; A1 and B1 hold method Shared
};

TEST_F(Metadata, ReloadReplacesEveryItemAndFlushesWhileARejectedHeaderChangesNothing) {
    for (int load = 1; load <= 3; ++load) {
        MarkLog();
        object.ProcessLibraryMetadata(a.Handle());
        EXPECT_THAT(Items(), UnorderedElementsAre(kItemA1, kItemA2));
        EXPECT_THAT(LinesSinceMark(),
                    ElementsAre("ProcessLibraryMetadata : " + PointerText(a.Handle()),
                                "FilesCached : 3 vs 3", "MethodsCached : 3 vs 3",
                                "RequestFlushClientDebuggerKnowledge"));
        EXPECT_EQ(FlushCalls(), load);
    }
    for (const char* name : {"fixture_bad_version", "fixture_zero_count", "fixture_negative_count",
                             "fixture_no_query"}) {
        LoadedLibrary rejected(name);
        MarkLog();
        object.ProcessLibraryMetadata(rejected.Handle());
        EXPECT_THAT(Items(), UnorderedElementsAre(kItemA1, kItemA2)) << name;
        EXPECT_THAT(LinesSinceMark(),
                    ElementsAre("ProcessLibraryMetadata : " + PointerText(rejected.Handle())));
    }
    EXPECT_EQ(FlushCalls(), 3);
}

TEST_F(Metadata, ASkippedItemIsAskedOnlyItsCountsAndDoesNotEndTheLoop) {
    LoadedLibrary library("fixture_skip");
    object.ProcessLibraryMetadata(library.Handle());
    std::vector<unsigned> expected{0x000, 0x001};  // queries as item << 8 | field
    for (unsigned item = 1; item <= 3; ++item) {
        for (unsigned field = 0; field < (item == 2 ? 3u : 12u); ++field) {
            expected.push_back(item << 8 | field);
        }
    }
    const auto* log = library.Symbol<fixture_query_log>("fixture_queries");
    EXPECT_EQ(std::vector<unsigned>(log->queries, log->queries + log->count), expected);
}

// Any zero count skips an item, and a load adding nothing requests no flush; only the low 32 bits
// of the header words count; the flush request is logged even without a flush function.
TEST_F(Metadata, ReadingSkipsZeroCountsAndCopiesTheItemHash) {
    LoadedLibrary library("fixture_programmable_0");
    const quarn_method_debug_info info[2] = {};
    const quarn_hash128 methods[] = {{0xC0DE, 1}, {0xC0DE, 1}};
    quarn_debug_item item{2, 1, 1, 0, info, 0, nullptr, 0, {1, 2}, methods, 0, 0};
    const quarn_debug_library description{0x500020000ull, 0x100000001ull, &item};
    library.Symbol<void(const quarn_debug_library*)>("programmable_set_library")(&description);
    for (int32_t* count : {&item.methodCount, &item.fileCount, &item.auxCount}) {
        const int32_t kept = std::exchange(*count, 0);
        object.ProcessLibraryMetadata(library.Handle());
        *count = kept;
    }
    EXPECT_EQ(FlushCalls(), 0);
    object.Callbacks()->flushClientKnowledge = nullptr;
    object.ProcessLibraryMetadata(library.Handle());
    EXPECT_EQ(LinesSinceMark().back(), "RequestFlushClientDebuggerKnowledge");
    item.hash = {3, 4};  // field 8 answers the address of these bytes: they were copied
    EXPECT_THAT(Items(), ElementsAre(Hash128{1, 2}));
    EXPECT_EQ(inspect.HashToMetadata().at(Hash128{0xC0DE, 1}).second, 0);  // first index wins
    EXPECT_THAT(inspect.FileNames(), ElementsAre(""));                     // no string table
}

// Unload does not switch stubs back; clear keeps only the breakpoints and requests no flush.
TEST_F(Metadata, LastLoadedItemWinsAndUnloadDropsOnlyTheEntryPointsOfItsLibrary) {
    LoadedLibrary rebuilt("fixture_a_rebuilt");  // A1 again: methods A1Only and Rebuilt
    void* const native = reinterpret_cast<void*>(&NativeCode);
    JumpStubs stubs;
    void* stubOfA = stubs.MakeNative(0);
    int breakpoint = 0;
    inspect.AddBreakpointKey(kItemA1, &breakpoint);
    object.ProcessLibraryMetadata(a.Handle());
    object.RegisterEntryPoint(a.Handle(), kItemA1, native, stubOfA, nullptr, nullptr);
    object.RegisterEntryPoint(a.Handle(), kItemA2, native, stubs.MakeNative(1), nullptr, nullptr);
    object.ProcessLibraryMetadata(rebuilt.Handle());
    object.RegisterEntryPoint(rebuilt.Handle(), kItemA1, native, stubs.MakeNative(2), 0, 0);
    MarkLog();

    object.UnloadLibraryMetadata(a.Handle());
    EXPECT_EQ(JumpStubs::Call(stubOfA), Landing::Managed);
    const std::string dropped = "  Unregistering Entry Point : " + PointerText(a.Handle());
    std::vector<std::string> lines = LinesSinceMark();
    ASSERT_EQ(lines.size(), 5u);
    std::sort(lines.begin() + 1, lines.begin() + 3);  // walked in the map's own order
    EXPECT_THAT(lines, ElementsAre("UnloadLibraryMetadata : " + PointerText(a.Handle()),
                                   dropped + " Hash A1000000000000000000000000000010",
                                   dropped + " Hash A2000000000000000000000000000010",
                                   "FilesCached : 1 vs 1", "MethodsCached : 2 vs 2"));

    MarkLog();
    ResetCounters();
    object.ClearLibraryMetadata();
    EXPECT_TRUE(inspect.MetadataItems().empty() && inspect.EntryPoints().empty());
    EXPECT_THAT(inspect.BreakpointMap().at(kItemA1), ElementsAre(&breakpoint));
    EXPECT_THAT(LinesSinceMark(), ElementsAre("ClearLibraryMetadata", "FilesCached : 0 vs 0",
                                              "MethodsCached : 0 vs 0"));
    EXPECT_EQ(FlushCalls(), 0);
}

}  // namespace
