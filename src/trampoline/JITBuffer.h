// The trampolines' code buffer: the only place where the library itself writes machine code.

#pragma once

#include <cstddef>
#include <cstdint>

// Fixed-size, append-only buffer of x86-64 code in read-write-execute memory. Every emit appends
// a fixed byte pattern at `position`; nothing is aligned, padded or bounds-checked (the
// trampolines use 580 of the 4096 bytes).
class JITBuffer {
  public:
    explicit JITBuffer(size_t size);
    ~JITBuffer();
    JITBuffer(const JITBuffer&) = delete;
    JITBuffer& operator=(const JITBuffer&) = delete;

    // Appends an 8-byte cell holding `value` and returns its address (unaligned in general).
    void* AllocatePointer(const void* value);
    void StartBlock();
    void CopyBlock(const void* source, size_t size);
    // Address of the first byte emitted since the last StartBlock or AllocatePointer.
    void* EndBlock();

    // Both move rsp by exactly 8 whatever `slots` says: that restores 16-byte alignment for the
    // call inside a trampoline and gives the one stack cell a seventh argument needs.
    void AllocateStackSpace(int8_t slots);
    void FreeStackSpace(int8_t slots);
    // Copies argument slot `slot` into slot `slot + 1`; slots outside 0..5 emit nothing.
    void CopySlotToNextSlot(int slot, int total);
    // rdi = *cell: the bound object is read at run time from the cell.
    void SetThis(void* cell);
    // call through rax; the callee's result stays in rax.
    void CallMemberFunc(void* function);
    void Return();

    uint8_t* Base() const { return base; }
    size_t Position() const { return position; }
    size_t Capacity() const { return capacity; }

  private:
    void Emit(const void* bytes, size_t size);
    void EmitWord(uint64_t word);

    uint8_t* base;
    size_t position;
    size_t capacity;
    size_t blockStart;  // not set by the constructor
};
