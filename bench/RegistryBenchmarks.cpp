// library_loaded, its reload, library_unloaded and clear_library_metadata on generated
// libraries, and the floor a load can approach: inserting the same method hashes into one
// reserved hashed map.
#include <unordered_map>

#include "BenchHandling.h"

namespace bench {

namespace {

const generated::GeneratedLibrary& Library(const benchmark::State& state) {
    return LibraryOfSize(static_cast<int32_t>(state.range(0)));
}

void LibraryLoaded(benchmark::State& state) {
    const auto& tables = Library(state);
    void* library = Serve(tables);
    OnFreshHandling(
        state, [](MonoDebuggerHandling&) {},
        [&](MonoDebuggerHandling& handling) { handling.ProcessLibraryMetadata(library); });
    state.counters["per_method"] = TimePer(tables.MethodCount());
}

// The same library loaded again: every item is replaced by its new copy.
void LibraryReloaded(benchmark::State& state) {
    const auto& tables = Library(state);
    void* library = Serve(tables);
    OnFreshHandling(
        state, [&](MonoDebuggerHandling& handling) { handling.ProcessLibraryMetadata(library); },
        [&](MonoDebuggerHandling& handling) { handling.ProcessLibraryMetadata(library); });
    state.counters["per_method"] = TimePer(tables.MethodCount());
}

// A loaded library with one entry point per item.
void PrepareLoadedWithEntryPoints(MonoDebuggerHandling& handling,
                                  const generated::GeneratedLibrary& tables, void* library) {
    handling.ProcessLibraryMetadata(library);
    RegisterEntryPoints(handling, tables, library);
}

void LibraryUnloaded(benchmark::State& state) {
    const auto& tables = Library(state);
    void* library = Serve(tables);
    OnFreshHandling(
        state,
        [&](MonoDebuggerHandling& handling) {
            PrepareLoadedWithEntryPoints(handling, tables, library);
        },
        [&](MonoDebuggerHandling& handling) { handling.UnloadLibraryMetadata(library); });
    state.counters["per_method"] = TimePer(tables.MethodCount());
}

void ClearLibraryMetadata(benchmark::State& state) {
    const auto& tables = Library(state);
    void* library = Serve(tables);
    OnFreshHandling(
        state,
        [&](MonoDebuggerHandling& handling) {
            PrepareLoadedWithEntryPoints(handling, tables, library);
        },
        [](MonoDebuggerHandling& handling) { handling.ClearLibraryMetadata(); });
    state.counters["per_method"] = TimePer(tables.MethodCount());
}

// The bound of this design: one reserved map keyed by the method hashes, with the hash every
// Hash128-keyed container uses and a value as large as a method cache entry's.
void LoadFloor(benchmark::State& state) {
    const auto& tables = Library(state);
    const std::vector<quarn_hash128> hashes = tables.AllMethodHashes();
    using FloorMap = std::unordered_map<Hash128, std::pair<const void*, int32_t>>;
    for (auto _ : state) {
        auto map = std::make_unique<FloorMap>();
        map->reserve(hashes.size());
        int32_t index = 0;
        for (const quarn_hash128& hash : hashes) {
            map->try_emplace(Hash128{hash.word0, hash.word1}, &tables, index++);
        }
        benchmark::DoNotOptimize(map->size());
        state.PauseTiming();
        map.reset();
        state.ResumeTiming();
    }
    state.counters["per_method"] = TimePer(tables.MethodCount());
}

void LoadSizes(benchmark::internal::Benchmark* benchmark) {
    for (int64_t size : kLoadSizes) {
        benchmark->Arg(size);
    }
    benchmark->Unit(benchmark::kMillisecond)->UseRealTime();
}

}  // namespace

BENCHMARK(LibraryLoaded)->Apply(LoadSizes);
BENCHMARK(LibraryReloaded)->Apply(LoadSizes);
BENCHMARK(LoadFloor)->Apply(LoadSizes);
BENCHMARK(LibraryUnloaded)->Arg(kReferenceSize)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(ClearLibraryMetadata)->Arg(kReferenceSize)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace bench
