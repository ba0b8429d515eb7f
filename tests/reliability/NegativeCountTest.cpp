// An item reporting negative method and file counts is kept (only a zero count skips one),
// nothing throws, and the totals are logged as they are.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using namespace testing_support;

TEST(NegativeCounts, ItemIsKeptQueriesSeeNoElementsAndTotalsAreLoggedAsTheyAre) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", "3");
    LoadedLibrary negative("reliability_negative_counts"), fixtureA("fixture_a");
    MonoDebuggerHandling handling("");
    MonoDebuggerHandlingInspector inspector(handling);

    ASSERT_NO_THROW(handling.ProcessLibraryMetadata(negative.Handle()));
    EXPECT_EQ(inspector.MetadataItems().size(), 1u);
    EXPECT_TRUE(inspector.FileNames().empty());
    EXPECT_TRUE(inspector.HashToMetadata().empty());
    const std::vector<std::string> dump = directory.LogLines();
    EXPECT_NE(std::find(dump.begin(), dump.end(), "  Files:-3 Methods:-2"), dump.end());
    // Queries answer as if the item had no elements: no table behind it is read.
    InstallWriters(handling.Callbacks());
    ReplyBuffer files, methods;
    handling.QuarnFetchFiles(&files, 0, 0, 0, 0);
    handling.QuarnFetchMethods(&methods, nullptr, 0, 0, 0, 0);
    EXPECT_EQ(files.replies, std::vector<Reply>{Int(0)});
    EXPECT_EQ(methods.replies, std::vector<Reply>{Int(0)});
    EXPECT_EQ(handling.QuarnIsFileQuarned(1, ""), 0);

    ASSERT_NO_THROW(handling.ProcessLibraryMetadata(fixtureA.Handle()));  // 3 files, 3 methods
    ASSERT_NO_THROW(handling.UnloadLibraryMetadata(negative.Handle()));
    ASSERT_NO_THROW(handling.ProcessLibraryMetadata(negative.Handle()));
    ASSERT_NO_THROW(handling.ClearLibraryMetadata());
    std::vector<std::string> totals;
    for (const std::string& line : directory.LogLines())
        if (line.starts_with("FilesCached : ") || line.starts_with("MethodsCached : "))
            totals.push_back(line);
    const std::vector<std::string> expected = {
        "FilesCached : -3 vs 0", "MethodsCached : -2 vs 0",  // negative item alone
        "FilesCached : 0 vs 3",  "MethodsCached : 1 vs 3",   // with fixture_a
        "FilesCached : 3 vs 3",  "MethodsCached : 3 vs 3",   // negative item unloaded
        "FilesCached : 0 vs 3",  "MethodsCached : 1 vs 3",   // loaded again
        "FilesCached : 0 vs 0",  "MethodsCached : 0 vs 0",   // cleared
    };
    EXPECT_EQ(totals, expected);
}

}  // namespace
