#include "HeapCounter.h"

#include <malloc.h>

#include <cstdlib>
#include <new>

namespace {

bool counting = false;
bench::HeapUsage counted;

void* Allocate(std::size_t size) {
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block != nullptr && counting) {
        counted.bytes += static_cast<int64_t>(malloc_usable_size(block));
        ++counted.blocks;
    }
    return block;
}

void Release(void* block) {
    if (block != nullptr && counting) {
        counted.bytes -= static_cast<int64_t>(malloc_usable_size(block));
        --counted.blocks;
    }
    std::free(block);
}

void* AllocateOrThrow(std::size_t size) {
    void* block = Allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

namespace bench {

void HeapCounter::Start() {
    counted = HeapUsage{};
    counting = true;
}

HeapUsage HeapCounter::Stop() {
    counting = false;
    return counted;
}

}  // namespace bench

// The replaced global operators (aligned forms keep the library's defaults, which pair
// among themselves; nothing measured uses over-aligned types).
void* operator new(std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new[](std::size_t size) {
    return AllocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* block) noexcept {
    Release(block);
}
void operator delete[](void* block) noexcept {
    Release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Release(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Release(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Release(block);
}
