// Method handles that outlive their item. A dropped item's record must stay allocated while a
// handle of the current method list can point at it: freed at once, its address would go to the
// next record allocated (the new item of a reload), and the old handle would pass every check
// and read the new record with its old method index. This binary replaces the global
// allocation functions to watch exactly which records are freed, and when.

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"

namespace {

// Every address given to operator delete while an instance is alive (single-threaded use).
class FreedAddresses {
  public:
    FreedAddresses() { active = this; }
    ~FreedAddresses() { active = nullptr; }
    FreedAddresses(const FreedAddresses&) = delete;
    FreedAddresses& operator=(const FreedAddresses&) = delete;

    static void Record(void* address) {
        if (active == nullptr || address == nullptr) {
            return;
        }
        if (active->count == active->addresses.size()) {
            active->overflowed = true;
            return;
        }
        active->addresses[active->count++] = address;
    }

    bool Contains(const void* address) const {
        EXPECT_FALSE(overflowed) << "more frees than recorded";
        for (size_t i = 0; i < count; ++i) {
            if (addresses[i] == address) {
                return true;
            }
        }
        return false;
    }

  private:
    static inline FreedAddresses* active = nullptr;
    std::array<void*, 4096> addresses{};
    size_t count = 0;
    bool overflowed = false;
};

}  // namespace

void* operator new(std::size_t size) {
    if (void* memory = std::malloc(size == 0 ? 1 : size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void operator delete(void* memory) noexcept {
    FreedAddresses::Record(memory);
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

// Ways a host drops the items of fixture_a and registers new records with the same hashes.
struct DropAndReload {
    const char* name;
    std::function<void(MonoDebuggerHandling&, void* fixtureA, void* rebuilt)> run;
    size_t droppedRecords;
};

const DropAndReload kWays[] = {
    {"load the same library again",
     [](MonoDebuggerHandling& handling, void* a, void*) { handling.ProcessLibraryMetadata(a); }, 2},
    {"unload, then load",
     [](MonoDebuggerHandling& handling, void* a, void*) {
         handling.UnloadLibraryMetadata(a);
         handling.ProcessLibraryMetadata(a);
     },
     2},
    {"clear, then load",
     [](MonoDebuggerHandling& handling, void* a, void*) {
         handling.ClearLibraryMetadata();
         handling.ProcessLibraryMetadata(a);
     },
     2},
    {"replace from another library, then load",
     [](MonoDebuggerHandling& handling, void* a, void* rebuilt) {
         handling.ProcessLibraryMetadata(rebuilt);  // item A1 again, from another library
         handling.ProcessLibraryMetadata(a);
     },
     3},
};

constexpr int kRounds = 25;

class StaleHandles : public ::testing::Test {
  protected:
    StaleHandles() {
        InstallWriters(handling.Callbacks());
        handling.ProcessLibraryMetadata(fixtureA.Handle());
    }

    std::vector<void*> FetchMethodList() {
        ReplyBuffer list;
        handling.QuarnFetchMethods(&list, nullptr, 0, 0, 0, 0);
        return list.Methods();
    }

    // How many of `handles` a query accepts (each hook and query applies the same rule).
    int AcceptedHandles(const std::vector<void*>& handles) {
        int accepted = 0;
        for (void* handle : handles) {
            Hash128 hash{};
            accepted += handling.TestFetchEntryPointHash(handle, &hash);
            accepted += handling.TestFetchMethodHash(handle, &hash);
            ReplyBuffer info;
            handling.QuarnFetchMethodInfo(&info, handle, 1, 2, 60);
            accepted += info.replies.at(2).value != 0 ? 1 : 0;  // the token; 0 when rejected
        }
        return accepted;
    }

    // Records the handles point at: MethodCacheEntry blocks are never freed, so they can be read.
    static std::set<const QuarnDebugMetadata*> RecordsBehind(const std::vector<void*>& handles) {
        std::set<const QuarnDebugMetadata*> records;
        for (void* handle : handles) {
            records.insert(static_cast<MethodCacheEntry*>(handle)->metadata);
        }
        return records;
    }

    LoadedLibrary fixtureA{"fixture_a"};
    LoadedLibrary rebuilt{"fixture_a_rebuilt"};
    MonoDebuggerHandling handling{""};
    MonoDebuggerHandlingInspector inspector{handling};
};

TEST_F(StaleHandles, OldHandlesAreRejectedAfterEveryReloadAndTheirRecordsOutliveTheirList) {
    for (const DropAndReload& way : kWays) {
        SCOPED_TRACE(way.name);
        for (int round = 0; round < kRounds; ++round) {
            const std::vector<void*> handles = FetchMethodList();
            ASSERT_EQ(AcceptedHandles(handles), 3 * static_cast<int>(handles.size()));
            const std::set<const QuarnDebugMetadata*> records = RecordsBehind(handles);
            {
                FreedAddresses freedWhileCurrent;
                way.run(handling, fixtureA.Handle(), rebuilt.Handle());

                EXPECT_EQ(AcceptedHandles(handles), 0) << "round " << round;
                for (const QuarnDebugMetadata* record : records) {
                    EXPECT_FALSE(freedWhileCurrent.Contains(record)) << "round " << round;
                }
                for (const QuarnDebugMetadata* item : inspector.MetadataItems()) {
                    EXPECT_FALSE(records.contains(item)) << "an address came back";
                }
                EXPECT_EQ(inspector.RetiredItemCount(), way.droppedRecords);
            }
            // The next list makes the old handles unreachable; only then are the records freed.
            FreedAddresses freedByNextList;
            const std::vector<void*> next = FetchMethodList();
            for (const QuarnDebugMetadata* record : records) {
                EXPECT_TRUE(freedByNextList.Contains(record)) << "round " << round;
            }
            EXPECT_EQ(inspector.RetiredItemCount(), 0u);
            EXPECT_EQ(AcceptedHandles(handles), 0);
            EXPECT_EQ(AcceptedHandles(next), 3 * static_cast<int>(next.size()));
        }
    }
}

TEST_F(StaleHandles, ABreakpointWithAnOldHandleChangesNothing) {
    const std::vector<void*> handles = FetchMethodList();
    kWays[0].run(handling, fixtureA.Handle(), rebuilt.Handle());
    char breakpoint = 0;
    for (void* handle : handles) {
        handling.QuarnBreakpointNotify(1, handle, 0, &breakpoint);
    }
    EXPECT_TRUE(inspector.BreakpointMethods().empty());
    EXPECT_TRUE(inspector.BreakpointMap().empty());
}

}  // namespace
