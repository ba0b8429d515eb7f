// Executable memory for the host's code (through the jit_ exports) and for the trampolines; one
// allocator, so both share the same permissions and the same trade-off.

#pragma once

#include <cstddef>
#include <cstdint>

// The memory is readable, writable and executable at once. Keeping all three permissions means
// no write bracket is needed, at the price of refusing hardened kernels (deny_execmem,
// MemoryDenyWriteExecute), where the mapping fails. The result of mmap is passed on unchecked:
// MAP_FAILED, not null.
void* JitAllocateMemory(size_t size);
void JitBeginWriteToMemory();
void JitWriteToMemory(uint8_t* destination, const void* source, size_t size);
void JitEndWriteToMemory(uint8_t* destination, size_t size);
void JitFreeMemory(uint8_t* memory, size_t size);
