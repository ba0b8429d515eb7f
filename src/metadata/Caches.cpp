#include "metadata/BucketTouch.h"
#include "plugin/MonoDebuggerHandling.h"

namespace {

// Sum of one count over all items, wrapping like the 32-bit total it is logged as.
template <class Items, class Count>
int32_t WrappingTotal(const Items& items, Count count) {
    uint32_t total = 0;
    for (const QuarnDebugMetadata* item : items) {
        total += static_cast<uint32_t>(count(*item));
    }
    return static_cast<int32_t>(total);
}

// A negative total (counts below zero from a broken library) reserves nothing instead of
// turning into a huge unsigned size.
size_t ReserveSize(int32_t total) {
    return total > 0 ? static_cast<size_t>(total) : 0;
}

}  // namespace

void MonoDebuggerHandling::RebuildCaches() {
    BuildFilesCache();
    BuildMethodsCache();
    // The rebuilt caches no longer reach the retired items: the next method list may free them.
    releasableItems.insert(releasableItems.end(), retiredItems.begin(), retiredItems.end());
    retiredItems.clear();
}

void MonoDebuggerHandling::BuildFilesCache() {
    fileNames.clear();
    const int32_t total =
        WrappingTotal(metadataItems, [](const QuarnDebugMetadata& item) { return item.fileCount; });
    fileNames.reserve(ReserveSize(total));
    for (const QuarnDebugMetadata* item : metadataItems) {
        for (int32_t f = 0; f < item->fileCount; ++f) {
            fileNames.emplace(item->FileName(f));  // the first equal name is kept
        }
    }
    Log(1, "FilesCached : ", logfmt::Int{total}, " vs ", logfmt::ULong{fileNames.size()});
}

void MonoDebuggerHandling::BuildMethodsCache() {
    hashToMetadata.clear();
    methodLocations.clear();
    const int32_t total = WrappingTotal(
        metadataItems, [](const QuarnDebugMetadata& item) { return item.methodCount; });
    hashToMetadata.reserve(ReserveSize(total));
    methodLocations.reserve(ReserveSize(total));
    for (QuarnDebugMetadata* item : metadataItems) {
        TouchBuckets(hashToMetadata, item->methodHashes, item->methodCount);
        for (int32_t k = 0; k < item->methodCount; ++k) {
            // The first item in iteration order, and its lowest index, wins.
            if (hashToMetadata.try_emplace(item->methodHashes[k], item, k).second) {
                methodLocations.emplace_back(item, k);
            }
        }
    }
    Log(1, "MethodsCached : ", logfmt::Int{total}, " vs ", logfmt::ULong{hashToMetadata.size()});
}
