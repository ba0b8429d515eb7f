#include "support/JumpStubs.h"

#include <sys/mman.h>

#include <cstring>
#include <stdexcept>

extern "C" __attribute__((noinline)) int NativeCode() {
    return 1;
}
extern "C" __attribute__((noinline)) int ManagedCode() {
    return 2;
}

namespace testing_support {

JumpStubs::JumpStubs(size_t count) : size(count * kStubSize) {
    void* memory =
        mmap(nullptr, size, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::runtime_error("no executable memory for jump stubs");
    }
    page = static_cast<uint8_t*>(memory);
}

JumpStubs::~JumpStubs() {
    munmap(page, size);
}

void* JumpStubs::Make(size_t index, const void* target, const void* alternate) {
    uint8_t* stub = page + index * kStubSize;
    std::memset(stub, 0xCC, kStubSize);  // int3 padding
    const uint64_t targetWord = reinterpret_cast<uintptr_t>(target);
    const uint64_t alternateWord = reinterpret_cast<uintptr_t>(alternate);
    stub[0] = 0x48;  // movabs rax, imm64
    stub[1] = 0xB8;
    std::memcpy(stub + 2, &targetWord, 8);
    stub[10] = 0xFF;  // jmp rax
    stub[11] = 0xE0;
    std::memcpy(stub + 16, &alternateWord, 8);
    return stub;
}

uint64_t JumpStubs::Target(const void* stub) {
    uint64_t word;
    std::memcpy(&word, static_cast<const uint8_t*>(stub) + 2, 8);
    return word;
}

uint64_t JumpStubs::Alternate(const void* stub) {
    uint64_t word;
    std::memcpy(&word, static_cast<const uint8_t*>(stub) + 16, 8);
    return word;
}

Landing JumpStubs::Call(const void* stub) {
    auto function = reinterpret_cast<int (*)()>(const_cast<void*>(stub));
    return static_cast<Landing>(function());
}

}  // namespace testing_support
