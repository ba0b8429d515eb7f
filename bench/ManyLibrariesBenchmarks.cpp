// A host's session: thousands of small compiled libraries loaded one at a time, one of them
// reloaded, then unloaded. Each library is a distinct copy of the programmable fixture, opened
// with dlopen and serving generated tables of two items of 50 methods.
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <numeric>
#include <random>
#include <stdexcept>

#include "BenchHandling.h"
#include "GeneratedLibrary.h"

namespace bench {

namespace {

constexpr int kFleetSize = 4002;  // the last one serves the combined tables
constexpr int kMethodsPerLibrary = 100;

// `count` distinct compiled libraries, each serving its own generated tables.
class LibraryFleet {
  public:
    explicit LibraryFleet(int count) : directory(MakeDirectory()) {
        const std::filesystem::path source =
            std::filesystem::path(MDH_COMPILED_DIR) / "libfixture_programmable_0.so";
        for (int i = 0; i < count; ++i) {
            const auto copy = directory / ("libfleet_" + std::to_string(i) + ".so");
            std::filesystem::copy_file(source, copy);
            void* handle = dlopen(copy.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle == nullptr) {
                throw std::runtime_error(dlerror());
            }
            auto program = reinterpret_cast<void (*)(const quarn_debug_library*)>(
                dlsym(handle, "programmable_set_library"));
            tables.push_back(std::make_unique<generated::GeneratedLibrary>(
                generated::LibraryShape{.methodCount = kMethodsPerLibrary,
                                        .seed = static_cast<uint64_t>(i) + 1,
                                        .methodsPerItem = {50, 50}}));
            program(tables.back()->Description());
            handles.push_back(handle);
        }
        std::filesystem::remove_all(directory);  // the opened copies stay mapped
        for (const auto& library : tables) {
            allItems.insert(allItems.end(), library->Items().begin(), library->Items().end());
        }
        combined = {QUARN_DEBUG_FORMAT_VERSION, allItems.size(), allItems.data()};
    }

    void* Handle(int i) const { return handles[static_cast<size_t>(i)]; }
    // Every item of the first `count` libraries, described as one library.
    const quarn_debug_library* Combined(int count) {
        combined.itemCount = static_cast<uint64_t>(count) * tables.front()->Items().size();
        return &combined;
    }
    int32_t MethodsOf(int count) const { return count * kMethodsPerLibrary; }

  private:
    static std::filesystem::path MakeDirectory() {
        auto path =
            std::filesystem::temp_directory_path() / ("mdh_fleet_" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        return path;
    }

    std::filesystem::path directory;
    std::vector<std::unique_ptr<generated::GeneratedLibrary>> tables;
    std::vector<void*> handles;  // never closed: the process ends with the benchmarks
    std::vector<quarn_debug_item> allItems;
    quarn_debug_library combined{};
};

LibraryFleet& Fleet() {
    static LibraryFleet fleet(kFleetSize);
    return fleet;
}

// A handling object with the first `count` libraries of the fleet loaded one by one.
std::unique_ptr<MonoDebuggerHandling> WithLibraries(int count) {
    std::unique_ptr<MonoDebuggerHandling> handling = NewHandling();
    for (int i = 0; i < count; ++i) {
        handling->ProcessLibraryMetadata(Fleet().Handle(i));
    }
    return handling;
}

using Step = void (MonoDebuggerHandling::*)(void*);

// Among `loaded` libraries, per iteration: `timed` on the library `pick` chooses, then `undo` on
// it with the timer paused, so that every iteration starts from the same registry.
template <class Pick>
void TimedThenUndone(benchmark::State& state, Pick pick, Step timed, Step undo) {
    const auto loaded = static_cast<int>(state.range(0));
    auto handling = WithLibraries(loaded);
    for (auto _ : state) {
        void* library = Fleet().Handle(pick(loaded));
        (handling.get()->*timed)(library);
        state.PauseTiming();
        (handling.get()->*undo)(library);
        state.ResumeTiming();
    }
    state.counters["per_method"] = TimePer(kMethodsPerLibrary);
}

// One more library loaded into a handle that holds `loaded` others.
void LoadAmong(benchmark::State& state) {
    TimedThenUndone(
        state, [](int loaded) { return loaded; }, &MonoDebuggerHandling::ProcessLibraryMetadata,
        &MonoDebuggerHandling::UnloadLibraryMetadata);
}

// A random one of `loaded` libraries unloaded.
void UnloadAmong(benchmark::State& state) {
    std::mt19937 random(3);
    TimedThenUndone(
        state,
        [&](int loaded) { return std::uniform_int_distribution<int>(0, loaded - 1)(random); },
        &MonoDebuggerHandling::UnloadLibraryMetadata,
        &MonoDebuggerHandling::ProcessLibraryMetadata);
}

// One of `loaded` libraries loaded again: each of its items replaces its earlier copy.
void ReloadAmong(benchmark::State& state) {
    const auto loaded = static_cast<int>(state.range(0));
    auto handling = WithLibraries(loaded);
    void* library = Fleet().Handle(loaded / 2);
    for (auto _ : state) {
        handling->ProcessLibraryMetadata(library);
    }
    state.counters["per_method"] = TimePer(kMethodsPerLibrary);
}

// The first `count` libraries loaded one by one into a fresh handle.
void LoadOneByOne(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    Fleet();  // made and opened before anything is timed
    OnFreshHandling(
        state, [](MonoDebuggerHandling&) {},
        [&](MonoDebuggerHandling& handling) {
            for (int i = 0; i < count; ++i) {
                handling.ProcessLibraryMetadata(Fleet().Handle(i));
            }
        });
    state.counters["per_method"] = TimePer(Fleet().MethodsOf(count));
}

// The same items served as one library and loaded at once.
void LoadAsOneLibrary(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    Fleet();  // made and opened before anything is timed
    void* library = Fleet().Handle(kFleetSize - 1);
    auto program = reinterpret_cast<void (*)(const quarn_debug_library*)>(
        dlsym(library, "programmable_set_library"));
    program(Fleet().Combined(count));
    OnFreshHandling(
        state, [](MonoDebuggerHandling&) {},
        [&](MonoDebuggerHandling& handling) { handling.ProcessLibraryMetadata(library); });
    state.counters["per_method"] = TimePer(Fleet().MethodsOf(count));
}

// Microseconds `call` takes.
template <class Call>
double Microseconds(Call call) {
    const auto start = std::chrono::steady_clock::now();
    call();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
        .count();
}

double MeanOf(const std::vector<double>& values, size_t from, size_t to) {
    return std::accumulate(values.begin() + from, values.begin() + to, 0.0) / double(to - from);
}

// The host's session as a whole: `count` libraries loaded one by one, one of them reloaded,
// then all unloaded in a shuffled order. Reports the mean load and unload of the first and the
// last tenth of the calls, the reload and the whole of the loads.
void HostSession(benchmark::State& state) {
    const auto count = static_cast<int>(state.range(0));
    const size_t tenth = static_cast<size_t>(count) / 10;
    Fleet();  // the libraries are made and opened before anything is timed
    for (auto _ : state) {
        auto handling = NewHandling();
        std::vector<double> loads, unloads;
        for (int i = 0; i < count; ++i) {
            loads.push_back(
                Microseconds([&] { handling->ProcessLibraryMetadata(Fleet().Handle(i)); }));
        }
        const double reload =
            Microseconds([&] { handling->ProcessLibraryMetadata(Fleet().Handle(count / 2)); });
        std::vector<int> order(static_cast<size_t>(count));
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), std::mt19937(5));
        for (int i : order) {
            unloads.push_back(
                Microseconds([&] { handling->UnloadLibraryMetadata(Fleet().Handle(i)); }));
        }
        state.counters["load_all_ms"] = std::accumulate(loads.begin(), loads.end(), 0.0) / 1e3;
        state.counters["load_first_tenth_us"] = MeanOf(loads, 0, tenth);
        state.counters["load_last_tenth_us"] = MeanOf(loads, loads.size() - tenth, loads.size());
        state.counters["unload_first_tenth_us"] = MeanOf(unloads, 0, tenth);
        state.counters["unload_last_tenth_us"] =
            MeanOf(unloads, unloads.size() - tenth, unloads.size());
        state.counters["reload_us"] = reload;
    }
}

// Libraries already loaded when one more is loaded or one of them unloaded (0: load only).
void AmongLoaded(benchmark::internal::Benchmark* benchmark, bool withNone) {
    benchmark->ArgName("loaded");
    for (int64_t loaded : {0, 10, 100, 1000, 4000}) {
        if (loaded != 0 || withNone) {
            benchmark->Arg(loaded);
        }
    }
    benchmark->Iterations(200)->Unit(benchmark::kMicrosecond);
}

}  // namespace

BENCHMARK(HostSession)
    ->ArgName("libraries")
    ->Arg(2000)
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(LoadAmong)->Apply([](auto* benchmark) { AmongLoaded(benchmark, true); });
BENCHMARK(UnloadAmong)->Apply([](auto* benchmark) { AmongLoaded(benchmark, false); });
BENCHMARK(ReloadAmong)->ArgName("loaded")->Arg(1)->Arg(2000)->Unit(benchmark::kMicrosecond);
BENCHMARK(LoadOneByOne)
    ->ArgName("libraries")
    ->Arg(2000)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(LoadAsOneLibrary)
    ->ArgName("libraries")
    ->Arg(2000)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

}  // namespace bench
