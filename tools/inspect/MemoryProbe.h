#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

// Reads memory that a compiled library's tables point to without trusting the pointers: the
// kernel performs the copy and reports an unreadable page instead of the process faulting.

// Copies up to `size` bytes from `address`; returns how many were copied: `size` when all were
// readable, fewer when the copy stopped at the first unreadable page.
size_t CopyReadable(uint64_t address, void* out, size_t size);

// The NUL-terminated string at `address` when its bytes are readable and a NUL comes within
// `maxLength` bytes; nothing otherwise.
std::optional<std::string> ReadTerminatedString(uint64_t address, size_t maxLength);

// One value of type T at `address`, if readable.
template <class T>
std::optional<T> ReadValue(uint64_t address) {
    T value;
    if (address == 0 || CopyReadable(address, &value, sizeof value) != sizeof value) {
        return std::nullopt;
    }
    return value;
}
