#include <benchmark/benchmark.h>

#include <cstdlib>

// Every figure is taken with logging off, as a debugging session runs without the log.
int main(int argc, char** argv) {
    unsetenv("ORVEL_QUARN_DEBUG");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
