// The fourteen exports used as a host uses them: through dlopen() of the built plug-in.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <thread>

#include "AllocationCounter.h"
#include "mono_debugger_handling.h"
#include "support/Fixtures.h"
#include "support/JumpStubs.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"
#include "trampoline/ProcessMemoryMap.h"

namespace {

using testing_support::FindMappedRegion;
using testing_support::Landing;

// The plug-in loaded with dlopen, each export looked up by name.
class Plugin {
    void* handle;  // declared first: the exports below are looked up in it

  public:
    Plugin() : handle(dlopen(testing_support::PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL)) {}
    ~Plugin() {
        if (handle != nullptr) {
            dlclose(handle);
        }
    }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    bool Loaded() const { return handle != nullptr; }

    template <class Function>
    Function* Resolve(const char* name) const {
        return handle == nullptr ? nullptr : reinterpret_cast<Function*>(dlsym(handle, name));
    }

#define MDH_RESOLVED_EXPORT(name) decltype(::name)* const name = Resolve<decltype(::name)>(#name)
    MDH_RESOLVED_EXPORT(initialize);
    MDH_RESOLVED_EXPORT(dispose);
    MDH_RESOLVED_EXPORT(startup);
    MDH_RESOLVED_EXPORT(shut_down);
    MDH_RESOLVED_EXPORT(register_entry);
    MDH_RESOLVED_EXPORT(request_flush_client_debugger_knowledge);
    MDH_RESOLVED_EXPORT(jit_allocate_memory);
    MDH_RESOLVED_EXPORT(jit_write_to_memory);
    MDH_RESOLVED_EXPORT(jit_free_memory);
    MDH_RESOLVED_EXPORT(get_context_for_current_thread);
    MDH_RESOLVED_EXPORT(jit_get_cpu_architecture);
#undef MDH_RESOLVED_EXPORT
};

class PluginExports : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(plugin.Loaded()) << dlerror();
        testing_support::ResetCounters();
    }

    testing_support::ScopedEnvironment noLog{"ORVEL_QUARN_DEBUG", nullptr};
    Plugin plugin;
};

// ---- Lifecycle ----

TEST_F(PluginExports, StartupHandsOutOneCommandStringAtOneAddress) {
    mdh_handle handle = plugin.initialize("/data/Orvel.Quarn.Placeholder.dll");
    ASSERT_NE(handle, nullptr);

    const char* first = plugin.startup(handle);
    const std::string text = first;
    EXPECT_EQ(plugin.startup(handle), first);
    EXPECT_EQ(plugin.startup(handle), text);
    EXPECT_EQ(text.rfind("$load_debugger_interface |CB|", 0), 0u) << text;
    EXPECT_NE(text.find("|CB||AM|/data/Orvel.Quarn.Placeholder.dll|AM||NM|"), std::string::npos);

    plugin.dispose(handle);
    plugin.dispose(nullptr);  // ignored: reaching the next line is the whole contract
}

TEST_F(PluginExports, InitializeWithNullPathThrowsLogicErrorAfterReleasingTheObject) {
    bool threwLogicError = false;
    const long before = testing_support::LiveAllocations();
    try {
        plugin.initialize(nullptr);
    } catch (const std::logic_error&) {
        threwLogicError = true;
    }
    const long after = testing_support::LiveAllocations();

    EXPECT_TRUE(threwLogicError);
    EXPECT_EQ(after, before);
}

TEST_F(PluginExports, ShutDownNotifiesTheDebuggerSideAndStopsFlushRequests) {
    mdh_handle handle = plugin.initialize("/p.dll");
    mdh_callbacks* record = testing_support::RecordFromCommand(plugin.startup(handle));
    testing_support::InstallShutdownAndFlush(record);
    const auto shutdownNotify = record->shutdownNotify;

    plugin.shut_down(handle);
    plugin.request_flush_client_debugger_knowledge(handle);

    EXPECT_EQ(testing_support::ShutdownCalls(), 1);
    EXPECT_EQ(testing_support::FlushCalls(), 0);
    EXPECT_EQ(record->shutdownNotify, shutdownNotify);
    EXPECT_EQ(record->flushClientKnowledge, nullptr);
    plugin.dispose(handle);
}

// ---- register_entry: eight arguments, the last two on the stack ----

struct EntryCallbackCall {
    void* context = nullptr;
    int32_t kind = 0;
    void* target = nullptr;
};
EntryCallbackCall entryCallbackCall;

void RecordEntryCallback(void* context, int32_t kind, void* target) {
    entryCallbackCall = {context, kind, target};
}

TEST_F(PluginExports, RegisterEntryForwardsHashStubCallbackAndContext) {
    mdh_handle handle = plugin.initialize("/p.dll");
    mdh_callbacks* record = testing_support::RecordFromCommand(plugin.startup(handle));
    testing_support::JumpStubs stubs(1);
    void* native = reinterpret_cast<void*>(&testing_support::NativeCode);
    void* managed = reinterpret_cast<void*>(&testing_support::ManagedCode);
    void* stub = stubs.Make(0, managed, native);  // managed now, native as the alternate
    const mdh_hash128 stubEntry{0x0123456789ABCDEF, 0xFEDCBA9876543210};
    const mdh_hash128 swappedWords{stubEntry.word1, stubEntry.word0};
    const mdh_hash128 callbackEntry{7, 8};
    int context = 0;

    plugin.register_entry(handle, nullptr, stubEntry, native, stub, nullptr, nullptr);
    plugin.register_entry(handle, nullptr, callbackEntry, native, nullptr, &RecordEntryCallback,
                          &context);

    // No breakpoint: both entry points are put into native execution.
    EXPECT_EQ(testing_support::JumpStubs::Call(stub), Landing::Native);
    EXPECT_EQ(entryCallbackCall.context, &context);
    EXPECT_EQ(entryCallbackCall.kind, 32);
    EXPECT_EQ(entryCallbackCall.target, native);
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&stubEntry), 1u);
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&swappedWords), 0u);
    plugin.dispose(handle);
}

// ---- Executable memory ----

// mov eax, edi ; imul eax, esi ; ret  — int32_t multiply(int32_t, int32_t)
constexpr uint8_t kMultiply[] = {0x89, 0xF8, 0x0F, 0xAF, 0xC6, 0xC3};

TEST_F(PluginExports, CodeWrittenIntoJitMemoryRunsAndTheMemoryIsFreed) {
    void* memory = plugin.jit_allocate_memory(sizeof kMultiply);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_NE(memory, nullptr);

    plugin.jit_write_to_memory(memory, kMultiply, sizeof kMultiply);
    EXPECT_EQ(reinterpret_cast<int32_t (*)(int32_t, int32_t)>(memory)(-6, 7), -42);

    plugin.jit_free_memory(memory, sizeof kMultiply);
    EXPECT_FALSE(FindMappedRegion(memory).has_value());
}

TEST_F(PluginExports, JitSizesAreZeroExtendedTo64Bits) {
    constexpr uint64_t kFourGiB = uint64_t{1} << 32;
    void* memory = plugin.jit_allocate_memory(0xFFFFFFFF);
    ASSERT_NE(memory, MAP_FAILED);

    const auto region = FindMappedRegion(memory);
    ASSERT_TRUE(region.has_value());
    EXPECT_EQ(region->start, reinterpret_cast<uintptr_t>(memory));
    EXPECT_EQ(region->Size(), kFourGiB);  // 4294967295 bytes, rounded up to whole pages
    EXPECT_EQ(region->permissions, "rwxp");

    plugin.jit_free_memory(memory, 0xFFFFFFFF);
    EXPECT_FALSE(FindMappedRegion(memory).has_value());
    EXPECT_FALSE(FindMappedRegion(static_cast<uint8_t*>(memory) + kFourGiB - 1).has_value());
}

TEST_F(PluginExports, ZeroSizedJitMemoryPassesTheFailureValueOn) {
    EXPECT_EQ(plugin.jit_allocate_memory(0), MAP_FAILED);
}

// ---- Helpers without a handle ----

TEST_F(PluginExports, ContextPointerIsPerThreadStableAndNullOnAFreshThread) {
    void** mine = plugin.get_context_for_current_thread();
    ASSERT_NE(mine, nullptr);
    EXPECT_EQ(plugin.get_context_for_current_thread(), mine);
    int marker = 0;
    *mine = &marker;

    void** theirs = nullptr;
    void* theirValue = &marker;
    std::thread([&] {
        theirs = plugin.get_context_for_current_thread();
        theirValue = *theirs;
    }).join();

    EXPECT_NE(theirs, mine);
    EXPECT_EQ(theirValue, nullptr);
    EXPECT_EQ(*mine, &marker);
    *mine = nullptr;
}

TEST_F(PluginExports, CpuArchitectureIsZero) {
    EXPECT_EQ(plugin.jit_get_cpu_architecture(), 0);
}

}  // namespace
