#include "support/JumpStubs.h"

#include <sys/mman.h>

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

}  // namespace testing_support
