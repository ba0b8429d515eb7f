// A whole debugging run through the real plug-in: a host that dlopens it, a debugger side that
// finds the callbacks record through the command string, and entry points that are real stubs.

#include <regex>
#include <set>
#include <unordered_map>

#include "support/Session.h"

namespace testing_support {
namespace {

TEST(DebuggingRun, FromInitializeToDispose) {
    TempWorkingDirectory directory;
    ScopedEnvironment logging("ORVEL_QUARN_DEBUG", "3");
    const PluginExports x;  // the exports a host calls; nothing of the plug-in's internals
    LoadedLibrary libraryA("fixture_a"), libraryB("fixture_b");
    JumpStubs stubs;
    void* const stub[3] = {stubs.MakeNative(0), stubs.MakeNative(1), stubs.MakeNative(2)};
    const mdh_hash128 a1 = FIXTURE_ITEM_A1, a2 = FIXTURE_ITEM_A2, b1 = FIXTURE_ITEM_B1;
    mdh_handle handle = x.initialize("/data/Orvel.Quarn.Placeholder.dll");
    mdh_callbacks* record = RecordFromCommand(x.startup(handle));
    InstallWriters(record);
    InstallShutdownAndFlush(record);
    record->finishSetup();
    x.library_loaded(handle, libraryA.Handle());
    x.library_loaded(handle, libraryB.Handle());
    EXPECT_EQ(FlushCalls(), 2);
    x.register_entry(handle, libraryA.Handle(), a1, kNative, stub[0], nullptr, nullptr);
    x.register_entry(handle, libraryA.Handle(), a2, kNative, stub[1], nullptr, nullptr);
    x.register_entry(handle, libraryB.Handle(), b1, kNative, stub[2], nullptr, nullptr);
    x.register_entry(handle, libraryB.Handle(), b1, kNative, nullptr, HostCallback, Ptr(0xC0));
    // The file and method lists, and the log lines that list them in reply order.
    ReplyBuffer files, methods, info;
    record->fetchFiles(&files, 0, 1, 2, 32);
    ASSERT_EQ(files.replies.size(), 5u);
    std::string lists = "FetchFiles : {files} 0 \n    TotalFiles : 4\n";
    std::set<std::string> fileNames;
    for (size_t i = 1; i < 5; ++i) {
        lists += "        Path : " + files.replies[i].text + "\n";
        fileNames.insert(files.replies[i].text);
    }
    EXPECT_EQ(fileNames,
              std::set<std::string>({"src/Shared.cs", "src/A1.cs", "src/A2.cs", "./B/B1.cs"}));
    record->fetchMethods(&methods, Ptr(-16), -5, 1, 2, 32);
    EXPECT_EQ(Text(methods.replies), "4 m-5@-16 m-5@-16 m-5@-16 m-5@-16");
    lists += "FetchMethods : {methods} -16 -5\n    Total Methods : 4\n";
    std::unordered_map<Hash128, void*> byHash;
    std::unordered_map<Hash128, std::string> token;  // methods are numbered in list order
    for (size_t k = 0; k < 4; ++k) {
        mdh_hash128 hash{};
        EXPECT_EQ(record->testFetchMethodHash(methods.Methods()[k], &hash), 1);
        const Hash128 method{hash.word0, hash.word1};
        byHash[method] = methods.Methods()[k];
        token[method] = std::to_string(100663297 + k);
        // The method's index in its item, printed twice, its token, and the generation.
        const std::string index = method == kMethodA1Only || method == kMethodB1Only ? "1" : "0";
        lists += "        CacheEntry : " + index + " " + index + " " + token[method] +
                 " 18446744065119617025\n";
    }
    record->fetchDebugInfo(&info, byHash[kMethodA1Only], 1, 2, 32);
    record->breakpointNotify(1, byHash[kMethodShared], 0, Ptr(0xB001));
    EXPECT_EQ(Execution(stub, *record), "MNM101M2");
    record->breakpointNotify(0, nullptr, 0, Ptr(0xB001));
    EXPECT_EQ(Execution(stub, *record), "NNN000N3");
    x.library_unloaded(handle, libraryB.Handle());
    EXPECT_EQ(record->testFetchEntryPointCountForHash(&b1), 0u);
    x.shut_down(handle);
    EXPECT_EQ(ShutdownCalls(), 1);
    EXPECT_EQ(record->flushClientKnowledge, nullptr);
    x.request_flush_client_debugger_knowledge(handle);
    EXPECT_EQ(FlushCalls(), 2);
    x.dispose(handle);
    std::ifstream file(directory.LogPath());
    const std::string log(std::istreambuf_iterator<char>(file), {});
    // clang-format off
    const std::vector<std::pair<std::string, std::string>> names = {
        {"state", "Potentially changing Quarn execution state to"},
        {"ptr", "  Native {n}\n  FunctionPtr State : Target {n} - Alternate {m}\n"},
        {"A1", "A1000000000000000000000000000010"}, {"B1", "B1000000000000000000000000000020"},
        {"a", PointerText(libraryA.Handle())}, {"b", PointerText(libraryB.Handle())},
        {"n", PointerText(kNative)}, {"m", PointerText(reinterpret_cast<void*>(&ManagedCode))},
        {"files", PointerText(&files)}, {"methods", PointerText(&methods)}, {"info", PointerText(&info)},
        {"shared", PointerText(byHash[kMethodShared])}, {"A1Only", PointerText(byHash[kMethodA1Only])},
        {"tokenA1", token[kMethodA1Only]}};
    // clang-format on
    // Contiguous stretches of the log, each exactly as written.
    for (const std::string& stretch : std::vector<std::string>{
             "Setting up Callbacks\nFinishing up callbacks\nProcessLibraryMetadata : {a}\n"
             "FilesCached : 3 vs 3\nMethodsCached : 3 vs 3\nRequestFlushClientDebuggerKnowledge\n"
             "---STATE-START---\nTotal Meta Data Items : 2\n",
             "---STATE-END---\nProcessLibraryMetadata : {b}\nFilesCached : 5 vs 4\n"
             "MethodsCached : 5 vs 4\nRequestFlushClientDebuggerKnowledge\n---STATE-START---\n",
             "---STATE-END---\nRegisterEntryPoint : {a} {A1} - Native {n}\n{state} 1 for {A1}\n"
             "{ptr}RegisterEntryPoint : {a} A2000000000000000000000000000010 - Native {n}\n",
             "RegisterEntryPoint : {b} {B1} - Native {n}\n{state} 1 for {B1}\n{ptr}  Native {n}\n"
             "  Enabling Job - Run Quarned\n" +
                 lists +
                 "FetchDebugInfo : {info} {A1Only}\nMETHOD DEBUG INFO TOKEN : {tokenA1}\n"
                 "  FILE: src/A1.cs\n    HASH: Null\n  Sequence Points: \n    IL:0 StartLine:7\n"
                 "    File:0\n    StartColumn:2\n    EndLine:7  EndColumn:30\n"
                 "QuarnBreakpointNotify : Incoming Breakpoint SET {shared} 45057\n"
                 "QuarnBreakpointNotify : Add Breakpoint {shared} 45057\n"
                 "    MethodHash : 55555555555555550500000000000000\n"
                 "        EntryPointHash : {A1}\n{state} 0 for {A1}\n{ptr}"
                 "    Swapping Targets - disabling quarned method\n"
                 "        EntryPointHash : {B1}\n{state} 0 for {B1}\n{ptr}"
                 "    Swapping Targets - disabling quarned method\n"
                 "  Native {n}\n  Disabling Job - Run Managed\n---STATE-START---\n",
             "---STATE-END---\nQuarnBreakpointNotify : Incoming Breakpoint REMOVE 0 45057\n"
             "QuarnBreakpointNotify : Remove Breakpoint 45057\n",
             "---STATE-END---\nUnloadLibraryMetadata : {b}\n"
             "  Unregistering Entry Point : {b} Hash {B1}\n"
             "  Unregistering Entry Point : {b} Hash {B1}\nFilesCached : 3 vs 3\n"
             "MethodsCached : 3 vs 3\nRequestFlushClientDebuggerKnowledge\n---STATE-START---\n"
             "Total Meta Data Items : 2\n"}) {
        EXPECT_NE(log.find(Fill(stretch, names)), std::string::npos) << Fill(stretch, names);
    }
    // The map while the breakpoint was set lists both entry points, in either order; the last
    // dump has neither B's entry points nor a breakpoint. Every step above dumped once.
    const std::string mapA1 = Fill("  EntryHash {A1}\n    Breakpoint 45057\n", names);
    const std::string mapB1 = Fill("  EntryHash {B1}\n    Breakpoint 45057\n", names);
    EXPECT_TRUE(log.find("Breakpoint Map\n" + mapA1 + mapB1 + "---") != std::string::npos ||
                log.find("Breakpoint Map\n" + mapB1 + mapA1 + "---") != std::string::npos);
    const std::string last = log.substr(log.rfind("---STATE-START---"));
    EXPECT_EQ(last.find("B1000000000000000000000000000020"), std::string::npos);
    EXPECT_EQ(last.substr(last.size() - 31), "Breakpoint Map\n---STATE-END---\n");
    const std::regex start("---STATE-START---");
    EXPECT_EQ(std::distance(std::sregex_iterator(log.begin(), log.end(), start), {}), 5);
}

}  // namespace
}  // namespace testing_support
