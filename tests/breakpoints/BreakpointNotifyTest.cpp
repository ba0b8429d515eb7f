// Breakpoint notifications: which entry points switch, when, and what the log says.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "breakpoints/EntryPointBench.h"
#include "queries/LockProbe.h"

namespace testing_support {
namespace {

using Keys = std::vector<bool>;
using LandingList = std::vector<Landing>;
using HandleSet = std::unordered_set<void*>;

void* const kFirst = BreakpointHandle(0x1001);
void* const kSecond = BreakpointHandle(0x1002);

class BreakpointNotify : public EntryPointBench {
  protected:
    HandleSet BreakpointsOf(const Hash128& entryHash) {
        const auto& map = session->Inspect().BreakpointMap();
        const auto found = map.find(entryHash);
        return found == map.end() ? HandleSet{} : found->second;
    }
    const HandleSet& RecordedBreakpoints() { return session->Inspect().BreakpointMethods(); }
};

TEST_F(BreakpointNotify, MethodInTwoEntryPointsSwitchesBoth) {
    Start();
    ASSERT_EQ(StubLandings(), (LandingList{kNative, kNative, kNative}));
    session->SetBreakpoint(Handle(kMethodShared), kFirst);

    EXPECT_EQ(StubLandings(), (LandingList{kManaged, kNative, kManaged}));
    EXPECT_EQ(LastCallbackTarget(), nullptr);
    EXPECT_EQ(BreakpointKeys(), (Keys{true, false, true}));
    EXPECT_EQ(BreakpointsOf(kItemA1), HandleSet{kFirst});
    EXPECT_EQ(BreakpointsOf(kItemB1), HandleSet{kFirst});
    EXPECT_EQ(RecordedBreakpoints(), HandleSet{kFirst});
}

// First in a method of A1 and B1, then in a method of B1 only; removing the first leaves B1
// managed, removing the second switches it back.
TEST_F(BreakpointNotify, SecondBreakpointSharingAnEntryPointKeepsItManagedUntilTheLastGoes) {
    Start();
    session->SetBreakpoint(Handle(kMethodShared), kFirst);
    const size_t callbackCallsAfterFirst = CallbackTargets().size();

    session->SetBreakpoint(Handle(kMethodB1Only), kSecond);
    EXPECT_EQ(BreakpointsOf(kItemB1), (HandleSet{kFirst, kSecond}));
    EXPECT_EQ(CallbackTargets().size(), callbackCallsAfterFirst);  // B1 was not switched again

    session->RemoveBreakpoint(kFirst);
    EXPECT_EQ(StubLandings(), (LandingList{kNative, kNative, kManaged}));
    EXPECT_EQ(BreakpointKeys(), (Keys{false, false, true}));
    EXPECT_EQ(BreakpointsOf(kItemB1), HandleSet{kSecond});
    EXPECT_EQ(CallbackTargets().size(), callbackCallsAfterFirst);

    session->RemoveBreakpoint(kSecond);
    EXPECT_EQ(StubLandings(), (LandingList{kNative, kNative, kNative}));
    EXPECT_EQ(BreakpointKeys(), (Keys{false, false, false}));
    EXPECT_EQ(LastCallbackTarget(), NativeAddress());
    EXPECT_TRUE(RecordedBreakpoints().empty());
}

// First in a method of A1 only, then in the shared method: A1 is already managed, B1 switches.
TEST_F(BreakpointNotify, SecondBreakpointSwitchesOnlyTheEntryPointsNewToIt) {
    Start();
    session->SetBreakpoint(Handle(kMethodA1Only), kFirst);
    EXPECT_EQ(StubLandings(), (LandingList{kManaged, kNative, kNative}));
    EXPECT_EQ(LastCallbackTarget(), NativeAddress());

    session->SetBreakpoint(Handle(kMethodShared), kSecond);
    EXPECT_EQ(StubLandings(), (LandingList{kManaged, kNative, kManaged}));
    EXPECT_EQ(LastCallbackTarget(), nullptr);
    EXPECT_EQ(BreakpointsOf(kItemA1), (HandleSet{kFirst, kSecond}));

    session->RemoveBreakpoint(kSecond);
    EXPECT_EQ(StubLandings(), (LandingList{kManaged, kNative, kNative}));
    EXPECT_EQ(LastCallbackTarget(), NativeAddress());
}

TEST_F(BreakpointNotify, SameHandleSetTwiceIsUndoneByOneRemove) {
    Start();
    session->SetBreakpoint(Handle(kMethodShared), kFirst);
    const size_t callbackCalls = CallbackTargets().size();
    session->SetBreakpoint(Handle(kMethodShared), kFirst);
    EXPECT_EQ(CallbackTargets().size(), callbackCalls);
    EXPECT_EQ(RecordedBreakpoints(), HandleSet{kFirst});

    session->RemoveBreakpoint(kFirst);
    EXPECT_EQ(StubLandings(), (LandingList{kNative, kNative, kNative}));
    EXPECT_EQ(BreakpointKeys(), (Keys{false, false, false}));
    EXPECT_TRUE(RecordedBreakpoints().empty());
    EXPECT_EQ(LastCallbackTarget(), NativeAddress());
}

TEST_F(BreakpointNotify, BadMethodHandleOnSetIsIgnoredWithoutADump) {
    Start("3");
    void* stale = Handle(kMethodShared);
    handles = session->FetchMethods();
    void* unloaded = Handle(kMethodB1Only);
    session->Object().UnloadLibraryMetadata(libraryB);
    int local = 0;
    for (void* method :
         {stale, unloaded, static_cast<void*>(&local), static_cast<void*>(nullptr)}) {
        SCOPED_TRACE(Decimal(method));
        const size_t mark = session->LogMark();
        session->SetBreakpoint(method, kFirst);
        EXPECT_EQ(session->LogSince(mark),
                  (LogLines{"QuarnBreakpointNotify : Incoming Breakpoint SET " + Decimal(method) +
                            " " + Decimal(kFirst)}));
        EXPECT_TRUE(RecordedBreakpoints().empty());
        EXPECT_TRUE(session->Inspect().BreakpointMap().empty());
        EXPECT_EQ(JumpStubs::Call(stubA1), kNative);
    }
}

TEST_F(BreakpointNotify, RemoveOfAnUnknownHandleLogsTheIncomingLineAndADumpOnly) {
    Start("2");
    session->SetBreakpoint(Handle(kMethodA2Only), kFirst);
    const size_t mark = session->LogMark();
    session->Record().breakpointNotify(0, BreakpointHandle(-1), 0, kSecond);

    const LogLines lines = session->LogSince(mark);
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[0],
              "QuarnBreakpointNotify : Incoming Breakpoint REMOVE -1 " + Decimal(kSecond));
    EXPECT_EQ(lines[1], "---STATE-START---");
    EXPECT_EQ(lines.back(), "---STATE-END---");
    EXPECT_EQ(CountOf(lines, "---STATE-START---"), 1);
    EXPECT_EQ(CountOf(lines, "  Breakpoint : " + Decimal(kFirst)), 1);
    EXPECT_EQ(RecordedBreakpoints(), HandleSet{kFirst});
    EXPECT_EQ(StubLandings(), (LandingList{kNative, kManaged, kNative}));
}

TEST_F(BreakpointNotify, SetLogsTheMethodAndEveryEntryPointItReaches) {
    Start("1");
    void* method = Handle(kMethodShared);
    const size_t mark = session->LogMark();
    session->SetBreakpoint(method, kFirst);

    const std::string native = Decimal(NativeAddress());
    const std::string stubState = "  FunctionPtr State : Target " + native + " - Alternate " +
                                  Decimal(reinterpret_cast<void*>(&ManagedCode));
    // A1 came first (fixture A was loaded first); B1 has a stub and then a callback.
    EXPECT_EQ(session->LogSince(mark),
              (LogLines{
                  "QuarnBreakpointNotify : Incoming Breakpoint SET " + Decimal(method) + " 4097",
                  "QuarnBreakpointNotify : Add Breakpoint " + Decimal(method) + " 4097",
                  std::string("    MethodHash : ") + kMethodSharedText,
                  std::string("        EntryPointHash : ") + kItemA1Text,
                  std::string("Potentially changing Quarn execution state to 0 for ") + kItemA1Text,
                  "  Native " + native,
                  stubState,
                  "    Swapping Targets - disabling quarned method",
                  std::string("        EntryPointHash : ") + kItemB1Text,
                  std::string("Potentially changing Quarn execution state to 0 for ") + kItemB1Text,
                  "  Native " + native,
                  stubState,
                  "    Swapping Targets - disabling quarned method",
                  "  Native " + native,
                  "  Disabling Job - Run Managed",
              }));
}

TEST_F(BreakpointNotify, AlreadyManagedEntryPointIsNotSwitchedAgain) {
    Start("1");
    session->SetBreakpoint(Handle(kMethodA2Only), kFirst);
    const size_t mark = session->LogMark();
    session->SetBreakpoint(Handle(kMethodA2Only), kSecond);
    EXPECT_EQ(session->LogSince(mark),
              (LogLines{"QuarnBreakpointNotify : Incoming Breakpoint SET " +
                            Decimal(Handle(kMethodA2Only)) + " 4098",
                        "QuarnBreakpointNotify : Add Breakpoint " + Decimal(Handle(kMethodA2Only)) +
                            " 4098",
                        std::string("    MethodHash : ") + kMethodA2OnlyText,
                        std::string("        EntryPointHash : ") + kItemA2Text}));
}

TEST_F(BreakpointNotify, RemoveLogsTheBreakpointAndTheSwitchBack) {
    Start("1");
    session->SetBreakpoint(Handle(kMethodA2Only), kFirst);
    const size_t mark = session->LogMark();
    session->RemoveBreakpoint(kFirst);
    EXPECT_EQ(
        session->LogSince(mark),
        (LogLines{"QuarnBreakpointNotify : Incoming Breakpoint REMOVE 0 4097",
                  "QuarnBreakpointNotify : Remove Breakpoint 4097",
                  std::string("Potentially changing Quarn execution state to 1 for ") + kItemA2Text,
                  "  Native " + Decimal(NativeAddress()),
                  "  FunctionPtr State : Target " + Decimal(reinterpret_cast<void*>(&ManagedCode)) +
                      " - Alternate " + Decimal(NativeAddress()),
                  "    Swapping Targets - enabling quarned method"}));
}

TEST_F(BreakpointNotify, SetAndRemoveEndWithAStateDump) {
    Start("2");
    for (bool set : {true, false}) {
        const size_t mark = session->LogMark();
        if (set) {
            session->SetBreakpoint(Handle(kMethodA2Only), kFirst);
        } else {
            session->RemoveBreakpoint(kFirst);
        }
        const LogLines lines = session->LogSince(mark);
        const auto start = std::find(lines.begin(), lines.end(), "---STATE-START---");
        ASSERT_NE(start, lines.end());
        EXPECT_EQ(lines.back(), "---STATE-END---");
        // The dump shows the state after the change.
        EXPECT_EQ(std::count(start, lines.end(), "  Breakpoint : 4097"), set ? 1 : 0);
    }
}

// A breakpoint map survives the metadata: an entry point registered afterwards for a hash
// that still has a breakpoint starts managed.
TEST_F(BreakpointNotify, BreakpointsSurviveClearedMetadata) {
    Start();
    session->SetBreakpoint(Handle(kMethodShared), kFirst);
    session->Object().ClearLibraryMetadata();
    EXPECT_EQ(BreakpointKeys(), (Keys{true, false, true}));
    EXPECT_EQ(RecordedBreakpoints(), HandleSet{kFirst});

    void* newStub = stubs.MakeNative(3);
    Register(libraryA, kItemA1, newStub);
    EXPECT_EQ(JumpStubs::Call(newStub), kManaged);
    RegisterCallback(libraryA, kItemA1);
    EXPECT_EQ(LastCallbackTarget(), nullptr);

    session->RemoveBreakpoint(kFirst);
    EXPECT_EQ(JumpStubs::Call(newStub), kNative);
    EXPECT_EQ(LastCallbackTarget(), NativeAddress());
    EXPECT_EQ(BreakpointKeys(), (Keys{false, false, false}));
}

TEST_F(BreakpointNotify, UnloadNeitherForgetsBreakpointsNorSwitchesBack) {
    Start();
    session->SetBreakpoint(Handle(kMethodShared), kFirst);
    session->Object().UnloadLibraryMetadata(libraryB);
    EXPECT_EQ(JumpStubs::Call(stubB1), kManaged);  // its record is gone, the stub untouched
    EXPECT_EQ(BreakpointKeys(), (Keys{true, false, true}));

    session->Object().ProcessLibraryMetadata(libraryB);
    void* reloadedStub = stubs.MakeNative(3);
    Register(libraryB, kItemB1, reloadedStub);
    EXPECT_EQ(JumpStubs::Call(reloadedStub), kManaged);
}

// The library's own table is changed after the method list was fetched, so the handle is
// valid but names a method hash under which no item was indexed.
TEST(BreakpointNotifyWithoutHolder, IsRecordedNothingSwitchesAndTheStateIsDumped) {
    DebuggerSession session("2");
    void* library = session.Load("fixture_programmable_1");
    static const int32_t kZeros[] = {0};
    static const int32_t kNoDigest[] = {-1};
    static const quarn_method_debug_info kMethods[] = {{0, 0, 1, 0}};
    quarn_hash128 methodHashes[] = {{0xAB, 1}};
    const quarn_debug_item item = {1,
                                   1,
                                   1,
                                   kZeros,
                                   kMethods,
                                   kZeros,
                                   "p/M.cs",
                                   nullptr,
                                   {0xAB, 0x6000000000000000ull},
                                   methodHashes,
                                   kNoDigest,
                                   nullptr};
    const quarn_debug_library description = {QUARN_DEBUG_FORMAT_VERSION, 1, &item};
    session.Library(0).Symbol<void(const quarn_debug_library*)>("programmable_set_library")(
        &description);
    session.Object().ProcessLibraryMetadata(library);
    JumpStubs stubs;
    void* stub = stubs.MakeNative(0);
    session.Object().RegisterEntryPoint(library, Hash128{0xAB, 0x6000000000000000ull},
                                        NativeAddress(), stub, nullptr, nullptr);
    void* method = session.FreshHandle(Hash128{0xAB, 1});
    ASSERT_NE(method, nullptr);
    methodHashes[0] = {0xAB, 2};

    const size_t mark = session.LogMark();
    session.SetBreakpoint(method, kFirst);
    EXPECT_EQ(session.Inspect().BreakpointMethods(), HandleSet{kFirst});
    EXPECT_TRUE(session.Inspect().BreakpointMap().empty());
    EXPECT_EQ(JumpStubs::Call(stub), kNative);
    const LogLines lines = session.LogSince(mark);
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines[2], "    MethodHash : AB000000000000000200000000000000");
    EXPECT_EQ(lines[3], "---STATE-START---");
    EXPECT_EQ(lines.back(), "---STATE-END---");
}

// Waits (bounded) until the log's last line is `line`.
bool LastLineBecomes(const DebuggerSession& session, const std::string& line) {
    for (int attempt = 0; attempt < 5000; ++attempt) {
        const LogLines lines = session.LogLines();
        if (!lines.empty() && lines.back() == line) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

TEST_F(BreakpointNotify, IncomingLineIsWrittenBeforeTheLockIsTaken) {
    Start("1");
    void* method = Handle(kMethodA2Only);
    std::unique_lock<std::mutex> hold(session->Inspect().Mutex());
    auto notify = std::async(std::launch::async, [&] { session->SetBreakpoint(method, kFirst); });
    EXPECT_TRUE(LastLineBecomes(
        *session, "QuarnBreakpointNotify : Incoming Breakpoint SET " + Decimal(method) + " 4097"));
    EXPECT_EQ(notify.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout);
    hold.unlock();
    notify.get();
    EXPECT_EQ(JumpStubs::Call(stubA2), kManaged);
}

}  // namespace
}  // namespace testing_support
