// quarn-debug-session run as a user runs it: the default session end to end, the options, and
// every kind of bad input.
#include <gtest/gtest.h>

#include <algorithm>

#include "ProgramRun.h"
#include "support/TempWorkingDirectory.h"

using testing_support::TempWorkingDirectory;

namespace {

ProgramRun RunSession(const std::vector<std::string>& arguments) {
    return RunProgram(SESSION_PROGRAM, arguments);
}

size_t CountLinesStartingWith(const std::vector<std::string>& lines, const std::string& prefix) {
    return static_cast<size_t>(std::count_if(
        lines.begin(), lines.end(), [&](const auto& line) { return line.rfind(prefix, 0) == 0; }));
}

const std::string kEntryPlayerUpdate = "0100000000000000E100000000000000";
const std::string kEntryInventorySort = "0200000000000000E100000000000000";
const std::string kEntryPlayerSpawn = "0300000000000000E100000000000000";

std::string Switched(const std::string& entry) {
    return "  entry " + entry +
           ": quarned -> managed -> quarned  (testBreakpointSet 1 -> 0)  switched";
}

std::string Untouched(const std::string& entry) {
    return "  entry " + entry + ": quarned -> quarned -> quarned  (testBreakpointSet 0 -> 0)";
}

class SessionTest : public ::testing::Test {
  protected:
    TempWorkingDirectory directory;  // the plug-in writes Logs/ under it
};

}  // namespace

TEST_F(SessionTest, DefaultSessionSwitchesBothEntryPointsOfTheSharedMethod) {
    const ProgramRun run = RunSession({});

    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    for (const std::string& line : {
             std::string("library_loaded(libquarn_sample.so): 3 items, 3 read by the plug-in; "
                         "flushClientKnowledge called 1 time(s)"),
             std::string("fetchFiles: 3 files"),
             std::string("fetchMethods: 5 methods"),
             std::string("isFileQuarned(\"Assets/Scripts/MathUtil.cs\") -> 1; it stands for "
                         "./Assets/Scripts/MathUtil.cs"),
             Switched(kEntryPlayerUpdate),
             Switched(kEntryInventorySort),
             Untouched(kEntryPlayerSpawn),
             std::string("the breakpoint switched 2 of 3 entry points to managed code and back"),
             std::string("library_unloaded(libquarn_sample.so): 0 of its entry points still "
                         "registered"),
             std::string("shut_down(): the debugger side's shutdownNotify called 1 time(s)"),
             std::string("dispose(): done"),
         }) {
        EXPECT_TRUE(run.PrintedLine(line)) << "missing: " << line << "\n" << run.out;
    }
    // The token depends on the order the plug-in lists its methods in; the hash does not.
    const std::string coverage =
        " (hash 30000000000000004D00000000000000): IL 0x000A  12:13-12:46  file 0";
    EXPECT_EQ(CountLinesStartingWith(run.OutLines(), "covered by method 0x0600000"), 1u);
    EXPECT_NE(run.out.find(coverage), std::string::npos) << run.out;
    // Every stub starts quarned, and every method's debug info is listed.
    EXPECT_EQ(CountLinesStartingWith(run.OutLines(), "register_entry "), 3u);
    EXPECT_EQ(CountLinesStartingWith(run.OutLines(), "  method 0x0600000"), 5u);
    EXPECT_EQ(run.OutLines().back(), "log (level 3): " + directory.LogPath());
}

TEST_F(SessionTest, LogHoldsTheSessionAndNothingOfTheNameProbe) {
    ASSERT_EQ(RunSession({}).status, 0);

    const std::vector<std::string> log = directory.LogLines();
    EXPECT_EQ(CountLinesStartingWith(log, "---STATE-START---"), 3u);  // load, set, remove
    EXPECT_EQ(CountLinesStartingWith(log, "QuarnBreakpointNotify : Add Breakpoint "), 1u);
    EXPECT_EQ(CountLinesStartingWith(log, "    Swapping Targets - disabling quarned method"), 2u);
    EXPECT_EQ(CountLinesStartingWith(log, "    Swapping Targets - enabling quarned method"), 2u);
    // The probe's handling object logs nothing: one writer, one isFileQuarned question.
    EXPECT_EQ(CountLinesStartingWith(log, "----SCRIPT-COMPILATION-MODE-CHANGE----"), 0u);
    EXPECT_EQ(CountLinesStartingWith(log, "IsQuarned : "), 1u);
}

TEST_F(SessionTest, LogLevelOptionSetsTheLevelOfTheLog) {
    const ProgramRun run = RunSession({"--log-level", "1"});

    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.PrintedLine("ORVEL_QUARN_DEBUG=1"));
    const std::vector<std::string> log = directory.LogLines();
    EXPECT_EQ(CountLinesStartingWith(log, "ProcessLibraryMetadata : "), 1u);
    EXPECT_EQ(CountLinesStartingWith(log, "---STATE-START---"), 0u);  // a level-2 line
}

TEST_F(SessionTest, EachBreakOptionIsResolvedByTheMatcherAndExercised) {
    // A base name, and a line of MathUtil.Lerp that exists only inlined into Player.Spawn.
    const ProgramRun run = RunSession({"--break", "Player.cs:20", "--break", "MathUtil.cs:17"});

    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.PrintedLine(
        "isFileQuarned(\"Player.cs\") -> 1; it stands for Assets/Scripts/Player.cs"));
    EXPECT_TRUE(run.PrintedLine(
        "isFileQuarned(\"MathUtil.cs\") -> 1; it stands for ./Assets/Scripts/MathUtil.cs"));
    EXPECT_EQ(CountLinesStartingWith(run.OutLines(), Switched(kEntryPlayerSpawn)), 2u);
    EXPECT_EQ(CountLinesStartingWith(run.OutLines(), Untouched(kEntryPlayerUpdate)), 2u);
    EXPECT_EQ(CountLinesStartingWith(run.OutLines(), "the breakpoint switched 1 of 3 "), 2u);
}

TEST_F(SessionTest, LibraryOptionsReplaceTheSampleAndShareMethodsAcrossLibraries) {
    const ProgramRun run = RunSession({"--library", TestLibrary("fixture_a"), "--library",
                                       TestLibrary("fixture_b"), "--break", "src/Shared.cs:10"});

    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.PrintedLine(Switched("A1000000000000000000000000000010")));
    EXPECT_TRUE(run.PrintedLine(Untouched("A2000000000000000000000000000010")));
    EXPECT_TRUE(run.PrintedLine(Switched("B1000000000000000000000000000020")));
    EXPECT_EQ(run.out.find("libquarn_sample.so"), std::string::npos);
}

TEST_F(SessionTest, HelpPrintsUsage) {
    const ProgramRun run = RunSession({"--help"});

    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out.rfind("usage: quarn-debug-session", 0), 0u);
    EXPECT_EQ(run.err, "");
}

struct BadSessionInput {
    const char* name;
    std::vector<std::string> arguments;
    int status;
    std::string message;  // part of the one stderr line
};

// Names the case in test listings (instead of its bytes).
void PrintTo(const BadSessionInput& value, std::ostream* out) {
    *out << value.name;
}

class SessionBadInputTest : public SessionTest,
                            public ::testing::WithParamInterface<BadSessionInput> {};

TEST_P(SessionBadInputTest, GivesOneLineOnStderrAndFails) {
    const ProgramRun run = RunSession(GetParam().arguments);

    EXPECT_EQ(run.status, GetParam().status);
    ASSERT_EQ(run.ErrLines().size(), 1u) << run.err;
    EXPECT_EQ(run.err.rfind("quarn-debug-session: ", 0), 0u) << run.err;
    EXPECT_NE(run.err.find(GetParam().message), std::string::npos) << run.err;
    EXPECT_EQ(run.out.find("breakpointNotify"), std::string::npos);  // nothing was set
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, SessionBadInputTest,
    ::testing::Values(
        BadSessionInput{
            "MissingFile", {"--library", "/nonexistent/libnothing.so"}, 1, "no such file"},
        BadSessionInput{"NotASharedObject",
                        {"--library", SAMPLE_SOURCES "/Player.cs"},
                        1,
                        "not a loadable shared object"},
        BadSessionInput{"NoDebugQuery",
                        {"--library", TestLibrary("fixture_no_query")},
                        1,
                        "exports no \"quarn.debug_query\""},
        BadSessionInput{"RejectedHeader",
                        {"--library", TestLibrary("fixture_bad_version")},
                        1,
                        "the plug-in ignores its debug tables (format version 0x20001"},
        BadSessionInput{"UnknownFile",
                        {"--break", "Nowhere.cs:3"},
                        1,
                        "Nowhere.cs:3: no compiled method covers it"},
        BadSessionInput{"UncoveredLine",
                        {"--break", "Assets/Scripts/MathUtil.cs:99"},
                        1,
                        "no compiled method covers line 99 of ./Assets/Scripts/MathUtil.cs"},
        BadSessionInput{
            "BreakWithoutLine", {"--break", "MathUtil.cs"}, 2, "is not of the form FILE:LINE"},
        BadSessionInput{"LineZero", {"--break", "MathUtil.cs:0"}, 2, "must be 1 or more"},
        BadSessionInput{
            "LogLevelNotANumber", {"--log-level", "high"}, 2, "--log-level must be a whole number"},
        BadSessionInput{"LibraryWithoutPath", {"--library"}, 2, "option --library needs a value"},
        BadSessionInput{"UnknownOption", {"--frobnicate"}, 2, "unknown argument '--frobnicate'"}),
    [](const auto& info) { return std::string(info.param.name); });
