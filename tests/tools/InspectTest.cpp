// quarn-debug-inspect run as a user runs it: the text and JSON dump of the sample, --check on
// libraries that break one rule each, --match on the path forms of the file matcher, bad input.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>

#include "ProgramRun.h"

namespace {

ProgramRun RunInspect(const std::vector<std::string>& arguments) {
    return RunProgram(INSPECT_PROGRAM, arguments);
}

// The digest md5sum computes for one of the sample's source files.
std::string Md5sumOfSampleSource(const std::string& file) {
    const ProgramRun run = RunProgram("/usr/bin/md5sum", {SAMPLE_SOURCES "/" + file});
    return run.out.substr(0, 32);
}

// Runs a small Python program on the inspector's JSON output and returns what it printed.
std::string QueryJson(const std::string& json, const std::string& expression) {
    char path[] = "/tmp/inspect-json-XXXXXX";
    const int file = mkstemp(path);
    const ssize_t written = write(file, json.data(), json.size());
    close(file);
    const ProgramRun run = RunProgram(
        "/usr/bin/python3",
        {"-c", "import json,sys; d=json.load(open(sys.argv[1])); print(" + expression + ")", path});
    unlink(path);
    EXPECT_EQ(written, static_cast<ssize_t>(json.size()));
    EXPECT_EQ(run.status, 0) << run.err;
    return run.out.empty() ? run.out : run.out.substr(0, run.out.size() - 1);
}

}  // namespace

TEST(InspectTest, TextDumpShowsHeaderItemsFilesDigestsMethodsAndPoints) {
    const ProgramRun run = RunInspect({SAMPLE_LIBRARY});

    ASSERT_EQ(run.status, 0) << run.err;
    for (const std::string& line : {
             std::string(SAMPLE_LIBRARY),
             std::string("  header: format version 0x20000, 3 items; the plug-in reads this "
                         "library"),
             std::string("  item 1: hash 0100000000000000E100000000000000, 3 methods, 3 files, "
                         "field 2 = 1"),
             "    file 0: Assets/Scripts/Player.cs  md5 " + Md5sumOfSampleSource("Player.cs"),
             "    file 1: Assets/Scripts/Inventory.cs  md5 " + Md5sumOfSampleSource("Inventory.cs"),
             "    file 2: ./Assets/Scripts/MathUtil.cs  md5 " + Md5sumOfSampleSource("MathUtil.cs"),
             std::string("    method 2: hash 30000000000000004D00000000000000, files 2, 5 "
                         "sequence points"),
             std::string("      IL 0x000A  12:13-12:46  file 0"),
             std::string("  item 3: hash 0300000000000000E100000000000000, 1 methods, 2 files, "
                         "field 2 = 1"),
             std::string("    method 0: hash 11000000000000004D00000000000000, files 0, 1, 5 "
                         "sequence points"),
             std::string("      IL 0x0003  17:13-17:43  file 1"),
         }) {
        EXPECT_TRUE(run.PrintedLine(line)) << "missing: " << line << "\n" << run.out;
    }
}

TEST(InspectTest, TextDumpNamesTheItemsThePluginSkips) {
    const ProgramRun run = RunInspect({TestLibrary("fixture_skip")});

    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(
        run.PrintedLine("  item 2: 5 methods, 0 files, field 2 = 1: skipped by the plug-in"))
        << run.out;
}

TEST(InspectTest, JsonIsOneDocumentWithTheSameTables) {
    const ProgramRun run = RunInspect({"--json", SAMPLE_LIBRARY, TestLibrary("fixture_skip")});

    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(QueryJson(run.out, "len(d['libraries'])"), "2");
    const std::string sample = "d['libraries'][0]";
    EXPECT_EQ(QueryJson(run.out, sample + "['pluginReadsLibrary'], " + sample + "['version']"),
              "True 131072");
    EXPECT_EQ(QueryJson(run.out, sample + "['items'][0]['hash']"),
              "0100000000000000E100000000000000");
    EXPECT_EQ(QueryJson(run.out, sample + "['items'][0]['files'][2]['md5']"),
              Md5sumOfSampleSource("MathUtil.cs"));
    EXPECT_EQ(QueryJson(run.out, sample + "['items'][2]['methods'][0]['files']"), "[0, 1]");
    EXPECT_EQ(QueryJson(run.out, sample + "['items'][2]['methods'][0]['sequencePoints'][2]"),
              "{'ilOffset': 3, 'startLine': 17, 'startColumn': 13, 'endLine': 17, "
              "'endColumn': 43, 'file': 1}");
    EXPECT_EQ(QueryJson(run.out, "d['libraries'][1]['items'][1]['skippedByPlugin']"), "True");
}

// ---- --check ------------------------------------------------------------------------------

struct BrokenLibrary {
    const char* library;  // broken_<name>, see broken_tables.c
    size_t problems;
    std::string firstProblem;  // the line naming item, method and field
};

// Names the case in test listings (instead of its bytes).
void PrintTo(const BrokenLibrary& value, std::ostream* out) {
    *out << value.library;
}

class InspectCheckTest : public ::testing::TestWithParam<BrokenLibrary> {};

TEST_P(InspectCheckTest, NamesTheProblemWithItemMethodAndField) {
    const ProgramRun run = RunInspect({"--check", TestLibrary(GetParam().library)});

    EXPECT_EQ(run.status, 1) << run.out << run.err;
    const std::vector<std::string> lines = run.OutLines();
    ASSERT_GE(lines.size(), 3u) << run.out;
    EXPECT_EQ(lines[2], "  check: " + std::to_string(GetParam().problems) + " problem(s)");
    ASSERT_GE(lines.size(), 4u) << run.out;
    EXPECT_EQ(lines[3], GetParam().firstProblem);
}

INSTANTIATE_TEST_SUITE_P(
    Rules, InspectCheckTest,
    ::testing::Values(
        BrokenLibrary{"broken_version", 1,
                      "  header field version: format version 0x10000, expected 0x20000: the "
                      "plug-in ignores the library"},
        BrokenLibrary{"broken_item_count", 1,
                      "  header field itemCount: 0 items: the plug-in ignores the library"},
        BrokenLibrary{"broken_zero_methods", 1,
                      "  item 1 field methodCount: 0 methods: the plug-in skips this item"},
        BrokenLibrary{"broken_zero_files", 1,
                      "  item 1 field fileCount: 0 files: the plug-in skips this item"},
        BrokenLibrary{"broken_zero_aux", 1,
                      "  item 1 field auxCount: 0 field 2: the plug-in skips this item"},
        BrokenLibrary{"broken_negative_methods", 1,
                      "  item 1 field methodCount: negative (-1): the plug-in keeps the item but "
                      "sees no methods of it"},
        BrokenLibrary{"broken_method_file_index", 1,
                      "  item 1 method 1 field methodFileIndices[2]: file number 5 is outside "
                      "the item's 2 files"},
        BrokenLibrary{"broken_point_file", 1,
                      "  item 1 method 1 field sequencePoints[3].file: file 2 is outside the "
                      "method's 2 files"},
        BrokenLibrary{"broken_first_file", 1,
                      "  item 1 method 1 field methods[1].firstFile: negative (-1)"},
        BrokenLibrary{"broken_point_count", 1,
                      "  item 1 method 0 field methods[0].sequencePointCount: negative (-1)"},
        BrokenLibrary{"broken_name_offset", 1,
                      "  item 1 field fileNameOffsets[1]: negative offset -3"},
        BrokenLibrary{"broken_null_name_offsets", 1,
                      "  item 1 field fileNameOffsets: null, but 2 elements are needed"},
        BrokenLibrary{"broken_null_points", 2,
                      "  item 1 method 0 field sequencePoints: null, but the method's sequence "
                      "points are listed there"},
        BrokenLibrary{"broken_null_digests", 1,
                      "  item 1 field fileMD5Indices[0]: digest 0, but md5Hashes is null"},
        BrokenLibrary{"broken_method_hash", 1,
                      "  item 1 method 1 field methodHashes[1]: repeats the hash of method 0: "
                      "the debugger only sees method 0"},
        BrokenLibrary{"broken_item_hash", 1,
                      "  item 2 field hash: the same as item 1's: the plug-in keeps only the "
                      "later of the two"}),
    [](const auto& info) { return std::string(info.param.library); });

TEST(InspectTest, CheckPassesValidTablesWithStatusZero) {
    const ProgramRun run = RunInspect({"--check", TestLibrary("broken_valid"), SAMPLE_LIBRARY});

    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_EQ(run.OutLines().size(), 6u) << run.out;
    EXPECT_TRUE(run.PrintedLine("  check: 0 problem(s)"));
}

TEST(InspectTest, CheckAsJsonListsTheProblems) {
    const ProgramRun run =
        RunInspect({"--check", "--json", TestLibrary("broken_method_file_index")});

    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(QueryJson(run.out,
                        "[(p['item'], p['method'], p['field']) for p in "
                        "d['libraries'][0]['problems']]"),
              "[(1, 1, 'methodFileIndices[2]')]");
    EXPECT_EQ(QueryJson(run.out, "'items' in d['libraries'][0]"), "False");
}

// ---- --match ------------------------------------------------------------------------------

struct MatchCase {
    const char* name;
    std::string path;
    bool ignoreCase;
    std::vector<std::string> expected;  // lines after the summary line
};

// Names the case in test listings (instead of its bytes).
void PrintTo(const MatchCase& value, std::ostream* out) {
    *out << value.name;
}

class InspectMatchTest : public ::testing::TestWithParam<MatchCase> {};

// libfixture_b.so names src/Shared.cs (item 1 file 0) and ./B/B1.cs (item 1 file 1).
TEST_P(InspectMatchTest, ListsTheFileNamesTheDebuggerTreatsAsThePath) {
    std::vector<std::string> arguments{"--match", GetParam().path};
    if (GetParam().ignoreCase) {
        arguments.push_back("--ignore-case");
    }
    arguments.push_back(TestLibrary("fixture_b"));
    const ProgramRun run = RunInspect(arguments);

    ASSERT_EQ(run.status, 0) << run.err;
    const std::vector<std::string> lines = run.OutLines();
    ASSERT_EQ(lines.size(), 3 + GetParam().expected.size()) << run.out;
    EXPECT_EQ(lines[2], "  match '" + GetParam().path + "'" +
                            (GetParam().ignoreCase ? " ignoring case" : "") + ": " +
                            std::to_string(GetParam().expected.size()) + " file name(s)");
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 3, lines.end()), GetParam().expected);
}

const std::string kShared = "    src/Shared.cs  (item 1 file 0)";
const std::string kB1 = "    ./B/B1.cs  (item 1 file 1)";

INSTANTIATE_TEST_SUITE_P(
    PathForms, InspectMatchTest,
    ::testing::Values(
        MatchCase{"InFull", "src/Shared.cs", false, {kShared}},            // in full
        MatchCase{"BaseName", "Shared.cs", false, {kShared}},              // base name
        MatchCase{"CaseCounts", "shared.cs", false, {}},                   // case counts...
        MatchCase{"CaseIgnored", "shared.cs", true, {kShared}},            // ...unless ignored
        MatchCase{"EitherSeparator", "src\\Shared.cs", false, {kShared}},  // either separator
        MatchCase{
            "NoSuffixTestForFullElements", "/work/src/Shared.cs", false, {}},  // no suffix test
        MatchCase{
            "RelativeElementBySuffix", "/home/u/proj/B/B1.cs", false, {kB1}},  // ./ element: suffix
        MatchCase{"RelativeElementWindowsPath", "C:\\proj\\B\\B1.cs", false, {kB1}},
        MatchCase{"SuffixWithoutSeparatorCheck",
                  "/home/u/proj/XB/B1.cs",
                  false,
                  {kB1}},  // no separator check
        MatchCase{"RelativeElementBaseName", "B1.cs", false, {kB1}},
        MatchCase{"ShorterThanSuffix", "/B1.cs", false, {}},  // shorter than the element's suffix
        MatchCase{"UnknownName", "Enemy.cs", false, {}}),
    [](const auto& info) { return std::string(info.param.name); });

// ---- bad input ----------------------------------------------------------------------------

struct BadInspectInput {
    const char* name;
    std::vector<std::string> arguments;
    std::string message;  // part of the one stderr line
};

// Names the case in test listings (instead of its bytes).
void PrintTo(const BadInspectInput& value, std::ostream* out) {
    *out << value.name;
}

class InspectBadInputTest : public ::testing::TestWithParam<BadInspectInput> {};

TEST_P(InspectBadInputTest, GivesOneLineOnStderrAndStatusTwo) {
    const ProgramRun run = RunInspect(GetParam().arguments);

    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    ASSERT_EQ(run.ErrLines().size(), 1u) << run.err;
    EXPECT_EQ(run.err.rfind("quarn-debug-inspect: ", 0), 0u) << run.err;
    EXPECT_NE(run.err.find(GetParam().message), std::string::npos) << run.err;
}

INSTANTIATE_TEST_SUITE_P(
    Inputs, InspectBadInputTest,
    ::testing::Values(
        BadInspectInput{"NoLibrary", {}, "no library given"},
        BadInspectInput{"MissingFile", {"/nonexistent/libnothing.so"}, "no such file"},
        BadInspectInput{
            "NotASharedObject", {SAMPLE_SOURCES "/Player.cs"}, "not a loadable shared object"},
        BadInspectInput{
            "NoDebugQuery", {TestLibrary("fixture_no_query")}, "exports no \"quarn.debug_query\""},
        BadInspectInput{
            "MissingSecondLibrary", {SAMPLE_LIBRARY, "/nonexistent/libnothing.so"}, "no such file"},
        BadInspectInput{
            "UnknownOption", {"--verbose", SAMPLE_LIBRARY}, "unknown option '--verbose'"},
        BadInspectInput{"IgnoreCaseWithoutMatch",
                        {"--ignore-case", SAMPLE_LIBRARY},
                        "--ignore-case applies to --match"},
        BadInspectInput{"MatchWithoutPath", {SAMPLE_LIBRARY, "--match"}, "--match needs a PATH"}),
    [](const auto& info) { return std::string(info.param.name); });
