// Method info (attributes and token), parameter info and method name.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "queries/DebuggerSession.h"
#include "queries/LockProbe.h"

namespace testing_support {
namespace {

int32_t TokenOf(void* handle) {
    return static_cast<int32_t>(static_cast<const MethodCacheEntry*>(handle)->methodToken);
}

// 129, 0 and the token, then what the version adds.
Replies MethodInfoReply(int32_t token, bool genericsFrom212, bool argumentsFrom215) {
    Replies replies = Ints({129, 0, token});
    if (genericsFrom212) {
        replies.push_back(Byte(0));
        replies.push_back(Id(0));
    }
    if (argumentsFrom215) {
        replies.push_back(Int(0));
    }
    return replies;
}

TEST(FetchMethodInfo, RepliesByVersion) {
    DebuggerSession session;
    session.Load("fixture_a");
    void* handle = session.FreshHandle(kMethodA2Only);
    const int32_t token = TokenOf(handle);
    ASSERT_GE(token, 0x06000001);
    ASSERT_LE(token, 0x06000003);
    const struct {
        const char* name;
        ClientVersion version;
        Replies expected;
    } cases[] = {
        {"version not known", {0, 9, 9}, MethodInfoReply(token, false, false)},
        {"1.50", {1, 1, 50}, MethodInfoReply(token, false, false)},
        {"2.11", {1, 2, 11}, MethodInfoReply(token, false, false)},
        {"2.12", {1, 2, 12}, MethodInfoReply(token, true, false)},
        {"2.14", {1, 2, 14}, MethodInfoReply(token, true, false)},
        {"2.15", {1, 2, 15}, MethodInfoReply(token, true, true)},
        {"3.0", {1, 3, 0}, MethodInfoReply(token, true, true)},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(session.MethodInfo(handle, row.version), row.expected);
    }
}

TEST(FetchMethodInfo, EachHandleRepliesItsOwnToken) {
    DebuggerSession session;
    session.Load("fixture_a");
    const std::vector<void*> handles = session.FetchMethods();
    for (size_t i = 0; i < handles.size(); ++i) {
        EXPECT_EQ(session.MethodInfo(handles[i], {1, 2, 11}),
                  Ints({129, 0, static_cast<int32_t>(0x06000001 + i)}));
    }
}

TEST(FetchMethodInfo, InvalidHandleGetsTokenZeroAndNoLineOfItsOwn) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    void* stale = session.FreshHandle(kMethodShared);
    session.FetchMethods();
    int local = 0;
    for (void* handle : {stale, static_cast<void*>(&local), static_cast<void*>(nullptr)}) {
        const size_t mark = session.LogMark();
        ReplyBuffer buffer;
        session.Record().fetchMethodInfo(&buffer, handle, 1, 3, 0);
        EXPECT_EQ(buffer.replies, MethodInfoReply(0, true, true));
        EXPECT_EQ(session.LogSince(mark),
                  (LogLines{"FetchMethodInfo : " + Decimal(&buffer) + " " + Decimal(handle)}));
    }
}

TEST(FetchParamInfoAndMethodName, FixedRepliesForAnyHandle) {
    DebuggerSession session("1");
    session.Load("fixture_a");
    void* stale = session.FreshHandle(kMethodShared);
    void* valid = session.FreshHandle(kMethodShared);
    int local = 0;
    for (void* handle : {valid, stale, static_cast<void*>(&local), static_cast<void*>(nullptr)}) {
        SCOPED_TRACE(Decimal(handle));
        const size_t mark = session.LogMark();
        ReplyBuffer params;
        session.Record().fetchParamInfo(&params, handle, 1, 2, 32);
        EXPECT_EQ(params.replies, Concat({Ints({0, 0, 0}), {Id(1)}}));
        ReplyBuffer name;
        session.Record().fetchMethodName(&name, handle, 0, 0, 0);
        EXPECT_EQ(name.replies, Strings({""}));
        EXPECT_EQ(session.LogSince(mark),
                  (LogLines{"FetchParamInfo : " + Decimal(&params) + " " + Decimal(handle),
                            "FetchMethodName : " + Decimal(&name) + " " + Decimal(handle)}));
    }
}

TEST(FetchParamInfoAndMethodName, TakeNoLockWhileMethodInfoDoes) {
    DebuggerSession session;
    session.Load("fixture_a");
    void* handle = session.FreshHandle(kMethodShared);
    mdh_callbacks& record = session.Record();
    ReplyBuffer buffer;
    std::mutex& mutex = session.Inspect().Mutex();
    EXPECT_TRUE(ReturnsWhileLocked(
        mutex, [&] { record.fetchParamInfo(&buffer, handle, 1, 2, 32); }, kNoLockPatience));
    EXPECT_TRUE(ReturnsWhileLocked(
        mutex, [&] { record.fetchMethodName(&buffer, handle, 1, 2, 32); }, kNoLockPatience));
    EXPECT_FALSE(ReturnsWhileLocked(
        mutex, [&] { record.fetchMethodInfo(&buffer, handle, 1, 2, 32); }, kLockedPatience));
    EXPECT_EQ(buffer.replies.size(), 4u + 1u + 6u);
}

}  // namespace
}  // namespace testing_support
