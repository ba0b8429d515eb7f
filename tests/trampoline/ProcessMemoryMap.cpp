#include "trampoline/ProcessMemoryMap.h"

#include <fstream>
#include <sstream>

namespace testing_support {
namespace {

// Parses "start-end perms offset dev inode [path]" (addresses and offset in hexadecimal).
MappedRegion ParseMapsLine(const std::string& line) {
    std::istringstream fields(line);
    MappedRegion region;
    char dash = 0;
    std::string offset;
    std::string device;
    fields >> std::hex >> region.start >> dash >> region.end >> region.permissions >> offset >>
        device >> std::dec >> region.inode;
    std::getline(fields >> std::ws, region.path);
    return region;
}

}  // namespace

std::optional<MappedRegion> FindMappedRegion(const void* address) {
    const auto wanted = reinterpret_cast<uintptr_t>(address);
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        const MappedRegion region = ParseMapsLine(line);
        if (region.start <= wanted && wanted < region.end) {
            return region;
        }
    }
    return std::nullopt;
}

}  // namespace testing_support
