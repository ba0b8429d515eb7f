#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "ElfFile.h"
#include "support/Fixtures.h"

namespace {

using testing_support::ElfFile;

TEST(PluginElf, DynamicSymbolTableDefinesExactlyTheFourteenExports) {
    std::vector<std::string> expected = {"initialize",
                                         "dispose",
                                         "startup",
                                         "shut_down",
                                         "library_loaded",
                                         "library_unloaded",
                                         "clear_library_metadata",
                                         "register_entry",
                                         "request_flush_client_debugger_knowledge",
                                         "jit_allocate_memory",
                                         "jit_write_to_memory",
                                         "jit_free_memory",
                                         "get_context_for_current_thread",
                                         "jit_get_cpu_architecture"};
    std::sort(expected.begin(), expected.end());

    EXPECT_EQ(ElfFile(testing_support::PluginPath()).DefinedDynamicSymbols(), expected);
}

TEST(PluginElf, ReaderSeesTheLinkOptionsOfThePlugin) {
    const ElfFile plugin(testing_support::PluginPath());

    const auto stack = plugin.FindProgramHeader(PT_GNU_STACK);
    ASSERT_TRUE(stack.has_value());
    EXPECT_EQ(stack->flags & PF_X, 0u);
    EXPECT_TRUE(plugin.FindProgramHeader(PT_GNU_RELRO).has_value());
    EXPECT_TRUE(plugin.FindProgramHeader(PT_DYNAMIC).has_value());
    EXPECT_TRUE(plugin.BindsNow());
}

TEST(PluginElf, ReaderListsDefinedSymbolsOfAnyObjectAndRejectsOtherFiles) {
    const std::vector<std::string> symbols =
        ElfFile(testing_support::CompiledLibraryPath("fixture_a")).DefinedDynamicSymbols();
    EXPECT_NE(std::find(symbols.begin(), symbols.end(), "quarn.debug_query"), symbols.end());

    EXPECT_THROW(ElfFile("/nonexistent/library.so"), std::runtime_error);
    EXPECT_THROW(ElfFile("/proc/self/maps"), std::runtime_error);
}

}  // namespace
