#pragma once

#include <cstdint>
#include <vector>

// The x86-64 byte patterns the trampolines are made of, written out by hand from the encoding
// so that tests compare the emitter against an independent source.
namespace golden {

using Bytes = std::vector<uint8_t>;

// sub rsp, 8 — re-aligns rsp to 16 for the inner call and gives a 7th-argument stack cell
inline const Bytes kReserveStackCell = {0x48, 0x83, 0xEC, 0x08};
// add rsp, 8
inline const Bytes kReleaseStackCell = {0x48, 0x83, 0xC4, 0x08};
// movabs rdi, imm64 (the 8-byte cell address follows)
inline const Bytes kMovRdiImm64 = {0x48, 0xBF};
// mov rdi, [rdi]
inline const Bytes kLoadRdiFromRdi = {0x48, 0x8B, 0x3F};
// movabs rax, imm64 (the 8-byte wrapper address follows)
inline const Bytes kMovRaxImm64 = {0x48, 0xB8};
// call rax
inline const Bytes kCallRax = {0xFF, 0xD0};
// ret
inline const Bytes kReturn = {0xC3};

// Indexed by the source argument slot k: moves slot k into slot k + 1.
inline const Bytes kSlotMoves[] = {
    {0x48, 0x89, 0xFE},        // mov rsi, rdi
    {0x48, 0x89, 0xF2},        // mov rdx, rsi
    {0x48, 0x89, 0xD1},        // mov rcx, rdx
    {0x49, 0x89, 0xC8},        // mov r8, rcx
    {0x4D, 0x89, 0xC1},        // mov r9, r8
    {0x4C, 0x89, 0x0C, 0x24},  // mov [rsp], r9 — first stack argument of the inner call
};

// The 8 bytes of `word`, least significant first.
inline Bytes LittleEndian(uint64_t word) {
    Bytes bytes;
    for (int shift = 0; shift < 64; shift += 8) {
        bytes.push_back(static_cast<uint8_t>(word >> shift));
    }
    return bytes;
}

// The whole trampoline for `argumentCount` caller arguments, bound through `cell`, calling
// `wrapper`: reserve, moves from the highest slot down, load the object, call, release, return.
inline Bytes Trampoline(int argumentCount, uint64_t cell, uint64_t wrapper) {
    Bytes code = kReserveStackCell;
    const auto append = [&code](const Bytes& piece) {
        code.insert(code.end(), piece.begin(), piece.end());
    };
    for (int slot = argumentCount - 1; slot >= 0; --slot) {
        append(kSlotMoves[slot]);
    }
    append(kMovRdiImm64);
    append(LittleEndian(cell));
    append(kLoadRdiFromRdi);
    append(kMovRaxImm64);
    append(LittleEndian(wrapper));
    append(kCallRax);
    append(kReleaseStackCell);
    append(kReturn);
    return code;
}

}  // namespace golden
