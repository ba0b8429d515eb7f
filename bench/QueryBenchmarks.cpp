// The debugger's list and lookup queries with reply writers that do nothing, each against a
// floor that makes the same writer calls with nothing else.
#include <algorithm>
#include <random>

#include "BenchHandling.h"
#include "support/Inspector.h"

namespace bench {

namespace {

// Fetching method handles never frees the records it hands out (24 bytes per method and
// call, by design), so the fetch benchmarks run a fixed number of iterations.
constexpr benchmark::IterationCount kFetchIterations = 100;

std::unique_ptr<MonoDebuggerHandling> LoadedHandling(const generated::GeneratedLibrary& tables) {
    std::unique_ptr<MonoDebuggerHandling> handling = NewHandling();
    handling->ProcessLibraryMetadata(Serve(tables));
    return handling;
}

void FetchMethods(benchmark::State& state) {
    auto handling = LoadedHandling(LibraryOfSize(kReferenceSize));
    const CallbacksRecord& record = *handling->Callbacks();
    for (auto _ : state) {
        record.fetchMethods(nullptr, nullptr, 0, 0, 0, 0);
    }
    const size_t methods = MonoDebuggerHandlingInspector(*handling).HashToMetadata().size();
    state.counters["per_method"] = TimePer(static_cast<double>(methods));
}

// The writer calls alone; with `fresh_records` also what the design itself demands of every
// list: writing each record into memory never used before (handles are never freed or
// reused), which the kernel must map and zero page by page.
void FetchMethodsFloor(benchmark::State& state) {
    auto handling = LoadedHandling(LibraryOfSize(kReferenceSize));
    const CallbacksRecord& record = *handling->Callbacks();
    const size_t methods = MonoDebuggerHandlingInspector(*handling).HashToMetadata().size();
    const bool freshRecords = state.range(0) != 0;
    std::vector<MethodCacheEntry> reused(methods);
    for (auto _ : state) {
        MethodCacheEntry* entries =
            freshRecords ? static_cast<MethodCacheEntry*>(
                               ::operator new(methods * sizeof(MethodCacheEntry)))  // never freed
                         : reused.data();
        record.writeInt(nullptr, static_cast<int32_t>(methods));
        for (size_t i = 0; i < methods; ++i) {
            if (freshRecords) {
                entries[i] =
                    MethodCacheEntry{nullptr, 0, static_cast<int32_t>(i), static_cast<uint32_t>(i)};
            }
            record.writeMethodId(nullptr, nullptr, 0, &entries[i]);
        }
    }
    state.counters["per_method"] = TimePer(static_cast<double>(methods));
}

void FetchFiles(benchmark::State& state) {
    auto handling = LoadedHandling(LibraryOfSize(kReferenceSize));
    const CallbacksRecord& record = *handling->Callbacks();
    for (auto _ : state) {
        record.fetchFiles(nullptr, 0, 0, 0, 0);
    }
    const size_t files = MonoDebuggerHandlingInspector(*handling).FileNames().size();
    state.counters["per_file"] = TimePer(static_cast<double>(files));
    state.counters["files"] = static_cast<double>(files);
}

void FetchFilesFloor(benchmark::State& state) {
    auto handling = LoadedHandling(LibraryOfSize(kReferenceSize));
    const CallbacksRecord& record = *handling->Callbacks();
    const auto& fileNames = MonoDebuggerHandlingInspector(*handling).FileNames();
    const std::vector<std::string_view> names(fileNames.begin(), fileNames.end());
    for (auto _ : state) {
        record.writeInt(nullptr, static_cast<int32_t>(names.size()));
        for (std::string_view name : names) {
            record.writeString(nullptr, name.data());
        }
    }
    state.counters["per_file"] = TimePer(static_cast<double>(names.size()));
}

constexpr uint64_t kShuffleSeed = 7;

// Every optional part of the reply: files with digests, columns and end positions.
constexpr int kVersionKnown = 1;
constexpr int kMajorVersion = 2;
constexpr int kMinorVersion = 32;

// Calls `reply` once per iteration with the record and the next of all method handles, taken
// in a fixed random order: a debugger stepping through code asks about methods scattered over
// the libraries, not in the order of the method list.
template <class Reply>
void CycleThroughMethods(benchmark::State& state, Reply reply) {
    auto handling = LoadedHandling(LibraryOfSize(kReferenceSize));
    std::vector<void*> handles = FetchMethodHandles(*handling);
    std::shuffle(handles.begin(), handles.end(), std::mt19937_64(kShuffleSeed));
    const CallbacksRecord& record = *handling->Callbacks();
    size_t next = 0;
    for (auto _ : state) {
        reply(record, handles[next]);
        next = next + 1 == handles.size() ? 0 : next + 1;
    }
}

void FetchDebugInfo(benchmark::State& state) {
    CycleThroughMethods(state, [](const CallbacksRecord& record, void* handle) {
        record.fetchDebugInfo(nullptr, handle, kVersionKnown, kMajorVersion, kMinorVersion);
    });
}

// The writer calls of one reply at version 2.32, in the order the query makes them.
void WriteDebugInfoReply(const CallbacksRecord& record, const MethodCacheEntry& entry) {
    const QuarnDebugMetadata& item = *entry.metadata;
    const MethodDebugInfo& method = item.methods[entry.methodIndex];
    record.writeInt(nullptr, 100);
    record.writeInt(nullptr, method.fileCount);
    for (int32_t k = 0; k < method.fileCount; ++k) {
        const int32_t file = item.methodFileIndices[method.firstFile + k];
        record.writeString(nullptr, item.FileName(file));
        const int32_t digest = item.fileMD5Indices[file];
        for (int b = 0; b < 16; ++b) {
            record.writeByte(nullptr, digest < 0 ? 0 : item.md5Hashes[digest].bytes[b]);
        }
    }
    record.writeInt(nullptr, method.sequencePointCount);
    for (int32_t p = 0; p < method.sequencePointCount; ++p) {
        const SequencePoint& point = item.sequencePoints[method.firstSequencePoint + p];
        for (int32_t value : {point.ilOffset, point.startLine, point.file, point.startColumn,
                              point.endLine, point.endColumn}) {
            record.writeInt(nullptr, value);
        }
    }
}

void FetchDebugInfoFloor(benchmark::State& state) {
    CycleThroughMethods(state, [](const CallbacksRecord& record, void* handle) {
        WriteDebugInfoReply(record, *static_cast<const MethodCacheEntry*>(handle));
    });
}

// Paths that match no file: one with a directory part (compared in full) and a bare file name
// (compared with each base name). A walk over the whole set would compare every name.
constexpr const char* kMissingPaths[] = {"Assets/Scripts/Missing/Nowhere.cs", "Nowhere.cs"};
// The generated items average 75 methods over 7.5 files.
constexpr int64_t kMethodsPerDistinctFile = 10;

void IsFileQuarned(benchmark::State& state) {
    const auto methods = static_cast<int32_t>(state.range(0) * kMethodsPerDistinctFile);
    auto handling = LoadedHandling(LibraryWithDistinctFiles(methods));
    const CallbacksRecord& record = *handling->Callbacks();
    const char* path = kMissingPaths[state.range(1)];
    for (auto _ : state) {
        benchmark::DoNotOptimize(record.isFileQuarned(static_cast<int32_t>(state.range(2)), path));
    }
    const size_t files = MonoDebuggerHandlingInspector(*handling).FileNames().size();
    state.counters["files"] = static_cast<double>(files);
    state.counters["per_file"] = TimePer(static_cast<double>(files));
}

}  // namespace

BENCHMARK(FetchMethods)->Iterations(kFetchIterations)->Unit(benchmark::kMicrosecond);
BENCHMARK(FetchMethodsFloor)->ArgName("fresh_records")->Arg(0)->Unit(benchmark::kMicrosecond);
BENCHMARK(FetchMethodsFloor)
    ->ArgName("fresh_records")
    ->Arg(1)
    ->Iterations(kFetchIterations)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(FetchFiles)->Unit(benchmark::kMicrosecond);
BENCHMARK(FetchFilesFloor)->Unit(benchmark::kMicrosecond);
BENCHMARK(FetchDebugInfo);
BENCHMARK(FetchDebugInfoFloor);
BENCHMARK(IsFileQuarned)
    ->ArgsProduct({{100, 10000, 100000}, {0, 1}, {0, 1}})
    ->ArgNames({"files", "bare_name", "ignore_case"})
    ->Unit(benchmark::kMicrosecond);

}  // namespace bench
