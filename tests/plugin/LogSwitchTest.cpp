// ORVEL_QUARN_DEBUG, read once by the handling object's constructor, turns the log on at its
// level. Each test runs in a process of its own.
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Inspector.h"
#include "support/TempWorkingDirectory.h"

namespace {

using testing_support::ScopedEnvironment;
using testing_support::TempWorkingDirectory;

constexpr const char* kSetupLine = "Setting up Callbacks";

TEST(LogSwitch, UnsetVariableCreatesNoWriterAndNoLogsDirectory) {
    TempWorkingDirectory directory;
    ScopedEnvironment unset("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling object("/p.dll");

    EXPECT_EQ(MonoDebuggerHandlingInspector(object).LogWriter(), nullptr);
    EXPECT_FALSE(std::filesystem::exists(directory.Path() + "/Logs"));
}

struct LevelText {
    const char* text;
    int level;  // what strtol makes of it, truncated to 32 bits
};

void PrintTo(const LevelText& testCase, std::ostream* out) {
    *out << "ORVEL_QUARN_DEBUG=" << testCase.text;
}

class LogSwitchLevel : public ::testing::TestWithParam<LevelText> {};

TEST_P(LogSwitchLevel, TextBecomesTheLevelAndSetupIsTheFirstLine) {
    TempWorkingDirectory directory;
    ScopedEnvironment debug("ORVEL_QUARN_DEBUG", GetParam().text);
    MonoDebuggerHandling object("/p.dll");

    const DebugLogWriter* writer = MonoDebuggerHandlingInspector(object).LogWriter();
    ASSERT_NE(writer, nullptr);
    const int level = GetParam().level;
    EXPECT_TRUE(writer->Accepts(level));
    EXPECT_FALSE(writer->Accepts(level + 1));
    ASSERT_TRUE(directory.LogExists());
    const std::vector<std::string> expected =
        level >= 1 ? std::vector<std::string>{kSetupLine} : std::vector<std::string>{};
    EXPECT_EQ(directory.LogLines(), expected);
}

INSTANTIATE_TEST_SUITE_P(VariableTexts, LogSwitchLevel,
                         ::testing::Values(LevelText{"3", 3}, LevelText{"1", 1}, LevelText{"2x", 2},
                                           LevelText{"", 0}, LevelText{"abc", 0}, LevelText{"0", 0},
                                           LevelText{"-1", -1}, LevelText{"4294967297", 1}));

TEST(LogSwitch, SecondHandlingObjectAppendsAfterTheSeparator) {
    TempWorkingDirectory directory;
    ScopedEnvironment debug("ORVEL_QUARN_DEBUG", "1");
    { MonoDebuggerHandling first("/first.dll"); }
    MonoDebuggerHandling second("/second.dll");

    EXPECT_EQ(directory.LogLines(),
              (std::vector<std::string>{kSetupLine, "----SCRIPT-COMPILATION-MODE-CHANGE----",
                                        kSetupLine}));
}

}  // namespace
