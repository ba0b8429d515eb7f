// Switching an entry point between quarned and managed code: the stub word swap and the host
// callback, both driven by whether a breakpoint holds the entry point's hash.
#include "plugin/MonoDebuggerHandling.h"

using logfmt::Int;
using logfmt::Ptr;

namespace {

// The stub words are plain, unaligned 8-byte values. A volatile access through a packed
// (byte-aligned) record keeps each read and each store a single 8-byte move at every
// optimisation level, and tells the compiler the address need not be 8-byte aligned.
struct __attribute__((packed, may_alias)) UnalignedWord {
    uint64_t value;
};

void* ReadStubWord(void* stub, size_t offset) {
    auto* word = reinterpret_cast<volatile UnalignedWord*>(static_cast<uint8_t*>(stub) + offset);
    return reinterpret_cast<void*>(static_cast<uintptr_t>(word->value));
}

void WriteStubWord(void* stub, size_t offset, void* value) {
    auto* word = reinterpret_cast<volatile UnalignedWord*>(static_cast<uint8_t*>(stub) + offset);
    word->value = reinterpret_cast<uintptr_t>(value);
}

}  // namespace

void MonoDebuggerHandling::QuarnFinishSetup() {
    Log(1, "Finishing up callbacks");
}

// Managed exactly while `breakpointMap` holds the hash; reconciles every record of the hash.
// Safe to repeat: stubs already right are left alone, callbacks are told again.
void MonoDebuggerHandling::EnableDisableQuarnJobFunctionPointer(Hash128 entryHash) {
    const bool managed = breakpointMap.contains(entryHash);
    // The number is the quarned state: 1 means native code will run.
    Log(1, "Potentially changing Quarn execution state to ", Int{managed ? 0 : 1}, " for ",
        entryHash);
    const auto found = entryPoints.find(entryHash);
    if (found == entryPoints.end()) {
        return;
    }
    for (const EntryPoint& entry : found->second) {
        Log(1, "  Native ", Ptr(entry.native));
        if (entry.stub != nullptr) {
            SwitchStub(entry, managed);
        } else if (managed) {
            Log(1, "  Disabling Job - Run Managed");
            entry.callback(entry.callbackContext, kEntryPointCallbackKind, nullptr);
        } else {
            Log(1, "  Enabling Job - Run Quarned");
            entry.callback(entry.callbackContext, kEntryPointCallbackKind, entry.native);
        }
    }
}

// Disabling tests only the target word; enabling tests both, so a stub whose words both differ
// from `native` is never touched when enabling. The swap is two plain 8-byte stores, alternate
// into the target word first; the host places stubs so the target store is not torn.
void MonoDebuggerHandling::SwitchStub(const EntryPoint& entry, bool managed) {
    void* target = ReadStubWord(entry.stub, kStubTargetOffset);
    void* alternate = ReadStubWord(entry.stub, kStubAlternateOffset);
    Log(1, "  FunctionPtr State : Target ", Ptr(target), " - Alternate ", Ptr(alternate));
    if (managed) {
        if (target != entry.native) {
            return;
        }
        Log(1, "    Swapping Targets - disabling quarned method");
    } else {
        if (target == entry.native || alternate != entry.native) {
            return;
        }
        Log(1, "    Swapping Targets - enabling quarned method");
    }
    WriteStubWord(entry.stub, kStubTargetOffset, alternate);
    WriteStubWord(entry.stub, kStubAlternateOffset, target);
}
