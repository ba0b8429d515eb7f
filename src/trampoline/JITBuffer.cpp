// The trampolines' x86-64 byte patterns, each beside the instruction it encodes, and the buffer
// that appends them.
#include "trampoline/JITBuffer.h"

#include <cstring>
#include <iterator>

#include "trampoline/ExecutableMemory.h"

namespace {

// sub rsp, 8
constexpr uint8_t kSubRsp8[] = {0x48, 0x83, 0xEC, 0x08};
// add rsp, 8
constexpr uint8_t kAddRsp8[] = {0x48, 0x83, 0xC4, 0x08};
// mov rsi, rdi
constexpr uint8_t kMovRsiRdi[] = {0x48, 0x89, 0xFE};
// mov rdx, rsi
constexpr uint8_t kMovRdxRsi[] = {0x48, 0x89, 0xF2};
// mov rcx, rdx
constexpr uint8_t kMovRcxRdx[] = {0x48, 0x89, 0xD1};
// mov r8, rcx
constexpr uint8_t kMovR8Rcx[] = {0x49, 0x89, 0xC8};
// mov r9, r8
constexpr uint8_t kMovR9R8[] = {0x4D, 0x89, 0xC1};
// mov [rsp], r9 — the first stack argument of the coming call
constexpr uint8_t kStoreR9AtRsp[] = {0x4C, 0x89, 0x0C, 0x24};
// movabs rdi, imm64 (the immediate follows)
constexpr uint8_t kMovRdiImm64[] = {0x48, 0xBF};
// mov rdi, [rdi]
constexpr uint8_t kLoadRdiFromRdi[] = {0x48, 0x8B, 0x3F};
// movabs rax, imm64 (the immediate follows)
constexpr uint8_t kMovRaxImm64[] = {0x48, 0xB8};
// call rax
constexpr uint8_t kCallRax[] = {0xFF, 0xD0};
// ret
constexpr uint8_t kRet[] = {0xC3};

struct SlotMove {
    const uint8_t* bytes;
    size_t size;
};

// Indexed by the source slot: slot k moves into slot k + 1.
constexpr SlotMove kSlotMoves[] = {
    {kMovRsiRdi, sizeof kMovRsiRdi}, {kMovRdxRsi, sizeof kMovRdxRsi},
    {kMovRcxRdx, sizeof kMovRcxRdx}, {kMovR8Rcx, sizeof kMovR8Rcx},
    {kMovR9R8, sizeof kMovR9R8},     {kStoreR9AtRsp, sizeof kStoreR9AtRsp},
};

}  // namespace

JITBuffer::JITBuffer(size_t size)
    : base(static_cast<uint8_t*>(JitAllocateMemory(size))), position(0), capacity(size) {}

JITBuffer::~JITBuffer() {
    JitFreeMemory(base, capacity);
}

void JITBuffer::Emit(const void* bytes, size_t size) {
    std::memcpy(base + position, bytes, size);
    position += size;
}

void JITBuffer::EmitWord(uint64_t word) {
    Emit(&word, sizeof word);
}

void* JITBuffer::AllocatePointer(const void* value) {
    blockStart = position;
    EmitWord(reinterpret_cast<uintptr_t>(value));
    return base + blockStart;
}

void JITBuffer::StartBlock() {
    blockStart = position;
}

void JITBuffer::CopyBlock(const void* source, size_t size) {
    Emit(source, size);
}

void* JITBuffer::EndBlock() {
    return base + blockStart;
}

void JITBuffer::AllocateStackSpace(int8_t /*slots*/) {
    Emit(kSubRsp8, sizeof kSubRsp8);
}

void JITBuffer::FreeStackSpace(int8_t /*slots*/) {
    Emit(kAddRsp8, sizeof kAddRsp8);
}

void JITBuffer::CopySlotToNextSlot(int slot, int /*total*/) {
    if (slot < 0 || slot >= static_cast<int>(std::size(kSlotMoves))) {
        return;
    }
    Emit(kSlotMoves[slot].bytes, kSlotMoves[slot].size);
}

void JITBuffer::SetThis(void* cell) {
    Emit(kMovRdiImm64, sizeof kMovRdiImm64);
    EmitWord(reinterpret_cast<uintptr_t>(cell));
    Emit(kLoadRdiFromRdi, sizeof kLoadRdiFromRdi);
}

void JITBuffer::CallMemberFunc(void* function) {
    Emit(kMovRaxImm64, sizeof kMovRaxImm64);
    EmitWord(reinterpret_cast<uintptr_t>(function));
    Emit(kCallRax, sizeof kCallRax);
}

void JITBuffer::Return() {
    Emit(kRet, sizeof kRet);
}
