// Heap held per loaded method (registry, caches and item records), counted through the
// replaced global operator new and delete, and the heap of one batch of method handles.
#include "BenchHandling.h"
#include "HeapCounter.h"
#include "support/Inspector.h"

namespace bench {

namespace {

void HeapPerLoadedMethod(benchmark::State& state) {
    const auto& tables = LibraryOfSize(static_cast<int32_t>(state.range(0)));
    void* library = Serve(tables);
    HeapUsage load;
    HeapUsage handles;
    size_t distinctMethods = 0;
    for (auto _ : state) {
        std::unique_ptr<MonoDebuggerHandling> handling = NewHandling();
        HeapCounter::Start();
        handling->ProcessLibraryMetadata(library);
        load = HeapCounter::Stop();
        HeapCounter::Start();
        handling->Callbacks()->fetchMethods(nullptr, nullptr, 0, 0, 0, 0);
        handles = HeapCounter::Stop();
        distinctMethods = MonoDebuggerHandlingInspector(*handling).HashToMetadata().size();
    }
    const double methods = tables.MethodCount();
    state.counters["heap_bytes_per_method"] = static_cast<double>(load.bytes) / methods;
    state.counters["heap_blocks_per_method"] = static_cast<double>(load.blocks) / methods;
    state.counters["handle_bytes_per_distinct_method"] =
        static_cast<double>(handles.bytes) / static_cast<double>(distinctMethods);
    state.counters["distinct_share"] = static_cast<double>(distinctMethods) / methods;
}

}  // namespace

BENCHMARK(HeapPerLoadedMethod)
    ->Arg(10000)
    ->Arg(kReferenceSize)
    ->Arg(1000000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

}  // namespace bench
