// The mmap-backed executable memory behind the jit_ exports and the trampoline buffer.
#include "trampoline/ExecutableMemory.h"

#include <sys/mman.h>

#include <cstring>

void* JitAllocateMemory(size_t size) {
    // Descriptor 0, not -1: ignored for an anonymous mapping, and kept as the host expects.
    return mmap(nullptr, size, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, 0,
                0);
}

// The memory is always writable: nothing to open before a write.
void JitBeginWriteToMemory() {}

void JitWriteToMemory(uint8_t* destination, const void* source, size_t size) {
    std::memcpy(destination, source, size);
}

// x86-64 keeps instruction fetch coherent with stores: nothing to flush after a write.
void JitEndWriteToMemory(uint8_t* /*destination*/, size_t /*size*/) {}

void JitFreeMemory(uint8_t* memory, size_t size) {
    munmap(memory, size);
}
