// Method handles that outlive their item. A dropped item's record must stay allocated while a
// handle of the current method list can point at it: freed at once, its address would go to the
// next record allocated (the new item of a reload), and the old handle would pass every check and
// read the new record with its old method index. This binary replaces the global allocation
// functions to see exactly which records are freed, and when.

#include <functional>
#include <set>

#include "support/ReplacedAllocator.h"
#include "support/Session.h"

namespace {

using namespace testing_support;

// Addresses freed while `run` runs (single-threaded; fixed storage, so recording allocates
// nothing).
void* gFreed[4096];
size_t gFreedCount = 0;
std::set<const void*> FreedDuring(const std::function<void()>& run) {
    gOnFree = [](void* memory) { gFreed[gFreedCount++ % std::size(gFreed)] = memory; };
    run();
    gOnFree = nullptr;
    EXPECT_LT(gFreedCount, std::size(gFreed)) << "more frees than recorded";
    return std::set<const void*>(
        gFreed, gFreed + std::min(std::exchange(gFreedCount, 0), std::size(gFreed)));
}

TEST(StaleHandles, OldHandlesAreRejectedAfterEveryReloadAndTheirRecordsOutliveTheirList) {
    DebuggerSession session;
    void* fixtureA = session.Load("fixture_a");
    LoadedLibrary rebuilt("fixture_a_rebuilt");
    MonoDebuggerHandling& handling = session.object;
    // How many (handle, query) pairs are accepted: two hooks and the method info token.
    const auto accepted = [&](const std::vector<void*>& handles) {
        int count = 0;
        for (void* handle : handles) {
            Hash128 hash{};
            count += handling.TestFetchEntryPointHash(handle, &hash) +
                     handling.TestFetchMethodHash(handle, &hash);
            count += session.Ask(&mdh_callbacks::fetchMethodInfo, handle, {1, 2, 60}) !=
                     "129 0 0 x00 #0 0";
        }
        return count;
    };
    // Ways a host drops fixture_a's items and registers new records with the same hashes: load
    // again, unload first, clear first, or take item A1 from another library first.
    for (int way = 0; way < 4; ++way) {
        for (int round = 0; round < 25; ++round) {
            SCOPED_TRACE(testing::Message() << "way " << way << " round " << round);
            const std::vector<void*> handles = session.FetchMethods();
            ASSERT_EQ(accepted(handles), 3 * int(handles.size()));
            std::set<const void*> records;  // entry blocks are never freed, so they can be read
            for (void* h : handles)
                records.insert(static_cast<MethodCacheEntry*>(h)->metadata);
            const std::set<const void*> freed = FreedDuring([&] {
                if (way == 1)
                    handling.UnloadLibraryMetadata(fixtureA);
                if (way == 2)
                    handling.ClearLibraryMetadata();
                if (way == 3)
                    handling.ProcessLibraryMetadata(rebuilt.Handle());
                handling.ProcessLibraryMetadata(fixtureA);
                EXPECT_EQ(accepted(handles), 0);
            });
            for (const void* record : records)
                EXPECT_FALSE(freed.contains(record));
            for (const void* item : session.Inspect().MetadataItems())
                EXPECT_FALSE(records.contains(item));
            EXPECT_EQ(session.Inspect().RetiredItemCount(), 2u);  // the old A1 and A2 it named
            for (void* handle : handles)  // a breakpoint through an old handle changes nothing
                handling.QuarnBreakpointNotify(1, handle, 0, Ptr(1));
            EXPECT_TRUE(session.Inspect().BreakpointMethods().empty());
            // The next list makes the old handles unreachable; only then are the records freed.
            std::vector<void*> next;
            const std::set<const void*> freedByList =
                FreedDuring([&] { next = session.FetchMethods(); });
            for (const void* record : records)
                EXPECT_TRUE(freedByList.contains(record));
            EXPECT_EQ(session.Inspect().RetiredItemCount(), 0u);
            EXPECT_EQ(accepted(handles), 0);
            EXPECT_EQ(accepted(next), 3 * int(next.size()));
        }
    }
}

}  // namespace
