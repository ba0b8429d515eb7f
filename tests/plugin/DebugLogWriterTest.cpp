// Each test runs in a process of its own, so each starts as the first writer of its process.
#include "plugin/DebugLogWriter.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <vector>

#include "support/TempWorkingDirectory.h"

namespace {

using testing_support::TempWorkingDirectory;

constexpr const char* kLogName = "quarn-mono-debug.log";
constexpr const char* kSeparator = "----SCRIPT-COMPILATION-MODE-CHANGE----";

std::string FileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Leaves a log from an earlier run behind.
void WriteStaleLog(const TempWorkingDirectory& directory) {
    std::filesystem::create_directory(directory.Path() + "/Logs");
    std::ofstream(directory.LogPath()) << "stale line from an earlier run\n";
}

// A writer's level and the lines its file should then hold.
struct LevelLines {
    int level;
    std::vector<std::string> lines;
};

void PrintTo(const LevelLines& testCase, std::ostream* out) {
    *out << "level=" << testCase.level;
}

// ---- Levels ----

class DebugLogLevel : public ::testing::TestWithParam<LevelLines> {};

TEST_P(DebugLogLevel, WritesExactlyTheMessagesAtOrBelowItsLevel) {
    TempWorkingDirectory directory;
    DebugLogWriter writer(GetParam().level, kLogName);
    writer.Log(1, "one");
    writer.Log(2, "two");
    writer.Log(3, "three");
    EXPECT_EQ(directory.LogLines(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(Levels, DebugLogLevel,
                         ::testing::Values(LevelLines{-1, {}}, LevelLines{0, {}},
                                           LevelLines{1, {"one"}}, LevelLines{2, {"one", "two"}},
                                           LevelLines{3, {"one", "two", "three"}},
                                           LevelLines{9, {"one", "two", "three"}}));

// ---- Line format ----

TEST(DebugLogFile, WritesTextVerbatimWithOneNewlineAndEmptyTextAsAnEmptyLine) {
    TempWorkingDirectory directory;
    DebugLogWriter writer(1, kLogName);
    writer.Log(1, "RegisterEntryPoint : 0 x");
    writer.Log(1, "");
    writer.Log(1, "last");
    // Read while the writer is still open: every line is flushed when Log returns.
    EXPECT_EQ(FileText(directory.LogPath()), "RegisterEntryPoint : 0 x\n\nlast\n");
}

TEST(DebugLogFile, LogImplWritesWhateverTheLevel) {
    TempWorkingDirectory directory;
    DebugLogWriter writer(0, kLogName);
    writer.Log(1, "filtered");
    writer.LogImpl("unconditional");
    EXPECT_EQ(FileText(directory.LogPath()), "unconditional\n");
}

// ---- First writer truncates, later writers append ----

// The parameter is the first writer's; even a writer at level 0 empties an earlier log.
class DebugLogFirstWriter : public ::testing::TestWithParam<LevelLines> {};

TEST_P(DebugLogFirstWriter, TruncatesAnEarlierLog) {
    TempWorkingDirectory directory;
    WriteStaleLog(directory);
    DebugLogWriter writer(GetParam().level, kLogName);
    writer.Log(1, "fresh");
    EXPECT_TRUE(directory.LogExists());
    EXPECT_EQ(directory.LogLines(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(FirstWriterLevels, DebugLogFirstWriter,
                         ::testing::Values(LevelLines{0, {}}, LevelLines{1, {"fresh"}}));

TEST(DebugLogFile, CreatesTheLogsDirectoryWithMode0775) {
    TempWorkingDirectory directory;
    const mode_t previousMask = umask(0);
    DebugLogWriter writer(1, kLogName);
    umask(previousMask);

    struct stat status {};
    ASSERT_EQ(stat((directory.Path() + "/Logs").c_str(), &status), 0);
    EXPECT_TRUE(S_ISDIR(status.st_mode));
    EXPECT_EQ(status.st_mode & 07777, 0775u);
}

// The parameter is the second writer's.
class DebugLogSecondWriter : public ::testing::TestWithParam<LevelLines> {};

TEST_P(DebugLogSecondWriter, AppendsAfterASeparatorWhenItsLevelAllows) {
    TempWorkingDirectory directory;
    DebugLogWriter first(1, kLogName);
    first.Log(1, "first");
    DebugLogWriter second(GetParam().level, kLogName);
    second.Log(1, "second");
    EXPECT_EQ(directory.LogLines(), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(SecondWriterLevels, DebugLogSecondWriter,
                         ::testing::Values(LevelLines{0, {"first"}},
                                           LevelLines{1, {"first", kSeparator, "second"}},
                                           LevelLines{3, {"first", kSeparator, "second"}}));

// ---- Failures stay silent ----

TEST(DebugLogFile, WriterWithoutWorkingDirectoryIsInertAndLeavesTheNextOneFirst) {
    TempWorkingDirectory directory;
    const std::string removed = directory.Path() + "/removed";
    ASSERT_EQ(mkdir(removed.c_str(), 0700), 0);
    ASSERT_EQ(chdir(removed.c_str()), 0);
    ASSERT_EQ(rmdir(removed.c_str()), 0);  // getcwd now fails

    DebugLogWriter inert(1, kLogName);
    inert.Log(1, "lost");
    EXPECT_FALSE(inert.IsOpen());

    ASSERT_EQ(chdir(directory.Path().c_str()), 0);
    WriteStaleLog(directory);
    DebugLogWriter next(1, kLogName);
    next.Log(1, "kept");
    EXPECT_EQ(FileText(directory.LogPath()), "kept\n");  // truncated, no separator
}

TEST(DebugLogFile, WriterThatCannotOpenTheFileStillCountsAsTheFirst) {
    TempWorkingDirectory directory;
    std::ofstream(directory.Path() + "/Logs") << "a file where the directory should be\n";

    DebugLogWriter blocked(1, kLogName);
    blocked.Log(1, "lost");
    EXPECT_FALSE(blocked.IsOpen());

    std::filesystem::remove(directory.Path() + "/Logs");
    DebugLogWriter next(1, kLogName);
    next.Log(1, "appended");
    EXPECT_EQ(directory.LogLines(), (std::vector<std::string>{kSeparator, "appended"}));
}

}  // namespace
