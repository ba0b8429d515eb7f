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
const mdh_hash128 &kA1 = kEntries[0], &kA2 = kEntries[1], &kB1 = kEntries[2];
void KeepTarget(void* context, int32_t, void* target) {
    *static_cast<void**>(context) = target;
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
    std::vector<void*> Methods() {
        ReplyBuffer list;
        return record->fetchMethods(&list, nullptr, 0, 0, 0, 0), list.Methods();
    }
    // Debugger queries pass through trampolines that an exception cannot cross: no fault here.
    void SetBreakpointInSharedMethod() {
        gFailAt = 0;
        record->breakpointNotify(0, nullptr, 0, Ptr(0xB001));
        for (void* method : Methods()) {
            mdh_hash128 hash{};
            if (record->testFetchMethodHash(method, &hash) == 1 && ToHash(hash) == kMethodShared)
                record->breakpointNotify(1, method, 0, Ptr(0xB001));
        }
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
            mdh_hash128 hash{};
            ReplyBuffer info;
            record->testFetchMethodHash(method, &hash);
            record->fetchDebugInfo(&info, method, 1, 2, 32);
            lines.insert(ToHash(hash).ToString() +
                         (ToHash(hash) == kMethodShared ? "" : Text(info.replies)));
        }
        std::string state;
        for (const std::string& line : lines)
            state += line + "\n";
        for (const mdh_hash128& entry : kEntries)
            state += std::to_string(record->testFetchEntryPointCountForHash(&entry)) +
                     std::to_string(record->testBreakpointSet(&entry)) + " ";
        // Stub words and callback targets as addresses: the two code addresses are the same in
        // every session of the process.
        for (void* stub : stubAt)
            state += std::to_string(JumpStubs::Target(stub)) + "/" +
                     std::to_string(JumpStubs::Alternate(stub)) + " ";
        return state + PointerText(told[0]) + " " + PointerText(told[1]);
    }

    static inline const PluginExports x;
    static inline const LoadedLibrary a{"fixture_a"}, b{"fixture_b"}, rebuilt{"fixture_a_rebuilt"};
    mdh_handle handle = x.initialize("/data/Placeholder.dll");
    mdh_callbacks* record = RecordFromCommand(x.startup(handle));
    JumpStubs stubs{5};
    void* stubAt[5];                   // the last one is never registered
    void* told[2] = {Ptr(1), Ptr(1)};  // never told
};

// The scripted session. The debugger's steps only set the scene.
using Step = std::pair<const char*, void (*)(HostSession&)>;
// clang-format off
const Step kSession[] = {
    {"load fixture_a", [](HostSession& s) { s.x.library_loaded(s.handle, s.a.Handle()); }},
    {"load fixture_b", [](HostSession& s) { s.x.library_loaded(s.handle, s.b.Handle()); }},
    {"register A1 (stub)", [](HostSession& s) { s.x.register_entry(s.handle, s.a.Handle(), kA1, kNative, s.stubAt[0], 0, 0); }},
    {"register A2 (callback)", [](HostSession& s) { s.x.register_entry(s.handle, s.a.Handle(), kA2, kNative, 0, KeepTarget, &s.told[0]); }},
    {"set a breakpoint in the shared method", [](HostSession& s) { s.SetBreakpointInSharedMethod(); }},
    {"register A1 again (stub, switched)", [](HostSession& s) { s.x.register_entry(s.handle, s.a.Handle(), kA1, kNative, s.stubAt[1], 0, 0); }},
    {"register B1 (callback, switched)", [](HostSession& s) { s.x.register_entry(s.handle, s.b.Handle(), kB1, kNative, 0, KeepTarget, &s.told[1]); }},
    {"reload fixture_a", [](HostSession& s) { s.x.library_loaded(s.handle, s.a.Handle()); }},
    {"load fixture_a_rebuilt (replaces A1)", [](HostSession& s) { s.x.library_loaded(s.handle, s.rebuilt.Handle()); }},
    {"flush", [](HostSession& s) { s.x.request_flush_client_debugger_knowledge(s.handle); }},
    {"unload fixture_b", [](HostSession& s) { s.x.library_unloaded(s.handle, s.b.Handle()); }},
    {"clear", [](HostSession& s) { s.x.clear_library_metadata(s.handle); }},
    {"load fixture_a after the clear", [](HostSession& s) { s.x.library_loaded(s.handle, s.a.Handle()); }},
    {"register A1 after the clear (stub, switched)", [](HostSession& s) { s.x.register_entry(s.handle, s.a.Handle(), kA1, kNative, s.stubAt[2], 0, 0); }},
    {"reload fixture_a after the clear", [](HostSession& s) { s.x.library_loaded(s.handle, s.a.Handle()); }},
    {"unload fixture_a", [](HostSession& s) { s.x.library_unloaded(s.handle, s.a.Handle()); }},
    // A fault in the reload above leaves the replaced A1 among the shared method's holders: the
    // breakpoint then reaches A1, unloaded, and A1 registered once more runs managed.
    {"set the breakpoint again (only B1 holds the method)", [](HostSession& s) { s.SetBreakpointInSharedMethod(); }},
    {"load fixture_a once more", [](HostSession& s) { s.x.library_loaded(s.handle, s.a.Handle()); }},
    {"register A1 once more (stub, not switched)", [](HostSession& s) { s.x.register_entry(s.handle, s.a.Handle(), kA1, kNative, s.stubAt[3], 0, 0); }},
};
// clang-format on

// The state after step `faulted` (and its retry), then at the end, of a fresh session in which
// the `failAt`-th allocation of that step fails (0: none); nothing when the step makes fewer
// allocations. A session that does not finish within 10 s (a lock left held) ends the process by
// SIGALRM; the last step printed names the one before.
std::optional<std::string> RunSession(size_t faulted, size_t failAt) {
    alarm(10);
    HostSession session;
    std::string state;
    gFired = false;
    for (size_t step = 0; step < std::size(kSession); ++step) {
        gAllocations = 0, gFailAt = step == faulted ? failAt : 0;
        const auto run = kSession[step].second;
        try {
            run(session);
        } catch (const std::bad_alloc&) {
            gFailAt = 0, run(session);  // the host's one retry
        }
        gFailAt = 0;
        state += step == faulted ? session.State() + "\nat the end:\n" : "";
    }
    alarm(0);
    return gFired || failAt == 0 ? std::optional(state + session.State()) : std::nullopt;
}

// Every allocation of every step failed in turn.
void FailEveryAllocation(const char* logLevel) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", logLevel);
    gAllocationFails = FailsTheNthAllocation;
    size_t injected = 0;
    for (size_t step = 0; step < std::size(kSession); ++step) {
        const char* name = kSession[step].first;
        const std::string expected = *RunSession(step, 0);
        size_t failAt = 1;
        for (std::optional<std::string> state; (state = RunSession(step, failAt)); ++failAt)
            EXPECT_EQ(*state, expected) << name << ", allocation " << failAt;
        injected += failAt - 1;
        std::printf("%-52s %3zu allocations\n", name, failAt - 1), fflush(stdout);
    }
    gAllocationFails = nullptr;
    std::printf("faults injected: %zu\n", injected);
    EXPECT_GT(injected, 0u);
}

TEST(AllocationFailures, EveryFaultConvergesAfterOneRetryWithLoggingOffAndAtLevel3) {
    for (const char* logLevel : {static_cast<const char*>(nullptr), "3"})
        FailEveryAllocation(logLevel);
}

}  // namespace
}  // namespace testing_support
