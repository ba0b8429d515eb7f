// The state dump: its frame, its eighteen kinds of line, their levels and their order.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "queries/DebuggerSession.h"
#include "queries/LockProbe.h"
#include "support/JumpStubs.h"

namespace testing_support {
namespace {

void RecordNothing(void*, int32_t, void*) {}

TEST(DumpState, EmptyStateLineByLineAtEachLevel) {
    const struct {
        const char* level;
        LogLines expected;
    } cases[] = {
        {"1", {}},
        {"2",
         {"---STATE-START---", "Total Meta Data Items : 0", "Breakpoint Methods List",
          "Entry Point Information", "Breakpoint Map", "---STATE-END---"}},
        {"3",
         {"---STATE-START---", "Total Meta Data Items : 0", "Deduplicated Files List",
          "Deduplicated Methods List", "Breakpoint Methods List", "Entry Point Information",
          "Breakpoint Map", "---STATE-END---"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(std::string("level ") + row.level);
        DebuggerSession session(row.level);
        const size_t mark = session.LogMark();
        session.Object().DumpState();
        EXPECT_EQ(session.LogSince(mark), row.expected);
    }
}

TEST(DumpState, WithLoggingOffNeitherLocksNorWrites) {
    DebuggerSession session;
    session.Load("fixture_a");
    EXPECT_TRUE(ReturnsWhileLocked(
        session.Inspect().Mutex(), [&] { session.Object().DumpState(); }, kNoLockPatience));
    EXPECT_FALSE(session.LogExists());
}

// Fixture A loaded, entry points for A1 (a stub and a callback) and A2 (a stub), and one
// breakpoint in A2Only.
class KnownStateDump : public ::testing::Test {
  protected:
    void Build(const char* level) {
        session = std::make_unique<DebuggerSession>(level);
        library = session->Load("fixture_a");
        stubA1 = stubs.MakeNative(0);
        stubA2 = stubs.MakeNative(1);
        auto* native = reinterpret_cast<void*>(&NativeCode);
        session->Object().RegisterEntryPoint(library, kItemA1, native, stubA1, nullptr, nullptr);
        session->Object().RegisterEntryPoint(library, kItemA1, native, nullptr,
                                             reinterpret_cast<void*>(&RecordNothing), nullptr);
        session->Object().RegisterEntryPoint(library, kItemA2, native, stubA2, nullptr, nullptr);
        session->SetBreakpoint(session->FreshHandle(kMethodA2Only), BreakpointHandle(-4096));
    }

    std::string ItemAddress(const Hash128& itemHash) {
        for (const QuarnDebugMetadata* item : session->Inspect().MetadataItems()) {
            if (item->hash == itemHash) {
                return Decimal(item);
            }
        }
        ADD_FAILURE() << "item not loaded";
        return {};
    }

    std::vector<LogSegment> Expected(bool detailed) {
        std::vector<LogSegment> segments = {
            Fixed({"---STATE-START---", "Total Meta Data Items : 2"})};
        if (!detailed) {
            segments.push_back(AnyOrder({{"  Files:2 Methods:2"}, {"  Files:1 Methods:1"}}));
        } else {
            const std::string a1 = ItemAddress(kItemA1);
            const std::string a2 = ItemAddress(kItemA2);
            segments.push_back(AnyOrder({
                {"  Files:2 Methods:2", "    Path : src/Shared.cs", "    Path : src/A1.cs",
                 "    Method : Num Sequences 3", "    Method : Num Sequences 1"},
                {"  Files:1 Methods:1", "    Path : src/A2.cs", "    Method : Num Sequences 2"},
            }));
            segments.push_back(Fixed({"Deduplicated Files List"}));
            segments.push_back(AnyOrderLines(
                {"    Path : src/Shared.cs", "    Path : src/A1.cs", "    Path : src/A2.cs"}));
            segments.push_back(Fixed({"Deduplicated Methods List"}));
            // The item's address runs straight into the method index.
            segments.push_back(AnyOrderLines({
                std::string("    Hash : ") + kMethodSharedText + "   " + a1 + "0",
                std::string("    Hash : ") + kMethodA1OnlyText + "   " + a1 + "1",
                std::string("    Hash : ") + kMethodA2OnlyText + "   " + a2 + "0",
            }));
        }
        const std::string lib = Decimal(library);
        segments.push_back(
            Fixed({"Breakpoint Methods List", "  Breakpoint : -4096", "Entry Point Information"}));
        segments.push_back(AnyOrder({
            {std::string("  EntryHash ") + kItemA1Text,
             "    Library " + lib + " Stub " + Decimal(stubA1) + " Cb 0",
             "    Library " + lib + " Stub 0 Cb " +
                 Decimal(reinterpret_cast<void*>(&RecordNothing))},
            {std::string("  EntryHash ") + kItemA2Text,
             "    Library " + lib + " Stub " + Decimal(stubA2) + " Cb 0"},
        }));
        segments.push_back(Fixed({"Breakpoint Map", std::string("  EntryHash ") + kItemA2Text,
                                  "    Breakpoint -4096", "---STATE-END---"}));
        return segments;
    }

    JumpStubs stubs;
    std::unique_ptr<DebuggerSession> session;
    void* library = nullptr;
    void* stubA1 = nullptr;
    void* stubA2 = nullptr;
};

TEST_F(KnownStateDump, LevelThreeShowsEveryLine) {
    Build("3");
    const size_t mark = session->LogMark();
    session->Object().DumpState();
    EXPECT_TRUE(MatchesSegments(session->LogSince(mark), Expected(true)));
}

TEST_F(KnownStateDump, LevelTwoShowsTheSummaryLinesOnly) {
    Build("2");
    const size_t mark = session->LogMark();
    session->Object().DumpState();
    EXPECT_TRUE(MatchesSegments(session->LogSince(mark), Expected(false)));
}

TEST_F(KnownStateDump, EveryBreakpointOfAnEntryPointIsListed) {
    Build("2");
    session->SetBreakpoint(session->FreshHandle(kMethodShared), BreakpointHandle(77));
    const size_t mark = session->LogMark();
    session->Object().DumpState();
    const LogLines lines = session->LogSince(mark);
    const auto map = std::find(lines.begin(), lines.end(), "Breakpoint Map");
    ASSERT_NE(map, lines.end());
    EXPECT_TRUE(MatchesSegments(
        LogLines(map + 1, lines.end()),
        {AnyOrder({{std::string("  EntryHash ") + kItemA1Text, "    Breakpoint 77"},
                   {std::string("  EntryHash ") + kItemA2Text, "    Breakpoint -4096"}}),
         Fixed({"---STATE-END---"})}));
    EXPECT_EQ(CountOf(lines, "  Breakpoint : 77"), 1);
    EXPECT_EQ(CountOf(lines, "  Breakpoint : -4096"), 1);
}

}  // namespace
}  // namespace testing_support
