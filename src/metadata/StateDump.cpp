// The state dump: a snapshot of every item, cache, breakpoint and entry point, written to the
// log after loads, flush requests and breakpoint notifications.
#include "plugin/MonoDebuggerHandling.h"

using logfmt::Int;
using logfmt::Ptr;
using logfmt::ULong;

// Writes the whole debug state between "---STATE-START---" and "---STATE-END---". Runs
// under the lock for a consistent snapshot; the caller must not hold it. Every line is at level
// 2 or 3: below that nothing would be written, and nothing is walked either, so a load at level 1
// costs what it touches.
void MonoDebuggerHandling::DumpState() {
    if (!Logging() || !logWriter->Accepts(2)) {
        return;
    }
    MutexLock lock(mutex);
    Log(2, "---STATE-START---");
    DumpItems();
    DumpCaches();
    DumpBreakpointsAndEntryPoints();
    Log(2, "---STATE-END---");
}

void MonoDebuggerHandling::DumpItems() {
    Log(2, "Total Meta Data Items : ", ULong{metadataItems.size()});
    for (const QuarnDebugMetadata* item : metadataItems) {
        Log(2, "  Files:", Int{item->fileCount}, " Methods:", Int{item->methodCount});
        if (!logWriter->Accepts(3)) {
            continue;  // the item's own lines are all at level 3
        }
        for (int32_t f = 0; f < item->fileCount; ++f) {
            Log(3, "    Path : ", item->FileName(f));
        }
        for (int32_t k = 0; k < item->methodCount; ++k) {
            Log(3, "    Method : Num Sequences ", Int{item->methods[k].sequencePointCount});
        }
    }
}

void MonoDebuggerHandling::DumpCaches() {
    if (!logWriter->Accepts(3)) {
        return;  // every line is at level 3
    }
    Log(3, "Deduplicated Files List");
    fileNames.ForEach([&](const char* name) { Log(3, "    Path : ", name); });
    Log(3, "Deduplicated Methods List");
    for (const MethodIndex::Listed& listed : hashToMetadata.ListedMethods()) {
        // Address and index run together with no separator: readers of the dump expect it.
        Log(3, "    Hash : ", *listed.entry->key, "   ", Ptr(listed.location.item),
            Int{listed.location.methodIndex});
    }
}

void MonoDebuggerHandling::DumpBreakpointsAndEntryPoints() {
    Log(2, "Breakpoint Methods List");
    for (void* breakpoint : breakpointMethods) {
        Log(2, "  Breakpoint : ", Ptr(breakpoint));
    }
    Log(2, "Entry Point Information");
    for (const auto& [hash, list] : entryPoints) {
        Log(2, "  EntryHash ", hash);
        for (const EntryPoint& entry : list) {
            Log(2, "    Library ", Ptr(entry.library), " Stub ", Ptr(entry.stub), " Cb ",
                Ptr(reinterpret_cast<void*>(entry.callback)));
        }
    }
    Log(2, "Breakpoint Map");
    for (const auto& [hash, breakpoints] : breakpointMap) {
        Log(2, "  EntryHash ", hash);
        for (void* breakpoint : breakpoints) {
            Log(2, "    Breakpoint ", Ptr(breakpoint));
        }
    }
}
