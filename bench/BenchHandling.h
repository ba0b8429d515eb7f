#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "GeneratedLibrary.h"
#include "plugin/MonoDebuggerHandling.h"

namespace bench {

// Method counts of the size series (first load, reload, floor and the plot).
inline const std::vector<int64_t> kLoadSizes = {10000,  20000,  50000,  100000,
                                                200000, 500000, 1000000};
inline constexpr int32_t kReferenceSize = 100000;

// A generated library of the default shape with `methods` methods, made once per size.
const generated::GeneratedLibrary& LibraryOfSize(int32_t methods);
// A generated library of `methods` methods whose file names are all distinct.
const generated::GeneratedLibrary& LibraryWithDistinctFiles(int32_t methods);

// Serves `tables` through the programmable compiled library and returns its loader handle.
void* Serve(const generated::GeneratedLibrary& tables);

// A handling object with logging off and reply writers that do nothing (called through the
// record, as the debugger side calls them).
std::unique_ptr<MonoDebuggerHandling> NewHandling();

// Registers one entry point per kept item of `tables`, with a callback that does nothing.
void RegisterEntryPoints(MonoDebuggerHandling& handling, const generated::GeneratedLibrary& tables,
                         void* library);

// The method handles a QuarnFetchMethods hands out.
std::vector<void*> FetchMethodHandles(MonoDebuggerHandling& handling);

// Reports `count` things done per iteration as the time per thing ("per_method" and so on).
benchmark::Counter TimePer(double count);

// Runs `measured` once per iteration on a fresh handling object prepared by `prepare` with
// the timer paused; the object is destroyed with the timer paused too.
template <class Prepare, class Measured>
void OnFreshHandling(benchmark::State& state, Prepare prepare, Measured measured) {
    for (auto _ : state) {
        state.PauseTiming();
        std::unique_ptr<MonoDebuggerHandling> handling = NewHandling();
        prepare(*handling);
        state.ResumeTiming();
        measured(*handling);
        state.PauseTiming();
        handling.reset();
        state.ResumeTiming();
    }
}

}  // namespace bench
