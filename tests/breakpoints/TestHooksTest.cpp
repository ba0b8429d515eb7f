// The four test hooks, called through the callbacks record as a test on the debugger side
// calls them.

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "breakpoints/EntryPointBench.h"
#include "queries/LockProbe.h"

namespace testing_support {
namespace {

const mdh_hash128 kUntouched = {0xDEADBEEFDEADBEEFull, 0x0123456789ABCDEFull};

mdh_hash128 Public(const Hash128& hash) {
    return {hash.word0, hash.word1};
}

bool operator==(const mdh_hash128& a, const mdh_hash128& b) {
    return a.word0 == b.word0 && a.word1 == b.word1;
}

class TestHooks : public EntryPointBench {
  protected:
    // A hook's result and what it left in its output.
    struct HashAnswer {
        int32_t result;
        mdh_hash128 output;
    };
    HashAnswer EntryPointHashOf(void* method) {
        HashAnswer answer{0, kUntouched};
        answer.result = session->Record().testFetchEntryPointHash(method, &answer.output);
        return answer;
    }
    HashAnswer MethodHashOf(void* method) {
        HashAnswer answer{0, kUntouched};
        answer.result = session->Record().testFetchMethodHash(method, &answer.output);
        return answer;
    }
    uint32_t EntryPointCount(const Hash128& entryHash) {
        const mdh_hash128 hash = Public(entryHash);
        return session->Record().testFetchEntryPointCountForHash(&hash);
    }
};

TEST_F(TestHooks, HandleHooksReportTheItemAndMethodOfAValidHandle) {
    Start();
    const struct {
        Hash128 method;
        Hash128 entryPoint;
    } cases[] = {{kMethodA1Only, kItemA1}, {kMethodA2Only, kItemA2}, {kMethodB1Only, kItemB1}};
    for (const auto& row : cases) {
        const HashAnswer entry = EntryPointHashOf(Handle(row.method));
        EXPECT_EQ(entry.result, 1);
        EXPECT_TRUE(entry.output == Public(row.entryPoint));
        const HashAnswer method = MethodHashOf(Handle(row.method));
        EXPECT_EQ(method.result, 1);
        EXPECT_TRUE(method.output == Public(row.method));
    }
    // The shared method answers with whichever item holds it in the method cache.
    const HashAnswer shared = EntryPointHashOf(Handle(kMethodShared));
    EXPECT_EQ(shared.result, 1);
    EXPECT_TRUE(shared.output == Public(kItemA1) || shared.output == Public(kItemB1));
    EXPECT_TRUE(MethodHashOf(Handle(kMethodShared)).output == Public(kMethodShared));
}

TEST_F(TestHooks, HandleHooksLeaveTheOutputUntouchedForABadHandle) {
    Start();
    void* stale = Handle(kMethodA2Only);
    handles = session->FetchMethods();
    void* unloaded = Handle(kMethodB1Only);
    session->Object().UnloadLibraryMetadata(libraryB);
    int local = 0;
    const std::vector<std::pair<const char*, void*>> bad = {
        {"stale", stale},
        {"library unloaded", unloaded},
        {"a local variable", &local},
        {"null", nullptr},
    };
    for (const auto& [what, method] : bad) {
        SCOPED_TRACE(what);
        const HashAnswer entry = EntryPointHashOf(method);
        EXPECT_EQ(entry.result, 0);
        EXPECT_TRUE(entry.output == kUntouched);
        const HashAnswer hash = MethodHashOf(method);
        EXPECT_EQ(hash.result, 0);
        EXPECT_TRUE(hash.output == kUntouched);
    }
    session->Object().ClearLibraryMetadata();
    EXPECT_EQ(EntryPointHashOf(Handle(kMethodA2Only)).result, 0);
}

TEST_F(TestHooks, BreakpointSetFollowsTheBreakpointMap) {
    Start();
    EXPECT_EQ(BreakpointKeys(), (std::vector<bool>{false, false, false}));
    session->SetBreakpoint(Handle(kMethodA2Only), BreakpointHandle(1));
    EXPECT_EQ(BreakpointKeys(), (std::vector<bool>{false, true, false}));
    session->RemoveBreakpoint(BreakpointHandle(1));
    EXPECT_EQ(BreakpointKeys(), (std::vector<bool>{false, false, false}));
    const mdh_hash128 unknown = {7, 7};
    EXPECT_EQ(session->Record().testBreakpointSet(&unknown), 0);
}

TEST_F(TestHooks, EntryPointCountCountsEveryRegistrationOfAHash) {
    Start();
    EXPECT_EQ(EntryPointCount(kItemA1), 1u);
    EXPECT_EQ(EntryPointCount(kItemB1), 2u);  // a stub and a callback
    EXPECT_EQ(EntryPointCount(Hash128{7, 7}), 0u);
    Register(libraryA, kItemA1, stubA1);  // the same values again: a second record
    EXPECT_EQ(EntryPointCount(kItemA1), 2u);
    void* otherLibrary = BreakpointHandle(0x4242);
    Register(otherLibrary, kItemA1, stubs.MakeNative(3));
    EXPECT_EQ(EntryPointCount(kItemA1), 3u);

    session->Object().UnloadLibraryMetadata(libraryA);
    EXPECT_EQ(EntryPointCount(kItemA1), 1u);  // the other library's record stays
    EXPECT_EQ(EntryPointCount(kItemA2), 0u);
    session->Object().ClearLibraryMetadata();
    EXPECT_EQ(EntryPointCount(kItemA1), 0u);
    EXPECT_EQ(EntryPointCount(kItemB1), 0u);
}

TEST_F(TestHooks, WriteNoLogLine) {
    Start("3");
    session->SetBreakpoint(Handle(kMethodA2Only), BreakpointHandle(1));
    const size_t mark = session->LogMark();
    EntryPointHashOf(Handle(kMethodA2Only));
    MethodHashOf(Handle(kMethodA2Only));
    EntryPointHashOf(nullptr);
    BreakpointKeys();
    EntryPointCount(kItemA1);
    EXPECT_TRUE(session->LogSince(mark).empty());
}

TEST_F(TestHooks, EachHoldsTheLock) {
    Start();
    void* method = Handle(kMethodA2Only);
    mdh_callbacks& record = session->Record();
    mdh_hash128 output{};
    const mdh_hash128 entryHash = Public(kItemA2);
    const std::vector<std::pair<const char*, std::function<void()>>> hooks = {
        {"entry point hash", [&] { record.testFetchEntryPointHash(method, &output); }},
        {"entry point hash, bad handle", [&] { record.testFetchEntryPointHash(nullptr, &output); }},
        {"method hash", [&] { record.testFetchMethodHash(method, &output); }},
        {"method hash, bad handle", [&] { record.testFetchMethodHash(nullptr, &output); }},
        {"breakpoint set", [&] { record.testBreakpointSet(&entryHash); }},
        {"entry point count", [&] { record.testFetchEntryPointCountForHash(&entryHash); }},
    };
    for (const auto& [what, hook] : hooks) {
        SCOPED_TRACE(what);
        EXPECT_FALSE(ReturnsWhileLocked(session->Inspect().Mutex(), hook, kLockedPatience));
    }
}

}  // namespace
}  // namespace testing_support
