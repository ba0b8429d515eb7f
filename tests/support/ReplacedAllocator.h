#pragma once
// Replaces the global allocation functions of the test program whose one source file includes
// this header; the plug-in's allocations land here too, linked or dlopen()ed. libstdc++'s other
// forms (arrays, nothrow) forward to these.

#include <cstddef>
#include <cstdlib>
#include <new>

namespace testing_support {

inline bool (*gAllocationFails)() = nullptr;  // asked before each allocation; true fails it
inline void (*gOnFree)(void*) = nullptr;      // told each non-null address freed

inline void* ReplacedAllocate(std::size_t size, std::size_t alignment) {
    if (gAllocationFails != nullptr && gAllocationFails()) {
        throw std::bad_alloc();
    }
    size = size == 0 ? 1 : size;
    void* memory =
        alignment <= alignof(std::max_align_t)
            ? std::malloc(size)
            : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
inline void ReplacedFree(void* memory) noexcept {
    if (gOnFree != nullptr && memory != nullptr) {
        gOnFree(memory);
    }
    std::free(memory);
}

}  // namespace testing_support

void* operator new(std::size_t size) {
    return testing_support::ReplacedAllocate(size, 0);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return testing_support::ReplacedAllocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
    testing_support::ReplacedFree(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
    testing_support::ReplacedFree(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    testing_support::ReplacedFree(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    testing_support::ReplacedFree(memory);
}
