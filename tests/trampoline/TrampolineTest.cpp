// Emitted code against byte patterns written out by hand from the x86-64 encoding, each read back
// by an independent disassembler (objdump) as the instruction its annotation names.
#include "trampoline/Trampoline.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Command.h"
#include "support/Inspector.h"
#include "support/TempWorkingDirectory.h"

namespace {

using Bytes = std::basic_string<uint8_t>;
template <class Pointer>
uint64_t Address(Pointer pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}
Bytes Word(uint64_t word) {  // little-endian
    return Bytes(reinterpret_cast<const uint8_t*>(&word), 8);
}

// Machine code and objdump's spelling of it (intel syntax, one instruction a line, no blanks).
struct Code {
    Bytes bytes;
    std::string listing;
};
Code operator+(const Code& code, const Code& next) {
    return {code.bytes + next.bytes, code.listing + next.listing};
}
const Code kReserve = {{0x48, 0x83, 0xEC, 0x08}, "subrsp,0x8\n"};
const Code kRelease = {{0x48, 0x83, 0xC4, 0x08}, "addrsp,0x8\n"};
const Code kLoadRdi = {{0x48, 0x8B, 0x3F}, "movrdi,QWORDPTR[rdi]\n"};
const Code kCallRax = {{0xFF, 0xD0}, "callrax\n"};
const Code kReturn = {{0xC3}, "ret\n"};
// movabs <register>, value: REX.W, then B8 plus the register's number.
Code MovAbs(uint8_t opcode, const char* name, uint64_t value) {
    std::ostringstream text;
    text << "movabs" << name << ",0x" << std::hex << value << '\n';
    return {Bytes{0x48, opcode} + Word(value), text.str()};
}
// Argument slot k moves to slot k + 1.
const Code kSlotMoves[] = {
    {{0x48, 0x89, 0xFE}, "movrsi,rdi\n"}, {{0x48, 0x89, 0xF2}, "movrdx,rsi\n"},
    {{0x48, 0x89, 0xD1}, "movrcx,rdx\n"}, {{0x49, 0x89, 0xC8}, "movr8,rcx\n"},
    {{0x4D, 0x89, 0xC1}, "movr9,r8\n"},   {{0x4C, 0x89, 0x0C, 0x24}, "movQWORDPTR[rsp],r9\n"},
};
Code Golden(size_t arguments, uint64_t cell, uint64_t wrapper) {
    Code code = kReserve;
    for (size_t slot = arguments; slot-- > 0;) {
        code = code + kSlotMoves[slot];
    }
    return code + MovAbs(0xBF, "rdi", cell) + kLoadRdi + MovAbs(0xB8, "rax", wrapper) + kCallRax +
           kRelease + kReturn;
}

std::string Disassembly(const Bytes& code) {
    testing_support::TempWorkingDirectory directory;
    std::ofstream("code.bin", std::ios::binary)
        .write(reinterpret_cast<const char*>(code.data()), code.size());
    return testing_support::CommandOutput(
        "objdump -D -b binary -mi386:x86-64 -M intel --no-show-raw-insn --no-addresses code.bin"
        " | grep -P '^\\t' | tr -d ' \\t'");
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
        EXPECT_EQ(
            Bytes(buffer.Base(), buffer.Base() + buffer.Position()),
            Word(Address(&object)) + Golden(n, Address(buffer.Base()), Address(&Wrapper)).bytes);
        EXPECT_EQ(reinterpret_cast<Call>(entry)(s[0], s[1], s[2], s[3], s[4], s[5]), object);
        EXPECT_EQ(received[0], Address(&object));
        EXPECT_EQ(std::vector(received.begin() + 1, received.begin() + 1 + n),
                  std::vector(s, s + n));
        EXPECT_EQ(received.back(), 0u);  // entered with the stack aligned as the ABI demands
    }
}

#define WRAP(name) Address(&MonoDebuggerHandling::name)
TEST(CallbackTrampolines, ThirteenArePackedInGenerationOrderInto580Bytes) {
    testing_support::ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling object("/p.dll");
    const JITBuffer* buffer = MonoDebuggerHandlingInspector(object).Buffer();
    const uint8_t* base = buffer->Base();
    // clang-format off
    struct { size_t recordOffset, arguments; uint64_t wrapper; } const slots[] = {
        {0, 0, WRAP(CQuarnFinishSetup)},         {8, 2, WRAP(CQuarnIsFileQuarned)},
        {32, 5, WRAP(CQuarnFetchFiles)},         {24, 6, WRAP(CQuarnFetchMethods)},
        {40, 5, WRAP(CQuarnFetchDebugInfo)},     {48, 5, WRAP(CQuarnFetchMethodInfo)},
        {56, 5, WRAP(CQuarnFetchParamInfo)},     {64, 5, WRAP(CQuarnFetchMethodName)},
        {16, 4, WRAP(CQuarnBreakpointNotify)},   {128, 2, WRAP(CTestFetchEntryPointHash)},
        {136, 2, WRAP(CTestFetchMethodHash)},    {144, 1, WRAP(CTestBreakpointSet)},
        {152, 1, WRAP(CTestFetchEntryPointCountForHash)}};
    // clang-format on
    const auto* record = reinterpret_cast<const uint64_t*>(object.Callbacks());
    Code expected = {Word(Address(&object)), ""};
    for (const auto& slot : slots) {
        SCOPED_TRACE(testing::Message() << "record byte " << slot.recordOffset);
        EXPECT_EQ(record[slot.recordOffset / 8], Address(base) + expected.bytes.size());
        expected = expected + Golden(slot.arguments, Address(base), slot.wrapper);
    }
    EXPECT_EQ(buffer->Position(), 580u);
    EXPECT_EQ(Bytes(base, base + 4096), expected.bytes + Bytes(4096 - 580, 0));
    EXPECT_EQ(Disassembly(Bytes(base + 8, base + 580)), expected.listing);
}

}  // namespace
