// Trampoline generation, header-only because it is a template over the bound type (the handling
// object in the library, plain numbers in the tests).

#pragma once

#include "trampoline/JITBuffer.h"

// Generates context-binding trampolines for callers that pass plain function pointers: a call
// f(a1..aN) becomes wrapper(object, a1..aN), the object being read from a cell in the buffer.
// Emitted code per trampoline (N arguments, 34 bytes + 3 per moved register, 4 for the sixth):
//   sub rsp, 8 ; moves aN..a1 one slot up ; movabs rdi, cell ; mov rdi, [rdi] ;
//   movabs rax, wrapper ; call rax ; add rsp, 8 ; ret
// No endbr64 is emitted, so the entries are not valid indirect-branch targets under user-space
// IBT. Stack arguments of the caller (a seventh and beyond) are not forwarded: N is at most 6.
template <class Bound>
class Trampoline {
  public:
    Trampoline(JITBuffer* buffer, Bound* object)
        : codeBuffer(buffer), thisCell(buffer->AllocatePointer(object)) {}

    void* GenerateTrampoline0Params(void* function) { return Generate(0, function); }
    void* GenerateTrampoline1Params(void* function) { return Generate(1, function); }
    void* GenerateTrampoline2Params(void* function) { return Generate(2, function); }
    void* GenerateTrampoline3Params(void* function) { return Generate(3, function); }
    void* GenerateTrampoline4Params(void* function) { return Generate(4, function); }
    void* GenerateTrampoline5Params(void* function) { return Generate(5, function); }
    void* GenerateTrampoline6Params(void* function) { return Generate(6, function); }

    void* ThisCell() const { return thisCell; }

  private:
    void* Generate(int argumentCount, void* function) {
        const auto slots = static_cast<int8_t>(argumentCount + 1);
        codeBuffer->StartBlock();
        codeBuffer->AllocateStackSpace(slots);
        // Highest argument first, so no register is overwritten before it is copied.
        for (int slot = argumentCount - 1; slot >= 0; --slot) {
            codeBuffer->CopySlotToNextSlot(slot, slots);
        }
        codeBuffer->SetThis(thisCell);
        codeBuffer->CallMemberFunc(function);
        codeBuffer->FreeStackSpace(slots);
        codeBuffer->Return();
        return codeBuffer->EndBlock();
    }

    JITBuffer* codeBuffer;  // not owned
    void* thisCell;         // first 8 bytes of the buffer: the bound object's address
};
