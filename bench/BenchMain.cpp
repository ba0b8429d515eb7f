#include <benchmark/benchmark.h>

#include <cstdlib>

// Figures are taken with logging off, as a debugging session runs without the log;
// MDH_BENCH_LOG_LEVEL=N takes them with the log at level N (written under ./Logs).
int main(int argc, char** argv) {
    if (const char* level = std::getenv("MDH_BENCH_LOG_LEVEL"); level != nullptr) {
        setenv("ORVEL_QUARN_DEBUG", level, 1);
    } else {
        unsetenv("ORVEL_QUARN_DEBUG");
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
