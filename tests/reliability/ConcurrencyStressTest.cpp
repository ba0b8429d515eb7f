// Host threads and debugger threads drive one handling object at once through the dlopen()ed
// plug-in while a third party runs code through the jump stubs being retargeted. Bounded in time
// and operations; a watchdog turns a deadlock into a failure. The end state must be exact.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <deque>
#include <future>
#include <random>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "mono_debugger_handling.h"
#include "support/Fixtures.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using namespace testing_support;

constexpr int kOperationsPerThread = 20000;

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

void* Open() {
    if (void* plugin = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL))
        return plugin;
    throw std::runtime_error(dlerror());
}
#define PLUGIN(name) reinterpret_cast<decltype(&::name)>(dlsym(plugin, #name))

bool Same(const mdh_hash128& a, const mdh_hash128& b) {
    return a.word0 == b.word0 && a.word1 == b.word1;
}
const std::vector<std::string> kPaths = {FIXTURE_SHARED_PATH, FIXTURE_A1_PATH, FIXTURE_A2_PATH,
                                         FIXTURE_B1_PATH};
const std::vector<mdh_hash128> kKnownMethods = {FIXTURE_METHOD_SHARED, FIXTURE_METHOD_A1_ONLY,
                                                FIXTURE_METHOD_A2_ONLY, FIXTURE_METHOD_B1_ONLY,
                                                FIXTURE_METHOD_REBUILT};
const std::vector<mdh_hash128> kEntries = {FIXTURE_ITEM_A1, FIXTURE_ITEM_A2, FIXTURE_ITEM_B1};
bool Known(const std::vector<mdh_hash128>& list, const mdh_hash128& hash) {
    return std::ranges::any_of(list, [&](const mdh_hash128& known) { return Same(known, hash); });
}
void* const kNative = reinterpret_cast<void*>(&NativeCode);
void* const kManaged = reinterpret_cast<void*>(&ManagedCode);

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
struct Debugger {
    ReplyBuffer buffer;
    std::vector<void*> methods;
    char breakpoints[8] = {};
};

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
    ~Storm() { PLUGIN(dispose)(handle), dlclose(plugin); }

    void Run() {
        std::vector<std::thread> threads;
        threads.emplace_back([this] { Host(1, {&libraries[0]}); });
        threads.emplace_back([this] { Host(2, {&libraries[1], &libraries[2]}); });
        for (Debugger& d : debuggers)
            threads.emplace_back([this, &d] { DebuggerLoop(d); });
        threads.emplace_back([this] {  // code running through retargeted stubs lands somewhere
            for (; !stop; ++stubCalls) {
                for (const Site& site : sites) {
                    const Landing landing = JumpStubs::Call(site.stub);
                    EXPECT_TRUE(landing == Landing::Native || landing == Landing::Managed);
                }
            }
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
                expected += Same(site.hash, entry.hash) ? site.registrations : 0;
            EXPECT_EQ(record->testFetchEntryPointCountForHash(&entry.hash), uint32_t(expected));
            EXPECT_EQ(record->testBreakpointSet(&entry.hash), 0) << std::hex << entry.hash.word0;
        }
    }

    // What a host does after reloading: load every library, register each entry point again.
    void ReloadAndRegisterAll() {
        for (LoadedLibrary& library : libraries)
            PLUGIN(library_loaded)(handle, library.Handle());
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
        FetchMethods(debuggers[0]);
        for (void* method : debuggers[0].methods)
            record->breakpointNotify(1, method, 0, breakpoint);
    }
    void Remove(void* breakpoint) { record->breakpointNotify(0, nullptr, 0, breakpoint); }

  private:
    void Register(Site& site, bool throughStub) {
        PLUGIN(register_entry)
        (handle, site.library, site.hash, kNative, throughStub ? site.stub : nullptr,
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
                PLUGIN(clear_library_metadata)(handle);
                for (Site& site : sites)
                    site.registrations = 0;
            } else if (choice < 5) {
                std::shared_lock shared(modelLock);
                PLUGIN(library_unloaded)(handle, library);
                for (Site& site : sites)
                    if (site.library == library)
                        site.registrations = 0;
            } else if (choice < 7) {
                PLUGIN(request_flush_client_debugger_knowledge)(handle);
            } else if (choice < 16) {
                PLUGIN(library_loaded)(handle, library);
            } else {
                std::shared_lock shared(modelLock);
                Site* site = &sites[random() % sites.size()];
                while (site->library != library)
                    site = &sites[random() % sites.size()];
                Register(*site, random() % 2 == 0);
            }
        }
    }

    void DebuggerLoop(Debugger& d) {
        std::minstd_rand random(static_cast<unsigned>(&d - debuggers) + 100);
        for (int i = 0; i < kOperationsPerThread && !stop; ++i) {
            void* method = d.methods.empty() ? nullptr : d.methods[random() % d.methods.size()];
            void* breakpoint = &d.breakpoints[random() % std::size(d.breakpoints)];
            const unsigned choice = random() % 10;
            d.buffer.replies.clear();
            if (choice == 0) {
                FetchMethods(d);
            } else if (choice == 1) {
                record->fetchFiles(&d.buffer, 0, 1, 2, 60);
                ASSERT_FALSE(d.buffer.replies.empty());
                EXPECT_EQ(d.buffer.replies[0].value + 1, int64_t(d.buffer.replies.size()));
                for (size_t k = 1; k < d.buffer.replies.size(); ++k)
                    EXPECT_TRUE(std::ranges::count(kPaths, d.buffer.replies[k].text))
                        << d.buffer.replies[k].text;
                EXPECT_LE(record->isFileQuarned(int32_t(random() % 2),
                                                kPaths[random() % kPaths.size()].c_str()),
                          1);
            } else if (choice == 2) {
                record->fetchDebugInfo(&d.buffer, method, 1, 2, 60);
                d.buffer.replies.clear();
                record->fetchMethodInfo(&d.buffer, method, 1, 2, 60);
                ASSERT_GE(d.buffer.replies.size(), 3u);
                const int64_t token =
                    d.buffer.replies[2].value;  // 0: the handle is no longer current
                EXPECT_TRUE(token == 0 || (token >= 0x06000001 &&
                                           token < 0x06000001 + int64_t(kKnownMethods.size())))
                    << token;
            } else if (choice == 3) {
                mdh_hash128 hash{};
                EXPECT_TRUE(record->testFetchEntryPointHash(method, &hash) != 1 ||
                            Known(kEntries, hash));
                EXPECT_TRUE(record->testFetchMethodHash(method, &hash) != 1 ||
                            Known(kKnownMethods, hash));
                EXPECT_LE(record->testBreakpointSet(&sites[random() % sites.size()].hash), 1);
            } else if (choice < 6) {
                record->breakpointNotify(1, method, 0, breakpoint);
            } else {
                Remove(breakpoint);
            }
        }
        for (char& breakpoint : d.breakpoints)
            Remove(&breakpoint);
    }

    void FetchMethods(Debugger& d) {
        d.buffer.replies.clear();
        record->fetchMethods(&d.buffer, &d, 7, 1, 2, 60);
        const std::vector<Reply>& replies = d.buffer.replies;
        ASSERT_FALSE(replies.empty());
        ASSERT_EQ(replies[0].kind, Reply::Kind::Int);
        d.methods = d.buffer.Methods();
        EXPECT_EQ(int64_t(d.methods.size()), replies[0].value);
        EXPECT_EQ(replies.size(), d.methods.size() + 1);
        for (size_t i = 1; i < replies.size(); ++i) {
            EXPECT_EQ(replies[i].idContext, &d);
            EXPECT_EQ(replies[i].value, 7);
        }
    }

    void* plugin = Open();
    mdh_handle handle = PLUGIN(initialize)("");
    mdh_callbacks* record = RecordFromCommand(PLUGIN(startup)(handle));
    JumpStubs stubs{16};
    std::deque<LoadedLibrary> libraries;
    std::deque<Site> sites;  // stable addresses: callbacks keep pointers into it
    Debugger debuggers[2];
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
