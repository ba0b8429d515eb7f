// The debugger's queries through the callbacks record, the method handle rule, the state dump.

#include <set>
#include <sstream>

#include "support/Session.h"

namespace testing_support {
namespace {

// One item, one file, one method with two points that lists no file (its firstFile stays valid).
const int32_t kZero[] = {0}, kNoDigest[] = {-1};
const quarn_method_debug_info kMethods[] = {{2, 0, 0, 0}};
const quarn_sequence_point kPoints[] = {{0, 5, 1, 5, 9, 0}, {3, 6, 2, 6, 4, 0}};
const quarn_hash128 kHashes[] = {{0xF0, 1}}, kItem = {0xF0, 1ull << 62};
const quarn_debug_item kSparse = {
    1, 1, 1, kZero, kMethods, kZero, "zero/Only.cs", kPoints, kItem, kHashes, kNoDigest, nullptr};

const quarn_debug_library kSparseLibrary = {QUARN_DEBUG_FORMAT_VERSION, 1, &kSparse};

void* LoadSparse(DebuggerSession& session) {
    static const ProgrammableLibrary library(0);  // each test runs in a process of its own
    library.Describe(&kSparseLibrary);
    session.object.ProcessLibraryMetadata(library.Handle());
    return library.Handle();
}

// Fixture B knows src/Shared.cs and ./B/B1.cs: the path the debugger asks about, ignoreCase and
// the answer. The matching rules themselves are the file-matcher corpus, replayed against a
// model of them.
TEST(FileMatching, RuleTableAndLogLine) {
    const std::tuple<const char*, int, int> cases[] = {
        {"src\\Shared.cs", 0, 1},
        {"SRC/shared.cs", 0, 0},
        {"SRC\\SHARED.CS", -7, 1},  // any non-zero flag
        {"/p/b/b1.CS", 1, 1},
    };
    DebuggerSession session("1");
    session.Load("fixture_b");
    for (const auto& [path, ignoreCase, expected] : cases) {
        const size_t mark = session.LogMark();
        EXPECT_EQ(session.record.isFileQuarned(ignoreCase, path), expected) << path;
        EXPECT_EQ(session.LogSince(mark), "IsQuarned : " + std::to_string(ignoreCase) + " " + path +
                                              (expected ? " : TRUE\n" : " : FALSE\n"));
    }
}

// Fixtures A and B: four files and four methods. A second list renumbers from 0x06000001 under a
// new generation; the log lists each method in reply order with its index in its item (twice),
// its token and the generation. An empty list renews the generation too.
TEST(Lists, FilesMethodsAndHandleGenerations) {
    DebuggerSession session("3");
    session.Load("fixture_a"), session.Load("fixture_b");
    auto hashOf = [&](void* handle) {  // the zero hash when the hook rejects the handle
        mdh_hash128 hash{};
        session.record.testFetchMethodHash(handle, &hash);
        return ToHash(hash);
    };
    const std::vector<void*> first = session.FetchMethods();
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
    const std::vector<void*> second = methods.Methods();
    for (uint32_t token = 0x06000001; void* method : second) {
        const bool secondOfItem =
            hashOf(method) == kMethodA1Only || hashOf(method) == kMethodB1Only;
        expected += "        CacheEntry : " + std::string(secondOfItem ? "1 1 " : "0 0 ") +
                    std::to_string(token++) + " 18446744060824649730\n";
    }
    EXPECT_EQ(session.LogSince(mark), expected);
    for (void* stale : first)  // records are never freed, and never reissued
        EXPECT_EQ(std::count(second.begin(), second.end(), stale), 0);
    session.object.ClearLibraryMetadata();
    EXPECT_TRUE(session.FetchMethods().empty());
    EXPECT_EQ(session.Inspect().MethodCacheGeneration(), 0xFFFFFFFC00000003ull);
}

// A's shared method: Shared.cs (with a digest), A1.cs (without), three points, the last in A1.cs;
// A1Only is its item's second method. Below 2.13 the sparse method, which lists no file, still
// gets the file at its firstFile. Method info carries the list's token. An invalid handle gets no
// debug info and token 0; parameters and names are the same for every handle.
TEST(MethodQueries, RepliesAtEveryVersionBoundaryAndForInvalidHandles) {
    DebuggerSession session("3");
    session.Load("fixture_a");
    LoadSparse(session);
    const std::vector<void*> handles = session.FetchMethods();
    const auto debug = &mdh_callbacks::fetchDebugInfo, info = &mdh_callbacks::fetchMethodInfo;
    const std::string one = "100 'src/Shared.cs' 3 0 10 6 11 12 40",
                      points = "3 0 10 0 6 11 0 12 40 1";
    const std::string both =  // up to the second field of the first point
        "100 2 'src/Shared.cs' x000102030405060708090A0B0C0D0E0F "
        "'src/A1.cs' x00000000000000000000000000000000 3 0 10 0 ";
    void* shared = DebuggerSession::HandleOf(handles, kMethodShared);
    void* a1Only = DebuggerSession::HandleOf(handles, kMethodA1Only);
    void* sparse = DebuggerSession::HandleOf(handles, {0xF0, 1});
    const std::tuple<decltype(debug), void*, ClientVersion, std::string> cases[] = {
        {debug, shared, {0, 9, 9}, one},  // version not known
        {debug, shared, {1, 2, 12}, one},
        {debug, shared, {1, 2, 13}, "100 2 'src/Shared.cs' 'src/A1.cs' " + points},
        {debug, shared, {1, 2, 14}, both + "6 11 0 12 40 1"},
        {debug, shared, {1, 2, 19}, both + "5 6 11 0 9 12 40 1 1"},
        {debug, shared, {1, 2, 32}, both + "5 10 20 6 11 0 9 12 3 12 40 1 1 40 8"},
        {debug, shared, {-1, 3, 0}, both + "5 10 20 6 11 0 9 12 3 12 40 1 1 40 8"},
        {debug, a1Only, {1, 2, 12}, "100 'src/A1.cs' 1 0 7"},
        {debug, sparse, {1, 2, 12}, "100 'zero/Only.cs' 2 0 5 3 6"},
        {debug, sparse, {1, 2, 13}, "100 0 2 0 5 0 3 6 0"},
        {info, handles[0], {1, 2, 11}, "129 0 100663297"},  // the first token
        {info, handles[1], {1, 2, 12}, "129 0 100663298 x00 #0"},
        {info, handles[1], {1, 2, 15}, "129 0 100663298 x00 #0 0"},
        {debug, nullptr, {1, 3, 0}, "0 '' 0"},
        {info, nullptr, {1, 3, 0}, "129 0 0 x00 #0 0"},
        {&mdh_callbacks::fetchParamInfo, nullptr, {1, 3, 0}, "0 0 0 #1"},
        {&mdh_callbacks::fetchMethodName, nullptr, {1, 3, 0}, "''"},
    };
    for (const auto& [query, handle, v, expected] : cases)
        EXPECT_EQ(session.Ask(query, handle, v), expected) << v[0] << " " << v[1] << "." << v[2];
    // A digest is logged as 32 hex digits, byte 0 first. An invalid handle adds one line.
    EXPECT_NE(session.Log().find("  FILE: src/Shared.cs\n    HASH: 000102030405060708090A0B0C0D0E0F"
                                 "\n  FILE: src/A1.cs\n    HASH: Null\n  Sequence Points: \n"
                                 "    IL:0 StartLine:10\n    File:0\n    StartColumn:5\n"
                                 "    EndLine:10  EndColumn:20\n"),
              std::string::npos);
    const std::string ids = PointerText(&session.reply) + " 0\n";
    EXPECT_TRUE(session.Log().ends_with("FetchDebugInfo : " + ids + "    Method not valid\n" +
                                        "FetchMethodInfo : " + ids + "FetchParamInfo : " + ids +
                                        "FetchMethodName : " + ids));
}

// One item with one file and one method; an entry point with a stub and a callback under its
// hash; a breakpoint in its method. Every container holds one element, so the order is fixed.
// Each expected line starts with the lowest log level that writes it.
TEST(DumpState, QueryDetailsAndTheDumpAtEachLogLevel) {
    for (const char level : {'1', '2', '3'}) {
        JumpStubs stubs;
        DebuggerSession session(std::string(1, level).c_str());
        void* library = LoadSparse(session);
        void* stub = stubs.MakeNative(0);
        void* callback = reinterpret_cast<void*>(+[](void*, int32_t, void*) {});
        session.object.RegisterEntryPoint(library, ToHash(kItem), kNative, stub, callback, Ptr(1));
        void* method = session.FetchMethods()[0];
        session.record.breakpointNotify(1, method, 0, Ptr(-4096));
        const size_t mark = session.LogMark();
        session.Ask(&mdh_callbacks::fetchDebugInfo, method, {1, 2, 12});
        session.record.fetchFiles(&session.reply, 0, 0, 0, 0);
        session.object.DumpState();
        const std::string buffer = PointerText(&session.reply);
        std::istringstream lines(
            "1FetchDebugInfo : " + buffer + " " + PointerText(method) +
            "\n2METHOD DEBUG INFO TOKEN : 100663297\n2  FILE: zero/Only.cs\n"
            "3  Sequence Points: \n3    IL:0 StartLine:5\n3    IL:3 StartLine:6\n1FetchFiles : " +
            buffer +
            " 0 \n1    TotalFiles : 1\n3        Path : zero/Only.cs\n"
            "2---STATE-START---\n2Total Meta Data Items : 1\n2  Files:1 Methods:1\n"
            "3    Path : zero/Only.cs\n3    Method : Num Sequences 2\n"
            "3Deduplicated Files List\n3    Path : zero/Only.cs\n3Deduplicated Methods List\n"
            // the item's address runs straight into the method index
            "3    Hash : F0000000000000000100000000000000   " +
            PointerText(*session.Inspect().MetadataItems().begin()) +
            "0\n2Breakpoint Methods List\n2  Breakpoint : -4096\n2Entry Point Information\n"
            "2  EntryHash F0000000000000000000000000000040\n2    Library " +
            PointerText(library) + " Stub " + PointerText(stub) + " Cb " + PointerText(callback) +
            "\n2Breakpoint Map\n2  EntryHash F0000000000000000000000000000040\n"
            "2    Breakpoint -4096\n2---STATE-END---\n");
        std::string expected;
        for (std::string line; std::getline(lines, line);)
            expected += line[0] <= level ? line.substr(1) + "\n" : "";
        EXPECT_EQ(session.LogSince(mark), expected) << level;
    }
}

}  // namespace
}  // namespace testing_support
