// The method list and the rule that accepts or rejects a method handle.

#include <gtest/gtest.h>

#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "queries/DebuggerSession.h"

namespace testing_support {
namespace {

constexpr uint64_t kGenerationAfterFirstList = 0xFFFFFFFE00000001ull;
constexpr uint64_t kGenerationAfterSecondList = 0xFFFFFFFD00000002ull;
constexpr uint32_t kFirstToken = 0x06000001;

// Method records are never freed, so a handle can always be read, stale or not.
const MethodCacheEntry& EntryOf(void* handle) {
    return *static_cast<const MethodCacheEntry*>(handle);
}

Hash128 MethodHashOf(void* handle) {
    const MethodCacheEntry& entry = EntryOf(handle);
    return entry.metadata->methodHashes[entry.methodIndex];
}

// The handle rule itself, applied with the lock held as its callers do.
bool Accepted(DebuggerSession& session, void* handle) {
    MonoDebuggerHandlingInspector inspector = session.Inspect();
    std::lock_guard<std::mutex> lock(inspector.Mutex());
    MethodCacheEntry* entry = nullptr;
    QuarnDebugMetadata* item = nullptr;
    return session.Object().MethodPtrToMethodCacheEntry(handle, entry, item);
}

// The fixtures' methods and their index within the item that holds them.
const std::unordered_map<Hash128, int32_t>& MethodIndicesOfAAndB() {
    static const std::unordered_map<Hash128, int32_t> indices = {
        {kMethodShared, 0}, {kMethodA1Only, 1}, {kMethodA2Only, 0}, {kMethodB1Only, 1}};
    return indices;
}

TEST(FetchMethods, ReplyCarriesOneHandlePerDistinctMethod) {
    DebuggerSession session;
    session.Load("fixture_a");
    session.Load("fixture_b");
    ReplyBuffer buffer;
    void* context = BreakpointHandle(-16);
    session.Record().fetchMethods(&buffer, context, -5, 2, 32, 0);

    ASSERT_EQ(buffer.replies.size(), 5u);
    EXPECT_EQ(buffer.replies[0], Int(4));
    std::unordered_set<Hash128> methods;
    for (size_t i = 1; i < buffer.replies.size(); ++i) {
        const Reply& reply = buffer.replies[i];
        ASSERT_EQ(reply.kind, Reply::Kind::MethodId);
        EXPECT_EQ(reply.idContext, context);  // passed through unchanged
        EXPECT_EQ(reply.value, -5);
        methods.insert(MethodHashOf(reply.method));
    }
    EXPECT_EQ(methods, (std::unordered_set<Hash128>{kMethodShared, kMethodA1Only, kMethodA2Only,
                                                    kMethodB1Only}));
}

TEST(FetchMethods, TokensCountUpInReplyOrderAndEntriesCarryTheNewGeneration) {
    DebuggerSession session;
    session.Load("fixture_a");
    session.Load("fixture_b");
    const std::vector<void*> handles = session.FetchMethods();
    ASSERT_EQ(handles.size(), 4u);
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), kGenerationAfterFirstList);
    for (size_t i = 0; i < handles.size(); ++i) {
        const MethodCacheEntry& entry = EntryOf(handles[i]);
        EXPECT_EQ(entry.methodToken, kFirstToken + i);
        EXPECT_EQ(entry.generation, kGenerationAfterFirstList);
        EXPECT_EQ(entry.methodIndex, MethodIndicesOfAAndB().at(MethodHashOf(handles[i])));
        EXPECT_TRUE(Accepted(session, handles[i]));
    }
}

TEST(FetchMethods, LogsEntryTotalAndEveryCacheEntry) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    session.Load("fixture_b");
    const size_t mark = session.LogMark();
    ReplyBuffer buffer;
    void* context = BreakpointHandle(-16);
    session.Record().fetchMethods(&buffer, context, -5, 0, 0, 0);

    LogLines expected = {"FetchMethods : " + Decimal(&buffer) + " -16 -5", "    Total Methods : 4"};
    int32_t token = 100663297;  // 0x06000001
    for (void* handle : buffer.Methods()) {
        const std::string index = std::to_string(MethodIndicesOfAAndB().at(MethodHashOf(handle)));
        expected.push_back("        CacheEntry : " + index + " " + index + " " +
                           std::to_string(token++) + " 18446744065119617025");
    }
    EXPECT_EQ(session.LogSince(mark), expected);
}

TEST(FetchMethods, CacheEntryLinesNeedLevelThree) {
    DebuggerSession session("2");
    session.Load("fixture_a");
    const size_t mark = session.LogMark();
    ReplyBuffer buffer;
    session.Record().fetchMethods(&buffer, nullptr, 9, 0, 0, 0);
    EXPECT_EQ(session.LogSince(mark),
              (LogLines{"FetchMethods : " + Decimal(&buffer) + " 0 9", "    Total Methods : 3"}));
}

TEST(FetchMethods, SecondListMakesEveryEarlierHandleStale) {
    DebuggerSession session;
    session.Load("fixture_a");
    session.Load("fixture_b");
    const std::vector<void*> first = session.FetchMethods();
    const std::vector<void*> second = session.FetchMethods();
    ASSERT_EQ(second.size(), first.size());
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), kGenerationAfterSecondList);

    for (size_t i = 0; i < second.size(); ++i) {
        EXPECT_EQ(EntryOf(second[i]).methodToken, kFirstToken + i);  // numbering restarts
        EXPECT_EQ(EntryOf(second[i]).generation, kGenerationAfterSecondList);
        EXPECT_TRUE(Accepted(session, second[i]));
    }
    for (void* stale : first) {
        // Still readable, never reissued, and rejected.
        EXPECT_EQ(EntryOf(stale).generation, kGenerationAfterFirstList);
        EXPECT_EQ(std::count(second.begin(), second.end(), stale), 0);
        EXPECT_FALSE(Accepted(session, stale));
        EXPECT_EQ(session.DebugInfo(stale, {1, 2, 32}), InvalidMethodDebugInfo());
    }
}

TEST(FetchMethods, EmptyListRepliesZeroAndStillRenewsEveryHandle) {
    DebuggerSession session;
    session.Load("fixture_a");
    const std::vector<void*> before = session.FetchMethods();
    session.Object().ClearLibraryMetadata();

    ReplyBuffer buffer;
    session.Record().fetchMethods(&buffer, nullptr, 0, 0, 0, 0);
    EXPECT_EQ(buffer.replies, Ints({0}));
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), kGenerationAfterSecondList);
    for (void* handle : before) {
        EXPECT_FALSE(Accepted(session, handle));
    }
}

// Within the current list a record is accepted only while its generation is the current one,
// compared in all 64 bits.
TEST(MethodHandles, RecordOfTheCurrentListWithAnotherGenerationIsRejected) {
    DebuggerSession session;
    session.Load("fixture_a");
    void* handle = session.FreshHandle(kMethodA2Only);
    auto& generation = static_cast<MethodCacheEntry*>(handle)->generation;
    const uint64_t current = generation;
    for (uint64_t flipped : {current ^ 1ull, current ^ (1ull << 63)}) {
        generation = flipped;
        EXPECT_FALSE(Accepted(session, handle));
    }
    generation = current;
    EXPECT_TRUE(Accepted(session, handle));
}

TEST(MethodHandles, NoneIsValidBeforeTheFirstList) {
    DebuggerSession session;
    session.Load("fixture_a");
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), 0xFFFFFFFF00000000ull);
    int local = 0;
    EXPECT_FALSE(Accepted(session, &local));
    EXPECT_FALSE(Accepted(session, nullptr));
}

TEST(MethodHandles, LibraryUnloadedRejectsItsHandlesWhileTheGenerationMatches) {
    DebuggerSession session;
    session.Load("fixture_a");
    void* b = session.Load("fixture_b");
    const std::vector<void*> handles = session.FetchMethods();
    void* onlyInB = DebuggerSession::HandleOf(handles, kMethodB1Only);
    void* onlyInA = DebuggerSession::HandleOf(handles, kMethodA2Only);

    session.Object().UnloadLibraryMetadata(b);
    EXPECT_EQ(EntryOf(onlyInB).generation, session.Inspect().MethodCacheGeneration());
    EXPECT_FALSE(Accepted(session, onlyInB));
    EXPECT_EQ(session.DebugInfo(onlyInB, {0, 0, 0}), InvalidMethodDebugInfo());
    EXPECT_TRUE(Accepted(session, onlyInA));
}

TEST(MethodHandles, ReplacedItemRejectsItsHandles) {
    DebuggerSession session;
    session.Load("fixture_a");
    const std::vector<void*> handles = session.FetchMethods();
    session.Load("fixture_a_rebuilt");  // item A1 again, a new record
    EXPECT_FALSE(Accepted(session, DebuggerSession::HandleOf(handles, kMethodA1Only)));
    EXPECT_TRUE(Accepted(session, DebuggerSession::HandleOf(handles, kMethodA2Only)));
}

TEST(MethodHandles, ClearedMetadataRejectsEveryHandle) {
    DebuggerSession session;
    session.Load("fixture_a");
    const std::vector<void*> handles = session.FetchMethods();
    session.Object().ClearLibraryMetadata();
    for (void* handle : handles) {
        EXPECT_FALSE(Accepted(session, handle));
    }
}

TEST(MethodHandles, LoadingAddsNoHandleUntilTheNextList) {
    DebuggerSession session;
    session.Load("fixture_a");
    const std::vector<void*> handles = session.FetchMethods();
    session.Load("fixture_b");
    EXPECT_EQ(session.Inspect().MethodCache().size(), handles.size());
    for (void* handle : handles) {
        EXPECT_TRUE(Accepted(session, handle));
    }
    EXPECT_NE(session.FreshHandle(kMethodB1Only), nullptr);
}

TEST(MethodHandles, ForeignPointersAreRejectedWithoutBeingRead) {
    DebuggerSession session;
    session.Load("fixture_a");
    const std::vector<void*> previous = session.FetchMethods();
    const std::vector<void*> handles = session.FetchMethods();
    auto* first = static_cast<char*>(handles.front());
    int local = 0;
    const std::vector<std::pair<const char*, void*>> foreign = {
        {"null", nullptr},
        {"a local variable", &local},
        {"inside a record", first + 1},
        {"a record's second field", first + 8},
        {"just past the list", first + handles.size() * sizeof(MethodCacheEntry)},
        {"just before the list", first - sizeof(MethodCacheEntry)},
        {"a record of the previous list", previous.front()},
        {"an unrelated object", &session},
    };
    for (const auto& [what, pointer] : foreign) {
        SCOPED_TRACE(what);
        EXPECT_FALSE(Accepted(session, pointer));
    }
}

}  // namespace
}  // namespace testing_support
