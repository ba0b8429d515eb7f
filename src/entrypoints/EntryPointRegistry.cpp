#include "plugin/MonoDebuggerHandling.h"

using logfmt::Ptr;

void MonoDebuggerHandling::RegisterEntryPoint(void* library, Hash128 entryHash, void* native,
                                              void* stub, void* callback, void* callbackContext) {
    Log(1, "RegisterEntryPoint : ", Ptr(library), " ", entryHash, " - Native ", Ptr(native));
    std::lock_guard<std::mutex> lock(mutex);
    // No duplicate check: registering twice yields two records, both switched from then on.
    std::vector<EntryPoint>& records = entryPoints[entryHash];
    const size_t previousCount = records.size();
    try {
        records.push_back(EntryPoint{library, stub, reinterpret_cast<EntryPointCallback>(callback),
                                     native, callbackContext});
        // Brings old and new records into the state the breakpoints demand.
        EnableDisableQuarnJobFunctionPointer(entryHash);
    } catch (...) {
        // All or nothing (a log line can fail to allocate): no record and no empty key stay
        // behind, so the host's retry registers the entry point once. Switching already done
        // stays, as the breakpoints demand it and reconciling again leaves it alone.
        records.resize(previousCount);
        if (records.empty()) {
            entryPoints.erase(entryHash);
        }
        throw;
    }
}

// Removes every entry point of the library (without switching it back), erasing emptied keys.
void MonoDebuggerHandling::RemoveEntryPointsOfLibrary(void* libraryHandle) {
    for (auto it = entryPoints.begin(); it != entryPoints.end();) {
        std::erase_if(it->second, [&](const EntryPoint& entry) {
            if (entry.library != libraryHandle) {
                return false;
            }
            // Names the library, not the entry point: every line of one unload carries it.
            Log(1, "  Unregistering Entry Point : ", Ptr(libraryHandle), " Hash ", it->first);
            return true;
        });
        it = it->second.empty() ? entryPoints.erase(it) : std::next(it);
    }
}
