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
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"

namespace {
// Addresses given to operator delete while recording (single-threaded use; fixed storage so
// that recording allocates nothing).
void* gFreed[4096];
size_t gFreedCount = 0;
bool gRecording = false;
std::set<const void*> TakeFreed() {
    EXPECT_LT(gFreedCount, std::size(gFreed)) << "more frees than recorded";
    std::set<const void*> freed(gFreed, gFreed + gFreedCount);
    gFreedCount = 0;
    return freed;
}
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
using Handling = MonoDebuggerHandling;

// Ways a host drops the items of fixture_a and registers new records with the same hashes.
struct DropAndReload {
    const char* name;
    std::function<void(Handling&, void* fixtureA, void* rebuilt)> run;
    size_t droppedRecords;
};
const DropAndReload kWays[] = {
    {"load again", [](Handling& h, void* a, void*) { h.ProcessLibraryMetadata(a); }, 2},
    {"unload, load",
     [](Handling& h, void* a, void*) { h.UnloadLibraryMetadata(a), h.ProcessLibraryMetadata(a); },
     2},
    {"clear, load",
     [](Handling& h, void* a, void*) { h.ClearLibraryMetadata(), h.ProcessLibraryMetadata(a); }, 2},
    // item A1 again from another library first
    {"replace, load",
     [](Handling& h, void* a, void* r) {
         h.ProcessLibraryMetadata(r), h.ProcessLibraryMetadata(a);
     },
     3},
};

class StaleHandles : public ::testing::Test {
  protected:
    StaleHandles() {
        InstallWriters(handling.Callbacks());
        handling.ProcessLibraryMetadata(fixtureA.Handle());
    }
    std::vector<void*> MethodList() {
        ReplyBuffer list;
        handling.QuarnFetchMethods(&list, nullptr, 0, 0, 0, 0);
        return list.Methods();
    }
    // How many (handle, query) pairs are accepted: two hooks and the method info token.
    int Accepted(const std::vector<void*>& handles) {
        int accepted = 0;
        for (void* handle : handles) {
            Hash128 hash{};
            accepted += handling.TestFetchEntryPointHash(handle, &hash) +
                        handling.TestFetchMethodHash(handle, &hash);
            ReplyBuffer info;
            handling.QuarnFetchMethodInfo(&info, handle, 1, 2, 60);
            accepted += info.replies.at(2).value != 0;
        }
        return accepted;
    }
    LoadedLibrary fixtureA{"fixture_a"}, rebuilt{"fixture_a_rebuilt"};
    Handling handling{""};
    MonoDebuggerHandlingInspector inspector{handling};
};

TEST_F(StaleHandles, OldHandlesAreRejectedAfterEveryReloadAndTheirRecordsOutliveTheirList) {
    for (const DropAndReload& way : kWays) {
        SCOPED_TRACE(way.name);
        for (int round = 0; round < 25; ++round) {
            SCOPED_TRACE(round);
            const std::vector<void*> handles = MethodList();
            ASSERT_EQ(Accepted(handles), 3 * int(handles.size()));
            std::set<const void*> records;  // entry blocks are never freed, so they can be read
            for (void* h : handles)
                records.insert(static_cast<MethodCacheEntry*>(h)->metadata);
            gRecording = true;
            way.run(handling, fixtureA.Handle(), rebuilt.Handle());
            EXPECT_EQ(Accepted(handles), 0);
            gRecording = false;
            std::set<const void*> freed = TakeFreed();
            for (const void* record : records)
                EXPECT_FALSE(freed.contains(record));
            for (const void* item : inspector.MetadataItems())
                EXPECT_FALSE(records.contains(item)) << "address reused";
            EXPECT_EQ(inspector.RetiredItemCount(), way.droppedRecords);
            // The next list makes the old handles unreachable; only then are the records freed.
            gRecording = true;
            const std::vector<void*> next = MethodList();
            gRecording = false;
            freed = TakeFreed();
            for (const void* record : records)
                EXPECT_TRUE(freed.contains(record));
            EXPECT_EQ(inspector.RetiredItemCount(), 0u);
            EXPECT_EQ(Accepted(handles), 0);
            EXPECT_EQ(Accepted(next), 3 * int(next.size()));
        }
    }
}

TEST_F(StaleHandles, ABreakpointWithAnOldHandleChangesNothing) {
    const std::vector<void*> handles = MethodList();
    handling.ProcessLibraryMetadata(fixtureA.Handle());
    char breakpoint = 0;
    for (void* handle : handles)
        handling.QuarnBreakpointNotify(1, handle, 0, &breakpoint);
    EXPECT_TRUE(inspector.BreakpointMethods().empty());
    EXPECT_TRUE(inspector.BreakpointMap().empty());
}

}  // namespace
