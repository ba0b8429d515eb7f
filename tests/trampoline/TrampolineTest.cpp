// Emitted code against byte patterns written out by hand from the x86-64 encoding.
#include "trampoline/Trampoline.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Inspector.h"
#include "support/TempWorkingDirectory.h"

namespace {

using Bytes = std::basic_string<uint8_t>;
Bytes Word(uint64_t word) {  // little-endian
    return Bytes(reinterpret_cast<const uint8_t*>(&word), 8);
}
template <class Pointer>
uint64_t Address(Pointer pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

const Bytes kReserve = {0x48, 0x83, 0xEC, 0x08};  // sub rsp, 8
const Bytes kRelease = {0x48, 0x83, 0xC4, 0x08};  // add rsp, 8
const Bytes kMovRdi = {0x48, 0xBF};               // movabs rdi, imm64
const Bytes kLoadRdi = {0x48, 0x8B, 0x3F};        // mov rdi, [rdi]
const Bytes kMovRax = {0x48, 0xB8};               // movabs rax, imm64
const Bytes kCallRax = {0xFF, 0xD0};              // call rax
const Bytes kReturn = {0xC3};                     // ret
const Bytes kSlotMoves[] = {
    {0x48, 0x89, 0xFE},        // mov rsi, rdi
    {0x48, 0x89, 0xF2},        // mov rdx, rsi
    {0x48, 0x89, 0xD1},        // mov rcx, rdx
    {0x49, 0x89, 0xC8},        // mov r8, rcx
    {0x4D, 0x89, 0xC1},        // mov r9, r8
    {0x4C, 0x89, 0x0C, 0x24},  // mov [rsp], r9
};
Bytes Golden(size_t arguments, uint64_t cell, uint64_t wrapper) {
    Bytes code = kReserve;
    for (size_t slot = arguments; slot-- > 0;) {
        code = code + kSlotMoves[slot];
    }
    return code + kMovRdi + Word(cell) + kLoadRdi + kMovRax + Word(wrapper) + kCallRax + kRelease +
           kReturn;
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
        EXPECT_EQ(Bytes(buffer.Base(), entry), Word(Address(&object)));
        EXPECT_EQ(Bytes(entry, buffer.Base() + buffer.Position()),
                  Golden(n, Address(buffer.Base()), Address(&Wrapper)));
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
    const Bytes fetchFiles = Bytes{0x48, 0x83, 0xEC, 0x08,  // sub rsp, 8
        0x4D, 0x89, 0xC1, 0x49, 0x89, 0xC8, 0x48, 0x89, 0xD1,  // mov r9,r8; mov r8,rcx; mov rcx,rdx
        0x48, 0x89, 0xF2, 0x48, 0x89, 0xFE, 0x48, 0xBF}  // mov rdx,rsi; mov rsi,rdi; movabs rdi,
        + Word(Address(base)) + Bytes{0x48, 0x8B, 0x3F, 0x48, 0xB8}  // mov rdi,[rdi]; movabs rax,
        + Word(WRAP(CQuarnFetchFiles)) + Bytes{0xFF, 0xD0, 0x48, 0x83, 0xC4, 0x08, 0xC3};
    // clang-format on
    const auto* record = reinterpret_cast<const uint64_t*>(object.Callbacks());
    size_t end = 8;
    for (const auto& slot : slots) {
        SCOPED_TRACE(testing::Message() << "record byte " << slot.recordOffset);
        const Bytes expected = Golden(slot.arguments, Address(base), slot.wrapper);
        EXPECT_EQ(slot.codeOffset, end);
        EXPECT_EQ(record[slot.recordOffset / 8], Address(base) + slot.codeOffset);
        EXPECT_EQ(Bytes(base + end, base + end + expected.size()), expected);
        end += expected.size();
    }
    EXPECT_EQ(end, 580u);
    EXPECT_EQ(buffer->Position(), 580u);
    EXPECT_EQ(Bytes(base + 580, base + 4096), Bytes(4096 - 580, 0));
    EXPECT_EQ(Bytes(base + 82, base + 131), fetchFiles);  // call rax; add rsp, 8; ret at the end
}

}  // namespace
