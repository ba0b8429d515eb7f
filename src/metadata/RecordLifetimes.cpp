// Freeing and retiring item records, issuing handle batches (rules in RecordLifetimes.h).
#include "metadata/RecordLifetimes.h"

#include <utility>

RecordLifetimes::~RecordLifetimes() {
    FreeRetiredItems();
    HandleArena::Instance().Release(batch);
}

void RecordLifetimes::Dropped(QuarnDebugMetadata* item) noexcept {
    if (item->registeredInBatch == batchSerial) {
        delete item;  // registered after the current batch was issued: no handle names it
        return;
    }
    item->ForgetIndexEntries();  // only the address has to stay taken
    item->nextRetired = retired;
    retired = item;
    ++retiredCount;
}

void RecordLifetimes::RenewHandles(size_t count) {
    const HandleArena::Range fresh =
        count == 0 ? HandleArena::Range{}
                   : HandleArena::Instance().Acquire(count * sizeof(MethodCacheEntry));
    HandleArena::Instance().Release(batch);
    batch = fresh;
    batchStart = static_cast<MethodCacheEntry*>(fresh.start);
    batchUsed = 0;
    ++batchSerial;
    FreeRetiredItems();
}

bool RecordLifetimes::IsCurrentHandle(const void* handle) const {
    const auto address = reinterpret_cast<uintptr_t>(handle);
    const auto first = reinterpret_cast<uintptr_t>(batchStart);
    if (batchStart == nullptr || address < first) {
        return false;
    }
    const uintptr_t offset = address - first;
    return offset / sizeof(MethodCacheEntry) < batchUsed && offset % sizeof(MethodCacheEntry) == 0;
}

void RecordLifetimes::FreeRetiredItems() noexcept {
    while (retired != nullptr) {
        delete std::exchange(retired, retired->nextRetired);
    }
    retiredCount = 0;
}
