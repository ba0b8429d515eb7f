// Switching the records of one entry point between quarned and managed execution: stubs that
// are rewritten in place, callbacks that are told the target, and the log of each run.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "EntryPointTest.h"
#include "support/JumpStubs.h"

namespace testing_support {
namespace {

using testing::ElementsAre;
using testing_support::PrintTo;

const std::string kToManaged =
    "Potentially changing Quarn execution state to 0 for EFCDAB8967452301E200000000000000";
const std::string kToQuarned =
    "Potentially changing Quarn execution state to 1 for EFCDAB8967452301E200000000000000";

std::string NativeLine(const void* native) {
    return "  Native " + PointerText(native);
}
std::string StubStateLine(const void* target, const void* alternate) {
    return "  FunctionPtr State : Target " + PointerText(target) + " - Alternate " +
           PointerText(alternate);
}
const std::string kDisablingSwap = "    Swapping Targets - disabling quarned method";
const std::string kEnablingSwap = "    Swapping Targets - enabling quarned method";
const std::string kDisablingJob = "  Disabling Job - Run Managed";
const std::string kEnablingJob = "  Enabling Job - Run Quarned";

using ExecutionSwitch = EntryPointTest;

TEST_F(ExecutionSwitch, StubSendsCallsToManagedCodeWhileTheKeyExistsAndBackAfter) {
    void* stub = stubs.MakeNative(0);
    RegisterStub(stub);
    ASSERT_EQ(JumpStubs::Call(stub), Landing::Native);

    SetBreakpoint();
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Managed);
    EXPECT_EQ(JumpStubs::Target(stub), reinterpret_cast<uintptr_t>(&ManagedCode));
    EXPECT_EQ(JumpStubs::Alternate(stub), reinterpret_cast<uintptr_t>(&NativeCode));
    inspect.Reconcile(kEntry);  // repeating changes nothing
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Managed);

    RemoveBreakpoint();
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Native);
    EXPECT_EQ(JumpStubs::Target(stub), reinterpret_cast<uintptr_t>(&NativeCode));
    EXPECT_EQ(JumpStubs::Alternate(stub), reinterpret_cast<uintptr_t>(&ManagedCode));
    inspect.Reconcile(kEntry);
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Native);
}

// Stub words as symbols: N is the record's native address, M, X and Y are other addresses.
constexpr uintptr_t N = 0x10, M = 0x20, X = 0x30, Y = 0x40;

struct StubCase {
    const char* name;
    bool managed;
    uintptr_t target, alternate;
    uintptr_t targetAfter, alternateAfter;
    const char* swapLine;  // null: no swap
};

class StubWords : public ExecutionSwitch, public testing::WithParamInterface<StubCase> {};

// Disabling tests only the target word; enabling tests both, so a stub in neither expected
// state is left alone.
TEST_P(StubWords, AreSwappedOnlyWhenTheDirectionsTestHolds) {
    const StubCase& row = GetParam();
    void* stub = stubs.Make(0, Address(row.target), Address(row.alternate));
    if (row.managed) {
        inspect.AddBreakpointKey(kEntry, &breakpoint);
    }
    handling.MarkLog();

    RegisterStub(stub, Address(N));

    EXPECT_EQ(JumpStubs::Target(stub), row.targetAfter);
    EXPECT_EQ(JumpStubs::Alternate(stub), row.alternateAfter);
    std::vector<std::string> expected{
        "RegisterEntryPoint : 16384 " + kEntry.ToString() + " - Native " + std::to_string(N),
        row.managed ? kToManaged : kToQuarned, NativeLine(Address(N)),
        StubStateLine(Address(row.target), Address(row.alternate))};
    if (row.swapLine != nullptr) {
        expected.push_back(row.swapLine);
    }
    EXPECT_EQ(handling.LinesSinceMark(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, StubWords,
    testing::Values(
        StubCase{"DisableFromNative", true, N, M, M, N, kDisablingSwap.c_str()},
        StubCase{"DisableIgnoresTheAlternate", true, N, Y, Y, N, kDisablingSwap.c_str()},
        StubCase{"DisableWithBothWordsNative", true, N, N, N, N, kDisablingSwap.c_str()},
        StubCase{"DisableWhenAlreadyManaged", true, M, N, M, N, nullptr},
        StubCase{"DisableWithNeitherWordNative", true, X, Y, X, Y, nullptr},
        StubCase{"EnableFromManaged", false, M, N, N, M, kEnablingSwap.c_str()},
        StubCase{"EnableWhenAlreadyNative", false, N, M, N, M, nullptr},
        StubCase{"EnableWithBothWordsNative", false, N, N, N, N, nullptr},
        StubCase{"EnableWithNeitherWordNative", false, X, Y, X, Y, nullptr}),
    [](const testing::TestParamInfo<StubCase>& info) { return std::string(info.param.name); });

TEST_F(ExecutionSwitch, WithoutRecordsWritesOnlyTheStateLine) {
    handling.MarkLog();
    inspect.Reconcile(kEntry);
    inspect.AddBreakpointKey(kEntry, &breakpoint);
    inspect.Reconcile(kEntry);

    EXPECT_EQ(handling.LinesSinceMark(), (std::vector<std::string>{kToQuarned, kToManaged}));
}

TEST_F(ExecutionSwitch, CallbacksAreToldTheTargetOnEveryRun) {
    int context = 0;
    RegisterCallback(&context);
    inspect.Reconcile(kEntry);
    SetBreakpoint();
    inspect.Reconcile(kEntry);
    RemoveBreakpoint();

    const CallbackCall quarned{&context, 32, NativeAddress()};
    const CallbackCall managed{&context, 32, nullptr};
    EXPECT_THAT(RecordedCalls(), ElementsAre(quarned, quarned, managed, managed, quarned));
}

// Two callback and two stub records, interleaved: every run walks them in registration order.
TEST_F(ExecutionSwitch, MixedRecordsAreProcessedInRegistrationOrderWithEveryLogLine) {
    int firstContext = 0;
    int secondContext = 0;
    void* firstStub = stubs.MakeNative(0);
    void* secondStub = stubs.MakeNative(1);
    void* firstNative = Address(0x1001);
    void* secondNative = Address(0x1002);
    RegisterCallback(&firstContext, firstNative);
    RegisterStub(firstStub);
    RegisterCallback(&secondContext, secondNative);
    RegisterStub(secondStub);
    // One run: the state line, then the lines of each record; callback and stub records
    // alternate, and both stubs start in the same state.
    auto expectedRun = [&](const std::string& stateLine, const std::string& jobLine,
                           void* stubTarget, void* stubAlternate, const std::string& swapLine) {
        std::vector<std::string> lines{stateLine};
        for (void* callbackNative : {firstNative, secondNative}) {
            lines.insert(lines.end(),
                         {NativeLine(callbackNative), jobLine, NativeLine(NativeAddress()),
                          StubStateLine(stubTarget, stubAlternate), swapLine});
        }
        return lines;
    };
    auto linesOf = [&](auto&& change) {
        RecordedCalls().clear();
        handling.MarkLog();
        change();
        return handling.LinesSinceMark();
    };

    EXPECT_EQ(
        linesOf([&] { SetBreakpoint(); }),
        expectedRun(kToManaged, kDisablingJob, NativeAddress(), ManagedAddress(), kDisablingSwap));
    EXPECT_THAT(RecordedCalls(), ElementsAre(CallbackCall{&firstContext, 32, nullptr},
                                             CallbackCall{&secondContext, 32, nullptr}));
    EXPECT_EQ(JumpStubs::Call(firstStub), Landing::Managed);
    EXPECT_EQ(JumpStubs::Call(secondStub), Landing::Managed);

    EXPECT_EQ(
        linesOf([&] { RemoveBreakpoint(); }),
        expectedRun(kToQuarned, kEnablingJob, ManagedAddress(), NativeAddress(), kEnablingSwap));
    EXPECT_THAT(RecordedCalls(), ElementsAre(CallbackCall{&firstContext, 32, firstNative},
                                             CallbackCall{&secondContext, 32, secondNative}));
    EXPECT_EQ(JumpStubs::Call(firstStub), Landing::Native);
    EXPECT_EQ(JumpStubs::Call(secondStub), Landing::Native);
}

TEST_F(ExecutionSwitch, NeverWritesStubBytesOutsideTheTwoWords) {
    constexpr size_t kStubs = 3;
    constexpr size_t kSize = kStubs * JumpStubs::kStubSize;
    auto* first = static_cast<uint8_t*>(stubs.MakeNative(0));
    void* switched = stubs.MakeNative(1);
    stubs.MakeNative(2);
    uint8_t before[kSize];
    std::memcpy(before, first, kSize);
    RegisterStub(switched);

    SetBreakpoint();

    uint8_t after[kSize];
    std::memcpy(after, first, kSize);
    // Put the expected words of the switched stub into the snapshot; all else must be equal.
    const uint64_t managedWord = reinterpret_cast<uintptr_t>(&ManagedCode);
    const uint64_t nativeWord = reinterpret_cast<uintptr_t>(&NativeCode);
    std::memcpy(before + JumpStubs::kStubSize + 2, &managedWord, 8);
    std::memcpy(before + JumpStubs::kStubSize + 16, &nativeWord, 8);
    EXPECT_EQ(std::memcmp(before, after, kSize), 0);
    EXPECT_EQ(JumpStubs::Call(switched), Landing::Managed);
}

TEST_F(ExecutionSwitch, FinishSetupOnlyLogsItsLine) {
    void* stub = stubs.MakeNative(0);
    RegisterStub(stub);
    inspect.AddBreakpointKey(kEntry, &breakpoint);
    handling.MarkLog();

    object.QuarnFinishSetup();
    object.Callbacks()->finishSetup();  // the way the debugger side calls it

    EXPECT_EQ(handling.LinesSinceMark(),
              (std::vector<std::string>{"Finishing up callbacks", "Finishing up callbacks"}));
    EXPECT_EQ(JumpStubs::Call(stub), Landing::Native);
}

}  // namespace
}  // namespace testing_support
