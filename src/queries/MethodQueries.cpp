// fetchMethods, which issues a fresh generation of method handles, and the check that a handle
// the debugger passes back belongs to the current one.
#include "plugin/MonoDebuggerHandling.h"

using logfmt::Int;
using logfmt::Ptr;

namespace {
// One 64-bit addition: the counter (low half) goes up by one, its complement down by one.
constexpr uint64_t kGenerationStep = 0xFFFFFFFF00000001ull;
// MethodDef table (0x06), row 1.
constexpr uint32_t kFirstMethodToken = 0x06000001;
}  // namespace

void MonoDebuggerHandling::QuarnFetchMethods(void* buffer, void* idContext, int idArgument, int,
                                             int, int) {
    Log(1, "FetchMethods : ", Ptr(buffer), " ", Ptr(idContext), " ", Int{idArgument});
    MutexLock lock(mutex);
    const auto count = static_cast<int32_t>(hashToMetadata.size());
    Log(1, "    Total Methods : ", Int{count});
    // Every older handle is stale from here on; their pages go back to the system and the
    // dropped items they could name are freed. Done first: if no address space is left it
    // throws before anything changed, and the previous list stays valid.
    methodCache.RenewHandles(hashToMetadata.size());
    methodCacheGeneration += kGenerationStep;
    callbacks->writeInt(buffer, count);
    for (const MethodIndex::Listed& listed : hashToMetadata.ListedMethods()) {
        const MethodLocation& location = listed.location;
        const auto token = static_cast<uint32_t>(kFirstMethodToken + methodCache.HandleCount());
        MethodCacheEntry* entry = methodCache.AddHandle(
            {location.item, methodCacheGeneration, location.methodIndex, token});
        // The index is printed twice: readers of the log expect this line's four fields.
        Log(3, "        CacheEntry : ", Int{location.methodIndex}, " ", Int{location.methodIndex},
            " ", Int{static_cast<int32_t>(token)}, " ", logfmt::ULong{methodCacheGeneration});
        callbacks->writeMethodId(buffer, idContext, idArgument, entry);
    }
}

bool MonoDebuggerHandling::MethodPtrToMethodCacheEntry(void* method, MethodCacheEntry*& entry,
                                                       QuarnDebugMetadata*& metadata) {
    entry = static_cast<MethodCacheEntry*>(method);
    if (!methodCache.IsCurrentHandle(method)) {
        return false;  // not dereferenced before this test passes
    }
    if (entry->generation != methodCacheGeneration) {
        return false;
    }
    metadata = entry->metadata;
    return metadataItems.contains(metadata);
}
