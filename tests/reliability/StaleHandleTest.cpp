// Method handles that outlive their item. A dropped item's record must stay allocated while a
// handle of the current method list can point at it: freed at once, its address would go to the
// next record allocated (the new item of a reload), and the old handle would pass every check and
// read the new record with its old method index. This binary replaces the global allocation
// functions to see exactly which records are freed, and when.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <set>
#include <utility>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"

namespace {
// Addresses given to operator delete while recording (single-threaded; fixed storage so that
// recording allocates nothing).
void* gFreed[4096];
size_t gFreedCount = 0;
bool gRecording = false;
}  // namespace

void* operator new(std::size_t size) {
    if (void* memory = std::malloc(size == 0 ? 1 : size))
        return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* memory) noexcept {
    if (gRecording && memory != nullptr && gFreedCount < std::size(gFreed))
        gFreed[gFreedCount++] = memory;
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    operator delete(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace {

using namespace testing_support;

std::set<const void*> FreedDuring(const std::function<void()>& run) {
    gRecording = true;
    run();
    gRecording = false;
    EXPECT_LT(gFreedCount, std::size(gFreed)) << "more frees than recorded";
    return std::set<const void*>(gFreed, gFreed + std::exchange(gFreedCount, 0));
}

TEST(StaleHandles, OldHandlesAreRejectedAfterEveryReloadAndTheirRecordsOutliveTheirList) {
    LoadedLibrary fixtureA("fixture_a"), rebuilt("fixture_a_rebuilt");
    MonoDebuggerHandling handling("");
    MonoDebuggerHandlingInspector inspector(handling);
    InstallWriters(handling.Callbacks());
    handling.ProcessLibraryMetadata(fixtureA.Handle());
    const auto methodList = [&] {
        ReplyBuffer list;
        handling.QuarnFetchMethods(&list, nullptr, 0, 0, 0, 0);
        return list.Methods();
    };
    // How many (handle, query) pairs are accepted: two hooks and the method info token.
    const auto accepted = [&](const std::vector<void*>& handles) {
        int count = 0;
        for (void* handle : handles) {
            Hash128 hash{};
            count += handling.TestFetchEntryPointHash(handle, &hash) +
                     handling.TestFetchMethodHash(handle, &hash);
            ReplyBuffer info;
            handling.QuarnFetchMethodInfo(&info, handle, 1, 2, 60);
            count += info.replies.at(2).value != 0;
        }
        return count;
    };
    // Ways a host drops fixture_a's items and registers new records with the same hashes: load
    // again, unload first, clear first, or take item A1 from another library first.
    for (int way = 0; way < 4; ++way) {
        for (int round = 0; round < 25; ++round) {
            SCOPED_TRACE(testing::Message() << "way " << way << " round " << round);
            const std::vector<void*> handles = methodList();
            ASSERT_EQ(accepted(handles), 3 * int(handles.size()));
            std::set<const void*> records;  // entry blocks are never freed, so they can be read
            for (void* h : handles)
                records.insert(static_cast<MethodCacheEntry*>(h)->metadata);
            const std::set<const void*> freed = FreedDuring([&] {
                if (way == 1)
                    handling.UnloadLibraryMetadata(fixtureA.Handle());
                if (way == 2)
                    handling.ClearLibraryMetadata();
                if (way == 3)
                    handling.ProcessLibraryMetadata(rebuilt.Handle());
                handling.ProcessLibraryMetadata(fixtureA.Handle());
                EXPECT_EQ(accepted(handles), 0);
            });
            for (const void* record : records)
                EXPECT_FALSE(freed.contains(record));
            for (const void* item : inspector.MetadataItems())
                EXPECT_FALSE(records.contains(item));
            EXPECT_EQ(inspector.RetiredItemCount(), 2u);  // the old A1 and A2 the list named
            char breakpoint = 0;  // a breakpoint through an old handle changes nothing
            for (void* handle : handles)
                handling.QuarnBreakpointNotify(1, handle, 0, &breakpoint);
            EXPECT_TRUE(inspector.BreakpointMethods().empty() && inspector.BreakpointMap().empty());
            // The next list makes the old handles unreachable; only then are the records freed.
            std::vector<void*> next;
            const std::set<const void*> freedByList = FreedDuring([&] { next = methodList(); });
            for (const void* record : records)
                EXPECT_TRUE(freedByList.contains(record));
            EXPECT_EQ(inspector.RetiredItemCount(), 0u);
            EXPECT_EQ(accepted(handles), 0);
            EXPECT_EQ(accepted(next), 3 * int(next.size()));
        }
    }
}

}  // namespace
