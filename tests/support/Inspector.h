#pragma once

#include <algorithm>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "plugin/MonoDebuggerHandling.h"

// Read-only (and, for unit tests of the switching logic, narrowly writable) access to the
// handling object's containers. Callers must not race with other users of the object: the
// members that read or write without the lock are exempt from the thread-safety analysis.
class MonoDebuggerHandlingInspector {
  public:
    explicit MonoDebuggerHandlingInspector(MonoDebuggerHandling& object) : object(object) {}

    // Snapshots of the caches as plain containers: the distinct file names (sorted), the
    // answering (item, method index) of each method hash, and each hash's holders in order.
    std::vector<std::string> FileNames() const NO_THREAD_SAFETY_ANALYSIS {
        std::vector<std::string> names;
        object.fileNames.ForEach([&](const char* name) { names.push_back(name); });
        std::sort(names.begin(), names.end());
        return names;
    }
    std::unordered_map<Hash128, std::pair<QuarnDebugMetadata*, int32_t>> HashToMetadata() const
        NO_THREAD_SAFETY_ANALYSIS {
        std::unordered_map<Hash128, std::pair<QuarnDebugMetadata*, int32_t>> answers;
        for (const MethodIndex::Listed& listed : object.hashToMetadata.ListedMethods())
            answers.emplace(*listed.entry->key,
                            std::pair{listed.location.item, listed.location.methodIndex});
        return answers;
    }
    std::unordered_map<Hash128, std::vector<QuarnDebugMetadata*>> HashToMetadataList() const
        NO_THREAD_SAFETY_ANALYSIS {
        std::unordered_map<Hash128, std::vector<QuarnDebugMetadata*>> lists;
        for (const MethodIndex::Listed& listed : object.hashToMetadata.ListedMethods())
            MethodIndex::ForEachHolder(*listed.entry, [&](const MethodLocation& holder) {
                lists[*listed.entry->key].push_back(holder.item);
            });
        return lists;
    }
    const FileNameIndex& Files() const NO_THREAD_SAFETY_ANALYSIS { return object.fileNames; }
    const MethodIndex& Methods() const NO_THREAD_SAFETY_ANALYSIS { return object.hashToMetadata; }
    const auto& BreakpointMap() const NO_THREAD_SAFETY_ANALYSIS { return object.breakpointMap; }
    const auto& EntryPoints() const NO_THREAD_SAFETY_ANALYSIS { return object.entryPoints; }
    const auto& MetadataItems() const NO_THREAD_SAFETY_ANALYSIS { return object.metadataItems; }
    const auto& BreakpointMethods() const NO_THREAD_SAFETY_ANALYSIS {
        return object.breakpointMethods;
    }
    uint64_t MethodCacheGeneration() const NO_THREAD_SAFETY_ANALYSIS {
        return object.methodCacheGeneration;
    }
    // Dropped items kept allocated because a current method handle may name them.
    size_t RetiredItemCount() const NO_THREAD_SAFETY_ANALYSIS {
        return object.methodCache.RetiredItemCount();
    }
    JITBuffer* Buffer() const { return object.jitBuffer; }
    DebugLogWriter* LogWriter() const { return object.logWriter; }

    // Unit tests of execution switching put keys into the breakpoint map directly, then run
    // the reconciliation with the lock held, as its callers do.
    void AddBreakpointKey(const Hash128& entryHash, void* breakpoint) NO_THREAD_SAFETY_ANALYSIS {
        object.breakpointMap[entryHash].insert(breakpoint);
    }
    void EraseBreakpointKey(const Hash128& entryHash) NO_THREAD_SAFETY_ANALYSIS {
        object.breakpointMap.erase(entryHash);
    }
    void Reconcile(const Hash128& entryHash) {
        MutexLock lock(object.mutex);
        object.EnableDisableQuarnJobFunctionPointer(entryHash);
    }
    Mutex& ObjectMutex() { return object.mutex; }

  private:
    MonoDebuggerHandling& object;
};
