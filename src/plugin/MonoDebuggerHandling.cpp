// Life of the handling object: construction (callbacks record, trampolines, command string, log),
// destruction and shut-down.
#include "plugin/MonoDebuggerHandling.h"

#include <cstdlib>
#include <cstring>

#include "plugin/Constants.h"

namespace {

constexpr size_t kCodeBufferSize = 4096;
// Generation 0 in the low half, its complement in the high half.
constexpr uint64_t kInitialMethodCacheGeneration = 0xFFFFFFFF00000000ull;

std::string BuildDebuggerEnableCommand(const void* callbacksRecord, const std::string& path) {
    return logfmt::Concat(compilerCommandInitialiseDebuggerCommand, " |CB|",
                          logfmt::ULong{reinterpret_cast<uintptr_t>(callbacksRecord)}, "|CB||AM|",
                          path, "|AM||NM|", Constants::PlaceholderNamespace, "|NM||TP|",
                          Constants::PlaceholderType, "|TP|");
}

// The one log writer of a handling object. Never destroyed (the log stays open until the
// process ends); kept out of line so leak reports can name this allocation alone.
[[gnu::noinline]] DebugLogWriter* CreateDebugLogWriter(const char* levelText) {
    return new DebugLogWriter(static_cast<int>(std::strtol(levelText, nullptr, 10)),
                              Constants::DebugLogName);
}

}  // namespace

MonoDebuggerHandling::MonoDebuggerHandling(std::string placeholderAssemblyPath) {
    callbacks = static_cast<CallbacksRecord*>(::operator new(sizeof(CallbacksRecord)));
    std::memset(static_cast<void*>(callbacks), 0, sizeof(CallbacksRecord));
    debuggerEnableCommand = BuildDebuggerEnableCommand(callbacks, placeholderAssemblyPath);
    jitBuffer = new JITBuffer(kCodeBufferSize);
    trampoline = new Trampoline<MonoDebuggerHandling>(jitBuffer, this);
    if (const char* level = std::getenv(kDebugLevelVariable); level != nullptr) {
        logWriter = CreateDebugLogWriter(level);
        Log(1, "Setting up Callbacks");
    }
    GenerateCallbackTrampolines();
    methodCacheGeneration = kInitialMethodCacheGeneration;
}

MonoDebuggerHandling::~MonoDebuggerHandling() {
    ::operator delete(callbacks);
    delete trampoline;
    delete jitBuffer;  // unmaps the trampolines: Mono must not call them any more
    // The records are owned here; nothing can reach them once the object is gone. Retired
    // records go with `methodCache`.
    for (QuarnDebugMetadata* item : metadataItems) {
        delete item;
    }
    // logWriter is deliberately not destroyed: the log stays open until the process ends.
}

void MonoDebuggerHandling::Shutdown() {
    if (callbacks->shutdownNotify != nullptr) {
        callbacks->shutdownNotify();
    }
    callbacks->flushClientKnowledge = nullptr;
}
