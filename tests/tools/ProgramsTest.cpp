// The session demo and the inspector run as a user runs them.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "support/Command.h"
#include "support/Fixtures.h"
#include "support/TempWorkingDirectory.h"

namespace {

using testing_support::CompiledLibraryPath;

// Runs a program (command[0]) through the shell: its exit status, stdout and stderr. Under the
// leak checker it keeps its list of suppressed leaks to itself, so stderr holds only its own words.
std::tuple<int, std::string, std::string> RunProgram(const std::vector<std::string>& command) {
    const std::string errors = "/tmp/mdh-program-" + std::to_string(getpid());
    std::string line = "LSAN_OPTIONS=\"$LSAN_OPTIONS:print_suppressions=0\"";
    for (const std::string& word : command)
        line += " '" + word + "'";
    int status = -1;
    const std::string out = testing_support::CommandOutput(line + " 2>" + errors, &status);
    const std::string err{std::istreambuf_iterator<char>(std::ifstream(errors).rdbuf()), {}};
    std::remove(errors.c_str());
    return {status, out, err};
}

}  // namespace

// Each row: a run that succeeds, and lines its standard output holds.
TEST(ProgramsTest, SessionAndInspectorPrintWhatTheyAreAskedFor) {
    testing_support::TempWorkingDirectory directory;  // the session's plug-in writes Logs/ here
    const std::string skip = CompiledLibraryPath("fixture_skip");
    const std::string md5 =
        testing_support::CommandOutput("md5sum " SAMPLE_SOURCES "/MathUtil.cs").substr(0, 32);
    const std::string entry = "00000000000000E100000000000000: quarned -> ";
    const std::pair<std::vector<std::string>, std::vector<std::string>> runs[] = {
        {{SESSION_PROGRAM},
         {"library_loaded(libquarn_sample.so): 3 items, 3 read by the plug-in; "
          "flushClientKnowledge called 1 time(s)\n",
          "isFileQuarned(\"Assets/Scripts/MathUtil.cs\") -> 1; it stands for "
          "./Assets/Scripts/MathUtil.cs\n",
          // The token depends on the order the plug-in lists its methods in; the hash does not.
          " (hash 30000000000000004D00000000000000): IL 0x000A  12:13-12:46  file 0\n",
          "  entry 01" + entry + "managed -> quarned  (testBreakpointSet 1 -> 0)  switched\n",
          "  entry 02" + entry + "managed -> quarned  (testBreakpointSet 1 -> 0)  switched\n",
          "  entry 03" + entry + "quarned -> quarned  (testBreakpointSet 0 -> 0)\n",
          "log (level 3): " + directory.LogPath() + "\n"}},
        {{INSPECT_PROGRAM, SAMPLE_LIBRARY, skip},
         {"\n    file 2: ./Assets/Scripts/MathUtil.cs  md5 " + md5 + "\n",
          "\n    method 0: hash 11000000000000004D00000000000000, files 0, 1, 5 sequence points\n",
          "\n      IL 0x0003  17:13-17:43  file 1\n",
          "\n  item 2: 5 methods, 0 files, field 2 = 1: skipped by the plug-in\n"}},
        {{INSPECT_PROGRAM, "--json", skip},
         {R"({"libraries":[{"path":")" + skip +
          R"(","pluginReadsLibrary":true,"version":131072,"itemCount":3,"items":[{"item":1,)"
          R"("hash":"01510000000000000000000000000030","methodCount":1,"fileCount":1,"auxCount":1,)"
          R"("skippedByPlugin":false,"files":[{"file":0,"name":"skip/One.cs","md5":null}],)"
          R"("methods":[{"method":0,"hash":"01510000000000007700000000000000",)"
          R"("sequencePointCount":1,"firstSequencePoint":0,"fileCount":1,"firstFile":0,"files":[0],)"
          R"("sequencePoints":[{"ilOffset":0,"startLine":1,"startColumn":1,"endLine":1,)"
          R"("endColumn":2,"file":0}]}]},{"item":2,"hash":null,)"}},
        // libfixture_b.so names ./B/B1.cs (item 1 file 1); a name with a ./ element matches any
        // path that ends in the rest of it, also where the suffix does not start at a separator.
        {{INSPECT_PROGRAM, "--match", "/home/u/proj/XB/B1.cs", CompiledLibraryPath("fixture_b")},
         {"library\n  match '/home/u/proj/XB/B1.cs': 1 file name(s)\n"
          "    ./B/B1.cs  (item 1 file 1)\n"}},
    };
    for (const auto& [command, lines] : runs) {
        const auto [status, out, err] = RunProgram(command);
        EXPECT_EQ(status, 0) << err;
        EXPECT_EQ(err, "");
        for (const std::string& line : lines)
            EXPECT_NE(out.find(line), std::string::npos) << line << out;
    }
}

// One row per kind of error: a missing or unloadable library, one without usable tables, a
// breakpoint no method covers, and a command line that makes no sense.
TEST(ProgramsTest, BadInputGivesOneLineOnStderrAndFails) {
    testing_support::TempWorkingDirectory directory;
    const std::string session = SESSION_PROGRAM, inspect = INSPECT_PROGRAM, lib = "--library";
    const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
        {{session, lib, "/nonexistent/libnothing.so"}, 1, "no such file"},
        {{inspect, SAMPLE_SOURCES "/Player.cs"}, 2, "not a loadable shared object"},
        {{session, lib, CompiledLibraryPath("fixture_bad_version")}, 1, "ignores its debug tables"},
        {{inspect, CompiledLibraryPath("fixture_no_query")}, 2, "exports no \"quarn.debug_query\""},
        {{session, "--break", "Nowhere.cs:3"}, 1, "Nowhere.cs:3: no compiled method covers it"},
        {{session, "--break", "MathUtil.cs"}, 2, "is not of the form FILE:LINE"},
        {{inspect, "--ignore-case", SAMPLE_LIBRARY}, 2, "--ignore-case applies to --match"},
    };
    for (const auto& [command, exitStatus, message] : cases) {
        const auto [status, out, err] = RunProgram(command);
        const std::string& program = command[0];
        EXPECT_EQ(status, exitStatus) << message;
        EXPECT_EQ(std::ranges::count(err, '\n'), 1) << err;
        EXPECT_TRUE(err.starts_with(program.substr(program.rfind('/') + 1) + ": ")) << err;
        EXPECT_NE(err.find(message), std::string::npos) << err;
        // The session stops before it sets a breakpoint; the inspector before it prints.
        EXPECT_TRUE(program == session ? out.find("breakpointNotify") == std::string::npos
                                       : out.empty())
            << out;
    }
}

// Each row: a library broken_<rule> (broken_tables.c), then every problem the check reports.
TEST(ProgramsTest, InspectorCheckNamesItemMethodAndFieldOfEachBrokenRule) {
    for (const std::string row : {
             "valid",
             "version: header field version: format version 0x10000, expected 0x20000: the "
             "plug-in ignores the library",
             "item_count: header field itemCount: 0 items: the plug-in ignores the library",
             "zero_methods: item 1 field methodCount: 0 methods: the plug-in skips this item",
             "zero_files: item 1 field fileCount: 0 files: the plug-in skips this item",
             "zero_aux: item 1 field auxCount: 0 field 2: the plug-in skips this item",
             "negative_methods: item 1 field methodCount: negative (-1): the plug-in keeps the "
             "item but sees no methods of it",
             "method_file_index: item 1 method 1 field methodFileIndices[2]: file number 5 is "
             "outside the item's 2 files",
             "point_file: item 1 method 1 field sequencePoints[3].file: file 2 is outside the "
             "method's 2 files",
             "first_file: item 1 method 1 field methods[1].firstFile: negative (-1)",
             "point_count: item 1 method 0 field methods[0].sequencePointCount: negative (-1)",
             "name_offset: item 1 field fileNameOffsets[1]: negative offset -3",
             "null_name_offsets: item 1 field fileNameOffsets: null, but 2 elements are needed",
             "null_points: item 1 method 0 field sequencePoints: null, but the method's sequence "
             "points are listed there\n  item 1 method 1 field sequencePoints: null, but the "
             "method's sequence points are listed there",
             "null_digests: item 1 field fileMD5Indices[0]: digest 0, but md5Hashes is null",
             "method_hash: item 1 method 1 field methodHashes[1]: repeats the hash of method 0: "
             "the debugger only sees method 0",
             "item_hash: item 2 field hash: the same as item 1's: the plug-in keeps only the "
             "later of the two",
             // A count the check must not trust, and tables it cannot read.
             "absurd_count: item 2 field methodCount: 2147483647 methods: only the first 65536 "
             "are inspected\n  item 2 field methods: only 0 of 65536 elements are readable "
             "memory\n  item 2 field methodHashes: only 0 of 65536 elements are readable memory",
         }) {
        const size_t colon = row.find(':');
        const std::string problems =
            colon == std::string::npos ? "" : "  " + row.substr(colon + 2) + "\n";
        const std::string library = CompiledLibraryPath("broken_" + row.substr(0, colon));
        const auto [status, out, err] = RunProgram({INSPECT_PROGRAM, "--check", library});
        EXPECT_EQ(status, problems.empty() ? 0 : 1) << row << err;
        EXPECT_TRUE(out.ends_with(
            "library\n  check: " + std::to_string(std::ranges::count(problems, '\n')) +
            " problem(s)\n" + problems))
            << out;
    }
}
