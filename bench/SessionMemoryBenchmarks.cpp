// Resident memory over a long debugging session: the debugger lists every method again after
// each knowledge flush, and the host reloads libraries as their code is recompiled.
#include <unistd.h>

#include <cstdio>

#include "BenchHandling.h"
#include "metadata/HandleArena.h"

namespace bench {

namespace {

constexpr int kRounds = 1000;

// Resident bytes of the process (second field of /proc/self/statm, in pages).
double ResidentMegabytes() {
    long pages = 0, resident = 0;
    if (FILE* statm = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(statm, "%ld %ld", &pages, &resident) != 2) {
            resident = 0;
        }
        std::fclose(statm);
    }
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
}

// 2000 items of 50 methods, loaded, one method list fetched; then `round` repeated kRounds
// times. Reports how far resident memory and the handle arena grew beyond the first list.
template <class Round>
void MeasureGrowth(benchmark::State& state, Round round) {
    const generated::GeneratedLibrary& tables = LibraryOfSize(kReferenceSize);
    void* library = Serve(tables);
    for (auto _ : state) {
        auto handling = NewHandling();
        handling->ProcessLibraryMetadata(library);
        FetchMethodHandles(*handling);
        const double before = ResidentMegabytes();
        const size_t arenaBefore = HandleArena::Instance().HeldBytes();
        for (int i = 0; i < kRounds; ++i) {
            round(*handling, library);
        }
        state.counters["rss_growth_MB"] = ResidentMegabytes() - before;
        state.counters["arena_growth_MB"] =
            (static_cast<double>(HandleArena::Instance().HeldBytes()) -
             static_cast<double>(arenaBefore)) /
            1e6;
    }
    state.counters["rounds"] = kRounds;
}

void ResidentAfterMethodLists(benchmark::State& state) {
    MeasureGrowth(state,
                  [](MonoDebuggerHandling& handling, void*) { FetchMethodHandles(handling); });
}

void ResidentAfterReloads(benchmark::State& state) {
    MeasureGrowth(state, [](MonoDebuggerHandling& handling, void* library) {
        handling.ProcessLibraryMetadata(library);
    });
}

}  // namespace

BENCHMARK(ResidentAfterMethodLists)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(ResidentAfterReloads)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace bench
