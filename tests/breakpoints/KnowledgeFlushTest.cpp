// Asking the debugger side to flush what it knows: when it is asked, how, and after shut_down.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "queries/DebuggerSession.h"

namespace testing_support {
namespace {

// What the debugger side's flush function saw each time it ran.
struct FlushObservation {
    LogLines logSoFar;
    bool mutexFree = false;
};

DebuggerSession* observedSession = nullptr;
std::vector<FlushObservation> observations;

void ObservingFlush() {
    FlushObservation seen;
    seen.logSoFar = observedSession->LogLines();
    std::mutex& mutex = observedSession->Inspect().Mutex();
    seen.mutexFree = mutex.try_lock();
    if (seen.mutexFree) {
        mutex.unlock();
    }
    observations.push_back(seen);
}

class KnowledgeFlush : public ::testing::Test {
  protected:
    void Start(const char* logLevel) {
        session = std::make_unique<DebuggerSession>(logLevel);
        observedSession = session.get();
        observations.clear();
        session->Record().flushClientKnowledge = ObservingFlush;
    }
    void TearDown() override { observedSession = nullptr; }

    std::unique_ptr<DebuggerSession> session;
};

// The lines of one flush request: its own line, then exactly one state dump.
void ExpectRequestLineThenADump(const LogLines& lines) {
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0], "RequestFlushClientDebuggerKnowledge");
    EXPECT_EQ(lines[1], "---STATE-START---");
    EXPECT_EQ(lines.back(), "---STATE-END---");
    EXPECT_EQ(CountOf(lines, "---STATE-START---"), 1);
}

TEST_F(KnowledgeFlush, CallsTheDebuggerSideUnlockedThenDumps) {
    Start("2");
    const size_t mark = session->LogMark();
    session->Object().RequestFlushClientDebuggerKnowledge();

    ASSERT_EQ(observations.size(), 1u);
    EXPECT_TRUE(observations[0].mutexFree);
    EXPECT_EQ(observations[0].logSoFar.size(), mark + 1);  // after its line, before the dump
    EXPECT_EQ(observations[0].logSoFar.back(), "RequestFlushClientDebuggerKnowledge");
    ExpectRequestLineThenADump(session->LogSince(mark));
}

TEST_F(KnowledgeFlush, WithTheSlotEmptyOnlyLogsAndDumps) {
    Start("2");
    session->Record().flushClientKnowledge = nullptr;
    const size_t mark = session->LogMark();
    session->Object().RequestFlushClientDebuggerKnowledge();
    EXPECT_TRUE(observations.empty());
    ExpectRequestLineThenADump(session->LogSince(mark));
}

TEST_F(KnowledgeFlush, AfterShutDownNothingIsCalledButTheDumpStays) {
    Start("2");
    ResetCounters();
    InstallShutdownAndFlush(&session->Record());
    session->Object().Shutdown();
    EXPECT_EQ(ShutdownCalls(), 1);
    EXPECT_EQ(session->Record().flushClientKnowledge, nullptr);
    EXPECT_NE(session->Record().shutdownNotify, nullptr);  // left as it was

    const size_t mark = session->LogMark();
    session->Object().RequestFlushClientDebuggerKnowledge();
    ExpectRequestLineThenADump(session->LogSince(mark));
    session->Load("fixture_a");  // a load that adds items requests a flush too
    EXPECT_EQ(FlushCalls(), 0);
}

TEST_F(KnowledgeFlush, ShutDownWithoutAShutdownFunctionStillClearsTheSlot) {
    Start(nullptr);
    session->Object().Shutdown();
    EXPECT_EQ(session->Record().flushClientKnowledge, nullptr);
    session->Object().RequestFlushClientDebuggerKnowledge();
    EXPECT_TRUE(observations.empty());
}

TEST_F(KnowledgeFlush, OnlyALoadThatAddsItemsAsksForIt) {
    Start(nullptr);
    const struct {
        const char* what;
        std::function<void()> change;
        size_t flushes;
    } cases[] = {
        {"a library with items", [&] { session->Load("fixture_a"); }, 1},
        {"the same items again",
         [&] { session->Object().ProcessLibraryMetadata(session->Library(0).Handle()); }, 1},
        {"a library whose header announces no item", [&] { session->Load("fixture_zero_count"); },
         0},
        {"a library without a query function", [&] { session->Load("fixture_no_query"); }, 0},
        {"an unload",
         [&] { session->Object().UnloadLibraryMetadata(session->Library(0).Handle()); }, 0},
        {"a clear", [&] { session->Object().ClearLibraryMetadata(); }, 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        observations.clear();
        row.change();
        EXPECT_EQ(observations.size(), row.flushes);
        for (const FlushObservation& seen : observations) {
            EXPECT_TRUE(seen.mutexFree);
        }
    }
}

}  // namespace
}  // namespace testing_support
