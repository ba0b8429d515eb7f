#include "metadata/MethodHandleBatch.h"

#include <new>

void MethodHandleBatch::Renew(size_t count) {
    used = 0;
    // Never freed: see the class comment. An empty list allocates nothing.
    records =
        count == 0
            ? nullptr
            : static_cast<MethodCacheEntry*>(::operator new(count * sizeof(MethodCacheEntry)));
}

bool MethodHandleBatch::Contains(const void* handle) const {
    const auto address = reinterpret_cast<uintptr_t>(handle);
    const auto first = reinterpret_cast<uintptr_t>(records);
    if (records == nullptr || address < first) {
        return false;
    }
    const uintptr_t offset = address - first;
    return offset / sizeof(MethodCacheEntry) < used && offset % sizeof(MethodCacheEntry) == 0;
}
