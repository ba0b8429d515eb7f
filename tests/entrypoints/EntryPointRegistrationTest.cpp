// Registering compiled entry points: the log line, the records kept, and the execution state
// a new record starts in.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "EntryPointTest.h"
#include "support/Fixtures.h"

namespace testing_support {
namespace {

using testing::ElementsAre;
using testing_support::PrintTo;

// The plug-in as a host loads it, with the exports used here.
class LoadedPlugin {
  public:
    LoadedPlugin() : library(dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL)) {
        if (library == nullptr) {
            throw std::runtime_error(dlerror());
        }
    }
    ~LoadedPlugin() { dlclose(library); }
    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    template <class Function>
    Function* Export(const char* name) const {
        return reinterpret_cast<Function*>(dlsym(library, name));
    }

  private:
    void* library;

  public:
    decltype(&::initialize) initialize = Export<decltype(::initialize)>("initialize");
    decltype(&::startup) startup = Export<decltype(::startup)>("startup");
    decltype(&::register_entry) register_entry =
        Export<decltype(::register_entry)>("register_entry");
    decltype(&::dispose) dispose = Export<decltype(::dispose)>("dispose");
};

class EntryPointRegistration : public EntryPointTest {
  protected:
    int context = 0;
};

struct LogLineCase {
    const char* name;
    uintptr_t library;
    Hash128 hash;
    uintptr_t native;
    const char* line;
};

class RegistrationLogLine : public EntryPointRegistration,
                            public testing::WithParamInterface<LogLineCase> {};

TEST_P(RegistrationLogLine, PrintsPointersAsSignedDecimalsAndTheHashInMemoryOrder) {
    const LogLineCase& row = GetParam();
    handling.MarkLog();

    object.RegisterEntryPoint(Address(row.library), row.hash, Address(row.native), nullptr,
                              RecordTargetAddress(), &context);

    // A callback record without breakpoints: the reconciliation tells it to run quarned.
    EXPECT_EQ(
        handling.LinesSinceMark(),
        (std::vector<std::string>{
            row.line, "Potentially changing Quarn execution state to 1 for " + row.hash.ToString(),
            "  Native " + PointerText(Address(row.native)), "  Enabling Job - Run Quarned"}));
}

INSTANTIATE_TEST_SUITE_P(
    Values, RegistrationLogLine,
    testing::Values(
        LogLineCase{"Small",
                    0x1000,
                    {1, 0},
                    0x2000,
                    "RegisterEntryPoint : 4096 01000000000000000000000000000000 - Native 8192"},
        LogLineCase{"Zero",
                    0,
                    {0, 0},
                    0,
                    "RegisterEntryPoint : 0 00000000000000000000000000000000 - Native 0"},
        LogLineCase{"TopBitSet",
                    0xFFFFFFFFFFFFFFFEull,
                    {0x0123456789ABCDEFull, 0xFEDCBA9876543210ull},
                    0x8000000000000000ull,
                    "RegisterEntryPoint : -2 EFCDAB89674523011032547698BADCFE - Native "
                    "-9223372036854775808"}),
    [](const testing::TestParamInfo<LogLineCase>& info) { return std::string(info.param.name); });

TEST_F(EntryPointRegistration, StoresEachArgumentInItsField) {
    void* stub = stubs.MakeNative(0);
    object.RegisterEntryPoint(library, kEntry, NativeAddress(), stub, RecordTargetAddress(),
                              &context);

    ASSERT_EQ(inspect.EntryPoints().count(kEntry), 1u);
    ASSERT_EQ(inspect.EntryPoints().at(kEntry).size(), 1u);
    const EntryPoint& record = inspect.EntryPoints().at(kEntry)[0];
    EXPECT_EQ(record.library, library);
    EXPECT_EQ(record.stub, stub);
    EXPECT_EQ(reinterpret_cast<void*>(record.callback), RecordTargetAddress());
    EXPECT_EQ(record.native, NativeAddress());
    EXPECT_EQ(record.callbackContext, &context);
    // With a stub the callback is stored but not called.
    EXPECT_TRUE(RecordedCalls().empty());
}

TEST_F(EntryPointRegistration, WithoutABreakpointStartsQuarned) {
    void* stub = stubs.MakeNative(0);

    RegisterStub(stub);
    RegisterCallback(&context);

    EXPECT_EQ(JumpStubs::Call(stub), Landing::Native);
    EXPECT_EQ(JumpStubs::Alternate(stub), reinterpret_cast<uintptr_t>(&ManagedCode));
    EXPECT_THAT(RecordedCalls(), ElementsAre(CallbackCall{&context, 32, NativeAddress()}));
}

TEST_F(EntryPointRegistration, AfterABreakpointStartsManaged) {
    inspect.AddBreakpointKey(kEntry, &breakpoint);
    void* stub = stubs.MakeNative(0);

    RegisterStub(stub);
    RegisterCallback(&context);

    EXPECT_EQ(JumpStubs::Call(stub), Landing::Managed);
    EXPECT_EQ(JumpStubs::Alternate(stub), reinterpret_cast<uintptr_t>(&NativeCode));
    EXPECT_THAT(RecordedCalls(), ElementsAre(CallbackCall{&context, 32, nullptr}));
}

TEST_F(EntryPointRegistration, BeforeABreakpointIsSwitchedWhenTheKeyAppearsAndGoes) {
    void* stub = stubs.MakeNative(0);
    RegisterStub(stub);

    SetBreakpoint();
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Managed);

    RemoveBreakpoint();
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Native);
}

TEST_F(EntryPointRegistration, DuplicateCallbackRecordsAreCountedAndToldSeparately) {
    RegisterCallback(&context);
    RegisterCallback(&context);
    EXPECT_EQ(RecordCount(), 2u);
    RecordedCalls().clear();

    SetBreakpoint();

    EXPECT_THAT(RecordedCalls(), ElementsAre(CallbackCall{&context, 32, nullptr},
                                             CallbackCall{&context, 32, nullptr}));
}

// Both records of one stub are processed: the first swaps it, the second finds it already
// managed and must not swap it back.
TEST_F(EntryPointRegistration, DuplicateStubRecordsSwitchTheStubOnce) {
    void* stub = stubs.MakeNative(0);
    RegisterStub(stub);
    RegisterStub(stub);
    EXPECT_EQ(RecordCount(), 2u);
    handling.MarkLog();

    SetBreakpoint();

    EXPECT_EQ(JumpStubs::Call(stub), Landing::Managed);
    EXPECT_EQ(handling.LinesSinceMarkStartingWith("  Native ").size(), 2u);
    EXPECT_EQ(handling.LinesSinceMarkStartingWith("    Swapping Targets").size(), 1u);

    RemoveBreakpoint();
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Native);
}

// The export passes the hash by value as two words: the record lands under the same hash the
// host gave, seen through the debugger side's test hook.
TEST(RegisterEntryExport, ForwardsEveryArgumentToTheHandlingObject) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    LoadedPlugin plugin;
    RecordedCalls().clear();
    mdh_handle handle = plugin.initialize("/tmp/Placeholder.dll");
    mdh_callbacks* record = RecordFromCommand(plugin.startup(handle));
    const mdh_hash128 entryHash{0x1111, 0x2222};
    int context = 0;

    plugin.register_entry(handle, Address(0x4000), entryHash, NativeAddress(), nullptr,
                          &RecordTarget, &context);

    mdh_hash128 swapped{entryHash.word1, entryHash.word0};
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&entryHash), 1u);
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&swapped), 0u);
    EXPECT_THAT(RecordedCalls(), ElementsAre(CallbackCall{&context, 32, NativeAddress()}));
    plugin.dispose(handle);
}

}  // namespace
}  // namespace testing_support
