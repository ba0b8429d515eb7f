#pragma once
// Replaces the global allocation functions of the test program whose one source file includes
// this header; the plug-in's allocations land here too, linked or dlopen()ed. libstdc++'s other
// forms (arrays, nothrow) forward to these; nothing here allocates over-aligned memory.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace testing_support {

inline bool (*gAllocationFails)() = nullptr;  // asked before each allocation; true fails it

}  // namespace testing_support

void* operator new(std::size_t size) {
    if (testing_support::gAllocationFails != nullptr && testing_support::gAllocationFails())
        throw std::bad_alloc();
    void* memory = std::malloc(size == 0 ? 1 : size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
// Called for sized deallocations; a sanitizer's own version would not pair with malloc above.
void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}
