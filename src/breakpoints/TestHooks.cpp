#include "plugin/MonoDebuggerHandling.h"

// Read-only hooks through which a test on the debugger side checks the bookkeeping. Each
// holds the lock for its whole body and writes nothing on failure.

int MonoDebuggerHandling::TestFetchEntryPointHash(void* method, Hash128* result) {
    std::lock_guard<std::mutex> lock(mutex);
    MethodCacheEntry* entry;
    QuarnDebugMetadata* item;
    if (!MethodPtrToMethodCacheEntry(method, entry, item)) {
        return 0;
    }
    *result = item->hash;
    return 1;
}

int MonoDebuggerHandling::TestFetchMethodHash(void* method, Hash128* result) {
    std::lock_guard<std::mutex> lock(mutex);
    MethodCacheEntry* entry;
    QuarnDebugMetadata* item;
    if (!MethodPtrToMethodCacheEntry(method, entry, item)) {
        return 0;
    }
    *result = item->methodHashes[entry->methodIndex];
    return 1;
}

int MonoDebuggerHandling::TestBreakpointSet(Hash128* entryHash) {
    std::lock_guard<std::mutex> lock(mutex);
    return breakpointMap.contains(*entryHash) ? 1 : 0;
}

uint32_t MonoDebuggerHandling::TestFetchEntryPointCountForHash(Hash128* entryHash) {
    std::lock_guard<std::mutex> lock(mutex);
    const auto found = entryPoints.find(*entryHash);
    return found == entryPoints.end() ? 0 : static_cast<uint32_t>(found->second.size());
}
