// Host threads and debugger threads drive one handling object at once through the real
// plug-in: loads, unloads, clears and entry point registrations against queries, method lists
// and breakpoints through the callbacks record, while a third party runs code through the jump
// stubs being retargeted. Bounded in time and operations; a watchdog turns a deadlock into a
// failure. The end state must be exact.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "PluginHost.h"
#include "support/Fixtures.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using namespace testing_support;
using reliability::PluginHost;

// The storm ends after kRunTime or kOperationsPerThread operations per thread, whichever comes
// first. A run still going after kHangLimit is taken for a deadlock.
constexpr auto kRunTime = std::chrono::milliseconds(1500);
constexpr int kOperationsPerThread = 20000;
constexpr auto kHangLimit = std::chrono::seconds(60);
constexpr int kBreakpointsPerThread = 8;
constexpr int32_t kFirstMethodToken = 0x06000001;

// Ends the process with a failure unless dismissed (destroyed) within the limit.
class Watchdog {
  public:
    explicit Watchdog(std::chrono::seconds limit)
        : thread([this, limit] {
              std::unique_lock<std::mutex> lock(mutex);
              if (!dismissed.wait_for(lock, limit, [this] { return done; })) {
                  std::fprintf(stderr, "watchdog: the stress run did not end: deadlock\n");
                  std::_Exit(EXIT_FAILURE);
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(mutex);
            done = true;
        }
        dismissed.notify_all();
        thread.join();
    }

  private:
    std::mutex mutex;
    std::condition_variable dismissed;
    bool done = false;
    std::thread thread;  // last: starts once the members it waits on exist
};

// Tables handed to the programmable compiled libraries: items sharing a method and a file name
// with the fixtures, and one item the reader skips (no files).
constexpr quarn_hash128 kItemP0a = {0x0A0Aull, 0x4000000000000000ull};
constexpr quarn_hash128 kItemP0b = {0x0A0Bull, 0x4000000000000000ull};
constexpr quarn_hash128 kItemP1a = {0x1A1Aull, 0x4000000000000000ull};
constexpr quarn_hash128 kItemP1Skipped = {0x1A1Bull, 0x4000000000000000ull};
constexpr quarn_hash128 kMethodGenerated = {0x6E6Eull, 0x0000000000000066ull};

const char kGeneratedStrings[] = FIXTURE_SHARED_PATH "\0gen/Generated.cs";
const int32_t kGeneratedOffsets[] = {0, sizeof FIXTURE_SHARED_PATH};
const int32_t kGeneratedMethodFiles[] = {0, 1};
const quarn_method_debug_info kGeneratedMethods[] = {{0, 0, 1, 0}, {0, 0, 1, 1}};
const quarn_hash128 kGeneratedMethodHashes[] = {FIXTURE_METHOD_SHARED, kMethodGenerated};
const int32_t kNoDigests[] = {-1, -1};

constexpr quarn_debug_item GeneratedItem(quarn_hash128 hash, int32_t methods, int32_t files) {
    return {methods,
            files,
            1,
            kGeneratedMethodFiles,
            kGeneratedMethods,
            kGeneratedOffsets,
            kGeneratedStrings,
            nullptr,
            hash,
            kGeneratedMethodHashes,
            kNoDigests,
            nullptr};
}

const quarn_debug_item kProgrammable0Items[] = {GeneratedItem(kItemP0a, 2, 2),
                                                GeneratedItem(kItemP0b, 1, 1)};
const quarn_debug_item kProgrammable1Items[] = {GeneratedItem(kItemP1Skipped, 2, 0),
                                                GeneratedItem(kItemP1a, 2, 1)};
const quarn_debug_library kProgrammable0 = QUARN_DEBUG_LIBRARY(kProgrammable0Items);
const quarn_debug_library kProgrammable1 = QUARN_DEBUG_LIBRARY(kProgrammable1Items);

mdh_hash128 ToMdh(quarn_hash128 hash) {
    return {hash.word0, hash.word1};
}

const std::vector<std::string> kKnownPaths = {FIXTURE_SHARED_PATH, FIXTURE_A1_PATH, FIXTURE_A2_PATH,
                                              FIXTURE_B1_PATH, "gen/Generated.cs"};
const std::vector<mdh_hash128> kKnownMethods = {FIXTURE_METHOD_SHARED,  FIXTURE_METHOD_A1_ONLY,
                                                FIXTURE_METHOD_A2_ONLY, FIXTURE_METHOD_B1_ONLY,
                                                FIXTURE_METHOD_REBUILT, ToMdh(kMethodGenerated)};

bool SameHash(const mdh_hash128& a, const mdh_hash128& b) {
    return a.word0 == b.word0 && a.word1 == b.word1;
}

bool Contains(const std::vector<mdh_hash128>& hashes, const mdh_hash128& hash) {
    return std::any_of(hashes.begin(), hashes.end(),
                       [&](const mdh_hash128& known) { return SameHash(known, hash); });
}

void* const kNative = reinterpret_cast<void*>(&NativeCode);
void* const kManaged = reinterpret_cast<void*>(&ManagedCode);

// What the host callback of one entry point was told.
struct CallbackRecorder {
    std::atomic<void*> lastTarget{nullptr};
    std::atomic<int> wrongKinds{0};
};

void RecordEntryCallback(void* context, int32_t kind, void* target) {
    auto* recorder = static_cast<CallbackRecorder*>(context);
    if (kind != 32) {
        ++recorder->wrongKinds;
    }
    recorder->lastTarget = target;
}

// One compiled entry point of one library: registered under its item hash, through a jump
// stub or through a callback.
struct EntrySite {
    void* library = nullptr;
    mdh_hash128 hash{};
    void* stub = nullptr;
    CallbackRecorder callback;
    // Registrations the plug-in should hold for this site. Changed by the library's owning host
    // thread under a shared model lock, or by a clear under the exclusive lock.
    int registrations = 0;
};

struct HostLibrary {
    std::unique_ptr<LoadedLibrary> library;
    std::vector<EntrySite*> sites;
};

// A debugger thread's view: its reply buffer, the handles of its last method list and the
// breakpoint handles it owns (addresses of its own bytes).
struct DebuggerState {
    ReplyBuffer buffer;
    std::vector<void*> methods;
    char breakpoints[kBreakpointsPerThread] = {};
};

class Storm {
  public:
    Storm() : handle(plugin.initialize("")), record(RecordFromCommand(plugin.startup(handle))) {
        InstallWriters(record);
        InstallShutdownAndFlush(record);
        record->finishSetup();
        AddLibrary("fixture_a", {FIXTURE_ITEM_A1, FIXTURE_ITEM_A2});
        AddLibrary("fixture_b", {FIXTURE_ITEM_B1});
        AddLibrary("fixture_a_rebuilt", {FIXTURE_ITEM_A1});
        AddLibrary("fixture_programmable_0", {ToMdh(kItemP0a), ToMdh(kItemP0b)});
        AddLibrary("fixture_programmable_1", {ToMdh(kItemP1a)});
        libraries[3].library->Symbol<void(const quarn_debug_library*)>("programmable_set_library")(
            &kProgrammable0);
        libraries[4].library->Symbol<void(const quarn_debug_library*)>("programmable_set_library")(
            &kProgrammable1);
    }
    ~Storm() { plugin.dispose(handle); }

    // Two host threads (each owning its libraries), two debugger threads and a thread that
    // keeps running code through the stubs, until the time or operation bound.
    void Run() {
        std::vector<std::thread> threads;
        threads.emplace_back([this] { HostLoop(1, {&libraries[0], &libraries[3]}); });
        threads.emplace_back([this] {
            HostLoop(2, {&libraries[1], &libraries[2], &libraries[4]});
        });
        for (DebuggerState& debugger : debuggers) {
            threads.emplace_back([this, &debugger] { DebuggerLoop(debugger); });
        }
        threads.emplace_back([this] { RunThroughStubs(); });
        std::this_thread::sleep_for(kRunTime);
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void ExpectNoBreakpointLeft() {
        for (const mdh_hash128& hash : EntryHashes()) {
            EXPECT_EQ(record->testBreakpointSet(&hash), 0) << std::hex << hash.word0;
        }
    }

    void ExpectRegistrationCountsAgree() {
        for (const mdh_hash128& hash : EntryHashes()) {
            int expected = 0;
            for (const EntrySite& site : sites) {
                expected += SameHash(site.hash, hash) ? site.registrations : 0;
            }
            EXPECT_EQ(record->testFetchEntryPointCountForHash(&hash),
                      static_cast<uint32_t>(expected))
                << std::hex << hash.word0;
        }
    }

    // What a host does after reloading: load every library and register each entry point again.
    void ReloadAndRegisterAll() {
        for (HostLibrary& library : libraries) {
            plugin.libraryLoaded(handle, library.library->Handle());
        }
        for (EntrySite& site : sites) {
            RegisterStub(site);
            RegisterCallback(site);
        }
    }

    void ExpectEveryEntryPoint(void* callbackTarget, void* stubTarget, void* stubAlternate) {
        for (EntrySite& site : sites) {
            EXPECT_EQ(reinterpret_cast<void*>(JumpStubs::Target(site.stub)), stubTarget);
            EXPECT_EQ(reinterpret_cast<void*>(JumpStubs::Alternate(site.stub)), stubAlternate);
            EXPECT_EQ(JumpStubs::Call(site.stub),
                      stubTarget == kNative ? Landing::Native : Landing::Managed);
            EXPECT_EQ(site.callback.lastTarget.load(), callbackTarget);
            EXPECT_EQ(site.callback.wrongKinds.load(), 0);
        }
    }

    void SetBreakpointInEveryMethod(void* breakpoint) {
        DebuggerState& debugger = debuggers[0];
        FetchMethods(debugger);
        for (void* method : debugger.methods) {
            record->breakpointNotify(1, method, 0, breakpoint);
        }
    }
    void RemoveBreakpoint(void* breakpoint) { record->breakpointNotify(0, nullptr, 0, breakpoint); }

    int StubCalls() const { return stubCalls; }

  private:
    void AddLibrary(const char* name, std::vector<mdh_hash128> items) {
        HostLibrary& library = libraries.emplace_back();
        library.library = std::make_unique<LoadedLibrary>(name);
        for (const mdh_hash128& item : items) {
            EntrySite& site = sites.emplace_back();
            site.library = library.library->Handle();
            site.hash = item;
            site.stub = stubs.MakeNative(sites.size() - 1);
            library.sites.push_back(&site);
        }
    }

    std::vector<mdh_hash128> EntryHashes() const {
        std::vector<mdh_hash128> hashes;
        for (const EntrySite& site : sites) {
            if (!Contains(hashes, site.hash)) {
                hashes.push_back(site.hash);
            }
        }
        return hashes;
    }

    void RegisterStub(EntrySite& site) {
        plugin.registerEntry(handle, site.library, site.hash, kNative, site.stub, nullptr, nullptr);
        ++site.registrations;
    }
    void RegisterCallback(EntrySite& site) {
        plugin.registerEntry(handle, site.library, site.hash, kNative, nullptr, RecordEntryCallback,
                             &site.callback);
        ++site.registrations;
    }

    void HostLoop(unsigned seed, std::vector<HostLibrary*> own) {
        std::minstd_rand random(seed);
        for (int i = 0; i < kOperationsPerThread && !stop; ++i) {
            HostStep(random, *own[random() % own.size()]);
        }
    }

    void HostStep(std::minstd_rand& random, HostLibrary& library) {
        const unsigned choice = random() % 32;
        if (choice == 0) {
            std::unique_lock<std::shared_mutex> exclusive(modelLock);
            plugin.clearLibraryMetadata(handle);
            for (EntrySite& site : sites) {
                site.registrations = 0;
            }
        } else if (choice < 5) {
            std::shared_lock<std::shared_mutex> shared(modelLock);
            plugin.libraryUnloaded(handle, library.library->Handle());
            for (EntrySite* site : library.sites) {
                site->registrations = 0;
            }
        } else if (choice < 7) {
            plugin.requestFlush(handle);
        } else if (choice < 16) {
            plugin.libraryLoaded(handle, library.library->Handle());
        } else {
            std::shared_lock<std::shared_mutex> shared(modelLock);
            EntrySite& site = *library.sites[random() % library.sites.size()];
            random() % 2 == 0 ? RegisterStub(site) : RegisterCallback(site);
        }
    }

    void DebuggerLoop(DebuggerState& debugger) {
        std::minstd_rand random(static_cast<unsigned>(&debugger - debuggers) + 100);
        for (int i = 0; i < kOperationsPerThread && !stop; ++i) {
            DebuggerStep(random, debugger);
        }
        for (char& breakpoint : debugger.breakpoints) {
            RemoveBreakpoint(&breakpoint);
        }
    }

    void DebuggerStep(std::minstd_rand& random, DebuggerState& debugger) {
        void* method = debugger.methods.empty()
                           ? nullptr
                           : debugger.methods[random() % debugger.methods.size()];
        void* breakpoint = &debugger.breakpoints[random() % kBreakpointsPerThread];
        switch (random() % 10) {
            case 0:
                return FetchMethods(debugger);
            case 1:
                return FetchFiles(debugger);
            case 2:
                return AskIsFileQuarned(random);
            case 3:
                return FetchDebugAndMethodInfo(debugger, method);
            case 4:
                return AskTestHooks(random, method);
            case 5:
            case 6:
                return record->breakpointNotify(1, method, 0, breakpoint);
            default:
                return RemoveBreakpoint(breakpoint);
        }
    }

    void FetchMethods(DebuggerState& debugger) {
        debugger.buffer.replies.clear();
        record->fetchMethods(&debugger.buffer, &debugger, 7, 1, 2, 60);
        const std::vector<Reply>& replies = debugger.buffer.replies;
        ASSERT_FALSE(replies.empty());
        ASSERT_EQ(replies[0].kind, Reply::Kind::Int);
        debugger.methods = debugger.buffer.Methods();
        EXPECT_EQ(static_cast<int64_t>(debugger.methods.size()), replies[0].value);
        EXPECT_EQ(replies.size(), debugger.methods.size() + 1);
        for (size_t i = 1; i < replies.size(); ++i) {
            EXPECT_EQ(replies[i].idContext, &debugger);
            EXPECT_EQ(replies[i].value, 7);
        }
    }

    void FetchFiles(DebuggerState& debugger) {
        debugger.buffer.replies.clear();
        record->fetchFiles(&debugger.buffer, 0, 1, 2, 60);
        const std::vector<Reply>& replies = debugger.buffer.replies;
        ASSERT_FALSE(replies.empty());
        EXPECT_EQ(replies[0].value + 1, static_cast<int64_t>(replies.size()));
        for (size_t i = 1; i < replies.size(); ++i) {
            EXPECT_NE(std::find(kKnownPaths.begin(), kKnownPaths.end(), replies[i].text),
                      kKnownPaths.end())
                << replies[i].text;
        }
    }

    void AskIsFileQuarned(std::minstd_rand& random) {
        const std::string& path = kKnownPaths[random() % kKnownPaths.size()];
        const int32_t answer =
            record->isFileQuarned(static_cast<int32_t>(random() % 2), path.c_str());
        EXPECT_TRUE(answer == 0 || answer == 1);
    }

    void FetchDebugAndMethodInfo(DebuggerState& debugger, void* method) {
        debugger.buffer.replies.clear();
        record->fetchDebugInfo(&debugger.buffer, method, 1, 2, 60);
        debugger.buffer.replies.clear();
        record->fetchMethodInfo(&debugger.buffer, method, 1, 2, 60);
        const std::vector<Reply>& replies = debugger.buffer.replies;
        ASSERT_GE(replies.size(), 3u);
        const int64_t token = replies[2].value;  // 0 for a handle that is no longer current
        EXPECT_TRUE(token == 0 ||
                    (token >= kFirstMethodToken &&
                     token < kFirstMethodToken + static_cast<int64_t>(kKnownMethods.size())))
            << token;
    }

    void AskTestHooks(std::minstd_rand& random, void* method) {
        mdh_hash128 hash{};
        if (record->testFetchEntryPointHash(method, &hash) == 1) {
            EXPECT_TRUE(Contains(EntryHashes(), hash)) << std::hex << hash.word0;
        }
        if (record->testFetchMethodHash(method, &hash) == 1) {
            EXPECT_TRUE(Contains(kKnownMethods, hash)) << std::hex << hash.word0;
        }
        const mdh_hash128& entry = sites[random() % sites.size()].hash;
        const int32_t set = record->testBreakpointSet(&entry);
        EXPECT_TRUE(set == 0 || set == 1);
        EXPECT_LE(record->testFetchEntryPointCountForHash(&entry),
                  static_cast<uint32_t>(2 * kOperationsPerThread));
    }

    // Code running through the stubs while they are retargeted lands on one side or the other.
    void RunThroughStubs() {
        while (!stop) {
            for (const EntrySite& site : sites) {
                const Landing landing = JumpStubs::Call(site.stub);
                EXPECT_TRUE(landing == Landing::Native || landing == Landing::Managed);
                ++stubCalls;
            }
        }
    }

    PluginHost plugin;
    mdh_handle handle;
    mdh_callbacks* record;
    JumpStubs stubs{16};
    std::deque<HostLibrary> libraries;
    std::deque<EntrySite> sites;  // stable addresses: callbacks keep pointers into it
    DebuggerState debuggers[2];
    std::shared_mutex modelLock;
    std::atomic<bool> stop{false};
    std::atomic<int> stubCalls{0};
};

TEST(ConcurrencyStress, OneHandleSurvivesHostAndDebuggerThreadsWithExactEndState) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", "1");
    Watchdog watchdog(kHangLimit);
    Storm storm;

    storm.Run();
    EXPECT_GT(storm.StubCalls(), 0);

    // Every debugger thread removed its breakpoints before it ended.
    storm.ExpectNoBreakpointLeft();
    storm.ExpectRegistrationCountsAgree();

    storm.ReloadAndRegisterAll();
    storm.ExpectRegistrationCountsAgree();
    storm.ExpectEveryEntryPoint(kNative, kNative, kManaged);

    // The state left by the storm still switches: a breakpoint in every method turns every
    // entry point managed, and its removal turns them all back.
    char breakpoint = 0;
    storm.SetBreakpointInEveryMethod(&breakpoint);
    storm.ExpectEveryEntryPoint(nullptr, kManaged, kNative);
    storm.RemoveBreakpoint(&breakpoint);
    storm.ExpectEveryEntryPoint(kNative, kNative, kManaged);
    storm.ExpectNoBreakpointLeft();
}

}  // namespace
