#pragma once
// The one handling object behind a host handle: every member of every subsystem, declared once.

#include <cstdint>
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
#include "plugin/Lock.h"
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
// Locking (checked by clang, see plugin/Lock.h): `mutex` guards the members marked GUARDED_BY.
// Public entry points write their first log line, then lock (EXCLUDES). REQUIRES members never
// lock. DumpState and RequestFlushClientDebuggerKnowledge must be called with the mutex released.
// Members with neither annotation never lock, and outside construction and destruction touch
// nothing the mutex guards.
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

    // ---- metadata/ ----
    void ProcessLibraryMetadata(void* libraryHandle) EXCLUDES(mutex);
    void UnloadLibraryMetadata(void* libraryHandle) EXCLUDES(mutex);
    void ClearLibraryMetadata() EXCLUDES(mutex);
    void DumpState() EXCLUDES(mutex);

    // ---- entrypoints/ ----
    void RegisterEntryPoint(void* library, Hash128 entryHash, void* native, void* stub,
                            void* callback, void* callbackContext) EXCLUDES(mutex);
    void QuarnFinishSetup();
    void EnableDisableQuarnJobFunctionPointer(Hash128 entryHash) REQUIRES(mutex);

    // ---- breakpoints/ ----
    void QuarnBreakpointNotify(int isSet, void* method, int64_t unused, void* breakpoint)
        EXCLUDES(mutex);
    void AddBreakpointForEntryPoints(void* unused, const Hash128& methodHash, void* breakpoint)
        REQUIRES(mutex);
    void RemoveBreakpointForEntryPoints(void* breakpoint) REQUIRES(mutex);
    void RequestFlushClientDebuggerKnowledge() EXCLUDES(mutex);
    int TestFetchEntryPointHash(void* method, Hash128* result) EXCLUDES(mutex);
    int TestFetchMethodHash(void* method, Hash128* result) EXCLUDES(mutex);
    int TestBreakpointSet(Hash128* entryHash) EXCLUDES(mutex);
    uint32_t TestFetchEntryPointCountForHash(Hash128* entryHash) EXCLUDES(mutex);

    // ---- queries/ ----
    int QuarnIsFileQuarned(int ignoreCase, const char* path) EXCLUDES(mutex);
    void QuarnFetchFiles(void* buffer, unsigned int value, int, int, int) EXCLUDES(mutex);
    void QuarnFetchMethods(void* buffer, void* idContext, int idArgument, int, int, int)
        EXCLUDES(mutex);
    void QuarnFetchDebugInfo(void* buffer, void* method, int versionKnown, int majorVersion,
                             int minorVersion) EXCLUDES(mutex);
    void QuarnFetchMethodInfo(void* buffer, void* method, int versionKnown, int majorVersion,
                              int minorVersion) EXCLUDES(mutex);
    void QuarnFetchParamInfo(void* buffer, void* method, int, int, int);
    void QuarnFetchMethodName(void* buffer, void* method, int, int, int);
    // The one rule that turns a method handle back into its entry and item.
    bool MethodPtrToMethodCacheEntry(void* method, MethodCacheEntry*& entry,
                                     QuarnDebugMetadata*& metadata) REQUIRES(mutex);
    void LogMD5Hash(int level, const char* prefix, const unsigned char* digest);

    // ---- trampoline/: C-level wrappers the trampolines call, the object inserted first ----
    static void CQuarnFinishSetup(MonoDebuggerHandling* self);
    static int CQuarnIsFileQuarned(MonoDebuggerHandling* self, int ignoreCase, const char* path)
        EXCLUDES(self->mutex);
    static void CQuarnFetchFiles(MonoDebuggerHandling* self, void* buffer, unsigned int value,
                                 int a, int b, int c) EXCLUDES(self->mutex);
    static void CQuarnFetchMethods(MonoDebuggerHandling* self, void* buffer, void* idContext,
                                   int idArgument, int a, int b, int c) EXCLUDES(self->mutex);
    static void CQuarnFetchDebugInfo(MonoDebuggerHandling* self, void* buffer, void* method,
                                     int versionKnown, int majorVersion, int minorVersion)
        EXCLUDES(self->mutex);
    static void CQuarnFetchMethodInfo(MonoDebuggerHandling* self, void* buffer, void* method,
                                      int versionKnown, int majorVersion, int minorVersion)
        EXCLUDES(self->mutex);
    static void CQuarnFetchParamInfo(MonoDebuggerHandling* self, void* buffer, void* method,
                                     int versionKnown, int majorVersion, int minorVersion);
    static void CQuarnFetchMethodName(MonoDebuggerHandling* self, void* buffer, void* method,
                                      int versionKnown, int majorVersion, int minorVersion);
    static void CQuarnBreakpointNotify(MonoDebuggerHandling* self, int isSet, void* method,
                                       int64_t unused, void* breakpoint) EXCLUDES(self->mutex);
    static int CTestFetchEntryPointHash(MonoDebuggerHandling* self, void* method, Hash128* result)
        EXCLUDES(self->mutex);
    static int CTestFetchMethodHash(MonoDebuggerHandling* self, void* method, Hash128* result)
        EXCLUDES(self->mutex);
    static int CTestBreakpointSet(MonoDebuggerHandling* self, Hash128* entryHash)
        EXCLUDES(self->mutex);
    static uint32_t CTestFetchEntryPointCountForHash(MonoDebuggerHandling* self, Hash128* entryHash)
        EXCLUDES(self->mutex);

  private:
    friend class MonoDebuggerHandlingInspector;  // read-only access for unit tests

    // ---- trampoline/ ----
    void GenerateCallbackTrampolines();

    // ---- metadata/ ----
    void RegisterItem(QuarnDebugMetadata* item) REQUIRES(mutex);
    void DropItem(QuarnDebugMetadata* item) noexcept REQUIRES(mutex);
    void LogCacheTotals() REQUIRES(mutex);
    void DumpItems() REQUIRES(mutex);
    void DumpCaches() REQUIRES(mutex);
    void DumpBreakpointsAndEntryPoints() REQUIRES(mutex);

    // ---- breakpoints/ ----
    using HandleHashReader = Hash128 (*)(const MethodCacheEntry&, const QuarnDebugMetadata&);
    int CopyHashOfHandle(void* method, Hash128* result, HandleHashReader read) EXCLUDES(mutex);

    // ---- entrypoints/ ----
    void RemoveEntryPointsOfLibrary(void* libraryHandle) REQUIRES(mutex);
    void RemoveEntryPoints(std::vector<EntryPoint>& list, void* libraryHandle,
                           const Hash128& entryHash) REQUIRES(mutex);
    void SwitchStub(const EntryPoint& entry, bool managed) REQUIRES(mutex);

    // ---- queries/ ----
    void WriteDebugInfoFiles(void* buffer, const QuarnDebugMetadata& item,
                             const MethodDebugInfo& method, const ProtocolVersion& version)
        REQUIRES(mutex);
    void WriteSequencePoints(void* buffer, const QuarnDebugMetadata& item,
                             const MethodDebugInfo& method, const ProtocolVersion& version)
        REQUIRES(mutex);

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

    // Every registry change updates the indexes below for the items and entry points it adds
    // or removes, never walking the others.
    FileNameIndex fileNames GUARDED_BY(mutex);  // distinct file names of the registered items
    // Per distinct method hash: every item holding it, and the one answering for it in the
    // method list.
    MethodIndex hashToMetadata GUARDED_BY(mutex);
    // The breakpoints on each entry hash; no empty sets.
    std::unordered_map<Hash128, std::unordered_set<void*>> breakpointMap GUARDED_BY(mutex);
    // The entry points of each entry hash, in registration order.
    std::unordered_map<Hash128, std::vector<EntryPoint>> entryPoints GUARDED_BY(mutex);
    // Owns the registered records.
    std::unordered_set<QuarnDebugMetadata*> metadataItems GUARDED_BY(mutex);
    // The current batch of method handles, and the dropped items a handle may still name.
    RecordLifetimes methodCache GUARDED_BY(mutex);
    std::unordered_set<void*> breakpointMethods GUARDED_BY(mutex);
    // The registered item of each item hash (a new item replaces the older one with its hash).
    std::unordered_map<Hash128, QuarnDebugMetadata*> itemByHash GUARDED_BY(mutex);
    // Each library's items and entry hashes, so an unload touches that library's records only.
    LibraryIndex libraries GUARDED_BY(mutex);

    // The handling object's one lock; not recursive.
    Mutex mutex;
    // Null when logging is off. Never destroyed: the log stays open until the process ends.
    DebugLogWriter* logWriter = nullptr;
    // Low half: batch counter; high half: its complement.
    uint64_t methodCacheGeneration GUARDED_BY(mutex) = 0;
};
