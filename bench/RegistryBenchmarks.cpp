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

// The steps a benchmark prepares and measures, on a handling object and the loader handle of
// the benchmark's generated library.
void Nothing(MonoDebuggerHandling&, const generated::GeneratedLibrary&, void*) {}

void Load(MonoDebuggerHandling& handling, const generated::GeneratedLibrary&, void* library) {
    handling.ProcessLibraryMetadata(library);
}

// Loaded, with one entry point per item.
void LoadWithEntryPoints(MonoDebuggerHandling& handling, const generated::GeneratedLibrary& tables,
                         void* library) {
    handling.ProcessLibraryMetadata(library);
    RegisterEntryPoints(handling, tables, library);
}

void Unload(MonoDebuggerHandling& handling, const generated::GeneratedLibrary&, void* library) {
    handling.UnloadLibraryMetadata(library);
}

void Clear(MonoDebuggerHandling& handling, const generated::GeneratedLibrary&, void*) {
    handling.ClearLibraryMetadata();
}

using Step = void (*)(MonoDebuggerHandling&, const generated::GeneratedLibrary&, void*);

// Times `measured` on fresh handling objects set up by `prepare`, per method of the library.
void MeasureStep(benchmark::State& state, Step prepare, Step measured) {
    const auto& tables = Library(state);
    void* library = Serve(tables);
    OnFreshHandling(
        state, [&](MonoDebuggerHandling& handling) { prepare(handling, tables, library); },
        [&](MonoDebuggerHandling& handling) { measured(handling, tables, library); });
    state.counters["per_method"] = TimePer(tables.MethodCount());
}

void LibraryLoaded(benchmark::State& state) {
    MeasureStep(state, Nothing, Load);
}
// The same library loaded again: every item is replaced by its new copy.
void LibraryReloaded(benchmark::State& state) {
    MeasureStep(state, Load, Load);
}
void LibraryUnloaded(benchmark::State& state) {
    MeasureStep(state, LoadWithEntryPoints, Unload);
}
void ClearLibraryMetadata(benchmark::State& state) {
    MeasureStep(state, LoadWithEntryPoints, Clear);
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
    benchmark->Unit(benchmark::kMillisecond);
}

}  // namespace

BENCHMARK(LibraryLoaded)->Apply(LoadSizes);
BENCHMARK(LibraryReloaded)->Apply(LoadSizes);
BENCHMARK(LoadFloor)->Apply(LoadSizes);
BENCHMARK(LibraryUnloaded)->Arg(kReferenceSize)->Unit(benchmark::kMillisecond);
BENCHMARK(ClearLibraryMetadata)->Arg(kReferenceSize)->Unit(benchmark::kMillisecond);

}  // namespace bench
