// The debugger side's breakpoint notifications: which entry points a set or removed breakpoint
// switches to managed code and back.
#include "plugin/MonoDebuggerHandling.h"

using logfmt::Ptr;

void MonoDebuggerHandling::QuarnBreakpointNotify(int isSet, void* method, int64_t /*unused*/,
                                                 void* breakpoint) {
    Log(1, "QuarnBreakpointNotify : Incoming Breakpoint ", isSet != 0 ? "SET " : "REMOVE ",
        Ptr(method), " ", Ptr(breakpoint));
    if (isSet != 0) {
        {
            MutexLock lock(mutex);
            MethodCacheEntry* entry;
            QuarnDebugMetadata* item;
            if (!MethodPtrToMethodCacheEntry(method, entry, item)) {
                return;  // stale or foreign handle: ignored, no dump
            }
            Log(1, "QuarnBreakpointNotify : Add Breakpoint ", Ptr(method), " ", Ptr(breakpoint));
            const Hash128 methodHash = item->methodHashes[entry->methodIndex];
            breakpointMethods.insert(breakpoint);
            AddBreakpointForEntryPoints(nullptr, methodHash, breakpoint);
        }
        DumpState();
        return;
    }
    {
        MutexLock lock(mutex);
        if (breakpointMethods.contains(breakpoint)) {
            Log(1, "QuarnBreakpointNotify : Remove Breakpoint ", Ptr(breakpoint));
            RemoveBreakpointForEntryPoints(breakpoint);
            breakpointMethods.erase(breakpoint);
        }
    }
    DumpState();  // also after an unknown handle
}

// Records the breakpoint against every item (entry point) that holds the method; an entry
// point that gets its first breakpoint is switched to managed execution.
void MonoDebuggerHandling::AddBreakpointForEntryPoints(void* /*unused*/, const Hash128& methodHash,
                                                       void* breakpoint) {
    Log(1, "    MethodHash : ", methodHash);
    const MethodIndexEntry* holders = hashToMetadata.Find(methodHash);
    if (holders == nullptr) {
        return;
    }
    std::vector<Hash128> entryHashes;  // the holders' item hashes, in registration order
    MethodIndex::ForEachHolder(
        *holders, [&](const MethodLocation& holder) { entryHashes.push_back(holder.item->hash); });
    for (const Hash128& entryHash : entryHashes) {
        auto existing = breakpointMap.find(entryHash);
        Log(1, "        EntryPointHash : ", entryHash);
        if (existing != breakpointMap.end()) {
            existing->second.insert(breakpoint);  // already managed
            continue;
        }
        breakpointMap.emplace(entryHash, std::unordered_set<void*>{breakpoint});
        EnableDisableQuarnJobFunctionPointer(entryHash);
    }
}

// Scans every entry point's breakpoints; the breakpoint handle alone says what to undo. An
// entry point that loses its last breakpoint is switched back to native code.
void MonoDebuggerHandling::RemoveBreakpointForEntryPoints(void* breakpoint) {
    for (auto it = breakpointMap.begin(); it != breakpointMap.end();) {
        if (it->second.erase(breakpoint) == 0 || !it->second.empty()) {
            ++it;
            continue;
        }
        const Hash128 entryHash = it->first;
        it = breakpointMap.erase(it);
        EnableDisableQuarnJobFunctionPointer(entryHash);
    }
}
