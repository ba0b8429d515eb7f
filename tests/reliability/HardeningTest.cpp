// The built plug-in as the loader treats it. The file's own checks (exports, PT_GNU_STACK,
// RELRO, BIND_NOW) live with the ELF reader in tests/plugin; these add what they imply once the
// object is loaded into a process, and the absence of writable code in the file.

#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ElfFile.h"
#include "PluginHost.h"
#include "support/Fixtures.h"

namespace {

using testing_support::ElfFile;
using testing_support::PluginPath;

// One line of /proc/self/maps.
struct Mapping {
    uintptr_t start = 0;
    uintptr_t end = 0;
    std::string permissions;  // "r-xp" and the like
    std::string path;
};

std::vector<Mapping> ProcessMappings() {
    std::vector<Mapping> mappings;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        Mapping mapping;
        std::string range, offset, device, inode;
        fields >> range >> mapping.permissions >> offset >> device >> inode >> mapping.path;
        const size_t dash = range.find('-');
        mapping.start = std::stoull(range.substr(0, dash), nullptr, 16);
        mapping.end = std::stoull(range.substr(dash + 1), nullptr, 16);
        mappings.push_back(mapping);
    }
    return mappings;
}

bool Writable(const Mapping& mapping) {
    return mapping.permissions[1] == 'w';
}
bool Executable(const Mapping& mapping) {
    return mapping.permissions[2] == 'x';
}

// The loaded plug-in's base address and program headers, as the loader placed them.
struct LoadedObject {
    std::string path;
    uintptr_t base = 0;
    std::vector<ElfW(Phdr)> headers;
};

LoadedObject FindLoaded(const std::string& path) {
    LoadedObject object;
    object.path = path;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            auto* wanted = static_cast<LoadedObject*>(data);
            if (info->dlpi_name == nullptr || wanted->path != info->dlpi_name) {
                return 0;
            }
            wanted->base = info->dlpi_addr;
            wanted->headers.assign(info->dlpi_phdr, info->dlpi_phdr + info->dlpi_phnum);
            return 1;
        },
        &object);
    return object;
}

TEST(PluginHardening, NoLoadableSegmentIsWritableAndExecutableAndNoCodeIsRelocated) {
    const ElfFile plugin(PluginPath());
    for (const ElfFile::ProgramHeader& header : plugin.ProgramHeaders()) {
        if (header.type == PT_LOAD) {
            EXPECT_NE(header.flags & (PF_W | PF_X), static_cast<uint32_t>(PF_W | PF_X));
        }
    }
    EXPECT_EQ(plugin.DynamicFlags() & DF_TEXTREL, 0u);
}

TEST(PluginHardening, OnceLoadedItsRelocatedDataIsReadOnlyAndTheStackStaysNonExecutable) {
    reliability::PluginHost host;
    const LoadedObject loaded = FindLoaded(PluginPath());
    ASSERT_FALSE(loaded.headers.empty()) << "plug-in not found among the loaded objects";

    const std::vector<Mapping> mappings = ProcessMappings();
    for (const Mapping& mapping : mappings) {
        if (mapping.path == "[stack]") {
            EXPECT_FALSE(Executable(mapping));  // an executable-stack object would flip it
        }
    }
    int relroRegions = 0;
    for (const ElfW(Phdr) & header : loaded.headers) {
        if (header.p_type != PT_GNU_RELRO) {
            continue;
        }
        ++relroRegions;
        // The whole pages of the region: the loader protects them once relocation is done.
        const uintptr_t first = loaded.base + header.p_vaddr;
        for (const Mapping& mapping : mappings) {
            if (mapping.start <= first && first < mapping.end) {
                EXPECT_FALSE(Writable(mapping)) << mapping.permissions;
                EXPECT_FALSE(Executable(mapping)) << mapping.permissions;
            }
        }
    }
    EXPECT_EQ(relroRegions, 1);
    const std::string file = std::filesystem::canonical(PluginPath()).string();
    int pluginMappings = 0;
    for (const Mapping& mapping : mappings) {
        if (mapping.path == file) {
            ++pluginMappings;
            EXPECT_FALSE(Writable(mapping) && Executable(mapping)) << mapping.permissions;
        }
    }
    EXPECT_GT(pluginMappings, 0);
}

}  // namespace
