// Allocation failures through the exports. A scripted host session drives the dlopen()ed plug-in,
// whose allocations go through the replaced allocator below. For each operation of the session
// and each N the operation reaches: a fresh session runs up to the operation, fails its N-th
// allocation, retries the call once if it threw, finishes, and must end in exactly the state of
// the run without faults. Debugger queries reach the plug-in through generated trampolines that
// an exception cannot cross, so they run only with no fault armed.

#include <unistd.h>

#include <optional>
#include <set>

#include "support/ReplacedAllocator.h"
#include "support/Session.h"

namespace testing_support {
namespace {

// Single-threaded while armed: only the session's thread allocates then.
size_t gFailAt = 0;  // 0: disarmed
size_t gAllocations = 0;
bool gFired = false;            // since the session started
bool FailsTheNthAllocation() {  // one-shot: later allocations succeed again
    return gFailAt != 0 && ++gAllocations == gFailAt && (gFailAt = 0, gFired = true);
}

const mdh_hash128 kEntries[] = {FIXTURE_ITEM_A1, FIXTURE_ITEM_A2, FIXTURE_ITEM_B1};
void* const kNeverTold = Ptr(1);
void KeepTarget(void* context, int32_t, void* target) {
    *static_cast<void**>(context) = target;
}
char Lands(uint64_t word) {
    return word == uint64_t(kNative) ? 'N' : word == uint64_t(&ManagedCode) ? 'M' : "0?"[word != 0];
}

// One handling object with the debugger side's writers installed, as a host and agent set it up.
struct HostSession {
    HostSession() {
        InstallWriters(record);
        InstallShutdownAndFlush(record);
        record->finishSetup();
        for (size_t stub = 0; stub < std::size(stubAt); ++stub)
            stubAt[stub] = stubs.MakeNative(stub);
    }
    ~HostSession() { x.shut_down(handle), x.dispose(handle); }
    void Load(const LoadedLibrary& library) { x.library_loaded(handle, library.Handle()); }
    void Stub(const LoadedLibrary& library, int entry, size_t stub) {
        x.register_entry(handle, library.Handle(), kEntries[entry], kNative, stubAt[stub], 0, 0);
    }
    void Callback(const LoadedLibrary& library, int entry, size_t slot) {
        x.register_entry(handle, library.Handle(), kEntries[entry], kNative, nullptr, KeepTarget,
                         &told[slot]);
    }
    void SetBreakpointInSharedMethod() {
        record->breakpointNotify(0, nullptr, 0, Ptr(0xB001));
        for (void* method : Methods()) {
            mdh_hash128 hash{};
            if (record->testFetchMethodHash(method, &hash) == 1 && ToHash(hash) == kMethodShared) {
                record->breakpointNotify(1, method, 0, Ptr(0xB001));
            }
        }
    }
    std::vector<void*> Methods() {
        ReplyBuffer list;
        return record->fetchMethods(&list, nullptr, 0, 0, 0, 0), list.Methods();
    }
    // Everything the host and the debugger side can observe, as text. Lists follow the records'
    // addresses, so they are compared as sets; the shared method is answered by whichever loaded
    // holder comes first, so only its presence counts.
    std::string State() {
        ReplyBuffer files;
        record->fetchFiles(&files, 0, 0, 0, 0);
        std::multiset<std::string> lines;
        for (const Reply& reply : files.replies)
            lines.insert("file " + Text({reply}));
        for (void* method : Methods()) {
            mdh_hash128 hash{}, item{};
            ReplyBuffer info;
            record->testFetchMethodHash(method, &hash),
                record->testFetchEntryPointHash(method, &item);
            record->fetchDebugInfo(&info, method, 1, 2, 32);
            lines.insert(ToHash(hash).ToString() +
                         (ToHash(hash) == kMethodShared
                              ? ""
                              : ToHash(item).ToString() + Text(info.replies)));
        }
        std::string state;
        for (const std::string& line : lines)
            state += line + "\n";
        for (const mdh_hash128& entry : kEntries)
            state += std::to_string(record->testFetchEntryPointCountForHash(&entry)) +
                     std::to_string(record->testBreakpointSet(&entry)) + " ";
        for (void* stub : stubAt)
            state += {Lands(JumpStubs::Target(stub)), Lands(JumpStubs::Alternate(stub)), ' '};
        return state + Lands(uint64_t(told[0])) + Lands(uint64_t(told[1]));
    }

    static inline const PluginExports x;
    static inline const LoadedLibrary a{"fixture_a"}, b{"fixture_b"}, rebuilt{"fixture_a_rebuilt"};
    mdh_handle handle = x.initialize("/data/Placeholder.dll");
    mdh_callbacks* record = RecordFromCommand(x.startup(handle));
    JumpStubs stubs{5};
    void* stubAt[5];
    void* told[2] = {kNeverTold, kNeverTold};
};

// The scripted session. Steps without faults only set the scene.
struct Step {
    const char* name;
    bool faulted;
    void (*run)(HostSession& s);
};
// clang-format off
const Step kSession[] = {
    {"load fixture_a", true, [](HostSession& s) { s.Load(s.a); }},
    {"load fixture_b", true, [](HostSession& s) { s.Load(s.b); }},
    {"register A1 (stub)", true, [](HostSession& s) { s.Stub(s.a, 0, 0); }},
    {"register A2 (callback)", true, [](HostSession& s) { s.Callback(s.a, 1, 0); }},
    {"set a breakpoint in the shared method", false, [](HostSession& s) { s.SetBreakpointInSharedMethod(); }},
    {"register A1 again (stub, switched)", true, [](HostSession& s) { s.Stub(s.a, 0, 1); }},
    {"register B1 (callback, switched)", true, [](HostSession& s) { s.Callback(s.b, 2, 1); }},
    {"reload fixture_a", true, [](HostSession& s) { s.Load(s.a); }},
    {"load fixture_a_rebuilt (replaces A1)", true, [](HostSession& s) { s.Load(s.rebuilt); }},
    {"flush", true, [](HostSession& s) { s.x.request_flush_client_debugger_knowledge(s.handle); }},
    {"unload fixture_b", true, [](HostSession& s) { s.x.library_unloaded(s.handle, s.b.Handle()); }},
    {"clear", true, [](HostSession& s) { s.x.clear_library_metadata(s.handle); }},
    {"load fixture_a after the clear", true, [](HostSession& s) { s.Load(s.a); }},
    {"register A1 after the clear (stub, switched)", true, [](HostSession& s) { s.Stub(s.a, 0, 3); }},
    {"reload fixture_a after the clear", true, [](HostSession& s) { s.Load(s.a); }},
    {"unload fixture_a", true, [](HostSession& s) { s.x.library_unloaded(s.handle, s.a.Handle()); }},
    // A fault in the reload above leaves the replaced A1 among the shared method's holders: the
    // breakpoint then reaches A1, unloaded, and A1 registered once more runs managed.
    {"set the breakpoint again (only B1 holds the method)", false, [](HostSession& s) { s.SetBreakpointInSharedMethod(); }},
    {"load fixture_a once more", true, [](HostSession& s) { s.Load(s.a); }},
    {"register A1 once more (stub, not switched)", true, [](HostSession& s) { s.Stub(s.a, 0, 4); }},
};
// clang-format on

// The state after step `faulted` (and its retry) and at the end of a fresh session in which the
// `failAt`-th allocation of that step fails (0: none); nothing when the step makes fewer
// allocations. A session that does not finish within 10 s (a lock left held) ends the process by
// SIGALRM; the last step printed names the one before.
std::optional<std::string> RunSession(size_t faulted, size_t failAt) {
    alarm(10);
    HostSession session;
    std::string state;
    gFired = false;
    for (size_t step = 0; step < std::size(kSession); ++step) {
        gAllocations = 0, gFailAt = step == faulted ? failAt : 0;
        try {
            kSession[step].run(session);
        } catch (const std::bad_alloc&) {
            gFailAt = 0, kSession[step].run(session);  // the host's one retry
        }
        gFailAt = 0;
        state += step == faulted ? session.State() + "\nat the end:\n" : "";
    }
    alarm(0);
    return gFired || failAt == 0 ? std::optional(state + session.State()) : std::nullopt;
}

// Every allocation of every faulted step failed in turn.
void FailEveryAllocation(const char* logLevel) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", logLevel);
    gAllocationFails = FailsTheNthAllocation;
    size_t injected = 0, converged = 0;
    for (size_t step = 0; step < std::size(kSession); ++step) {
        if (!kSession[step].faulted)
            continue;
        const std::string expected = *RunSession(step, 0);
        size_t failAt = 1;
        for (std::optional<std::string> state; (state = RunSession(step, failAt)); ++failAt) {
            ++injected, converged += *state == expected;
            EXPECT_EQ(*state, expected) << kSession[step].name << ", allocation " << failAt;
        }
        std::printf("%-52s %3zu allocations\n", kSession[step].name, failAt - 1), fflush(stdout);
        // The plug-in's allocations are counted here: a load cannot do without any.
        EXPECT_TRUE(failAt > 1 || !std::string(kSession[step].name).starts_with("load"));
    }
    gAllocationFails = nullptr;
    std::printf("faults injected: %zu, converged after the retry: %zu\n", injected, converged);
    EXPECT_GT(injected, 0u);
}

TEST(AllocationFailures, EveryFaultConvergesAfterOneRetryWithLoggingOff) {
    FailEveryAllocation(nullptr);
}

TEST(AllocationFailures, EveryFaultConvergesAfterOneRetryWithLoggingAtLevel3) {
    FailEveryAllocation("3");
}

}  // namespace
}  // namespace testing_support
