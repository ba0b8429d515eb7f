// Read-only hooks through which a test on the debugger side checks the bookkeeping. Each
// holds the lock for its whole body and writes nothing on failure.
#include "plugin/MonoDebuggerHandling.h"

// Copies the hash that `read` picks from a valid handle's entry and item, under the lock;
// returns 0 and leaves `result` alone for an invalid handle.
int MonoDebuggerHandling::CopyHashOfHandle(void* method, Hash128* result, HandleHashReader read) {
    MutexLock lock(mutex);
    MethodCacheEntry* entry;
    QuarnDebugMetadata* item;
    if (!MethodPtrToMethodCacheEntry(method, entry, item)) {
        return 0;
    }
    *result = read(*entry, *item);
    return 1;
}

int MonoDebuggerHandling::TestFetchEntryPointHash(void* method, Hash128* result) {
    return CopyHashOfHandle(
        method, result,
        [](const MethodCacheEntry&, const QuarnDebugMetadata& item) { return item.hash; });
}

int MonoDebuggerHandling::TestFetchMethodHash(void* method, Hash128* result) {
    return CopyHashOfHandle(method, result,
                            [](const MethodCacheEntry& entry, const QuarnDebugMetadata& item) {
                                return item.methodHashes[entry.methodIndex];
                            });
}

int MonoDebuggerHandling::TestBreakpointSet(Hash128* entryHash) {
    MutexLock lock(mutex);
    return breakpointMap.contains(*entryHash) ? 1 : 0;
}

uint32_t MonoDebuggerHandling::TestFetchEntryPointCountForHash(Hash128* entryHash) {
    MutexLock lock(mutex);
    const auto found = entryPoints.find(*entryHash);
    return found == entryPoints.end() ? 0 : static_cast<uint32_t>(found->second.size());
}
