#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include <gtest/gtest.h>

#include "../metadata/LoggedHandling.h"
#include "support/JumpStubs.h"

namespace testing_support {

// One call of a host entry point callback as the host received it.
struct CallbackCall {
    void* context;
    int32_t kind;
    void* target;

    bool operator==(const CallbackCall&) const = default;
};

inline void PrintTo(const CallbackCall& call, std::ostream* out) {
    *out << "(" << call.context << ", " << call.kind << ", " << call.target << ")";
}

// Every call of RecordTarget in this process, in call order (each test runs in its own
// process; tests clear it before use).
inline std::vector<CallbackCall>& RecordedCalls() {
    static std::vector<CallbackCall> calls;
    return calls;
}

// A host callback that records its arguments.
inline void RecordTarget(void* context, int32_t kind, void* target) {
    RecordedCalls().push_back({context, kind, target});
}

inline void* RecordTargetAddress() {
    return reinterpret_cast<void*>(&RecordTarget);
}

// Addresses as a host hands them over.
inline void* Address(uintptr_t value) {
    return reinterpret_cast<void*>(value);
}
inline void* NativeAddress() {
    return reinterpret_cast<void*>(&NativeCode);
}
inline void* ManagedAddress() {
    return reinterpret_cast<void*>(&ManagedCode);
}

// The entry point hash the tests register under.
inline const Hash128 kEntry{0x0123456789ABCDEFull, 0x00000000000000E2ull};

// A logging handling object, jump stubs, and records registered for kEntry; breakpoints are
// keys put into the breakpoint map directly, followed by a reconciliation under the lock, as a
// breakpoint notification does.
class EntryPointTest : public testing::Test {
  protected:
    void SetUp() override { RecordedCalls().clear(); }

    void RegisterStub(void* stub, void* native = NativeAddress()) {
        object.RegisterEntryPoint(library, kEntry, native, stub, nullptr, nullptr);
    }
    void RegisterCallback(void* context, void* native = NativeAddress()) {
        object.RegisterEntryPoint(library, kEntry, native, nullptr, RecordTargetAddress(), context);
    }
    void SetBreakpoint() {
        inspect.AddBreakpointKey(kEntry, &breakpoint);
        inspect.Reconcile(kEntry);
    }
    void RemoveBreakpoint() {
        inspect.EraseBreakpointKey(kEntry);
        inspect.Reconcile(kEntry);
    }
    uint32_t RecordCount() {
        Hash128 entryHash = kEntry;
        return object.TestFetchEntryPointCountForHash(&entryHash);
    }

    LoggedHandling handling;
    MonoDebuggerHandling& object = handling.Object();
    MonoDebuggerHandlingInspector& inspect = handling.Inspect();
    JumpStubs stubs;
    void* library = Address(0x4000);
    int breakpoint = 0;
};

}  // namespace testing_support
