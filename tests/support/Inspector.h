#pragma once

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"

// Read-only (and, for unit tests of the switching logic, narrowly writable) access to the
// handling object's containers. Callers must not race with other users of the object.
class MonoDebuggerHandlingInspector {
  public:
    explicit MonoDebuggerHandlingInspector(MonoDebuggerHandling& object) : object(object) {}

    // Snapshots of the caches as plain containers: the distinct file names (sorted), the
    // answering (item, method index) of each method hash, and each hash's holders in order.
    std::vector<std::string> FileNames() const {
        std::vector<std::string> names;
        object.fileNames.ForEach([&](const char* name) { names.push_back(name); });
        std::sort(names.begin(), names.end());
        return names;
    }
    std::unordered_map<Hash128, std::pair<QuarnDebugMetadata*, int32_t>> HashToMetadata() const {
        std::unordered_map<Hash128, std::pair<QuarnDebugMetadata*, int32_t>> answers;
        for (const MethodIndex::Listed& listed : object.hashToMetadata.ListedMethods())
            answers.emplace(*listed.entry->key,
                            std::pair{listed.location.item, listed.location.methodIndex});
        return answers;
    }
    std::unordered_map<Hash128, std::vector<QuarnDebugMetadata*>> HashToMetadataList() const {
        std::unordered_map<Hash128, std::vector<QuarnDebugMetadata*>> lists;
        for (const MethodIndex::Listed& listed : object.hashToMetadata.ListedMethods())
            MethodIndex::ForEachHolder(*listed.entry, [&](const MethodLocation& holder) {
                lists[*listed.entry->key].push_back(holder.item);
            });
        return lists;
    }
    const FileNameIndex& Files() const { return object.fileNames; }
    const MethodIndex& Methods() const { return object.hashToMetadata; }
    const auto& BreakpointMap() const { return object.breakpointMap; }
    const auto& EntryPoints() const { return object.entryPoints; }
    const auto& MetadataItems() const { return object.metadataItems; }
    const auto& BreakpointMethods() const { return object.breakpointMethods; }
    const auto& MethodCache() const { return object.methodCache; }
    uint64_t MethodCacheGeneration() const { return object.methodCacheGeneration; }
    // Dropped items kept allocated because a current method handle may name them.
    size_t RetiredItemCount() const { return object.methodCache.RetiredItemCount(); }
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
