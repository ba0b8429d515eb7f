// Host threads (loads, unloads, registrations, flushes) and debugger threads (every query, hook
// and breakpoint, and calls through the stubs being retargeted) drive one handling object at once
// through the dlopen()ed plug-in. A deadlock ends the process by SIGALRM; the end state must be
// exact.

#include <unistd.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>

#include "support/Session.h"

namespace {

using namespace testing_support;

struct Site {  // one compiled entry point, registered through a stub and through a callback
    void* library;
    mdh_hash128 hash;
    void* stub;
    std::atomic<void*> told{nullptr};  // what the callback was last told, with kind 32
    int registrations = 0;             // changed only by the host thread that owns the library
};
void Told(void* context, int32_t kind, void* target) {
    static_cast<Site*>(context)->told = kind == 32 ? target : Ptr(1);
}

struct Storm {
    Storm() {
        InstallWriters(record), InstallShutdownAndFlush(record), record->finishSetup();
        const std::pair<const char*, std::vector<mdh_hash128>> items[] = {
            {"fixture_a", {FIXTURE_ITEM_A1, FIXTURE_ITEM_A2}},
            {"fixture_b", {FIXTURE_ITEM_B1}},
            {"fixture_a_rebuilt", {FIXTURE_ITEM_A1}}};  // serves item A1 again
        for (const auto& [name, hashes] : items)
            for (void* library = libraries.emplace_back(name).Handle(); auto hash : hashes)
                sites.emplace_back(library, hash, stubs.MakeNative(sites.size()));
    }
    ~Storm() { x.dispose(handle); }

    void Register(Site& site, bool throughStub) {
        x.register_entry(handle, site.library, site.hash, kNative, throughStub ? site.stub : 0,
                         throughStub ? nullptr : Told, throughStub ? nullptr : &site);
        ++site.registrations;
    }
    // Unloads, reloads, flushes, and registers the sites of library `owner`.
    void Host(unsigned owner) {
        std::minstd_rand random(owner + 1);
        for (void* library = libraries[owner].Handle(); !stop;) {
            if (const unsigned choice = random() % 16; choice == 0) {
                x.library_unloaded(handle, library);
                for (Site& site : sites)
                    if (site.library == library)  // only this thread's own sites
                        site.registrations = 0;
            } else if (choice == 1) {
                x.request_flush_client_debugger_knowledge(handle);
            } else if (choice < 8) {
                x.library_loaded(handle, library);
            } else if (Site& site = sites[random() % sites.size()]; site.library == library) {
                Register(site, random() % 2 == 0);
            }
        }
    }
    // Every query and hook, with current, stale and null method handles; calls through the stubs;
    // breakpoints set and removed. Removes its breakpoints at the end.
    void Debugger(unsigned seed) {
        std::minstd_rand random(seed);
        char breakpoints[8];
        std::vector<void*> methods{nullptr};
        for (ReplyBuffer buffer; !stop; buffer.replies.clear()) {
            if (random() % 8 == 0)
                methods = Methods(), methods.push_back(nullptr);
            void* method = methods[random() % methods.size()];
            const Site& site = sites[random() % sites.size()];
            mdh_hash128 hash{};
            record->fetchFiles(&buffer, 0, 1, 2, 60);
            record->isFileQuarned(int32_t(random() % 2), FIXTURE_A1_PATH);
            record->fetchDebugInfo(&buffer, method, 1, 2, 60);
            record->fetchMethodInfo(&buffer, method, 1, 2, 60);
            record->testFetchEntryPointHash(method, &hash);
            record->testFetchMethodHash(method, &hash);
            record->testBreakpointSet(&site.hash);
            EXPECT_NE(int(JumpStubs::Call(site.stub)), 0);  // lands in either function
            record->breakpointNotify(random() % 2, method, 0, &breakpoints[random() % 8]);
        }
        for (char& breakpoint : breakpoints)
            record->breakpointNotify(0, nullptr, 0, &breakpoint);
    }
    std::vector<void*> Methods() {
        ReplyBuffer buffer;
        return record->fetchMethods(&buffer, nullptr, 0, 1, 2, 60), buffer.Methods();
    }

    // Exact counts, no breakpoint left, and every stub and callback pointing at `target`.
    void ExpectEndState(void* target) {
        for (const Site& entry : sites) {
            int expected = 0;
            for (const Site& site : sites)
                expected += ToHash(site.hash) == ToHash(entry.hash) ? site.registrations : 0;
            EXPECT_EQ(record->testFetchEntryPointCountForHash(&entry.hash), uint32_t(expected));
            EXPECT_EQ(record->testBreakpointSet(&entry.hash), int(target != kNative));
            EXPECT_EQ(JumpStubs::Call(entry.stub) == Landing::Native, target == kNative);
            EXPECT_EQ(entry.told.load(), target == kNative ? kNative : nullptr);
        }
    }

    static inline const PluginExports x;
    mdh_handle handle = x.initialize("");
    mdh_callbacks* record = RecordFromCommand(x.startup(handle));
    JumpStubs stubs{16};
    std::deque<LoadedLibrary> libraries;
    std::deque<Site> sites;  // stable addresses: callbacks keep pointers into it
    std::atomic<bool> stop{false};
};

TEST(ConcurrencyStress, OneHandleSurvivesHostAndDebuggerThreadsWithExactEndState) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", "1");
    alarm(60);
    Storm storm;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 5; ++i)  // a host thread for each library, two debugger threads
        threads.emplace_back([&storm, i] { i < 3 ? storm.Host(i) : storm.Debugger(i); });
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    storm.stop = true;
    for (std::thread& thread : threads)
        thread.join();

    // Reloaded and registered again, every entry point still switches both ways.
    for (LoadedLibrary& library : storm.libraries)
        storm.x.library_loaded(storm.handle, library.Handle());
    for (Site& site : storm.sites)
        storm.Register(site, true), storm.Register(site, false);
    storm.ExpectEndState(kNative);
    char breakpoint = 0;
    for (void* method : storm.Methods())
        storm.record->breakpointNotify(1, method, 0, &breakpoint);
    storm.ExpectEndState(nullptr);
    storm.record->breakpointNotify(0, nullptr, 0, &breakpoint);
    storm.ExpectEndState(kNative);
}

}  // namespace
