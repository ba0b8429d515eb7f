// A method list issued between two items of one load (the lock is released between items) hands
// out handles to an item the load has just replaced. They must stay rejected: the replaced record
// may not be freed, and its address recycled for the next item, while such a handle is current.
#include <gtest/gtest.h>

#include "support/LoggedHandling.h"

namespace {
using namespace testing_support;

// Loads the library, then loads it again with a method list fetched before item 2 is read.
struct MidLoadSession {
    static inline MidLoadSession* current;
    MonoDebuggerHandling object{""};
    mdh_callbacks* record = object.Callbacks();
    LoadedLibrary library{"metadata_midload"};
    ReplyBuffer midLoadList;

    MidLoadSession() {
        InstallWriters(record);
        object.ProcessLibraryMetadata(library.Handle());
        current = this;
        library.Symbol<void(void (*)())>("midload_set_hook")(
            [] { current->record->fetchMethods(&current->midLoadList, nullptr, 0, 0, 0, 0); });
        object.ProcessLibraryMetadata(library.Handle());
    }
    int AcceptedHandles(const ReplyBuffer& list) {
        int accepted = 0;
        for (void* handle : list.Methods()) {
            mdh_hash128 entryHash{0xAAAA, 0xBBBB};
            const int found = record->testFetchEntryPointHash(handle, &entryHash);
            EXPECT_TRUE(found == 1 || entryHash.word0 == 0xAAAAu) << "a rejected handle wrote";
            accepted += found;
        }
        return accepted;
    }
};

TEST(MidLoadMethodList, HandlesToTheReplacedItemStayRejectedAfterTheLoad) {
    for (int round = 0; round < 50; ++round) {
        MidLoadSession session;
        // Three handles of item 1's replaced record and three of item 2's old one.
        ASSERT_EQ(session.midLoadList.Methods().size(), 6u);
        EXPECT_EQ(session.AcceptedHandles(session.midLoadList), 0) << "round " << round;
    }
}

TEST(MidLoadMethodList, ReplacedItemsAreFreedOnlyByTheListAfterTheRebuild) {
    MidLoadSession session;
    MonoDebuggerHandlingInspector inspector(session.object);
    // The list issued inside the load could not free the item replaced just before it.
    EXPECT_EQ(inspector.RetiredItemCount(), 2u);
    ReplyBuffer next;
    session.record->fetchMethods(&next, nullptr, 0, 0, 0, 0);
    EXPECT_EQ(inspector.RetiredItemCount(), 0u);
    EXPECT_EQ(session.AcceptedHandles(session.midLoadList), 0);
    EXPECT_EQ(session.AcceptedHandles(next), 6);
}

}  // namespace
