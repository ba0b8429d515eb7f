// Allocation failures through the exports. This binary replaces the global allocation functions
// with a counting version that fails the N-th allocation after it is armed. A scripted host
// session drives the real plug-in (dlopen, as hosts do; its calls to operator new resolve to the
// ones below). For each operation of the session and each N the operation reaches: a fresh
// session runs up to the operation, fails its N-th allocation, retries the call once if it
// threw, finishes, and must end in exactly the state of the run without faults. Debugger
// queries reach the plug-in through generated trampolines that an exception cannot cross, so
// they run only with no fault armed: to set a breakpoint and to read the state.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>
#include <vector>

#include "support/Fixtures.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {
// Single-threaded while armed: only the session's thread allocates then.
size_t gFailAt = 0;  // 0: disarmed
size_t gAllocations = 0;
bool gFired = false;

void* Allocate(std::size_t size, std::size_t alignment) {
    if (gFailAt != 0 && ++gAllocations == gFailAt) {
        gFired = true;  // one-shot: later allocations succeed again
        return nullptr;
    }
    size = size == 0 ? 1 : size;
    if (alignment <= alignof(std::max_align_t)) {
        return std::malloc(size);
    }
    return std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}
void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
    if (void* memory = Allocate(size, alignment)) {
        return memory;
    }
    throw std::bad_alloc();
}
std::size_t Align(std::align_val_t alignment) {
    return static_cast<std::size_t>(alignment);
}
}  // namespace

// clang-format off
void* operator new(std::size_t n) { return AllocateOrThrow(n, 0); }
void* operator new[](std::size_t n) { return AllocateOrThrow(n, 0); }
void* operator new(std::size_t n, std::align_val_t a) { return AllocateOrThrow(n, Align(a)); }
void* operator new[](std::size_t n, std::align_val_t a) { return AllocateOrThrow(n, Align(a)); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept { return Allocate(n, 0); }
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept { return Allocate(n, 0); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
    return Allocate(n, Align(a));
}
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
    return Allocate(n, Align(a));
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { std::free(p); }
// clang-format on

namespace testing_support {
namespace {

// The host's exports, looked up by name in the plug-in, which stays loaded for the process.
struct Exports {
#define MDH_EXPORT(name) decltype(&::name) name = Find<decltype(&::name)>(#name)
    template <class Function>
    Function Find(const char* name) {
        if (plugin == nullptr) {
            throw std::runtime_error(dlerror());
        }
        Function function = reinterpret_cast<Function>(dlsym(plugin, name));
        if (function == nullptr) {
            throw std::runtime_error(std::string("no export ") + name);
        }
        return function;
    }
    void* plugin = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    MDH_EXPORT(initialize);
    MDH_EXPORT(startup);
    MDH_EXPORT(library_loaded);
    MDH_EXPORT(library_unloaded);
    MDH_EXPORT(clear_library_metadata);
    MDH_EXPORT(register_entry);
    MDH_EXPORT(request_flush_client_debugger_knowledge);
    MDH_EXPORT(shut_down);
    MDH_EXPORT(dispose);
#undef MDH_EXPORT
};

// The plug-in and the compiled libraries, loaded once for the process.
struct Host {
    Exports x;
    LoadedLibrary a{"fixture_a"}, b{"fixture_b"}, rebuilt{"fixture_a_rebuilt"};
    // A method that several loaded items hold is answered from whichever of them the plug-in
    // meets first, and that order follows the records' addresses: any holder's answer is right.
    // Per holder: a method only it has (so it is loaded), and its answer for the shared method.
    std::vector<std::pair<std::string, std::string>> sharedMethodHolders;
};

const mdh_hash128 kEntryA1 = FIXTURE_ITEM_A1, kEntryA2 = FIXTURE_ITEM_A2,
                  kEntryB1 = FIXTURE_ITEM_B1;
void* const kNeverTold = reinterpret_cast<void*>(1);
void* const kBreakpoint = reinterpret_cast<void*>(0xB001);

// An entry point callback that keeps the last target it was told in *context.
void KeepTarget(void* context, int32_t /*kind*/, void* target) {
    *static_cast<void**>(context) = target;
}

std::string HashText(mdh_hash128 hash) {
    char text[40];
    std::snprintf(text, sizeof text, "%016" PRIx64 "%016" PRIx64, hash.word0, hash.word1);
    return text;
}

// One handling object with the debugger side's writers installed, as a host and agent set it up.
struct HostSession {
    explicit HostSession(const Host& host)
        : host(host),
          x(host.x),
          a(host.a.Handle()),
          b(host.b.Handle()),
          rebuilt(host.rebuilt.Handle()),
          handle(x.initialize("/data/Placeholder.dll")),
          record(RecordFromCommand(x.startup(handle))) {
        InstallWriters(record);
        InstallShutdownAndFlush(record);
        record->finishSetup();
        for (size_t stub = 0; stub < kStubs; ++stub) {
            stubAt[stub] = stubs.MakeNative(stub);
        }
    }
    ~HostSession() {
        x.shut_down(handle);
        x.dispose(handle);
    }
    void RegisterStub(void* library, mdh_hash128 entry, size_t stub) {
        x.register_entry(handle, library, entry, reinterpret_cast<void*>(&NativeCode), stubAt[stub],
                         nullptr, nullptr);
    }
    void RegisterCallback(void* library, mdh_hash128 entry, size_t slot) {
        x.register_entry(handle, library, entry, reinterpret_cast<void*>(&NativeCode), nullptr,
                         KeepTarget, &told[slot]);
    }
    void SetBreakpointInSharedMethod() {
        ReplyBuffer list;
        record->fetchMethods(&list, nullptr, 0, 0, 0, 0);
        const std::string shared = HashText(FIXTURE_METHOD_SHARED);
        for (void* method : list.Methods()) {
            mdh_hash128 hash{};
            if (record->testFetchMethodHash(method, &hash) == 1 && HashText(hash) == shared) {
                record->breakpointNotify(1, method, 0, kBreakpoint);
            }
        }
    }
    // Per method hash of a new method list: the item that answers for it and its debug info.
    std::map<std::string, std::string> MethodAnswers() {
        ReplyBuffer methods;
        record->fetchMethods(&methods, nullptr, 0, 0, 0, 0);
        std::map<std::string, std::string> answers;
        for (void* method : methods.Methods()) {
            mdh_hash128 hash{}, item{};
            const bool valid = record->testFetchMethodHash(method, &hash) == 1 &&
                               record->testFetchEntryPointHash(method, &item) == 1;
            ReplyBuffer info;
            record->fetchDebugInfo(&info, method, 1, 2, 32);
            std::string& text = answers[valid ? HashText(hash) : "invalid handle"];
            text += " item " + HashText(item) + ":";
            for (const Reply& reply : info.replies) {
                text += " " + (reply.kind == Reply::Kind::String ? reply.text : Number(reply));
            }
        }
        const auto shared = answers.find(HashText(FIXTURE_METHOD_SHARED));
        for (const auto& [ownMethod, answer] : host.sharedMethodHolders) {
            if (shared != answers.end() && shared->second == answer &&
                answers.contains(ownMethod)) {
                shared->second = " the answer of a loaded item that holds it";
            }
        }
        return answers;
    }
    // Everything the host and the debugger side can observe, as text.
    std::string State() {
        std::string state = "files:";
        ReplyBuffer files;
        record->fetchFiles(&files, 0, 0, 0, 0);
        std::multiset<std::string> names;
        for (const Reply& reply : files.replies) {
            names.insert(reply.kind == Reply::Kind::String ? reply.text : "#" + Number(reply));
        }
        for (const std::string& name : names) {
            state += " " + name;
        }
        for (const auto& [hash, answer] : MethodAnswers()) {
            state += "\nmethod " + hash + ":" + answer;
        }
        for (const mdh_hash128& entry : {kEntryA1, kEntryA2, kEntryB1}) {
            state += "\nentry " + HashText(entry) + ": " +
                     std::to_string(record->testFetchEntryPointCountForHash(&entry)) +
                     " registered, breakpoint " + std::to_string(record->testBreakpointSet(&entry));
        }
        state += "\nstubs (target, alternate):";
        for (void* stub : stubAt) {
            state += " " + Landing(JumpStubs::Target(stub)) + Landing(JumpStubs::Alternate(stub));
        }
        state += "\ncallbacks told:";
        for (void* target : told) {
            state += " " + Landing(reinterpret_cast<uintptr_t>(target));
        }
        return state;
    }

    static constexpr size_t kStubs = 5;
    const Host& host;
    const Exports& x;
    void *a, *b, *rebuilt;
    mdh_handle handle;
    mdh_callbacks* record;
    JumpStubs stubs{kStubs};
    void* stubAt[kStubs];
    void* told[2] = {kNeverTold, kNeverTold};

  private:
    static std::string Number(const Reply& reply) { return std::to_string(reply.value); }
    static std::string Landing(uint64_t word) {
        return word == reinterpret_cast<uintptr_t>(&NativeCode)    ? "N"
               : word == reinterpret_cast<uintptr_t>(&ManagedCode) ? "M"
               : word == 0                                         ? "0"
                                                                   : "?";
    }
};

// The scripted session. Steps without faults only set the scene.
struct Step {
    const char* name;
    bool faulted;
    void (*run)(HostSession& s);
};
// clang-format off
const Step kSession[] = {
    {"load fixture_a", true, [](HostSession& s) { s.x.library_loaded(s.handle, s.a); }},
    {"load fixture_b", true, [](HostSession& s) { s.x.library_loaded(s.handle, s.b); }},
    {"register A1 (stub)", true, [](HostSession& s) { s.RegisterStub(s.a, kEntryA1, 0); }},
    {"register A2 (callback)", true, [](HostSession& s) { s.RegisterCallback(s.a, kEntryA2, 0); }},
    {"set a breakpoint in the shared method", false,
     [](HostSession& s) { s.SetBreakpointInSharedMethod(); }},
    {"register A1 again (stub, switched)", true,
     [](HostSession& s) { s.RegisterStub(s.a, kEntryA1, 1); }},
    {"register B1 (callback, switched)", true,
     [](HostSession& s) { s.RegisterCallback(s.b, kEntryB1, 1); }},
    {"register B1 (stub, switched)", true, [](HostSession& s) { s.RegisterStub(s.b, kEntryB1, 2); }},
    {"reload fixture_a", true, [](HostSession& s) { s.x.library_loaded(s.handle, s.a); }},
    {"load fixture_a_rebuilt (replaces A1)", true,
     [](HostSession& s) { s.x.library_loaded(s.handle, s.rebuilt); }},
    {"flush", true, [](HostSession& s) { s.x.request_flush_client_debugger_knowledge(s.handle); }},
    {"unload fixture_b", true, [](HostSession& s) { s.x.library_unloaded(s.handle, s.b); }},
    {"clear", true, [](HostSession& s) { s.x.clear_library_metadata(s.handle); }},
    {"load fixture_a after the clear", true,
     [](HostSession& s) { s.x.library_loaded(s.handle, s.a); }},
    {"register A1 after the clear (stub, switched)", true,
     [](HostSession& s) { s.RegisterStub(s.a, kEntryA1, 3); }},
    {"flush again", true,
     [](HostSession& s) { s.x.request_flush_client_debugger_knowledge(s.handle); }},
    {"load fixture_b after the clear", true,
     [](HostSession& s) { s.x.library_loaded(s.handle, s.b); }},
    {"reload fixture_a after the clear", true,
     [](HostSession& s) { s.x.library_loaded(s.handle, s.a); }},
    {"unload fixture_a", true, [](HostSession& s) { s.x.library_unloaded(s.handle, s.a); }},
    // A fault in the reload above leaves the replaced A1 among the shared method's holders: the
    // breakpoint then reaches A1, unloaded, and A1 registered once more runs managed.
    {"set the breakpoint again (only B1 holds the method)", false, [](HostSession& s) {
         s.record->breakpointNotify(0, nullptr, 0, kBreakpoint);
         s.SetBreakpointInSharedMethod();
     }},
    {"load fixture_a once more", true, [](HostSession& s) { s.x.library_loaded(s.handle, s.a); }},
    {"register A1 once more (stub, not switched)", true,
     [](HostSession& s) { s.RegisterStub(s.a, kEntryA1, 4); }},
};
// clang-format on
constexpr size_t kNoFault = 0;
// A session that does not finish within kSessionSeconds (a lock left held) ends the process
// with the name of its faulted step, instead of letting the test hang.
constexpr unsigned kSessionSeconds = 10;
const char* volatile gSessionStep = "";
void OnSessionTimeout(int) {
    const char text[] = "a session did not finish (a lock left held?); faulted step: ";
    [[maybe_unused]] ssize_t written = write(STDERR_FILENO, text, sizeof text - 1);
    written = write(STDERR_FILENO, gSessionStep, std::strlen(gSessionStep));
    written = write(STDERR_FILENO, "\n", 1);
    _exit(1);
}

struct Outcome {
    bool fired = false;     // the N-th allocation was reached and failed
    bool threw = false;     // ... and the export let std::bad_alloc out
    std::string afterStep;  // state after the faulted step (and its retry)
    std::string atEnd;      // state after the whole session
};

// A fresh session in which the `failAt`-th allocation of step `faulted` fails (kNoFault: none).
Outcome RunSession(const Host& host, size_t steps, size_t faulted, size_t failAt) {
    gSessionStep = kSession[faulted].name;
    alarm(kSessionSeconds);
    Outcome outcome;
    HostSession session(host);
    for (size_t step = 0; step < steps; ++step) {
        if (step != faulted) {
            kSession[step].run(session);
            continue;
        }
        gAllocations = 0, gFired = false, gFailAt = failAt;
        try {
            kSession[step].run(session);
        } catch (const std::bad_alloc&) {
            outcome.threw = true;
        }
        gFailAt = kNoFault;
        outcome.fired = gFired;
        if (outcome.threw) {
            kSession[step].run(session);  // the host's one retry
        }
        outcome.afterStep = session.State();
    }
    outcome.atEnd = session.State();
    alarm(0);
    return outcome;
}

// What fixture_a's A1 and fixture_b's B1 answer for the method they share, each loaded alone.
void LearnSharedMethodHolders(Host& host) {
    for (const auto& [library, ownMethod] :
         {std::pair{host.a.Handle(), kMethodA1Only}, std::pair{host.b.Handle(), kMethodB1Only}}) {
        HostSession session(host);
        session.x.library_loaded(session.handle, library);
        host.sharedMethodHolders.emplace_back(
            HashText({ownMethod.word0, ownMethod.word1}),
            session.MethodAnswers().at(HashText(FIXTURE_METHOD_SHARED)));
    }
}

// Every allocation of every faulted step among the first `steps` failed in turn.
void FailEveryAllocation(const char* logLevel, size_t steps) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", logLevel);
    Host host;
    LearnSharedMethodHolders(host);
    ASSERT_EQ(host.sharedMethodHolders.size(), 2u);
    std::signal(SIGALRM, OnSessionTimeout);
    size_t injected = 0, converged = 0;
    for (size_t step = 0; step < steps; ++step) {
        if (!kSession[step].faulted) {
            continue;
        }
        const Outcome expected = RunSession(host, steps, step, kNoFault);
        Outcome outcome;
        size_t failAt = 1;
        for (; (outcome = RunSession(host, steps, step, failAt)).fired; ++failAt) {
            ++injected;
            const bool same =
                outcome.afterStep == expected.afterStep && outcome.atEnd == expected.atEnd;
            converged += same;
            EXPECT_TRUE(same) << "\"" << kSession[step].name << "\" with allocation " << failAt
                              << " failed (" << (outcome.threw ? "thrown, retried" : "not thrown")
                              << ")\nafter the step:\n"
                              << outcome.afterStep << "\nexpected:\n"
                              << expected.afterStep << "\nat the end:\n"
                              << outcome.atEnd << "\nexpected:\n"
                              << expected.atEnd;
        }
        std::printf("%-46s %3zu allocations\n", kSession[step].name, failAt - 1);
        // The plug-in's allocations are counted here: a load cannot do without any.
        if (std::string(kSession[step].name).starts_with("load")) {
            EXPECT_GT(failAt - 1, 0u) << kSession[step].name;
        }
    }
    std::printf("faults injected: %zu, converged after the retry: %zu\n", injected, converged);
    testing::Test::RecordProperty("faults_injected", std::to_string(injected));
    testing::Test::RecordProperty("faults_converged", std::to_string(converged));
    EXPECT_GT(injected, 0u);
}

TEST(AllocationFailures, EveryFaultConvergesAfterOneRetryWithLoggingOff) {
    FailEveryAllocation(nullptr, std::size(kSession));
}

TEST(AllocationFailures, EveryFaultConvergesAfterOneRetryWithLoggingAtLevel3) {
    FailEveryAllocation("3", std::size(kSession));
}

}  // namespace
}  // namespace testing_support
