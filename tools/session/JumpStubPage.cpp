#include "JumpStubPage.h"

#include <sys/mman.h>

#include <cstring>
#include <stdexcept>

#include "PluginApi.h"

extern "C" __attribute__((noinline)) int RunQuarnedCode() {
    return static_cast<int>(Landing::Quarned);
}
extern "C" __attribute__((noinline)) int RunManagedCode() {
    return static_cast<int>(Landing::Managed);
}

namespace {

// movabs rax, imm64 — the plug-in switches the stub by rewriting this immediate
constexpr uint8_t kMovabsRax[] = {0x48, 0xB8};
// jmp rax
constexpr uint8_t kJmpRax[] = {0xFF, 0xE0};
// int3 — fills every byte that is not an instruction or a word
constexpr uint8_t kInt3 = 0xCC;
constexpr size_t kJmpOffset = 10;

static_assert(JumpStubPage::kTargetOffset == sizeof kMovabsRax, "target word follows the opcode");
static_assert(kJmpOffset == JumpStubPage::kTargetOffset + 8, "jmp follows the target word");
static_assert(JumpStubPage::kAlternateOffset + 8 <= JumpStubPage::kStubSize);

void PutWord(uint8_t* at, const void* pointer) {
    const uint64_t word = reinterpret_cast<uintptr_t>(pointer);
    std::memcpy(at, &word, sizeof word);
}

}  // namespace

const char* LandingName(Landing landing) {
    return landing == Landing::Quarned ? "quarned" : "managed";
}

JumpStubPage::JumpStubPage(const PluginApi& plugin, size_t count)
    : plugin(plugin), size(static_cast<uint32_t>(count * kStubSize)) {
    void* mapped = plugin.jit_allocate_memory(size);
    if (mapped == MAP_FAILED) {  // the export passes the platform's failure value on
        throw std::runtime_error("jit_allocate_memory found no executable memory");
    }
    memory = static_cast<uint8_t*>(mapped);
}

JumpStubPage::~JumpStubPage() {
    plugin.jit_free_memory(memory, size);
}

void* JumpStubPage::MakeQuarnedStub(size_t index) {
    uint8_t bytes[kStubSize];
    std::memset(bytes, kInt3, sizeof bytes);
    std::memcpy(bytes, kMovabsRax, sizeof kMovabsRax);
    PutWord(bytes + kTargetOffset, reinterpret_cast<const void*>(&RunQuarnedCode));
    std::memcpy(bytes + kJmpOffset, kJmpRax, sizeof kJmpRax);
    PutWord(bytes + kAlternateOffset, reinterpret_cast<const void*>(&RunManagedCode));
    uint8_t* stub = memory + index * kStubSize;
    plugin.jit_write_to_memory(stub, bytes, kStubSize);
    return stub;
}

Landing JumpStubPage::Call(const void* stub) {
    const auto code = reinterpret_cast<int (*)()>(const_cast<void*>(stub));
    return static_cast<Landing>(code());
}
