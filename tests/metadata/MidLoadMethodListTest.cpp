// A method list issued between two items of one load (the lock is released between items)
// hands out handles to an item that the load has just replaced. Those handles must stay
// rejected for good: the replaced record may not be freed, and its address recycled for the
// next item, while such a handle is current.
#include <gtest/gtest.h>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"

namespace {

using testing_support::InstallWriters;
using testing_support::LoadedLibrary;
using testing_support::ReplyBuffer;

using Hook = void (*)(void*);

struct MidLoadSession {
    MonoDebuggerHandling object{""};
    mdh_callbacks* record = object.Callbacks();
    LoadedLibrary library{"metadata_midload"};
    ReplyBuffer midLoadList;

    MidLoadSession() { InstallWriters(record); }

    static void FetchMethodList(void* session) {
        auto* self = static_cast<MidLoadSession*>(session);
        self->record->fetchMethods(&self->midLoadList, nullptr, 0, 0, 0, 0);
    }

    void ReloadWithListBetweenItems() {
        library.Symbol<void(Hook, void*)>("midload_set_hook")(&FetchMethodList, this);
        object.ProcessLibraryMetadata(library.Handle());
    }

    int AcceptedHandles() {
        int accepted = 0;
        for (void* handle : midLoadList.Methods()) {
            mdh_hash128 entryHash{0xAAAA, 0xBBBB};
            accepted += record->testFetchEntryPointHash(handle, &entryHash);
            EXPECT_EQ(entryHash.word0, 0xAAAAu) << "a rejected handle leaves the output alone";
        }
        return accepted;
    }
};

TEST(MidLoadMethodList, HandlesToTheReplacedItemStayRejectedAfterTheLoad) {
    for (int round = 0; round < 50; ++round) {
        MidLoadSession session;
        session.object.ProcessLibraryMetadata(session.library.Handle());
        session.ReloadWithListBetweenItems();
        // Three handles of item 1's replaced record and three of item 2's old one.
        ASSERT_EQ(session.midLoadList.Methods().size(), 6u);
        EXPECT_EQ(session.AcceptedHandles(), 0) << "round " << round;
    }
}

TEST(MidLoadMethodList, ReplacedItemsAreFreedOnlyByTheListAfterTheRebuild) {
    MidLoadSession session;
    MonoDebuggerHandlingInspector inspector(session.object);
    session.object.ProcessLibraryMetadata(session.library.Handle());
    session.ReloadWithListBetweenItems();
    // The list issued inside the load could not free the item replaced just before it.
    EXPECT_EQ(inspector.RetiredItemCount(), 2u);

    ReplyBuffer next;
    session.record->fetchMethods(&next, nullptr, 0, 0, 0, 0);
    EXPECT_EQ(inspector.RetiredItemCount(), 0u);
    EXPECT_EQ(session.AcceptedHandles(), 0);
    for (void* handle : next.Methods()) {
        mdh_hash128 entryHash{};
        EXPECT_EQ(session.record->testFetchEntryPointHash(handle, &entryHash), 1);
    }
}

}  // namespace
