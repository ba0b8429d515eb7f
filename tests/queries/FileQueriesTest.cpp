// Whether a source path is quarned, and the file list, asked through the callbacks record.

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "queries/DebuggerSession.h"

namespace testing_support {
namespace {

// A compiled library with one item naming exactly one source file, chosen at run time; naming
// another file reloads the item under the same hash, so the known file set is that one name.
class SingleFileLibrary {
  public:
    explicit SingleFileLibrary(DebuggerSession& session)
        : session(session), handle(session.Load("fixture_programmable_0")) {
        setLibrary =
            session.Library(0).Symbol<void(const quarn_debug_library*)>("programmable_set_library");
    }

    void Name(const std::string& fileName) {
        name = fileName;
        item = {1,
                1,
                1,
                kMethodFiles,
                kMethods,
                kOffsets,
                name.c_str(),
                nullptr,
                {0xF11E, 0x5000000000000000ull},
                kMethodHashes,
                kDigests,
                nullptr};
        library = {QUARN_DEBUG_FORMAT_VERSION, 1, &item};
        setLibrary(&library);
        session.Object().ProcessLibraryMetadata(handle);
    }

  private:
    static constexpr int32_t kOffsets[] = {0};
    static constexpr int32_t kMethodFiles[] = {0};
    static constexpr quarn_method_debug_info kMethods[] = {{0, 0, 1, 0}};
    static constexpr quarn_hash128 kMethodHashes[] = {{0xF11E, 1}};
    static constexpr int32_t kDigests[] = {-1};

    DebuggerSession& session;
    void* handle;
    void (*setLibrary)(const quarn_debug_library*) = nullptr;
    std::string name;
    quarn_debug_item item{};
    quarn_debug_library library{};
};

struct MatchCase {
    const char* element;  // the one known file name
    const char* path;     // what the debugger asks about
    int ignoreCase;
    int expected;
};

void ExpectMatches(const std::vector<MatchCase>& cases) {
    DebuggerSession session;
    SingleFileLibrary library(session);
    for (const MatchCase& row : cases) {
        SCOPED_TRACE(std::string("element '") + row.element + "', path '" + row.path +
                     "', ignoreCase " + std::to_string(row.ignoreCase));
        library.Name(row.element);
        ASSERT_EQ(session.Inspect().FileNames().size(), 1u);
        EXPECT_EQ(session.Record().isFileQuarned(row.ignoreCase, row.path), row.expected);
    }
}

TEST(FileMatching, EitherSeparatorEqualsTheOther) {
    ExpectMatches({
        {"Assets/Scripts/Player.cs", "Assets\\Scripts\\Player.cs", 0, 1},
        {"Assets\\Scripts\\Player.cs", "Assets/Scripts/Player.cs", 0, 1},
        {"Assets/Scripts\\Player.cs", "Assets\\Scripts/Player.cs", 0, 1},
        {"Assets/Scripts/Player.cs", "Assets\\Scripts\\Player.cs", 1, 1},
        {"a/b\\c.cs", "a\\b/c.cs", 0, 1},
        // A separator equals only a separator.
        {"Assets/Scripts/Player.cs", "Assets/Scripts.Player.cs", 0, 0},
    });
}

TEST(FileMatching, CaseIsFoldedOnlyWhenAsked) {
    ExpectMatches({
        {"Assets/Scripts/Player.cs", "assets/scripts/player.cs", 0, 0},
        {"Assets/Scripts/Player.cs", "assets/scripts/player.cs", 1, 1},
        {"Assets/Scripts/Player.cs", "ASSETS\\SCRIPTS\\PLAYER.CS", 1, 1},
        {"Assets/Scripts/Player.cs", "player.cs", 0, 0},
        {"Assets/Scripts/Player.cs", "player.cs", 1, 1},
        {"Assets/Scripts/Player.cs", "PLAYER.CS", 7, 1},  // any non-zero value ignores case
        {"Assets/Scripts/Player.cs", "PLAYER.CS", -1, 1},
        // Folding is per letter: other bytes still have to be equal.
        {"dir/Player-1.cs", "dir/player_1.cs", 1, 0},
    });
}

TEST(FileMatching, PathWithDirectoryPartComparesInFull) {
    ExpectMatches({
        {"Assets/Scripts/Player.cs", "Assets/Scripts/Player.cs", 0, 1},
        {"Assets/Scripts/Player.cs", "Scripts/Player.cs", 0, 0},  // not a suffix test
        {"Assets/Scripts/Player.cs", "/proj/Assets/Scripts/Player.cs", 0, 0},
        {"Assets/Scripts/Player.cs", "Assets/Scripts/Player.c", 0, 0},
        {"Assets/Scripts/Player.cs", "Assets/Scripts/Player.css", 0, 0},
        // Only "./" and ".\" make an element relative.
        {"../Scripts/Player.cs", "/proj/Scripts/Player.cs", 0, 0},
        {"../Scripts/Player.cs", "../Scripts/Player.cs", 0, 1},
    });
}

TEST(FileMatching, RelativeElementIsAPureSuffix) {
    ExpectMatches({
        {"./Scripts/Player.cs", "/home/u/proj/Scripts/Player.cs", 0, 1},
        {"./Scripts/Player.cs", "C:\\proj\\Scripts\\Player.cs", 0, 1},
        {".\\Scripts\\Player.cs", "/home/u/proj/Scripts/Player.cs", 0, 1},
        {"./Scripts/Player.cs", "Scripts/Player.cs", 0, 1},
        {"./Scripts/Player.cs", "./Scripts/Player.cs", 0, 1},
        // Nothing requires a separator before the suffix.
        {"./Scripts/Player.cs", "/home/u/proj/MyScripts/Player.cs", 0, 1},
        {"./A.cs", "/x/MyA.cs", 0, 1},
        {"./Scripts/Player.cs", "/home/u/proj/Scripts/Enemy.cs", 0, 0},
        {"./Scripts/Player.cs", "ts/Player.cs", 0, 0},  // shorter than the suffix
        {"./Scripts/Player.cs", "/p/SCRIPTS/player.CS", 0, 0},
        {"./Scripts/Player.cs", "/p/SCRIPTS/player.CS", 1, 1},
    });
}

TEST(FileMatching, PathWithoutDirectoryPartMatchesTheBaseName) {
    ExpectMatches({
        {"Assets/Scripts/Player.cs", "Player.cs", 0, 1},
        {"./Scripts/Player.cs", "Player.cs", 0, 1},
        {"dir\\Player.cs", "Player.cs", 0, 1},  // backslash only: after the last '\'
        // With a '/', the base name follows the last '/', whatever backslashes follow it.
        {"a/b\\c.cs", "c.cs", 0, 0},
        {"a/b\\c.cs", "b", 0, 0},
        {"Player.cs", "Player.cs", 0, 1},  // no separator: the whole element
        {"Assets/Scripts/Player.cs", "Scripts", 0, 0},
        {"Assets/Scripts/Player.cs", "Player", 0, 0},
        {"Assets/Scripts/Player.cs", "layer.cs", 0, 0},
    });
}

TEST(FileMatching, EmptyPathMatchesOnlyAnEmptyBaseName) {
    ExpectMatches({
        {"dir/", "", 0, 1},
        {"dir\\", "", 0, 1},
        {"./", "", 0, 1},
        {"Assets/Player.cs", "", 0, 0},
        {"Player.cs", "", 1, 0},
    });
}

TEST(FileMatching, DotSlashElementMatchesEveryPathWithADirectoryPart) {
    ExpectMatches({
        {"./", "/any/where/File.cs", 0, 1},
        {"./", "C:\\File.cs", 0, 1},
        {"./", "x/", 0, 1},
        {".\\", "/any/where/File.cs", 0, 1},
        {"./", "File.cs", 0, 0},  // no directory part: its base name is empty
    });
}

TEST(FileMatching, AnyOfSeveralKnownFilesMatches) {
    DebuggerSession session;
    session.Load("fixture_a");
    session.Load("fixture_b");
    mdh_callbacks& record = session.Record();
    EXPECT_EQ(record.isFileQuarned(0, "src/A2.cs"), 1);
    EXPECT_EQ(record.isFileQuarned(0, "/work/proj/B/B1.cs"), 1);  // from "./B/B1.cs"
    EXPECT_EQ(record.isFileQuarned(0, "B1.cs"), 1);
    EXPECT_EQ(record.isFileQuarned(0, "src/Missing.cs"), 0);
}

TEST(IsFileQuarned, NothingKnownMatchesNothing) {
    DebuggerSession session;
    EXPECT_EQ(session.Record().isFileQuarned(1, ""), 0);
    EXPECT_EQ(session.Record().isFileQuarned(0, "Player.cs"), 0);
}

TEST(IsFileQuarned, LogsTheAnswerWithTheCaseFlag) {
    DebuggerSession session("1");
    session.Load("fixture_a");
    const size_t mark = session.LogMark();
    mdh_callbacks& record = session.Record();
    EXPECT_EQ(record.isFileQuarned(0, "src/A1.cs"), 1);
    EXPECT_EQ(record.isFileQuarned(1, "nothing.cs"), 0);
    EXPECT_EQ(record.isFileQuarned(-3, "A2.CS"), 1);
    EXPECT_EQ(record.isFileQuarned(0, ""), 0);
    EXPECT_EQ(session.LogSince(mark), (LogLines{
                                          "IsQuarned : 0 src/A1.cs : TRUE",
                                          "IsQuarned : 1 nothing.cs : FALSE",
                                          "IsQuarned : -3 A2.CS : TRUE",
                                          "IsQuarned : 0  : FALSE",
                                      }));
}

std::set<std::string> FixtureFilesOfAAndB() {
    return {FIXTURE_SHARED_PATH, FIXTURE_A1_PATH, FIXTURE_A2_PATH, FIXTURE_B1_PATH};
}

// The file names of a file-list reply, after checking its count.
std::vector<std::string> ListedFiles(const Replies& replies) {
    EXPECT_FALSE(replies.empty());
    EXPECT_EQ(replies.front(), Int(static_cast<int32_t>(replies.size() - 1)));
    std::vector<std::string> files;
    for (size_t i = 1; i < replies.size(); ++i) {
        EXPECT_EQ(replies[i].kind, Reply::Kind::String);
        files.push_back(replies[i].text);
    }
    return files;
}

TEST(FetchFiles, RepliesTheCountThenEveryDistinctFileOnce) {
    DebuggerSession session;
    session.Load("fixture_a");
    session.Load("fixture_b");  // names src/Shared.cs again
    ReplyBuffer buffer;
    session.Record().fetchFiles(&buffer, 0, 0, 0, 0);
    ASSERT_EQ(buffer.replies.size(), 5u);
    const std::vector<std::string> files = ListedFiles(buffer.replies);
    EXPECT_EQ(std::set<std::string>(files.begin(), files.end()), FixtureFilesOfAAndB());
}

TEST(FetchFiles, LogsEntryTotalAndEachPathInReplyOrder) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    session.Load("fixture_b");
    const size_t mark = session.LogMark();
    ReplyBuffer buffer;
    session.Record().fetchFiles(&buffer, 4294967295u, 1, 2, 13);
    LogLines expected = {"FetchFiles : " + Decimal(&buffer) + " 4294967295 ", "    TotalFiles : 4"};
    for (const std::string& file : ListedFiles(buffer.replies)) {
        expected.push_back("        Path : " + file);
    }
    EXPECT_EQ(session.LogSince(mark), expected);
}

TEST(FetchFiles, PathLinesNeedLevelThree) {
    DebuggerSession session("2");
    session.Load("fixture_a");
    const size_t mark = session.LogMark();
    ReplyBuffer buffer;
    session.Record().fetchFiles(&buffer, 7, 0, 0, 0);
    EXPECT_EQ(buffer.replies.size(), 4u);
    EXPECT_EQ(session.LogSince(mark),
              (LogLines{"FetchFiles : " + Decimal(&buffer) + " 7 ", "    TotalFiles : 3"}));
}

TEST(FetchFiles, NothingKnownRepliesZeroAlone) {
    DebuggerSession session("3");
    const size_t mark = session.LogMark();
    ReplyBuffer buffer;
    session.Record().fetchFiles(&buffer, 0, 0, 0, 0);
    EXPECT_EQ(buffer.replies, Ints({0}));
    EXPECT_EQ(session.LogSince(mark),
              (LogLines{"FetchFiles : " + Decimal(&buffer) + " 0 ", "    TotalFiles : 0"}));
}

TEST(FetchFiles, ListFollowsUnloads) {
    DebuggerSession session;
    session.Load("fixture_a");
    void* b = session.Load("fixture_b");
    session.Object().UnloadLibraryMetadata(b);
    ReplyBuffer buffer;
    session.Record().fetchFiles(&buffer, 0, 0, 0, 0);
    const std::vector<std::string> files = ListedFiles(buffer.replies);
    EXPECT_EQ(std::set<std::string>(files.begin(), files.end()),
              (std::set<std::string>{FIXTURE_SHARED_PATH, FIXTURE_A1_PATH, FIXTURE_A2_PATH}));
}

}  // namespace
}  // namespace testing_support
