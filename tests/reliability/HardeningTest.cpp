// The built plug-in as the loader treats it: no writable code in the file, and once loaded its
// relocated data read-only and the stack still non-executable. (Exports and BIND_NOW are checked
// in tests/plugin.)

#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>
#include <link.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/Command.h"
#include "support/Fixtures.h"

namespace {

using testing_support::PluginPath;

TEST(PluginHardening, NoLoadableSegmentIsWritableAndExecutableAndNoCodeIsRelocated) {
    const std::string segments = testing_support::CommandOutput("readelf -lW " + PluginPath());
    ASSERT_NE(segments.find("LOAD"), std::string::npos);
    EXPECT_EQ(segments.find("WE"), std::string::npos) << segments;  // flags R, W, E in columns
    EXPECT_EQ(testing_support::CommandOutput("readelf -d " + PluginPath()).find("TEXTREL"),
              std::string::npos);
}

TEST(PluginHardening, OnceLoadedItsRelocatedDataIsReadOnlyAndTheStackStaysNonExecutable) {
    void* library = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    std::vector<uintptr_t> relro;  // first address of each PT_GNU_RELRO region as loaded
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            if (info->dlpi_name == nullptr || PluginPath() != info->dlpi_name)
                return 0;
            for (int i = 0; i < info->dlpi_phnum; ++i)
                if (info->dlpi_phdr[i].p_type == PT_GNU_RELRO)
                    static_cast<std::vector<uintptr_t>*>(data)->push_back(
                        info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
            return 1;
        },
        &relro);
    ASSERT_EQ(relro.size(), 1u);
    const std::string file = std::filesystem::canonical(PluginPath()).string();
    int pluginMappings = 0, relroMappings = 0;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        std::istringstream fields(line);
        std::string range, perms, offset, device, inode, path;
        fields >> range >> perms >> offset >> device >> inode >> path;
        const uintptr_t start = std::stoull(range, nullptr, 16);
        const uintptr_t end = std::stoull(range.substr(range.find('-') + 1), nullptr, 16);
        const bool writable = perms[1] == 'w', executable = perms[2] == 'x';
        if (path == "[stack]") {
            EXPECT_FALSE(executable);  // an executable-stack object flips it
        }
        if (path == file) {
            ++pluginMappings;
            EXPECT_FALSE(writable && executable) << perms;
        }
        if (start <= relro[0] && relro[0] < end) {
            ++relroMappings;
            EXPECT_EQ(perms.substr(0, 3), "r--") << line;  // protected once relocation is done
        }
    }
    EXPECT_GT(pluginMappings, 0);
    EXPECT_EQ(relroMappings, 1);
    dlclose(library);
}

}  // namespace
