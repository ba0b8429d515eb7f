// Registering compiled entry points and forgetting a library's ones (register_entry,
// library_unloaded), touching only the entry hashes that library registered under.
#include <algorithm>

#include "plugin/MonoDebuggerHandling.h"

using logfmt::Ptr;

// All or nothing: if an allocation (or a host callback) fails, the new record is taken out
// again before the exception leaves, so a retry registers it exactly once.
void MonoDebuggerHandling::RegisterEntryPoint(void* library, Hash128 entryHash, void* native,
                                              void* stub, void* callback, void* callbackContext) {
    Log(1, "RegisterEntryPoint : ", Ptr(library), " ", entryHash, " - Native ", Ptr(native));
    MutexLock lock(mutex);
    std::vector<EntryPoint>& list = entryPoints[entryHash];
    bool appended = false;
    try {
        // No duplicate check: registering twice yields two records, both switched from then on.
        list.push_back(EntryPoint{library, stub, reinterpret_cast<EntryPointCallback>(callback),
                                  native, callbackContext});
        appended = true;
        libraries.AddEntryHash(library, entryHash);
        // Brings old and new records into the state the breakpoints demand.
        EnableDisableQuarnJobFunctionPointer(entryHash);
    } catch (...) {
        if (appended) {
            list.pop_back();
        }
        if (list.empty()) {
            entryPoints.erase(entryHash);
        }
        throw;
    }
}

// Removes every entry point of the library (without switching it back), erasing emptied keys.
// Only the entry hashes the library registered under are visited; within each, the records are
// removed (and logged) in registration order.
void MonoDebuggerHandling::RemoveEntryPointsOfLibrary(void* libraryHandle) {
    LibraryIndex::Contents* contents = libraries.Find(libraryHandle);
    if (contents == nullptr) {
        return;
    }
    while (!contents->entryHashes.empty()) {
        const Hash128 entryHash = *contents->entryHashes.begin();
        if (auto list = entryPoints.find(entryHash); list != entryPoints.end()) {
            RemoveEntryPoints(list->second, libraryHandle, entryHash);
            if (list->second.empty()) {
                entryPoints.erase(list);
            }
        }
        contents->entryHashes.erase(contents->entryHashes.begin());
    }
    libraries.Erase(libraryHandle);
}

// Logs, then removes, the records of one entry hash that belong to the library. The lines come
// first so that a log line that cannot be written leaves the list untouched.
void MonoDebuggerHandling::RemoveEntryPoints(std::vector<EntryPoint>& list, void* libraryHandle,
                                             const Hash128& entryHash) {
    const auto ofLibrary = [&](const EntryPoint& entry) { return entry.library == libraryHandle; };
    for (size_t n = std::ranges::count_if(list, ofLibrary); n > 0; --n) {
        // Names the library, not the entry point: every line of one unload carries it.
        Log(1, "  Unregistering Entry Point : ", Ptr(libraryHandle), " Hash ", entryHash);
    }
    std::erase_if(list, ofLibrary);
}
