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
#include "metadata/FileNameIndex.h"
#include "metadata/Hash128.h"
#include "metadata/LibraryIndex.h"
#include "metadata/MethodIndex.h"
#include "metadata/QuarnDebugMetadata.h"
#include "metadata/RecordLifetimes.h"
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

    // ---- trampoline/ ----
    void GenerateCallbackTrampolines();

    // ---- metadata/ (caller holds mutex) ----
    void RegisterItem(QuarnDebugMetadata* item);
    void DropItem(QuarnDebugMetadata* item) noexcept;
    void LogCacheTotals();
    void DumpItems();
    void DumpCaches();
    void DumpBreakpointsAndEntryPoints();

    // ---- breakpoints/ ----
    using HandleHashReader = Hash128 (*)(const MethodCacheEntry&, const QuarnDebugMetadata&);
    int CopyHashOfHandle(void* method, Hash128* result, HandleHashReader read);  // locks

    // ---- entrypoints/ (caller holds mutex) ----
    void RemoveEntryPointsOfLibrary(void* libraryHandle);
    void RemoveEntryPoints(std::vector<EntryPoint>& list, void* libraryHandle,
                           const Hash128& entryHash);
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

    // Guarded by `mutex` from here to `libraries`. Every registry change updates the indexes
    // below for the items and entry points it adds or removes, never walking the others.
    FileNameIndex fileNames;     // distinct file names of the registered items
    MethodIndex hashToMetadata;  // per distinct method hash: every item holding it, and the
                                 // one answering for it in the method list
    std::unordered_map<Hash128, std::unordered_set<void*>> breakpointMap;  // no empty sets
    std::unordered_map<Hash128, std::vector<EntryPoint>> entryPoints;      // registration order
    std::unordered_set<QuarnDebugMetadata*> metadataItems;  // owns the registered records
    // The current batch of method handles, and the dropped items a handle may still name.
    RecordLifetimes methodCache;
    std::unordered_set<void*> breakpointMethods;
    // The registered item of each item hash (a new item replaces the older one with its hash).
    std::unordered_map<Hash128, QuarnDebugMetadata*> itemByHash;
    // Each library's items and entry hashes, so an unload touches that library's records only.
    LibraryIndex libraries;

    // The handling object's one lock; not recursive.
    std::mutex mutex;
    // Null when logging is off. Never destroyed: the log stays open until the process ends.
    DebugLogWriter* logWriter = nullptr;
    // Low half: batch counter; high half: its complement. Guarded by `mutex`.
    uint64_t methodCacheGeneration = 0;
};
