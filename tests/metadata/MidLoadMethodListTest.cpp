// A method list issued between two items of one load (the lock is released between items) names
// the item the load has just added and the old item it is about to replace. Handles to the new
// item stay valid; those to the replaced one must be rejected: its record may not be freed, and its
// address recycled for the next item, while such a handle is current.
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

// Three handles of item 1's new record and three of item 2's old one. Item 1's old record went
// before any list named it; item 2's old record is named by the mid-load list, so it waits for
// the next one.
TEST(MidLoadMethodList, HandlesToTheReplacedItemAreRejectedAndItsRecordFreedOnlyByTheNextList) {
    for (int round = 0; round < 50; ++round) {
        MidLoadSession session;
        MonoDebuggerHandlingInspector inspector(session.object);
        ASSERT_EQ(session.midLoadList.Methods().size(), 6u);
        EXPECT_EQ(session.AcceptedHandles(session.midLoadList), 3) << "round " << round;
        EXPECT_EQ(inspector.RetiredItemCount(), 1u);
        ReplyBuffer next;
        session.record->fetchMethods(&next, nullptr, 0, 0, 0, 0);
        EXPECT_EQ(inspector.RetiredItemCount(), 0u);
        EXPECT_EQ(session.AcceptedHandles(session.midLoadList), 0);
        EXPECT_EQ(session.AcceptedHandles(next), 6);
    }
}

}  // namespace
