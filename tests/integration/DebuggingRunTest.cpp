// One whole debugging run, from initialize to dispose, through the real plug-in: a host that
// dlopens it, a debugger side that reads the callbacks record from the command string, two
// compiled libraries sharing a method, and entry points that are real jump stubs.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "../fixtures/FixtureTables.h"
#include "integration/HostPlugin.h"
#include "queries/FixtureHashText.h"
#include "queries/LogExpectations.h"
#include "queries/Replies.h"
#include "support/Fixtures.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace testing_support {
namespace {

mdh_hash128 Public(quarn_hash128 hash) {
    return {hash.word0, hash.word1};
}
bool SameHash(const mdh_hash128& a, const mdh_hash128& b) {
    return a.word0 == b.word0 && a.word1 == b.word1;
}

const mdh_hash128 kA1 = Public(quarn_hash128 FIXTURE_ITEM_A1);
const mdh_hash128 kA2 = Public(quarn_hash128 FIXTURE_ITEM_A2);
const mdh_hash128 kB1 = Public(quarn_hash128 FIXTURE_ITEM_B1);
const mdh_hash128 kShared = Public(quarn_hash128 FIXTURE_METHOD_SHARED);
const mdh_hash128 kA2Only = Public(quarn_hash128 FIXTURE_METHOD_A2_ONLY);
const mdh_hash128 kB1Only = Public(quarn_hash128 FIXTURE_METHOD_B1_ONLY);

constexpr const char* kAssemblyPath = "/data/Orvel.Quarn.Placeholder.dll";
void* const kCallbackContext = reinterpret_cast<void*>(0xC0);
void* const kFirstBreakpoint = reinterpret_cast<void*>(0xB001);
void* const kSecondBreakpoint = reinterpret_cast<void*>(0xB002);

std::vector<void*> callbackTargets;
void HostEntryCallback(void* context, int32_t kind, void* target) {
    EXPECT_EQ(context, kCallbackContext);
    EXPECT_EQ(kind, 32);
    callbackTargets.push_back(target);
}

void* Native() {
    return reinterpret_cast<void*>(&NativeCode);
}

using LandingList = std::vector<Landing>;
constexpr Landing kNative = Landing::Native;
constexpr Landing kManaged = Landing::Managed;

class DebuggingRun : public ::testing::Test {
  protected:
    // Step 1 and 2: the host creates the object and hands the command string on; the debugger
    // side reads the record's address from it, fills its slots and finishes the set-up.
    void StartSession() {
        handle = plugin.initialize(kAssemblyPath);
        const char* command = plugin.startup(handle);
        EXPECT_EQ(plugin.startup(handle), command);
        record = RecordFromCommand(command);
        EXPECT_EQ(std::string(command),
                  "$load_debugger_interface |CB|" +
                      std::to_string(reinterpret_cast<uintptr_t>(record)) + "|CB||AM|" +
                      kAssemblyPath +
                      "|AM||NM|Orvel.Quarn.Placeholder|NM||TP|MonoDebuggerClass|TP|");
        ASSERT_NE(record->finishSetup, nullptr);
        EXPECT_EQ(record->writeInt, nullptr);
        EXPECT_EQ(record->flushClientKnowledge, nullptr);
        ResetCounters();
        InstallWriters(record);
        InstallShutdownAndFlush(record);
        record->finishSetup();
    }

    // Step 3: each load that adds items asks the debugger side to flush its knowledge.
    void LoadLibraries() {
        plugin.library_loaded(handle, libraryA.Handle());
        EXPECT_EQ(FlushCalls(), 1);
        plugin.library_loaded(handle, libraryB.Handle());
        EXPECT_EQ(FlushCalls(), 2);
    }

    // Step 4: stubs for A1, A2 and B1, and a host callback for B1 as well.
    void RegisterEntryPoints() {
        stubA1 = stubs.MakeNative(0);
        stubA2 = stubs.MakeNative(1);
        stubB1 = stubs.MakeNative(2);
        plugin.register_entry(handle, libraryA.Handle(), kA1, Native(), stubA1, nullptr, nullptr);
        plugin.register_entry(handle, libraryA.Handle(), kA2, Native(), stubA2, nullptr, nullptr);
        plugin.register_entry(handle, libraryB.Handle(), kB1, Native(), stubB1, nullptr, nullptr);
        plugin.register_entry(handle, libraryB.Handle(), kB1, Native(), nullptr, HostEntryCallback,
                              kCallbackContext);
        EXPECT_EQ(callbackTargets, std::vector<void*>{Native()});
        EXPECT_EQ(EntryPointCount(kA1), 1u);
        EXPECT_EQ(EntryPointCount(kA2), 1u);
        EXPECT_EQ(EntryPointCount(kB1), 2u);
        ExpectExecution({kNative, kNative, kNative});
    }

    // Step 5: files, then the method list, whose handles the hooks identify.
    void AskAboutFiles() {
        EXPECT_EQ(record->isFileQuarned(0, "/home/u/proj/B/B1.cs"), 1);
        EXPECT_EQ(record->isFileQuarned(1, "SHARED.CS"), 1);
        EXPECT_EQ(record->isFileQuarned(0, "src/Missing.cs"), 0);
        record->fetchFiles(&filesReply, 0, 1, 2, 32);
        ASSERT_EQ(filesReply.replies.size(), 5u);
        EXPECT_EQ(filesReply.replies[0], Int(4));
        std::set<std::string> files;
        for (size_t i = 1; i < filesReply.replies.size(); ++i) {
            files.insert(filesReply.replies[i].text);
        }
        EXPECT_EQ(files, (std::set<std::string>{FIXTURE_SHARED_PATH, FIXTURE_A1_PATH,
                                                FIXTURE_A2_PATH, FIXTURE_B1_PATH}));
    }

    void FetchMethodList() {
        record->fetchMethods(&methodsReply, nullptr, 0, 1, 2, 32);
        ASSERT_EQ(methodsReply.replies.size(), 5u);
        EXPECT_EQ(methodsReply.replies[0], Int(4));
        for (void* method : methodsReply.Methods()) {
            mdh_hash128 hash{};
            ASSERT_EQ(record->testFetchMethodHash(method, &hash), 1);
            sharedMethod = SameHash(hash, kShared) ? method : sharedMethod;
            a2OnlyMethod = SameHash(hash, kA2Only) ? method : a2OnlyMethod;
            b1OnlyMethod = SameHash(hash, kB1Only) ? method : b1OnlyMethod;
        }
        ASSERT_NE(sharedMethod, nullptr);
        ASSERT_NE(a2OnlyMethod, nullptr);
        ASSERT_NE(b1OnlyMethod, nullptr);
        mdh_hash128 entryHash{};
        EXPECT_EQ(record->testFetchEntryPointHash(a2OnlyMethod, &entryHash), 1);
        EXPECT_TRUE(SameHash(entryHash, kA2));
    }

    // Debug info at 2.32 and method info at 2.15 for a method of A2.
    void AskAboutAMethod() {
        constexpr uint8_t kDigest[16] = {0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2,
                                         0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2, 0xA2};
        record->fetchDebugInfo(&debugInfoReply, a2OnlyMethod, 1, 2, 32);
        EXPECT_EQ(debugInfoReply.replies,
                  Concat({Ints({100, 1}), Strings({FIXTURE_A2_PATH}), DigestBytes(kDigest),
                          Ints({2, 0, 3, 0, 1, 3, 9, 4, 4, 0, 1, 4, 12})}));
        record->fetchMethodInfo(&methodInfoReply, a2OnlyMethod, 1, 2, 15);
        ASSERT_EQ(methodInfoReply.replies.size(), 6u);
        token = static_cast<int32_t>(methodInfoReply.replies[2].value);
        EXPECT_GE(token, 0x06000001);
        EXPECT_LE(token, 0x06000004);
        EXPECT_EQ(methodInfoReply.replies,
                  Concat({Ints({129, 0, token}), {Byte(0), Id(0)}, Ints({0})}));
        ReplyBuffer params;
        record->fetchParamInfo(&params, a2OnlyMethod, 1, 2, 15);
        EXPECT_EQ(params.replies, Concat({Ints({0, 0, 0}), {Id(1)}}));
        ReplyBuffer name;
        record->fetchMethodName(&name, a2OnlyMethod, 1, 2, 15);
        EXPECT_EQ(name.replies, Strings({""}));
    }

    // Steps 6: breakpoints in the shared method and in a method of B1 only, removed in turn.
    void SetAndRemoveBreakpoints() {
        const size_t callbackCallsBefore = callbackTargets.size();
        record->breakpointNotify(1, sharedMethod, 0, kFirstBreakpoint);
        ExpectExecution({kManaged, kNative, kManaged});
        EXPECT_EQ(callbackTargets.size(), callbackCallsBefore + 1);
        mdh_hash128 holder{};
        EXPECT_EQ(record->testFetchEntryPointHash(sharedMethod, &holder), 1);
        EXPECT_TRUE(SameHash(holder, kA1) || SameHash(holder, kB1));

        record->breakpointNotify(1, b1OnlyMethod, 0, kSecondBreakpoint);
        ExpectExecution({kManaged, kNative, kManaged});
        EXPECT_EQ(callbackTargets.size(), callbackCallsBefore + 1);  // B1 was managed already

        record->breakpointNotify(0, nullptr, 0, kFirstBreakpoint);
        ExpectExecution({kNative, kNative, kManaged});
        record->breakpointNotify(0, nullptr, 0, kSecondBreakpoint);
        ExpectExecution({kNative, kNative, kNative});
        EXPECT_EQ(callbackTargets.size(), callbackCallsBefore + 2);
    }

    // Step 7: B's items and entry points go; its handles stop being accepted.
    void UnloadLibraryB() {
        plugin.library_unloaded(handle, libraryB.Handle());
        EXPECT_EQ(EntryPointCount(kB1), 0u);
        EXPECT_EQ(EntryPointCount(kA1), 1u);
        mdh_hash128 untouched = {1, 2};
        EXPECT_EQ(record->testFetchMethodHash(b1OnlyMethod, &untouched), 0);
        EXPECT_TRUE(SameHash(untouched, {1, 2}));
        ReplyBuffer invalid;
        record->fetchDebugInfo(&invalid, b1OnlyMethod, 1, 2, 32);
        EXPECT_EQ(invalid.replies, InvalidMethodDebugInfo());
    }

    void ShutDownAndDispose() {
        plugin.shut_down(handle);
        EXPECT_EQ(ShutdownCalls(), 1);
        EXPECT_EQ(record->flushClientKnowledge, nullptr);
        plugin.request_flush_client_debugger_knowledge(handle);
        EXPECT_EQ(FlushCalls(), 2);
        plugin.dispose(handle);
        handle = nullptr;
    }

    // Every stub lands where the breakpoint map says, the callback agrees with B1's stub, and
    // the hook reports the same map.
    void ExpectExecution(const LandingList& expected) {
        EXPECT_EQ((LandingList{JumpStubs::Call(stubA1), JumpStubs::Call(stubA2),
                               JumpStubs::Call(stubB1)}),
                  expected);
        EXPECT_EQ(callbackTargets.back(), expected[2] == kManaged ? nullptr : Native());
        EXPECT_EQ(record->testBreakpointSet(&kA1), expected[0] == kManaged ? 1 : 0);
        EXPECT_EQ(record->testBreakpointSet(&kA2), expected[1] == kManaged ? 1 : 0);
        EXPECT_EQ(record->testBreakpointSet(&kB1), expected[2] == kManaged ? 1 : 0);
    }

    uint32_t EntryPointCount(const mdh_hash128& entryHash) {
        return record->testFetchEntryPointCountForHash(&entryHash);
    }

    TempWorkingDirectory directory;
    ScopedEnvironment logging{"ORVEL_QUARN_DEBUG", "3"};
    HostPlugin plugin{PluginPath()};
    LoadedLibrary libraryA{"fixture_a"};
    LoadedLibrary libraryB{"fixture_b"};
    JumpStubs stubs;
    void* stubA1 = nullptr;
    void* stubA2 = nullptr;
    void* stubB1 = nullptr;
    mdh_handle handle = nullptr;
    mdh_callbacks* record = nullptr;
    ReplyBuffer filesReply;
    ReplyBuffer methodsReply;
    ReplyBuffer debugInfoReply;
    ReplyBuffer methodInfoReply;
    void* sharedMethod = nullptr;
    void* a2OnlyMethod = nullptr;
    void* b1OnlyMethod = nullptr;
    int32_t token = 0;
};

// The lines of the dump frame that follows `line` (the frame's own markers excluded).
LogLines DumpAfter(const LogLines& lines, const std::string& line) {
    auto start = std::find(lines.begin(), lines.end(), line);
    start = std::find(start, lines.end(), "---STATE-START---");
    const auto end = std::find(start, lines.end(), "---STATE-END---");
    return start == lines.end() ? LogLines{} : LogLines(start + 1, end);
}

// From "Breakpoint Map" to the end of a dump.
LogLines BreakpointMapOf(const LogLines& dump) {
    const auto map = std::find(dump.begin(), dump.end(), "Breakpoint Map");
    return map == dump.end() ? LogLines{} : LogLines(map + 1, dump.end());
}

TEST_F(DebuggingRun, FromInitializeToDispose) {
    StartSession();
    LoadLibraries();
    RegisterEntryPoints();
    AskAboutFiles();
    FetchMethodList();
    AskAboutAMethod();
    SetAndRemoveBreakpoints();
    UnloadLibraryB();
    ShutDownAndDispose();

    const LogLines log = directory.LogLines();
    const std::string a = Decimal(libraryA.Handle());
    const std::string b = Decimal(libraryB.Handle());
    const std::string firstSet = "QuarnBreakpointNotify : Incoming Breakpoint SET " +
                                 Decimal(sharedMethod) + " " + Decimal(kFirstBreakpoint);
    EXPECT_TRUE(ContainsInOrder(
        log, {
                 "Setting up Callbacks",
                 "Finishing up callbacks",
                 "ProcessLibraryMetadata : " + a,
                 "FilesCached : 3 vs 3",
                 "MethodsCached : 3 vs 3",
                 "RequestFlushClientDebuggerKnowledge",
                 "---STATE-START---",
                 "Total Meta Data Items : 2",
                 "---STATE-END---",
                 "ProcessLibraryMetadata : " + b,
                 "FilesCached : 5 vs 4",
                 "MethodsCached : 5 vs 4",
                 "Total Meta Data Items : 3",
                 "RegisterEntryPoint : " + a + " " + kItemA1Text + " - Native " + Decimal(Native()),
                 std::string("Potentially changing Quarn execution state to 1 for ") + kItemA1Text,
                 "  Enabling Job - Run Quarned",
                 "IsQuarned : 0 /home/u/proj/B/B1.cs : TRUE",
                 "IsQuarned : 1 SHARED.CS : TRUE",
                 "IsQuarned : 0 src/Missing.cs : FALSE",
                 "FetchFiles : " + Decimal(&filesReply) + " 0 ",
                 "    TotalFiles : 4",
                 "FetchMethods : " + Decimal(&methodsReply) + " 0 0",
                 "    Total Methods : 4",
                 "FetchDebugInfo : " + Decimal(&debugInfoReply) + " " + Decimal(a2OnlyMethod),
                 "METHOD DEBUG INFO TOKEN : " + std::to_string(token),
                 "  FILE: src/A2.cs",
                 "    HASH: A2A2A2A2A2A2A2A2A2A2A2A2A2A2A2A2",
                 "  Sequence Points: ",
                 "    IL:4 StartLine:4",
                 "    EndLine:4  EndColumn:12",
                 "FetchMethodInfo : " + Decimal(&methodInfoReply) + " " + Decimal(a2OnlyMethod),
                 firstSet,
                 "QuarnBreakpointNotify : Add Breakpoint " + Decimal(sharedMethod) + " " +
                     Decimal(kFirstBreakpoint),
                 std::string("    MethodHash : ") + kMethodSharedText,
                 std::string("        EntryPointHash : ") + kItemA1Text,
                 "    Swapping Targets - disabling quarned method",
                 std::string("        EntryPointHash : ") + kItemB1Text,
                 "  Disabling Job - Run Managed",
                 "---STATE-END---",
                 "QuarnBreakpointNotify : Incoming Breakpoint SET " + Decimal(b1OnlyMethod) + " " +
                     Decimal(kSecondBreakpoint),
                 std::string("    MethodHash : ") + kMethodB1OnlyText,
                 "QuarnBreakpointNotify : Remove Breakpoint " + Decimal(kFirstBreakpoint),
                 std::string("Potentially changing Quarn execution state to 1 for ") + kItemA1Text,
                 "    Swapping Targets - enabling quarned method",
                 "QuarnBreakpointNotify : Remove Breakpoint " + Decimal(kSecondBreakpoint),
                 std::string("Potentially changing Quarn execution state to 1 for ") + kItemB1Text,
                 "  Enabling Job - Run Quarned",
                 "UnloadLibraryMetadata : " + b,
                 "  Unregistering Entry Point : " + b + " Hash " + kItemB1Text,
                 "  Unregistering Entry Point : " + b + " Hash " + kItemB1Text,
                 "RequestFlushClientDebuggerKnowledge",
                 "Total Meta Data Items : 2",
             }));

    // Two loads, two sets, two removes and the request after shut_down each dumped the state.
    EXPECT_EQ(CountOf(log, "---STATE-START---"), 7);
    EXPECT_EQ(CountOf(log, "---STATE-END---"), 7);
    const std::string first = Decimal(kFirstBreakpoint);
    EXPECT_TRUE(MatchesSegments(
        BreakpointMapOf(DumpAfter(log, firstSet)),
        {AnyOrder({{std::string("  EntryHash ") + kItemA1Text, "    Breakpoint " + first},
                   {std::string("  EntryHash ") + kItemB1Text, "    Breakpoint " + first}})}));
    // The last dump: no breakpoint is left, and only A's entry points are.
    const LogLines last = DumpAfter(log, "UnloadLibraryMetadata : " + b);
    EXPECT_TRUE(ContainsInOrder(last, {"Breakpoint Methods List", "Entry Point Information"}));
    EXPECT_EQ(CountOf(last, "  Breakpoint : " + first), 0);
    EXPECT_TRUE(BreakpointMapOf(last).empty());
    EXPECT_EQ(CountOf(last, std::string("  EntryHash ") + kItemB1Text), 0);
    EXPECT_EQ(CountOf(last, std::string("  EntryHash ") + kItemA1Text), 1);
}

}  // namespace
}  // namespace testing_support
