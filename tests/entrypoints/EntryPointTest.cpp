// Entry point records switched between quarned and managed execution, and their log lines.
#include <gmock/gmock.h>

#include <cstring>

#include "support/LoggedHandling.h"
#include "support/Session.h"

namespace testing_support {
namespace {
using testing::Contains;
using testing::ElementsAre;

using Call = std::tuple<void*, int32_t, void*>;  // context, kind, target
std::vector<Call> calls;
void RecordTarget(void* context, int32_t kind, void* target) {
    calls.emplace_back(context, kind, target);
}
void* const kRecordTarget = reinterpret_cast<void*>(&RecordTarget);
void* const kManaged = reinterpret_cast<void*>(&ManagedCode);
const Hash128 kEntry{0x0123456789ABCDEFull, 0xE2};
const std::string kState = "Potentially changing Quarn execution state to ";
const std::string kEntryText = " for EFCDAB8967452301E200000000000000";
const std::string kDisablingSwap = "    Swapping Targets - disabling quarned method";
const std::string kEnablingSwap = "    Swapping Targets - enabling quarned method";
std::string StubState(const void* target, const void* alternate) {
    return "  FunctionPtr State : Target " + PointerText(target) + " - Alternate " +
           PointerText(alternate);
}

// Disabling tests only the target word, enabling both: a stub in neither expected state is left
// alone. Rows: breakpoint key present, words before, words after; N is the record's native.
TEST(StubWords, AreSwappedOnlyWhenTheDirectionsTestHolds) {
    const uintptr_t N = 0xFFFFFFFFFFFFFFF0ull, M = 0x8000000000000000ull, X = 0x30, Y = 0x40;
    const std::tuple<bool, uintptr_t, uintptr_t, uintptr_t, uintptr_t> rows[] = {
        {true, N, Y, Y, N},
        {true, M, N, M, N},
        {false, M, N, N, M},
        {false, N, M, N, M},
        {false, X, Y, X, Y}};
    JumpStubs stubs;
    for (const auto& [managed, target, alternate, targetAfter, alternateAfter] : rows) {
        LoggedHandling handling;
        void* stub = stubs.Make(0, Ptr(target), Ptr(alternate));
        handling.inspect.AddBreakpointKey(managed ? kEntry : Hash128{}, stub);
        handling.object.RegisterEntryPoint(Ptr(-2), kEntry, Ptr(N), stub, nullptr, nullptr);
        EXPECT_EQ(std::pair(JumpStubs::Target(stub), JumpStubs::Alternate(stub)),
                  std::pair(targetAfter, alternateAfter));
    }
}

// A registration puts its record into the state the breakpoints demand. A run, as a breakpoint
// notification makes it, walks the records in registration order and tells callbacks again.
// Registering twice keeps two records: the callback is told twice, and the second record of the
// stub finds it already switched. With a stub, the callback is kept but never called. Of the
// stubs' page, only the switched stub's two words change.
TEST(ExecutionSwitch, EveryRunWalksAllRecordsInRegistrationOrder) {
    LoggedHandling h;
    JumpStubs stubs;
    auto* page = static_cast<uint8_t*>(stubs.MakeNative(0));
    void* stub = stubs.MakeNative(1);
    int context = 0;
    auto run = [&](bool set) {
        calls.clear();
        h.MarkLog();
        set ? h.inspect.AddBreakpointKey(kEntry, &context) : h.inspect.EraseBreakpointKey(kEntry);
        h.inspect.Reconcile(kEntry);
        return h.LinesSinceMark();
    };
    const std::string toManaged = kState + "0" + kEntryText, toQuarned = kState + "1" + kEntryText;
    const std::string cb = "  Native 4097", st = "  Native " + PointerText(kNative);
    const std::string disabling = "  Disabling Job - Run Managed",
                      enabling = "  Enabling Job - Run Quarned";
    const std::string onNative = StubState(kNative, kManaged),
                      onManaged = StubState(kManaged, kNative);
    const Call managed{&context, 32, nullptr}, quarned{&context, 32, Ptr(0x1001)};

    h.MarkLog();
    for (int twice = 0; twice < 2; ++twice) {
        h.object.RegisterEntryPoint(0, kEntry, Ptr(0x1001), nullptr, kRecordTarget, &context);
        h.object.RegisterEntryPoint(0, kEntry, kNative, stub, kRecordTarget, &context);
    }
    EXPECT_THAT(h.LinesSinceMark(),
                Contains("RegisterEntryPoint : 0 EFCDAB8967452301E200000000000000 - Native 4097"));
    uint8_t expected[3 * JumpStubs::kStubSize];
    std::memcpy(expected, page, sizeof expected);
    std::memcpy(expected + JumpStubs::kStubSize + 2, &kManaged, 8);
    std::memcpy(expected + JumpStubs::kStubSize + 16, &kNative, 8);

    EXPECT_THAT(run(true), ElementsAre(toManaged, cb, disabling, st, onNative, kDisablingSwap, cb,
                                       disabling, st, onManaged));
    EXPECT_THAT(calls, ElementsAre(managed, managed));
    EXPECT_EQ(std::memcmp(expected, page, sizeof expected), 0);
    EXPECT_THAT(run(true),
                ElementsAre(toManaged, cb, disabling, st, onManaged, cb, disabling, st, onManaged));
    EXPECT_THAT(calls, ElementsAre(managed, managed));
    EXPECT_THAT(run(false), ElementsAre(toQuarned, cb, enabling, st, onManaged, kEnablingSwap, cb,
                                        enabling, st, onNative));
    EXPECT_THAT(calls, ElementsAre(quarned, quarned));
}

// Through the plug-in as a host loads it: the hash passed by value as two words keeps its value.
TEST(RegisterEntryExport, ForwardsEveryArgumentToTheHandlingObject) {
    const PluginExports x;
    mdh_handle handle = x.initialize("/tmp/Placeholder.dll");
    mdh_callbacks* record = RecordFromCommand(x.startup(handle));
    const mdh_hash128 entryHash{0x1111, 0x2222};
    int context = 0;
    x.register_entry(handle, Ptr(0x4000), entryHash, kNative, nullptr, RecordTarget, &context);
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&entryHash), 1u);
    EXPECT_THAT(calls, ElementsAre(Call{&context, 32, kNative}));
    x.dispose(handle);
}

}  // namespace
}  // namespace testing_support
