#pragma once

// Fixture libraries A and B loaded, their entry points registered with real jump stubs (and
// one host callback), and a method list fetched: the set-up of a debugger that is about to set
// breakpoints. Items A1 and B1 both hold the shared method.

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "queries/DebuggerSession.h"
#include "support/JumpStubs.h"

namespace testing_support {

// The context the bench registers its host callback with.
inline void* const kCallbackContext = reinterpret_cast<void*>(0xC0);

// The targets the host callback was told, in call order (null: run managed).
inline std::vector<void*>& CallbackTargets() {
    static std::vector<void*> targets;
    return targets;
}

inline void RecordCallback(void* context, int32_t kind, void* target) {
    EXPECT_EQ(context, kCallbackContext);
    EXPECT_EQ(kind, 32);
    CallbackTargets().push_back(target);
}

inline void* NativeAddress() {
    return reinterpret_cast<void*>(&NativeCode);
}

class EntryPointBench : public ::testing::Test {
  protected:
    // Runs the set-up with ORVEL_QUARN_DEBUG at `logLevel` (null: logging off).
    void Start(const char* logLevel = nullptr) {
        CallbackTargets().clear();
        session = std::make_unique<DebuggerSession>(logLevel);
        libraryA = session->Load("fixture_a");
        libraryB = session->Load("fixture_b");
        stubA1 = stubs.MakeNative(0);
        stubA2 = stubs.MakeNative(1);
        stubB1 = stubs.MakeNative(2);
        Register(libraryA, kItemA1, stubA1);
        Register(libraryA, kItemA2, stubA2);
        Register(libraryB, kItemB1, stubB1);
        RegisterCallback(libraryB, kItemB1);
        handles = session->FetchMethods();
    }

    void Register(void* library, const Hash128& entryHash, void* stub) {
        session->Object().RegisterEntryPoint(library, entryHash, NativeAddress(), stub, nullptr,
                                             nullptr);
    }
    void RegisterCallback(void* library, const Hash128& entryHash) {
        session->Object().RegisterEntryPoint(library, entryHash, NativeAddress(), nullptr,
                                             reinterpret_cast<void*>(&RecordCallback),
                                             kCallbackContext);
    }

    void* Handle(const Hash128& method) const { return DebuggerSession::HandleOf(handles, method); }

    // Where a call through each of the A1, A2 and B1 stubs lands.
    std::vector<Landing> StubLandings() const {
        return {JumpStubs::Call(stubA1), JumpStubs::Call(stubA2), JumpStubs::Call(stubB1)};
    }

    // The last target the B1 callback was told (native code, or null for managed); it is told
    // one at its registration already.
    static void* LastCallbackTarget() {
        EXPECT_FALSE(CallbackTargets().empty());
        return CallbackTargets().empty() ? nullptr : CallbackTargets().back();
    }

    // The breakpoint map as the test hook reports it, for A1, A2 and B1.
    std::vector<bool> BreakpointKeys() {
        return {session->BreakpointSet(kItemA1), session->BreakpointSet(kItemA2),
                session->BreakpointSet(kItemB1)};
    }

    JumpStubs stubs;
    std::unique_ptr<DebuggerSession> session;
    void* libraryA = nullptr;
    void* libraryB = nullptr;
    void* stubA1 = nullptr;
    void* stubA2 = nullptr;
    void* stubB1 = nullptr;
    std::vector<void*> handles;
};

inline constexpr Landing kNative = Landing::Native;
inline constexpr Landing kManaged = Landing::Managed;

}  // namespace testing_support
