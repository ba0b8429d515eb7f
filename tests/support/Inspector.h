#pragma once

#include "plugin/MonoDebuggerHandling.h"

// Read-only (and, for unit tests of the switching logic, narrowly writable) access to the
// handling object's containers. Callers must not race with other users of the object.
class MonoDebuggerHandlingInspector {
  public:
    explicit MonoDebuggerHandlingInspector(MonoDebuggerHandling& object) : object(object) {}

    const auto& FileNames() const { return object.fileNames; }
    const auto& HashToMetadata() const { return object.hashToMetadata; }
    const auto& HashToMetadataList() const { return object.hashToMetadataList; }
    const auto& BreakpointMap() const { return object.breakpointMap; }
    const auto& EntryPoints() const { return object.entryPoints; }
    const auto& MetadataItems() const { return object.metadataItems; }
    const auto& BreakpointMethods() const { return object.breakpointMethods; }
    const auto& MethodCache() const { return object.methodCache; }
    uint64_t MethodCacheGeneration() const { return object.methodCacheGeneration; }
    // Dropped items not yet freed (retired since the last cache rebuild, or releasable).
    size_t RetiredItemCount() const {
        return object.retiredItems.size() + object.releasableItems.size();
    }
    JITBuffer* Buffer() const { return object.jitBuffer; }
    Trampoline<MonoDebuggerHandling>* TrampolineGenerator() const { return object.trampoline; }
    DebugLogWriter* LogWriter() const { return object.logWriter; }

    // Unit tests of execution switching put keys into the breakpoint map directly, then run
    // the reconciliation with the lock held, as its callers do.
    void AddBreakpointKey(const Hash128& entryHash, void* breakpoint) {
        object.breakpointMap[entryHash].insert(breakpoint);
    }
    void EraseBreakpointKey(const Hash128& entryHash) { object.breakpointMap.erase(entryHash); }
    void Reconcile(const Hash128& entryHash) {
        std::lock_guard<std::mutex> lock(object.mutex);
        object.EnableDisableQuarnJobFunctionPointer(entryHash);
    }
    std::mutex& Mutex() { return object.mutex; }

  private:
    MonoDebuggerHandling& object;
};
