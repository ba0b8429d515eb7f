// Host threads and debugger threads drive one handling object at once through the dlopen()ed
// plug-in while a third party runs code through the jump stubs being retargeted. Bounded in time
// and operations; a watchdog turns a deadlock into a failure. The end state must be exact.

#include <atomic>
#include <chrono>
#include <deque>
#include <future>
#include <random>
#include <shared_mutex>
#include <thread>

#include "support/Session.h"

namespace {

using namespace testing_support;

constexpr int kOperationsPerThread = 20000;
void* const kManaged = reinterpret_cast<void*>(&ManagedCode);

// Ends the process with a failure unless destroyed within the limit.
struct Watchdog {
    std::promise<void> dismissed;
    std::thread thread{[done = dismissed.get_future()] {
        if (done.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
            std::fputs("watchdog: the stress run did not end: deadlock\n", stderr);
            std::_Exit(EXIT_FAILURE);
        }
    }};
    ~Watchdog() { dismissed.set_value(), thread.join(); }
};

struct Site {  // one compiled entry point, registered through a stub or through a callback
    void* library;
    mdh_hash128 hash;
    void* stub;
    std::atomic<void*> told{nullptr};  // what the callback was last told
    std::atomic<int> wrongKinds{0};
    int registrations = 0;  // changed by the owning host under the shared lock, clear: exclusive
};
void Told(void* context, int32_t kind, void* target) {
    static_cast<Site*>(context)->wrongKinds += kind != 32;
    static_cast<Site*>(context)->told = target;
}
// Each host thread owns its libraries; fixture_a_rebuilt serves item A1 again.
const std::pair<const char*, std::vector<mdh_hash128>> kLibraries[] = {
    {"fixture_a", {FIXTURE_ITEM_A1, FIXTURE_ITEM_A2}},
    {"fixture_b", {FIXTURE_ITEM_B1}},
    {"fixture_a_rebuilt", {FIXTURE_ITEM_A1}}};

class Storm {
  public:
    Storm() {
        InstallWriters(record);
        InstallShutdownAndFlush(record);
        record->finishSetup();
        for (const auto& [name, items] : kLibraries) {
            void* library = libraries.emplace_back(name).Handle();
            for (const mdh_hash128& item : items)
                sites.emplace_back(library, item, stubs.MakeNative(sites.size()));
        }
    }
    ~Storm() { x.dispose(handle); }

    void Run() {
        std::vector<std::thread> threads;
        threads.emplace_back([this] { Host(1, {&libraries[0]}); });
        threads.emplace_back([this] { Host(2, {&libraries[1], &libraries[2]}); });
        for (unsigned seed : {100, 101})
            threads.emplace_back([this, seed] { Debugger(seed); });
        threads.emplace_back([this] {  // code running through retargeted stubs lands somewhere
            for (; !stop; ++stubCalls)
                for (const Site& site : sites)
                    EXPECT_NE(int(JumpStubs::Call(site.stub)), 0);
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        stop = true;
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_GT(stubCalls.load(), 0);
    }

    void ExpectNoBreakpointAndExactCounts() {
        for (const Site& entry : sites) {
            int expected = 0;
            for (const Site& site : sites)
                expected += ToHash(site.hash) == ToHash(entry.hash) ? site.registrations : 0;
            EXPECT_EQ(record->testFetchEntryPointCountForHash(&entry.hash), uint32_t(expected));
            EXPECT_EQ(record->testBreakpointSet(&entry.hash), 0) << std::hex << entry.hash.word0;
        }
    }

    // What a host does after reloading: load every library, register each entry point again.
    void ReloadAndRegisterAll() {
        for (LoadedLibrary& library : libraries)
            x.library_loaded(handle, library.Handle());
        for (Site& site : sites)
            Register(site, true), Register(site, false);
    }

    void ExpectEveryEntryPoint(void* told, void* target, void* alternate) {
        for (Site& site : sites) {
            EXPECT_EQ(reinterpret_cast<void*>(JumpStubs::Target(site.stub)), target);
            EXPECT_EQ(reinterpret_cast<void*>(JumpStubs::Alternate(site.stub)), alternate);
            EXPECT_EQ(JumpStubs::Call(site.stub),
                      target == kNative ? Landing::Native : Landing::Managed);
            EXPECT_EQ(site.told.load(), told);
            EXPECT_EQ(site.wrongKinds.load(), 0);
        }
    }

    void SetBreakpointEverywhere(void* breakpoint) {
        for (void* method : FetchMethods())
            record->breakpointNotify(1, method, 0, breakpoint);
    }
    void Remove(void* breakpoint) { record->breakpointNotify(0, nullptr, 0, breakpoint); }

  private:
    void Register(Site& site, bool throughStub) {
        x.register_entry(handle, site.library, site.hash, kNative, throughStub ? site.stub : 0,
                         throughStub ? nullptr : Told, throughStub ? nullptr : &site);
        ++site.registrations;
    }

    void Host(unsigned seed, std::vector<LoadedLibrary*> own) {
        std::minstd_rand random(seed);
        for (int i = 0; i < kOperationsPerThread && !stop; ++i) {
            void* library = own[random() % own.size()]->Handle();
            const unsigned choice = random() % 32;
            if (choice == 0) {
                std::unique_lock exclusive(modelLock);
                x.clear_library_metadata(handle);
                for (Site& site : sites)
                    site.registrations = 0;
            } else if (choice < 5) {
                std::shared_lock shared(modelLock);
                x.library_unloaded(handle, library);
                for (Site& site : sites)
                    if (site.library == library)  // only this thread's own sites
                        site.registrations = 0;
            } else if (choice < 7) {
                x.request_flush_client_debugger_knowledge(handle);
            } else if (choice < 16) {
                x.library_loaded(handle, library);
            } else {
                std::shared_lock shared(modelLock);
                Site* site = &sites[random() % sites.size()];
                while (site->library != library)
                    site = &sites[random() % sites.size()];
                Register(*site, random() % 2 == 0);
            }
        }
    }

    // Every query and hook of the record, with handles of the thread's last method list.
    void Debugger(unsigned seed) {
        std::minstd_rand random(seed);
        char breakpoints[8];
        std::vector<void*> methods;
        ReplyBuffer buffer;
        for (int i = 0; i < kOperationsPerThread && !stop; ++i) {
            void* method = methods.empty() ? nullptr : methods[random() % methods.size()];
            void* breakpoint = &breakpoints[random() % std::size(breakpoints)];
            const mdh_hash128& entry = sites[random() % sites.size()].hash;
            mdh_hash128 hash{};
            buffer.replies.clear();
            switch (random() % 10) {
                case 0:
                    methods = FetchMethods();
                    break;
                case 1:
                    record->fetchFiles(&buffer, 0, 1, 2, 60);
                    record->isFileQuarned(int32_t(random() % 2), FIXTURE_A1_PATH);
                    break;
                case 2:
                    record->fetchDebugInfo(&buffer, method, 1, 2, 60);
                    record->fetchMethodInfo(&buffer, method, 1, 2, 60);
                    break;
                case 3:
                    record->testFetchEntryPointHash(method, &hash);
                    record->testFetchMethodHash(method, &hash);
                    record->testBreakpointSet(&entry);
                    break;
                case 4:
                case 5:
                    record->breakpointNotify(1, method, 0, breakpoint);
                    break;
                default:
                    Remove(breakpoint);
            }
        }
        for (char& breakpoint : breakpoints)
            Remove(&breakpoint);
    }

    std::vector<void*> FetchMethods() {
        ReplyBuffer buffer;
        record->fetchMethods(&buffer, nullptr, 0, 1, 2, 60);
        return buffer.Methods();
    }

    static inline const PluginExports x;
    mdh_handle handle = x.initialize("");
    mdh_callbacks* record = RecordFromCommand(x.startup(handle));
    JumpStubs stubs{16};
    std::deque<LoadedLibrary> libraries;
    std::deque<Site> sites;  // stable addresses: callbacks keep pointers into it
    std::shared_mutex modelLock;
    std::atomic<bool> stop{false};
    std::atomic<int> stubCalls{0};
};

TEST(ConcurrencyStress, OneHandleSurvivesHostAndDebuggerThreadsWithExactEndState) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", "1");
    Watchdog watchdog;
    Storm storm;
    storm.Run();
    storm.ExpectNoBreakpointAndExactCounts();  // every debugger thread removed its breakpoints
    storm.ReloadAndRegisterAll();
    storm.ExpectNoBreakpointAndExactCounts();
    storm.ExpectEveryEntryPoint(kNative, kNative, kManaged);
    // The state left by the storm still switches both ways.
    char breakpoint = 0;
    storm.SetBreakpointEverywhere(&breakpoint);
    storm.ExpectEveryEntryPoint(nullptr, kManaged, kNative);
    storm.Remove(&breakpoint);
    storm.ExpectEveryEntryPoint(kNative, kNative, kManaged);
    storm.ExpectNoBreakpointAndExactCounts();
}

}  // namespace
