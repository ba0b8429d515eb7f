#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using testing_support::ScopedEnvironment;

// The command string's fixed text around the record address and the path.
constexpr const char* kCommandPrefix = "$load_debugger_interface |CB|";
constexpr const char* kCommandSuffix =
    "|AM||NM|Orvel.Quarn.Placeholder|NM||TP|MonoDebuggerClass|TP|";

std::string AddressText(const void* address) {
    return std::to_string(reinterpret_cast<uintptr_t>(address));
}

struct CommandCase {
    const char* path;
    const char* why;
};

const CommandCase kCommandCases[] = {
    {"/data/Orvel.Quarn.Placeholder.dll", "an absolute path"},
    {"", "an empty path leaves the |AM| markers side by side"},
    {"relative dir/with blanks.dll", "blanks are not escaped"},
    {"odd|AM|name|CB|.dll", "marker text inside the path is not escaped"},
};

TEST(CommandString, IsBuiltCharacterForCharacterForEveryPath) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    for (const CommandCase& testCase : kCommandCases) {
        SCOPED_TRACE(testCase.why);
        MonoDebuggerHandling object(testCase.path);
        const std::string expected = kCommandPrefix + AddressText(object.Callbacks()) + "|CB||AM|" +
                                     testCase.path + kCommandSuffix;
        EXPECT_EQ(object.FetchDebuggerEnableCommand(), expected);
    }
}

TEST(CommandString, EmptyPathGivesAdjacentAssemblyMarkers) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling object("");
    const std::string command = object.FetchDebuggerEnableCommand();
    EXPECT_NE(command.find("|CB||AM||AM||NM|"), std::string::npos) << command;
}

TEST(CommandString, RecordNumberIsThePlainDecimalAddressOfALiveRecord) {
    testing_support::TempWorkingDirectory directory;
    ScopedEnvironment log("ORVEL_QUARN_DEBUG", "1");
    MonoDebuggerHandling object("/p.dll");
    const std::string command = object.FetchDebuggerEnableCommand();
    const size_t start = command.find("|CB|") + 4;
    const std::string number = command.substr(start, command.find("|CB|", start) - start);

    ASSERT_FALSE(number.empty());
    EXPECT_NE(number.front(), '0');
    EXPECT_EQ(number.find_first_not_of("0123456789"), std::string::npos) << number;
    mdh_callbacks* record = testing_support::RecordFromCommand(command);
    EXPECT_EQ(record, object.Callbacks());

    record->finishSetup();  // reaches QuarnFinishSetup of this object
    EXPECT_EQ(directory.LogLines(),
              (std::vector<std::string>{"Setting up Callbacks", "Finishing up callbacks"}));
}

TEST(CommandString, StaysTheSameTextAtTheSameAddress) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling object("/p.dll");
    const char* first = object.FetchDebuggerEnableCommand();
    const std::string text = first;
    EXPECT_EQ(object.FetchDebuggerEnableCommand(), first);
    EXPECT_EQ(object.FetchDebuggerEnableCommand(), text);
}

TEST(HandlingObjectConstruction, StartsWithEmptyContainersAndGenerationZero) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling object("/p.dll");
    MonoDebuggerHandlingInspector inspector(object);

    EXPECT_EQ(inspector.LogWriter(), nullptr);
    EXPECT_EQ(inspector.MethodCacheGeneration(), 0xFFFFFFFF00000000u);
    EXPECT_TRUE(inspector.FileNames().empty());
    EXPECT_TRUE(inspector.HashToMetadata().empty());
    EXPECT_TRUE(inspector.HashToMetadataList().empty());
    EXPECT_TRUE(inspector.BreakpointMap().empty());
    EXPECT_TRUE(inspector.EntryPoints().empty());
    EXPECT_TRUE(inspector.MetadataItems().empty());
    EXPECT_TRUE(inspector.BreakpointMethods().empty());
    EXPECT_TRUE(inspector.Mutex().try_lock());
    inspector.Mutex().unlock();
}

// ---- Shutdown ----

void ForeignFlush() {}

class HandlingShutdown : public ::testing::Test {
  protected:
    void SetUp() override { testing_support::ResetCounters(); }

    ScopedEnvironment noLog{"ORVEL_QUARN_DEBUG", nullptr};
    MonoDebuggerHandling object{"/p.dll"};
    mdh_callbacks* record = object.Callbacks();
};

TEST_F(HandlingShutdown, CallsTheShutdownFunctionOnceAndClearsOnlyTheFlushSlot) {
    testing_support::InstallShutdownAndFlush(record);
    const auto shutdownNotify = record->shutdownNotify;

    object.Shutdown();

    EXPECT_EQ(testing_support::ShutdownCalls(), 1);
    EXPECT_EQ(testing_support::FlushCalls(), 0);
    EXPECT_EQ(record->shutdownNotify, shutdownNotify);
    EXPECT_EQ(record->flushClientKnowledge, nullptr);
}

TEST_F(HandlingShutdown, WithoutShutdownFunctionStillClearsTheFlushSlot) {
    record->flushClientKnowledge = &ForeignFlush;

    object.Shutdown();

    EXPECT_EQ(testing_support::ShutdownCalls(), 0);
    EXPECT_EQ(record->shutdownNotify, nullptr);
    EXPECT_EQ(record->flushClientKnowledge, nullptr);
}

TEST_F(HandlingShutdown, LaterFlushRequestsNoLongerReachTheDebuggerSide) {
    testing_support::InstallShutdownAndFlush(record);
    object.RequestFlushClientDebuggerKnowledge();
    ASSERT_EQ(testing_support::FlushCalls(), 1);

    object.Shutdown();
    object.RequestFlushClientDebuggerKnowledge();

    EXPECT_EQ(testing_support::FlushCalls(), 1);
}

}  // namespace
