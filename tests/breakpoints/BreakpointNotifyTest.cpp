// Breakpoint notifications switching real jump stubs, and the test hooks.

#include "support/Session.h"

namespace testing_support {
namespace {

const Hash128 kEntries[] = {kItemA1, kItemA2, kItemB1};
const std::string kIncoming = "QuarnBreakpointNotify : Incoming Breakpoint ";

// Fixtures A and B with a stub for each of A1, A2 and B1, and a method list: a debugger about to
// set breakpoints. A1 and B1 both hold the shared method.
struct Bench {
    explicit Bench(const char* logLevel = nullptr) : session(logLevel) {
        for (size_t i = 0; i < 3; ++i)
            Register(i < 2 ? libraryA : libraryB, kEntries[i], i);
    }
    void Register(void* library, const Hash128& entry, size_t i) {
        session.object.RegisterEntryPoint(library, entry, kNative, stub[i], nullptr, nullptr);
    }
    void Notify(int set, const Hash128* method, intptr_t breakpoint) {
        void* handle = method ? DebuggerSession::HandleOf(handles, *method) : nullptr;
        session.record.breakpointNotify(set, handle, 0, Ptr(breakpoint));
    }
    // Where calls through the A1, A2 and B1 stubs land (Native, Managed), testBreakpointSet for
    // each, and how many breakpoints are kept: "MNM101 1".
    std::string State() {
        std::string lands, hooks;
        for (size_t i = 0; i < 3; ++i) {
            const mdh_hash128 entryHash = {kEntries[i].word0, kEntries[i].word1};
            lands += JumpStubs::Call(stub[i]) == Landing::Native ? "N" : "M";
            hooks += std::to_string(session.record.testBreakpointSet(&entryHash));
        }
        return lands + hooks + " " + std::to_string(session.Inspect().BreakpointMethods().size());
    }

    JumpStubs stubs;
    void* stub[4] = {stubs.MakeNative(0), stubs.MakeNative(1), stubs.MakeNative(2),
                     stubs.MakeNative(3)};
    DebuggerSession session;
    void* libraryA = session.Load("fixture_a");
    void* libraryB = session.Load("fixture_b");
    std::vector<void*> handles = session.FetchMethods();
};

// Breakpoints outlive the metadata: an entry point registered for a hash that still has one
// starts managed. Stubs no longer registered are left as they are.
TEST(Breakpoints, ManyToManyThroughTheStubsAndClearKeepsThem) {
    Bench bench;
    ASSERT_EQ(bench.State(), "NNN000 0");
    const std::tuple<const Hash128*, intptr_t, const char*> steps[] = {
        {&kMethodShared, 1, "MNM101 1"},  // both holders switch
        {&kMethodB1Only, 2, "MNM101 2"},  // B1 is managed already
        {nullptr, 1, "NNM001 1"},         // removed; B1 stays managed until its last goes
        {nullptr, 2, "NNN000 0"},        {&kMethodShared, 3, "MNM101 1"},
        {&kMethodShared, 3, "MNM101 1"},  // the same handle again changes nothing
    };
    for (const auto& [method, breakpoint, state] : steps) {
        // isSet is the breakpoint's number for a set: any value but 0 sets.
        bench.Notify(method != nullptr ? int(breakpoint) : 0, method, breakpoint);
        EXPECT_EQ(bench.State(), state) << breakpoint;
    }
    bench.session.object.ClearLibraryMetadata();
    bench.Register(bench.libraryA, kItemA1, 3);
    EXPECT_EQ(JumpStubs::Call(bench.stub[3]), Landing::Managed);
    bench.Notify(0, nullptr, 3);
    EXPECT_EQ(JumpStubs::Call(bench.stub[3]), Landing::Native);
    EXPECT_EQ(bench.State(), "MNM000 0");
}

// A set with a stale or foreign handle writes its line only: no dump, nothing switched. The
// hooks reject such a handle, leave their output as it was and write nothing. Among them: a
// record of the current list whose generation differs in one bit, a pointer into a record, one
// past the list. A remove of an unknown breakpoint writes its line and one dump.
TEST(Breakpoints, BadHandlesAndUnknownBreakpoints) {
    Bench bench("3");
    DebuggerSession& session = bench.session;
    void* stale = DebuggerSession::HandleOf(bench.handles, kMethodShared);
    bench.handles = session.FetchMethods();
    void* unloaded = DebuggerSession::HandleOf(bench.handles, kMethodB1Only);
    mdh_hash128 hash{};
    EXPECT_EQ(session.record.testFetchEntryPointHash(unloaded, &hash), 1);
    EXPECT_EQ(ToHash(hash), kItemB1);
    session.object.UnloadLibraryMetadata(bench.libraryB);
    auto* record = static_cast<MethodCacheEntry*>(bench.handles[0]);
    record->generation ^= 1ull << 63;
    int local = 0;
    for (void* method : std::initializer_list<void*>{stale, unloaded, &local, Ptr(0), record,
                                                     reinterpret_cast<char*>(record + 1) + 8,
                                                     record + bench.handles.size()}) {
        const size_t mark = session.LogMark();
        session.record.breakpointNotify(1, method, 0, Ptr(2));
        mdh_hash128 untouched = {7, 7};
        EXPECT_EQ(session.record.testFetchEntryPointHash(method, &untouched), 0);
        EXPECT_EQ(session.record.testFetchMethodHash(method, &untouched), 0);
        EXPECT_EQ(ToHash(untouched), (Hash128{7, 7}));
        EXPECT_EQ(session.LogSince(mark), kIncoming + "SET " + PointerText(method) + " 2\n");
    }
    const size_t mark = session.LogMark();
    bench.Notify(1, &kMethodA2Only, 1);
    session.record.breakpointNotify(0, Ptr(-1), 0, Ptr(3));
    bench.Notify(0, nullptr, 1);
    const std::string log = session.LogSince(mark);
    const std::string a2Only = PointerText(DebuggerSession::HandleOf(bench.handles, kMethodA2Only));
    for (const std::string& lines :
         {kIncoming + "SET " + a2Only + " 1\nQuarnBreakpointNotify : Add Breakpoint " + a2Only +
              " 1\n    MethodHash : " + kMethodA2Only.ToString() +
              "\n        EntryPointHash : " + kItemA2.ToString() + "\n",
          "---STATE-END---\n" + kIncoming + "REMOVE -1 3\n---STATE-START---\n",
          "---STATE-END---\n" + kIncoming +
              "REMOVE 0 1\nQuarnBreakpointNotify : Remove Breakpoint 1\n"})
        EXPECT_NE(log.find(lines), log.npos) << lines;
    EXPECT_EQ(bench.State(), "NNN000 0");
}

// The debugger side's flush runs unlocked, right after the request's line and before the dump.
TEST(KnowledgeFlush, RunsUnlockedBetweenTheRequestLineAndTheDump) {
    static DebuggerSession session("2");
    static int flushes = 0;
    session.record.flushClientKnowledge = [] {
        std::unique_lock lock(session.Inspect().ObjectMutex(), std::try_to_lock);
        EXPECT_TRUE(lock.owns_lock());
        EXPECT_EQ(session.LogSince(session.LogMark() - 36),
                  "RequestFlushClientDebuggerKnowledge\n");
        ++flushes;
    };
    session.Load("fixture_a");  // a load that adds items asks for one
    EXPECT_EQ(flushes, 1);
}

}  // namespace
}  // namespace testing_support
