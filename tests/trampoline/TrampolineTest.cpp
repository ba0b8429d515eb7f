// Emitted code against byte patterns written out by hand from the x86-64 encoding, each read back
// by an independent disassembler (objdump) as the instruction its annotation names.
#include "trampoline/Trampoline.h"

#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Command.h"
#include "support/Inspector.h"
#include "support/TempWorkingDirectory.h"

namespace {

using Bytes = std::basic_string<uint8_t>;
using Texts = std::vector<std::string>;
template <class Pointer>
uint64_t Address(Pointer pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}
Bytes Word(uint64_t word) {  // little-endian
    return Bytes(reinterpret_cast<const uint8_t*>(&word), 8);
}
std::string Hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

// An instruction's bytes and objdump's spelling of it (intel syntax, without blanks).
struct Pattern {
    Bytes bytes;
    std::string text;
};
const Pattern kReserve = {{0x48, 0x83, 0xEC, 0x08}, "subrsp,0x8"};
const Pattern kRelease = {{0x48, 0x83, 0xC4, 0x08}, "addrsp,0x8"};
const Pattern kLoadRdi = {{0x48, 0x8B, 0x3F}, "movrdi,QWORDPTR[rdi]"};
const Pattern kCallRax = {{0xFF, 0xD0}, "callrax"};
const Pattern kReturn = {{0xC3}, "ret"};
Pattern MovRdi(uint64_t value) {
    return {Bytes{0x48, 0xBF} + Word(value), "movabsrdi," + Hex(value)};
}
Pattern MovRax(uint64_t value) {
    return {Bytes{0x48, 0xB8} + Word(value), "movabsrax," + Hex(value)};
}
// Argument slot k moves to slot k + 1.
const Pattern kSlotMoves[] = {
    {{0x48, 0x89, 0xFE}, "movrsi,rdi"}, {{0x48, 0x89, 0xF2}, "movrdx,rsi"},
    {{0x48, 0x89, 0xD1}, "movrcx,rdx"}, {{0x49, 0x89, 0xC8}, "movr8,rcx"},
    {{0x4D, 0x89, 0xC1}, "movr9,r8"},   {{0x4C, 0x89, 0x0C, 0x24}, "movQWORDPTR[rsp],r9"},
};
std::vector<Pattern> Golden(size_t arguments, uint64_t cell, uint64_t wrapper) {
    std::vector<Pattern> code = {kReserve};
    for (size_t slot = arguments; slot-- > 0;) {
        code.push_back(kSlotMoves[slot]);
    }
    code.insert(code.end(), {MovRdi(cell), kLoadRdi, MovRax(wrapper), kCallRax, kRelease, kReturn});
    return code;
}
Bytes BytesOf(const std::vector<Pattern>& code) {
    Bytes bytes;
    for (const Pattern& pattern : code) {
        bytes += pattern.bytes;
    }
    return bytes;
}

// [begin, end) disassembled as raw x86-64 at the addresses the bytes have in memory.
Texts Disassembly(const uint8_t* begin, const uint8_t* end) {
    testing_support::TempWorkingDirectory directory;
    std::ofstream("code.bin", std::ios::binary)
        .write(reinterpret_cast<const char*>(begin), end - begin);
    std::istringstream listing(testing_support::CommandOutput(
        "objdump -D -b binary -mi386:x86-64 -M intel --no-show-raw-insn --adjust-vma=" +
        Hex(Address(begin)) + " code.bin"));
    Texts texts;
    for (std::string line; std::getline(listing, line);) {
        char* rest;  // instruction lines read "  <hex address>:\t<mnemonic> <operands>"
        std::strtoull(line.c_str(), &rest, 16);
        if (rest[0] == ':' && rest[1] == '\t') {
            texts.push_back(rest + 2);
            std::erase(texts.back(), ' ');
        }
    }
    return texts;
}

// The bound object is a plain number, which the wrapper returns.
std::vector<uint64_t> received;  // object, six argument registers, frame address modulo 16
__attribute__((noinline)) uint64_t Wrapper(uint64_t* object, uint64_t a, uint64_t b, uint64_t c,
                                           uint64_t d, uint64_t e, uint64_t f) {
    received = {Address(object), a, b, c, d, e, f, Address(__builtin_frame_address(0)) % 16};
    return *object;
}

TEST(Trampoline, PutsTheObjectFirstAndForwardsEveryArgumentCountAndTheResult) {
    using T = Trampoline<uint64_t>;
    void* (T::*const generate[])(void*) = {
        &T::GenerateTrampoline0Params, &T::GenerateTrampoline1Params, &T::GenerateTrampoline2Params,
        &T::GenerateTrampoline3Params, &T::GenerateTrampoline4Params, &T::GenerateTrampoline5Params,
        &T::GenerateTrampoline6Params};
    const bool objdump = std::system("command -v objdump >/dev/null 2>&1") == 0;
    // All 64 bits used, so a 32-bit move or a swapped register shows.
    const uint64_t s[] = {0x0123456789ABCDEF, 0xFEDCBA9876543210, 0x8000000000000001,
                          0x00000000FFFFFFFF, 0xDEADBEEFCAFEF00D, 0x7FFFFFFFFFFFFFFE};
    using Call = uint64_t (*)(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t);
    for (size_t n = 0; n <= 6; ++n) {
        SCOPED_TRACE(testing::Message() << n << " arguments");
        JITBuffer buffer(4096);
        uint64_t object = 0xA5A55A5A0F0FF0F0 + n;
        T trampoline(&buffer, &object);
        auto* entry =
            static_cast<uint8_t*>((trampoline.*generate[n])(reinterpret_cast<void*>(&Wrapper)));
        const auto golden = Golden(n, Address(buffer.Base()), Address(&Wrapper));
        EXPECT_EQ(Bytes(buffer.Base(), entry), Word(Address(&object)));
        EXPECT_EQ(Bytes(entry, buffer.Base() + buffer.Position()), BytesOf(golden));
        if (objdump) {
            Texts texts;
            std::ranges::transform(golden, std::back_inserter(texts), &Pattern::text);
            EXPECT_EQ(Disassembly(entry, buffer.Base() + buffer.Position()), texts);
        }
        EXPECT_EQ(reinterpret_cast<Call>(entry)(s[0], s[1], s[2], s[3], s[4], s[5]), object);
        EXPECT_EQ(received[0], Address(&object));
        EXPECT_EQ(std::vector(received.begin() + 1, received.begin() + 1 + n),
                  std::vector(s, s + n));
        EXPECT_EQ(received.back(), 0u);  // entered with the stack aligned as the ABI demands
    }
    if (!objdump) {
        GTEST_SKIP() << "objdump (binutils) is not installed: no disassembly cross-check";
    }
}

#define WRAP(name) Address(&MonoDebuggerHandling::name)
TEST(CallbackTrampolines, ThirteenArePackedInGenerationOrderInto580Bytes) {
    testing_support::ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling object("/p.dll");
    const JITBuffer* buffer = MonoDebuggerHandlingInspector(object).Buffer();
    const uint8_t* base = buffer->Base();
    EXPECT_EQ(Bytes(base, base + 8), Word(Address(&object)));
    // clang-format off
    struct { size_t recordOffset, codeOffset, arguments; uint64_t wrapper; } const slots[] = {
        {0, 8, 0, WRAP(CQuarnFinishSetup)},          {8, 42, 2, WRAP(CQuarnIsFileQuarned)},
        {32, 82, 5, WRAP(CQuarnFetchFiles)},         {24, 131, 6, WRAP(CQuarnFetchMethods)},
        {40, 184, 5, WRAP(CQuarnFetchDebugInfo)},    {48, 233, 5, WRAP(CQuarnFetchMethodInfo)},
        {56, 282, 5, WRAP(CQuarnFetchParamInfo)},    {64, 331, 5, WRAP(CQuarnFetchMethodName)},
        {16, 380, 4, WRAP(CQuarnBreakpointNotify)},  {128, 426, 2, WRAP(CTestFetchEntryPointHash)},
        {136, 466, 2, WRAP(CTestFetchMethodHash)},   {144, 506, 1, WRAP(CTestBreakpointSet)},
        {152, 543, 1, WRAP(CTestFetchEntryPointCountForHash)}};
    // clang-format on
    const auto* record = reinterpret_cast<const uint64_t*>(object.Callbacks());
    size_t end = 8;
    for (const auto& slot : slots) {
        SCOPED_TRACE(testing::Message() << "record byte " << slot.recordOffset);
        const Bytes expected = BytesOf(Golden(slot.arguments, Address(base), slot.wrapper));
        EXPECT_EQ(slot.codeOffset, end);
        EXPECT_EQ(record[slot.recordOffset / 8], Address(base) + slot.codeOffset);
        EXPECT_EQ(Bytes(base + end, base + end + expected.size()), expected);
        end += expected.size();
    }
    EXPECT_EQ(buffer->Position(), 580u);
    EXPECT_EQ(Bytes(base + 580, base + 4096), Bytes(4096 - 580, 0));
}

}  // namespace
