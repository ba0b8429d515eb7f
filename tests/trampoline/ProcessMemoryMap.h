#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace testing_support {

// One line of /proc/self/maps: a run of pages the kernel keeps as one mapping. Adjacent anonymous
// mappings with equal permissions may be merged into one region by the kernel.
struct MappedRegion {
    uintptr_t start = 0;
    uintptr_t end = 0;        // one past the last byte
    std::string permissions;  // "rwxp": read, write, execute, private (or 's' for shared)
    uint64_t inode = 0;       // 0 for anonymous memory
    std::string path;         // empty for anonymous memory

    size_t Size() const { return end - start; }
};

// The region of this process that contains `address`, or nothing when it is not mapped.
std::optional<MappedRegion> FindMappedRegion(const void* address);

}  // namespace testing_support
