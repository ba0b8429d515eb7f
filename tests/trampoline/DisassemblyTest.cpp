// The emitted trampolines read back by an independent disassembler: objdump must find, instruction
// by instruction, what the annotated byte patterns say they encode.
#include <gtest/gtest.h>

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/TempWorkingDirectory.h"
#include "trampoline/Trampoline.h"

namespace {

struct Instruction {
    uint64_t address;
    std::string text;  // intel syntax, words separated by single spaces
};

std::string Hex(uint64_t value) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, value);
    return text;
}

template <class Pointer>
uint64_t Address(Pointer pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

std::string SingleSpaced(const std::string& text) {
    std::istringstream words(text);
    std::string word, result;
    while (words >> word) {
        result += (result.empty() ? "" : " ") + word;
    }
    return result;
}

bool ObjdumpInstalled() {
    return std::system("command -v objdump >/dev/null 2>&1") == 0;
}

// Dumps [begin, end) to a file in the working directory and disassembles it as raw x86-64 at
// the addresses the bytes have in memory.
std::vector<Instruction> Disassemble(const uint8_t* begin, const uint8_t* end) {
    const std::string path = "code.bin";
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(begin), end - begin);
    const std::string command =
        "objdump -D -b binary -mi386:x86-64 -M intel --no-show-raw-insn --adjust-vma=" +
        Hex(Address(begin)) + " " + path;
    FILE* output = popen(command.c_str(), "r");
    std::vector<Instruction> instructions;
    char line[256];
    while (output != nullptr && std::fgets(line, sizeof line, output) != nullptr) {
        // Instruction lines read "  <hex address>:\t<mnemonic> <operands>".
        char* afterAddress;
        const uint64_t address = std::strtoull(line, &afterAddress, 16);
        if (afterAddress[0] == ':' && afterAddress[1] == '\t') {
            instructions.push_back({address, SingleSpaced(afterAddress + 2)});
        }
    }
    EXPECT_NE(output, nullptr);
    EXPECT_EQ(output == nullptr ? -1 : pclose(output), 0) << command;
    return instructions;
}

// What the annotated patterns of the emitter say, in objdump's spelling. Slot k moves to k + 1.
const char* const kSlotMoves[] = {"mov rsi,rdi", "mov rdx,rsi", "mov rcx,rdx",
                                  "mov r8,rcx",  "mov r9,r8",   "mov QWORD PTR [rsp],r9"};
std::vector<std::string> Expected(size_t arguments, uint64_t cell, uint64_t wrapper) {
    std::vector<std::string> code = {"sub rsp,0x8"};
    for (size_t slot = arguments; slot-- > 0;) {
        code.push_back(kSlotMoves[slot]);
    }
    code.insert(code.end(), {"movabs rdi," + Hex(cell), "mov rdi,QWORD PTR [rdi]",
                             "movabs rax," + Hex(wrapper), "call rax", "add rsp,0x8", "ret"});
    return code;
}

uint64_t Wrapper(uint64_t* object) {
    return *object;
}

TEST(Disassembly, ObjdumpReadsEveryTrampolineAsItsAnnotatedInstructions) {
    if (!ObjdumpInstalled()) {
        GTEST_SKIP() << "objdump (binutils) is not installed";
    }
    testing_support::TempWorkingDirectory directory;
    JITBuffer buffer(4096);
    uint64_t object = 0;
    Trampoline<uint64_t> trampoline(&buffer, &object);
    const uint64_t cell = Address(trampoline.ThisCell());
    const uint64_t wrapper = Address(&Wrapper);
    void* (Trampoline<uint64_t>::*const generators[])(void*) = {
        &Trampoline<uint64_t>::GenerateTrampoline0Params,
        &Trampoline<uint64_t>::GenerateTrampoline1Params,
        &Trampoline<uint64_t>::GenerateTrampoline2Params,
        &Trampoline<uint64_t>::GenerateTrampoline3Params,
        &Trampoline<uint64_t>::GenerateTrampoline4Params,
        &Trampoline<uint64_t>::GenerateTrampoline5Params,
        &Trampoline<uint64_t>::GenerateTrampoline6Params};
    std::vector<uint64_t> entries;
    std::vector<std::string> expected;
    for (size_t arguments = 0; arguments < std::size(generators); ++arguments) {
        entries.push_back(
            Address((trampoline.*generators[arguments])(reinterpret_cast<void*>(wrapper))));
        const auto code = Expected(arguments, cell, wrapper);
        expected.insert(expected.end(), code.begin(), code.end());
    }

    // The code starts after the 8-byte cell that holds the bound object.
    const std::vector<Instruction> listing =
        Disassemble(buffer.Base() + sizeof(void*), buffer.Base() + buffer.Position());
    std::vector<std::string> texts;
    std::vector<uint64_t> starts;  // where each trampoline's first instruction lies
    for (const Instruction& instruction : listing) {
        texts.push_back(instruction.text);
        if (instruction.text == "sub rsp,0x8") {
            starts.push_back(instruction.address);
        }
    }
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(starts, entries);
}

}  // namespace
