#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "entrypoints/EntryPoint.h"
#include "metadata/Hash128.h"
#include "metadata/MethodHandleBatch.h"
#include "metadata/QuarnDebugMetadata.h"
#include "mono_debugger_handling.h"
#include "plugin/DebugLogWriter.h"
#include "plugin/LogFormat.h"
#include "trampoline/JITBuffer.h"
#include "trampoline/Trampoline.h"

struct ProtocolVersion;

// The callbacks record shared with the debugger side (layout pinned in the public header).
using CallbacksRecord = mdh_callbacks;

// The one object behind a host handle. Member functions live in the directory of their
// subsystem: plugin/ (lifecycle), trampoline/ (C-level wrappers), metadata/ (registry, caches,
// state dump), entrypoints/, breakpoints/, queries/.
//
// Locking: `mutex` guards every container below it and `methodCacheGeneration`. Public entry
// points write their first log line, then lock. Members marked "caller holds mutex" never lock.
// DumpState and RequestFlushClientDebuggerKnowledge must be called with the mutex released.
class MonoDebuggerHandling {
  public:
    explicit MonoDebuggerHandling(std::string placeholderAssemblyPath);
    ~MonoDebuggerHandling();
    MonoDebuggerHandling(const MonoDebuggerHandling&) = delete;
    MonoDebuggerHandling& operator=(const MonoDebuggerHandling&) = delete;

    // ---- plugin/ ----
    const char* FetchDebuggerEnableCommand() const { return debuggerEnableCommand.c_str(); }
    void Shutdown();
    CallbacksRecord* Callbacks() const { return callbacks; }

    // ---- metadata/ (locks) ----
    void ProcessLibraryMetadata(void* libraryHandle);
    void UnloadLibraryMetadata(void* libraryHandle);
    void ClearLibraryMetadata();
    void DumpState();

    // ---- entrypoints/ ----
    void RegisterEntryPoint(void* library, Hash128 entryHash, void* native, void* stub,
                            void* callback, void* callbackContext);  // locks
    void QuarnFinishSetup();                                         // no lock
    void EnableDisableQuarnJobFunctionPointer(Hash128 entryHash);    // caller holds mutex

    // ---- breakpoints/ ----
    void QuarnBreakpointNotify(int isSet, void* method, int64_t unused, void* breakpoint);
    void AddBreakpointForEntryPoints(void* unused, const Hash128& methodHash,
                                     void* breakpoint);            // caller holds mutex
    void RemoveBreakpointForEntryPoints(void* breakpoint);         // caller holds mutex
    void RequestFlushClientDebuggerKnowledge();                    // mutex released
    int TestFetchEntryPointHash(void* method, Hash128* result);    // locks
    int TestFetchMethodHash(void* method, Hash128* result);        // locks
    int TestBreakpointSet(Hash128* entryHash);                     // locks
    uint32_t TestFetchEntryPointCountForHash(Hash128* entryHash);  // locks

    // ---- queries/ ----
    int QuarnIsFileQuarned(int ignoreCase, const char* path);               // locks
    void QuarnFetchFiles(void* buffer, unsigned int value, int, int, int);  // locks
    void QuarnFetchMethods(void* buffer, void* idContext, int idArgument, int, int, int);
    void QuarnFetchDebugInfo(void* buffer, void* method, int versionKnown, int majorVersion,
                             int minorVersion);  // locks
    void QuarnFetchMethodInfo(void* buffer, void* method, int versionKnown, int majorVersion,
                              int minorVersion);                           // locks
    void QuarnFetchParamInfo(void* buffer, void* method, int, int, int);   // no lock
    void QuarnFetchMethodName(void* buffer, void* method, int, int, int);  // no lock
    // The one rule that turns a method handle back into its entry and item. Caller holds mutex.
    bool MethodPtrToMethodCacheEntry(void* method, MethodCacheEntry*& entry,
                                     QuarnDebugMetadata*& metadata);
    void LogMD5Hash(int level, const char* prefix, const unsigned char* digest);

    // ---- trampoline/: C-level wrappers the trampolines call, the object inserted first ----
    static void CQuarnFinishSetup(MonoDebuggerHandling* self);
    static int CQuarnIsFileQuarned(MonoDebuggerHandling* self, int ignoreCase, const char* path);
    static void CQuarnFetchFiles(MonoDebuggerHandling* self, void* buffer, unsigned int value,
                                 int a, int b, int c);
    static void CQuarnFetchMethods(MonoDebuggerHandling* self, void* buffer, void* idContext,
                                   int idArgument, int a, int b, int c);
    static void CQuarnFetchDebugInfo(MonoDebuggerHandling* self, void* buffer, void* method,
                                     int versionKnown, int majorVersion, int minorVersion);
    static void CQuarnFetchMethodInfo(MonoDebuggerHandling* self, void* buffer, void* method,
                                      int versionKnown, int majorVersion, int minorVersion);
    static void CQuarnFetchParamInfo(MonoDebuggerHandling* self, void* buffer, void* method,
                                     int versionKnown, int majorVersion, int minorVersion);
    static void CQuarnFetchMethodName(MonoDebuggerHandling* self, void* buffer, void* method,
                                      int versionKnown, int majorVersion, int minorVersion);
    static void CQuarnBreakpointNotify(MonoDebuggerHandling* self, int isSet, void* method,
                                       int64_t unused, void* breakpoint);
    static int CTestFetchEntryPointHash(MonoDebuggerHandling* self, void* method, Hash128* result);
    static int CTestFetchMethodHash(MonoDebuggerHandling* self, void* method, Hash128* result);
    static int CTestBreakpointSet(MonoDebuggerHandling* self, Hash128* entryHash);
    static uint32_t CTestFetchEntryPointCountForHash(MonoDebuggerHandling* self,
                                                     Hash128* entryHash);

  private:
    friend class MonoDebuggerHandlingInspector;  // read-only access for unit tests

    using ItemList = std::vector<QuarnDebugMetadata*>;
    using MethodLocation = std::pair<QuarnDebugMetadata*, int32_t>;  // item, method index

    // ---- trampoline/ ----
    void GenerateCallbackTrampolines();

    // ---- metadata/ (caller holds mutex) ----
    void RegisterItem(QuarnDebugMetadata* item);
    void DropItem(QuarnDebugMetadata* item);
    void AddCacheEntry(const QuarnDebugMetadata* item);
    void RemoveCacheEntry(const QuarnDebugMetadata* item);
    void ReplaceCacheEntry(const QuarnDebugMetadata* replaced, const QuarnDebugMetadata* added);
    void BuildFilesCache();
    void BuildMethodsCache();
    void RebuildCaches();
    void FreeReleasableItems();
    void FreeRetiredItems();
    void DumpItems();
    void DumpCaches();
    void DumpBreakpointsAndEntryPoints();

    // ---- breakpoints/ ----
    using HandleHashReader = Hash128 (*)(const MethodCacheEntry&, const QuarnDebugMetadata&);
    int CopyHashOfHandle(void* method, Hash128* result, HandleHashReader read);  // locks

    // ---- entrypoints/ (caller holds mutex) ----
    void RemoveEntryPointsOfLibrary(void* libraryHandle);
    void SwitchStub(const EntryPoint& entry, bool managed);

    // ---- queries/ (caller holds mutex) ----
    void WriteDebugInfoFiles(void* buffer, const QuarnDebugMetadata& item,
                             const MethodDebugInfo& method, const ProtocolVersion& version);
    void WriteSequencePoints(void* buffer, const QuarnDebugMetadata& item,
                             const MethodDebugInfo& method, const ProtocolVersion& version);

    // Writes one log line built from `pieces`; nothing is formatted when the line would not
    // be written.
    template <class... Pieces>
    void Log(int level, const Pieces&... pieces) {
        if (logWriter == nullptr || !logWriter->Accepts(level)) {
            return;
        }
        logWriter->Log(level, logfmt::Concat(pieces...));
    }
    bool Logging() const { return logWriter != nullptr; }

    CallbacksRecord* callbacks = nullptr;                    // owned, 160 bytes
    std::string debuggerEnableCommand;                       // fixed after construction
    Trampoline<MonoDebuggerHandling>* trampoline = nullptr;  // owned
    JITBuffer* jitBuffer = nullptr;                          // owned; holds the trampolines

    // Guarded by `mutex` from here to `breakpointMethods`.
    std::unordered_set<std::string_view> fileNames;  // views into string tables
    std::unordered_map<Hash128, MethodLocation> hashToMetadata;
    std::unordered_map<Hash128, ItemList> hashToMetadataList;              // no empty lists
    std::unordered_map<Hash128, std::unordered_set<void*>> breakpointMap;  // no empty sets
    std::unordered_map<Hash128, std::vector<EntryPoint>> entryPoints;      // registration order
    std::unordered_set<QuarnDebugMetadata*> metadataItems;                 // owns the records
    MethodHandleBatch methodCache;  // the current batch of method handles
    std::unordered_set<void*> breakpointMethods;

    // The handling object's one lock; not recursive.
    std::mutex mutex;
    // Null when logging is off. Never destroyed: the log stays open until the process ends.
    DebugLogWriter* logWriter = nullptr;
    // Low half: batch counter; high half: its complement. Guarded by `mutex`.
    uint64_t methodCacheGeneration = 0;

    // Guarded by `mutex`. The item of each item hash in `metadataItems` (at most one: a new item
    // replaces every older one with its hash), so replacement needs no walk over every item.
    std::unordered_map<Hash128, QuarnDebugMetadata*> itemByHash;
    // Guarded by `mutex`. Items dropped from `metadataItems` since the last cache rebuild: a
    // method list issued before that rebuild (even between two items of one load) may hold
    // handles to them. Never freed before the next rebuild and the list after it, so a freed
    // record's address can never come back as a new record that an old handle would accept.
    std::vector<QuarnDebugMetadata*> retiredItems;
    // Guarded by `mutex`. Retired items that no cache reaches since the last rebuild; freed by
    // the next method list, which makes every handle that could point at them stale.
    std::vector<QuarnDebugMetadata*> releasableItems;
    // Guarded by `mutex`. The values of `hashToMetadata`, in the order they were inserted, in
    // one contiguous block: the method list is issued in this order (the map's order is free),
    // reading it sequentially instead of chasing the map's scattered nodes.
    std::vector<MethodLocation> methodLocations;
};
