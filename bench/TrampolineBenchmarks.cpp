// A call through the callbacks record (the generated trampoline) against a direct call of the
// C-level wrapper it forwards to, for the empty QuarnFinishSetup with logging off.
#include "BenchHandling.h"

namespace bench {

namespace {

void TrampolineCall(benchmark::State& state) {
    auto handling = NewHandling();
    void (*slot)() = handling->Callbacks()->finishSetup;
    for (auto _ : state) {
        benchmark::DoNotOptimize(slot);  // an indirect call the compiler cannot see through
        slot();
    }
}

void DirectWrapperCall(benchmark::State& state) {
    auto handling = NewHandling();
    void (*wrapper)(MonoDebuggerHandling*) = &MonoDebuggerHandling::CQuarnFinishSetup;
    MonoDebuggerHandling* self = handling.get();
    for (auto _ : state) {
        benchmark::DoNotOptimize(wrapper);
        benchmark::DoNotOptimize(self);
        wrapper(self);
    }
}

}  // namespace

BENCHMARK(TrampolineCall);
BENCHMARK(DirectWrapperCall);

}  // namespace bench
