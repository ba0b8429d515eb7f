// Files, digests and sequence points of a method, by the client's protocol version.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "queries/DebuggerSession.h"
#include "queries/SparseFixture.h"

namespace testing_support {
namespace {

const Hash128 kSparseNoFiles = ToHash(quarn_hash128 SPARSE_METHOD_NO_FILES);
const Hash128 kSparseNoPoints = ToHash(quarn_hash128 SPARSE_METHOD_NO_POINTS);

constexpr uint8_t kSharedPathDigest[16] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07,
                                           0x08, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x0E, 0x0F};
constexpr uint8_t kA2PathDigest[16] = {0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2,
                                       0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2};

struct VersionCase {
    const char* name;
    ClientVersion version;
    Replies expected;
};

void ExpectRepliesByVersion(DebuggerSession& session, const Hash128& method,
                            const std::vector<VersionCase>& cases) {
    void* handle = session.FreshHandle(method);
    ASSERT_NE(handle, nullptr);
    for (const VersionCase& row : cases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(session.DebugInfo(handle, row.version), row.expected);
    }
}

// Fixture A's shared method: files src/Shared.cs (with a digest) and src/A1.cs (without),
// three sequence points, the last one in the second file.
TEST(FetchDebugInfo, RepliesByVersionForAMethodWithTwoFiles) {
    const Replies pointsPlain = Ints({3, 0, 10, 6, 11, 12, 40});
    const Replies pointsWithFile = Ints({3, 0, 10, 0, 6, 11, 0, 12, 40, 1});
    const Replies pointsWithStartColumn = Ints({3, 0, 10, 0, 5, 6, 11, 0, 9, 12, 40, 1, 1});
    const Replies pointsWithEnd =
        Ints({3, 0, 10, 0, 5, 10, 20, 6, 11, 0, 9, 12, 3, 12, 40, 1, 1, 40, 8});
    const Replies oneFile = Concat({Ints({100}), Strings({FIXTURE_SHARED_PATH})});
    const Replies bothFiles =
        Concat({Ints({100, 2}), Strings({FIXTURE_SHARED_PATH, FIXTURE_A1_PATH})});
    const Replies bothFilesWithDigests =
        Concat({Ints({100, 2}), Strings({FIXTURE_SHARED_PATH}), DigestBytes(kSharedPathDigest),
                Strings({FIXTURE_A1_PATH}), NoDigestBytes()});

    DebuggerSession session;
    session.Load("fixture_a");
    ExpectRepliesByVersion(
        session, kMethodShared,
        {
            {"version not known", {0, 9, 9}, Concat({oneFile, pointsPlain})},
            {"1.99", {1, 1, 99}, Concat({oneFile, pointsPlain})},
            {"2.12", {1, 2, 12}, Concat({oneFile, pointsPlain})},
            {"2.13", {1, 2, 13}, Concat({bothFiles, pointsWithFile})},
            {"2.14", {1, 2, 14}, Concat({bothFilesWithDigests, pointsWithFile})},
            {"2.18", {1, 2, 18}, Concat({bothFilesWithDigests, pointsWithFile})},
            {"2.19", {1, 2, 19}, Concat({bothFilesWithDigests, pointsWithStartColumn})},
            {"2.31", {1, 2, 31}, Concat({bothFilesWithDigests, pointsWithStartColumn})},
            {"2.32", {1, 2, 32}, Concat({bothFilesWithDigests, pointsWithEnd})},
            {"3.0", {1, 3, 0}, Concat({bothFilesWithDigests, pointsWithEnd})},
            {"3.0 with another non-zero known flag",
             {-1, 3, 0},
             Concat({bothFilesWithDigests, pointsWithEnd})},
        });
}

// A1Only is the item's second method: its point and file come from its own offsets.
TEST(FetchDebugInfo, ReadsTheMethodAtItsOwnIndexAndOffsets) {
    DebuggerSession session;
    session.Load("fixture_a");
    ExpectRepliesByVersion(session, kMethodA1Only,
                           {
                               {"2.12",
                                {1, 2, 12},
                                Concat({Ints({100}), Strings({FIXTURE_A1_PATH}), Ints({1, 0, 7})})},
                               {"2.32",
                                {1, 2, 32},
                                Concat({Ints({100, 1}), Strings({FIXTURE_A1_PATH}), NoDigestBytes(),
                                        Ints({1, 0, 7, 0, 2, 7, 30})})},
                           });
    ExpectRepliesByVersion(session, kMethodA2Only,
                           {
                               {"2.14",
                                {1, 2, 14},
                                Concat({Ints({100, 1}), Strings({FIXTURE_A2_PATH}),
                                        DigestBytes(kA2PathDigest), Ints({2, 0, 3, 0, 4, 4, 0})})},
                           });
}

TEST(FetchDebugInfo, MethodWithoutFilesOnBothSidesOfTwoThirteen) {
    DebuggerSession session;
    session.Load("queries_fixture_sparse");
    ExpectRepliesByVersion(
        session, kSparseNoFiles,
        {
            // Below 2.13 the file at position firstFile is still written.
            {"version not known",
             {0, 2, 32},
             Concat({Ints({100}), Strings({SPARSE_FILE_PATH}), Ints({2, 0, 5, 3, 6})})},
            {"2.12",
             {1, 2, 12},
             Concat({Ints({100}), Strings({SPARSE_FILE_PATH}), Ints({2, 0, 5, 3, 6})})},
            {"2.13", {1, 2, 13}, Ints({100, 0, 2, 0, 5, 0, 3, 6, 0})},
            {"2.14", {1, 2, 14}, Ints({100, 0, 2, 0, 5, 0, 3, 6, 0})},
            {"2.32", {1, 2, 32}, Ints({100, 0, 2, 0, 5, 0, 1, 5, 9, 3, 6, 0, 2, 6, 4})},
        });
}

TEST(FetchDebugInfo, MethodWithoutSequencePointsRepliesCountZero) {
    DebuggerSession session;
    session.Load("queries_fixture_sparse");
    ExpectRepliesByVersion(
        session, kSparseNoPoints,
        {
            {"2.12", {1, 2, 12}, Concat({Ints({100}), Strings({SPARSE_FILE_PATH}), Ints({0})})},
            {"2.32",
             {1, 2, 32},
             Concat({Ints({100, 1}), Strings({SPARSE_FILE_PATH}), NoDigestBytes(), Ints({0})})},
        });
}

TEST(FetchDebugInfo, InvalidHandleGetsTheSameThreeValuesAtEveryVersion) {
    DebuggerSession session;
    session.Load("fixture_a");
    void* stale = session.FreshHandle(kMethodShared);
    session.FetchMethods();
    int local = 0;
    for (void* handle : {stale, static_cast<void*>(&local), static_cast<void*>(nullptr)}) {
        for (ClientVersion version : {ClientVersion{0, 0, 0}, ClientVersion{1, 2, 12},
                                      ClientVersion{1, 2, 14}, ClientVersion{1, 3, 0}}) {
            SCOPED_TRACE(std::to_string(version.major) + "." + std::to_string(version.minor));
            EXPECT_EQ(session.DebugInfo(handle, version), InvalidMethodDebugInfo());
        }
    }
}

// The log of one query for fixture A's shared method, by log level.
LogLines SharedMethodLog(const std::string& entryLine, const std::string& token, int level) {
    const LogLines detail = {"METHOD DEBUG INFO TOKEN : " + token, "  FILE: src/Shared.cs",
                             "    HASH: 000102030405060708090A0B0C0D0E0F", "  FILE: src/A1.cs",
                             "    HASH: Null"};
    const LogLines points = {
        "  Sequence Points: ",          "    IL:0 StartLine:10",  "    File:0", "    StartColumn:5",
        "    EndLine:10  EndColumn:20", "    IL:6 StartLine:11",  "    File:0", "    StartColumn:9",
        "    EndLine:12  EndColumn:3",  "    IL:12 StartLine:40", "    File:1", "    StartColumn:1",
        "    EndLine:40  EndColumn:8"};
    LogLines lines = {entryLine};
    if (level >= 2) {
        lines.insert(lines.end(), detail.begin(), detail.end());
    }
    if (level >= 3) {
        lines.insert(lines.end(), points.begin(), points.end());
    }
    return lines;
}

TEST(FetchDebugInfo, LogsDetailByLevelWithItsIrregularSpacing) {
    for (int level : {1, 2, 3}) {
        SCOPED_TRACE("level " + std::to_string(level));
        DebuggerSession session(std::to_string(level).c_str());
        session.Load("fixture_a");
        void* handle = session.FreshHandle(kMethodShared);
        const size_t mark = session.LogMark();
        ReplyBuffer buffer;
        session.Record().fetchDebugInfo(&buffer, handle, 1, 2, 32);
        const std::string token =
            std::to_string(static_cast<const MethodCacheEntry*>(handle)->methodToken);
        EXPECT_EQ(session.LogSince(mark),
                  SharedMethodLog("FetchDebugInfo : " + Decimal(&buffer) + " " + Decimal(handle),
                                  token, level));
    }
}

TEST(FetchDebugInfo, LogsOnlyWhatTheVersionWrites) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    void* handle = session.FreshHandle(kMethodA1Only);
    const std::string tokenLine =
        "METHOD DEBUG INFO TOKEN : " +
        std::to_string(static_cast<const MethodCacheEntry*>(handle)->methodToken);
    const struct {
        ClientVersion version;
        LogLines afterEntryLine;
    } cases[] = {
        {{0, 3, 0},
         {tokenLine, "  FILE: src/A1.cs", "  Sequence Points: ", "    IL:0 StartLine:7"}},
        {{1, 2, 13},
         {tokenLine, "  FILE: src/A1.cs", "  Sequence Points: ", "    IL:0 StartLine:7",
          "    File:0"}},
    };
    for (const auto& row : cases) {
        const size_t mark = session.LogMark();
        ReplyBuffer buffer;
        session.Record().fetchDebugInfo(&buffer, handle, row.version.known, row.version.major,
                                        row.version.minor);
        LogLines expected = {"FetchDebugInfo : " + Decimal(&buffer) + " " + Decimal(handle)};
        expected.insert(expected.end(), row.afterEntryLine.begin(), row.afterEntryLine.end());
        EXPECT_EQ(session.LogSince(mark), expected);
    }
}

TEST(FetchDebugInfo, InvalidHandleLogsMethodNotValid) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    const size_t mark = session.LogMark();
    ReplyBuffer buffer;
    void* foreign = BreakpointHandle(-4096);
    session.Record().fetchDebugInfo(&buffer, foreign, 1, 2, 32);
    EXPECT_EQ(buffer.replies, InvalidMethodDebugInfo());
    EXPECT_EQ(session.LogSince(mark), (LogLines{"FetchDebugInfo : " + Decimal(&buffer) + " -4096",
                                                "    Method not valid"}));
}

}  // namespace
}  // namespace testing_support
