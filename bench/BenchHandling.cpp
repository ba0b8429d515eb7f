#include "BenchHandling.h"

#include <map>

#include "ProgrammableLibrary.h"

namespace bench {

namespace {

// Reply writers of a debugger side that discards everything.
void WriteByte(void*, uint8_t) {}
void WriteInt(void*, int32_t) {}
void WriteId(void*, int32_t) {}
void WriteString(void*, const char*) {}
void WriteMethodId(void*, void*, int32_t, void*) {}
void SwitchNothing(void*, int32_t, void*) {}

std::vector<void*>* capturedHandles = nullptr;
void CaptureMethodId(void*, void*, int32_t, void* method) {
    capturedHandles->push_back(method);
}

const generated::GeneratedLibrary& Cached(std::map<int32_t, generated::GeneratedLibrary>& cache,
                                          generated::LibraryShape shape) {
    auto found = cache.find(shape.methodCount);
    if (found == cache.end()) {
        found = cache.try_emplace(shape.methodCount, shape).first;
    }
    return found->second;
}

}  // namespace

const generated::GeneratedLibrary& LibraryOfSize(int32_t methods) {
    static std::map<int32_t, generated::GeneratedLibrary> cache;
    return Cached(cache, generated::LibraryShape{.methodCount = methods});
}

const generated::GeneratedLibrary& LibraryWithDistinctFiles(int32_t methods) {
    static std::map<int32_t, generated::GeneratedLibrary> cache;
    return Cached(cache, generated::LibraryShape{.methodCount = methods, .sharedFileShare = 0});
}

void* Serve(const generated::GeneratedLibrary& tables) {
    static const ProgrammableLibrary library(0);
    library.Describe(tables.Description());
    return library.Handle();
}

std::unique_ptr<MonoDebuggerHandling> NewHandling() {
    auto handling = std::make_unique<MonoDebuggerHandling>("/tmp/Placeholder.dll");
    CallbacksRecord& record = *handling->Callbacks();
    record.writeByte = WriteByte;
    record.writeInt = WriteInt;
    record.writeId = WriteId;
    record.writeString = WriteString;
    record.writeMethodId = WriteMethodId;
    return handling;
}

void RegisterEntryPoints(MonoDebuggerHandling& handling, const generated::GeneratedLibrary& tables,
                         void* library) {
    for (const quarn_debug_item& item : tables.Items()) {
        handling.RegisterEntryPoint(library, Hash128{item.hash.word0, item.hash.word1}, nullptr,
                                    nullptr, reinterpret_cast<void*>(SwitchNothing), nullptr);
    }
}

std::vector<void*> FetchMethodHandles(MonoDebuggerHandling& handling) {
    std::vector<void*> handles;
    CallbacksRecord& record = *handling.Callbacks();
    capturedHandles = &handles;
    record.writeMethodId = CaptureMethodId;
    record.fetchMethods(nullptr, nullptr, 0, 0, 0, 0);
    record.writeMethodId = WriteMethodId;
    capturedHandles = nullptr;
    return handles;
}

benchmark::Counter TimePer(double count) {
    return benchmark::Counter(
        count, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

}  // namespace bench
