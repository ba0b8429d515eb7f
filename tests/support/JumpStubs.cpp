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
    if (memory == MAP_FAILED)
        throw std::runtime_error("no executable memory for jump stubs");
    page = static_cast<uint8_t*>(memory);
}

JumpStubs::~JumpStubs() {
    munmap(page, size);
}

void* JumpStubs::Make(size_t index, const void* target, const void* alternate) {
    uint8_t* stub = page + index * kStubSize;
    std::memset(stub, 0xCC, kStubSize);                                       // int3 padding
    const uint8_t code[] = {0x48, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xE0};  // movabs rax; jmp rax
    std::memcpy(stub, code, sizeof code);
    std::memcpy(stub + 2, &target, 8);
    std::memcpy(stub + 16, &alternate, 8);
    return stub;
}

static uint64_t WordAt(const void* stub, size_t offset) {
    uint64_t word;
    std::memcpy(&word, static_cast<const uint8_t*>(stub) + offset, 8);
    return word;
}
uint64_t JumpStubs::Target(const void* stub) {
    return WordAt(stub, 2);
}
uint64_t JumpStubs::Alternate(const void* stub) {
    return WordAt(stub, 16);
}

Landing JumpStubs::Call(const void* stub) {
    return static_cast<Landing>(reinterpret_cast<int (*)()>(const_cast<void*>(stub))());
}

}  // namespace testing_support
