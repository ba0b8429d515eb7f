// What the library keeps of one registered entry point, and the stub and callback conventions it
// shares with the host.

#pragma once

#include <cstddef>
#include <cstdint>

// Host callback of an entry point without a stub: callback(context, 32, target), where target
// is the native code to run quarned, or null to run managed.
using EntryPointCallback = void (*)(void* context, int32_t kind, void* target);

// The value passed as the second callback argument, in both directions.
inline constexpr int32_t kEntryPointCallbackKind = 32;

// One registration of a compiled entry point (copied by value; nothing it points to is owned).
// The field order differs from register_entry's argument order on purpose: `native` is the
// fourth field but the fourth argument.
struct EntryPoint {
    void* library;
    void* stub;  // host jump stub, or null to use `callback`
    EntryPointCallback callback;
    void* native;  // the quarned code
    void* callbackContext;
};

// Host jump stub layout: `movabs rax, target ; jmp rax` puts the target word at byte 2
// (unaligned); the alternate target word sits at byte 16. Shared with the host.
inline constexpr size_t kStubTargetOffset = 2;
inline constexpr size_t kStubAlternateOffset = 16;
