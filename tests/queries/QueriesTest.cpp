// The debugger's queries through the callbacks record, the method handle rule, the state dump.

#include <set>

#include "support/Session.h"

namespace testing_support {
namespace {

// The one known file name, the path the debugger asks about, ignoreCase, and the answer. The
// matching rules themselves are the file-matcher corpus, replayed against a model of them.
const std::tuple<const char*, const char*, int, int> kMatchCases[] = {
    {"Assets/Scripts/Player.cs", "Assets\\Scripts\\Player.cs", 0, 1},
    {"Assets/Scripts/Player.cs", "assets/scripts/player.cs", 0, 0},
    {"Assets/Scripts/Player.cs", "ASSETS\\SCRIPTS\\PLAYER.CS", -7, 1},  // any non-zero flag
    {"./Scripts/Player.cs", "/p/SCRIPTS/player.CS", 1, 1},
};

// One item, one file, one method with two points that lists no file (its firstFile stays valid).
const int32_t kZero[] = {0}, kNoDigest[] = {-1};
const quarn_method_debug_info kMethods[] = {{2, 0, 0, 0}};
const quarn_sequence_point kPoints[] = {{0, 5, 1, 5, 9, 0}, {3, 6, 2, 6, 4, 0}};
const quarn_hash128 kHashes[] = {{0xF0, 1}}, kItem = {0xF0, 1ull << 62};
const char kFile[] = "zero/Only.cs";
const quarn_debug_item kSparse = {1,     1,       1,     kZero,   kMethods,  kZero,
                                  kFile, kPoints, kItem, kHashes, kNoDigest, nullptr};
const quarn_debug_library kSparseLibrary = {QUARN_DEBUG_FORMAT_VERSION, 1, &kSparse};

void* LoadProgrammable(DebuggerSession& session, const quarn_debug_library& description) {
    static const ProgrammableLibrary library(0);  // each test runs in a process of its own
    library.Describe(&description);
    session.object.ProcessLibraryMetadata(library.Handle());
    return library.Handle();
}

TEST(FileMatching, RuleTableAndLogLine) {
    quarn_debug_item item = kSparse;  // renamed per row: a reload under its hash replaces it
    const quarn_debug_library description = {QUARN_DEBUG_FORMAT_VERSION, 1, &item};
    DebuggerSession session("1");
    void* library = LoadProgrammable(session, description);
    for (const auto& [element, path, ignoreCase, expected] : kMatchCases) {
        item.stringTable = element;
        session.object.ProcessLibraryMetadata(library);
        const size_t mark = session.LogMark();
        EXPECT_EQ(session.record.isFileQuarned(ignoreCase, path), expected)
            << element << " | " << path << " | " << ignoreCase;
        EXPECT_EQ(session.LogSince(mark), "IsQuarned : " + std::to_string(ignoreCase) + " " + path +
                                              (expected ? " : TRUE\n" : " : FALSE\n"));
    }
}

// Fixtures A and B: four files and four methods, each listed in the log in reply order. A method
// line holds its index in its item (twice), its token and the list's generation.
TEST(Lists, FilesAndMethodsWithTheirLogLines) {
    DebuggerSession session("3");
    session.Load("fixture_a"), session.Load("fixture_b");
    const size_t mark = session.LogMark();
    ReplyBuffer files, methods;
    session.record.fetchFiles(&files, 0, 1, 2, 32);
    session.record.fetchMethods(&methods, Ptr(-16), -5, 1, 2, 32);
    EXPECT_EQ(Text(methods.replies), "4 m-5@-16 m-5@-16 m-5@-16 m-5@-16");
    std::string expected = "FetchFiles : " + PointerText(&files) + " 0 \n    TotalFiles : 4\n";
    std::multiset<std::string> names;
    for (const Reply& name : std::vector(files.replies.begin() + 1, files.replies.end()))
        expected += "        Path : " + name.text + "\n", names.insert(name.text);
    EXPECT_EQ(names,
              (std::multiset<std::string>{"src/Shared.cs", "src/A1.cs", "src/A2.cs", "./B/B1.cs"}));
    expected += "FetchMethods : " + PointerText(&methods) + " -16 -5\n    Total Methods : 4\n";
    for (uint32_t token = 0x06000001; void* method : methods.Methods()) {
        const Hash128 hash =
            static_cast<MethodCacheEntry*>(method)
                ->metadata->methodHashes[static_cast<MethodCacheEntry*>(method)->methodIndex];
        const char* index = hash == kMethodA1Only || hash == kMethodB1Only ? "1" : "0";
        expected += Fill("        CacheEntry : {i} {i} {token} 18446744065119617025\n",
                         {{"i", index}, {"token", std::to_string(token++)}});
    }
    EXPECT_EQ(session.LogSince(mark), expected);
}

// A new list renews the generation and renumbers from 0x06000001; earlier handles stay readable
// but are never reissued nor accepted, nor is a record whose generation differs in any bit, nor
// a pointer that is not a record of the current list. An empty list renews the generation too.
TEST(MethodHandles, GenerationsAndRejection) {
    DebuggerSession session;
    auto accepted = [&](void* handle) {  // the rule, through the hook that shares it
        mdh_hash128 hash{};
        return session.record.testFetchMethodHash(handle, &hash) == 1;
    };
    session.Load("fixture_a");
    const std::vector<void*> first = session.FetchMethods();
    const std::vector<void*> second = session.FetchMethods();
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), 0xFFFFFFFD00000002ull);
    EXPECT_EQ(static_cast<MethodCacheEntry*>(second[2])->methodToken, 0x06000003u);
    for (void* stale : first)  // records are never freed: stale ones can be read
        EXPECT_TRUE(std::count(second.begin(), second.end(), stale) == 0 && !accepted(stale));
    static_cast<MethodCacheEntry*>(second[0])->generation ^= 1ull << 63;
    EXPECT_FALSE(accepted(second[0]));
    char* record = static_cast<char*>(second[1]);
    int local = 0;
    for (void* foreign :
         std::initializer_list<void*>{record + 8, record + 3 * sizeof(MethodCacheEntry), &local})
        EXPECT_FALSE(accepted(foreign)) << foreign;
    session.object.ClearLibraryMetadata();
    EXPECT_TRUE(session.FetchMethods().empty());
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), 0xFFFFFFFC00000003ull);
}

// A's shared method: Shared.cs (with a digest), A1.cs (without), three points, the last in A1.cs;
// A1Only is its item's second method. Below 2.13 the sparse method, which lists no file, still
// gets the file at its firstFile. Invalid handles: no debug info, token 0, no line of their own.
TEST(MethodQueries, RepliesAtEveryVersionBoundaryAndForInvalidHandles) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    LoadProgrammable(session, kSparseLibrary);
    const std::vector<void*> handles = session.FetchMethods();
    const auto debug = &mdh_callbacks::fetchDebugInfo, info = &mdh_callbacks::fetchMethodInfo;
    const std::string one = "100 'src/Shared.cs' 3 0 10 6 11 12 40",
                      points = "3 0 10 0 6 11 0 12 40 1";
    const std::string both =  // up to the second field of the first point
        "100 2 'src/Shared.cs' x000102030405060708090A0B0C0D0E0F "
        "'src/A1.cs' x00000000000000000000000000000000 3 0 10 0 ";
    const void* a2Only = DebuggerSession::HandleOf(handles, kMethodA2Only);
    const std::string a2Info =
        "129 0 " + std::to_string(static_cast<const MethodCacheEntry*>(a2Only)->methodToken);
    const std::tuple<decltype(debug), Hash128, ClientVersion, std::string> cases[] = {
        {debug, kMethodShared, {0, 9, 9}, one},  // version not known
        {debug, kMethodShared, {1, 2, 12}, one},
        {debug, kMethodShared, {1, 2, 13}, "100 2 'src/Shared.cs' 'src/A1.cs' " + points},
        {debug, kMethodShared, {1, 2, 14}, both + "6 11 0 12 40 1"},
        {debug, kMethodShared, {1, 2, 19}, both + "5 6 11 0 9 12 40 1 1"},
        {debug, kMethodShared, {1, 2, 32}, both + "5 10 20 6 11 0 9 12 3 12 40 1 1 40 8"},
        {debug, kMethodShared, {-1, 3, 0}, both + "5 10 20 6 11 0 9 12 3 12 40 1 1 40 8"},
        {debug, kMethodA1Only, {1, 2, 12}, "100 'src/A1.cs' 1 0 7"},
        {debug, {0xF0, 1}, {1, 2, 12}, "100 'zero/Only.cs' 2 0 5 3 6"},
        {debug, {0xF0, 1}, {1, 2, 13}, "100 0 2 0 5 0 3 6 0"},
        {info, kMethodA2Only, {0, 9, 9}, a2Info},
        {info, kMethodA2Only, {1, 2, 12}, a2Info + " x00 #0"},
        {info, kMethodA2Only, {1, 2, 15}, a2Info + " x00 #0 0"},
        {info, kMethodA2Only, {-1, 3, 0}, a2Info + " x00 #0 0"},
    };
    for (const auto& [query, method, v, expected] : cases) {
        void* handle = DebuggerSession::HandleOf(handles, method);
        EXPECT_EQ(session.Ask(query, handle, v), expected) << v[0] << " " << v[1] << "." << v[2];
    }
    // A digest is logged as 32 hex digits, byte 0 first.
    EXPECT_NE(session.Log().find("    HASH: 000102030405060708090A0B0C0D0E0F\n"),
              std::string::npos);
    void* stale = handles[0];
    session.FetchMethods();
    int local = 0;
    for (void* bad : {stale, static_cast<void*>(&local), Ptr(0)}) {
        const size_t mark = session.LogMark();
        EXPECT_EQ(session.Ask(debug, bad, {1, 3, 0}), "0 '' 0");
        EXPECT_EQ(session.Ask(info, bad, {1, 3, 0}), "129 0 0 x00 #0 0");
        EXPECT_EQ(session.Ask(&mdh_callbacks::fetchParamInfo, bad, {1, 2, 32}), "0 0 0 #1");
        EXPECT_EQ(session.Ask(&mdh_callbacks::fetchMethodName, bad, {0, 0, 0}), "''");
        EXPECT_EQ(session.LogSince(mark),
                  Fill("FetchDebugInfo : {ids}\n    Method not valid\nFetchMethodInfo : {ids}\n"
                       "FetchParamInfo : {ids}\nFetchMethodName : {ids}\n",
                       {{"ids", PointerText(&session.reply) + " " + PointerText(bad)}}));
    }
}

// A method's files and digests are logged from level 2; its sequence points, and the paths of
// the file list, from level 3.
TEST(MethodQueries, DetailLinesByLogLevel) {
    for (const char level : {'1', '2', '3'}) {
        DebuggerSession session(std::string(1, level).c_str());
        session.Load("fixture_a");
        void* handle = DebuggerSession::HandleOf(session.FetchMethods(), kMethodA1Only);
        const size_t mark = session.LogMark();
        session.Ask(&mdh_callbacks::fetchDebugInfo, handle, {1, 2, 32});
        session.record.fetchFiles(&session.reply, 0, 0, 0, 0);
        const std::string log = session.LogSince(mark);
        EXPECT_EQ(log.find("\n        Path : src/A1.cs\n") != log.npos, level == '3');
        EXPECT_EQ(log.find("\n  FILE: src/A1.cs\n    HASH: Null\n") != log.npos, level >= '2');
        EXPECT_EQ(
            log.find("\n  Sequence Points: \n    IL:0 StartLine:7\n    File:0\n    StartColumn:2\n"
                     "    EndLine:7  EndColumn:30\n") != log.npos,
            level == '3');
    }
}

TEST(DumpState, EmptyStateAtEachLevel) {
    const std::string frame =
        "---STATE-START---\nTotal Meta Data Items : 0\n{lists}Breakpoint Methods List\n"
        "Entry Point Information\nBreakpoint Map\n---STATE-END---\n";
    const std::pair<const char*, std::string> cases[] = {
        {"1", ""},
        {"2", Fill(frame, {{"lists", ""}})},
        {"3", Fill(frame, {{"lists", "Deduplicated Files List\nDeduplicated Methods List\n"}})},
    };
    for (const auto& [level, expected] : cases) {
        DebuggerSession session(level);
        const size_t mark = session.LogMark();
        session.object.DumpState();
        EXPECT_EQ(session.LogSince(mark), expected) << level;
    }
}

// One item with one file and one method; an entry point with a stub, then a callback, under its
// hash; a breakpoint in its method. Every container holds one element, so the order is fixed.
TEST(DumpState, SmallKnownState) {
    JumpStubs stubs;
    DebuggerSession session("3");
    void* library = LoadProgrammable(session, kSparseLibrary);
    void* stub = stubs.MakeNative(0);
    session.object.RegisterEntryPoint(library, ToHash(kItem), kNative, stub, nullptr, nullptr);
    session.object.RegisterEntryPoint(library, ToHash(kItem), kNative, nullptr,
                                      reinterpret_cast<void*>(&HostCallback), Ptr(0xC0));
    session.record.breakpointNotify(1, session.FetchMethods()[0], 0, Ptr(-4096));
    const size_t mark = session.LogMark();
    session.object.DumpState();
    EXPECT_EQ(session.LogSince(mark),
              Fill("---STATE-START---\nTotal Meta Data Items : 1\n  Files:1 Methods:1\n"
                   "    Path : zero/Only.cs\n    Method : Num Sequences 2\n"
                   "Deduplicated Files List\n    Path : zero/Only.cs\nDeduplicated Methods List\n"
                   // the item's address runs straight into the method index
                   "    Hash : F0000000000000000100000000000000   {item}0\n"
                   "Breakpoint Methods List\n  Breakpoint : -4096\nEntry Point Information\n"
                   "  EntryHash F0000000000000000000000000000040\n"
                   "    Library {lib} Stub {stub} Cb 0\n    Library {lib} Stub 0 Cb {callback}\n"
                   "Breakpoint Map\n  EntryHash F0000000000000000000000000000040\n"
                   "    Breakpoint -4096\n---STATE-END---\n",
                   {{"item", PointerText(*session.Inspect().MetadataItems().begin())},
                    {"lib", PointerText(library)},
                    {"stub", PointerText(stub)},
                    {"callback", PointerText(reinterpret_cast<void*>(&HostCallback))}}));
}

}  // namespace
}  // namespace testing_support
