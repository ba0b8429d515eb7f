#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Inspector.h"
#include "support/JumpStubs.h"
#include "support/TempWorkingDirectory.h"
#include "trampoline/GoldenCode.h"

namespace {

using golden::Bytes;
using testing_support::ScopedEnvironment;

constexpr size_t kBufferCapacity = 4096;
constexpr size_t kBytesUsed = 580;

template <class Function>
uint64_t AddressOf(Function function) {
    return reinterpret_cast<uintptr_t>(function);
}

// One library-filled slot of the callbacks record and the trampoline behind it.
struct LibrarySlot {
    size_t recordOffset;  // byte offset in the 160-byte record
    size_t codeOffset;    // where its trampoline starts in the code buffer
    int argumentCount;
    uint64_t wrapper;
};

// In generation order, so the code offsets ascend.
const LibrarySlot kLibrarySlots[] = {
    {0, 8, 0, AddressOf(&MonoDebuggerHandling::CQuarnFinishSetup)},
    {8, 42, 2, AddressOf(&MonoDebuggerHandling::CQuarnIsFileQuarned)},
    {32, 82, 5, AddressOf(&MonoDebuggerHandling::CQuarnFetchFiles)},
    {24, 131, 6, AddressOf(&MonoDebuggerHandling::CQuarnFetchMethods)},
    {40, 184, 5, AddressOf(&MonoDebuggerHandling::CQuarnFetchDebugInfo)},
    {48, 233, 5, AddressOf(&MonoDebuggerHandling::CQuarnFetchMethodInfo)},
    {56, 282, 5, AddressOf(&MonoDebuggerHandling::CQuarnFetchParamInfo)},
    {64, 331, 5, AddressOf(&MonoDebuggerHandling::CQuarnFetchMethodName)},
    {16, 380, 4, AddressOf(&MonoDebuggerHandling::CQuarnBreakpointNotify)},
    {128, 426, 2, AddressOf(&MonoDebuggerHandling::CTestFetchEntryPointHash)},
    {136, 466, 2, AddressOf(&MonoDebuggerHandling::CTestFetchMethodHash)},
    {144, 506, 1, AddressOf(&MonoDebuggerHandling::CTestBreakpointSet)},
    {152, 543, 1, AddressOf(&MonoDebuggerHandling::CTestFetchEntryPointCountForHash)},
};

// The word stored at `byteOffset` of a callbacks record, read without the C struct.
uint64_t SlotWord(const mdh_callbacks* record, size_t byteOffset) {
    uint64_t word;
    std::memcpy(&word, reinterpret_cast<const uint8_t*>(record) + byteOffset, sizeof word);
    return word;
}

// A handling object built without a log.
class CallbackTrampolineLayout : public ::testing::Test {
  protected:
    uint8_t* Base() const { return inspector.Buffer()->Base(); }
    uint64_t BaseAddress() const { return reinterpret_cast<uintptr_t>(Base()); }
    Bytes CodeAt(size_t offset, size_t length) const {
        return Bytes(Base() + offset, Base() + offset + length);
    }

    ScopedEnvironment noLog{"ORVEL_QUARN_DEBUG", nullptr};
    MonoDebuggerHandling object{"/placeholder/Orvel.Quarn.Placeholder.dll"};
    MonoDebuggerHandlingInspector inspector{object};
};

TEST_F(CallbackTrampolineLayout, CellAtOffsetZeroHoldsTheObjectsAddress) {
    EXPECT_EQ(inspector.TrampolineGenerator()->ThisCell(), Base());
    EXPECT_EQ(CodeAt(0, 8), golden::LittleEndian(reinterpret_cast<uintptr_t>(&object)));
    EXPECT_EQ(inspector.Buffer()->Capacity(), kBufferCapacity);
}

TEST_F(CallbackTrampolineLayout, ThirteenTrampolinesArePackedAtTheirOffsets) {
    size_t end = 8;
    for (const LibrarySlot& slot : kLibrarySlots) {
        SCOPED_TRACE(testing::Message() << "record byte " << slot.recordOffset);
        const Bytes expected = golden::Trampoline(slot.argumentCount, BaseAddress(), slot.wrapper);
        EXPECT_EQ(slot.codeOffset, end);
        EXPECT_EQ(SlotWord(object.Callbacks(), slot.recordOffset), BaseAddress() + slot.codeOffset);
        EXPECT_EQ(CodeAt(slot.codeOffset, expected.size()), expected);
        end = slot.codeOffset + expected.size();
    }
    EXPECT_EQ(end, kBytesUsed);
    EXPECT_EQ(inspector.Buffer()->Position(), kBytesUsed);
    EXPECT_EQ(CodeAt(kBytesUsed, kBufferCapacity - kBytesUsed),
              Bytes(kBufferCapacity - kBytesUsed, 0));
}

TEST_F(CallbackTrampolineLayout, FiveArgumentTrampolineIsByteExact) {
    Bytes expected = {
        0x48, 0x83, 0xEC, 0x08,  // sub rsp, 8
        0x4D, 0x89, 0xC1,        // mov r9, r8
        0x49, 0x89, 0xC8,        // mov r8, rcx
        0x48, 0x89, 0xD1,        // mov rcx, rdx
        0x48, 0x89, 0xF2,        // mov rdx, rsi
        0x48, 0x89, 0xFE,        // mov rsi, rdi
        0x48, 0xBF,              // movabs rdi, <cell>
    };
    const Bytes cell = golden::LittleEndian(BaseAddress());
    const Bytes wrapper = golden::LittleEndian(AddressOf(&MonoDebuggerHandling::CQuarnFetchFiles));
    expected.insert(expected.end(), cell.begin(), cell.end());
    // mov rdi, [rdi] ; movabs rax, <wrapper>
    expected.insert(expected.end(), {0x48, 0x8B, 0x3F, 0x48, 0xB8});
    expected.insert(expected.end(), wrapper.begin(), wrapper.end());
    // call rax ; add rsp, 8 ; ret
    expected.insert(expected.end(), {0xFF, 0xD0, 0x48, 0x83, 0xC4, 0x08, 0xC3});

    ASSERT_EQ(expected.size(), 49u);
    EXPECT_EQ(CodeAt(82, expected.size()), expected);
}

TEST_F(CallbackTrampolineLayout, DebuggerSideSlotsStartZero) {
    for (size_t slot = 9; slot <= 15; ++slot) {
        SCOPED_TRACE(slot);
        EXPECT_EQ(SlotWord(object.Callbacks(), slot * 8), 0u);
    }
}

TEST(CallbackTrampolineBinding, TwoHandlingObjectsEachReachTheirOwnObject) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    MonoDebuggerHandling first("/first.dll");
    MonoDebuggerHandling second("/second.dll");
    testing_support::JumpStubs stubs(3);
    mdh_hash128 entry{0x1111, 0x2222};
    const Hash128 entryHash{entry.word0, entry.word1};
    void* native = reinterpret_cast<void*>(&testing_support::NativeCode);
    first.RegisterEntryPoint(nullptr, entryHash, native, stubs.MakeNative(0), nullptr, nullptr);
    for (size_t stub = 1; stub <= 2; ++stub) {
        second.RegisterEntryPoint(nullptr, entryHash, native, stubs.MakeNative(stub), nullptr,
                                  nullptr);
    }
    MonoDebuggerHandlingInspector(second).AddBreakpointKey(entryHash, &entry);

    mdh_callbacks* firstRecord = first.Callbacks();
    mdh_callbacks* secondRecord = second.Callbacks();
    EXPECT_NE(firstRecord, secondRecord);
    EXPECT_NE(MonoDebuggerHandlingInspector(first).Buffer()->Base(),
              MonoDebuggerHandlingInspector(second).Buffer()->Base());
    EXPECT_EQ(firstRecord->testFetchEntryPointCountForHash(&entry), 1u);
    EXPECT_EQ(secondRecord->testFetchEntryPointCountForHash(&entry), 2u);
    EXPECT_EQ(firstRecord->testBreakpointSet(&entry), 0);
    EXPECT_EQ(secondRecord->testBreakpointSet(&entry), 1);
}

// ---- Cross-check with an independent disassembler, where one is installed ----

// objdump's rendering (Intel syntax, blanks collapsed) of each golden pattern.
std::vector<std::string> ExpectedInstructions(const LibrarySlot& slot, uint64_t cell) {
    static const char* const kMoves[] = {"mov rsi,rdi", "mov rdx,rsi", "mov rcx,rdx",
                                         "mov r8,rcx",  "mov r9,r8",   "mov QWORD PTR [rsp],r9"};
    std::vector<std::string> instructions = {"sub rsp,0x8"};
    for (int move = slot.argumentCount - 1; move >= 0; --move) {
        instructions.push_back(kMoves[move]);
    }
    char cellLoad[64];
    char wrapperLoad[64];
    std::snprintf(cellLoad, sizeof cellLoad, "movabs rdi,0x%lx", static_cast<unsigned long>(cell));
    std::snprintf(wrapperLoad, sizeof wrapperLoad, "movabs rax,0x%lx",
                  static_cast<unsigned long>(slot.wrapper));
    instructions.insert(instructions.end(), {cellLoad, "mov rdi,QWORD PTR [rdi]", wrapperLoad,
                                             "call rax", "add rsp,0x8", "ret"});
    return instructions;
}

// Buffer offset -> instruction text, as objdump disassembles `path` from byte 8 on.
std::map<size_t, std::string> Disassemble(const std::string& path) {
    const std::string command =
        "objdump -D -b binary -mi386:x86-64 -M intel --insn-width=16 "
        "--start-address=8 " +
        path;
    std::map<size_t, std::string> instructions;
    FILE* output = popen(command.c_str(), "r");
    if (output == nullptr) {
        return instructions;
    }
    const std::regex line(R"(^\s*([0-9a-f]+):\t[0-9a-f ]+\t(.*?)\s*$)");
    const std::regex blanks(R"(\s+)");
    char text[512];
    while (std::fgets(text, sizeof text, output) != nullptr) {
        std::cmatch match;
        if (std::regex_match(text, match, line)) {
            instructions[std::stoul(match[1].str(), nullptr, 16)] =
                std::regex_replace(match[2].str(), blanks, " ");
        }
    }
    pclose(output);
    return instructions;
}

TEST_F(CallbackTrampolineLayout, ObjdumpReadsEachTrampolineAsTheAnnotatedInstructions) {
    if (std::system("command -v objdump > /dev/null 2>&1") != 0) {
        GTEST_SKIP() << "objdump is not installed";
    }
    testing_support::TempWorkingDirectory directory;
    const std::string path = directory.Path() + "/trampolines.bin";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(Base()), kBytesUsed);

    const std::map<size_t, std::string> disassembly = Disassemble(path);
    ASSERT_FALSE(disassembly.empty());
    for (const LibrarySlot& slot : kLibrarySlots) {
        SCOPED_TRACE(testing::Message() << "trampoline at " << slot.codeOffset);
        std::vector<std::string> actual;
        for (auto it = disassembly.find(slot.codeOffset);
             it != disassembly.end() && (actual.empty() || actual.back() != "ret"); ++it) {
            actual.push_back(it->second);
        }
        EXPECT_EQ(actual, ExpectedInstructions(slot, BaseAddress()));
    }
}

}  // namespace
