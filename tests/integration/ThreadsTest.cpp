// The host and the debugger agent on two threads at once, through the real plug-in: loads,
// unloads and registrations race with method lists, debug-info queries and breakpoints.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "../fixtures/FixtureTables.h"
#include "integration/HostPlugin.h"
#include "queries/Replies.h"
#include "support/Fixtures.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace testing_support {
namespace {

constexpr int kRounds = 150;

mdh_hash128 Public(quarn_hash128 hash) {
    return {hash.word0, hash.word1};
}

// A debug-info reply is either the invalid one or a whole reply for a method (code size 100).
bool WellFormed(const Replies& replies) {
    return replies == InvalidMethodDebugInfo() || (!replies.empty() && replies[0] == Int(100));
}

TEST(HostAndDebuggerThreads, RaceWithoutDeadlockAndEndQuarned) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", "2");  // dumps and lines from both threads
    HostPlugin plugin(PluginPath());
    LoadedLibrary libraryA("fixture_a");
    LoadedLibrary libraryB("fixture_b");
    JumpStubs stubs;
    void* stubA1 = stubs.MakeNative(0);
    void* stubB1 = stubs.MakeNative(1);
    auto* native = reinterpret_cast<void*>(&NativeCode);

    mdh_handle handle = plugin.initialize("");
    mdh_callbacks* record = RecordFromCommand(plugin.startup(handle));
    InstallWriters(record);
    plugin.library_loaded(handle, libraryA.Handle());
    plugin.register_entry(handle, libraryA.Handle(), Public(quarn_hash128 FIXTURE_ITEM_A1), native,
                          stubA1, nullptr, nullptr);

    std::thread host([&] {
        for (int round = 0; round < kRounds; ++round) {
            plugin.library_loaded(handle, libraryB.Handle());
            plugin.register_entry(handle, libraryB.Handle(), Public(quarn_hash128 FIXTURE_ITEM_B1),
                                  native, stubB1, nullptr, nullptr);
            plugin.library_unloaded(handle, libraryB.Handle());
        }
    });
    int malformed = 0;
    for (int round = 0; round < kRounds; ++round) {
        ReplyBuffer list;
        record->fetchMethods(&list, nullptr, 0, 0, 0, 0);
        void* breakpoint = reinterpret_cast<void*>(static_cast<intptr_t>(round + 1));
        for (void* method : list.Methods()) {
            ReplyBuffer info;
            record->fetchDebugInfo(&info, method, 1, 2, 32);
            malformed += WellFormed(info.replies) ? 0 : 1;
            record->breakpointNotify(1, method, 0, breakpoint);
        }
        record->breakpointNotify(0, nullptr, 0, breakpoint);
    }
    host.join();

    EXPECT_EQ(malformed, 0);
    // Every breakpoint was removed again: A1 runs native, and B1 is registered no more.
    const mdh_hash128 a1 = Public(quarn_hash128 FIXTURE_ITEM_A1);
    const mdh_hash128 b1 = Public(quarn_hash128 FIXTURE_ITEM_B1);
    EXPECT_EQ(record->testBreakpointSet(&a1), 0);
    EXPECT_EQ(record->testBreakpointSet(&b1), 0);
    EXPECT_EQ(JumpStubs::Call(stubA1), Landing::Native);
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&b1), 0u);
    plugin.dispose(handle);
}

}  // namespace
}  // namespace testing_support
