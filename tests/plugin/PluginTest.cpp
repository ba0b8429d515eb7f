// The handling object's command string, shutdown and log, then the plug-in as hosts and the
// loader see it.
// Each test runs in a process of its own, so each starts as the first log writer of its process.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <filesystem>
#include <thread>

#include "plugin/MonoDebuggerHandling.h"
#include "support/Command.h"
#include "support/Fixtures.h"
#include "support/Inspector.h"
#include "support/MonoSide.h"
#include "support/TempWorkingDirectory.h"

namespace {

using testing_support::CommandOutput;
using testing_support::PluginPath;
using testing_support::ScopedEnvironment;
#define SEPARATOR "----SCRIPT-COMPILATION-MODE-CHANGE----\n"

TEST(HandlingObject, CommandStringIsExactAndShutdownClearsOnlyTheFlushSlot) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    // Nothing in the path is escaped, not even the markers.
    for (std::string path : {"/data/Orvel.Quarn.Placeholder.dll", "", "a b/c.dll", "|AM||CB|"}) {
        MonoDebuggerHandling object(path);
        const char* command = object.FetchDebuggerEnableCommand();
        EXPECT_EQ(command, "$load_debugger_interface |CB|" +
                               std::to_string(reinterpret_cast<uintptr_t>(object.Callbacks())) +
                               "|CB||AM|" + path +
                               "|AM||NM|Orvel.Quarn.Placeholder|NM||TP|MonoDebuggerClass|TP|");
        EXPECT_EQ(object.FetchDebuggerEnableCommand(), command);  // one text at one address
    }
    MonoDebuggerHandling object("/p.dll");
    mdh_callbacks* record = object.Callbacks();
    record->flushClientKnowledge = +[] {};
    object.Shutdown();  // no shutdown function: the flush slot is cleared all the same
    EXPECT_EQ(record->flushClientKnowledge, nullptr);
    testing_support::InstallShutdownAndFlush(record);
    const auto shutdownNotify = record->shutdownNotify;
    object.RequestFlushClientDebuggerKnowledge();
    object.Shutdown();
    object.RequestFlushClientDebuggerKnowledge();
    EXPECT_EQ(testing_support::ShutdownCalls(), 1);
    EXPECT_EQ(testing_support::FlushCalls(), 1);
    EXPECT_EQ(record->shutdownNotify, shutdownNotify);
}

// Writers one after another over a stale log, each logging "one" at 1, "" at 2 and "three" at 3;
// then the file, byte for byte.
class DebugLog : public ::testing::TestWithParam<std::pair<std::vector<int>, std::string>> {};
TEST_P(DebugLog, FirstWriterTruncatesLaterOnesAppendAfterASeparator) {
    testing_support::TempWorkingDirectory directory;
    std::filesystem::create_directory("Logs");
    std::ofstream(directory.LogPath()) << "stale\n";
    for (int level : GetParam().first) {
        DebugLogWriter writer(level, "quarn-mono-debug.log");
        writer.Log(1, "one");
        writer.Log(2, "");
        writer.Log(3, "three");
    }
    std::ifstream file(directory.LogPath(), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), GetParam().second);
}

// A writer takes the lines up to its own level; a second one writes the separator at level 1.
const std::pair<std::vector<int>, std::string> kWriterCases[] = {
    {{1, 0}, "one\n"}, {{1, 1}, "one\n" SEPARATOR "one\n"}, {{0, 9}, SEPARATOR "one\n\nthree\n"}};
INSTANTIATE_TEST_SUITE_P(Writers, DebugLog, ::testing::ValuesIn(kWriterCases));

// ORVEL_QUARN_DEBUG (nullopt: unset) and the level the handling object's writer gets from it.
class LogSwitch : public ::testing::TestWithParam<std::pair<std::optional<std::string>, int>> {};
TEST_P(LogSwitch, TextBecomesTheLevelAndSetupIsTheFirstLine) {
    const auto [text, level] = GetParam();
    testing_support::TempWorkingDirectory directory;
    ScopedEnvironment debug("ORVEL_QUARN_DEBUG", text ? text->c_str() : nullptr);
    MonoDebuggerHandling object("/p.dll");
    const DebugLogWriter* writer = MonoDebuggerHandlingInspector(object).LogWriter();
    EXPECT_EQ(std::filesystem::exists("Logs"), text.has_value());
    ASSERT_EQ(writer != nullptr, text.has_value());
    EXPECT_TRUE(writer == nullptr || (writer->Accepts(level) && !writer->Accepts(level + 1)));
    EXPECT_EQ(directory.LogLines(), std::vector<std::string>(level >= 1, "Setting up Callbacks"));
}

const std::pair<std::optional<std::string>, int> kVariableTexts[] = {
    {std::nullopt, 0}, {"", 0},    {"abc", 0},       {"1", 1},
    {"2x", 2},         {"-1", -1}, {"4294967297", 1}};  // strtol, then 32 bits
INSTANTIATE_TEST_SUITE_P(Texts, LogSwitch, ::testing::ValuesIn(kVariableTexts));

TEST(PluginElf, DefinesExactlyTheFourteenExports) {
    EXPECT_EQ(CommandOutput("nm -D --defined-only " + PluginPath() +
                            " | awk '{print $3}' | sort | tr '\\n' ' '"),
              "clear_library_metadata dispose get_context_for_current_thread initialize "
              "jit_allocate_memory jit_free_memory jit_get_cpu_architecture jit_write_to_memory "
              "library_loaded library_unloaded register_entry "
              "request_flush_client_debugger_knowledge shut_down startup ");
}

// No segment both writable and executable: that includes a GNU_STACK of "RWE", and a missing
// GNU_STACK would leave the stack executable. GNU_RELRO with BIND_NOW: the loader makes the
// relocated data, the whole GOT included, read-only once it has bound every symbol.
TEST(PluginHardening, NoWritableCodeNoExecutableStackFullRelroAndNoTextRelocations) {
    const std::string segments = CommandOutput("readelf -lW " + PluginPath());
    EXPECT_EQ(segments.find("WE"), std::string::npos) << segments;  // flags R, W, E in columns
    EXPECT_NE(segments.find("GNU_STACK"), std::string::npos) << segments;
    EXPECT_NE(segments.find("GNU_RELRO"), std::string::npos);
    const std::string dynamic = CommandOutput("readelf -d " + PluginPath());
    EXPECT_NE(dynamic.find("BIND_NOW"), std::string::npos) << dynamic;
    EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos);
}

template <class Function>
Function* Export(const char* name) {
    static void* plugin = dlopen(PluginPath().c_str(), RTLD_NOW | RTLD_LOCAL);
    return reinterpret_cast<Function*>(dlsym(plugin, name));
}
#define EXPORT(name) Export<decltype(::name)>(#name)

TEST(PluginExports, NullArgumentsContextIsPerThreadAndJitSizesAreUnsigned32Bit) {
    ScopedEnvironment noLog("ORVEL_QUARN_DEBUG", nullptr);
    EXPECT_THROW(EXPORT(initialize)(nullptr), std::logic_error);  // LeakSanitizer sees any leak
    EXPORT(dispose)(nullptr);                                     // does nothing
    EXPECT_EQ(EXPORT(jit_get_cpu_architecture)(), 0);
    auto* context = EXPORT(get_context_for_current_thread);
    void** mine = context();
    *mine = mine;
    // Another thread has a slot of its own, null at first.
    std::thread([&] { EXPECT_EQ(*context(), nullptr); }).join();
    EXPECT_EQ(context(), mine);
    EXPECT_EQ(*mine, mine);
    EXPECT_EQ(EXPORT(jit_allocate_memory)(0), MAP_FAILED);
    // 0xFFFFFFFF bytes in whole pages: 4 GiB, writable and executable up to the last byte.
    auto* memory = static_cast<uint8_t*>(EXPORT(jit_allocate_memory)(0xFFFFFFFF));
    ASSERT_NE(static_cast<void*>(memory), MAP_FAILED);
    uint8_t* last = memory + (uint64_t{1} << 32) - 1;
    EXPORT(jit_write_to_memory)(last, "\xC3", 1);  // ret
    reinterpret_cast<void (*)()>(last)();
    EXPORT(jit_free_memory)(memory, 0xFFFFFFFF);
    EXPECT_EQ(msync(last - 4095, 1, MS_ASYNC), -1);  // unmapped, to the last page
}

}  // namespace
