// Loading, unloading and clearing compiled libraries' items. Each change costs the items and
// entry points it adds or removes: the caches and indexes are updated, never rebuilt.
#include <exception>
#include <memory>
#include <utility>

#include "metadata/DebugQuery.h"
#include "plugin/MonoDebuggerHandling.h"

using logfmt::Ptr;

namespace {

// Runs `undo` when the scope is left by an exception: each step of a registration that has
// been done is undone if a later one fails, so a failed call changes nothing.
template <class Undo>
class UndoOnThrow {
  public:
    explicit UndoOnThrow(Undo undo) : undo(undo) {}
    ~UndoOnThrow() {
        if (std::uncaught_exceptions() > exceptions) {
            undo();
        }
    }
    UndoOnThrow(const UndoOnThrow&) = delete;
    UndoOnThrow& operator=(const UndoOnThrow&) = delete;

  private:
    Undo undo;
    int exceptions = std::uncaught_exceptions();
};

}  // namespace

void MonoDebuggerHandling::ProcessLibraryMetadata(void* libraryHandle) {
    Log(1, "ProcessLibraryMetadata : ", Ptr(libraryHandle));
    DebugQueryReader reader;
    if (!reader.Open(libraryHandle)) {
        return;
    }
    bool added = false;
    for (int32_t item = 1; item <= reader.ItemCount(); ++item) {
        std::unique_ptr<QuarnDebugMetadata> record(reader.ReadItem(item));
        if (record == nullptr) {
            continue;
        }
        // Locked once per item, so debugger queries can run between items.
        MutexLock lock(mutex);
        hashToMetadata.ExpectMore(record->methodCount, reader.ItemCount() - item + 1);
        RegisterItem(record.get());
        record.release();  // owned by metadataItems now
        added = true;
    }
    {
        MutexLock lock(mutex);
        LogCacheTotals();
    }
    if (added) {
        RequestFlushClientDebuggerKnowledge();
    }
}

void MonoDebuggerHandling::UnloadLibraryMetadata(void* libraryHandle) {
    Log(1, "UnloadLibraryMetadata : ", Ptr(libraryHandle));
    MutexLock lock(mutex);
    LibraryIndex::Contents* contents = libraries.Find(libraryHandle);
    while (contents != nullptr && !contents->items.empty()) {
        QuarnDebugMetadata* item = *contents->items.begin();
        metadataItems.erase(item);
        DropItem(item);  // may forget the library's contents once they are empty
        contents = libraries.Find(libraryHandle);
    }
    RemoveEntryPointsOfLibrary(libraryHandle);
    LogCacheTotals();
}

void MonoDebuggerHandling::ClearLibraryMetadata() {
    Log(1, "ClearLibraryMetadata");
    MutexLock lock(mutex);
    for (QuarnDebugMetadata* item : metadataItems) {
        methodCache.Dropped(item);
    }
    metadataItems.clear();
    itemByHash.clear();
    entryPoints.clear();
    libraries.Clear();
    fileNames.Clear();
    hashToMetadata.Clear();
    LogCacheTotals();
}

// Adds the item to every index, then drops the registered item with its hash (from whatever
// library) if there is one. If an allocation fails, the steps done are undone and the registry
// is as it was.
void MonoDebuggerHandling::RegisterItem(QuarnDebugMetadata* item) {
    fileNames.Add(*item);
    UndoOnThrow undoFiles([&]() REQUIRES(mutex) { fileNames.Remove(*item); });
    hashToMetadata.Add(*item);
    UndoOnThrow undoMethods([&]() REQUIRES(mutex) { hashToMetadata.Remove(*item); });
    libraries.AddItem(item);
    UndoOnThrow undoLibrary([&]() REQUIRES(mutex) { libraries.RemoveItem(item); });
    metadataItems.insert(item);
    UndoOnThrow undoItems([&]() REQUIRES(mutex) { metadataItems.erase(item); });
    auto [slot, inserted] = itemByHash.try_emplace(item->hash, item);
    // Nothing below throws.
    methodCache.Registered(*item);
    if (!inserted) {
        QuarnDebugMetadata* replaced = std::exchange(slot->second, item);
        metadataItems.erase(replaced);
        DropItem(replaced);
    }
}

// Removes an item already erased from `metadataItems` from every index, using only what we
// keep of it (never its library's memory), and hands its record over to be freed or retired.
void MonoDebuggerHandling::DropItem(QuarnDebugMetadata* item) noexcept {
    fileNames.Remove(*item);
    hashToMetadata.Remove(*item);
    libraries.RemoveItem(item);
    if (auto found = itemByHash.find(item->hash);
        found != itemByHash.end() && found->second == item) {
        itemByHash.erase(found);
    }
    methodCache.Dropped(item);
}

// The totals over the registered items, and how many distinct names and methods they make.
void MonoDebuggerHandling::LogCacheTotals() {
    Log(1, "FilesCached : ", logfmt::Int{fileNames.Total()}, " vs ",
        logfmt::ULong{fileNames.size()});
    Log(1, "MethodsCached : ", logfmt::Int{hashToMetadata.Total()}, " vs ",
        logfmt::ULong{hashToMetadata.size()});
}
