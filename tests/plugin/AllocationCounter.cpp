#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> liveAllocations{0};
}  // namespace

namespace testing_support {
long LiveAllocations() {
    return liveAllocations.load();
}
}  // namespace testing_support

// Replacements of the global allocation functions. The executable's definitions take
// precedence over the standard library's for every module of the process.
void* operator new(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++liveAllocations;
    return block;
}

void operator delete(void* block) noexcept {
    if (block != nullptr) {
        --liveAllocations;
        std::free(block);
    }
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    operator delete(block);
}
